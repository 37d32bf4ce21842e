#include "door.h"

#include <gio/gunixsocketaddress.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bus.h"

namespace sharing
{

constexpr std::chrono::seconds stall_limit(10);
constexpr size_t max_clients = 200;
constexpr unsigned int max_calls = 256; // of a client that does not read the answers

static void shut(GIOStream *stream)
{
    shutdown(g_socket_get_fd(g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream))), SHUT_RDWR);
}

/* Coming and going ------------------------------------------------------------------------------------------------ */

void door::start_accepting()
{
    unlink(bus::socket_name); // the state folder is ours alone: a socket there is of a service that died
    listener_.reset(g_socket_service_new());
    const owned<GSocketAddress> address(g_unix_socket_address_new(bus::socket_name));
    require(g_socket_listener_add_address(G_SOCKET_LISTENER(listener_.get()), address.get(), G_SOCKET_TYPE_STREAM,
                                          G_SOCKET_PROTOCOL_DEFAULT, nullptr, nullptr, nullptr),
            ZEL_ERR_SOCKET_FAILURE, "The socket for clients cannot be made in the state folder.");
    const auto comes = [](GSocketService *, GSocketConnection *stream, GObject *, void *self) -> gboolean {
        static_cast<door *>(self)->accept_connection(stream);
        return TRUE;
    };
    g_signal_connect(listener_.get(), "incoming", G_CALLBACK(+comes), this);
    const auto look = [](void *self) -> gboolean {
        static_cast<door *>(self)->close_stalled();
        return G_SOURCE_CONTINUE;
    };
    timer_ = g_timeout_add_seconds(1, look, this);
}

/** Starts the authentication, which keeps the connection meanwhile. */
void door::accept_connection(GSocketConnection *stream)
{
    {
        const std::lock_guard lock(mutex_);
        if (handshakes_.size() + clients_.size() >= max_clients)
            return; // which closes the connection
        handshakes_[stream] = clock::now();
    }
    struct handshake {
        door *self;
        owned<GSocketConnection> stream;
    };
    const auto ready = [](GObject *, GAsyncResult *result, void *data) {
        const std::unique_ptr<handshake> of(static_cast<handshake *>(data));
        of->self->add_client(of->stream.get(), g_dbus_connection_new_finish(result, nullptr));
    };
    static const text guid(g_dbus_generate_guid());
    constexpr auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER |
                                                             G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER |
                                                             G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING);
    auto *of = new handshake{this, owned<GSocketConnection>(static_cast<GSocketConnection *>(g_object_ref(stream)))};
    g_dbus_connection_new(G_IO_STREAM(stream), guid.get(), flags, nullptr, nullptr, ready, of);
}

void door::add_client(GSocketConnection *stream, GDBusConnection *connection)
{
    const std::lock_guard lock(mutex_);
    handshakes_.erase(stream);
    if (!connection)
        return;
    client &one = clients_[connection];
    one.connection.reset(connection);
    one.methods.reset(quillo_sharing_skeleton_new());
    one.bus.reset(quillo_org_freedesktop_dbus_skeleton_new());

    const auto plain = [](QuilloSharing *, GDBusMethodInvocation *invocation, void *self) -> gboolean {
        static_cast<door *>(self)->take({}, invocation);
        return TRUE;
    };
    const auto of_request = [](QuilloSharing *, GDBusMethodInvocation *invocation, guint id, void *self) -> gboolean {
        zel_request request = {};
        request.req_id = id;
        static_cast<door *>(self)->take(request, invocation);
        return TRUE;
    };
    const auto send = [](QuilloSharing *, GDBusMethodInvocation *invocation, const char *const *files,
                         const char *const *recipients, const char *description, void *self) -> gboolean {
        zel_request request = {};
        for (; *files; ++files)
            request.file_list = g_list_prepend(request.file_list, g_strdup(*files));
        for (; *recipients; ++recipients)
            request.receiver_list = g_list_prepend(request.receiver_list, g_strdup(*recipients));
        request.file_list = g_list_reverse(request.file_list);
        request.receiver_list = g_list_reverse(request.receiver_list);
        request.description = g_strdup(description);
        static_cast<door *>(self)->take(request, invocation);
        return TRUE;
    };
    const auto get = [](QuilloSharing *, GDBusMethodInvocation *invocation, const char *token, const char *folder,
                        void *self) -> gboolean {
        zel_request request = {};
        request.contents_token = g_strdup(token);
        request.local_path = g_strdup(folder);
        static_cast<door *>(self)->take(request, invocation);
        return TRUE;
    };
    for (const char *signal : {"handle-list", "handle-inbox", "handle-recent", "handle-forget"})
        g_signal_connect(one.methods.get(), signal, G_CALLBACK(+plain), this);
    for (const char *signal : {"handle-describe", "handle-pause", "handle-resume", "handle-cancel"})
        g_signal_connect(one.methods.get(), signal, G_CALLBACK(+of_request), this);
    g_signal_connect(one.methods.get(), "handle-send", G_CALLBACK(+send), this);
    g_signal_connect(one.methods.get(), "handle-get", G_CALLBACK(+get), this);
    const auto hello = [](QuilloOrgFreedesktopDBus *skeleton, GDBusMethodInvocation *invocation, void *) -> gboolean {
        quillo_org_freedesktop_dbus_complete_hello(skeleton, invocation, ":1.0");
        return TRUE;
    };
    g_signal_connect(one.bus.get(), "handle-hello", G_CALLBACK(+hello), nullptr);
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(one.methods.get()), connection, bus::object, nullptr);
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(one.bus.get()), connection, "/org/freedesktop/DBus",
                                     nullptr);
    const auto goes = [](GDBusConnection *gone, gboolean, GError *, void *self) {
        static_cast<door *>(self)->remove_client(gone);
    };
    g_signal_connect(connection, "closed", G_CALLBACK(+goes), this);
    g_dbus_connection_start_message_processing(connection);
}

