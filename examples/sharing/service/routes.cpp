#include "routes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace sharing
{

namespace
{

/** Says what the system says about a file. */
[[noreturn]] void complain(zel_err_e result, const std::string &what)
{
    throw failure(result, what + ": " + strerror(errno) + ".");
}

/** Opens a file and tells its size. */
unsigned long long open(std::fstream &file, const std::string &path, std::ios::openmode mode)
{
    file.open(path, mode | std::ios::binary | std::ios::ate);
    if (!file)
        complain(errno == ENOENT ? ZEL_ERR_FILE_DOESNT_EXIST : ZEL_ERR_PERMISSION_DENIED, "The file cannot be opened");
    return static_cast<unsigned long long>(file.tellg());
}

/** The device's file goes to the server, which tells how much has arrived. */
class upload_route : public route
{
  public:
    using route::route;

    void begin() override
    {
        size = open(file_, row.local_path, std::ios::in);
        key_ = text_of(row.mupload_key);
        if (key_.empty()) {
            key_ = server.create(size, text_of(row.name));
            write(_common_storage_update_mupload_key_sync_content_info, signed_id(row.sync_id), key_.c_str());
            return;
        }
        const remote::position there = server.position_of(key_);
        if (there.length != size)
            throw failure(ZEL_ERR_INVALID_FILE, "The file has changed its size since its upload began.");
        offset = there.offset;
    }

    void move_chunk() override
    {
        std::string chunk(next_chunk(), '\0');
        file_.seekg(static_cast<std::streamoff>(offset));
        if (!file_.read(chunk.data(), static_cast<std::streamsize>(chunk.size())))
            throw failure(ZEL_ERR_INVALID_FILE, "The file became shorter while it was sent.");
        offset = server.append(key_, offset, chunk.data(), chunk.size());
    }

    void finish() override
    {
        unsigned int now = 0;
        if (_common_util_file_size(row.local_path, &now) != ZEL_ERR_NONE || now != size)
            throw failure(ZEL_ERR_INVALID_FILE, "The file vanished, or changed its size, while it was sent.");
        if (server.position_of(key_).offset != size)
            throw failure(ZEL_ERR_TRANSPORT_FAILURE, "The server has not got all of the file.");
        write(_common_storage_update_url_info, row.sync_id, key_.c_str(), "application/octet-stream");
    }

  private:
    std::string key_;
    std::fstream file_;
};

/** A file or thumbnail comes from the server. The device's own file tells how much has arrived. */
class download_route : public route
{
  public:
    using route::route;

    void begin() override
    {
        server.fetch(url_, 0, 1, size);
        if (fs::exists(row.local_path)) { // the last service died between the file's end and its record in the store
            offset = size;
            return;
        }
        offset = open(file_, part_, std::ios::app);
        if (offset > size)
            throw failure(ZEL_ERR_INVALID_FILE, part_ + " holds more than the file has.");
    }

    void move_chunk() override
    {
        const std::string chunk = server.fetch(url_, offset, next_chunk(), size);
        if (chunk.size() != next_chunk())
            throw failure(ZEL_ERR_TRANSPORT_FAILURE, "The server handed out less than was asked for.");
        if (!file_.write(chunk.data(), static_cast<std::streamsize>(chunk.size())).flush())
            complain(ZEL_ERR_REQUEST_FAILED, "The file cannot be written");
        offset += chunk.size();
    }

    void finish() override
    {
        // A link does not replace what somebody else has put there meanwhile.
        if (file_.is_open() && (link(part_.c_str(), row.local_path) != 0 || unlink(part_.c_str()) != 0))
            complain(ZEL_ERR_PERMISSION_DENIED, "The received file cannot be put in its place");
        if (row.type == ZEL_DOWNLOAD_FILE)
            write(_common_storage_update_downloaded_content_info, url_.c_str());
    }

  private:
    const std::string url_ = text_of(row.type == ZEL_DOWNLOAD_THUMBNAIL ? row.thumbnail : row.original);
    const std::string part_ = part_of(text_of(row.local_path));
    std::fstream file_;
};

} // namespace

size_t route::next_chunk() const
{
    constexpr unsigned long long smallest = 64ULL * 1024;
    constexpr unsigned long long largest = 4ULL * 1024 * 1024;
    const unsigned long long wanted = chunk_size > 0 ? chunk_size : std::clamp(size / 32, smallest, largest);
    return static_cast<size_t>(std::min(wanted, size - offset));
}

std::unique_ptr<route> route_of(const zel_content_sync_info &row, remote &server, size_t chunk_size)
{
    if (row.type == ZEL_UPLOAD_FILE)
        return std::make_unique<upload_route>(row, server, chunk_size);
    return std::make_unique<download_route>(row, server, chunk_size);
}

std::string part_of(const std::string &local_path)
{
    return local_path + ".part";
}

} // namespace sharing
