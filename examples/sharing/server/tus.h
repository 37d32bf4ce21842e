/*
 * What clients send, by the tus 1.0.0 resumable upload protocol (core and creation), and how it is handed out. All
 * that lasts is on disk, so the server can die at any moment and the next one knows what arrived:
 *
 *   uploads/ID/info     an upload's length in bytes and, on a second line, its metadata as the client gave it
 *   uploads/ID/bytes    what has arrived; the size of this file is the upload's offset
 *   uploads/ID/record   "begin OFFSET LENGTH" when a chunk comes in, "end OFFSET" when it is through or broken off, and
 *                       "refused STATUS LENGTH" for one that is not taken
 *   shares/TOKEN        when a share expires
 *   push/NUMBER/N       the push messages for a device: 1, 2, 3 ...
 */
#ifndef SHARING_SERVER_TUS_H
#define SHARING_SERVER_TUS_H

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <glib.h>
#include <httplib.h>
#include <map>
#include <optional>
#include <random>
#include <stop_token>

namespace sharing
{

namespace fs = std::filesystem;
using httplib::ContentReader;
using httplib::Request;
using httplib::Response;

constexpr unsigned long long thumbnail_size = 1024;
constexpr char version[] = "1.0.0"; // of tus
constexpr char octets[] = "application/octet-stream";

/** The chunks that come in of an upload. */
struct chunks {
    std::mutex turn;
    std::atomic<int> count = 0;
};

struct state {
    fs::path folder = "sharing-server-files";
    unsigned long long largest = 0x7FFFFFFF; /**< file that is taken, in bytes */
    unsigned long long rate = 0;             /**< bytes a second that each connection takes; 0: as many as come */

    /* Chunks of each upload that fail, for whoever wants to see what becomes of it. */
    std::vector<int> refusals; /**< with 503 */
    std::vector<int> cuts;     /**< half of it arrives */
    std::vector<int> hangs;    /**< no answer comes */

