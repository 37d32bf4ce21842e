#include "interpose.h"

#include <glib.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sys/time.h>

using namespace zel_test;

// ld turns every reference to a redirected name into __wrap_name, and __real_name into the name itself.
#define STAND_IN(result, name, parameters)                                                                             \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters;                                                                                   \
    result __wrap_##name parameters

#define ALLOCATION(name, parameters, arguments)                                                                        \
    STAND_IN(void *, name, parameters)                                                                                 \
    {                                                                                                                  \
        return fault::code_of(LIBRARY_MEMORY, 1) ? nullptr : __real_##name arguments;                                  \
    }

#define SCRIPTED(script, name, parameters, arguments)                                                                  \
    STAND_IN(int, name, parameters)                                                                                    \
    {                                                                                                                  \
        return calls::script.run([&] { return __real_##name arguments; });                                             \
    }

extern "C" {

ALLOCATION(realloc, (void *old, size_t size), (old, size))
ALLOCATION(g_try_malloc0, (gsize size), (size))
ALLOCATION(g_try_malloc0_n, (gsize n, gsize size), (n, size))
ALLOCATION(g_try_realloc_n, (gpointer old, gsize n, gsize size), (old, n, size))

SCRIPTED(cond_broadcast, pthread_cond_broadcast, (pthread_cond_t * condition), (condition))
SCRIPTED(cond_destroy, pthread_cond_destroy, (pthread_cond_t * condition), (condition))
SCRIPTED(cond_signal, pthread_cond_signal, (pthread_cond_t * condition), (condition))
SCRIPTED(mutex_destroy, pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex))
SCRIPTED(thread_create, pthread_create,
         (pthread_t * thread, const pthread_attr_t *attributes, void *(*routine)(void *), void *data),
         (thread, attributes, routine, data))

STAND_IN(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t *mutex))
{
    waits_entered.release();
    return __real_pthread_cond_wait(condition, mutex);
}

STAND_IN(int, pthread_cond_timedwait, (pthread_cond_t * condition, pthread_mutex_t *mutex, const timespec *until))
{
    last_deadline = *until;
    waits_entered.release();
    return calls::cond_timedwait.run([&] { return pthread_cond_clockwait(condition, mutex, CLOCK_REALTIME, until); });
}

STAND_IN(int, gettimeofday, (timeval * value, void *))
{
    timespec time = scripted_time;
    if (!clock_is_scripted)
        timespec_get(&time, TIME_UTC); // no function that is redirected itself: its width of time would be a guess
    *value = {time.tv_sec, static_cast<suseconds_t>(time.tv_nsec / 1000)};
    return 0;
}

STAND_IN(time_t, time, (time_t * value))
{
    timeval now;
    __wrap_gettimeofday(&now, nullptr);
    return value ? *value = now.tv_sec : now.tv_sec;
}

STAND_IN(FILE *, fopen, (const char *path, const char *mode))
{
    return __real_fopen(std::strcmp(path, "/tmp/quillo.pid") == 0 ? "quillo.pid" : path, mode);
}

STAND_IN(void, g_usleep, (gulong microseconds))
{
    last_sleep = microseconds;
    calls::sleep.run([&] {
        __real_g_usleep(microseconds);
        return 0;
    });
}

STAND_IN(char *, sqlite3_vmprintf, (const char *format, va_list arguments))
{
    return fault::code_of(STATEMENT_TEXT, 1) ? nullptr : __real_sqlite3_vmprintf(format, arguments);
}

STAND_IN(char *, sqlite3_mprintf, (const char *format, ...))
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
SAME(gettimeofday, __gettimeofday64);
SAME(time, __time64);
SAME(pthread_cond_timedwait, __pthread_cond_timedwait64);

} // extern "C"
