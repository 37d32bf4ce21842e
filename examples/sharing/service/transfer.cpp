#include "transfer.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

#include "place.h"

namespace sharing
{

constexpr unsigned long long max_thumbnail = 1024ULL * 1024;

/* What is sent is what it was ------------------------------------------------------------------------------------- */

/** Changes with each start of the system, and the numbers of devices with it. */
static const std::string &boot_id()
{
    static const std::string id = [] {
        g_autofree char *line = nullptr;
        g_file_get_contents("/proc/sys/kernel/random/boot_id", &line, nullptr, nullptr);
        return std::string(line ? g_strstrip(line) : "unknown");
    }();
    return id;
}

static entry record_of(const struct stat &file)
{
    return {std::to_string(file.st_size) + " " + std::to_string(file.st_mtim.tv_sec) + "." +
                std::to_string(file.st_mtim.tv_nsec),
            {std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino), boot_id()}};
}

sendable look_at_file(const std::string &path)
{
    struct stat file = {};
    require(stat(path.c_str(), &file) == 0, ZEL_ERR_FILE_DOESNT_EXIST,
            path + ": there is no such file, or you may not look.");
    require(S_ISREG(file.st_mode), ZEL_ERR_NOT_A_FILE, path + ": is not a file.");
    require(access(path.c_str(), R_OK) == 0, ZEL_ERR_PERMISSION_DENIED, path + ": you may not read it.");
    require(file.st_size <= std::numeric_limits<int>::max(), ZEL_ERR_MAX_FILE_SIZE_EXCEEDED,
            path + ": has 2 GiB or more, which is too much.");
    return {static_cast<unsigned int>(file.st_size), record_of(file)};
}

/** Throws unless an open file is what it was when the request was made. */
static void require_unchanged(const zel_content_sync_info &row, int opened)
{
    const auto then = entry_at(file_key(row.sync_id));
    struct stat file = {};
    require(fstat(opened, &file) == 0 && S_ISREG(file.st_mode), ZEL_ERR_INVALID_FILE,
            "There is something else now where the file was.");
    const entry now = record_of(file);
    const bool is_same_boot = then && then->extra[1] == now.extra[1];
    require(then && then->value == now.value && (!is_same_boot || then->extra[0] == now.extra[0]), ZEL_ERR_INVALID_FILE,
            "The file has changed since it was to be sent. Send it again to send what it is now.");
}

