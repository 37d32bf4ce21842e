#include "worker.h"

#include <chrono>
#include <thread>
#include <utility>

#include "records.h"

namespace demo
{

worker::worker(std::function<void(worker &)> body) : body_(std::move(body)) {}

worker::~worker()
{
    join();
    if (record_)
        _common_thread_stop(record_);
}

void worker::start()
{
    if (!_common_thread_start(&record_, entry, this) || !_common_thread_wait_till_start(record_))
        throw failure(ZEL_ERR_THREAD, "A thread of the service could not be started.");
}

void worker::join()
{
    // The thread is detached, so it has to tell when it is through with its record.
    std::unique_lock lock(end_mutex_);
    end_.wait(lock, [this] { return ended_ || !record_; });
}

void *worker::entry(void *self)
{
    worker &me = *static_cast<worker *>(self);
    _common_thread_notify_started(me.record_);
    _common_thread_sendSignal(me.record_); // the report itself wakes nobody
    me.body_(me);
    const std::lock_guard lock(me.end_mutex_);
    me.ended_ = true;
    me.end_.notify_all();
    return nullptr;
}

void worker::sleep()
{
    asleep_ = true;
    while (!woken_.exchange(false))
        _common_thread_waitCallback(record_);
    asleep_ = false;
}

void worker::wake()
{
    woken_ = true;
    // A signal that comes before the wait is lost, so it is sent until it has been noticed.
    while (asleep_ && woken_) {
        _common_thread_sendSignal(record_);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace demo
