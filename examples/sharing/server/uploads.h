/*
 * What clients have sent, on disk. An upload is a folder:
 *
 *   info    its length in bytes and, on a second line, its metadata as the client gave it
 *   bytes   what has arrived; the size of this file is the upload's offset
 *   record  "begin OFFSET LENGTH" when a chunk comes in, "end OFFSET" when it is through or broken off, and
 *           "refused STATUS LENGTH" for one that is not taken
 *
 * Nothing else is kept, so the server can die at any moment and the next one knows what arrived.
 */
#ifndef SHARING_SERVER_UPLOADS_H
#define SHARING_SERVER_UPLOADS_H

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace sharing
{

struct upload {
    unsigned long long length = 0;
    unsigned long long offset = 0;
    std::string metadata;
};

class uploads
{
  public:
    explicit uploads(std::filesystem::path folder) : folder_(std::move(folder)) {}

    /** Makes an empty upload and gives its id, 32 hexadecimal digits that nobody guesses. */
    std::string create(unsigned long long length, const std::string &metadata);

    /** None as well for what is no id, whatever path it would make. */
    std::optional<upload> find(const std::string &id) const;
    std::filesystem::path bytes_of(const std::string &id) const;

    /** Adds a line to the upload's record. */
    void note(const std::string &id, const std::string &line) const;

    /** Held while a chunk of the upload comes in, so that there is one at a time. */
    std::unique_lock<std::mutex> turn_of(const std::string &id);

  private:
    const std::filesystem::path folder_;
    std::mutex mutex_;
    std::map<std::string, std::mutex> turns_;
};

/** Writes a file whole or not at all. */
void write_whole(const std::filesystem::path &path, const std::string &content);

} // namespace sharing

#endif
