#include "uploads.h"

#include <cerrno>
#include <fstream>
#include <glib.h>
#include <sys/random.h>
#include <system_error>

namespace fs = std::filesystem;

namespace sharing
{

uploads::uploads(fs::path folder) : folder_(std::move(folder))
{
    fs::create_directories(folder_);
}

std::string uploads::create(unsigned long long length, const std::string &metadata)
{
    std::string id = random_id();
    const fs::path unfinished = folder_ / ("new-" + id);
    fs::create_directory(unfinished);
    write_whole(unfinished / "bytes", "");
    write_whole(unfinished / "info", std::to_string(length) + "\n" + metadata);
    fs::rename(unfinished, folder_ / id);
    return id;
}

std::optional<upload> uploads::find(const std::string &id) const
{
    upload found;
    found.id = id;
    std::ifstream info(folder_ / id / "info");
    std::error_code error;
    found.offset = fs::file_size(bytes_of(id), error);
    if (!(info >> found.length) || error)
        return std::nullopt;
    info.ignore();
    std::getline(info, found.metadata);
    return found;
}

fs::path uploads::bytes_of(const std::string &id) const
{
    return folder_ / id / "bytes";
}

std::unique_lock<std::mutex> uploads::turn_of(const std::string &id)
{
    const std::lock_guard lock(mutex_);
    auto &turn = turns_[id];
    if (!turn)
        turn = std::make_unique<std::mutex>();
    return std::unique_lock(*turn, std::defer_lock);
}

void uploads::note(const std::string &id, const std::string &line) const
{
    // One write, so that the record never holds a part of a line; a full disk costs the record, not the bytes.
    std::ofstream(folder_ / id / "record", std::ios::app) << line + "\n";
}

void write_whole(const fs::path &path, const std::string &content)
{
    const fs::path unfinished = path.string() + ".new";
    std::ofstream file(unfinished, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file)
        throw std::system_error(errno, std::generic_category(), path.string());
    fs::rename(unfinished, path);
}

std::string read_whole(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string random_id()
{
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != sizeof bytes)
        throw std::system_error(errno, std::generic_category(), "random numbers");
    std::string id;
    for (const unsigned char byte : bytes)
        for (const int digit : {byte >> 4, byte & 15})
            id += "0123456789abcdef"[digit];
    return id;
}

} // namespace sharing
