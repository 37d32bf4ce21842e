#include "session.h"

#include <filesystem>

#include "bus.h"

namespace sharing
{

constexpr seconds longest_greeting(10);
constexpr seconds longest_absence(10); // of a service that is started again
constexpr milliseconds pause_between_tries(200);

/** Runs the main loop until something is done; false after a time. */
template <typename function> static bool run_until(milliseconds time, function is_done)
{
    bool is_over = false;
    const auto end = [](void *of) -> gboolean {
        *static_cast<bool *>(of) = true;
        return G_SOURCE_REMOVE;
    };
    const guint timer = g_timeout_add(static_cast<guint>(time.count()), end, &is_over);
    while (!is_over && !is_done())
        g_main_context_iteration(nullptr, TRUE);
    if (!is_over)
        g_source_remove(timer);
    return !is_over;
}

session::session(const std::string &state) : state_(state)
{
    // From there the path of the socket is short; the kernel takes 108 bytes.
    std::error_code error;
    std::filesystem::current_path(state, error);
    if (error || !connect())
        throw refusal(QUILLO_ERROR_SERVICE_NOT_RUNNING, "No sharingd is at work in " + state + ".");
}

session::~session()
{
    if (connection_)
        g_dbus_connection_remove_filter(connection_.get(), filter_);
}

/** Connects, unless no service listens; throws when one listens and does not answer. */
bool session::connect()
{
    owned<GAsyncResult> result;
    const auto take = [](GObject *, GAsyncResult *came, void *to) {
        static_cast<owned<GAsyncResult> *>(to)->reset(static_cast<GAsyncResult *>(g_object_ref(came)));
    };
    const std::string address = std::string("unix:path=") + bus::socket_name;
    const owned<GCancellable> cancellable(g_cancellable_new());
    g_dbus_connection_new_for_address(address.c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                      cancellable.get(), take, &result);
    const bool is_answered = run_until(longest_greeting, [&] { return result != nullptr; });
    if (!is_answered) {
        g_cancellable_cancel(cancellable.get());
        while (!result)
            g_main_context_iteration(nullptr, TRUE);
    }
    owned<GDBusConnection> connection(g_dbus_connection_new_for_address_finish(result.get(), nullptr));
    if (!is_answered)
        throw refusal(QUILLO_ERROR_TIMEOUT, "The sharingd in " + state_ + " does not answer.");
    if (!connection)
        return false;

    // Signals only say that it is worth asking, so that none piles up while the output stands still.
    const auto hear = [](GDBusConnection *, GDBusMessage *message, gboolean comes, void *has_news) -> GDBusMessage * {
        if (!comes || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL)
            return message;
        *static_cast<std::atomic<bool> *>(has_news) = true;
        g_main_context_wakeup(nullptr);
        g_object_unref(message);
        return nullptr;
    };
    if (connection_)
        g_dbus_connection_remove_filter(connection_.get(), filter_);
    service_.reset(
        quillo_sharing_proxy_new_sync(connection.get(),
                                      static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                                   G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS),
                                      nullptr, bus::object, nullptr, nullptr));
    filter_ = g_dbus_connection_add_filter(connection.get(), hear, &has_news_, nullptr);
    connection_ = std::move(connection);
    return service_ != nullptr;
}

void session::reconnect()
{
    for (milliseconds waited(0); !connect(); waited += pause_between_tries) {
        if (waited >= longest_absence)
            throw refusal(QUILLO_ERROR_SERVICE_NOT_RUNNING, "The sharingd in " + state_ + " has gone away.");
        run_until(pause_between_tries, [] { return false; });
    }
}

void session::wait_for_news(milliseconds least, milliseconds longest)
{
    run_until(least, [] { return false; });
    run_until(longest, [this] { return has_news_.load(); });
    has_news_ = false;
}

void session::throw_refusal(GError *error)
{
    const std::unique_ptr<GError, releaser<g_error_free>> owner(error);
    const text name(g_dbus_error_get_remote_error(error));
    if (name && g_str_has_prefix(name.get(), bus::error_prefix)) {
        g_dbus_error_strip_remote_error(error);
        const guint64 code = g_ascii_strtoull(name.get() + sizeof bus::error_prefix - 1, nullptr, 10);
        throw refusal(-static_cast<int>(std::min<guint64>(code, 100)), error->message);
    }
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT))
        throw refusal(QUILLO_ERROR_TIMEOUT, "The service does not answer.");
    throw disconnection(QUILLO_ERROR_SOCKET, "The connection to the service ended.");
}

} // namespace sharing
