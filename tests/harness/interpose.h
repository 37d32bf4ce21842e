// Stand-ins for functions that the library calls: CMakeLists.txt lists those that ld redirects here. Without a fault or
// a script each calls its original. "/tmp/quillo.pid" always means quillo.pid in the test's own folder.
#ifndef ZEL_TESTS_INTERPOSE_H
#define ZEL_TESTS_INTERPOSE_H

#include <atomic>
#include <ctime>
#include <pthread.h>
#include <semaphore>

namespace zel_test
{

/// Calls that can fail; together they make a bit set.
enum fallible : unsigned {
    DISK_WRITE = 1,
    DISK_LOCK = 2,  ///< take a lock, look for one
    DISK_OTHER = 4, ///< read, sync, truncate, open, delete, look for a file, ask for the size
    DISK = DISK_WRITE | DISK_LOCK | DISK_OTHER,
    SQLITE_MEMORY = 8,
    STATEMENT_TEXT = 16, ///< sqlite3_mprintf and sqlite3_vmprintf, as the library calls them
    LIBRARY_MEMORY = 32, ///< g_try_* and realloc in static code
};

struct fault_plan {
    unsigned calls = 0;
    bool lasting = false; ///< once a call has failed all further ones do
    int code = 0;         ///< the result of a call that fails; 0 for the usual one
};

/// While it lives, the n-th of the planned calls fails; they are only counted if that is 0.
struct fault {
    fault(const fault_plan &plan, int nth)
    {
        now = {plan, nth, 0};
    }
    ~fault()
    {
        now.plan = {};
    }
    static bool happened()
    {
        return now.count >= now.nth;
    }
    /// The code with which a call fails; 0 when it is made.
    static int code_of(unsigned call, int usual_code)
    {
        // Nothing is written while nothing is planned: threads may come here.
        if ((now.plan.calls & call) == 0 || ++now.count < now.nth || (now.count > now.nth && !now.plan.lasting))
            return 0;
        return now.plan.code ? now.plan.code : usual_code;
    }
    inline static struct {
        fault_plan plan;
        int nth, count; ///< of the planned calls
    } now;
};

inline std::atomic<bool> clock_is_scripted = false;
inline timespec scripted_time{};

/// While it lives, the time of day stands still.
struct scripted_clock {
    scripted_clock(long long seconds, long microseconds)
    {
        scripted_time = {static_cast<time_t>(seconds), microseconds * 1000};
        clock_is_scripted = true;
    }
    ~scripted_clock()
    {
        clock_is_scripted = false;
    }
};

/// Counts the calls of one function and answers some of them in its place.
struct call_script {
    std::atomic<int> calls = 0, result = 0, left = 0;
    /// So many calls are not made but return this result.
    void answer(int with, int times = 1)
    {
        result = with;
        left = times;
    }
    /// For the stand-in: counts a call, and makes it or answers in its place.
    int run(auto call)
    {
        ++calls;
        if (left == 0)
            return call();
        --left;
        return result;
    }
};

namespace calls
{
inline call_script cond_broadcast, cond_destroy, cond_signal, cond_timedwait, mutex_destroy, thread_create;
inline call_script sleep; ///< g_usleep; an answer only skips the sleep
} // namespace calls

/// Released once for every pthread_cond_wait and pthread_cond_timedwait, while the waiter still holds its mutex: a
/// thread that acquires it and then the mutex knows that the waiter sleeps.
inline std::counting_semaphore<> waits_entered(0);
/// Returns when a thread has fallen asleep that had this mutex.
inline void wait_for_sleeper(pthread_mutex_t &mutex)
{
    waits_entered.acquire();
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
}
/// Whether a thread holds a mutex that is not recursive.
inline bool is_locked(pthread_mutex_t &mutex)
{
    const bool is_free = pthread_mutex_trylock(&mutex) == 0;
    if (is_free)
        pthread_mutex_unlock(&mutex);
    return !is_free;
}

/// Argument of the last pthread_cond_timedwait and g_usleep.
inline timespec last_deadline{};
inline std::atomic<unsigned long> last_sleep = 0;

} // namespace zel_test

#endif
