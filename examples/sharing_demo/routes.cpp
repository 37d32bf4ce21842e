#include "routes.h"

#include <algorithm>
#include <fstream>

namespace demo
{

namespace
{

/** The device's file goes to the server, which tells how much has arrived. */
class upload_route : public route
{
  public:
    using route::route;

    zel_err_e begin(position &at) override
    {
        unsigned int size = 0;
        file_.open(row_.local_path, std::ios::binary);
        if (!file_ || _common_util_file_size(row_.local_path, &size) != ZEL_ERR_NONE)
            return ZEL_ERR_INVALID_FILE;
        size_ = size;
        key_ = text_of(row_.mupload_key);
        if (key_.empty()) {
            key_ = remote_.open_upload(row_.req_id, row_.sync_id, text_of(row_.name));
            if (key_.empty())
                return ZEL_ERR_REQUEST_FAILED;
            must(_common_storage_update_mupload_key_sync_content_info(signed_id(row_.sync_id), key_.c_str()));
        }
        at = remote_.arrived(key_);
        return ZEL_ERR_NONE;
    }

    zel_err_e move_chunk(position &at) override
    {
        std::vector<char> chunk(static_cast<size_t>(std::min<unsigned long long>(chunk_size_, size_ - at.offset)));
        file_.seekg(static_cast<std::streamoff>(at.offset));
        if (!file_.read(chunk.data(), static_cast<std::streamsize>(chunk.size())))
            return ZEL_ERR_INVALID_FILE; // it has become shorter
        return line_loses(at) ? ZEL_ERR_NETWORK_FAILURE : remote_.append(key_, at, chunk);
    }

    void finish() override
    {
        must(_common_storage_update_url_info(row_.sync_id, server::url_of(key_).c_str(),
                                             server::content_type_of(text_of(row_.name)).c_str()));
    }

  private:
    std::string key_;
    std::ifstream file_;
};

/** A file or thumbnail comes from the server. The device's own file tells how much has arrived. */
class download_route : public route
{
  public:
    using route::route;

    zel_err_e begin(position &at) override
    {
        file_.open(row_.local_path, std::ios::app | std::ios::binary);
        if (!file_)
            return ZEL_ERR_PERMISSION_DENIED;
        url_ = text_of(row_.type == ZEL_DOWNLOAD_THUMBNAIL ? row_.thumbnail : row_.original);
        size_ = remote_.size_of(url_);
        at.offset = std::filesystem::file_size(row_.local_path);
        at.chunk_no = static_cast<int>((at.offset + chunk_size_ - 1) / chunk_size_);
        return ZEL_ERR_NONE;
    }

    zel_err_e move_chunk(position &at) override
    {
        std::vector<char> chunk(chunk_size_);
        const zel_err_e result = line_loses(at) ? ZEL_ERR_NETWORK_FAILURE : remote_.fetch(url_, at.offset, chunk);
        if (result != ZEL_ERR_NONE)
            return result;
        if (!file_.write(chunk.data(), static_cast<std::streamsize>(chunk.size())).flush())
            return ZEL_ERR_INVALID_FILE;
        at = {at.offset + chunk.size(), at.chunk_no + 1};
        return ZEL_ERR_NONE;
    }

    void finish() override
    {
        if (row_.type == ZEL_DOWNLOAD_FILE)
            must(_common_storage_update_downloaded_content_info(url_.c_str()));
    }

  private:
    std::string url_;
    std::ofstream file_;
};

} // namespace

route::route(const zel_content_sync_info &row, server &remote, size_t chunk_size)
    : row_(row), remote_(remote), chunk_size_(chunk_size),
      is_first_(transfers_of(row.type, row.req_id).front()->sync_id == row.sync_id)
{
}

bool route::line_loses(const position &at) const
{
    const int chunk_no = at.chunk_no + 1;
    const unsigned int attempt = row_.fail_retry_count;
    if (is_first_)
        return chunk_no == 1 && attempt < 3;
    return (chunk_no == 8 && attempt < 1) || (chunk_no == 16 && attempt < 2);
}

std::unique_ptr<route> route_of(const zel_content_sync_info &row, server &remote, size_t chunk_size)
{
    if (row.type == ZEL_UPLOAD_FILE)
        return std::make_unique<upload_route>(row, remote, chunk_size);
    return std::make_unique<download_route>(row, remote, chunk_size);
}

} // namespace demo
