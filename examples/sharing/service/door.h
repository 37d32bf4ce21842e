/*
 * The door: clients of the same user come and go over a socket in the state folder, hand in their calls, and are told
 * what happens. One that does not read is let go, so that nobody waits for it and nothing piles up.
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

    /** Lets clients in, on the thread of the main loop. */
    void let_in();
    /** Lets nobody in any more. */
    void let_nobody_in();

    /* Tell all clients; any thread may. */
    void tell_progress(unsigned int req_id, GVariant *file);
    void tell_state(unsigned int req_id);

  private:
    using clock = std::chrono::steady_clock;

    struct client {
        owned<GDBusConnection> connection;
        owned<QuilloSharing> methods;
        owned<QuilloOrgFreedesktopDBus> bus;
        bool is_flushing = false; /**< something is on its way that it has not read yet, since: */
        clock::time_point since = {};
        bool has_missed = false; /**< something was not told meanwhile */
        unsigned int calls = 0;  /**< since it last read all that was for it */
    };

    void greet(GSocketConnection *stream);
    void welcome(GSocketConnection *stream, GDBusConnection *connection);
    void say_goodbye(GDBusConnection *connection);
    void take(const zel_request &request, GDBusMethodInvocation *invocation);
    void flush(client &to);
    void flushed(GDBusConnection *connection);
    void let_go_of_those_who_do_not_read();

    desk &desk_;
    owned<GSocketService> listener_;
    guint timer_ = 0;
    std::mutex mutex_;                                           /**< guards what follows */
    std::map<GSocketConnection *, clock::time_point> strangers_; /**< who have not said yet who they are, since */
    std::map<GDBusConnection *, client> clients_;
};

} // namespace sharing

#endif
