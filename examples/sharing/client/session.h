/*
 * A client's line to the service.
 */
#ifndef SHARING_CLIENT_SESSION_H
#define SHARING_CLIENT_SESSION_H

#include <functional>
#include <gio/gio.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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

struct variant_release {
    void operator()(GVariant *value) const
    {
        g_variant_unref(value);
    }
};
using variant = std::unique_ptr<GVariant, variant_release>;

/** A transfer, as the service describes it. */
struct file {
    unsigned int id = 0;
    std::string name;
    std::string path;
    zel_file_sync_status status = ZEL_SYNC_TODO;
    unsigned int percentage = 0;
    unsigned long long offset = 0;
    unsigned int retries = 0;
    int code = 0;
    std::string trouble; /**< why it failed last */
};

/** A request with its transfers, as the service describes it. */
struct request {
    unsigned int id = 0;
    zel_file_sync_type kind = ZEL_UNKNOWN;
    quillo_upload_status_e status = QUILLO_UPLOAD_STATUS_NONE;
    bool is_settled = false;
    unsigned long long size = 0;
    std::string token;
    int code = 0;
    std::string trouble;
    std::vector<file> files;
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
    struct news {
        unsigned int request = 0;
        std::optional<file> progress; /**< none: the request has a new state */
    };
    static void hear(GDBusConnection *, const char *, const char *, const char *, const char *signal,
                     GVariant *parameters, void *self);

    GDBusConnection *connection_ = nullptr;
    std::vector<news> news_;
};

} // namespace sharing

#endif
