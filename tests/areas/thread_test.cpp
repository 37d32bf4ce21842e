#include "interpose.h"
#include "platform.h"
#include "zel_common_thread.h"

#include <atomic>
#include <cerrno>
#include <future>
#include <pthread.h>
#include <thread>

using namespace zel_test;

namespace
{

// A record, and the thread that it is of.
struct worker {
    zel_thread_s *record = nullptr;
    std::promise<pthread_t> self;
};

void *work(void *data)
{
    worker &me = *static_cast<worker *>(data);
    EXPECT_NE(me.record, nullptr) << "it stands there before the thread runs";
    pthread_attr_t attributes;
    int detach_state = -1;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getdetachstate(&attributes, &detach_state);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(detach_state, PTHREAD_CREATE_DETACHED);
    me.self.set_value(pthread_self());
    return nullptr;
}

class Thread : public testing::Test
{
  protected:
    Thread()
    {
        EXPECT_TRUE(_common_thread_start(&thread.record, work, &thread));
        EXPECT_TRUE(pthread_equal(thread.self.get_future().get(), thread.record->thread_id));
    }
    ~Thread() override
    {
        // Asked by another thread, for the lock is recursive.
        EXPECT_FALSE(std::async(std::launch::async, [this] { return is_locked(thread.record->available_lock); }).get());
        _common_thread_stop(thread.record);
    }

    worker thread;
};

} // namespace

TEST_F(Thread, record_holds_its_states_and_null_is_rejected)
{
    EXPECT_FALSE(thread.record->is_running);
    _common_thread_notify_started(thread.record);
    EXPECT_TRUE(thread.record->is_running);
    for (const bool value : {false, true}) {
        _common_thread_set_is_running(thread.record, value);
        EXPECT_EQ(thread.record->is_running, value);
        thread.record->thread_wait_status = value;
        EXPECT_EQ(_common_thread_get_wait_status(thread.record), value);
    }
    std::atomic_ref<bool> flag(thread.record->thread_wait_status); // its owner writes it without the lock
    const auto lowered = std::async(std::launch::async, [&] { flag = false; });
    while (_common_thread_get_wait_status(thread.record))
        std::this_thread::yield();
    EXPECT_EQ(calls::cond_signal.calls, 0) << "none of them wakes anybody";
    pthread_mutex_lock(&thread.record->available_lock);
    EXPECT_FALSE(is_locked(thread.record->available_lock)) << "the lock is recursive";
    pthread_mutex_unlock(&thread.record->available_lock);
    leave_out_each(2, _common_thread_start);
    leave_out_each(1, _common_thread_wait_till_start, _common_thread_notify_started, _common_thread_set_is_running,
                   _common_thread_sendSignal, _common_thread_stop, _common_thread_get_wait_status,
                   _common_thread_waitCallback);
    expect_lines(0x540d7ec8);
}

TEST_F(Thread, failed_steps_of_start_and_stop_are_told)
{
    worker other;
    ASSERT_TRUE(_common_thread_start(&other.record, work, &other));
    other.self.get_future().wait();
    calls::mutex_destroy.answer(EBUSY);
    calls::cond_broadcast.answer(EINVAL);
    calls::cond_destroy.answer(EPERM);
    _common_thread_stop(other.record);

    zel_thread_s *record = thread.record;
    const fault failure({LIBRARY_MEMORY}, 1);
    EXPECT_FALSE(_common_thread_start(&record, work, nullptr));
    EXPECT_EQ(record, thread.record) << "untouched";
    calls::thread_create.answer(EAGAIN);
    EXPECT_FALSE(_common_thread_start(&record, work, nullptr));
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(calls::mutex_destroy.calls, 2);
    EXPECT_EQ(calls::cond_destroy.calls, 2);
    expect_lines(0x44e36682);
}

TEST_F(Thread, waits_end_at_their_deadlines)
{
    const scripted_clock clock(1000, 999999); // long past: a real wait ends at once
    EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
    calls::cond_timedwait.answer(0); // woken too early
    EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
    EXPECT_EQ(std::pair(last_deadline.tv_sec, last_deadline.tv_nsec), std::pair(time_t(1005), 0L));
    thread.record->is_running = true;
    EXPECT_TRUE(_common_thread_wait_till_start(thread.record));
    EXPECT_EQ(calls::cond_timedwait.calls, 2);

    _common_thread_sendSignal(thread.record); // lost: nobody waits yet
    EXPECT_EQ(_common_thread_waitCallback(thread.record), -110);
    EXPECT_EQ(std::pair(last_deadline.tv_sec, last_deadline.tv_nsec), std::pair(time_t(1010), 999999000L));
    calls::cond_timedwait.answer(EINVAL);
    EXPECT_EQ(_common_thread_waitCallback(thread.record), EINVAL);
    expect_lines(0x32adcc3c);
}

TEST_F(Thread, signal_ends_both_waits)
{
    const auto expect_woken = [this](auto wait, auto result) {
        auto woken = std::async(std::launch::async, wait, thread.record);
        wait_for_sleeper(thread.record->available_lock);
        _common_thread_notify_started(thread.record);
        _common_thread_sendSignal(thread.record);
        EXPECT_EQ(woken.get(), result);
    };
    expect_woken(_common_thread_wait_till_start, true);
    expect_woken(_common_thread_waitCallback, 0);
}
