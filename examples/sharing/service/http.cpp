#include "http.h"

#include <charconv>
#include <cstring>
#include <curl/curl.h>
#include <unistd.h>

#include "store.h"

namespace sharing
{

constexpr long min_speed = 1000;            // bytes a second
constexpr size_t max_header_bytes = 65'536; // of an answer

namespace
{

template <typename... arguments> void set(CURL *curl, CURLoption option, arguments... value)
{
    if (curl_easy_setopt(curl, option, value...) != CURLE_OK)
        throw failure(ZEL_ERR_REQUEST_FAILED, "The request cannot be made.");
}

/** The address of a request, which must be on the server: what it says of others is not followed. */
std::string address_of(const std::string &url, const std::string &server)
{
    const std::unique_ptr<CURLU, releaser<curl_url_cleanup>> address(curl_url());
    const auto part = [&](CURLUPart which) {
        char *value = nullptr;
        curl_url_get(address.get(), which, &value, CURLU_DEFAULT_PORT);
        const std::unique_ptr<char, releaser<curl_free>> owner(value);
        return text_of(value);
    };
    const auto origin = [&] {
        return part(CURLUPART_SCHEME) + "://" + part(CURLUPART_HOST) + ":" + part(CURLUPART_PORT);
    };
    require(curl_url_set(address.get(), CURLUPART_URL, server.c_str(), 0) == CURLUE_OK, ZEL_ERR_INVALID_ARG,
            server + " is no address of a server.");
    const std::string home = origin();
    require(curl_url_set(address.get(), CURLUPART_URL, url.c_str(), 0) == CURLUE_OK && origin() == home,
            ZEL_ERR_INVALID_ARG, "'" + url + "' is not on the server.");
    return part(CURLUPART_URL);
}

/** One request on its way. The callbacks are called from C: what they throw waits in `thrown`. */
struct exchange {
    const http_request &request;
    http_answer answer = {};
    size_t header_bytes = 0;
    unsigned long long sent = 0;
    unsigned long long received = 0;
    bool is_checked = false;
    std::exception_ptr thrown = nullptr;

    template <typename result, typename function> result guarded(result otherwise, function step)
    {
        try {
            return step();
        } catch (...) {
            thrown = std::current_exception();
            return otherwise;
        }
    }

    bool is_success() const
    {
        return answer.status / 100 == 2;
    }

    void check()
    {
        if (!std::exchange(is_checked, true) && is_success() && request.check)
            request.check(answer);
    }

    void take_header(std::string line)
    {
        header_bytes += line.size();
        require(header_bytes <= max_header_bytes, ZEL_ERR_BAD_JSON_FORMAT, "The server's answer has endless headers.");
        if (line.starts_with("HTTP/")) { // of the last answer, when there are several
            answer.headers.clear();
            answer.status = line.size() > 9 ? std::strtol(line.c_str() + line.find(' '), nullptr, 10) : 0;
        }
        const size_t colon = line.find(':');
        if (colon == std::string::npos)
            return;
        const text name(g_ascii_strdown(line.c_str(), static_cast<gssize>(colon)));
        line.erase(0, colon + 1);
        answer.headers[name.get()] = g_strstrip(line.data());
    }

    size_t take_body(const char *bytes, size_t count)
    {
        check();
        const bool goes_to_file = is_success() && request.into.descriptor >= 0;
        const unsigned long long limit = goes_to_file ? request.into.length : request.largest_body;
        require(count <= limit - received, ZEL_ERR_BAD_JSON_FORMAT, "The server sent more than it may.");
        for (size_t done = 0; goes_to_file && done < count;) {
            const ssize_t written = pwrite(request.into.descriptor, bytes + done, count - done,
                                           static_cast<off_t>(request.into.offset + received + done));
            require(written >= 0 || errno == EINTR, ZEL_ERR_REQUEST_FAILED,
                    std::string("The file cannot be written: ") + strerror(errno) + ".");
            done += written > 0 ? static_cast<size_t>(written) : 0;
        }
        if (!goes_to_file)
            answer.body.append(bytes, count);
        received += count;
        return count;
    }

