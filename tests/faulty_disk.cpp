#include "faulty_disk.h"

#include <sqlite3.h>

namespace
{

unsigned failing_calls = 0;
int failing_call = 0;
bool lasting_failure = false;
int failure_code = 0;
int calls = 0;
bool read_only_disk = false;

sqlite3_mem_methods memory;
sqlite3_vfs *disk;
sqlite3_vfs faulty;

/// What a call is to report instead of being carried out; SQLITE_OK to go on.
int fault(unsigned call, int usual_code)
{
    if ((failing_calls & call) == 0)
        return SQLITE_OK;
    ++calls;
    if (calls < failing_call || (calls > failing_call && !lasting_failure))
        return SQLITE_OK;
    return failure_code ? failure_code : usual_code;
}

/// Stands in front of the real file's record, which wants this alignment.
struct alignas(8) file {
    sqlite3_file base;
};

sqlite3_file *real(sqlite3_file *shim)
{
    return reinterpret_cast<sqlite3_file *>(reinterpret_cast<file *>(shim) + 1);
}

const sqlite3_io_methods methods = {
    1,
    [](sqlite3_file *it) { return real(it)->pMethods ? real(it)->pMethods->xClose(real(it)) : SQLITE_OK; },
    [](sqlite3_file *it, void *buffer, int size, sqlite3_int64 offset) {
        const int code = fault(zel_test::DISK_READ, SQLITE_IOERR_READ);
        return code ? code : real(it)->pMethods->xRead(real(it), buffer, size, offset);
    },
    [](sqlite3_file *it, const void *buffer, int size, sqlite3_int64 offset) {
        const int code = fault(zel_test::DISK_WRITE, SQLITE_IOERR_WRITE);
        return code ? code : real(it)->pMethods->xWrite(real(it), buffer, size, offset);
    },
    [](sqlite3_file *it, sqlite3_int64 size) {
        const int code = fault(zel_test::DISK_TRUNCATE, SQLITE_IOERR_TRUNCATE);
        return code ? code : real(it)->pMethods->xTruncate(real(it), size);
    },
    [](sqlite3_file *, int) { return fault(zel_test::DISK_SYNC, SQLITE_IOERR_FSYNC); },
    [](sqlite3_file *it, sqlite3_int64 *size) {
        const int code = fault(zel_test::DISK_SIZE, SQLITE_IOERR_FSTAT);
        return code ? code : real(it)->pMethods->xFileSize(real(it), size);
    },
    [](sqlite3_file *it, int level) {
        const int code = fault(zel_test::DISK_LOCK, SQLITE_IOERR_LOCK);
        return code ? code : real(it)->pMethods->xLock(real(it), level);
    },
    [](sqlite3_file *it, int level) { return real(it)->pMethods->xUnlock(real(it), level); },
    [](sqlite3_file *it, int *locked) { return real(it)->pMethods->xCheckReservedLock(real(it), locked); },
    [](sqlite3_file *it, int what, void *data) { return real(it)->pMethods->xFileControl(real(it), what, data); },
    [](sqlite3_file *it) { return real(it)->pMethods->xSectorSize(real(it)); },
    [](sqlite3_file *it) { return real(it)->pMethods->xDeviceCharacteristics(real(it)); },
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr};

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
    failing.xMalloc = [](int size) {
        return fault(zel_test::SQLITE_MEMORY, SQLITE_NOMEM) ? nullptr : memory.xMalloc(size);
    };
    failing.xRealloc = [](void *block, int size) {
        return fault(zel_test::SQLITE_MEMORY, SQLITE_NOMEM) ? nullptr : memory.xRealloc(block, size);
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

disk_fault::disk_fault(unsigned which, int nth, bool lasting, int code)
{
    failing_calls = which;
    failing_call = nth;
    lasting_failure = lasting;
    failure_code = code;
    calls = 0;
}

disk_fault::~disk_fault()
{
    failing_calls = 0;
}

bool disk_fault::happened() const
{
    return calls >= failing_call;
}

} // namespace zel_test
