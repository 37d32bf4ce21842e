/*
 * A client's connection to the service.
 */
#ifndef SHARING_CLIENT_SESSION_H
#define SHARING_CLIENT_SESSION_H

#include <atomic>
#include <chrono>
#include <optional>

#include "quillo-sharing.h"
#include "share_message.h"

namespace sharing
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using text = std::unique_ptr<char, releaser<g_free>>;
using variant = std::unique_ptr<GVariant, releaser<g_variant_unref>>;
template <typename object> using owned = std::unique_ptr<object, releaser<g_object_unref>>;

/** Why the service did not do something: the client's code and a sentence. */
struct refusal : std::runtime_error {
    refusal(int result, const std::string &sentence) : std::runtime_error(sentence), code(result) {}
    int code;
};

/** The connection has ended; the service may still be there. */
struct disconnection : refusal {
    using refusal::refusal;
};

class session
{
  public:
    /** Connects to the service of a state folder, which becomes the working directory. */
    explicit session(const std::string &state);
    session(const session &) = delete;
    ~session();

    /** Connects again after a disconnection: a service that is started again, or that closed a slow connection. */
    void reconnect();

    /**
     * Calls a method of the service; throws what it answers with.
     *
     * @param longest how long an answer may take
     * @param ask     makes the call with the proxy and a place for its error, and returns whether it succeeded
     */
    template <typename function> void call(seconds longest, function ask)
    {
        g_dbus_proxy_set_default_timeout(G_DBUS_PROXY(service_.get()), static_cast<int>(longest.count()) * 1000);
        GError *error = nullptr;
        if (!ask(service_.get(), &error))
            throw_refusal(error);
    }

    /** Returns when the service has reported something since the last call, or after a while. */
    void wait_for_news(milliseconds least, milliseconds longest);

  private:
    bool connect();
    [[noreturn]] static void throw_refusal(GError *error);

    const std::string state_;
    owned<GDBusConnection> connection_;
    owned<QuilloSharing> service_;
    guint filter_ = 0;
    std::atomic<bool> has_news_ = false;
};

} // namespace sharing

#endif
