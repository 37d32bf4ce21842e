#include "interpose.h"
#include "recording_platform.h"
#include "zel_common_thread.h"

#include <cerrno>
#include <ctime>
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
        if (thread.record)
            _common_thread_stop(thread.record);
    }

    // Asked by another thread, for the lock is recursive.
    bool lock_is_free()
    {
        return std::async(std::launch::async, [this] { return !is_locked(thread.record->available_lock); }).get();
    }

    worker thread;
};

double wall_clock()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace

TEST_F(Thread, StartedThreadFindsItsRecord)
{
    EXPECT_EQ(thread.seen, thread.record);
    EXPECT_TRUE(pthread_equal(thread.self, thread.record->thread_id));
    EXPECT_EQ(thread.detach_state, PTHREAD_CREATE_DETACHED);
    EXPECT_FALSE(thread.record->is_running);
    EXPECT_EQ(thread.record->data, nullptr);

    EXPECT_FALSE(_common_thread_get_wait_status(thread.record));
    thread.record->thread_wait_status = true;
    EXPECT_TRUE(_common_thread_get_wait_status(thread.record));
    EXPECT_TRACE();

    pthread_mutex_lock(&thread.record->available_lock);
    EXPECT_EQ(pthread_mutex_trylock(&thread.record->available_lock), 0) << "the lock is recursive";
    pthread_mutex_unlock(&thread.record->available_lock);
    pthread_mutex_unlock(&thread.record->available_lock);
}

TEST_F(Thread, StartThatFailsLeavesNoRecord)
{
    zel_thread_s *record = thread.record;
    EXPECT_NULLS_REJECTED(2, false, "Invalid arguments", _common_thread_start, &record, report, nullptr);
    {
        const allocation_failure failure(1);
        EXPECT_REJECTED(false, "Failed memory allocation", _common_thread_start, &record, report, nullptr);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_EQ(record, thread.record) << "untouched";
    calls::thread_create.answer(EAGAIN);
    EXPECT_REJECTED(false, "Failed to create thread ret_val[11]", _common_thread_start, &record, report, nullptr);
    EXPECT_EQ(record, nullptr);
}

TEST_F(Thread, NullRecordIsRejected)
{
    const std::string body = "req_thread is NULL";
    EXPECT_REJECTED(false, body, _common_thread_wait_till_start, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_notify_started, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_set_is_running, nullptr, true);
    EXPECT_REJECTED(22, body, _common_thread_waitCallback, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_sendSignal, nullptr);
    EXPECT_REJECTED(0, body, _common_thread_stop, nullptr);
    EXPECT_NULLS_REFUSED(1, false, body, _common_thread_get_wait_status, thread.record);
}

TEST_F(Thread, StartWaitEndsAtOnceForARunningThread)
{
    _common_thread_notify_started(thread.record);
    EXPECT_TRACE(whole("_common_thread_notify_started"));
    EXPECT_EQ(calls::cond_signal.calls(), 0) << "the notice does not signal";
    EXPECT_TRUE(_common_thread_wait_till_start(thread.record));
    EXPECT_TRACE(whole("_common_thread_wait_till_start"));
    EXPECT_EQ(calls::cond_timedwait.calls(), 0);

    _common_thread_set_is_running(thread.record, false);
    EXPECT_TRACE(whole("_common_thread_set_is_running"));
    EXPECT_FALSE(thread.record->is_running);
    _common_thread_set_is_running(thread.record, true);
    EXPECT_TRUE(thread.record->is_running);
    EXPECT_EQ(calls::cond_signal.calls(), 0);
    EXPECT_TRUE(lock_is_free());
}

TEST_F(Thread, StartWaitIsOneWaitToAWholeSecond)
{
    const scripted_clock clock(1000, 999999);
    for (const int early_or_late : {0, ETIMEDOUT}) {
        calls::cond_timedwait.answer(early_or_late);
        EXPECT_FALSE(_common_thread_wait_till_start(thread.record));
        EXPECT_TRACE(whole("_common_thread_wait_till_start"));
        EXPECT_EQ(last_deadline.seconds, 1005);
        EXPECT_EQ(last_deadline.nanoseconds, 0);
    }
    EXPECT_EQ(calls::cond_timedwait.calls(), 2);
    EXPECT_TRUE(lock_is_free());
}

TEST_F(Thread, StartWaitIsWokenByASignal)
{
    auto started = std::async(std::launch::async, [this] { return _common_thread_wait_till_start(thread.record); });
    wait_for_sleeper(thread.record->available_lock);
    _common_thread_notify_started(thread.record);
    _common_thread_sendSignal(thread.record);
    EXPECT_TRUE(started.get());
}

// The one real wait for this time-out. A notice alone wakes nobody, but is seen at the end.
TEST_F(Thread, StartWaitSleepsToItsDeadline)
{
    const double start = wall_clock();
    auto started = std::async(std::launch::async, [this] { return _common_thread_wait_till_start(thread.record); });
    wait_for_sleeper(thread.record->available_lock);
    _common_thread_notify_started(thread.record);
    EXPECT_TRUE(started.get());
    EXPECT_GE(wall_clock() - start, 4.0);
    EXPECT_LT(wall_clock() - start, 8.0);
}

TEST_F(Thread, CallbackWaitReportsHowItEnded)
{
    const scripted_clock clock(2000, 123456);
    const std::string function = "_common_thread_waitCallback";
    const trace access = info(function, "access mutex lock");
    for (const auto &[ending, result] : {std::pair{ETIMEDOUT, -110}, {EINVAL, EINVAL}, {0, 0}}) {
        calls::cond_timedwait.answer(ending);
        EXPECT_EQ(_common_thread_waitCallback(thread.record), result);
        EXPECT_TRACE(
            whole(function, {access, ending == ETIMEDOUT ? critical(function, "waitCallback() TIME-OUT") : trace()}));
        EXPECT_EQ(last_deadline.seconds, 2010);
        EXPECT_EQ(last_deadline.nanoseconds, 123456000);
    }
    EXPECT_EQ(calls::cond_timedwait.calls(), 3);
    EXPECT_TRUE(lock_is_free());
}

TEST_F(Thread, CallbackWaitIsWokenByASignal)
{
    auto result = std::async(std::launch::async, [this] { return _common_thread_waitCallback(thread.record); });
    wait_for_sleeper(thread.record->available_lock);
    _common_thread_sendSignal(thread.record);
    EXPECT_TRACE(whole("_common_thread_sendSignal"));
    EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(calls::cond_signal.calls(), 1);
}

// The one real wait for this time-out.
TEST_F(Thread, SignalThatNobodyWaitsForIsLost)
{
    _common_thread_sendSignal(thread.record);
    const double start = wall_clock();
    EXPECT_EQ(_common_thread_waitCallback(thread.record), -110);
    EXPECT_GE(wall_clock() - start, 9.9);
    EXPECT_LT(wall_clock() - start, 13.0);
}

TEST_F(Thread, StopGoesOnAfterAFailedStep)
{
    _common_thread_stop(thread.record);
    EXPECT_TRACE(whole("_common_thread_stop"));
    EXPECT_EQ(calls::mutex_destroy.calls(), 1);
    EXPECT_EQ(calls::cond_broadcast.calls(), 1);
    EXPECT_EQ(calls::cond_destroy.calls(), 1);

    worker other;
    ASSERT_TRUE(_common_thread_start(&other.record, report, &other));
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
