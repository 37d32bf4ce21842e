/*
 * Where clients' calls are carried out, one at a time and in the order of their arrival: the library's queue, and one
 * thread that works on it. A call that takes long is carried out in steps, and goes to the end of the queue after each.
 */
#ifndef SHARING_SERVICE_DESK_H
#define SHARING_SERVICE_DESK_H

#include "requests.h"
#include "zel_common_queue.h"
#include "zel_common_thread.h"

namespace sharing
{

class desk
{
  public:
    explicit desk(requests &methods) : methods_(methods), ended_(end_.get_future()) {}
    desk(const desk &) = delete;

    void start();
    /** Ends the thread, and refuses what is left. */
    void stop();

    /**
     * Queues a call.
     *
     * @param request  its members become the desk's
     * @param invocation gets the answer
     * @param answered called on the desk's thread, after the answer
     */
    void take(const zel_request &request, GDBusMethodInvocation *invocation, std::function<void()> answered);

  private:
    void run();

    requests &methods_;
    zel_queue_s *queue_ = nullptr;
    zel_thread_s *thread_ = nullptr;
    std::promise<void> end_; /**< of that thread, which is detached and cannot be joined */
    std::future<void> ended_;
};

} // namespace sharing

#endif
