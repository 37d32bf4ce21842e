#include "clients.h"

#include <string>
#include <unistd.h>

#include "bus.h"

namespace sharing
{

namespace
{

/** Fills a request from the arguments of a call; false when there is no such method. */
bool fill(zel_request &request, const std::string &method, GVariant *arguments)
{
    const std::pair<const char *, zel_cmd> commands[] = {{"Pause", ZEL_CMD_UPLOAD_PAUSE},
                                                         {"Resume", ZEL_CMD_UPLOAD_RESUME},
                                                         {"Cancel", ZEL_CMD_UPLOAD_CANCEL},
                                                         {"Describe", ZEL_CMD_GET_UPLOAD_INFO},
                                                         {"Send", ZEL_CMD_UPLOAD},
                                                         {"List", ZEL_CMD_GET_UPLOAD_LIST},
                                                         {"Inbox", ZEL_CMD_GET_SHARE_CONTENT_LIST},
                                                         {"Get", ZEL_CMD_DOWNLOAD},
                                                         {"Recent", ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST},
                                                         {"Forget", ZEL_CMD_DEACTIVATE}};
    request.cmd = ZEL_CMD_UNKNOWN;
    for (const auto &[name, command] : commands)
        if (method == name)
            request.cmd = command;
    if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(u)")))
        g_variant_get(arguments, "(u)", &request.req_id);
    if (request.cmd == ZEL_CMD_DOWNLOAD)
        g_variant_get(arguments, "(s^ay)", &request.contents_token, &request.local_path);
    if (request.cmd == ZEL_CMD_UPLOAD) {
        gchar **files = nullptr;
        gchar **recipients = nullptr;
        g_variant_get(arguments, "(^aay^ass)", &files, &recipients, &request.description);
        for (gchar **file = files; *file; ++file)
            request.file_list = g_list_append(request.file_list, *file);
        for (gchar **recipient = recipients; *recipient; ++recipient)
            request.receiver_list = g_list_append(request.receiver_list, *recipient);
        g_free(files); // the strings are the request's
        g_free(recipients);
        request.file_count = g_list_length(request.file_list);
        request.receiver_count = g_list_length(request.receiver_list);
        request.type = QUILLO_APP_TYPE;
    }
    return request.cmd != ZEL_CMD_UNKNOWN;
}

} // namespace

clients::clients(taker takes) : takes_(std::move(takes))
{
    unlink(bus::socket_name); // the state folder is ours alone: a socket there is of a service that died
    GDBusAuthObserver *observer = g_dbus_auth_observer_new();
    g_signal_connect(observer, "allow-mechanism",
                     G_CALLBACK(+[](GDBusAuthObserver *, const char *mechanism, void *) -> gboolean {
                         return g_str_equal(mechanism, "EXTERNAL");
                     }),
                     nullptr);
    const text guid(g_dbus_generate_guid());
    GError *error = nullptr;
    server_ = g_dbus_server_new_sync((std::string("unix:path=") + bus::socket_name).c_str(),
                                     G_DBUS_SERVER_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER, guid.get(), observer,
                                     nullptr, &error);
    g_object_unref(observer);
    if (!server_) {
        const std::unique_ptr<GError, releaser<g_error_free>> owned(error);
        throw failure(ZEL_ERR_SOCKET_FAILURE, error->message);
    }
    g_signal_connect(server_, "new-connection",
                     G_CALLBACK(+[](GDBusServer *, GDBusConnection *connection, void *self) -> gboolean {
                         static_cast<clients *>(self)->come_in(connection);
                         return TRUE;
                     }),
                     this);
    g_dbus_server_start(server_);
}

void clients::come_in(GDBusConnection *connection)
{
    static const GDBusInterfaceVTable methods = {
        .method_call =
            [](GDBusConnection *, const char *, const char *, const char *, const char *method, GVariant *arguments,
               GDBusMethodInvocation *invocation, void *self) {
                if (g_str_equal(method, "Hello"))
                    return g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", ":1.0"));
                zel_request request = {};
                if (fill(request, method, arguments))
                    static_cast<clients *>(self)->takes_(request, invocation);
                _common_free_zel_request_members(&request);
            },
        .get_property = nullptr,
        .set_property = nullptr,
        .padding = {}};
    static GDBusNodeInfo *const description = g_dbus_node_info_new_for_xml(bus::description, nullptr);
    for (const auto &[path, name] :
         {std::pair{"/org/freedesktop/DBus", "org.freedesktop.DBus"}, std::pair{bus::object, bus::interface}})
        g_dbus_connection_register_object(connection, path, g_dbus_node_info_lookup_interface(description, name),
                                          &methods, this, nullptr, nullptr);
    g_signal_connect(connection, "closed", G_CALLBACK(+[](GDBusConnection *gone, gboolean, GError *, void *self) {
                         auto &me = *static_cast<clients *>(self);
                         const std::lock_guard lock(me.mutex_);
                         if (me.connections_.erase(gone) > 0)
                             g_object_unref(gone);
                     }),
                     this);
    const std::lock_guard lock(mutex_);
    connections_.insert(static_cast<GDBusConnection *>(g_object_ref(connection)));
}

GVariant *file_of(const zel_content_sync_info &row)
{
    const bool has_trouble = row.status == ZEL_SYNC_FAILED || row.fail_retry_count > 0;
    const trouble last = has_trouble ? trouble_of(key_of_transfer(row.sync_id)) : trouble();
    return g_variant_new("(u^ay^ayuutuis)", row.sync_id, text_of(row.name).c_str(), text_of(row.local_path).c_str(),
                         row.status, row.percentage, guint64{row.offset}, row.fail_retry_count, last.code,
                         last.sentence.c_str());
}

void clients::tell_progress(const zel_content_sync_info &row)
{
    tell("Progress", g_variant_new("(u@" SHARING_FILE ")", row.req_id, file_of(row)));
}

void clients::tell_state(unsigned int req_id)
{
    tell("State", g_variant_new("(u)", req_id));
}

void clients::tell(const char *signal, GVariant *parameters)
{
    g_variant_ref_sink(parameters);
    const std::lock_guard lock(mutex_);
    for (GDBusConnection *connection : connections_) // one that has just gone misses nothing
        g_dbus_connection_emit_signal(connection, nullptr, bus::object, bus::interface, signal, parameters, nullptr);
    g_variant_unref(parameters);
}

clients::~clients()
{
    g_dbus_server_stop(server_);
    g_object_unref(server_);
    for (GDBusConnection *connection : connections_) {
        g_signal_handlers_disconnect_by_data(connection, this);
        g_dbus_connection_flush_sync(connection, nullptr, nullptr);
        g_object_unref(connection);
    }
}

} // namespace sharing
