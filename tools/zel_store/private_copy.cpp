#include "private_copy.h"

#include "text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
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

using namespace std::chrono_literals;

constexpr auto PATIENCE = 5s; // with a writer that leaves no time for a copy
constexpr size_t HEADER_SIZE = 100;

std::string user_name(uid_t id)
{
    const passwd *const entry = getpwuid(id);
    return entry ? entry->pw_name : std::to_string(id);
}

/** Says why a path cannot be read, and what helps. */
[[noreturn]] void refuse(const std::string &path, int error)
{
    std::string reason = safe(path) + ": ";
    struct stat status = {};
    if (error == ENOENT)
        reason += "there is no store. zel-store init makes one; STORE can also be a file or a service's data folder.";
    else if (error == EACCES && stat(path.c_str(), &status) == 0)
        reason += format("may be read by %s only (mode %04o). Run zel-store as that user or as root.",
                         user_name(status.st_uid).c_str(), status.st_mode & 07777U);
    else if (error == EACCES)
        reason += "its folder is closed to you. Run zel-store as the service's user or as root.";
    else
        reason += std::string(g_strerror(error)) + ".";
    throw unreadable(reason);
}

/** The bytes of a file from a place on; nothing when there is no such file. */
std::optional<std::string> read_file(const std::string &path, size_t limit = std::string::npos,
                                     struct stat *status = nullptr)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (file < 0) {
        if (errno == ENOENT)
            return std::nullopt;
        refuse(path, errno);
    }
    const std::shared_ptr<const int> closing(&file, [](const int *held) { close(*held); });
    struct stat own = {};
    if (fstat(file, &own) != 0)
        refuse(path, errno);
    if (!S_ISREG(own.st_mode))
        throw unreadable(safe(path) + ": is no regular file. Name the store's file or its folder.");
    if (status)
        *status = own;
    std::string bytes;
    for (ssize_t length = 1; length > 0;) {
        const size_t before = bytes.size();
        bytes.resize(before + std::min(limit - before, before == 0 ? static_cast<size_t>(own.st_size) + 1 : 4096));
        length = bytes.size() > before ? read(file, &bytes[before], bytes.size() - before) : 0;
        if (length < 0)
            refuse(path, errno);
        bytes.resize(before + static_cast<size_t>(length));
    }
    return bytes;
}

unsigned int big_endian(const std::string &bytes, size_t at, size_t length)
{
    unsigned int number = 0;
    for (size_t i = at; i < at + length && i < bytes.size(); ++i)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

bool says_log(const std::string &header)
{
    return header.size() >= HEADER_SIZE && header[18] == 2;
}

/**
 * What is another one whenever a writer may have changed the file in between. With a rollback journal, each commit
 * changes the header's counter, and each write in progress has a journal with a number of its own. A write-ahead log
 * holds whatever the file lacks until the log begins anew, with other numbers.
 */
std::string fingerprint(const std::string &path)
{
    struct stat status = {};
    const std::optional<std::string> header = read_file(path, HEADER_SIZE, &status);
    const std::optional<std::string> journal = read_file(path + "-journal", 28);
    const std::optional<std::string> log = read_file(path + "-wal", 32);
    if (!header)
        refuse(path, ENOENT);
    std::string print = format("%llu %llu ", static_cast<unsigned long long>(status.st_dev),
                               static_cast<unsigned long long>(status.st_ino));
    if (says_log(*header) && log && log->size() == 32)
        return print + *log;
    print += format("%lld %lld.%09ld ", static_cast<long long>(status.st_size),
                    static_cast<long long>(status.st_mtim.tv_sec), static_cast<long>(status.st_mtim.tv_nsec));
    return print + *header + (journal && journal->size() >= 16 ? journal->substr(12) : "") + (log ? "log" : "");
}

struct image {
    std::string main;
    std::optional<std::string> journal, log;
};

/** Reads the file and what lies beside it, again and again until no writer has been at work meanwhile. */
image read_consistently(const std::string &path)
{
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    for (unsigned int attempt = 0;; ++attempt) {
        const std::string before = fingerprint(path);
        image taken;
        taken.main = read_file(path).value_or("");
        // Behind the file: what has been written to it until now is in here as it was before, or in the log.
        taken.journal = read_file(path + "-journal");
        taken.log = read_file(path + "-wal");
        if (fingerprint(path) == before)
            return taken;
        if (std::chrono::steady_clock::now() > deadline)
            throw unreadable(safe(path) + ": is written without a pause, no copy of the last seconds is whole. "
                                          "Try again, or when the service does less.");
        if (attempt >= 8)
            std::this_thread::sleep_for(std::chrono::microseconds(100 * (attempt % 7)));
    }
}

/** A folder of one's own, which goes with all that is in it; no signal ends the program meanwhile. */
class scratch_folder
{
  public:
    scratch_folder()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        if (!mkdtemp(path.data()))
            complain();
    }
    ~scratch_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;

    void put(const char *name, const std::optional<std::string> &bytes) const
    {
        std::ofstream file;
        if (bytes)
            file.open(path + name, std::ios::binary);
        if (bytes && !file.write(bytes->data(), static_cast<std::streamsize>(bytes->size())).flush())
            complain();
    }

    std::string path = (std::filesystem::temp_directory_path() / "zel-store.XXXXXX").string();

  private:
    [[noreturn]] void complain() const
    {
        throw unreadable("No private copy can be made in " + safe(path) + ": " + g_strerror(errno) +
                         ". Name a folder with room for it in TMPDIR.");
    }

    sigset_t before = {};
};

