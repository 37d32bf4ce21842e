/*
 * The stand-in for the sharing server: a folder, with one folder per share in it. Nothing else is kept, so a server
 * object can go at any moment and the next one knows what arrived.
 *
 *   share-3/17-photo.jpg              what has arrived of the file that the device sends in transfer 17
 *   share-3/.chunks/17-photo.jpg      a line for every chunk: "received NUMBER OFFSET BYTES", or "refused NUMBER 0 0"
 *   share-3/.thumbnails/17-photo.jpg  the file's first KiB, made when the upload is finished
 *
 * A chunk has arrived when its line stands in the list, which is written behind its bytes. The path of a file within
 * the server's folder is its upload key; with a scheme in front it is the file's URL.
 */
#ifndef SHARING_DEMO_SERVER_H
#define SHARING_DEMO_SERVER_H

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "records.h"

namespace demo
{

/** A position within a file: how many bytes have passed, in how many chunks. */
struct position {
    unsigned long long offset = 0;
    int chunk_no = 0;
    bool operator==(const position &) const = default;
};

/** What the lists of a share's chunks say. */
struct chunk_count {
    unsigned int received = 0;
    unsigned int refused = 0;
    bool is_gapless = true; /**< every file's chunks came in order, each once, to the file's end */
};

class server
{
  public:
    static constexpr size_t thumbnail_size = 1024;
    static constexpr char share_type[] = "files"; /**< the type of every share that it announces */

    explicit server(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /** Announces a file and gives its upload key, the same one for the same transfer. Empty when it is refused. */
    std::string open_upload(unsigned int share_id, unsigned int transfer_id, const std::string &name);

    /** What has arrived of a file. */
    position arrived(const std::string &key);

    /** Takes the chunk that follows what has arrived; any other is refused. Moves from past the chunk on success. */
    zel_err_e append(const std::string &key, position &from, const std::vector<char> &bytes);

    /** Makes the thumbnails of a share that is complete; issues its token and expiry (milliseconds). */
    std::string finish(unsigned int share_id, unsigned long long &expired_time);

    /** A finished share, as the devices of its recipients are told of it. */
    share share_of(const zel_trans_upload_info &upload, const std::string &from, const std::string &to) const;

    static std::string url_of(const std::string &key);
    static std::string content_type_of(const std::string &name);
    unsigned long long size_of(const std::string &url) const;

    /** Hands out a piece of a file or thumbnail, as many bytes as there is room for or fewer at the end. */
    zel_err_e fetch(const std::string &url, unsigned long long offset, std::vector<char> &bytes) const;

    /** Where the bytes of a key or URL lie, for whoever wants to check. */
    std::filesystem::path path_of(const std::string &key_or_url) const;
    chunk_count count_chunks(unsigned int share_id) const;

  private:
    position &arrived_locked(const std::string &key);
    std::vector<std::string> keys_of(unsigned int share_id) const;

    const std::filesystem::path folder_;
    std::mutex mutex_;
    std::map<std::string, position> arrived_; /**< what the lists say, so that each is read once */
};

} // namespace demo

#endif
