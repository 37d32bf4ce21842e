#include "interpose.h"

#include <glib.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace
{

thread_local int allocations = 0;
thread_local int failing_allocation = 0;
thread_local size_t largest_allocation = 0;

bool allocation_fails(size_t count, size_t size)
{
    size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes))
        bytes = SIZE_MAX;
    largest_allocation = std::max(largest_allocation, bytes);
    return ++allocations == failing_allocation;
}

std::atomic<bool> clock_is_scripted = false;
std::atomic<long long> scripted_seconds = 0;
std::atomic<long> scripted_microseconds = 0;

std::mutex guard;
zel_test::deadline deadline_of_last_wait;
std::atomic<unsigned long> sleep_argument = 0;
std::atomic<unsigned int> seed_argument = 0;

// No function that is redirected itself: its width of time would be a guess on 32 bits.
timespec now()
{
    timespec result{};
    if (clock_is_scripted) {
        result.tv_sec = static_cast<time_t>(scripted_seconds);
        result.tv_nsec = scripted_microseconds * 1000;
    } else {
        timespec_get(&result, TIME_UTC);
    }
    return result;
}

} // namespace

namespace zel_test
{

allocation_failure::allocation_failure(int nth)
{
    allocations = 0;
    largest_allocation = 0;
    failing_allocation = nth;
}

allocation_failure::~allocation_failure()
{
    failing_allocation = 0;
}

bool allocation_failure::happened() const
{
    return failing_allocation != 0 && allocations >= failing_allocation;
}

int allocation_failure::count() const
{
    return allocations;
}

size_t allocation_failure::largest() const
{
    return largest_allocation;
}

scripted_clock::scripted_clock(long long seconds, long microseconds)
{
    scripted_seconds = seconds;
    scripted_microseconds = microseconds;
    clock_is_scripted = true;
}

scripted_clock::~scripted_clock()
{
    clock_is_scripted = false;
}

void call_script::answer(int result, int skip, int times)
{
    const std::lock_guard lock(guard_);
    result_ = result;
    skip_ = skip;
    times_ = times;
}

int call_script::calls() const
{
    const std::lock_guard lock(guard_);
    return calls_;
}

bool call_script::take(int *result)
{
    const std::lock_guard lock(guard_);
    ++calls_;
    if (times_ == 0 || skip_-- > 0)
        return false;
    skip_ = 0;
    --times_;
    *result = result_;
    return true;
}

namespace calls
{
call_script cond_broadcast;
call_script cond_destroy;
call_script cond_signal;
call_script cond_timedwait;
call_script mutex_destroy;
call_script thread_create;
call_script file_status;
call_script sleep;
call_script sqlite_step;
call_script sqlite_format;
} // namespace calls

std::counting_semaphore<> waits_entered(0);

deadline last_deadline()
{
    const std::lock_guard lock(guard);
    return deadline_of_last_wait;
}

unsigned long last_sleep()
{
    return sleep_argument;
}

unsigned int last_seed()
{
    return seed_argument;
}

} // namespace zel_test

// ld turns every reference to a redirected name into __wrap_name, and __real_name into the name itself.
#define STAND_IN(result, name, ...)                                                                                    \
    result __real_##name(__VA_ARGS__);                                                                                 \
    result __wrap_##name(__VA_ARGS__);                                                                                 \
    result __wrap_##name(__VA_ARGS__)

#define ALLOCATION(name, count, size, parameters, arguments)                                                           \
    void *__real_##name parameters;                                                                                    \
    void *__wrap_##name parameters;                                                                                    \
    void *__wrap_##name parameters                                                                                     \
    {                                                                                                                  \
        return allocation_fails(count, size) ? nullptr : __real_##name arguments;                                      \
    }

#define SCRIPTED(script, name, parameters, arguments)                                                                  \
    int __real_##name parameters;                                                                                      \
    int __wrap_##name parameters;                                                                                      \
    int __wrap_##name parameters                                                                                       \
    {                                                                                                                  \
        int result = 0;                                                                                                \
        return zel_test::calls::script.take(&result) ? result : __real_##name arguments;                               \
    }

