// Stand-ins between the library and what it calls: CMakeLists.txt lists the functions that ld redirects here. Left
// alone, each does what the function it stands for does; "/tmp/quillo.pid" always means quillo.pid in the test's
// own folder.
#ifndef ZEL_TESTS_INTERPOSE_H
#define ZEL_TESTS_INTERPOSE_H

#include <atomic>
#include <cstddef>
#include <ctime>
#include <pthread.h>
#include <semaphore>

namespace zel_test
{

inline thread_local struct allocation_counts {
    int count; ///< since the last allocation_failure began
    int failing;
    size_t largest; ///< bytes of the largest single request
} allocations;

/// While it lives, the n-th allocation of the calling thread fails (g_try_*, malloc, calloc, realloc in static code).
struct allocation_failure {
    /// @param nth 1 for the next; 0 to fail none and only watch
    explicit allocation_failure(int nth)
    {
        allocations = {0, nth, 0};
    }
    ~allocation_failure()
    {
        allocations.failing = 0;
    }
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
    /// After `skip` further calls, `times` calls are not carried out but give this result.
    void answer(int result, int skip = 0, int times = 1)
    {
        result_ = result, skip_ = skip, times_ = times;
    }
    int calls() const
    {
        return calls_;
    }
    /// For the stand-in: counts a call and tells whether it is to give *result.
    bool take(int *result)
    {
        ++calls_;
        if (times_ == 0 || (skip_ > 0 && skip_--))
            return false;
        --times_;
        *result = result_;
        return true;
    }
    std::atomic<int> result_ = 0, skip_ = 0, times_ = 0, calls_ = 0;
};

namespace calls
{
inline call_script cond_broadcast, cond_destroy, cond_signal, cond_timedwait, mutex_destroy, thread_create;
inline call_script file_status; ///< stat; an answer is an errno, with the result -1
inline call_script sleep;       ///< g_usleep; an answer only skips the sleep
} // namespace calls

/// Released once for every pthread_cond_wait and pthread_cond_timedwait, while the waiter still holds its mutex:
/// whoever gets the mutex after acquiring one knows that the waiter sleeps.
inline std::counting_semaphore<> waits_entered(0);
/// Returns when a thread has fallen asleep that had this mutex.
inline void wait_for_sleeper(pthread_mutex_t &mutex)
{
    waits_entered.acquire();
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
}
/// Whether anybody holds a mutex that is not recursive.
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
