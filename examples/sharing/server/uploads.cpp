#include "uploads.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <random>
#include <system_error>

namespace fs = std::filesystem;

namespace sharing
{

std::string uploads::create(unsigned long long length, const std::string &metadata)
{
    std::random_device random;
    char id[33];
    snprintf(id, sizeof id, "%08x%08x%08x%08x", random(), random(), random(), random());
    const fs::path unfinished = folder_ / (std::string("new-") + id);
    fs::create_directories(unfinished);
    write_whole(unfinished / "bytes", "");
    write_whole(unfinished / "info", std::to_string(length) + "\n" + metadata);
    fs::rename(unfinished, folder_ / id);
    return id;
}

std::optional<upload> uploads::find(const std::string &id) const
{
    if (id.size() != 32 || id.find_first_not_of("0123456789abcdef") != std::string::npos)
        return std::nullopt;
    upload found;
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
    std::unique_lock lock(mutex_);
    std::mutex &turn = turns_[id];
    lock.unlock();
    return std::unique_lock(turn);
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
    file << content;
    file.close();
    if (!file)
        throw std::system_error(errno, std::generic_category(), path.string());
    fs::rename(unfinished, path);
}

} // namespace sharing
