// A disk and a memory that fail on purpose: an SQLite VFS in front of the usual one, and the allocators of SQLite and
// the library. The disk never really syncs, and its clock stands.
#ifndef ZEL_TESTS_FAULTY_DISK_H
#define ZEL_TESTS_FAULTY_DISK_H

#include "interpose.h"

#include <map>
#include <sqlite3.h>

namespace zel_test
{

/// Calls that can fail; together they make a bit set.
enum fallible : unsigned {
    DISK_WRITE = 1,
    DISK_LOCK = 2,
    DISK_OTHER = 4, ///< read, sync, truncate, open, delete, ask for the size
    DISK = DISK_WRITE | DISK_LOCK | DISK_OTHER,
    SQLITE_MEMORY = 8,
    LIBRARY_MEMORY = 16, ///< what interpose.h can make fail, one at a time
};

struct fault_plan {
    unsigned calls = 0;
    bool lasting = false; ///< once a call has failed all further ones do
    int code = 0;         ///< what SQLite is told; 0 for the code that is usual for the call
};

/// While it lives, the n-th of the planned calls fails.
class fault
{
  public:
    fault(const fault_plan &plan, int nth)
    {
        now_ = {plan, nth, 0};
        allocations = {0, plan.calls & LIBRARY_MEMORY ? nth : 0, 0};
    }
    ~fault()
    {
        now_.plan = {};
        allocations.failing = 0;
    }
    bool happened() const
    {
        return (now_.plan.calls & LIBRARY_MEMORY ? allocations.count : now_.met) >= now_.nth;
    }
    /// What a call is to report instead of being carried out; SQLITE_OK to go on.
    static int meet(unsigned call, int usual_code)
    {
        // Nothing is written while nothing is planned: threads may come here.
        if ((now_.plan.calls & call) == 0)
            return SQLITE_OK;
        ++now_.met;
        if (now_.met < now_.nth || (now_.met > now_.nth && !now_.plan.lasting))
            return SQLITE_OK;
        return now_.plan.code ? now_.plan.code : usual_code;
    }

  private:
    inline static struct {
        fault_plan plan;
        int nth, met;
    } now_;
};

inline sqlite3_vfs *disk = nullptr; ///< the real one
/// While it is set, files can be opened for reading only.
inline bool disk_is_read_only = false;

/// A file has these methods in the place of its own, of which there are several sets.
struct file_methods {
    sqlite3_io_methods shim;
    const sqlite3_io_methods *real;
};

template <auto METHOD, unsigned CALL, int CODE, typename... Arguments>
int meet_fault_or_call(sqlite3_file *file, Arguments... arguments)
{
    const int code = fault::meet(CALL, CODE);
    return code ? code : (reinterpret_cast<const file_methods *>(file->pMethods)->real->*METHOD)(file, arguments...);
}

inline file_methods in_front_of(const sqlite3_io_methods *real)
{
    using io = sqlite3_io_methods;
    io shim = *real;
    shim.iVersion = 1; // without mapped memory, which would be read past xRead
    shim.xRead = meet_fault_or_call<&io::xRead, DISK_OTHER, SQLITE_IOERR_READ>;
    shim.xWrite = meet_fault_or_call<&io::xWrite, DISK_WRITE, SQLITE_IOERR_WRITE>;
    shim.xTruncate = meet_fault_or_call<&io::xTruncate, DISK_OTHER, SQLITE_IOERR_TRUNCATE>;
    shim.xSync = [](sqlite3_file *, int) { return fault::meet(DISK_OTHER, SQLITE_IOERR_FSYNC); };
    shim.xFileSize = meet_fault_or_call<&io::xFileSize, DISK_OTHER, SQLITE_IOERR_FSTAT>;
    shim.xLock = meet_fault_or_call<&io::xLock, DISK_LOCK, SQLITE_IOERR_LOCK>;
    return {shim, real};
}

inline int open_file(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *given)
{
    static std::map<const sqlite3_io_methods *, file_methods> known;
    file->pMethods = nullptr;
    if (const int code = fault::meet(DISK_OTHER, SQLITE_CANTOPEN))
        return code;
    if (disk_is_read_only)
        flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    const int code = disk->xOpen(disk, name, file, flags, given);
    if (file->pMethods)
        file->pMethods = &known.try_emplace(file->pMethods, in_front_of(file->pMethods)).first->second.shim;
    return code;
}

/// Makes the VFS the default one, for connections opened from now on, and lets SQLite's allocations fail too. To be
/// called before anything is opened.
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
    failing.xMalloc = [](int size) { return fault::meet(SQLITE_MEMORY, 1) ? nullptr : memory.xMalloc(size); };
    failing.xRealloc = [](void *block, int size) {
        return fault::meet(SQLITE_MEMORY, 1) ? nullptr : memory.xRealloc(block, size);
    };
    sqlite3_config(SQLITE_CONFIG_MALLOC, &failing);

    disk = sqlite3_vfs_find(nullptr);
    faulty = *disk;
    faulty.zName = "faulty";
    faulty.pNext = nullptr;
    faulty.xOpen = open_file;
    faulty.xDelete = [](sqlite3_vfs *, const char *name, int sync) {
        const int code = fault::meet(DISK_OTHER, SQLITE_IOERR_DELETE);
        return code ? code : disk->xDelete(disk, name, sync);
    };
    faulty.xCurrentTimeInt64 = [](sqlite3_vfs *, sqlite3_int64 *time) {
        *time = 210866760000000; // 1970
        return SQLITE_OK;
    };
    sqlite3_vfs_register(&faulty, 1);
}

} // namespace zel_test

#endif
