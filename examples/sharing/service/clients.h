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

#include "store.h"

namespace sharing
{

class clients
{
  public:
    /** What becomes of a call: the request is the caller's, the invocation goes to who answers it. */
    using taker = std::function<void(const zel_request &, GDBusMethodInvocation *)>;

    /** Listens at a socket in the working directory; calls arrive on the main loop's thread. */
    explicit clients(taker takes);
    ~clients();

    /* Tell every client. Any thread may call these. */
    void tell_progress(const zel_content_sync_info &row);
    void tell_state(unsigned int req_id);

  private:
    void come_in(GDBusConnection *connection);
    void tell(const char *signal, GVariant *parameters);

    const taker takes_;
    GDBusServer *server_ = nullptr;
    std::mutex mutex_;
    std::set<GDBusConnection *> connections_;
};

/** A transfer as clients get it, a SHARING_FILE. */
GVariant *file_of(const zel_content_sync_info &row);

} // namespace sharing

#endif
