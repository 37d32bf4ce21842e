/*
 * The door: clients of the same user come and go over a socket in the state folder, hand in their calls, and get
 * reports of what happens. A client that does not read is disconnected: nobody waits for it, and nothing piles up.
 */
#ifndef SHARING_SERVICE_DOOR_H
#define SHARING_SERVICE_DOOR_H

#include <gio/gio.h>
#include <map>

#include "desk.h"
#include "quillo-sharing.h"

namespace sharing
{

template <typename object> using owned = std::unique_ptr<object, releaser<g_object_unref>>;

class door
{
  public:
    explicit door(desk &behind) : desk_(behind) {}
    door(const door &) = delete;
    ~door();

    /** Accepts clients, on the thread of the main loop. */
    void start_accepting();
    /** Accepts no more clients. */
    void stop_accepting();

    /* Report to all clients; any thread may. */
    void report_progress(unsigned int req_id, GVariant *file);
    void report_state(unsigned int req_id);

  private:
    using clock = std::chrono::steady_clock;

    struct client {
        owned<GDBusConnection> connection;
        owned<QuilloSharing> methods;
        owned<QuilloOrgFreedesktopDBus> bus;
        bool is_flushing = false; /**< it has not read everything yet, since: */
        clock::time_point since = {};
        bool has_missed = false; /**< a report was left out meanwhile */
        unsigned int calls = 0;  /**< since it last had read everything */
    };

    void accept_connection(GSocketConnection *stream);
    void add_client(GSocketConnection *stream, GDBusConnection *connection);
    void remove_client(GDBusConnection *connection);
    void take(const zel_request &request, GDBusMethodInvocation *invocation);
    void flush(client &to);
    void flushed(GDBusConnection *connection);
    void close_stalled();

    desk &desk_;
    owned<GSocketService> listener_;
    guint timer_ = 0;
    std::mutex mutex_;                                            /**< guards what follows */
    std::map<GSocketConnection *, clock::time_point> handshakes_; /**< connections without authentication, since */
    std::map<GDBusConnection *, client> clients_;
};

} // namespace sharing

#endif
