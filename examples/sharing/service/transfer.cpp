#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "service.h"

namespace sharing
{

unsigned long long number_of(const httplib::Response &answer, const char *header)
{
    const std::string value = answer.get_header_value(header);
    const size_t start = value.find('/') + 1; // 0 without a slash
    unsigned long long number = 0;
    require(std::from_chars(value.data() + start, value.data() + value.size(), number).ec == std::errc(),
            ZEL_ERR_BAD_JSON_FORMAT, std::string("The server's ") + header + " is no number.");
    return number;
}

httplib::Response send(const service &s, http &server, const char *method, const std::string &url,
                       httplib::Headers headers, std::string body)
{
    const std::string origin = origin_of(s.chosen.server);
    httplib::Request request;
    request.method = method;
    request.path = url.starts_with(origin) ? url.substr(origin.size()) : url;
    require(request.path.starts_with("/"), ZEL_ERR_INVALID_ARG, "'" + url + "' is not on the server.");
    request.headers = std::move(headers);
    request.headers.emplace("Tus-Resumable", "1.0.0");
    request.body = std::move(body);
    const auto start = std::chrono::steady_clock::now();
    httplib::Result result = s.is_stopping || !server.is_valid() ? httplib::Result(nullptr, httplib::Error::Connection)
                                                                 : server.send(request);
    require(!s.is_stopping, ZEL_ERR_REQ_PAUSED, "The service is stopping.");
    if (result) {
        require(result->status / 100 == 2,
                result->status == 413 ? ZEL_ERR_MAX_FILE_SIZE_EXCEEDED : ZEL_ERR_REQUEST_FAILED,
                "The server answered " + std::to_string(result->status) + " to " + method + ".");
        return std::move(*result);
    }
    require(result.error() != httplib::Error::Connection && result.error() != httplib::Error::ConnectionTimeout,
            ZEL_ERR_NETWORK_FAILURE, "The server at " + origin + " cannot be reached.");
    require(std::chrono::steady_clock::now() - start < s.chosen.patience, ZEL_ERR_TIMEOUT_ERR,
            "The server did not answer in time.");
    throw failure(ZEL_ERR_TRANSPORT_FAILURE, "The connection to the server broke.");
}

/** Says what the system says about a file, unless all is well. */
static void check(bool is_well, zel_err_e otherwise, const std::string &what)
{
    require(is_well, otherwise, what + ": " + strerror(errno) + ".");
}

/** Opens a file and tells its size. */
static unsigned long long open(std::fstream &file, const std::string &path, std::ios::openmode mode)
{
    file.open(path, mode | std::ios::binary | std::ios::ate);
    check(file.is_open(), errno == ENOENT ? ZEL_ERR_FILE_DOESNT_EXIST : ZEL_ERR_PERMISSION_DENIED,
          "The file cannot be opened");
    return static_cast<unsigned long long>(file.tellg());
}

/** How many bytes the next chunk has. */
static size_t next_chunk(size_t chunk_size, unsigned long long offset, unsigned long long size)
{
    const unsigned long long suitable = std::clamp(size / 32, 64ULL * 1024, 4096ULL * 1024);
    return static_cast<size_t>(std::min(chunk_size > 0 ? chunk_size : suitable, size - offset));
}

unsigned long long upload(const service &s, const zel_content_sync_info &row, http &server, const observer &tell)
{
    std::fstream file;
    const unsigned long long size = open(file, row.local_path, std::ios::in);
    const std::string name = text_of(row.name);
    const text encoded(g_base64_encode(reinterpret_cast<const guchar *>(name.data()), name.size()));
    unsigned long long offset = 0;
    std::string key = text_of(row.mupload_key);
    if (key.empty()) {
        key = send(s, server, "POST", s.chosen.server,
                   {{"Upload-Length", std::to_string(size)},
                    {"Upload-Metadata", std::string("filename ") + encoded.get()}})
                  .get_header_value("Location");
        require(!key.empty(), ZEL_ERR_BAD_JSON_FORMAT, "The server created an upload and did not say where.");
        write(_common_storage_update_mupload_key_sync_content_info, row.sync_id, key.c_str());
    } else {
        // The store may be a chunk behind, if the last service died before it recorded what had arrived.
        const auto position = send(s, server, "HEAD", key, {});
        offset = number_of(position, "Upload-Offset");
        require(number_of(position, "Upload-Length") == size, ZEL_ERR_INVALID_FILE,
                "The file has changed its size since its upload began.");
    }
    while (offset < size) {
        tell(offset, size);
        std::string chunk(next_chunk(s.chosen.chunk_size, offset, size), '\0');
        file.seekg(static_cast<std::streamoff>(offset));
        file.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        require(file.good(), ZEL_ERR_INVALID_FILE, "The file became shorter while it was sent.");
        const httplib::Headers headers = {{"Upload-Offset", std::to_string(offset)},
                                          {"Content-Type", "application/offset+octet-stream"}};
        offset = number_of(send(s, server, "PATCH", key, headers, std::move(chunk)), "Upload-Offset");
    }
    unsigned int now = 0;
    require(_common_util_file_size(row.local_path, &now) == ZEL_ERR_NONE && now == size, ZEL_ERR_INVALID_FILE,
            "The file vanished, or changed its size, while it was sent.");
    require(number_of(send(s, server, "HEAD", key, {}), "Upload-Offset") == size, ZEL_ERR_TRANSPORT_FAILURE,
            "The server has not got all of the file.");
    write(_common_storage_update_url_info, row.sync_id, key.c_str(), "application/octet-stream");
    return size;
}

unsigned long long download(const service &s, const zel_content_sync_info &row, http &server, const observer &tell)
{
    const std::string url = text_of(row.type == ZEL_DOWNLOAD_THUMBNAIL ? row.thumbnail : row.original);
    const std::string part = part_of(row.local_path);
    unsigned long long size = 0;
    const auto get = [&](unsigned long long from, size_t count) {
        const std::string range = "bytes=" + std::to_string(from) + "-" + std::to_string(from + count - 1);
        auto answer = send(s, server, "GET", url, {{"Range", range}});
        const bool is_piece = answer.has_header("Content-Range");
        require(is_piece || from == 0, ZEL_ERR_TRANSPORT_FAILURE, "The server does not hand out a file in pieces.");
        size = is_piece ? number_of(answer, "Content-Range") : answer.body.size();
        return std::move(answer.body);
    };
    get(0, 1);                                      // tells the size
    if (!std::filesystem::exists(row.local_path)) { // else the last service died before it recorded the end
        std::fstream file;
        unsigned long long offset = open(file, part, std::ios::app);
        require(offset <= size, ZEL_ERR_INVALID_FILE, part + " holds more than the file has.");
        while (offset < size) {
            tell(offset, size);
            const size_t count = next_chunk(s.chosen.chunk_size, offset, size);
            const std::string chunk = get(offset, count);
            require(chunk.size() == count, ZEL_ERR_TRANSPORT_FAILURE, "The server handed out less than was asked for.");
            file.write(chunk.data(), static_cast<std::streamsize>(count)).flush();
            check(file.good(), ZEL_ERR_REQUEST_FAILED, "The file cannot be written");
            offset += count;
        }
        // A link does not replace what somebody else has put there meanwhile.
        check(link(part.c_str(), row.local_path) == 0 && unlink(part.c_str()) == 0, ZEL_ERR_PERMISSION_DENIED,
              "The received file cannot be put in its place");
    }
    if (row.type == ZEL_DOWNLOAD_FILE)
        write(_common_storage_update_downloaded_content_info, url.c_str());
    return size;
}

} // namespace sharing
