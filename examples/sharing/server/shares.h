/*
 * What this server does beyond tus: it turns finished uploads into a share, and tells the recipients' devices of it by
 * push messages.
 */
#ifndef SHARING_SERVER_SHARES_H
#define SHARING_SERVER_SHARES_H

#include <functional>

#include "share_message.h"
#include "tus.h"

namespace sharing
{

constexpr unsigned long long lifetime = 48ULL * 60 * 60 * 1000;
constexpr std::chrono::seconds long_poll(20);

inline std::string read_whole(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Fills in what only the server knows of a share; throws unless each item is a finished upload. */
inline void complete(const state &server, zel_trans_share_content_info &record, const std::string &token)
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
inline void push(const fs::path &mailboxes, const std::string &recipients, const std::string &message)
{
    g_auto(GStrv) numbers = g_regex_split_simple("[^0-9]+", recipients.c_str(), {}, {});
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
inline void issue(state &server, const Request &request, Response &response)
try {
    const auto size = static_cast<gssize>(request.body.size());
    g_autofree char *token = g_compute_checksum_for_string(G_CHECKSUM_SHA1, request.body.data(), size);
    const fs::path issued = server.folder / "shares" / token;
    const std::lock_guard lock(server.mutex);
    if (!fs::exists(issued)) {
        const share record = decode(request.body);
        complete(server, *record, token);
        const std::string completed = encode(*record);
        push(server.folder / "push", text_of(record->to_list), completed);
        write_whole(issued, std::to_string(record->expired_time));
        server.changed.notify_all();
    }
    response.status = 201;
    response.set_header("Contents-Token", token);
    response.set_header("Expires-Milliseconds", read_whole(issued));
} catch (const failure &reason) {
    response.status = 400;
    response.set_content(reason.what(), "text/plain");
}

inline void wait_for_push(state &server, const Request &request, Response &response)
{
    const std::string next = std::to_string(std::strtoull(request.get_param_value("after").c_str(), nullptr, 10) + 1);
    const fs::path message = server.folder / "push" / request.matches[1].str() / next;
    std::unique_lock lock(server.mutex);
    const bool has_come =
        server.changed.wait_for(lock, server.ending.get_token(), long_poll, [&] { return fs::exists(message); });
    response.status = has_come ? 200 : 204;
    response.set_header("Push-Number", next);
    if (has_come)
        response.set_content(read_whole(message), octets);
}

inline void attach_shares(httplib::Server &http, state &server)
{
    http.Post("/shares", std::bind_front(issue, std::ref(server)));
    http.Get("/push/([0-9]{3,20})", std::bind_front(wait_for_push, std::ref(server)));
}

} // namespace sharing

#endif
