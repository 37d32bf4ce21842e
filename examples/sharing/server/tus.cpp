#include "tus.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <fstream>
#include <glib.h>
#include <set>
#include <sys/socket.h>
#include <thread>

namespace sharing
{

namespace
{

constexpr char version[] = "1.0.0";

/** A header that is a number; absent when it is anything else. */
std::optional<unsigned long long> number_in(const httplib::Request &request, const char *header)
{
    const std::string text = request.get_header_value(header);
    unsigned long long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

/** Whether a text is what Upload-Metadata may hold: pairs of a key, once each, and a value in Base64. */
bool is_metadata(const std::string &text)
{
    std::set<std::string> keys;
    std::istringstream pairs(text);
    for (std::string one; std::getline(pairs, one, ',');) {
        one.erase(0, one.find_first_not_of(' '));
        if (!g_regex_match_simple("^[!-+\\--~]+( ([A-Za-z0-9+/]{4})*([A-Za-z0-9+/]{2}==|[A-Za-z0-9+/]{3}=)?)?$",
                                  one.c_str(), {}, {}) ||
            !keys.insert(one.substr(0, one.find(' '))).second)
            return false;
    }
    return true;
}

/** Whether the client speaks the version that is spoken here; else it is told which that is. */
bool is_understood(const httplib::Request &request, httplib::Response &response)
{
    if (request.get_header_value("Tus-Resumable") == version)
        return true;
    response.set_header("Tus-Version", version);
    return false;
}

/** Breaks off the connection whose other end is a port; the HTTP library does not tell its socket. */
void cut(int remote_port)
{
    for (int socket = 0; socket < 1024; ++socket) {
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        if (getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &size) == 0 && ntohs(peer.sin_port) == remote_port)
            shutdown(socket, SHUT_RDWR);
    }
}

} // namespace

void tus::attach(httplib::Server &server)
{
    using namespace httplib;
    server.set_default_headers({{"Tus-Resumable", version}});
    server.Options("/files(/.*)?",
                   [this](const Request &, Response &response) { response.status = tell_abilities(response); });
    const auto handler = [this](const Request &request, Response &response, const ContentReader &body) {
        response.status = answer(request, response, body);
        const bool is_read = response.status == 204 || response.status == 507; // that is, a chunk
        if (!is_read && (request.has_header("Content-Length") || request.has_header("Transfer-Encoding")))
            body([](const char *, size_t) { return true; });
    };
    server.Post("/files/?([0-9a-f]{32})?", handler);
    server.Patch("/files/?([0-9a-f]{32})?", handler);
}

int tus::answer(const httplib::Request &request, httplib::Response &response, const httplib::ContentReader &body)
{
    std::string method = request.get_header_value("X-HTTP-Method-Override");
    if (method.empty())
        method = request.method;
    const bool has_id = request.matches[1].length() > 0;
    if (method == "OPTIONS")
        return tell_abilities(response);
    if (!is_understood(request, response))
        return 412;
    if (method == "PATCH" && has_id)
        return append(request, response, body);
    if (method == "HEAD" && has_id)
        return tell_offset(request, response);
    return method == "POST" && !has_id ? create(request, response) : 405;
}

int tus::tell_abilities(httplib::Response &response) const
{
    response.set_header("Tus-Version", version);
    response.set_header("Tus-Extension", "creation");
    response.set_header("Tus-Max-Size", std::to_string(settings_.largest));
    response.set_header("Sharing-Extension", "shares,push"); // tells our service that this server does more than tus
    return 204;
}

int tus::create(const httplib::Request &request, httplib::Response &response)
{
    const auto length = number_in(request, "Upload-Length");
    const std::string metadata = request.get_header_value("Upload-Metadata");
    if (!length || !is_metadata(metadata))
        return 400;
    if (*length > settings_.largest)
        return 413;
    response.set_header("Location", "/files/" + uploads_.create(*length, metadata));
    return 201;
}

int tus::tell_offset(const httplib::Request &request, httplib::Response &response)
{
    response.set_header("Cache-Control", "no-store");
    if (!is_understood(request, response))
        return 412;
    const auto turn =
        uploads_.turn_of(request.matches[1]); // a chunk that is being broken off counts once it is through
    const auto found = uploads_.find(request.matches[1]);
    if (!found)
        return 404;
    response.set_header("Upload-Offset", std::to_string(found->offset));
    response.set_header("Upload-Length", std::to_string(found->length));
    if (!found->metadata.empty())
        response.set_header("Upload-Metadata", found->metadata);
    return 200;
}

int tus::append(const httplib::Request &request, httplib::Response &response, const httplib::ContentReader &body)
{
    const std::string id = request.matches[1];
    const auto offset = number_in(request, "Upload-Offset");
    if (request.get_header_value("Content-Type") != "application/offset+octet-stream")
        return 415;
    if (!offset)
        return 400;
    const std::string failure = next_failure(id);
    if (failure == "hang")
        stopping_.wait_for(std::chrono::minutes(1));

    const auto turn = uploads_.turn_of(id);
    const auto found = uploads_.find(id);
    if (!found)
        return 404;
    const unsigned long long missing = found->length - found->offset;
    const unsigned long long announced = number_in(request, "Content-Length").value_or(missing);
    int refusal = static_cast<int>(std::strtol(failure.c_str(), nullptr, 10));
    if (refusal == 0)
        refusal = *offset != found->offset ? 409 : announced > missing ? 413 : 0;
    if (refusal != 0) {
        uploads_.note(id, "refused " + std::to_string(refusal) + " " + request.get_header_value("Content-Length"));
        return refusal;
    }

    uploads_.note(id, "begin " + std::to_string(*offset) + " " + std::to_string(announced));
    std::ofstream bytes(uploads_.bytes_of(id), std::ios::binary | std::ios::app);
    unsigned long long arrived = *offset;
    body([&](const char *piece, size_t count) {
        if (failure == "cut" && arrived >= *offset + announced / 2)
            return false;
        count = static_cast<size_t>(std::min<unsigned long long>(count, found->length - arrived));
        if (bytes.write(piece, static_cast<std::streamsize>(count)).flush())
            arrived += count;
        if (settings_.rate > 0)
            std::this_thread::sleep_for(std::chrono::nanoseconds(count * 1'000'000'000ULL / settings_.rate));
        return true;
    });
    arrived = uploads_.find(id).value_or(*found).offset; // what counts is what is on the disk
    uploads_.note(id, "end " + std::to_string(arrived));
    if (failure == "cut")
        cut(request.remote_port);
    response.set_header("Upload-Offset", std::to_string(arrived));
    return bytes ? 204 : 507;
}

std::string tus::next_failure(const std::string &id)
{
    const std::lock_guard lock(mutex_);
    const std::string at = "@" + std::to_string(++chunks_[id]);
    for (const std::string &failure : settings_.failures)
        if (failure.ends_with(at))
            return failure.substr(0, failure.find('@'));
    return "";
}

} // namespace sharing