/** Opens a file without being held up by what may stand in its place. */
static open_file open_unchanged(const zel_content_sync_info &row)
{
    open_file file(open(text_of(row.local_path).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    require(file >= 0, errno == ENOENT ? ZEL_ERR_FILE_DOESNT_EXIST : ZEL_ERR_PERMISSION_DENIED,
            std::string("The file cannot be opened: ") + strerror(errno) + ".");
    require_unchanged(row, file);
    return file;
}

/* Uploads --------------------------------------------------------------------------------------------------------- */

static unsigned long long next_chunk(unsigned long long chunk_size, unsigned long long offset, unsigned long long size)
{
    const unsigned long long suitable = std::clamp(size / 32, 64ULL * 1024, 4096ULL * 1024);
    return std::min(chunk_size > 0 ? chunk_size : suitable, size - offset);
}

/** Where an upload is on the server; none when the server does not know it (any more). */
static std::optional<unsigned long long> offset_of(const std::string &upload, unsigned long long size,
                                                   http_client &server)
{
    const http_answer answer = server.ask({.method = "HEAD", .url = upload});
    if (answer.status == 404 || answer.status == 410)
        return std::nullopt;
    if (answer.status / 100 != 2)
        refuse(answer, "HEAD");
    const unsigned long long offset = answer.number("upload-offset");
    require(answer.number("upload-length") == size && offset <= size, ZEL_ERR_BAD_JSON_FORMAT,
            "The server knows this upload with another size.");
    return offset;
}

static std::string create_upload(const settings &chosen, const zel_content_sync_info &row, unsigned long long size,
                                 http_client &server)
{
    const std::string name = text_of(row.name);
    const text encoded(g_base64_encode(reinterpret_cast<const guchar *>(name.data()), name.size()));
    std::string upload =
        server
            .ask_for_success({.method = "POST",
                              .url = chosen.server,
                              .headers = {{"Upload-Length", std::to_string(size)},
                                          {"Upload-Metadata", std::string("filename ") + encoded.get()}}})
            .header("location");
    require(!upload.empty() && upload.size() <= 2000, ZEL_ERR_BAD_JSON_FORMAT,
            "The server created an upload and did not say where.");
    store(_common_storage_update_mupload_key_sync_content_info, row.sync_id, upload.c_str());
    return upload;
}

static void upload(const settings &chosen, const zel_content_sync_info &row, http_client &server, const observer &tell)
{
    const open_file file = open_unchanged(row);
    const auto size = static_cast<unsigned long long>(lseek(file, 0, SEEK_END));
    std::string upload = text_of(row.mupload_key);
    std::optional<unsigned long long> known = upload.empty() ? std::nullopt : offset_of(upload, size, server);
    if (!known)
        upload = create_upload(chosen, row, size, server);
    unsigned long long offset = known.value_or(0);
    while (offset < size) {
        tell(offset, size);
        const unsigned long long count = next_chunk(chosen.chunk_size, offset, size);
        const http_answer answer =
            server.ask_for_success({.method = "PATCH",
                                    .url = upload,
                                    .headers = {{"Upload-Offset", std::to_string(offset)},
                                                {"Content-Type", "application/offset+octet-stream"}},
                                    .body_file = {file, offset, count},
                                    .moved = [&](unsigned long long) { tell(offset, size); }});
        const unsigned long long now = answer.number("upload-offset");
        require(now == offset + count, ZEL_ERR_BAD_JSON_FORMAT, "The server took the bytes and did not count them.");
        offset = now;
        require_unchanged(row, file);
    }
    require(offset_of(upload, size, server) == size, ZEL_ERR_BAD_JSON_FORMAT,
            "The server has not got all of the file.");
    store(_common_storage_update_url_info, row.sync_id, upload.c_str(), "application/octet-stream");
}

bool is_on_server(const zel_content_sync_info &row, http_client &server)
{
    const http_answer answer = server.ask({.method = "HEAD", .url = text_of(row.original)});
    if (answer.status != 404 && answer.status != 410 && answer.status / 100 != 2)
        refuse(answer, "HEAD");
    return answer.status / 100 == 2;
}

/* Downloads ------------------------------------------------------------------------------------------------------- */

/** Throws unless an answer holds just the bytes from an offset to the end. */
static void require_rest(const http_answer &answer, unsigned long long offset, unsigned long long size)
{
    const std::string range =
        "bytes " + std::to_string(offset) + "-" + std::to_string(size - 1) + "/" + std::to_string(size);
    const bool is_whole = answer.status == 200 && offset == 0;
    const bool has_length = !answer.header("content-length").empty();
    require(!has_length || answer.number("content-length") == size - offset, ZEL_ERR_BAD_JSON_FORMAT,
            "The server's file has another size than was announced.");
    require(is_whole || (answer.status == 206 && answer.header("content-range") == range), ZEL_ERR_BAD_JSON_FORMAT,
            "The server sent another piece of the file than it was asked for.");
}

static void download(const zel_content_sync_info &row, http_client &server, const observer &tell)
{
    if (is_in_place(row)) // the last service died before it recorded the end
        return;
    require(is_reserved(row), ZEL_ERR_INVALID_FILE,
            text_of(row.local_path) + " was taken by somebody else. Fetching the share again gives the file another "
                                      "name.");
    const unsigned long long size = size_of(row);
    const open_file incoming = open_incoming(row);
    auto offset = static_cast<unsigned long long>(lseek(incoming, 0, SEEK_END));
    require(offset <= size || ftruncate(incoming, 0) == 0, ZEL_ERR_REQUEST_FAILED,
            "The received bytes cannot be used.");
    offset = offset <= size ? offset : 0;
    require_room(row, offset);
    tell(offset, size);
    if (offset < size) {
        server.ask_for_success({.url = text_of(row.original),
                                .headers = {{"Range", "bytes=" + std::to_string(offset) + "-"}},
                                .into = {incoming, offset, size - offset},
                                .check = [&](const http_answer &answer) { require_rest(answer, offset, size); },
                                .moved = [&](unsigned long long moved) { tell(offset + moved, size); }});
        require(static_cast<unsigned long long>(lseek(incoming, 0, SEEK_END)) == size, ZEL_ERR_BAD_JSON_FORMAT,
                "The server sent less than all of the file.");
    }
    put_in_place(row, incoming);
}

/** A thumbnail is small, and lies below the state folder. */
static void download_thumbnail(const zel_content_sync_info &row, http_client &server)
{
    const std::string path = incoming_path(row.sync_id);
    {
        const open_file incoming(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
        require(incoming >= 0, ZEL_ERR_REQUEST_FAILED,
                std::string("The thumbnail cannot be written: ") + strerror(errno));
        server.ask_for_success({.url = text_of(row.thumbnail), .into = {incoming, 0, max_thumbnail}});
        require(fsync(incoming) == 0, ZEL_ERR_REQUEST_FAILED,
                std::string("The thumbnail cannot be written: ") + strerror(errno));
    }
    require(rename(path.c_str(), row.local_path) == 0, ZEL_ERR_REQUEST_FAILED,
            std::string("The thumbnail cannot be written: ") + strerror(errno));
}

void move_file(const settings &chosen, const zel_content_sync_info &row, http_client &server, const observer &tell)
{
    if (row.type == ZEL_UPLOAD_FILE)
        upload(chosen, row, server, tell);
    else if (row.type == ZEL_DOWNLOAD_THUMBNAIL)
        download_thumbnail(row, server);
    else
        download(row, server, tell);
    if (row.type == ZEL_DOWNLOAD_FILE)
        store(_common_storage_update_downloaded_content_info, row.original);
}

} // namespace sharing
