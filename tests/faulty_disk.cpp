#include "faulty_disk.h"

#include <sqlite3.h>

namespace
{

struct {
    unsigned calls;
    int nth;
    bool lasting;
    int code;
    int met;
} planned;
bool read_only_disk = false;

sqlite3_mem_methods memory;
sqlite3_vfs *disk;
sqlite3_vfs faulty;

/// What a call is to report instead of being carried out; SQLITE_OK to go on.
int fault(unsigned call, int usual_code)
{
    if ((planned.calls & call) == 0)
        return SQLITE_OK;
    ++planned.met;
    if (planned.met < planned.nth || (planned.met > planned.nth && !planned.lasting))
        return SQLITE_OK;
    return planned.code ? planned.code : usual_code;
}

/// Stands in front of the real file's record, which wants this alignment.
struct alignas(8) file {
    sqlite3_file base;
};

sqlite3_file *real(sqlite3_file *shim)
{
    return reinterpret_cast<sqlite3_file *>(reinterpret_cast<file *>(shim) + 1);
}

/// Carries out the real file's method, unless the call is to fail; call 0 never is.
template <auto METHOD, unsigned CALL = 0, int CODE = 0, typename... Arguments>
int pass(sqlite3_file *it, Arguments... arguments)
{
    const int code = fault(CALL, CODE);
    return code ? code : (real(it)->pMethods->*METHOD)(real(it), arguments...);
}

const sqlite3_io_methods methods = [] {
    using io = sqlite3_io_methods;
    using namespace zel_test;
    io it = {};
    it.iVersion = 1;
    it.xClose = [](sqlite3_file *shim) { return real(shim)->pMethods ? pass<&io::xClose>(shim) : SQLITE_OK; };
    it.xRead = pass<&io::xRead, DISK_READ, SQLITE_IOERR_READ>;
    it.xWrite = pass<&io::xWrite, DISK_WRITE, SQLITE_IOERR_WRITE>;
    it.xTruncate = pass<&io::xTruncate, DISK_TRUNCATE, SQLITE_IOERR_TRUNCATE>;
    it.xSync = [](sqlite3_file *, int) { return fault(DISK_SYNC, SQLITE_IOERR_FSYNC); };
    it.xFileSize = pass<&io::xFileSize, DISK_SIZE, SQLITE_IOERR_FSTAT>;
    it.xLock = pass<&io::xLock, DISK_LOCK, SQLITE_IOERR_LOCK>;
    it.xUnlock = pass<&io::xUnlock>;
    it.xCheckReservedLock = pass<&io::xCheckReservedLock>;
    it.xFileControl = pass<&io::xFileControl>;
    it.xSectorSize = pass<&io::xSectorSize>;
    it.xDeviceCharacteristics = pass<&io::xDeviceCharacteristics>;
    return it;
}();

int open_file(sqlite3_vfs *, const char *name, sqlite3_file *it, int flags, int *given)
{
    it->pMethods = nullptr;
    if (const int code = fault(zel_test::DISK_OPEN, SQLITE_CANTOPEN))
        return code;
    if (read_only_disk)
        flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    const int code = disk->xOpen(disk, name, real(it), flags, given);
    if (code == SQLITE_OK)
        it->pMethods = &methods;
    return code;
}

int delete_file(sqlite3_vfs *, const char *name, int sync)
{
    if (const int code = fault(zel_test::DISK_DELETE, SQLITE_IOERR_DELETE))
        return code;
    const int code = disk->xDelete(disk, name, sync);
    const int later = fault(zel_test::DISK_DELETED, SQLITE_IOERR_DIR_FSYNC);
    return later ? later : code;
}

} // namespace

namespace zel_test
{

void use_faulty_disk()
{
    if (disk)
        return;
    // Every allocation of SQLite passes by, none comes from a reserve of its own.
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &memory);
    sqlite3_mem_methods failing = memory;
    failing.xMalloc = [](int size) { return fault(SQLITE_MEMORY, SQLITE_NOMEM) ? nullptr : memory.xMalloc(size); };
    failing.xRealloc = [](void *block, int size) {
        return fault(SQLITE_MEMORY, SQLITE_NOMEM) ? nullptr : memory.xRealloc(block, size);
    };
    sqlite3_config(SQLITE_CONFIG_MALLOC, &failing);
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);

    disk = sqlite3_vfs_find(nullptr);
    faulty = *disk;
    faulty.zName = "faulty";
    faulty.pNext = nullptr;
    faulty.szOsFile += static_cast<int>(sizeof(file));
    faulty.xOpen = open_file;
    faulty.xDelete = delete_file;
    faulty.xCurrentTimeInt64 = [](sqlite3_vfs *, sqlite3_int64 *time) {
        *time = 210866760000000; // 1970
        return SQLITE_OK;
    };
    sqlite3_vfs_register(&faulty, 1);
}

void make_disk_read_only(bool read_only)
{
    read_only_disk = read_only;
}

disk_fault::disk_fault(unsigned calls, int nth, bool lasting, int code)
{
    planned = {calls, nth, lasting, code, 0};
}

disk_fault::~disk_fault()
{
    planned.calls = 0;
}

bool disk_fault::happened() const
{
    return planned.met >= planned.nth;
}

} // namespace zel_test
