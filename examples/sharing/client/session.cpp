#include "session.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unistd.h>
#include <utility>

#include "bus.h"

namespace sharing
{

namespace
{

std::string bytes_of(GVariant *value)
{
    return g_variant_get_bytestring(value);
}

file file_of(GVariant *value)
{
    GVariant *name = nullptr;
    GVariant *path = nullptr;
    guint32 status = 0;
    guint64 offset = 0;
    const char *trouble = nullptr;
    file result;
    g_variant_get(value, "(u@ay@ayuutui&s)", &result.id, &name, &path, &status, &result.percentage, &offset,
                  &result.retries, &result.code, &trouble);
    const variant owned_name(name);
    const variant owned_path(path);
    result.name = bytes_of(name);
    result.path = bytes_of(path);
    result.status = static_cast<zel_file_sync_status>(status);
    result.offset = offset;
    result.trouble = trouble;
    return result;
}

/** Lets the main loop run until something holds; on a terminal it is seen to move. */
template <typename condition> void await(condition holds)
{
    const guint ticking = g_timeout_add(
        100, [](void *) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    const bool is_seen = isatty(STDERR_FILENO) != 0;
    const gint64 start = g_get_monotonic_time();
    bool has_shown = false;
    while (!holds()) {
        g_main_context_iteration(nullptr, TRUE);
        const gint64 tenths = (g_get_monotonic_time() - start) / 100'000;
        if (is_seen && tenths > 5 && !holds()) {
            fprintf(stderr, "\r%c", "|/-\\"[tenths % 4]);
            has_shown = true;
        }
    }
    if (has_shown)
        fprintf(stderr, "\r\033[K");
    g_source_remove(ticking);
}

/** What the service tells while a request is followed. */
struct news {
    unsigned int id = 0;
    std::vector<file> files;
    bool has_new_state = false;
};

} // namespace

session::session(const std::string &state)
{
    // From there the path of the socket is short; the kernel takes 108 bytes.
    std::error_code there_is_none;
    std::filesystem::current_path(state, there_is_none);
    GError *error = nullptr;
    if (!there_is_none)
        connection_ = g_dbus_connection_new_for_address_sync((std::string("unix:path=") + bus::socket_name).c_str(),
                                                             G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                                             nullptr, &error);
    g_clear_error(&error);
    if (!connection_)
        throw refusal(QUILLO_ERROR_SERVICE_NOT_RUNNING, "No sharingd is at work in " + state + ".");
}

session::~session()
{
    g_object_unref(connection_);
}

variant session::call(const char *method, GVariant *arguments)
{
    GAsyncResult *result = nullptr;
    g_dbus_connection_call(
        connection_, nullptr, bus::object, bus::interface, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT,
        nullptr,
        [](GObject *, GAsyncResult *came, void *to) {
            *static_cast<GAsyncResult **>(to) = G_ASYNC_RESULT(g_object_ref(came));
        },
        &result);
    await([&] { return result != nullptr; });
    GError *error = nullptr;
    variant answer(g_dbus_connection_call_finish(connection_, result, &error));
    g_object_unref(result);
    if (answer)
        return answer;
    const std::unique_ptr<GError, decltype(&g_error_free)> owned(error, g_error_free);
    const std::unique_ptr<char, decltype(&g_free)> name(g_dbus_error_get_remote_error(error), g_free);
    if (!name)
        throw refusal(QUILLO_ERROR_SOCKET, "The service has gone away.");
    g_dbus_error_strip_remote_error(error);
    const std::string remote = name.get();
    const bool is_ours = remote.starts_with(bus::error_prefix);
    throw refusal(is_ours ? -std::atoi(remote.c_str() + sizeof bus::error_prefix - 1) : QUILLO_ERROR_UNKNOWN,
                  error->message);
}

request session::describe(unsigned int id)
{
    const variant answer = call("Describe", g_variant_new("(u)", id));
    request result;
    result.id = id;
    guint32 kind = 0;
    guint32 status = 0;
    gboolean is_settled = FALSE;
    guint64 size = 0;
    const char *token = nullptr;
    const char *trouble = nullptr;
    GVariantIter *files = nullptr;
    g_variant_get(answer.get(), "((uubt&si&sa" SHARING_FILE "))", &kind, &status, &is_settled, &size, &token,
                  &result.code, &trouble, &files);
    while (GVariant *one = g_variant_iter_next_value(files))
        result.files.push_back(file_of(variant(one).get()));
    g_variant_iter_free(files);
    result.kind = static_cast<zel_file_sync_type>(kind);
    result.status = static_cast<quillo_upload_status_e>(status);
    result.is_settled = is_settled;
    result.size = size;
    result.token = token;
    result.trouble = trouble;
    return result;
}

void session::wait_for_news()
{
    bool has_come = false;
    const guint subscription = g_dbus_connection_signal_subscribe(
        connection_, nullptr, bus::interface, nullptr, bus::object, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection *, const char *, const char *, const char *, const char *, GVariant *, void *came) {
            *static_cast<bool *>(came) = true;
        },
        &has_come, nullptr);
    const gint64 end = g_get_monotonic_time() + G_USEC_PER_SEC;
    await([&] { return has_come || g_get_monotonic_time() >= end; });
    g_dbus_connection_signal_unsubscribe(connection_, subscription);
}

void session::follow(unsigned int id, const std::function<bool(const request &)> &show)
{
    news latest;
    latest.id = id;
    const auto hear = [](GDBusConnection *, const char *, const char *, const char *, const char *signal,
                         GVariant *parameters, void *data) {
        auto &heard = *static_cast<news *>(data);
        const variant which(g_variant_get_child_value(parameters, 0));
        if (g_variant_get_uint32(which.get()) != heard.id)
            return;
        if (g_str_equal(signal, "State"))
            heard.has_new_state = true;
        else
            heard.files.push_back(file_of(variant(g_variant_get_child_value(parameters, 1)).get()));
    };
    const guint subscription =
        g_dbus_connection_signal_subscribe(connection_, nullptr, bus::interface, nullptr, bus::object, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, hear, &latest, nullptr);
    const auto tick = [](void *) -> gboolean { return G_SOURCE_CONTINUE; };
    const guint ticking = g_timeout_add(100, tick, nullptr);
    request state = describe(id);
    gint64 shown = 0;
    for (bool goes_on = show(state); goes_on;) {
        g_main_context_iteration(nullptr, TRUE);
        if (g_dbus_connection_is_closed(connection_))
            throw refusal(QUILLO_ERROR_SOCKET, "The service has gone away.");
        for (const file &one : latest.files) {
            const auto known = std::ranges::find(state.files, one.id, &file::id);
            if (known != state.files.end())
                *known = one;
        }
        latest.files.clear();
        const bool has_new_state = std::exchange(latest.has_new_state, false);
        if (has_new_state)
            state = describe(id);
        if (!has_new_state && g_get_monotonic_time() - shown < 100'000)
            continue;
        shown = g_get_monotonic_time();
        goes_on = show(state);
    }
    g_source_remove(ticking);
    g_dbus_connection_signal_unsubscribe(connection_, subscription);
}

} // namespace sharing
