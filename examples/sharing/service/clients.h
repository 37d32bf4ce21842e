/*
 * The service's door: clients of the same user come in over a socket, their calls become requests, and what happens is
 * told to all of them.
 */
#ifndef SHARING_SERVICE_CLIENTS_H
#define SHARING_SERVICE_CLIENTS_H

#include <functional>
#include <gio/gio.h>
#include <mutex>
#include <set>

#include "zel_common_request.h"

namespace sharing
{

class clients
{
  public:
    /** What becomes of a call: the request is the caller's, the invocation goes to who answers it. */
    using taker = std::function<void(const zel_request &, GDBusMethodInvocation *)>;

    /** Begins to listen, at a socket in the working directory; calls arrive on the main loop's thread. */
    void open(taker takes);

    /** Lets nobody in any more; who is there still gets answers. */
    void close();

    ~clients();

    /** Tells every client. Any thread may call it. */
    void tell(const char *signal, GVariant *parameters);

    bool is_empty();

  private:
    void come_in(GDBusConnection *connection);

    taker takes_;
    GDBusServer *server_ = nullptr;
    GDBusNodeInfo *description_ = nullptr;
    std::mutex mutex_;
    std::set<GDBusConnection *> connections_;
};

} // namespace sharing

#endif
