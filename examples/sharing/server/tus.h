/*
 * What clients send, by the tus 1.0.0 resumable upload protocol (core, creation and expiration), and how it is handed
 * out. All that lasts is on disk, so the server can die at any moment and the next one knows what arrived:
 *
 *   uploads/ID/info       the upload's length in bytes and, on a second line, the client's metadata. It outlives the
 *                         bytes for a while.
 *   uploads/ID/bytes      the bytes that arrived. Their number is the upload's offset. They expire 48 hours after their
 *                         last change.
 *   uploads/ID/thumbnail  the thumbnail that the picture carries, once it is shared
 *   uploads/ID/record     a line for each chunk: "begin OFFSET LENGTH" at its start, "end OFFSET" at its end, "refused
 *                         STATUS LENGTH" instead of both
 */
#ifndef SHARING_SERVER_TUS_H
#define SHARING_SERVER_TUS_H

#include <filesystem>
#include <map>

#include "http.h"

namespace sharing
{

namespace fs = std::filesystem;

constexpr char tus_version[] = "1.0.0";
constexpr char octets[] = "application/octet-stream";

struct settings {
    fs::path folder = "sharing-server-files";
    unsigned long long largest = 0x7FFFFFFF; /**< file that is taken, in bytes */
    milliseconds lifetime{48LL * 60 * 60 * 1000};
    milliseconds long_poll{20'000};

    /* Chunks of each upload that fail, to show what becomes of it. */
    std::set<int> refusals; /**< with 503 */
    std::set<int> cuts;     /**< half of it arrives */
    std::set<int> hangs;    /**< no reply comes */
};

struct upload {
    fs::path folder;
    unsigned long long length = 0;
    unsigned long long offset = 0;
    gint64 expires = 0; /**< in milliseconds since the epoch */
    bool is_expired = false;
    std::string metadata;

    bool is_finished() const
    {
        return !is_expired && offset == length;
    }
};

/** The uploads of a server, and the chunks that come in. */
class uploads
{
  public:
    explicit uploads(const settings &given) : chosen_(given) {}

    /** Makes the exchange of a request that concerns uploads; NULL for others. */
    std::unique_ptr<exchange> open(const request &asked, connection &line);

    /** The upload that an item of a share names; none unless it is finished. */
    std::optional<upload> find_finished(const std::string &url) const;

    /** Removes what has expired, and what an earlier server left half-made. */
    void sweep() const;

  private:
    class chunk;

    std::optional<upload> find(const std::string &id) const;
    reply create(const request &asked) const;
    reply tell_offset(const upload &one) const;
    reply hand_out(const request &asked, const std::string &id, bool is_thumbnail) const;
    std::unique_ptr<exchange> append(const upload &one, const std::string &id, const request &asked, connection &line);

    const settings &chosen_;
    std::map<std::string, chunk *> coming_in_; /**< at most one for each upload */
    std::map<std::string, int> counts_;        /**< of the chunks of each upload, as long as some are to fail */
};

/** Writes a file whole or not at all. */
void write_whole(const fs::path &path, const std::string &content);

/** Removes the temporary files that write_whole leaves in a folder when it is killed. */
void remove_half_written(const fs::path &folder);

/** The entries of a folder; none when there is no such folder. */
std::vector<fs::path> entries_of(const fs::path &folder);

inline gint64 now_in_milliseconds()
{
    return g_get_real_time() / 1000;
}

} // namespace sharing

#endif
