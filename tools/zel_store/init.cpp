/* What writes: makes the build's own store ready, through the library itself, and copies a store. */

#include "zel_common_storage.h"
#include "zel_common_storage/schema.h"
#include "zel_platform.h"
#include "zel_store.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zel_storage;

namespace
{

/** Of the library's lines only the failures are kept, for when it does not come about. */
std::string failures;

/** Makes the folder of the store, closed to others; says so when it is there and open to them. */
void make_folder(const std::filesystem::path &folder)
{
    std::error_code error;
    if (folder.has_parent_path())
        std::filesystem::create_directories(folder.parent_path(), error);
    struct stat status = {};
    if (mkdir(folder.c_str(), 0700) == 0)
        std::puts(safe("Made the folder " + folder.string() + ", mode 0700.").c_str());
    else if (stat(folder.c_str(), &status) != 0)
        throw unreadable(folder.string() + ": " + g_strerror(errno) +
                         ". Run it as who may write there, then give the folder to the service's user.");
    else if (status.st_mode & 077U)
        std::puts(safe(format("The folder %s has mode %04o: others may look into it, and the store holds phone numbers "
                              "and tokens. chmod 0700 closes it.",
                              folder.c_str(), status.st_mode & 07777U))
                      .c_str());
}

std::string missing_tables()
{
    std::string missing;
    for (const table &one : TABLES)
        if (!_common_storage_check_table_exist(one.name))
            missing += std::string(missing.empty() ? "" : ", ") + one.name;
    return missing;
}

void set_log()
{
    const connection database(ZEL_DATABASE);
    sqlite3_busy_timeout(database.handle.get(), 2000);
    std::string complaint;
    const json mode = database.rows("PRAGMA journal_mode = WAL", {}, &complaint);
    if (mode.empty() || text(mode[0], "journal_mode") != "wal")
        throw unreadable("The write-ahead log could not be set: " + complaint +
                         ". End the programs that have the store open and try again.");
    std::puts("The write-ahead log is set, for every program and for good. From now on\n"
              "- readers and a writer do not meet any more; two writers still do;\n"
              "- a statement that was acknowledged is safe against a power cut;\n"
              "- .quillo_service.db-wal and -shm lie beside the store while it is open and belong to it: copy it with\n"
              "  zel-store copy, and keep it on a local file system;\n"
              "- whoever reads the store must be able to write to its folder (zel-store itself need not).\n"
              "Back again: end the programs, then PRAGMA journal_mode = DELETE in the sqlite3 shell.");
}

} // namespace

int init(const options &wanted)
{
    static constexpr int ATTEMPTS = 20; // while another program makes tables too
    make_folder(std::filesystem::path(ZEL_DATABASE).parent_path());
    if (_common_storage_init() != ZEL_ERR_NONE)
        throw unreadable("The store could not be opened:" + failures +
                         " Look whether " ZEL_DATABASE " and its folder belong to you.");
    for (int i = 0; i < ATTEMPTS && !missing_tables().empty(); ++i) {
        g_usleep(10000);
        _common_storage_db_create();
    }
    _common_storage_db_upgrade();
    if (const std::string missing = missing_tables(); !missing.empty())
        throw unreadable("These tables could not be made: " + missing + "." + failures);
    std::printf("%s is ready: version %d, all %zu tables.\n", ZEL_DATABASE, SCHEMA_VERSION, std::size(TABLES));
    if (wanted.uses_log)
        set_log();
    return FINE;
}

int copy(const options &wanted, const std::string &target)
{
    const store read(wanted.store);
    if (!read.is_readable)
        throw unreadable(wanted.store + ": " + text(read.findings[0], "title") + ". cp copies such a file as it is.");
    // The copy holds what the store holds: nobody else may read it, and nothing is written over.
    const int made = open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made < 0)
        throw unreadable(target + ": " + g_strerror(errno) + ". Name a file that is not there yet.");
    close(made);
    const connection copied(target);
    sqlite3_backup *const backup = sqlite3_backup_init(copied.handle.get(), "main", read.database.handle.get(), "copy");
    sqlite3_backup_step(backup, -1);
    if (sqlite3_backup_finish(backup) != SQLITE_OK) {
        unlink(target.c_str());
        throw unreadable(target + ": " + sqlite3_errmsg(copied.handle.get()) + ". Nothing was left there.");
    }
    std::puts(safe(target + " is a copy of " + text(read.file, "path") + ", mode 0600.").c_str());
    return FINE;
}

// The tool is the platform of the library that it holds.

int dlog_print(log_priority prio, const char *, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    char *const line = g_strdup_vprintf(fmt, args);
    va_end(args);
    if (prio >= DLOG_ERROR)
        failures += std::string(" ") + g_strchomp(line);
    g_free(line);
    return 0;
}

int system_info_get_custom_bool(const char *, bool *)
{
    return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
}

int app_control_clone(app_control_h *, app_control_h)
{
    return -ENOSYS;
}

int app_control_destroy(app_control_h)
{
    return 0;
}
