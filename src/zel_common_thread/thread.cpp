/* Start and control of a worker thread. */

#include "zel_common/holders.h"
#include "zel_common_log/trace.h"
#include "zel_common_thread.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <glib.h>
#include <sys/time.h>

namespace
{

constexpr int START_WAIT_SECONDS = 5;
constexpr int CALLBACK_WAIT_SECONDS = 10;
constexpr int CALLBACK_TIMED_OUT = -110;

void init_recursive_mutex(pthread_mutex_t *mutex)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

int create_detached_thread(pthread_t *thread_id, void *(*routine)(void *), void *data)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const int result = pthread_create(thread_id, &attributes, routine, data);
    pthread_attr_destroy(&attributes);
    return result;
}

void store_is_running(zel_thread_s *req_thread, bool value)
{
    const mutex_guard guard(req_thread->available_lock);
    req_thread->is_running = value;
}

} // namespace

bool _common_thread_start(zel_thread_s **req_thread, void *(*func_name)(void *), void *data)
{
    ZEL_BEGIN();
    if (!req_thread || !func_name)
        return reject("Invalid arguments", false);

    zel_thread_s *record = g_try_new0(zel_thread_s, 1);
    if (!record) {
        ZEL_CRITICAL("Failed memory allocation");
        return false;
    }
    *req_thread = record;
    init_recursive_mutex(&record->available_lock);
    pthread_cond_init(&record->available_signal, nullptr);

    const int result = create_detached_thread(&record->thread_id, func_name, data);
    if (result != 0) {
        ZEL_CRITICAL("Failed to create thread ret_val[%d]", result);
        pthread_mutex_destroy(&record->available_lock);
        pthread_cond_destroy(&record->available_signal);
        g_free(record);
        *req_thread = nullptr;
        return false;
    }
    ZEL_END();
    return true;
}

void _common_thread_stop(zel_thread_s *req_thread)
{
    ZEL_BEGIN();
    if (!req_thread)
        return (void)reject("req_thread is NULL");

    int result = pthread_mutex_destroy(&req_thread->available_lock);
    if (result != 0)
        ZEL_CRITICAL("pthread_mutex_destroy failed - %d", result);
    result = pthread_cond_broadcast(&req_thread->available_signal);
    if (result != 0)
        ZEL_CRITICAL("pthread_cond_broadcast failed - %d", result);
    result = pthread_cond_destroy(&req_thread->available_signal);
    if (result != 0)
        ZEL_CRITICAL("pthread_cond_destroy failed - %d", result);
    g_free(req_thread);
    ZEL_END();
}

int _common_thread_waitCallback(zel_thread_s *req_thread)
{
    ZEL_BEGIN();
    if (!req_thread)
        return reject("req_thread is NULL", EINVAL);

    int result = 0;
    {
        const mutex_guard guard(req_thread->available_lock);
        ZEL_INFO("access mutex lock");

        timeval now = {};
        gettimeofday(&now, nullptr);
        timespec deadline = {};
        deadline.tv_sec = now.tv_sec + CALLBACK_WAIT_SECONDS;
        deadline.tv_nsec = static_cast<decltype(deadline.tv_nsec)>(now.tv_usec * 1000);
        result = pthread_cond_timedwait(&req_thread->available_signal, &req_thread->available_lock, &deadline);
        if (result == ETIMEDOUT) {
            ZEL_CRITICAL("waitCallback() TIME-OUT");
            result = CALLBACK_TIMED_OUT;
        }
    }
    ZEL_END();
    return result;
}

void _common_thread_sendSignal(zel_thread_s *req_thread)
{
    ZEL_BEGIN();
    if (!req_thread)
        return (void)reject("req_thread is NULL");

    {
        const mutex_guard guard(req_thread->available_lock);
        pthread_cond_signal(&req_thread->available_signal);
    }
    ZEL_END();
}

bool _common_thread_wait_till_start(zel_thread_s *req_thread)
{
    ZEL_BEGIN();
    if (!req_thread)
        return reject("req_thread is NULL", false);

    bool is_running = false;
    {
        const mutex_guard guard(req_thread->available_lock);
        if (!req_thread->is_running) {
            timespec deadline = {};
            deadline.tv_sec = time(nullptr) + START_WAIT_SECONDS;
            pthread_cond_timedwait(&req_thread->available_signal, &req_thread->available_lock, &deadline);
        }
        is_running = req_thread->is_running;
    }
    ZEL_END();
    return is_running;
}

void _common_thread_notify_started(zel_thread_s *req_thread)
{
    ZEL_BEGIN();
    if (!req_thread)
        return (void)reject("req_thread is NULL");

    store_is_running(req_thread, true);
    ZEL_END();
}

void _common_thread_set_is_running(zel_thread_s *req_thread, bool value)
{
    ZEL_BEGIN();
    if (!req_thread)
        return (void)reject("req_thread is NULL");

    store_is_running(req_thread, value);
    ZEL_END();
}

bool _common_thread_get_wait_status(zel_thread_s *req_thread)
{
    /* The owner may write the flag without the lock. */
    if (!req_thread)
        return reject("req_thread is NULL", false);
    return std::atomic_ref<bool>(req_thread->thread_wait_status);
}
