/*
 * A thread of the service, run by the library's thread controller.
 */
#ifndef SHARING_SERVICE_WORKER_H
#define SHARING_SERVICE_WORKER_H

#include <functional>
#include <future>

#include "share_message.h"
#include "zel_common_thread.h"

namespace sharing
{

class worker
{
  public:
    /** Starts a thread that runs body, which must not throw. */
    explicit worker(std::function<void()> body) : body_(std::move(body)), ended_(end_.get_future())
    {
        if (!_common_thread_start(&record_, run, this) || !_common_thread_wait_till_start(record_))
            throw failure(ZEL_ERR_THREAD, "A thread of the service could not be started.");
    }

    /** Waits for the end of the body: the thread is detached, so it has to tell when it is through. */
    ~worker()
    {
        ended_.wait();
        _common_thread_stop(record_);
    }
    worker(const worker &) = delete;
    worker &operator=(const worker &) = delete;

    bool has_ended_within(std::chrono::milliseconds time) const
    {
        return ended_.wait_for(time) == std::future_status::ready;
    }

  private:
    static void *run(void *self)
    {
        auto &me = *static_cast<worker *>(self);
        _common_thread_notify_started(me.record_);
        _common_thread_sendSignal(me.record_); // the report itself wakes nobody
        auto end = std::move(me.end_);         // the record may go as soon as the end is told
        me.body_();
        end.set_value();
        return nullptr;
    }

    const std::function<void()> body_;
    std::promise<void> end_;
    std::future<void> ended_;
    zel_thread_s *record_ = nullptr;
};

} // namespace sharing

#endif
