#include "server.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;

namespace demo
{

namespace
{

constexpr char scheme[] = "stand-in://";
constexpr unsigned long long lifetime = 48ULL * 60 * 60 * 1000;

/** What a chunk takes on its way, so that there is something to watch. */
constexpr std::chrono::milliseconds way_of_a_chunk(2);

struct listed_chunk {
    std::string what;
    int number = 0;
    unsigned long long offset = 0;
    unsigned long long bytes = 0;
};

/** The path of a file's companion in another folder of its share. */
fs::path beside(const fs::path &file, const char *folder)
{
    return file.parent_path() / folder / file.filename();
}

std::vector<listed_chunk> list_of(const fs::path &file)
{
    std::vector<listed_chunk> chunks;
    std::ifstream list(beside(file, ".chunks"));
    for (listed_chunk chunk; list >> chunk.what >> chunk.number >> chunk.offset >> chunk.bytes;)
        chunks.push_back(chunk);
    return chunks;
}

std::string folder_of(unsigned int share_id)
{
    return "share-" + std::to_string(share_id);
}

} // namespace

std::string server::open_upload(unsigned int share_id, unsigned int transfer_id, const std::string &name)
{
    const std::string key = folder_of(share_id) + "/" + std::to_string(transfer_id) + "-" + name;
    std::error_code error;
    fs::create_directories(beside(path_of(key), ".chunks").parent_path(), error);
    return std::ofstream(path_of(key), std::ios::app) ? key : "";
}

position server::arrived(const std::string &key)
{
    const std::lock_guard lock(mutex_);
    return arrived_locked(key);
}

position &server::arrived_locked(const std::string &key)
{
    const auto [place, is_new] = arrived_.try_emplace(key);
    if (is_new)
        for (const listed_chunk &chunk : list_of(path_of(key)))
            if (chunk.what == "received")
                place->second = {chunk.offset + chunk.bytes, chunk.number};
    return place->second;
}

zel_err_e server::append(const std::string &key, position &from, const std::vector<char> &bytes)
{
    std::this_thread::sleep_for(way_of_a_chunk);
    const std::lock_guard lock(mutex_);
    position &end = arrived_locked(key);
    std::ofstream list(beside(path_of(key), ".chunks"), std::ios::app);
    const std::string number = std::to_string(from.chunk_no + 1);
    if (from != end) {
        list << "refused " + number + " 0 0\n" << std::flush;
        return ZEL_ERR_LAST_CHUNK_ALREADY_SENT;
    }
    std::fstream file(path_of(key), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(end.offset));
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file)
        return ZEL_ERR_REQUEST_FAILED;
    // One write, so that the list never holds a part of a line.
    list << "received " + number + " " + std::to_string(end.offset) + " " + std::to_string(bytes.size()) + "\n"
         << std::flush;
    if (!list)
        return ZEL_ERR_REQUEST_FAILED;
    end = from = {end.offset + bytes.size(), end.chunk_no + 1};
    return ZEL_ERR_NONE;
}

std::string server::finish(unsigned int share_id, unsigned long long &expired_time)
{
    for (const std::string &key : keys_of(share_id)) {
        std::vector<char> start(thumbnail_size);
        std::ifstream file(path_of(key), std::ios::binary);
        file.read(start.data(), thumbnail_size);
        const fs::path thumbnail = beside(path_of(key), ".thumbnails");
        fs::create_directories(thumbnail.parent_path());
        std::ofstream(thumbnail, std::ios::binary).write(start.data(), file.gcount());
    }
    expired_time = _common_util_get_current_unix_time() + lifetime;
    return folder_of(share_id) + "-" + std::to_string(_common_get_random_no(signed_id(share_id)));
}

share server::share_of(const zel_trans_upload_info &upload, const std::string &from, const std::string &to) const
{
    share record(g_new0(zel_trans_share_content_info, 1));
    record->contents_token = g_strdup(upload.contents_token);
    record->description = g_strdup("Sent by the sharing demo");
    record->type = g_strdup(share_type);
    record->from_msisdn = g_strdup(from.c_str());
    record->to_list = g_strdup(to.c_str());
    record->expired_time = upload.expired_time;
    for (const std::string &key : keys_of(upload.request_id)) {
        const std::string name = key.substr(key.find('-', key.find('/')) + 1);
        auto *item = g_new0(zel_trans_content_info, 1);
        item->original = g_strdup(url_of(key).c_str());
        item->thumbnail = g_strdup(url_of(beside(key, ".thumbnails")).c_str());
        item->name = g_strdup(name.c_str());
        item->content_type = g_strdup(content_type_of(name).c_str());
        item->contents_token = g_strdup(upload.contents_token);
        item->max_download_count = 10;
        item->size = static_cast<unsigned int>(fs::file_size(path_of(key)));
        record->content_info_list = g_list_append(record->content_info_list, item);
    }
    return record;
}

std::string server::url_of(const std::string &key)
{
    return scheme + key;
}

std::string server::content_type_of(const std::string &name)
{
    const text extension(_common_util_get_ext(name.c_str()));
    const std::string known = text_of(extension.get());
    return known == "md" || known == "h" || known == "txt" ? "text/plain" : "application/octet-stream";
}

unsigned long long server::size_of(const std::string &url) const
{
    return fs::file_size(path_of(url));
}

zel_err_e server::fetch(const std::string &url, unsigned long long offset, std::vector<char> &bytes) const
{
    std::this_thread::sleep_for(way_of_a_chunk);
    std::ifstream file(path_of(url), std::ios::binary);
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return bytes.empty() ? ZEL_ERR_TRANSPORT_FAILURE : ZEL_ERR_NONE;
}

fs::path server::path_of(const std::string &key_or_url) const
{
    return folder_ / (key_or_url.starts_with(scheme) ? key_or_url.substr(sizeof scheme - 1) : key_or_url);
}

std::vector<std::string> server::keys_of(unsigned int share_id) const
{
    std::vector<std::string> keys;
    for (const auto &entry : fs::directory_iterator(folder_ / folder_of(share_id)))
        if (const std::string name = entry.path().filename(); name.front() != '.')
            keys.push_back(folder_of(share_id) + "/" + name);
    std::ranges::sort(keys, {}, [](const std::string &key) { return std::stoul(key.substr(key.find('/') + 1)); });
    return keys;
}

chunk_count server::count_chunks(unsigned int share_id) const
{
    chunk_count count;
    for (const std::string &key : keys_of(share_id)) {
        position end;
        for (const listed_chunk &chunk : list_of(path_of(key))) {
            if (chunk.what == "refused") {
                ++count.refused;
                continue;
            }
            ++count.received;
            count.is_gapless = count.is_gapless && position{chunk.offset, chunk.number - 1} == end;
            end = {chunk.offset + chunk.bytes, chunk.number};
        }
        count.is_gapless = count.is_gapless && end.offset == fs::file_size(path_of(key));
    }
    return count;
}

} // namespace demo
