/*
 * A client's line to the service.
 */
#ifndef SHARING_CLIENT_SESSION_H
#define SHARING_CLIENT_SESSION_H

#include <cstdio>
#include <filesystem>
#include <gio/gio.h>
#include <unistd.h>

#include "bus.h"
#include "share_message.h"

namespace sharing
{

using variant = std::unique_ptr<GVariant, releaser<g_variant_unref>>;

/** What the service would not do: the client's code and a sentence. */
struct refusal : std::runtime_error {
    refusal(int result, const std::string &sentence) : std::runtime_error(sentence), code(result) {}
    int code;
};

class session
{
  public:
    /** Connects to the service of a state folder, which becomes the working directory. */
    explicit session(const std::string &state)
    {
        // From there the path of the socket is short; the kernel takes 108 bytes.
        std::error_code there_is_none;
        std::filesystem::current_path(state, there_is_none);
        const std::string address = std::string("unix:path=") + bus::socket_name;
        if (!there_is_none)
            connection_.reset(g_dbus_connection_new_for_address_sync(
                address.c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, nullptr, nullptr));
        if (!connection_)
            throw refusal(QUILLO_ERROR_SERVICE_NOT_RUNNING, "No sharingd is at work in " + state + ".");
        const auto hear = [](GDBusConnection *, const char *, const char *, const char *, const char *, GVariant *,
                             void *has_news) { *static_cast<bool *>(has_news) = true; };
        g_dbus_connection_signal_subscribe(connection_.get(), nullptr, bus::interface, nullptr, bus::object, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, hear, &has_news_, nullptr);
        // The main loop runs while something is waited for, and just then it is seen to move.
        const auto tick = [](void *counter) -> gboolean {
            if (const unsigned int ticks = ++*static_cast<unsigned int *>(counter); ticks > 5 && isatty(STDERR_FILENO))
                fprintf(stderr, "%c\r", "|/-\\"[ticks % 4]);
            return G_SOURCE_CONTINUE;
        };
        g_timeout_add(100, tick, &ticks_);
    }

    session(const session &) = delete;

    /** Calls a method; the arguments may be floating, or NULL. Throws what the service refuses. */
    variant call(const char *method, GVariant *arguments = nullptr)
    {
        GAsyncResult *result = nullptr;
        const auto take = [](GObject *, GAsyncResult *came, void *to) {
            *static_cast<GAsyncResult **>(to) = G_ASYNC_RESULT(g_object_ref(came));
        };
        g_dbus_connection_call(connection_.get(), nullptr, bus::object, bus::interface, method, arguments, nullptr,
                               G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr, take, &result);
        while (!result)
            g_main_context_iteration(nullptr, TRUE);
        g_autoptr(GError) error = nullptr;
        variant answer(g_dbus_connection_call_finish(connection_.get(), result, &error));
        g_object_unref(result);
        if (answer)
            return answer;
        g_autofree char *name = g_dbus_error_get_remote_error(error);
        if (!name || !g_str_has_prefix(name, bus::error_prefix))
            throw refusal(QUILLO_ERROR_SOCKET, "The service has gone away.");
        g_dbus_error_strip_remote_error(error);
        const auto code = static_cast<int>(std::strtol(name + sizeof bus::error_prefix - 1, nullptr, 10));
        throw refusal(-code, error->message);
    }

    /** Waits until the service has told of something, between a tenth of a second and a second. */
    void wait_for_news()
    {
        for (const unsigned int start = ticks_; ticks_ == start || (!has_news_ && ticks_ < start + 10);)
            g_main_context_iteration(nullptr, TRUE);
        has_news_ = false;
    }

  private:
    std::unique_ptr<GDBusConnection, releaser<g_object_unref>> connection_;
    bool has_news_ = false;
    unsigned int ticks_ = 0; /**< tenths of seconds for which the main loop has run */
};

} // namespace sharing

#endif
