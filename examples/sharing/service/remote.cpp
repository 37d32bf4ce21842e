#include "remote.h"

#include <charconv>

#include "store.h"

namespace sharing
{

namespace
{

/** Scheme, host and port of a URL. */
std::string origin_of(const std::string &url)
{
    const size_t host = url.find("://");
    return url.substr(0, host == std::string::npos ? 0 : url.find('/', host + 3));
}

/** A number among the headers of an answer: all of the value, or what stands behind its slash, as in bytes 0-9/1234. */
unsigned long long number_of(const httplib::Response &answer, const char *header)
{
    const std::string value = answer.get_header_value(header);
    const size_t start = value.find('/') + 1; // 0 without a slash
    unsigned long long number = 0;
    if (std::from_chars(value.data() + start, value.data() + value.size(), number).ec != std::errc())
        throw failure(ZEL_ERR_BAD_JSON_FORMAT, std::string("The server's ") + header + " is no number.");
    return number;
}

zel_err_e result_of(int status)
{
    static const std::map<int, zel_err_e> results = {
        {401, ZEL_ERR_PERMISSION_DENIED},     {403, ZEL_ERR_PERMISSION_DENIED},
        {404, ZEL_ERR_RESOURCE_DOESNT_EXIST}, {409, ZEL_ERR_LAST_CHUNK_ALREADY_SENT},
        {410, ZEL_ERR_RESOURCE_DOESNT_EXIST}, {413, ZEL_ERR_MAX_FILE_SIZE_EXCEEDED}};
    const auto known = results.find(status);
    return known == results.end() ? ZEL_ERR_REQUEST_FAILED : known->second;
}

} // namespace

remote::remote(const std::string &creation_url, std::chrono::milliseconds patience)
    : creation_url_(creation_url), patience_(patience)
{
}

httplib::Response remote::send(const char *method, const std::string &url, httplib::Headers headers, std::string body)
{
    const bool is_relative = url.starts_with("/");
    const std::string origin = origin_of(is_relative ? creation_url_ : url);
    const std::string path = is_relative ? url : url.substr(origin.size());
    std::unique_lock lock(mutex_);
    auto &client = clients_[origin];
    if (!client) {
        client = std::make_unique<httplib::Client>(origin);
        client->set_keep_alive(true);
        client->set_tcp_nodelay(true); // header and body are two writes
        client->set_connection_timeout(patience_);
        client->set_read_timeout(patience_);
        client->set_write_timeout(patience_);
    }
    lock.unlock();

    httplib::Request request;
    request.method = method;
    request.path = path.empty() ? "/" : path;
    request.headers = std::move(headers);
    request.headers.emplace("Tus-Resumable", "1.0.0");
    request.body = std::move(body);
    const auto start = std::chrono::steady_clock::now();
    httplib::Result result = is_cancelled_ || !client->is_valid() ? httplib::Result(nullptr, httplib::Error::Canceled)
                                                                  : client->send(request);
    if (is_cancelled_)
        throw failure(ZEL_ERR_REQ_PAUSED, "The service is stopping.");
    if (result && result->status / 100 == 2)
        return std::move(*result);
    if (result)
        throw failure(result_of(result->status),
                      "The server answered " + std::to_string(result->status) + " to " + method + ".");
    if (result.error() == httplib::Error::Connection || result.error() == httplib::Error::ConnectionTimeout ||
        result.error() == httplib::Error::Canceled)
        throw failure(ZEL_ERR_NETWORK_FAILURE, "The server at " + origin + " cannot be reached.");
    if (std::chrono::steady_clock::now() - start >= patience_)
        throw failure(ZEL_ERR_TIMEOUT_ERR, "The server did not answer in time.");
    throw failure(ZEL_ERR_TRANSPORT_FAILURE, "The connection to the server broke.");
}

std::string remote::create(unsigned long long length, const std::string &name)
{
    const text encoded(g_base64_encode(reinterpret_cast<const guchar *>(name.data()), name.size()));
    const std::string metadata = std::string("filename ") + encoded.get();
    const auto answer =
        send("POST", creation_url_, {{"Upload-Length", std::to_string(length)}, {"Upload-Metadata", metadata}});
    std::string location = answer.get_header_value("Location");
    if (location.empty() || (!location.starts_with("/") && origin_of(location).empty()))
        throw failure(ZEL_ERR_BAD_JSON_FORMAT, "The server created an upload and did not say where.");
    return location;
}

remote::position remote::position_of(const std::string &location)
{
    const auto answer = send("HEAD", location, {});
    return {number_of(answer, "Upload-Offset"), number_of(answer, "Upload-Length")};
}

unsigned long long remote::append(const std::string &location, unsigned long long offset, const char *bytes,
                                  size_t count)
{
    const auto answer =
        send("PATCH", location,
             {{"Upload-Offset", std::to_string(offset)}, {"Content-Type", "application/offset+octet-stream"}},
             std::string(bytes, count));
    return number_of(answer, "Upload-Offset");
}

std::string remote::fetch(const std::string &path, unsigned long long offset, size_t count, unsigned long long &size)
{
    const std::string range = "bytes=" + std::to_string(offset) + "-" + std::to_string(offset + count - 1);
    const auto answer = send("GET", path, {{"Range", range}});
    if (!answer.has_header("Content-Range") && offset > 0)
        throw failure(ZEL_ERR_TRANSPORT_FAILURE, "The server does not hand out a file in pieces.");
    size = answer.has_header("Content-Range") ? number_of(answer, "Content-Range") : answer.body.size();
    return answer.body;
}

bool remote::is_ours()
{
    return send("OPTIONS", creation_url_, {}).has_header("Sharing-Extension");
}

remote::issued_share remote::issue(zel_trans_share_content_info &record)
{
    const auto answer = send("POST", "/shares", {{"Content-Type", "application/octet-stream"}}, encode(record));
    const std::string token = answer.get_header_value("Contents-Token");
    if (token.empty())
        throw failure(ZEL_ERR_BAD_JSON_FORMAT, "The server issued no token.");
    return {token, number_of(answer, "Expires-Milliseconds")};
}

std::optional<remote::push> remote::next_push(const std::string &number, unsigned long long last)
{
    const auto answer = send("GET", "/push/" + number + "?after=" + std::to_string(last), {});
    if (answer.status == 204)
        return std::nullopt;
    return push{number_of(answer, "Push-Number"), answer.body};
}

void remote::cancel()
{
    is_cancelled_ = true;
    const std::lock_guard lock(mutex_);
    for (const auto &[origin, client] : clients_)
        client->stop();
}

} // namespace sharing
