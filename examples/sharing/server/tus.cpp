#include "tus.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <stdexcept>
#include <sys/stat.h>

namespace sharing
{

/** Waits of a client whose chunk is to get no reply. */
constexpr milliseconds hang_time(60'000);

/* Files ----------------------------------------------------------------------------------------------------------- */

void write_whole(const fs::path &path, const std::string &content)
{
    fs::create_directories(path.parent_path());
    g_autoptr(GError) error = nullptr;
    if (!g_file_set_contents(path.c_str(), content.data(), static_cast<gssize>(content.size()), &error))
        throw std::runtime_error(error->message);
}

std::vector<fs::path> entries_of(const fs::path &folder)
{
    std::vector<fs::path> entries;
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(folder, error))
        entries.push_back(entry.path());
    return entries;
}

void remove_half_written(const fs::path &folder)
{
    for (const fs::path &file : entries_of(folder))
        if (g_regex_match_simple("\\.[A-Za-z0-9]{6}$", file.filename().c_str(), {}, {}))
            fs::remove(file);
}

/** Adds a line to an upload's record, in one write; a full disk costs the record, not the bytes. */
static void note(const upload &one, const std::string &line)
{
    std::ofstream(one.folder / "record", std::ios::app) << line + "\n";
}

static bool is_id(const std::string &text)
{
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/** The id in a path; empty when there is none. */
static std::string id_in(const std::string &path, const std::string &prefix)
{
    const std::string id = path.starts_with(prefix) ? path.substr(prefix.size()) : "";
    return is_id(id) ? id : "";
}

static gint64 in_milliseconds(const timespec &time)
{
    return gint64{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

std::optional<upload> uploads::find(const std::string &id) const
{
    upload found = {.folder = chosen_.folder / "uploads" / id, .metadata = ""};
    std::ifstream info(found.folder / "info");
    if (!is_id(id) || !(info >> found.length))
        return std::nullopt;
    std::getline(info >> std::ws, found.metadata);
    struct stat bytes = {};
    if (stat((found.folder / "bytes").c_str(), &bytes) == 0) {
        found.offset = static_cast<unsigned long long>(bytes.st_size);
        found.expires = in_milliseconds(bytes.st_mtim) + chosen_.lifetime.count();
    }
    found.is_expired = found.expires <= now_in_milliseconds();
    return found;
}

std::optional<upload> uploads::find_finished(const std::string &url) const
{
    auto found = find(id_in(url, "/files/"));
    return found && found->is_finished() ? std::move(found) : std::nullopt;
}

void uploads::sweep() const
{
    for (const fs::path &folder : entries_of(chosen_.folder / "uploads")) {
        remove_half_written(folder);
        const auto one = find(folder.filename());
        struct stat known = {};
        const bool is_old = stat(folder.c_str(), &known) == 0 &&
                            in_milliseconds(known.st_mtim) + chosen_.lifetime.count() <= now_in_milliseconds();
        if (!one || (is_old && !fs::exists(folder / "bytes")))
            fs::remove_all(folder);
        else if (one->is_expired && !coming_in_.contains(folder.filename()))
            for (const char *name : {"bytes", "record", "thumbnail"})
                fs::remove(folder / name);
    }
}

/* Chunks ---------------------------------------------------------------------------------------------------------- */

/** How an upload's expiry is reported. */
static std::pair<const char *, std::string> expiry(gint64 milliseconds)
{
    g_autoptr(GDateTime) when = g_date_time_new_from_unix_utc(milliseconds / 1000);
    g_autofree char *text = g_date_time_format(when, "%a, %d %b %Y %H:%M:%S GMT");
    return {"Upload-Expires", text};
}

/** A chunk that comes in. What arrives is on disk at once, so a connection that breaks loses nothing. */
class uploads::chunk final : public exchange
{
  public:
    /** @param coming bytes that were announced, or as many as are missing */
    chunk(uploads &all, const upload &one, const std::string &id, int number, unsigned long long coming,
          connection &line)
        : exchange(line), all_(all), one_(one), id_(id), is_hung_(all.chosen_.hangs.contains(number)),
          limit_(all.chosen_.cuts.contains(number) ? coming / 2 : one.length - one.offset),
          is_cut_(all.chosen_.cuts.contains(number)),
          bytes_(::open((one.folder / "bytes").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC))
    {
        note(one_, "begin " + std::to_string(one_.offset) + " " + std::to_string(coming));
        all_.coming_in_[id_] = this;
    }
    ~chunk() override
    {
        end();
    }

    bool wants_body() const override
    {
        return status_ == 204;
    }

    void take(std::string_view piece) override
    {
        if (piece.size() > limit_ - taken_ && !is_cut_) { // it does not keep to its length: nothing of it counts
            status_ = 413;
            if (ftruncate(bytes_.get(), static_cast<off_t>(one_.offset)) != 0)
                status_ = 507;
            return;
        }
        piece = piece.substr(0, static_cast<size_t>(std::min<unsigned long long>(limit_ - taken_, piece.size())));
        taken_ += piece.size();
        while (!piece.empty() && status_ == 204) {
            const ssize_t count = write(bytes_.get(), piece.data(), piece.size());
            if (count > 0)
                piece.remove_prefix(static_cast<size_t>(count));
            else if (errno != EINTR)
                status_ = 507;
        }
        if (is_cut_ && taken_ == limit_)
            break_off();
    }

    std::optional<reply> answer() override
    {
        if (std::exchange(is_hung_, false)) {
            line_.rest(hang_time);
            return std::nullopt;
        }
        end();
        const auto now = all_.find(id_);
        if (status_ != 204 || !now)
            return refuse(status_ == 413 ? 413 : 507, status_ == 413 ? "The chunk goes beyond the upload's length."
                                                                     : "There is no room for the chunk.");
        return reply{.status = 204, .headers = {{"Upload-Offset", std::to_string(now->offset)}, expiry(now->expires)}};
    }

    /** Ends it where it is. */
    void break_off()
    {
        end();
        status_ = 0;
        line_.let_go();
    }

  private:
    void end()
    {
        const auto self = all_.coming_in_.find(id_);
        if (self == all_.coming_in_.end() || self->second != this)
            return;
        all_.coming_in_.erase(self);
        std::error_code error;
        const auto size = fs::file_size(one_.folder / "bytes", error); // what is on the disk counts
        if (!error)
            note(one_, "end " + std::to_string(size));
        if (size == one_.length)
            all_.counts_.erase(id_);
    }

    uploads &all_;
    const upload one_; /**< as it was before the chunk */
    const std::string id_;
    bool is_hung_;
    const unsigned long long limit_; /**< bytes of the chunk that are taken */
    const bool is_cut_;
    const descriptor bytes_;
    unsigned long long taken_ = 0;
    unsigned int status_ = 204;
};

std::unique_ptr<exchange> uploads::append(const upload &one, const std::string &id, const request &asked,
                                          connection &line)
{
    const auto offset = asked.number("Upload-Offset");
    if (asked.header("Content-Type") != "application/offset+octet-stream")
        return settled(line, refuse(415, "A chunk has the type application/offset+octet-stream."));
    if (!offset)
        return settled(line, refuse(400, "A chunk says its Upload-Offset."));
    const bool is_staged = !chosen_.refusals.empty() || !chosen_.cuts.empty() || !chosen_.hangs.empty();
    const int number = is_staged ? ++counts_[id] : 0;
    const unsigned long long missing = one.length - one.offset;
    const unsigned long long coming = asked.number("Content-Length").value_or(missing);
    const unsigned int refusal = chosen_.refusals.contains(number) ? 503
                                 : *offset != one.offset           ? 409
                                 : coming > missing                ? 413
                                                                   : 0;
    if (refusal == 0)
        return std::make_unique<chunk>(*this, one, id, number, coming, line);
    note(one, "refused " + std::to_string(refusal) + " " + asked.header("Content-Length"));
    return settled(line, refuse(refusal, refusal == 503   ? "This chunk is refused for show."
                                         : refusal == 409 ? "The upload's offset is " + std::to_string(one.offset) + "."
                                                          : "The chunk goes beyond the upload's length."));
}

/* Uploads --------------------------------------------------------------------------------------------------------- */

/** Makes an empty upload, whose id nobody guesses; it counts once it has its length. */
reply uploads::create(const request &asked) const
{
    const auto length = asked.number("Upload-Length");
    if (!length)
        return refuse(400, "An upload says its Upload-Length.");
    if (*length > chosen_.largest)
        return refuse(413, "The largest file that is taken has " + std::to_string(chosen_.largest) + " bytes.");
    std::random_device random;
    char id[33];
    snprintf(id, sizeof id, "%08x%08x%08x%08x", random(), random(), random(), random());
    const fs::path folder = chosen_.folder / "uploads" / id;
    write_whole(folder / "bytes", "");
    write_whole(folder / "info", std::to_string(*length) + "\n" + asked.header("Upload-Metadata"));
    return {.status = 201,
            .headers = {{"Location", std::string("/files/") + id},
                        expiry(now_in_milliseconds() + chosen_.lifetime.count())}};
}

reply uploads::tell_offset(const upload &one) const
{
    header_list headers = {{"Upload-Offset", std::to_string(one.offset)},
                           {"Upload-Length", std::to_string(one.length)},
                           expiry(one.expires)};
    if (!one.metadata.empty())
        headers.emplace_back("Upload-Metadata", one.metadata);
    return {.headers = std::move(headers)};
}

struct byte_range {
    unsigned long long from;
    unsigned long long end;
};

/** The range that a Range header names in a file that is not empty; absent for several, empty for one beyond the end.
 */
static std::optional<byte_range> range_in(const std::string &header, unsigned long long size)
{
    g_autoptr(GMatchInfo) match = nullptr;
    g_autoptr(GRegex) form = g_regex_new("^bytes=([0-9]*)-([0-9]*)$", {}, {}, nullptr);
    if (!g_regex_match(form, header.c_str(), {}, &match) || header == "bytes=-")
        return std::nullopt;
    g_autofree char *first = g_match_info_fetch(match, 1);
    g_autofree char *last = g_match_info_fetch(match, 2);
    const unsigned long long from = g_ascii_strtoull(first, nullptr, 10);
    const unsigned long long until = *last ? g_ascii_strtoull(last, nullptr, 10) : G_MAXUINT64;
    if (!*first)
        return byte_range{size - std::min(until, size), size};
    if (from > until)
        return std::nullopt;
    return byte_range{std::min(from, size), std::min(until, size - 1) + 1};
}

/** Hands out a finished upload, or its thumbnail. */
reply uploads::hand_out(const request &asked, const std::string &id, bool is_thumbnail) const
{
    const auto found = find(id);
    if (!found || (!found->is_expired && !found->is_finished()))
        return refuse(404, "There is no such file.");
    if (found->is_expired)
        return refuse(410, "The file has expired.");
    descriptor file(::open((found->folder / (is_thumbnail ? "thumbnail" : "bytes")).c_str(), O_RDONLY | O_CLOEXEC));
    struct stat known = {};
    if (fstat(file.get(), &known) != 0)
        return refuse(404, "There is no such file.");
    const auto size = static_cast<unsigned long long>(known.st_size);
    if (size == 0)
        return {.headers = {{"Content-Type", octets}}};
    const auto range = range_in(asked.header("Range"), size);
    const auto [from, end] = range.value_or(byte_range{0, size});
    if (from >= end)
        return {.status = 416, .headers = {{"Content-Range", "bytes */" + std::to_string(size)}}};
    reply answer = {.status = range ? 206U : 200U,
                    .headers = {{"Content-Type", octets}, {"Accept-Ranges", "bytes"}},
                    .file = std::move(file),
                    .from = from,
                    .count = end - from};
    if (range)
        answer.headers.emplace_back("Content-Range", "bytes " + std::to_string(from) + "-" + std::to_string(end - 1) +
                                                         "/" + std::to_string(size));
    return answer;
}

std::unique_ptr<exchange> uploads::open(const request &asked, connection &line)
{
    const bool is_collection = asked.path == "/files" || asked.path == "/files/";
    const std::string id = id_in(asked.path, "/files/");
    const std::string thumbnail = id_in(asked.path, "/thumbnails/");
    if (!is_collection && id.empty() && thumbnail.empty())
        return nullptr;
    const std::string instead = asked.header("X-HTTP-Method-Override");
    const std::string method = instead.empty() ? asked.method : instead;
    if (method == "OPTIONS")
        return settled(line, {});
    if (method == "GET" && !is_collection)
        return settled(line, hand_out(asked, id + thumbnail, id.empty()));
    if (asked.header("Tus-Resumable") != tus_version)
        return settled(line, refuse(412, "This server speaks tus 1.0.0."));
    if (is_collection && method == "POST")
        return settled(line, create(asked));
    if (id.empty() || (method != "HEAD" && method != "PATCH"))
        return settled(line, refuse(405, "Uploads are made by POST; one of them takes HEAD, PATCH and GET."));

    // The sender of a chunk that is still coming in has gone, or it would not ask: the chunk ends here.
    if (const auto earlier = coming_in_.find(id); earlier != coming_in_.end())
        earlier->second->break_off();
    const auto found = find(id);
    if (!found)
        return settled(line, refuse(404, "There is no such upload."));
    if (found->is_expired)
        return settled(line, refuse(410, "The upload has expired."));
    return method == "HEAD" ? settled(line, tell_offset(*found)) : append(*found, id, asked, line);
}

} // namespace sharing
