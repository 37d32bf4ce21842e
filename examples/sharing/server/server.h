/*
 * What the parts of the server have in common. All that lasts is on disk, so the server can die at any moment and the
 * next one knows what arrived:
 *
 *   uploads/ID/info     an upload's length in bytes and, on a second line, its metadata as the client gave it
 *   uploads/ID/bytes    what has arrived; the size of this file is the upload's offset
 *   uploads/ID/record   "begin OFFSET LENGTH" when a chunk comes in, "end OFFSET" when it is through or broken off, and
 *                       "refused STATUS LENGTH" for one that is not taken
 *   shares/TOKEN        when a share expires
 *   push/NUMBER/N       the push messages for a device: 1, 2, 3 ...
 */
#ifndef SHARING_SERVER_SERVER_H
#define SHARING_SERVER_SERVER_H

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <httplib.h>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace sharing
{

constexpr char octets[] = "application/octet-stream";

/** The chunks that come in of an upload. */
struct chunks {
    std::mutex turn;
    std::atomic<int> count = 0;
};

struct state {
    std::filesystem::path folder = "sharing-server-files";
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
    std::filesystem::path folder;
    unsigned long long length = 0;
    unsigned long long offset = 0;
    std::string metadata;
};

/** None as well for what is no id, whatever path it would make. */
std::optional<upload> find_upload(const state &server, const std::string &id);

/** Writes a file whole or not at all. */
void write_whole(const std::filesystem::path &path, const std::string &content);

/** Takes over uploads, that is, the paths /files and /files/ID. */
void attach_tus(httplib::Server &http, state &server);

/** Takes over POST /shares, GET /push/NUMBER and GET /thumbnails/ID. */
void attach_shares(httplib::Server &http, state &server);

/** Hands out a finished upload, or for a thumbnail its beginning. */
void hand_out(const state &server, const httplib::Request &request, httplib::Response &response);

} // namespace sharing

#endif
