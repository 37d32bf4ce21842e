#include "tus.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <glib.h>
#include <set>

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

/** Whether the client speaks the version that is spoken here; answers when it does not. */
bool is_understood(const httplib::Request &request, httplib::Response &response)
{
    if (request.get_header_value("Tus-Resumable") == version)
        return true;
    response.status = 412;
    response.set_header("Tus-Version", version);
    return false;
}

std::string method_of(const httplib::Request &request)
{
    return request.has_header("X-HTTP-Method-Override") ? request.get_header_value("X-HTTP-Method-Override")
                                                        : request.method;
}

} // namespace

void tus::attach(httplib::Server &server)
{
    using namespace httplib;
    server.set_default_headers({{"Tus-Resumable", version}});
    server.Options("/files(/.*)?", [this](const Request &, Response &response) { tell_abilities(response); });
    const auto post = [this](const Request &request, Response &response, const ContentReader &body) {
        const std::string method = method_of(request);
        if (method == "OPTIONS")
            return tell_abilities(response);
        if (!is_understood(request, response))
            return discard(request, body);
        if (method == "PATCH" && !request.matches[1].str().empty())
            return append(request, response, body);
        discard(request, body);
        if (method == "HEAD" && !request.matches[1].str().empty())
            return tell_offset(request, response);
        if (method == "POST" && request.matches[1].str().empty())
            return create(request, response);
        response.status = 405;
    };
    server.Post("/files/?([0-9a-f]{32})?", post);
    server.Patch("/files/?([0-9a-f]{32})?", post);
}

void tus::tell_abilities(httplib::Response &response) const
{
    response.status = 204;
    response.set_header("Tus-Version", version);
    response.set_header("Tus-Extension", "creation");
    response.set_header("Tus-Max-Size", std::to_string(largest_));
    response.set_header("Sharing-Extension", "shares,push"); // tells our service that this server does more than tus
}

void tus::create(const httplib::Request &request, httplib::Response &response)
{
    const auto length = number_in(request, "Upload-Length");
    const std::string metadata = request.get_header_value("Upload-Metadata");
    if (!length || !is_metadata(metadata)) {
        response.status = 400;
        return;
    }
    if (*length > largest_) {
        response.status = 413;
        return;
    }
    response.status = 201;
    response.set_header("Location", "/files/" + uploads_.create(*length, metadata));
}

void tus::tell_offset(const httplib::Request &request, httplib::Response &response)
{
    response.set_header("Cache-Control", "no-store");
    if (!is_understood(request, response))
        return;
    auto turn = uploads_.turn_of(request.matches[1]);
    const std::lock_guard lock(turn); // a chunk that is being broken off counts as soon as it is through
    const auto found = uploads_.find(request.matches[1]);
    if (!found) {
        response.status = 404;
        return;
    }
    response.status = 200;
    response.set_header("Upload-Offset", std::to_string(found->offset));
    response.set_header("Upload-Length", std::to_string(found->length));
    if (!found->metadata.empty())
        response.set_header("Upload-Metadata", found->metadata);
}

void tus::append(const httplib::Request &request, httplib::Response &response, const httplib::ContentReader &body)
{
    const std::string id = request.matches[1];
    auto turn = uploads_.turn_of(id);
    const auto refuse = [&](int status) {
        response.status = status;
        if (turn)
            uploads_.note(id, "refused " + std::to_string(status) + " " + request.get_header_value("Content-Length"));
        discard(request, body);
    };
    const auto offset = number_in(request, "Upload-Offset");
    if (request.get_header_value("Content-Type") != "application/offset+octet-stream")
        return refuse(415);
    if (!offset)
        return refuse(400);
    const std::string staged = stage_.next(id);
    if (staged == "hang")
        stage_.hang();

    turn.lock();
    const auto found = uploads_.find(id);
    if (!found) {
        turn.unlock();
        return refuse(404);
    }
    if (staged.size() == 3 && staged != "cut")
        return refuse(std::stoi(staged));
    if (*offset != found->offset)
        return refuse(409);
    const unsigned long long announced = number_in(request, "Content-Length").value_or(found->length - found->offset);
    if (announced > found->length - found->offset)
        return refuse(413);

    uploads_.note(id, "begin " + std::to_string(*offset) + " " + std::to_string(announced));
    std::ofstream bytes(uploads_.bytes_of(id), std::ios::binary | std::ios::app);
    unsigned long long arrived = *offset;
    body([&](const char *piece, size_t count) {
        if (staged == "cut" && arrived >= *offset + announced / 2)
            return false;
        count = static_cast<size_t>(std::min<unsigned long long>(count, found->length - arrived));
        if (bytes.write(piece, static_cast<std::streamsize>(count)).flush())
            arrived += count;
        stage_.keep_pace(count);
        return true;
    });
    arrived = uploads_.find(id).value_or(*found).offset; // what counts is what is on the disk
    uploads_.note(id, "end " + std::to_string(arrived));
    if (staged == "cut")
        stage::cut(request.remote_port);
    response.status = bytes ? 204 : 507;
    response.set_header("Upload-Offset", std::to_string(arrived));
}

void discard(const httplib::Request &request, const httplib::ContentReader &body)
{
    if (request.has_header("Content-Length") || request.has_header("Transfer-Encoding"))
        body([](const char *, size_t) { return true; });
}

} // namespace sharing
