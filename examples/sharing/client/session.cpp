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

file file_of(const variant &value)
{
    file result;
    const char *name = nullptr;
    const char *path = nullptr;
    const char *trouble = nullptr;
    guint32 status = 0;
    g_variant_get(value.get(), "(u^&ay^&ayuutui&s)", &result.id, &name, &path, &status, &result.percentage,
                  &result.offset, &result.retries, &result.code, &trouble);
    result.name = name;
    result.path = path;
    result.status = static_cast<zel_file_sync_status>(status);
    result.trouble = trouble;
    return result;
}

} // namespace

guint64 request::passed() const
{
    guint64 bytes = 0;
    for (const file &one : files)
        bytes += one.offset;
    return bytes;
}

template <typename condition> void session::await(condition holds)
{
    const gint64 start = g_get_monotonic_time();
    const guint ticking = g_timeout_add(
        100, [](void *) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    bool has_shown = false;
    while (!holds()) {
        g_main_context_iteration(nullptr, TRUE);
        const gint64 tenths = (g_get_monotonic_time() - start) / 100'000;
        if (tenths > 5 && isatty(STDERR_FILENO) != 0) {
            fprintf(stderr, "\r%c", "|/-\\"[tenths % 4]);
            has_shown = true;
        }
    }
    if (has_shown)
        fprintf(stderr, "\r\033[K");
    g_source_remove(ticking);
}

session::session(const std::string &state)
{
    // From there the path of the socket is short; the kernel takes 108 bytes.
    std::error_code there_is_none;
    std::filesystem::current_path(state, there_is_none);
    if (!there_is_none)
        connection_ = g_dbus_connection_new_for_address_sync((std::string("unix:path=") + bus::socket_name).c_str(),
                                                             G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                                             nullptr, nullptr);
    if (!connection_)
        throw refusal(QUILLO_ERROR_SERVICE_NOT_RUNNING, "No sharingd is at work in " + state + ".");
    const auto hear = [](GDBusConnection *, const char *, const char *, const char *, const char *,
                         GVariant *parameters, void *news) {
        static_cast<std::vector<variant> *>(news)->emplace_back(g_variant_ref(parameters));
    };
    g_dbus_connection_signal_subscribe(connection_, nullptr, bus::interface, nullptr, bus::object, nullptr,
                                       G_DBUS_SIGNAL_FLAGS_NONE, hear, &news_, nullptr);
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
    const std::unique_ptr<GError, releaser<g_error_free>> owned(error);
    const std::unique_ptr<char, releaser<g_free>> name(g_dbus_error_get_remote_error(error));
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
    const char *token = nullptr;
    const char *trouble = nullptr;
    GVariantIter *files = nullptr;
    g_variant_get(answer.get(), "((uubt&si&sa" SHARING_FILE "))", &kind, &result.status, &result.is_settled,
                  &result.size, &token, &result.code, &trouble, &files);
    while (GVariant *one = g_variant_iter_next_value(files))
        result.files.push_back(file_of(variant(one)));
    g_variant_iter_free(files);
    result.kind = static_cast<zel_file_sync_type>(kind);
    result.token = token;
    result.trouble = trouble;
    return result;
}

void session::wait_for_news()
{
    const gint64 end = g_get_monotonic_time() + G_USEC_PER_SEC;
    await([&] { return !news_.empty() || g_get_monotonic_time() >= end; });
    news_.clear();
}

void session::follow(unsigned int id, const std::function<bool(const request &)> &show)
{
    news_.clear();
    request state = describe(id);
    while (show(state)) {
        bool has_new_state = false;
        const gint64 next = g_get_monotonic_time() + G_USEC_PER_SEC / 10;
        await([&] {
            for (const variant &one : std::exchange(news_, {})) {
                guint32 about = 0;
                g_variant_get_child(one.get(), 0, "u", &about);
                if (about != id)
                    continue;
                if (g_variant_n_children(one.get()) == 1) {
                    has_new_state = true;
                    continue;
                }
                const file now = file_of(variant(g_variant_get_child_value(one.get(), 1)));
                std::ranges::replace(state.files, now.id, now, &file::id);
            }
            return has_new_state || g_get_monotonic_time() >= next || g_dbus_connection_is_closed(connection_);
        });
        if (g_dbus_connection_is_closed(connection_))
            throw refusal(QUILLO_ERROR_SOCKET, "The service has gone away.");
        if (has_new_state)
            state = describe(id);
    }
}

} // namespace sharing
