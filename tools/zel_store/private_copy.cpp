#include "private_copy.h"

#include "text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <glib.h>
#include <pwd.h>
#include <thread>
#include <unistd.h>

namespace zel_store
{

namespace
{

[[noreturn]] void refuse(const std::string &path, int error)
{
    struct stat status = {};
    std::string reason = std::string(g_strerror(error)) + ".";
    if (error == ENOENT)
        reason = "there is no store. zel-store init makes one; STORE can also be a file or a service's data folder.";
    else if (error == EACCES && stat(path.c_str(), &status) == 0)
        reason = format("user %u alone may read it (mode %04o). Run zel-store as that user or as root.", status.st_uid,
                        status.st_mode & 07777U);
    else if (error == EACCES)
        reason = "its folder is closed to you. Run zel-store as the service's user or as root.";
    throw unreadable(safe(path) + ": " + reason);
}

/** At most so many bytes of a file; nothing when there is no such file. */
std::optional<std::string> read_file(const std::string &path, struct stat &status, size_t limit = SIZE_MAX)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0 && errno == ENOENT)
        return std::nullopt;
    if (file < 0 || fstat(file, &status) != 0)
        refuse(path, errno);
    const std::shared_ptr<const int> closing(&file, [](const int *held) { close(*held); });
    if (!S_ISREG(status.st_mode))
        throw unreadable(safe(path) + ": is no regular file. Name the store's file or its folder.");
    std::string bytes;
    for (ssize_t length = 1; length > 0;) {
        const size_t before = bytes.size();
        bytes.resize(before + std::min(limit - before, before == 0 ? static_cast<size_t>(status.st_size) + 1 : 4096));
        length = bytes.size() > before ? read(file, &bytes[before], bytes.size() - before) : 0;
        if (length < 0)
            refuse(path, errno);
        bytes.resize(before + static_cast<size_t>(length));
    }
    return bytes;
}

/**
 * What is another one whenever a writer may have changed the file in between. With a rollback journal, each commit
 * changes the counter in the file's header, and each write in progress has a journal with a number of its own. A
 * write-ahead log holds whatever the file lacks until the log begins anew, with other numbers.
 */
std::string fingerprint(const std::string &path)
{
    struct stat status = {};
    struct stat ignored = {};
    const std::optional<std::string> header = read_file(path, status, 100);
    const std::string journal = read_file(path + "-journal", ignored, 28).value_or("");
    const std::optional<std::string> log = read_file(path + "-wal", ignored, 32);
    if (!header)
        refuse(path, ENOENT);
    const std::string inode = format("%llu ", static_cast<unsigned long long>(status.st_ino));
    if (header->size() == 100 && (*header)[18] == 2 && log && log->size() == 32)
        return inode + *log;
    return inode +
           format("%lld %lld.%09ld %d ", static_cast<long long>(status.st_size),
                  static_cast<long long>(status.st_mtim.tv_sec), static_cast<long>(status.st_mtim.tv_nsec), !!log) +
           *header + journal.substr(std::min<size_t>(journal.size(), 12));
}

} // namespace

image read_consistently(const std::string &path)
{
    using namespace std::chrono_literals;
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    for (unsigned int attempt = 0; std::chrono::steady_clock::now() < deadline; ++attempt) {
        const std::string before = fingerprint(path);
        image taken;
        struct stat ignored = {};
        taken.main = read_file(path, taken.status).value_or("");
        // Behind the file: what has been written to it until now is in here as it was before, or in the log.
        taken.journal = read_file(path + "-journal", ignored);
        taken.log = read_file(path + "-wal", ignored);
        if (fingerprint(path) == before)
            return taken;
        std::this_thread::sleep_for(std::chrono::microseconds(100 * (attempt % 7)));
    }
    throw unreadable(safe(path) +
                     ": is written without a pause; no copy was whole. Try again when the service does less.");
}

scratch_files::scratch_files(const image &taken)
    : folder((std::filesystem::temp_directory_path() / "zel-store.XXXXXX").string())
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &signals);
    bool is_written = mkdtemp(folder.data()) != nullptr;
    const auto put = [&](const char *name, const std::string &bytes) {
        std::ofstream file(folder + name, std::ios::binary);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        is_written = is_written && file.flush();
    };
    put("/store", taken.main);
    if (taken.journal)
        put("/store-journal", *taken.journal);
    if (taken.log)
        put("/store-wal", *taken.log);
    if (is_written)
        return;
    const int error = errno;
    this->~scratch_files();
    throw unreadable("No private copy can be made as " + safe(folder) + ": " + g_strerror(error) +
                     ". Name a folder with room for it in TMPDIR.");
}

scratch_files::~scratch_files()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
}

} // namespace zel_store
