#include "interpose.h"
#include "recording_platform.h"
#include "zel_common_thread.h"

#include <cerrno>
#include <future>
#include <pthread.h>

using namespace zel_test;

namespace
{

// What a started thread sees of its record, and its way to say that it is done.
struct worker {
    zel_thread_s *record = nullptr;
    zel_thread_s *seen = nullptr;
    pthread_t self{};
    int detach_state = -1;
    std::promise<void> done;
};

void *report(void *data)
{
    worker &me = *static_cast<worker *>(data);
    me.seen = me.record;
    me.self = pthread_self();
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getdetachstate(&attributes, &me.detach_state);
    pthread_attr_destroy(&attributes);
    me.done.set_value();
    return nullptr;
}

class Thread : public testing::Test
{
  protected:
    Thread()
    {
        EXPECT_TRUE(_common_thread_start(&thread.record, report, &thread));
        EXPECT_TRACE(whole("_common_thread_start"));
        thread.done.get_future().wait();
    }
    ~Thread() override
    {
        if (!thread.record)
            return;
        // Asked by another thread, for the lock is recursive.
        EXPECT_FALSE(std::async(std::launch::async, [this] { return is_locked(thread.record->available_lock); }).get());
        _common_thread_stop(thread.record);
    }

    worker thread;
};

} // namespace

TEST_F(Thread, StartedThreadFindsItsRecord)
{
    EXPECT_EQ(thread.seen, thread.record);
    EXPECT_TRUE(pthread_equal(thread.self, thread.record->thread_id));
    EXPECT_EQ(thread.detach_state, PTHREAD_CREATE_DETACHED);
    EXPECT_FALSE(thread.record->is_running);
    EXPECT_FALSE(_common_thread_get_wait_status(thread.record));
    thread.record->thread_wait_status = true;
    EXPECT_TRUE(_common_thread_get_wait_status(thread.record));
    EXPECT_TRACE();
    pthread_mutex_lock(&thread.record->available_lock);
    EXPECT_EQ(pthread_mutex_trylock(&thread.record->available_lock), 0) << "the lock is recursive";
    pthread_mutex_unlock(&thread.record->available_lock);
    pthread_mutex_unlock(&thread.record->available_lock);
}

TEST_F(Thread, BadArgumentsAndFailedStartsLeaveNoRecord)
{
    zel_thread_s *record = thread.record;
    EXPECT_NULLS_REJECTED(2, false, "Invalid arguments", _common_thread_start, &record, report, nullptr);
    {
        const allocation_failure failure(1);
        EXPECT_REJECTED(false, "Failed memory allocation", _common_thread_start, &record, report, nullptr);
    }
    EXPECT_EQ(record, thread.record) << "untouched";
    calls::thread_create.answer(EAGAIN);
    EXPECT_REJECTED(false, "Failed to create thread ret_val[11]", _common_thread_start, &record, report, nullptr);
    EXPECT_EQ(record, nullptr);

    const std::string body = "req_thread is NULL";
    EXPECT_REJECTED(false, body, _common_thread_wait_till_start, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_notify_started, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_set_is_running, nullptr, true);
    EXPECT_REJECTED(22, body, _common_thread_waitCallback, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_sendSignal, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_stop, nullptr);
    EXPECT_NULLS_REFUSED(1, false, body, _common_thread_get_wait_status, thread.record);
}

TEST_F(Thread, StartWaitIsOneWaitToAWholeSecondUnlessRunning)
{
    const scripted_clock clock(1000, 999999); // long past: a real wait ends at once
    EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
    calls::cond_timedwait.answer(0); // woken too early
    EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
    EXPECT_TRACE(whole("_common_thread_wait_till_start"), whole("_common_thread_wait_till_start"));
    EXPECT_EQ(last_deadline.tv_sec, 1005);
    EXPECT_EQ(last_deadline.tv_nsec, 0);
    EXPECT_EQ(calls::cond_timedwait.calls(), 2);

    _common_thread_notify_started(thread.record);
    EXPECT_TRACE(whole("_common_thread_notify_started"));
    EXPECT_TRUE(_common_thread_wait_till_start(thread.record));
    EXPECT_EQ(calls::cond_timedwait.calls(), 2);
    take_trace();
    _common_thread_set_is_running(thread.record, false);
    EXPECT_TRACE(whole("_common_thread_set_is_running"));
    EXPECT_FALSE(thread.record->is_running);
    _common_thread_set_is_running(thread.record, true);
    EXPECT_TRUE(thread.record->is_running);
    EXPECT_EQ(calls::cond_signal.calls(), 0) << "neither wakes anybody";
}

TEST_F(Thread, CallbackWaitReportsHowItEnded)
{
    const scripted_clock clock(2000, 123456);
    const std::string function = "_common_thread_waitCallback";
    const trace access = info(function, "access mutex lock");
    _common_thread_sendSignal(thread.record); // lost: nobody waits yet
    EXPECT_TRACE(whole("_common_thread_sendSignal"));
    EXPECT_EQ(_common_thread_waitCallback(thread.record), -110);
    EXPECT_TRACE(whole(function, {access, critical(function, "waitCallback() TIME-OUT")}));
    EXPECT_EQ(last_deadline.tv_sec, 2010);
    EXPECT_EQ(last_deadline.tv_nsec, 123456000);
    calls::cond_timedwait.answer(EINVAL);
    EXPECT_EQ(_common_thread_waitCallback(thread.record), EINVAL);
    EXPECT_TRACE(whole(function, {access}));
}

TEST_F(Thread, SignalEndsBothWaits)
{
    auto started = std::async(std::launch::async, [this] { return _common_thread_wait_till_start(thread.record); });
    wait_for_sleeper(thread.record->available_lock);
    _common_thread_notify_started(thread.record);
    _common_thread_sendSignal(thread.record);
    EXPECT_TRUE(started.get());
    auto result = std::async(std::launch::async, [this] { return _common_thread_waitCallback(thread.record); });
    wait_for_sleeper(thread.record->available_lock);
    _common_thread_sendSignal(thread.record);
    EXPECT_EQ(result.get(), 0);
}

TEST_F(Thread, StopGoesOnAfterAFailedStep)
{
    _common_thread_stop(thread.record);
    EXPECT_TRACE(whole("_common_thread_stop"));
    EXPECT_EQ(calls::mutex_destroy.calls(), 1);
    EXPECT_EQ(calls::cond_broadcast.calls(), 1);
    EXPECT_EQ(calls::cond_destroy.calls(), 1);

    worker other;
    EXPECT_TRUE(_common_thread_start(&other.record, report, &other));
    other.done.get_future().wait();
    take_trace();
    calls::mutex_destroy.answer(EBUSY);
    calls::cond_broadcast.answer(EINVAL);
    calls::cond_destroy.answer(EPERM);
    _common_thread_stop(other.record);
    EXPECT_TRACE(whole("_common_thread_stop", {critical("_common_thread_stop", "pthread_mutex_destroy failed - 16"),
                                               critical("_common_thread_stop", "pthread_cond_broadcast failed - 22"),
                                               critical("_common_thread_stop", "pthread_cond_destroy failed - 1")}));
    thread.record = nullptr;
}
