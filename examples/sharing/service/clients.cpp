#include <unistd.h>

#include "bus.h"
#include "service.h"

namespace sharing
{

static void come_in(service &s, GDBusConnection *connection)
{
    static GDBusInterfaceVTable methods = {};
    methods.method_call = [](GDBusConnection *, const char *, const char *, const char *, const char *method,
                             GVariant *arguments, GDBusMethodInvocation *invocation, void *of) {
        if (g_str_equal(method, "Hello"))
            g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", ":1.0"));
        else
            take_call(*static_cast<service *>(of), method, arguments, invocation);
    };
    static GDBusNodeInfo *const description = g_dbus_node_info_new_for_xml(bus::description, nullptr);
    for (const auto &[path, name] :
         {std::pair{"/org/freedesktop/DBus", "org.freedesktop.DBus"}, std::pair{bus::object, bus::interface}})
        g_dbus_connection_register_object(connection, path, g_dbus_node_info_lookup_interface(description, name),
                                          &methods, &s, nullptr, nullptr);
    const std::lock_guard lock(s.clients_mutex);
    s.clients.push_back(static_cast<GDBusConnection *>(g_object_ref(connection)));
}

void open_door(service &s)
{
    unlink(bus::socket_name); // the state folder is ours alone: a socket there is of a service that died
    const text guid(g_dbus_generate_guid());
    s.door = g_dbus_server_new_sync((std::string("unix:path=") + bus::socket_name).c_str(),
                                    G_DBUS_SERVER_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER, guid.get(), nullptr, nullptr,
                                    nullptr);
    require(s.door, ZEL_ERR_SOCKET_FAILURE, "The socket for clients cannot be made in the state folder.");
    const auto opens = [](GDBusServer *, GDBusConnection *connection, void *of) -> gboolean {
        come_in(*static_cast<service *>(of), connection);
        return TRUE;
    };
    g_signal_connect(s.door, "new-connection", G_CALLBACK(+opens), &s);
    g_dbus_server_start(s.door);
}

void close_door(service &s)
{
    g_dbus_server_stop(s.door);
    g_object_unref(s.door);
    for (GDBusConnection *connection : s.clients) {
        g_dbus_connection_flush_sync(connection, nullptr, nullptr);
        g_object_unref(connection);
    }
}

static void tell(service &s, const char *signal, GVariant *parameters)
{
    g_variant_ref_sink(parameters);
    const std::lock_guard lock(s.clients_mutex);
    std::erase_if(s.clients, [&](GDBusConnection *connection) {
        const bool is_gone = g_dbus_connection_is_closed(connection);
        if (is_gone)
            g_object_unref(connection);
        else
            g_dbus_connection_emit_signal(connection, nullptr, bus::object, bus::interface, signal, parameters,
                                          nullptr);
        return is_gone;
    });
    g_variant_unref(parameters);
}

GVariant *file_of(const zel_content_sync_info &row)
{
    const bool has_trouble = row.status == ZEL_SYNC_FAILED || row.fail_retry_count > 0;
    const trouble last = has_trouble ? trouble_of("transfer", row.sync_id) : trouble();
    return g_variant_new("(u^ay^ayuutuis)", row.sync_id, text_of(row.name).c_str(), text_of(row.local_path).c_str(),
                         row.status, row.percentage, guint64{row.offset}, row.fail_retry_count, last.code,
                         last.sentence.c_str());
}

void tell_progress(service &s, const zel_content_sync_info &row)
{
    tell(s, "Progress", g_variant_new("(u@" SHARING_FILE ")", row.req_id, file_of(row)));
}

void tell_state(service &s, unsigned int req_id)
{
    tell(s, "State", g_variant_new("(u)", req_id));
}

} // namespace sharing