    std::mutex mutex; /**< for what follows, and while a share is issued */
    std::condition_variable_any changed;
    std::stop_source ending; /**< of what waits */
    std::map<std::string, chunks> uploads;
};

struct upload {
    fs::path folder;
    unsigned long long length = 0;
    unsigned long long offset = 0;
    std::string metadata;
};

/** None as well for what is no id, whatever path it would make. */
inline std::optional<upload> find_upload(const state &server, const std::string &id)
{
    upload found = {server.folder / "uploads" / id, 0, 0, ""};
    std::ifstream info(found.folder / "info");
    std::error_code error;
    found.offset = fs::file_size(found.folder / "bytes", error);
    if (!g_regex_match_simple("^[0-9a-f]{32}$", id.c_str(), {}, {}) || !(info >> found.length) || error)
        return std::nullopt;
    std::getline(info >> std::ws, found.metadata);
    return found;
}

/** Writes a file whole or not at all. */
inline void write_whole(const fs::path &path, const std::string &content)
{
    fs::create_directories(path.parent_path());
    if (!g_file_set_contents(path.c_str(), content.data(), static_cast<gssize>(content.size()), nullptr))
        throw std::runtime_error(path.string() + " cannot be written.");
}

/** A header that is a number; absent when it is anything else. */
inline std::optional<guint64> number_in(const Request &request, const char *header)
{
    guint64 number = 0;
    if (!g_ascii_string_to_unsigned(request.get_header_value(header).c_str(), 10, 0, G_MAXUINT64, &number, nullptr))
        return std::nullopt;
    return number;
}

/** Adds a line to an upload's record, in one write; a full disk costs the record, not the bytes. */
inline void note(const upload &one, const std::string &line)
{
    std::ofstream(one.folder / "record", std::ios::app) << line + "\n";
}

/** What is known of an upload's chunks, of which there is one at a time. */
inline chunks &chunks_of(state &server, const std::string &id)
{
    const std::lock_guard lock(server.mutex);
    return server.uploads[id];
}

/** Makes an empty upload, whose id nobody guesses; it counts once it has its length. */
inline int create(const state &server, const Request &request, Response &response)
{
    const auto length = number_in(request, "Upload-Length");
    if (!length)
        return 400;
    if (*length > server.largest)
        return 413;
    std::random_device random;
    char id[33];
    snprintf(id, sizeof id, "%08x%08x%08x%08x", random(), random(), random(), random());
    const fs::path folder = server.folder / "uploads" / id;
    write_whole(folder / "bytes", "");
    write_whole(folder / "info", std::to_string(*length) + "\n" + request.get_header_value("Upload-Metadata"));
    response.set_header("Location", std::string("/files/") + id);
    return 201;
}

inline int append(state &server, const std::string &id, const Request &request, Response &response,
                  const ContentReader &body)
{
    const auto offset = number_in(request, "Upload-Offset");
    if (request.get_header_value("Content-Type") != "application/offset+octet-stream")
        return 415;
    if (!offset)
        return 400;
    chunks &all = chunks_of(server, id);
    const auto is_staged = [number = ++all.count](const std::vector<int> &at) {
        return std::ranges::count(at, number) > 0;
    };
    if (std::unique_lock lock(server.mutex); is_staged(server.hangs))
        server.changed.wait_for(lock, server.ending.get_token(), std::chrono::minutes(1), [] { return false; });

    const std::lock_guard turn(all.turn);
    const auto found = find_upload(server, id);
    if (!found)
        return 404;
    const unsigned long long missing = found->length - found->offset;
    const unsigned long long coming = number_in(request, "Content-Length").value_or(missing);
    const int refusal = is_staged(server.refusals) ? 503 : *offset != found->offset ? 409 : coming > missing ? 413 : 0;
    if (refusal != 0) {
        note(*found, "refused " + std::to_string(refusal) + " " + request.get_header_value("Content-Length"));
        return refusal;
    }

    note(*found, "begin " + std::to_string(*offset) + " " + std::to_string(coming));
    std::ofstream bytes(found->folder / "bytes", std::ios::binary | std::ios::app);
    const bool is_cut = is_staged(server.cuts);
    unsigned long long left = is_cut ? coming / 2 : missing;
    body([&](const char *piece, size_t count) {
        count = static_cast<size_t>(std::min<unsigned long long>(count, left));
        bytes.write(piece, static_cast<std::streamsize>(count)).flush();
        left -= count;
        if (server.rate > 0)
            std::this_thread::sleep_for(std::chrono::nanoseconds(count * 1'000'000'000ULL / server.rate));
        return !is_cut || left > 0;
    });
    const std::string arrived = std::to_string(fs::file_size(found->folder / "bytes")); // what is on the disk counts
    note(*found, "end " + arrived);
    if (is_cut) { // an answer that cannot be given breaks off the connection
        response.set_content_provider(1, octets, [](size_t, size_t, httplib::DataSink &) { return false; });
        return 500;
    }
    response.set_header("Upload-Offset", arrived);
    return bytes ? 204 : 507;
}

inline int tell_offset(state &server, const std::string &id, Response &response)
{
    // A chunk that is being broken off counts once it is through.
    const std::lock_guard turn(chunks_of(server, id).turn);
    const auto found = find_upload(server, id);
    if (!found)
        return 404;
    response.set_header("Upload-Offset", std::to_string(found->offset));
    response.set_header("Upload-Length", std::to_string(found->length));
    if (!found->metadata.empty())
        response.set_header("Upload-Metadata", found->metadata);
    return 200;
}

inline int answer(state &server, const Request &request, Response &response, const ContentReader &body)
{
    const std::string id = request.matches[1];
    std::string method = request.get_header_value("X-HTTP-Method-Override");
    if (method.empty())
        method = request.method;
    if (method == "OPTIONS")
        return 200;
    if (request.get_header_value("Tus-Resumable") != version)
        return 412;
    if (id.empty())
        return method == "POST" ? create(server, request, response) : 405;
    if (method == "HEAD")
        return tell_offset(server, id, response);
    return method == "PATCH" ? append(server, id, request, response, body) : 405;
}

/** Hands out a finished upload, or for a thumbnail its beginning. */
inline void hand_out(const state &server, const Request &request, Response &response)
{
    const auto found = find_upload(server, request.matches[1]);
    if (!found || found->offset != found->length) {
        response.status = 404;
        return;
    }
    const bool is_thumbnail = request.path.starts_with("/thumbnails");
    const auto length = static_cast<size_t>(is_thumbnail ? std::min(found->length, thumbnail_size) : found->length);
    if (length == 0)
        return response.set_content("", octets);
    const auto file = std::make_shared<std::ifstream>(found->folder / "bytes", std::ios::binary);
    response.set_content_provider(length, octets, [file](size_t offset, size_t count, httplib::DataSink &sink) {
        std::string bytes(std::min<size_t>(count, size_t{256} * 1024), '\0');
        file->seekg(static_cast<std::streamoff>(offset));
        return file->read(bytes.data(), static_cast<std::streamsize>(bytes.size())) &&
               sink.write(bytes.data(), bytes.size());
    });
}

inline void attach_tus(httplib::Server &http, state &server)
{
    http.set_default_headers({{"Tus-Resumable", version},
                              {"Tus-Version", version},
                              {"Tus-Extension", "creation"},
                              {"Tus-Max-Size", std::to_string(server.largest)},
                              {"Sharing-Extension", "shares,push"}, // tells our service that there is more than tus
                              {"Cache-Control", "no-store"}});
    const auto handler = [&](const Request &request, Response &response, const ContentReader &body) {
        response.status = answer(server, request, response, body);
        const bool is_chunk = response.status == 204 || response.status == 500 || response.status == 507;
        if (!is_chunk && (request.has_header("Content-Length") || request.has_header("Transfer-Encoding")))
            body([](const char *, size_t) { return true; }); // what is not read would be taken for the next request
    };
    http.Post("/files/?([0-9a-f]{32})?", handler);
    http.Patch("/files/?([0-9a-f]{32})?", handler);
    http.Options("/files(/.*)?", [](const Request &, Response &response) { response.status = 200; });
    http.Get("/(?:files|thumbnails)/([0-9a-f]{32})", [&](const Request &request, Response &response) {
        if (request.method != "HEAD")
            hand_out(server, request, response);
        else
            response.status = answer(server, request, response, ContentReader(nullptr, nullptr));
    });
}

} // namespace sharing

#endif
