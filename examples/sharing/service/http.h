/*
 * What the service asks of a server over HTTP. The server is not trusted: whatever it sends is bounded in size and
 * time, and looked at before it is stored.
 */
#ifndef SHARING_SERVICE_HTTP_H
#define SHARING_SERVICE_HTTP_H

#include <functional>
#include <map>
#include <memory>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "settings.h"

namespace sharing
{

/** A part of a file that is open. */
struct file_part {
    int descriptor = -1;
    unsigned long long offset = 0;
    unsigned long long length = 0;
};

struct http_answer {
    long status = 0;
    std::map<std::string, std::string> headers; /**< names in small letters */
    std::string body;                           /**< unless it went to a file */

    /** The value of a header, empty when there is none. */
    std::string header(const char *name) const;
    /** A header that is a decimal number; throws when it is anything else. */
    unsigned long long number(const char *name) const;
};

struct http_request {
    const char *method = "GET";
    std::string url; /**< absolute, or relative to the server's */
    std::vector<std::pair<std::string, std::string>> headers = {};

    std::string body = {};
    file_part body_file = {}; /**< instead, if it is open */

    file_part into = {};          /**< receives the body of a success, if it is open; longer ones are refused */
    size_t largest_body = 65'536; /**< otherwise */

    /** How long the server may think before it answers, beyond the usual. */
    std::chrono::seconds thinking{0};

    /** Looks at the head of a success before its body comes; throws to refuse it. */
    std::function<void(const http_answer &)> check = {};
    /** Called at least once a second with the bytes of the body moved so far; throws to break off. */
    std::function<void(unsigned long long)> moved = {};
};

/** A connection to the server, which is kept from one request to the next. For one thread at a time. */
class http_client
{
  public:
    explicit http_client(const settings &chosen);
    ~http_client();
    http_client(const http_client &) = delete;

    /**
     * Sends a request. Throws a failure when there is no answer:
     *
     * - ZEL_ERR_NETWORK_FAILURE: the server cannot be reached.
     * - ZEL_ERR_TRANSPORT_FAILURE: the connection broke.
     * - ZEL_ERR_TIMEOUT_ERR: nothing moved for too long, or too slowly.
     * - ZEL_ERR_REQ_PAUSED: the service is stopping.
     */
    http_answer ask(const http_request &request);

    /** The same; throws as well unless the answer is a success. */
    http_answer ask_for_success(const http_request &request);

    /** How many answers have come so far. */
    unsigned long long answers() const
    {
        return answers_;
    }

  private:
    const settings &chosen_;
    void *curl_;
    unsigned long long answers_ = 0;
};

/** Throws what an answer that is no success means. */
[[noreturn]] void refuse(const http_answer &answer, const char *method);

/** Whether a failure passes by itself, so that a transfer waits and tries again; a server's refusal does not. */
bool is_passing(const std::exception &reason);

} // namespace sharing

#endif
