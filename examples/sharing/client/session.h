/*
 * A client's line to the service.
 */
#ifndef SHARING_CLIENT_SESSION_H
#define SHARING_CLIENT_SESSION_H

#include <functional>
#include <gio/gio.h>

#include "share_message.h"
#include "zel_common_storage.h"

namespace sharing
{

/** What the service would not do: the client's code and a sentence. */
class refusal : public std::runtime_error
{
  public:
    refusal(int result, const std::string &sentence) : std::runtime_error(sentence), code(result) {}
    const int code;
};

using variant = std::unique_ptr<GVariant, releaser<g_variant_unref>>;

/** A transfer, as the service describes it. */
struct file {
    guint32 id = 0;
    std::string name;
    std::string path;
    zel_file_sync_status status = ZEL_SYNC_TODO;
    guint32 percentage = 0;
    guint64 offset = 0;
    guint32 retries = 0;
    gint32 code = 0;
    std::string trouble; /**< why it failed last */
};

/** A request with its transfers, as the service describes it. */
struct request {
    guint32 id = 0;
    zel_file_sync_type kind = ZEL_UNKNOWN;
    guint32 status = QUILLO_UPLOAD_STATUS_NONE;
    gboolean is_settled = FALSE;
    guint64 size = 0;
    std::string token;
    gint32 code = 0;
    std::string trouble;
    std::vector<file> files;

    /** Bytes that have passed. */
    guint64 passed() const;
};

class session
{
  public:
    /** Connects to the service of a state folder, which becomes the working directory. */
    explicit session(const std::string &state);
    ~session();
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    /** Calls a method; the arguments may be floating, or NULL. Throws what the service refuses. */
    variant call(const char *method, GVariant *arguments = nullptr);

    /** Waits until the service tells anything, a second at most. */
    void wait_for_news();

    request describe(unsigned int id);

    /**
     * Keeps a description of a request up to date by what the service tells, and shows it ten times a second, until the
     * showing function returns false.
     */
    void follow(unsigned int id, const std::function<bool(const request &)> &show);

  private:
    /** Lets the main loop run until something holds; on a terminal it is seen to move. */
    template <typename condition> void await(condition holds);

    GDBusConnection *connection_ = nullptr;
    std::vector<variant> news_; /**< the parameters of signals */
};

} // namespace sharing

#endif
