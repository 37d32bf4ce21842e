// Stand-ins between the library and what it calls: CMakeLists.txt lists the functions that ld redirects here. Left
// alone, each does what the function it stands for does; "/tmp/quillo.pid" always means quillo.pid in the test's
// own folder.
#ifndef ZEL_TESTS_INTERPOSE_H
#define ZEL_TESTS_INTERPOSE_H

#include <cstddef>
#include <mutex>
#include <semaphore>

namespace zel_test
{

/// While it lives, the n-th allocation of the calling thread fails (g_try_*, malloc, calloc, realloc in static code).
class allocation_failure
{
  public:
    /// @param nth 1 for the next; 0 to fail none and only watch
    explicit allocation_failure(int nth);
    ~allocation_failure();
    allocation_failure(const allocation_failure &) = delete;
    allocation_failure &operator=(const allocation_failure &) = delete;

    bool happened() const;
    int count() const;
    /// Bytes of the largest single request.
    size_t largest() const;
};

/// While it lives, the time of day stands still.
class scripted_clock
{
  public:
    scripted_clock(long long seconds, long microseconds);
    ~scripted_clock();
    scripted_clock(const scripted_clock &) = delete;
    scripted_clock &operator=(const scripted_clock &) = delete;
};

/// Counts the calls of one function and answers some of them in its place.
class call_script
{
  public:
    /// After `skip` further calls, `times` calls are not carried out but give this result.
    void answer(int result, int skip = 0, int times = 1);
    int calls() const;
    /// For the stand-in: counts a call and tells whether it is to give *result.
    bool take(int *result);

  private:
    mutable std::mutex guard_;
    int result_ = 0;
    int skip_ = 0;
    int times_ = 0;
    int calls_ = 0;
};

namespace calls
{
extern call_script cond_broadcast;
extern call_script cond_destroy;
extern call_script cond_signal;
extern call_script cond_timedwait;
extern call_script mutex_destroy;
extern call_script thread_create;
extern call_script file_status;   ///< stat; an answer is an errno, with the result -1
extern call_script sleep;         ///< g_usleep; an answer only skips the sleep
extern call_script sqlite_step;   ///< sqlite3_step; tests' own raw queries do not come here
extern call_script sqlite_format; ///< sqlite3_mprintf and sqlite3_vmprintf; an answer gives NULL
} // namespace calls

/// Released once for every pthread_cond_wait and pthread_cond_timedwait, while the waiter still holds its mutex:
/// whoever gets the mutex after acquiring one knows that the waiter sleeps.
extern std::counting_semaphore<> waits_entered;

/// Deadline of the last pthread_cond_timedwait.
struct deadline {
    long long seconds;
    long nanoseconds;
};
deadline last_deadline();

/// Argument of the last g_usleep and of the last srand.
unsigned long last_sleep();
unsigned int last_seed();

} // namespace zel_test

#endif
