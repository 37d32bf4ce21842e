/*
 * The sharing service: one thread that carries out the requests of clients, in the order of their arrival.
 */
#ifndef SHARING_SERVICE_SERVICE_H
#define SHARING_SERVICE_SERVICE_H

#include "inbox.h"
#include "zel_common_queue.h"

namespace sharing
{

class service
{
  public:
    explicit service(const settings &chosen);
    ~service();

  private:
    /** Queues a request. Its handle is the GDBusMethodInvocation that gets the answer. */
    void submit(const zel_request &request, GDBusMethodInvocation *invocation);
    void dispatch();
    GVariant *carry_out(const zel_request &request);
    unsigned int take_up_upload(const zel_request &request);
    GVariant *list_uploads();
    GVariant *describe(unsigned int req_id);
    GVariant *list_recent();

    clients door_;
    movers movers_;
    inbox inbox_;
    zel_queue_s *requests_ = nullptr;
    std::unique_ptr<worker> dispatcher_;
};

} // namespace sharing

#endif