extern "C" {

ALLOCATION(malloc, 1, size, (size_t size), (size))
ALLOCATION(calloc, n, size, (size_t n, size_t size), (n, size))
ALLOCATION(realloc, 1, size, (void *old, size_t size), (old, size))
ALLOCATION(g_try_malloc, 1, size, (gsize size), (size))
ALLOCATION(g_try_malloc0, 1, size, (gsize size), (size))
ALLOCATION(g_try_malloc_n, n, size, (gsize n, gsize size), (n, size))
ALLOCATION(g_try_malloc0_n, n, size, (gsize n, gsize size), (n, size))
ALLOCATION(g_try_realloc, 1, size, (gpointer old, gsize size), (old, size))
ALLOCATION(g_try_realloc_n, n, size, (gpointer old, gsize n, gsize size), (old, n, size))

SCRIPTED(cond_broadcast, pthread_cond_broadcast, (pthread_cond_t * condition), (condition))
SCRIPTED(cond_destroy, pthread_cond_destroy, (pthread_cond_t * condition), (condition))
SCRIPTED(cond_signal, pthread_cond_signal, (pthread_cond_t * condition), (condition))
SCRIPTED(mutex_destroy, pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex))
SCRIPTED(thread_create, pthread_create,
         (pthread_t * thread, const pthread_attr_t *attributes, void *(*routine)(void *), void *data),
         (thread, attributes, routine, data))
SCRIPTED(sqlite_step, sqlite3_step, (sqlite3_stmt * statement), (statement))

STAND_IN(int, pthread_cond_wait, pthread_cond_t *condition, pthread_mutex_t *mutex)
{
    zel_test::waits_entered.release();
    return __real_pthread_cond_wait(condition, mutex);
}

STAND_IN(int, pthread_cond_timedwait, pthread_cond_t *condition, pthread_mutex_t *mutex, const timespec *until)
{
    {
        const std::lock_guard lock(guard);
        deadline_of_last_wait = {until->tv_sec, until->tv_nsec};
    }
    zel_test::waits_entered.release();
    int result = 0;
    return zel_test::calls::cond_timedwait.take(&result)
               ? result
               : pthread_cond_clockwait(condition, mutex, CLOCK_REALTIME, until);
}

STAND_IN(int, gettimeofday, timeval *value, void *)
{
    const timespec time = now();
    value->tv_sec = time.tv_sec;
    value->tv_usec = static_cast<suseconds_t>(time.tv_nsec / 1000);
    return 0;
}

STAND_IN(time_t, time, time_t *value)
{
    const time_t seconds = now().tv_sec;
    if (value)
        *value = seconds;
    return seconds;
}

STAND_IN(int, stat, const char *path, struct stat *status)
{
    int error = 0;
    if (zel_test::calls::file_status.take(&error)) {
        errno = error;
        return -1;
    }
    return fstatat(AT_FDCWD, path, status, 0);
}

STAND_IN(FILE *, fopen, const char *path, const char *mode)
{
    return __real_fopen(std::strcmp(path, "/tmp/quillo.pid") == 0 ? "quillo.pid" : path, mode);
}

STAND_IN(void, srand, unsigned int seed)
{
    seed_argument = seed;
    __real_srand(seed);
}

STAND_IN(void, g_usleep, gulong microseconds)
{
    sleep_argument = microseconds;
    int unused = 0;
    if (!zel_test::calls::sleep.take(&unused))
        __real_g_usleep(microseconds);
}

STAND_IN(char *, sqlite3_vmprintf, const char *format, va_list arguments)
{
    int unused = 0;
    return zel_test::calls::sqlite_format.take(&unused) ? nullptr : __real_sqlite3_vmprintf(format, arguments);
}

char *__wrap_sqlite3_mprintf(const char *format, ...);
char *__wrap_sqlite3_mprintf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char *text = __wrap_sqlite3_vmprintf(format, arguments);
    va_end(arguments);
    return text;
}

// The names that 64-bit file offsets and times give them; each is called with the structures of this build.
#define SAME(name, other) decltype(__wrap_##name) __wrap_##other __attribute__((alias("__wrap_" #name)))
SAME(fopen, fopen64);
SAME(stat, stat64);
SAME(stat, __stat64_time64);
SAME(gettimeofday, __gettimeofday64);
SAME(time, __time64);
SAME(pthread_cond_timedwait, __pthread_cond_timedwait64);

} // extern "C"
