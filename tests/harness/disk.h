// A disk and a memory that fail on purpose: an SQLite VFS in front of the usual one, and the allocators of SQLite. The
// disk never really syncs, and its clock stands still.
#ifndef ZEL_TESTS_DISK_H
#define ZEL_TESTS_DISK_H

#include "interpose.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <sqlite3.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace zel_test
{

inline sqlite3_vfs *disk = nullptr; ///< the real one
/// While it is set, files can be opened for reading only.
inline bool disk_is_read_only = false;
/// How often SQLite itself has waited for a lock.
inline std::atomic<int> disk_sleeps = 0;

/// A completed change of the disk.
struct disk_change {
    enum { CREATION, DELETION, WRITE, TRUNCATION, SYNC } kind;
    std::string file;
    size_t place = 0; ///< where the bytes are written, or the size after a truncation
    std::string bytes = {};
};
/// Where changes are recorded while it is set. For one thread.
inline std::vector<disk_change> *recorded_changes = nullptr;
inline thread_local std::map<const sqlite3_file *, std::string> opened_files; ///< names; "" for a nameless one

/// Passes the code on, and records the change if that is success.
inline int record(int code, const disk_change &change)
{
    if (code == SQLITE_OK && recorded_changes && !change.file.empty())
        recorded_changes->push_back(change);
    return code;
}

/// A file has these methods in the place of its own, of which there are several sets.
struct file_methods {
    sqlite3_io_methods shim;
    const sqlite3_io_methods *real;
};

template <auto METHOD, unsigned CALL, int CODE, typename... Arguments>
int fail_or_call(sqlite3_file *file, Arguments... arguments)
{
    const int code = fault::code_of(CALL, CODE);
    return code ? code : (reinterpret_cast<const file_methods *>(file->pMethods)->real->*METHOD)(file, arguments...);
}

inline file_methods in_front_of(const sqlite3_io_methods *real)
{
    using io = sqlite3_io_methods;
    io shim = *real;
    shim.iVersion = 2; // with the shared memory of a log's index, without mapped files, which are read past xRead
    shim.xRead = fail_or_call<&io::xRead, DISK_OTHER, SQLITE_IOERR_READ>;
    shim.xWrite = [](sqlite3_file *file, const void *bytes, int count, sqlite3_int64 place) {
        const int code = fail_or_call<&io::xWrite, DISK_WRITE, SQLITE_IOERR_WRITE>(file, bytes, count, place);
        const std::string written(static_cast<const char *>(bytes), static_cast<size_t>(count));
        return record(code, {disk_change::WRITE, opened_files[file], static_cast<size_t>(place), written});
    };
    shim.xTruncate = [](sqlite3_file *file, sqlite3_int64 size) {
        const int code = fail_or_call<&io::xTruncate, DISK_OTHER, SQLITE_IOERR_TRUNCATE>(file, size);
        return record(code, {disk_change::TRUNCATION, opened_files[file], static_cast<size_t>(size)});
    };
    shim.xSync = [](sqlite3_file *file, int) {
        return record(fault::code_of(DISK_OTHER, SQLITE_IOERR_FSYNC), {disk_change::SYNC, opened_files[file]});
    };
    shim.xFileSize = fail_or_call<&io::xFileSize, DISK_OTHER, SQLITE_IOERR_FSTAT>;
    shim.xLock = fail_or_call<&io::xLock, DISK_LOCK, SQLITE_IOERR_LOCK>;
    shim.xCheckReservedLock = fail_or_call<&io::xCheckReservedLock, DISK_LOCK, SQLITE_IOERR_CHECKRESERVEDLOCK>;
    return {shim, real};
}

inline int open_file(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *given)
{
    static std::map<const sqlite3_io_methods *, file_methods> known;
    file->pMethods = nullptr;
    if (const int code = fault::code_of(DISK_OTHER, SQLITE_CANTOPEN))
        return code;
    if (disk_is_read_only)
        flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    opened_files[file] = name ? name : "";
    const bool is_new = name && access(name, F_OK) != 0;
    const int code = disk->xOpen(disk, name, file, flags, given);
    if (is_new)
        record(code, {disk_change::CREATION, name});
    if (file->pMethods)
        file->pMethods = &known.try_emplace(file->pMethods, in_front_of(file->pMethods)).first->second.shim;
    return code;
}

/// Makes the VFS the default one for new connections, and lets SQLite's allocations fail too. Call it before anything
/// is opened.
inline void use_faulty_disk()
{
    static sqlite3_vfs faulty;
    static sqlite3_mem_methods memory;
    if (disk)
        return;
    // Every allocation of SQLite passes by, none comes from a reserve of its own.
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &memory);
    sqlite3_mem_methods failing = memory;
    failing.xMalloc = [](int size) { return fault::code_of(SQLITE_MEMORY, 1) ? nullptr : memory.xMalloc(size); };
    failing.xRealloc = [](void *block, int size) {
        return fault::code_of(SQLITE_MEMORY, 1) ? nullptr : memory.xRealloc(block, size);
    };
    sqlite3_config(SQLITE_CONFIG_MALLOC, &failing);

    disk = sqlite3_vfs_find(nullptr);
    faulty = *disk;
    faulty.zName = "faulty";
    faulty.pNext = nullptr;
    faulty.xOpen = open_file;
    faulty.xDelete = [](sqlite3_vfs *, const char *name, int sync) {
        const int code = fault::code_of(DISK_OTHER, SQLITE_IOERR_DELETE);
        return record(code ? code : disk->xDelete(disk, name, sync), {disk_change::DELETION, name});
    };
    faulty.xAccess = [](sqlite3_vfs *, const char *name, int flags, int *result) {
        const int code = fault::code_of(DISK_OTHER, SQLITE_IOERR_ACCESS);
        return code ? code : disk->xAccess(disk, name, flags, result);
    };
    faulty.xSleep = [](sqlite3_vfs *, int microseconds) {
        ++disk_sleeps;
        return disk->xSleep(disk, microseconds);
    };
    faulty.xCurrentTimeInt64 = [](sqlite3_vfs *, sqlite3_int64 *time) {
        *time = 210866760000000; // 1970
        return SQLITE_OK;
    };
    sqlite3_vfs_register(&faulty, 1);
}

} // namespace zel_test

#endif