    size_t give_body(char *to, size_t room)
    {
        if (request.body_file.descriptor < 0)
            return request.body.copy(to, room, static_cast<size_t>(sent));
        room = static_cast<size_t>(std::min<unsigned long long>(room, request.body_file.length - sent));
        const ssize_t got = room == 0 ? 0
                                      : pread(request.body_file.descriptor, to, room,
                                              static_cast<off_t>(request.body_file.offset + sent));
        require(room == 0 || got > 0, ZEL_ERR_INVALID_FILE, "The file changed while it was sent.");
        return static_cast<size_t>(got);
    }

    void make_progress(unsigned long long bytes) const
    {
        require(!is_stopping, ZEL_ERR_REQ_PAUSED, "The service is stopping.");
        if (request.moved)
            request.moved(bytes);
    }
};

size_t on_header(char *bytes, size_t, size_t count, void *of)
{
    auto &one = *static_cast<exchange *>(of);
    return one.guarded(size_t{0}, [&] {
        one.take_header({bytes, count});
        return count;
    });
}

size_t on_body(char *bytes, size_t, size_t count, void *of)
{
    auto &one = *static_cast<exchange *>(of);
    return one.guarded(size_t{0}, [&] { return one.take_body(bytes, count); });
}

size_t on_read(char *to, size_t, size_t room, void *of)
{
    auto &one = *static_cast<exchange *>(of);
    return one.guarded(size_t{CURL_READFUNC_ABORT}, [&] {
        const size_t count = one.give_body(to, room);
        one.sent += count;
        return count;
    });
}

/** A kept connection may turn out to be closed: then the body is sent again. */
int on_seek(void *of, curl_off_t offset, int)
{
    static_cast<exchange *>(of)->sent = static_cast<unsigned long long>(offset);
    return CURL_SEEKFUNC_OK;
}

int on_progress(void *of, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent)
{
    auto &one = *static_cast<exchange *>(of);
    return one.guarded(1, [&] {
        one.make_progress(static_cast<unsigned long long>(std::max(received, sent)));
        return 0;
    });
}

[[noreturn]] void fail(CURL *curl, CURLcode result, const std::string &server)
{
    curl_off_t connected = 0;
    curl_easy_getinfo(curl, CURLINFO_CONNECT_TIME_T, &connected);
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_SSL_CONNECT_ERROR:
        throw failure(ZEL_ERR_NETWORK_FAILURE, "The server at " + server + " cannot be reached.");
    case CURLE_OPERATION_TIMEDOUT:
        if (connected == 0)
            throw failure(ZEL_ERR_NETWORK_FAILURE, "The server at " + server + " cannot be reached in time.");
        throw failure(ZEL_ERR_TIMEOUT_ERR, "The server did not answer in time.");
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_PEER_FAILED_VERIFICATION:
        throw failure(ZEL_ERR_REQUEST_FAILED,
                      std::string("The server cannot be asked: ") + curl_easy_strerror(result) + ".");
    case CURLE_OUT_OF_MEMORY:
        throw failure(ZEL_ERR_MEMORY, "There is no memory for the request.");
    default:
        throw failure(ZEL_ERR_TRANSPORT_FAILURE, "The connection to the server broke.");
    }
}

} // namespace

