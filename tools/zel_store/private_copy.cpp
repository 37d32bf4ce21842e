#include "private_copy.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

const char PRIVATE_FILES[] = "zel-private";

namespace
{

/** A descriptor that is closed when it is no longer held. */
class descriptor
{
  public:
    explicit descriptor(int number_ = -1) : number(number_) {}
    descriptor(descriptor &&other) noexcept : number(std::exchange(other.number, -1)) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~descriptor()
    {
        if (number >= 0)
            close(number);
    }
    operator int() const
    {
        return number;
    }

  private:
    int number;
};

std::map<std::string, descriptor> files; // by the names that SQLite knows

/** A file in TMPDIR without a name. Where the file system has none of those, it has one as long as it is empty. */
int nameless_file()
{
    int file = open(g_get_tmp_dir(), O_TMPFILE | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    if (file < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        std::string name = std::string(g_get_tmp_dir()) + "/zel-store.XXXXXX";
        file = mkostemp(name.data(), O_CLOEXEC);
        if (file >= 0)
            unlink(name.c_str());
    }
    return file;
}

/* What SQLite calls -------------------------------------------------------------------------------------------- */

struct open_file : sqlite3_file {
    int number;
};

int number_of(const sqlite3_file *file)
{
    return static_cast<const open_file *>(file)->number;
}

int close_file(sqlite3_file *file)
{
    return close(number_of(file)) == 0 ? SQLITE_OK : SQLITE_IOERR_CLOSE;
}

int read_file(sqlite3_file *file, void *bytes, int length, sqlite3_int64 offset)
{
    const ssize_t got = pread(number_of(file), bytes, static_cast<size_t>(length), offset);
    if (got < 0)
        return SQLITE_IOERR_READ;
    std::memset(static_cast<char *>(bytes) + got, 0, static_cast<size_t>(length - got));
    return got == length ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

int write_file(sqlite3_file *file, const void *bytes, int length, sqlite3_int64 offset)
{
    return pwrite(number_of(file), bytes, static_cast<size_t>(length), offset) == length ? SQLITE_OK : SQLITE_FULL;
}

int truncate_file(sqlite3_file *file, sqlite3_int64 size)
{
    return ftruncate(number_of(file), size) == 0 ? SQLITE_OK : SQLITE_IOERR_TRUNCATE;
}

int size_of_file(sqlite3_file *file, sqlite3_int64 *size)
{
    struct stat status = {};
    const bool is_known = fstat(number_of(file), &status) == 0;
    *size = status.st_size;
    return is_known ? SQLITE_OK : SQLITE_IOERR_FSTAT;
}

int lock_nothing(sqlite3_file *, int)
{
    return SQLITE_OK; // nobody else has the file
}

constexpr sqlite3_io_methods METHODS = [] {
    sqlite3_io_methods methods = {}; // version 1: neither shared memory nor mapped files
    methods.iVersion = 1;
    methods.xClose = close_file;
    methods.xRead = read_file;
    methods.xWrite = write_file;
    methods.xTruncate = truncate_file;
    methods.xSync = lock_nothing;
    methods.xFileSize = size_of_file;
    methods.xLock = methods.xUnlock = lock_nothing;
    methods.xCheckReservedLock = [](sqlite3_file *, int *is_reserved) { return *is_reserved = 0; };
    methods.xFileControl = [](sqlite3_file *, int, void *) { return SQLITE_NOTFOUND; };
    methods.xSectorSize = [](sqlite3_file *) { return 4096; };
    methods.xDeviceCharacteristics = [](sqlite3_file *) { return 0; };
    return methods;
}();

int open_private(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *opened_with)
{
    file->pMethods = nullptr;
    if (name && private_file(name) < 0 && (flags & SQLITE_OPEN_CREATE))
        files[name] = descriptor(nameless_file());
    const int number = name ? fcntl(private_file(name), F_DUPFD_CLOEXEC, 0) : nameless_file();
    if (number < 0)
        return SQLITE_CANTOPEN;
    static_cast<open_file *>(file)->number = number;
    file->pMethods = &METHODS;
    if (opened_with)
        *opened_with = flags;
    return SQLITE_OK;
}

int delete_private(sqlite3_vfs *, const char *name, int)
{
    return files.erase(name) == 1 ? SQLITE_OK : SQLITE_IOERR_DELETE_NOENT;
}

int find_private(sqlite3_vfs *, const char *name, int, int *is_there)
{
    *is_there = private_file(name) >= 0;
    return SQLITE_OK;
}

int name_private(sqlite3_vfs *, const char *name, int size, char *whole)
{
    return g_strlcpy(whole, name, static_cast<gsize>(size)) < static_cast<gsize>(size) ? SQLITE_OK : SQLITE_CANTOPEN;
}

/* Copying ------------------------------------------------------------------------------------------------------ */

constexpr const char *PARTS[] = {"", "-journal", "-wal"};

/** Opens a regular file, without waiting for anybody. No number when there is none. */
descriptor open_regular(const std::string &path)
{
    descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    if (file < 0 && errno != ENOENT && errno != ELOOP && errno != ENXIO)
        throw unreadable(path + ": " + g_strerror(errno) +
                         (errno == EACCES ? ". Run zel-store as the service's user or as root." : ""));
    if ((file < 0 && errno != ENOENT) || (file >= 0 && (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))))
        throw unreadable(path + ": is no regular file, so it is not read. SQLite made no such thing.");
    return file;
}

/**
 * Returns a text that differs if a writer can have changed the store in between. With a rollback journal, each commit
 * changes the counter in the file's header, and each write has a journal with its own number. A write-ahead
 * log holds the changes until they are copied to the file. A new log has other numbers.
 */
std::string fingerprint(const std::string &path)
{
    std::string print;
    for (const char *part : PARTS) {
        struct stat status = {};
        char head[100] = {};
        const descriptor file = open_regular(path + part);
        if (file >= 0 && (fstat(file, &status) != 0 || pread(file, head, sizeof head, 0) < 0))
            throw unreadable(path + part + ": " + g_strerror(errno));
        print +=
            FORMAT("%ju %jd %jd.%ld ", static_cast<uintmax_t>(status.st_ino), static_cast<intmax_t>(status.st_size),
                   static_cast<intmax_t>(status.st_mtim.tv_sec), status.st_mtim.tv_nsec);
        print.append(head, sizeof head);
    }
    return print;
}

/** Throws what keeps the copy from being written. */
[[noreturn]] void fail_in_folder(int code)
{
    const char *const advice = code == ENOSPC || code == EDQUOT ? "has no room for a private copy of the store"
                                                                : "takes no private copy of the store";
    throw unreadable(FORMAT("%s %s: %s. Set TMPDIR to a folder that does.", g_get_tmp_dir(), advice, g_strerror(code)));
}

/** Copies a file as long as it is now; the size, -1 if there is none. Notes when it becomes shorter meanwhile. */
long long copy_part(const std::string &from, const std::string &to, bool &becomes_shorter)
{
    files.erase(to);
    const descriptor file = open_regular(from);
    struct stat status = {};
    if (file < 0 || fstat(file, &status) != 0)
        return -1;
    descriptor copy(nameless_file());
    if (copy < 0)
        fail_in_folder(errno);
    ssize_t got = 1;
    for (off_t rest = status.st_size; rest > 0 && got > 0; rest -= got)
        got = sendfile(copy, file, nullptr, static_cast<size_t>(std::min<off_t>(rest, 1 << 24)));
    if (got < 0 && errno == EIO)
        throw unreadable(from + ": cannot be read: " + g_strerror(errno) + ". Is the disk broken?");
    if (got < 0)
        fail_in_folder(errno);
    becomes_shorter = becomes_shorter || got == 0;
    files[to] = std::move(copy);
    return status.st_size;
}

/**
 * Notes the other file that the journal names at its end, as SQLite reads it. Returns the place of its mark, or 0
 * without one. Such a journal is valid as long as the other file exists.
 */
off_t find_super_journal(const std::string &path, copied &store)
{
    constexpr unsigned char MARK[] = {0xd9, 0xd5, 0x05, 0xf9, 0x20, 0xa1, 0x63, 0xd7};
    struct {
        guint32 length, sum;
        unsigned char mark[sizeof MARK];
    } end = {};
    const int journal = private_file(std::string(PRIVATE_COPY) + "-journal");
    const off_t size = store.journal_size;
    std::string name;
    if (size < static_cast<off_t>(sizeof end) || pread(journal, &end, sizeof end, size - 16) != sizeof end ||
        std::memcmp(end.mark, MARK, sizeof MARK) != 0 || GUINT32_FROM_BE(end.length) > size - 16 ||
        GUINT32_FROM_BE(end.length) > static_cast<guint32>(sqlite3_vfs_find(nullptr)->mxPathname))
        return 0;
    name.resize(GUINT32_FROM_BE(end.length));
    const auto length = static_cast<off_t>(name.size());
    guint32 sum = GUINT32_FROM_BE(end.sum);
    if (pread(journal, name.data(), name.size(), size - 16 - length) != length)
        return 0;
    for (const char letter : name)
        sum -= static_cast<guint32>(letter);
    name.erase(std::min(name.find('\0'), name.size()));
    if (sum != 0 || name.empty())
        return 0;
    struct stat status = {};
    const int found = stat(name.c_str(), &status); // opens nothing
    if (found != 0 && errno != ENOENT && errno != ENOTDIR && errno != ELOOP && errno != ENAMETOOLONG)
        throw unreadable(path + "-journal: whether its write counts depends on " + name +
                         ", which cannot be seen: " + g_strerror(errno) + ". Run zel-store as root.");
    store.super_journal = name;
    store.has_super_journal = found == 0 && (!S_ISREG(status.st_mode) || status.st_size > 0);
    return size - static_cast<off_t>(sizeof MARK);
}

} // namespace

void know_private_files()
{
    static sqlite3_vfs known = [] {
        sqlite3_vfs system = *sqlite3_vfs_find(nullptr); // for time, sleep and chance
        system.iVersion = 2;
        system.zName = PRIVATE_FILES;
        system.szOsFile = sizeof(open_file);
        system.xOpen = open_private;
        system.xDelete = delete_private;
        system.xAccess = find_private;
        system.xFullPathname = name_private;
        system.xDlOpen = [](sqlite3_vfs *, const char *) -> void * { return nullptr; };
        return system;
    }();
    sqlite3_vfs_register(&known, 0);
}

int private_file(const std::string &name)
{
    const auto found = files.find(name);
    return found == files.end() ? -1 : static_cast<int>(found->second);
}

copied copy_privately(const std::string &path)
{
    const gint64 deadline = g_get_monotonic_time() + 5 * G_TIME_SPAN_SECOND;
    copied store;
    off_t mark = 0;
    const std::string journal = std::string(PRIVATE_COPY) + "-journal";
    bool becomes_shorter = false;
    std::string before;
    for (gulong attempt = 0; fingerprint(path) != before; ++attempt) {
        if (g_get_monotonic_time() > deadline)
            throw unreadable(path +
                             (becomes_shorter ? ": becomes shorter again and again while it is read. Who cuts it?"
                                              : ": is written without a pause; no copy was whole.") +
                             " Try again when less is written.");
        g_usleep(100 * (attempt % 7));
        before = fingerprint(path);
        store = {};
        becomes_shorter = false;
        // The file first: what is written to it from then on is in the journal as it was before, or in the log.
        store.size = copy_part(path, PRIVATE_COPY, becomes_shorter);
        store.journal_size = copy_part(path + "-journal", journal, becomes_shorter);
        store.log_size = copy_part(path + "-wal", std::string(PRIVATE_COPY) + "-wal", becomes_shorter);
        if (store.size < 0)
            throw unreadable(path + ": was there a moment ago, and is gone. Try again.");
        mark = find_super_journal(path, store);
    }
    char first = 0;
    store.has_hot_journal = store.journal_size > 0 && pread(private_file(journal), &first, 1, 0) == 1 && first != 0;
    if (store.super_journal.empty())
        return store;
    if (store.has_super_journal && pwrite(private_file(journal), "\0\0\0\0\0\0\0", 8, mark) != 8) // names none any more
        fail_in_folder(errno);
    if (!store.has_super_journal)
        files.erase(journal); // all of the write is in the file
    return store;
}

void lengthen_copy()
{
    const int file = private_file(PRIVATE_COPY);
    struct stat status = {};
    unsigned char header[32] = {};
    if (fstat(file, &status) != 0 || pread(file, header, sizeof header, 0) != sizeof header)
        return;
    const unsigned int stored = header[16] * 256U + header[17];
    const off_t page = stored == 1 ? 65536 : stored;
    off_t pages = 0;
    for (int i = 28; i < 32; ++i)
        pages = pages * 256 + header[i];
    if (pages * page > status.st_size && ftruncate(file, pages * page) != 0)
        return; // more than any file can have: SQLite says what is wrong
}