/** Opens the copy; what its writers have broken off is undone at the first look. The files' names are gone then. */
void open_copy(private_copy &copy, const image &taken)
{
    const scratch_folder folder;
    folder.put("/store", taken.main);
    folder.put("/store-journal", taken.journal);
    folder.put("/store-wal", taken.log);
    sqlite3 *opened = nullptr;
    sqlite3_open_v2((folder.path + "/store").c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    copy.database.reset(opened);
    // Exclusive: a log needs no shared memory then. With a writable schema a file that is cut can be read up to there.
    if (sqlite3_exec(opened,
                     "PRAGMA locking_mode = EXCLUSIVE; PRAGMA writable_schema = ON; SELECT count(*) FROM sqlite_master",
                     nullptr, nullptr, nullptr) != SQLITE_OK)
        copy.complaint = sqlite3_errmsg(opened);
}

/** Who else has the file open, found by its device and number. */
void find_openers(file_facts &facts)
{
    namespace fs = std::filesystem;
    std::error_code error;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc", error)) {
        const auto id = static_cast<pid_t>(std::strtol(entry.path().filename().c_str(), nullptr, 10));
        bool has_it = false;
        for (fs::directory_iterator one(entry.path() / "fd", error), end; id > 0 && !error && one != end;
             one.increment(error)) {
            struct stat status = {};
            has_it = has_it || (stat(one->path().c_str(), &status) == 0 && status.st_dev == facts.status.st_dev &&
                                status.st_ino == facts.status.st_ino);
        }
        facts.sees_all_processes = facts.sees_all_processes && (id <= 0 || error != std::errc::permission_denied);
        std::string name;
        if (has_it && id != getpid() && std::getline(std::ifstream(entry.path() / "comm"), name))
            facts.openers.push_back({id, name});
    }
}

} // namespace

std::string store_path(const std::string &named)
{
    std::error_code error;
    if (!std::filesystem::is_directory(named, error))
        return named;
    return (std::filesystem::path(named) / std::filesystem::path(ZEL_DATABASE).filename()).string();
}

private_copy take_copy(const std::string &path)
{
    const image taken = read_consistently(path);
    private_copy copy;
    file_facts &facts = copy.facts;
    facts.path = std::filesystem::absolute(path).lexically_normal().string();
    if (stat(path.c_str(), &facts.status) != 0)
        refuse(path, errno);
    facts.status.st_size = static_cast<off_t>(taken.main.size());
    if (taken.journal)
        facts.journal_size = taken.journal->size();
    if (taken.log)
        facts.log_size = taken.log->size();
    facts.is_database = taken.main.empty() || taken.main.starts_with(std::string_view("SQLite format 3\0", 16));
    if (facts.is_database && taken.main.size() >= HEADER_SIZE) {
        facts.uses_log = says_log(taken.main);
        facts.page_size = big_endian(taken.main, 16, 2);
        if (facts.page_size == 1)
            facts.page_size = 65536;
        // The number of pages counts only if the version that wrote it was the last to change the file.
        if (big_endian(taken.main, 24, 4) == big_endian(taken.main, 92, 4))
            facts.stored_pages = big_endian(taken.main, 28, 4);
    }
    find_openers(facts);
    open_copy(copy, taken);
    return copy;
}

} // namespace zel_store
