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
    g_dbus_connection_signal_subscribe(connection_, nullptr, bus::interface, nullptr, bus::object, nullptr,
                                       G_DBUS_SIGNAL_FLAGS_NONE, hear, this, nullptr);
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
    throw refusal(is_ours ? -static_cast<int>(std::strtol(remote.c_str() + sizeof bus::error_prefix - 1, nullptr, 10))
                          : QUILLO_ERROR_UNKNOWN,
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

void session::hear(GDBusConnection *, const char *, const char *, const char *, const char *signal,
                   GVariant *parameters, void *self)
{
    news one;
    g_variant_get_child(parameters, 0, "u", &one.request);
    if (g_str_equal(signal, "Progress"))
        one.progress = file_of(variant(g_variant_get_child_value(parameters, 1)).get());
    static_cast<session *>(self)->news_.push_back(std::move(one));
}

void session::wait_for_news()
{
    const gint64 end = g_get_monotonic_time() + G_USEC_PER_SEC;
    await([&] { return !news_.empty() || g_get_monotonic_time() >= end; });
    news_.clear();
}

void session::follow(unsigned int id, const std::function<bool(const request &)> &show)
{
    constexpr gint64 tenth = G_USEC_PER_SEC / 10;
    news_.clear();
    request state = describe(id);
    while (show(state)) {
        bool has_new_state = false;
        const gint64 next = g_get_monotonic_time() + tenth;
        const guint tick = g_timeout_add(
            100, [](void *) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
        while (!has_new_state && g_get_monotonic_time() < next && !g_dbus_connection_is_closed(connection_)) {
            g_main_context_iteration(nullptr, TRUE);
            for (const news &one : std::exchange(news_, {})) {
                if (one.request != id)
                    continue;
                has_new_state = has_new_state || !one.progress;
                for (file &known : state.files)
                    if (one.progress && one.progress->id == known.id)
                        known = *one.progress;
            }
        }
        g_source_remove(tick);
        if (g_dbus_connection_is_closed(connection_))
            throw refusal(QUILLO_ERROR_SOCKET, "The service has gone away.");
        if (has_new_state)
            state = describe(id);
    }
}

} // namespace sharing
