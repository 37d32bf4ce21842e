/*
 * What this server does beyond tus: it turns finished uploads into a share, tells the recipients' devices of it by push
 * messages, and hands out files and thumbnails.
 */
#include "server.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <glib.h>

#include "share_message.h"

namespace fs = std::filesystem;
using namespace httplib;

namespace sharing
{

namespace
{

constexpr unsigned long long lifetime = 48ULL * 60 * 60 * 1000;
constexpr unsigned long long thumbnail_size = 1024;
constexpr std::chrono::seconds long_poll(20);

std::string read_whole(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Fills in what only the server knows of a share; throws unless each item is a finished upload. */
void complete(const state &server, zel_trans_share_content_info &record, const std::string &token)
{
    if (!record.content_info_list)
        throw failure(ZEL_ERR_INVALID_ARG, "A share has one item at least.");
    g_free(record.contents_token);
    record.contents_token = g_strdup(token.c_str());
    record.expired_time = _common_util_get_current_unix_time() + lifetime;
    for (auto *item : elements_of<share_item>(record.content_info_list)) {
        const fs::path url = text_of(item->original);
        const auto found = find_upload(server, url.filename());
        if (!found || found->offset != found->length || url.parent_path() != "/files")
            throw failure(ZEL_ERR_RESOURCE_DOESNT_EXIST, url.string() + " is no finished upload.");
        g_free(item->thumbnail);
        item->thumbnail = g_strdup(("/thumbnails" / url.filename()).c_str());
        item->size = static_cast<unsigned int>(found->length);
        item->max_download_count = 10;
        g_free(item->contents_token);
        item->contents_token = g_strdup(token.c_str());
    }
}

/** Puts a message into the mailbox of each recipient; they are like "+447700900123, +12025550123". */
void push(const fs::path &mailboxes, const std::string &recipients, const std::string &message)
{
    char **numbers = g_regex_split_simple("[^0-9]+", recipients.c_str(), {}, {});
    const std::unique_ptr<char *, releaser<g_strfreev>> owned(numbers);
    for (char **number = numbers; *number; ++number) {
        const fs::path mailbox = mailboxes / *number;
        unsigned long long next = 1;
        while (fs::exists(mailbox / std::to_string(next)))
            ++next;
        if (**number)
            write_whole(mailbox / std::to_string(next), message);
    }
}

/** The same message gives the same share: a device that died before it knew asks again. */
void issue(state &server, const Request &request, Response &response)
try {
    const std::unique_ptr<char, releaser<g_free>> token(
        g_compute_checksum_for_string(G_CHECKSUM_SHA1, request.body.data(), static_cast<gssize>(request.body.size())));
    const fs::path issued = server.folder / "shares" / token.get();
    const std::lock_guard lock(server.mutex);
    if (!fs::exists(issued)) {
        const share record = decode(request.body);
        complete(server, *record, token.get());
        const std::string completed = encode(*record);
        push(server.folder / "push", text_of(record->to_list), completed);
        write_whole(issued, std::to_string(record->expired_time));
        server.changed.notify_all();
    }
    response.status = 201;
    response.set_header("Contents-Token", token.get());
    response.set_header("Expires-Milliseconds", read_whole(issued));
} catch (const failure &reason) {
    response.status = 400;
    response.set_content(reason.what(), "text/plain");
}

void wait_for_push(state &server, const Request &request, Response &response)
{
    const unsigned long long last = std::strtoull(request.get_param_value("after").c_str(), nullptr, 10);
    const std::string next = std::to_string(last + 1);
    const fs::path message = server.folder / "push" / request.matches[1].str() / next;
    std::unique_lock lock(server.mutex);
    const bool has_come =
        server.changed.wait_for(lock, server.ending.get_token(), long_poll, [&] { return fs::exists(message); });
    response.status = has_come ? 200 : 204;
    if (has_come) {
        response.set_header("Push-Number", next);
        response.set_content(read_whole(message), octets);
    }
}

} // namespace

std::optional<upload> find_upload(const state &server, const std::string &id)
{
    if (id.size() != 32 || id.find_first_not_of("0123456789abcdef") != std::string::npos)
        return std::nullopt;
    upload found;
    found.folder = server.folder / "uploads" / id;
    std::ifstream info(found.folder / "info");
    std::error_code error;
    found.offset = fs::file_size(found.folder / "bytes", error);
    if (!(info >> found.length) || error)
        return std::nullopt;
    info.ignore();
    std::getline(info, found.metadata);
    return found;
}

void write_whole(const fs::path &path, const std::string &content)
{
    fs::create_directories(path.parent_path());
    if (!g_file_set_contents(path.c_str(), content.data(), static_cast<gssize>(content.size()), nullptr))
        throw std::runtime_error(path.string() + " cannot be written.");
}

void hand_out(const state &server, const Request &request, Response &response)
{
    const auto found = find_upload(server, request.matches[1]);
    if (!found || found->offset != found->length) {
        response.status = 404;
        return;
    }
    const bool is_thumbnail = request.path.starts_with("/thumbnails");
    const unsigned long long length = is_thumbnail ? std::min(found->length, thumbnail_size) : found->length;
    if (length == 0)
        return response.set_content("", octets);
    const auto file = std::make_shared<std::ifstream>(found->folder / "bytes", std::ios::binary);
    response.set_content_provider(static_cast<size_t>(length), octets, [file](size_t offset, size_t count, DataSink &sink) {
        std::string bytes(std::min<size_t>(count, size_t{256} * 1024), '\0');
        file->seekg(static_cast<std::streamoff>(offset));
        return file->read(bytes.data(), static_cast<std::streamsize>(bytes.size())) &&
               sink.write(bytes.data(), bytes.size());
    });
}

void attach_shares(Server &http, state &server)
{
    http.Post("/shares", std::bind_front(issue, std::ref(server)));
    http.Get("/push/([0-9]{3,20})", std::bind_front(wait_for_push, std::ref(server)));
    http.Get("/thumbnails/([0-9a-f]{32})", std::bind_front(hand_out, std::cref(server)));
}

} // namespace sharing
