#include "shares.h"

#include <algorithm>
#include <chrono>
#include <fstream>

namespace fs = std::filesystem;

namespace sharing
{

namespace
{

constexpr unsigned long long lifetime = 48ULL * 60 * 60 * 1000;
constexpr unsigned long long thumbnail_size = 1024;
constexpr size_t longest_message = size_t{16} * 1024 * 1024;
constexpr std::chrono::seconds long_poll(20);
constexpr char octets[] = "application/octet-stream";

std::string read_whole(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

shares::shares(fs::path folder, uploads &all, tus &protocol) : folder_(std::move(folder)), uploads_(all), tus_(protocol)
{
    fs::create_directories(folder_ / "shares");
}

void shares::attach(httplib::Server &server)
{
    using namespace httplib;
    server.Post("/shares",
                [this](const Request &, Response &response, const ContentReader &body) { issue(response, body); });
    server.Get("/push/([0-9]{3,20})",
               [this](const Request &request, Response &response) { wait_for_push(request, response); });
    server.Get("/files/([0-9a-f]{32})", [this](const Request &request, Response &response) {
        if (request.method == "HEAD")
            response.status = tus_.tell_offset(request, response);
        else
            hand_out(request, response, std::numeric_limits<unsigned long long>::max());
    });
    server.Get("/thumbnails/([0-9a-f]{32})",
               [this](const Request &request, Response &response) { hand_out(request, response, thumbnail_size); });
}

void shares::issue(httplib::Response &response, const httplib::ContentReader &body)
try {
    std::string message;
    body([&](const char *bytes, size_t count) {
        if (message.size() < longest_message)
            message.append(bytes, count);
        return true;
    });
    const share record = decode(message);
    complete(*record);

    // The same uploads give the same share: a device that died before it knew asks again.
    const std::lock_guard lock(mutex_);
    const fs::path issued = folder_ / "shares" / record->contents_token;
    if (!fs::exists(issued)) {
        const std::string completed = encode(*record);
        push(text_of(record->to_list), completed);
        write_whole(issued, completed);
        posted_.notify_all();
    }
    const share known = decode(read_whole(issued));
    response.status = 201;
    response.set_header("Contents-Token", known->contents_token);
    response.set_header("Expires-Milliseconds", std::to_string(known->expired_time));
} catch (const failure &reason) {
    response.status = 400;
    response.set_content(reason.what(), "text/plain");
}

/** Fills in what only the server knows of a share; throws unless each item is a finished upload. */
void shares::complete(zel_trans_share_content_info &record)
{
    std::string ids;
    for (auto *item : elements_of<share_item>(record.content_info_list)) {
        const std::string url = text_of(item->original);
        const std::string id = url.substr(url.rfind('/') + 1);
        const auto found = uploads_.find(id);
        if (!found || found->offset != found->length)
            throw failure(ZEL_ERR_RESOURCE_DOESNT_EXIST, url + " is no finished upload.");
        ids += id;
        g_free(item->original);
        g_free(item->thumbnail);
        item->original = g_strdup(("/files/" + id).c_str());
        item->thumbnail = g_strdup(("/thumbnails/" + id).c_str());
        item->size = static_cast<unsigned int>(found->length);
        item->max_download_count = 10;
    }
    if (ids.empty())
        throw failure(ZEL_ERR_INVALID_ARG, "A share has one item at least.");
    g_free(record.contents_token);
    record.contents_token = g_compute_checksum_for_string(G_CHECKSUM_SHA1, ids.c_str(), -1);
    record.expired_time = _common_util_get_current_unix_time() + lifetime;
    for (auto *item : elements_of<share_item>(record.content_info_list)) {
        g_free(item->contents_token);
        item->contents_token = g_strdup(record.contents_token);
    }
}

/** Puts a message into the mailbox of each recipient; they are like "+447700900123, +12025550123". */
void shares::push(const std::string &recipients, const std::string &message)
{
    char **numbers = g_regex_split_simple("[^0-9]+", recipients.c_str(), {}, {});
    const std::unique_ptr<char *, releaser<g_strfreev>> owned(numbers);
    for (char **number = numbers; *number; ++number) {
        if (strlen(*number) < 3 || strlen(*number) > 20)
            continue;
        const fs::path mailbox = folder_ / "push" / *number;
        fs::create_directories(mailbox);
        unsigned long long next = 1;
        while (fs::exists(mailbox / std::to_string(next)))
            ++next;
        write_whole(mailbox / std::to_string(next), message);
    }
}

void shares::wait_for_push(const httplib::Request &request, httplib::Response &response)
{
    const unsigned long long last = std::strtoull(request.get_param_value("after").c_str(), nullptr, 10);
    const std::string next = std::to_string(last + 1);
    const fs::path message = folder_ / "push" / request.matches[1].str() / next;
    std::unique_lock lock(mutex_);
    posted_.wait_for(lock, long_poll, [&] { return is_stopping_ || fs::exists(message); });
    response.status = 204;
    if (!fs::exists(message))
        return;
    response.status = 200;
    response.set_header("Push-Number", next);
    response.set_content(read_whole(message), octets);
}

void shares::hand_out(const httplib::Request &request, httplib::Response &response, unsigned long long limit)
{
    const auto found = uploads_.find(request.matches[1]);
    if (!found || found->offset != found->length) {
        response.status = 404;
        return;
    }
    const auto length = static_cast<size_t>(std::min(found->length, limit));
    if (length == 0)
        return response.set_content("", octets);
    const auto file = std::make_shared<std::ifstream>(uploads_.bytes_of(request.matches[1]), std::ios::binary);
    response.set_content_provider(length, octets, [file](size_t offset, size_t count, httplib::DataSink &sink) {
        std::string bytes(std::min<size_t>(count, size_t{256} * 1024), '\0');
        file->seekg(static_cast<std::streamoff>(offset));
        return file->read(bytes.data(), static_cast<std::streamsize>(bytes.size())) &&
               sink.write(bytes.data(), bytes.size());
    });
}

void shares::stop()
{
    const std::lock_guard lock(mutex_);
    is_stopping_ = true;
    posted_.notify_all();
}

} // namespace sharing