std::string http_answer::header(const char *name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

unsigned long long http_answer::number(const char *name) const
{
    const std::string value = header(name);
    unsigned long long number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    require(error == std::errc() && end == value.data() + value.size(), ZEL_ERR_BAD_JSON_FORMAT,
            std::string("The server's ") + name + " is no number.");
    return number;
}

http_client::http_client(const settings &chosen) : chosen_(chosen), curl_(curl_easy_init())
{
    require(curl_, ZEL_ERR_MEMORY, "There is no memory for a connection.");
}

http_client::~http_client()
{
    curl_easy_cleanup(curl_);
}

http_answer http_client::ask(const http_request &request)
{
    require(!is_stopping, ZEL_ERR_REQ_PAUSED, "The service is stopping.");
    exchange one{request};
    CURL *const curl = curl_;
    curl_easy_reset(curl); // keeps the connection
    set(curl, CURLOPT_URL, address_of(request.url, chosen_.server).c_str());
    set(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    set(curl, CURLOPT_PROXY, "");
    set(curl, CURLOPT_NOSIGNAL, 1L);
    set(curl, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    const auto patience = static_cast<long>((chosen_.patience + request.thinking).count());
    set(curl, CURLOPT_CONNECTTIMEOUT, static_cast<long>(chosen_.patience.count()));
    set(curl, CURLOPT_LOW_SPEED_LIMIT, min_speed);
    set(curl, CURLOPT_LOW_SPEED_TIME, patience);

    std::unique_ptr<curl_slist, releaser<curl_slist_free_all>> headers;
    const auto add = [&](const std::string &name, const std::string &value) {
        std::string line = name;
        line.append(":").append(value.empty() ? "" : " ").append(value);
        curl_slist *list = curl_slist_append(headers.get(), line.c_str()); // the same list, but for the first header
        require(list, ZEL_ERR_MEMORY, "There is no memory for the request.");
        if (!headers)
            headers.reset(list);
    };
    add("Expect", ""); // leaves it out
    add("Tus-Resumable", "1.0.0");
    for (const auto &[name, value] : request.headers)
        add(name, value);
    set(curl, CURLOPT_HTTPHEADER, headers.get());

    const bool has_body = request.body_file.descriptor >= 0 || strcmp(request.method, "POST") == 0;
    if (strcmp(request.method, "HEAD") == 0)
        set(curl, CURLOPT_NOBODY, 1L);
    else if (strcmp(request.method, "GET") != 0)
        set(curl, CURLOPT_CUSTOMREQUEST, request.method);
    if (has_body) {
        const unsigned long long length =
            request.body_file.descriptor >= 0 ? request.body_file.length : request.body.size();
        set(curl, CURLOPT_UPLOAD, 1L);
        set(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(length));
    }
    set(curl, CURLOPT_READFUNCTION, on_read);
    set(curl, CURLOPT_READDATA, &one);
    set(curl, CURLOPT_SEEKFUNCTION, on_seek);
    set(curl, CURLOPT_SEEKDATA, &one);
    set(curl, CURLOPT_HEADERFUNCTION, on_header);
    set(curl, CURLOPT_HEADERDATA, &one);
    set(curl, CURLOPT_WRITEFUNCTION, on_body);
    set(curl, CURLOPT_WRITEDATA, &one);
    set(curl, CURLOPT_XFERINFOFUNCTION, on_progress);
    set(curl, CURLOPT_XFERINFODATA, &one);
    set(curl, CURLOPT_NOPROGRESS, 0L);

    const CURLcode result = curl_easy_perform(curl);
    answers_ += one.answer.status > 0 ? 1 : 0;
    if (one.thrown)
        std::rethrow_exception(one.thrown);
    const bool is_refused_early = result == CURLE_SEND_ERROR && one.answer.status >= 400; // before all was sent
    if (result != CURLE_OK && !is_refused_early)
        fail(curl, result, chosen_.server);
    one.check(); // of an answer without a body
    return std::move(one.answer);
}

void refuse(const http_answer &answer, const char *method)
{
    std::string sentence = "The server answered " + std::to_string(answer.status) + " to " + method + ".";
    if (const std::string said = answer.body.substr(0, 200); !said.empty() && said.find_first_not_of(" \r\n") == 0)
        sentence += " It says: " + said.substr(0, said.find_first_of("\r\n"));
    switch (answer.status) {
    case 408: // these pass by themselves
    case 423:
    case 425:
    case 429:
    case 502:
    case 503:
    case 504:
        throw failure(ZEL_ERR_TRANSPORT_FAILURE, sentence);
    case 404:
    case 410:
        throw failure(ZEL_ERR_RESOURCE_DOESNT_EXIST, sentence);
    case 413:
        throw failure(ZEL_ERR_MAX_FILE_SIZE_EXCEEDED, sentence);
    default:
        throw failure(ZEL_ERR_REQUEST_FAILED, sentence);
    }
}

http_answer http_client::ask_for_success(const http_request &request)
{
    http_answer answer = ask(request);
    if (answer.status / 100 != 2)
        refuse(answer, request.method);
    return answer;
}

bool is_passing(const std::exception &reason)
{
    switch (as_failure(reason).code) {
    case ZEL_ERR_NETWORK_FAILURE:
    case ZEL_ERR_TRANSPORT_FAILURE:
    case ZEL_ERR_TIMEOUT_ERR:
    case ZEL_ERR_STORAGE_FAILURE:
    case ZEL_ERR_MEMORY:
        return true;
    default:
        return false;
    }
}

} // namespace sharing
