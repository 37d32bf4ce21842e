#include "uploads.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <glib.h>
#include <sys/random.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace sharing
{

uploads::uploads(fs::path folder) : folder_(std::move(folder))
{
    fs::create_directories(folder_);
}

std::string uploads::create(unsigned long long length, const std::string &metadata)
{
    const std::string id = random_id();
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

arrival::arrival(const uploads &all, const upload &which, unsigned long long announced)
    : all_(all), id_(which.id), length_(which.length), offset_(which.offset),
      file_(open(all.bytes_of(which.id).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC)), has_failed_(file_ < 0)
{
    all_.note(id_, "begin " + std::to_string(offset_) + " " + std::to_string(announced));
}

arrival::~arrival()
{
    all_.note(id_, "end " + std::to_string(offset_));
    close(file_);
}

void arrival::take(const char *bytes, size_t count)
{
    count = static_cast<size_t>(std::min<unsigned long long>(count, length_ - offset_));
    while (count > 0 && !has_failed_) {
        const ssize_t written = write(file_, bytes, count);
        has_failed_ = written < 0 && errno != EINTR;
        if (written <= 0)
            continue;
        bytes += written;
        count -= static_cast<size_t>(written);
        offset_ += static_cast<unsigned long long>(written);
    }
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
