// Start, waits and stop of a worker thread.
#include "interpose.h"
#include "trace.h"
#include "zel_common_thread.h"

#include <atomic>
#include <cerrno>
#include <semaphore>
#include <thread>

using namespace zel_test;

namespace
{

/// A thread that has begun, and its record.
struct worker {
    worker()
    {
        EXPECT_TRUE(_common_thread_start(&record, work, this));
        has_begun.acquire();
        EXPECT_TRUE(pthread_equal(self, record->thread_id));
    }
    ~worker()
    {
        // Another thread looks, for the lock is recursive.
        std::thread([this] { EXPECT_FALSE(is_locked(record->available_lock)); }).join();
        _common_thread_stop(record);
    }
    static void *work(void *data)
    {
        worker &me = *static_cast<worker *>(data);
        EXPECT_NE(me.record, nullptr) << "it stands there before the thread runs";
        EXPECT_EQ(pthread_detach(pthread_self()), EINVAL) << "it is detached";
        me.self = pthread_self();
        me.has_begun.release();
        return nullptr;
    }

    zel_thread_s *record = nullptr;
    std::binary_semaphore has_begun{0};
    pthread_t self = 0;
};

} // namespace

TEST(Thread, wait_status_is_its_owners_and_the_lock_is_recursive)
{
    const worker thread;
    std::atomic_ref<bool> flag(thread.record->thread_wait_status); // its owner writes it without the lock
    EXPECT_FALSE(_common_thread_get_wait_status(thread.record));
    flag = true;
    EXPECT_TRUE(_common_thread_get_wait_status(thread.record));
    const std::jthread owner([&] { flag = false; });
    while (_common_thread_get_wait_status(thread.record))
        std::this_thread::yield();
    pthread_mutex_lock(&thread.record->available_lock);
    EXPECT_FALSE(is_locked(thread.record->available_lock));
    pthread_mutex_unlock(&thread.record->available_lock);
}

TEST(Thread, null_arguments_are_rejected)
{
    expect_null_is_rejected(2, "Invalid arguments", false, _common_thread_start);
    constexpr char MESSAGE[] = "req_thread is NULL";
    expect_null_is_rejected(1, MESSAGE, false, _common_thread_wait_till_start, _common_thread_notify_started,
                            _common_thread_set_is_running, _common_thread_sendSignal, _common_thread_stop,
                            _common_thread_get_wait_status);
    expect_null_is_rejected(1, MESSAGE, EINVAL, _common_thread_waitCallback);
}

TEST(Thread, failed_steps_of_start_and_stop_are_logged)
{
    {
        const worker thread;
        zel_thread_s *record = thread.record;
        const fault failure({LIBRARY_MEMORY}, 1);
        EXPECT_FALSE(_common_thread_start(&record, worker::work, nullptr));
        EXPECT_EQ(record, thread.record) << "untouched";
        calls::thread_create.answer(EAGAIN);
        EXPECT_FALSE(_common_thread_start(&record, worker::work, nullptr));
        EXPECT_EQ(record, nullptr);
        calls::mutex_destroy.answer(EBUSY);
        calls::cond_broadcast.answer(EINVAL);
        calls::cond_destroy.answer(EPERM);
    }
    EXPECT_EQ(calls::mutex_destroy.calls, 2);
    EXPECT_EQ(calls::cond_destroy.calls, 2);
    worker(); // without a failure nothing is logged
    expect_lines(R"(
_common_thread_start: Critical: Failed memory allocation
    Critical: Failed to create thread ret_val[11]
_common_thread_stop: Critical: pthread_mutex_destroy failed - 16
    Critical: pthread_cond_broadcast failed - 22
    Critical: pthread_cond_destroy failed - 1 (End)
)");
}

TEST(Thread, waits_end_with_a_signal)
{
    const worker thread;
    const auto wake = [&] {
        wait_for_sleeper(thread.record->available_lock);
        _common_thread_notify_started(thread.record);
        _common_thread_sendSignal(thread.record);
    };
    std::jthread starter([&] { EXPECT_TRUE(_common_thread_wait_till_start(thread.record)); });
    wake();
    starter.join();
    const std::jthread waiter([&] { EXPECT_EQ(_common_thread_waitCallback(thread.record), 0); });
    wake();
    expect_lines("");
}

TEST(Thread, start_is_waited_for_once_and_for_five_seconds)
{
    const worker thread;
    const scripted_clock clock(1000, 999999); // long past: a real wait ends at once
    EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
    calls::cond_timedwait.answer(0); // woken too early
    EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
    EXPECT_EQ(std::pair(last_deadline.tv_sec, last_deadline.tv_nsec), std::pair(time_t(1005), 0L));
    _common_thread_set_is_running(thread.record, true);
    EXPECT_TRUE(_common_thread_wait_till_start(thread.record));
    EXPECT_EQ(calls::cond_timedwait.calls, 2);
    _common_thread_set_is_running(thread.record, false);
    EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
    _common_thread_notify_started(thread.record);
    EXPECT_TRUE(_common_thread_wait_till_start(thread.record));
    EXPECT_EQ(calls::cond_signal.calls, 0) << "a change of the state wakes nobody";
    expect_lines("");
}

TEST(Thread, callback_is_waited_for_once_and_for_ten_seconds)
{
    const worker thread;
    const scripted_clock clock(1000, 999999);
    _common_thread_sendSignal(thread.record); // lost: nobody waits yet
    EXPECT_EQ(_common_thread_waitCallback(thread.record), -110);
    EXPECT_EQ(std::pair(last_deadline.tv_sec, last_deadline.tv_nsec), std::pair(time_t(1010), 999999000L));
    calls::cond_timedwait.answer(EINVAL);
    EXPECT_EQ(_common_thread_waitCallback(thread.record), EINVAL);
    expect_lines(R"(
_common_thread_waitCallback: Info: access mutex lock
    Critical: waitCallback() TIME-OUT (End)
    Info: access mutex lock
)");
}
