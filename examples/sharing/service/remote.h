/*
 * The server, as a thread of the service talks to it: tus for uploads, and what our own server does beyond it. Every
 * step throws a failure when it does not come off.
 */
#ifndef SHARING_SERVICE_REMOTE_H
#define SHARING_SERVICE_REMOTE_H

#include <atomic>
#include <httplib.h>
#include <map>
#include <mutex>
#include <optional>

#include "share_message.h"

namespace sharing
{

class remote
{
  public:
    /** @param creation_url where uploads are created; @param patience how long to wait for an answer */
    remote(const std::string &creation_url, std::chrono::milliseconds patience);

    struct position {
        unsigned long long offset = 0;
        unsigned long long length = 0;
    };
    struct issued_share {
        std::string token;
        unsigned long long expires = 0; /**< milliseconds since the epoch */
    };
    struct push {
        unsigned long long number = 0;
        std::string message;
    };

    /** Creates an upload and gives its location, which is its key from then on. */
    std::string create(unsigned long long length, const std::string &name);

    /** How much has arrived of an upload. */
    position position_of(const std::string &location);

    /** Appends to an upload; gives its new offset. */
    unsigned long long append(const std::string &location, unsigned long long offset, const char *bytes, size_t count);

    /** A piece of a file, and the size of the whole file. */
    std::string fetch(const std::string &path, unsigned long long offset, size_t count, unsigned long long &size);

    /** Whether the server does more than tus: shares, push messages, thumbnails. */
    bool is_ours();

    issued_share issue(zel_trans_share_content_info &record);

    /** Waits for the push message behind another one; none when the server has had nothing to say for a while. */
    std::optional<push> next_push(const std::string &number, unsigned long long last);

    /** Breaks off what goes on, and whatever is begun later. Any thread may call it. */
    void cancel();

  private:
    httplib::Response send(const char *method, const std::string &url, httplib::Headers headers, std::string body = {});

    const std::string creation_url_;
    const std::chrono::milliseconds patience_;
    std::atomic<bool> is_cancelled_ = false;
    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<httplib::Client>> clients_; /**< by scheme, host and port */
};

} // namespace sharing

#endif