void door::remove_client(GDBusConnection *connection)
{
    std::unique_lock lock(mutex_);
    const auto gone = clients_.extract(connection);
    lock.unlock(); // the release calls other code
    if (gone.empty())
        return;
    g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(gone.mapped().methods.get()));
    g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(gone.mapped().bus.get()));
    g_signal_handlers_disconnect_by_data(connection, this);
}

/** Shuts the sockets of clients that do not authenticate or do not read; the signal "closed" follows. */
void door::close_stalled()
{
    const std::lock_guard lock(mutex_);
    const auto latest = clock::now() - stall_limit;
    for (const auto &[stream, since] : handshakes_)
        if (since < latest)
            shut(G_IO_STREAM(stream));
    for (const auto &[connection, one] : clients_)
        if (one.is_flushing && one.since < latest)
            shut(g_dbus_connection_get_stream(connection));
}

void door::stop_accepting()
{
    if (!listener_)
        return;
    g_source_remove(timer_);
    g_socket_service_stop(listener_.get());
    g_socket_listener_close(G_SOCKET_LISTENER(listener_.get()));
}

door::~door()
{
    for (const auto &[connection, one] : clients_) {
        g_signal_handlers_disconnect_by_data(connection, this);
        if (!one.is_flushing)
            g_dbus_connection_flush_sync(connection, nullptr, nullptr);
    }
}

/* Calls ----------------------------------------------------------------------------------------------------------- */

static zel_cmd command_of(const char *method)
{
    static const std::map<std::string, zel_cmd> commands = {{"Send", ZEL_CMD_UPLOAD},
                                                            {"List", ZEL_CMD_GET_UPLOAD_LIST},
                                                            {"Describe", ZEL_CMD_GET_UPLOAD_INFO},
                                                            {"Pause", ZEL_CMD_UPLOAD_PAUSE},
                                                            {"Resume", ZEL_CMD_UPLOAD_RESUME},
                                                            {"Cancel", ZEL_CMD_UPLOAD_CANCEL},
                                                            {"Inbox", ZEL_CMD_GET_SHARE_CONTENT_LIST},
                                                            {"Get", ZEL_CMD_DOWNLOAD},
                                                            {"Recent", ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST},
                                                            {"Forget", ZEL_CMD_DEACTIVATE}};
    return commands.at(method);
}

void door::take(const zel_request &request, GDBusMethodInvocation *invocation)
{
    GDBusConnection *connection = g_dbus_method_invocation_get_connection(invocation);
    zel_request commanded = request;
    commanded.cmd = command_of(g_dbus_method_invocation_get_method_name(invocation));
    {
        const std::lock_guard lock(mutex_);
        if (const auto of = clients_.find(connection); of != clients_.end() && ++of->second.calls > max_calls)
            shut(g_dbus_connection_get_stream(connection));
    }
    // The connection stays until it has its answer.
    const std::shared_ptr<GDBusConnection> kept(static_cast<GDBusConnection *>(g_object_ref(connection)),
                                                g_object_unref);
    desk_.take(commanded, invocation, [this, kept] {
        const std::lock_guard lock(mutex_);
        if (const auto of = clients_.find(kept.get()); of != clients_.end())
            flush(of->second);
    });
}

/* Reports --------------------------------------------------------------------------------------------------------- */

/** Starts a flush, which ends when the client has read everything; one at a time. */
void door::flush(client &to)
{
    if (std::exchange(to.is_flushing, true))
        return;
    to.since = clock::now();
    const auto done = [](GObject *connection, GAsyncResult *result, void *self) {
        g_dbus_connection_flush_finish(G_DBUS_CONNECTION(connection), result, nullptr);
        static_cast<door *>(self)->flushed(G_DBUS_CONNECTION(connection));
    };
    g_dbus_connection_flush(to.connection.get(), nullptr, done, this);
}

void door::flushed(GDBusConnection *connection)
{
    const std::lock_guard lock(mutex_);
    const auto of = clients_.find(connection);
    if (of == clients_.end())
        return;
    of->second.is_flushing = false;
    of->second.calls = 0;
    if (std::exchange(of->second.has_missed, false)) {
        quillo_sharing_emit_state(of->second.methods.get(), 0);
        flush(of->second);
    }
}

void door::report_progress(unsigned int req_id, GVariant *file)
{
    g_variant_ref_sink(file);
    const std::lock_guard lock(mutex_);
    for (auto &[connection, one] : clients_)
        if (!one.is_flushing) {
            quillo_sharing_emit_progress(one.methods.get(), req_id, file);
            flush(one);
        }
    g_variant_unref(file);
}

void door::report_state(unsigned int req_id)
{
    const std::lock_guard lock(mutex_);
    for (auto &[connection, one] : clients_)
        if (one.is_flushing) {
            one.has_missed = true;
        } else {
            quillo_sharing_emit_state(one.methods.get(), req_id);
            flush(one);
        }
}

} // namespace sharing
