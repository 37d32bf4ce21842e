/* What writes: makes the build's own store ready, through the library itself, and copies a store. */

#include "zel_common_storage.h"
#include "zel_common_storage/schema.h"
#include "zel_platform.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <glib.h>
#include <sys/stat.h>

using namespace zel_storage;

namespace
{

/** Of the library's lines only the failures are kept, for when it does not come about. */
std::string failures;

/** Makes the folder of the store, closed to others; says so when it is there and open to them. */
void make_folder(const std::filesystem::path &folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder.parent_path(), error);
    struct stat status = {};
    if (mkdir(folder.c_str(), 0700) != 0 && stat(folder.c_str(), &status) != 0)
        throw unreadable(folder.string() + ": " + g_strerror(errno) +
                         ". Run it as who may write there, then give the folder to the service's user.");
    if (!status.st_mode || status.st_mode & 077U)
        std::puts(safe(folder.string() + (status.st_mode ? ": is open to others, and the store holds phone numbers and "
                                                           "tokens. chmod 0700 closes it."
                                                         : ": made, mode 0700."))
                      .c_str());
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
    std::puts(
        "The write-ahead log is set, for every program and for good. From now on readers and a writer do not meet\n"
        "any more (two writers still do), and an acknowledged statement is safe against a power cut. Files -wal\n"
        "and -shm beside the store belong to it: copy it with zel-store copy, keep it on a local file system, and\n"
        "let who reads it write to its folder (zel-store itself need not).\n"
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
    _common_storage_db_upgrade();
    const auto is_missing = [](const table &one) { return !_common_storage_check_table_exist(one.name); };
    for (int i = 0; std::any_of(std::begin(TABLES), std::end(TABLES), is_missing); ++i) {
        if (i == ATTEMPTS)
            throw unreadable("Not all tables could be made; zel-store check names those that are missing." + failures);
        g_usleep(10000);
        _common_storage_db_create();
    }
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
    if (std::filesystem::exists(target))
        throw unreadable(target + ": File exists. Name a file that is not there yet.");
    umask(077); // the copy holds what the store holds: nobody else may read it
    std::string complaint;
    read.database.rows("VACUUM copy INTO ?", {target}, &complaint);
    if (!complaint.empty()) {
        std::filesystem::remove(target);
        throw unreadable(target + ": " + complaint + ". Nothing was left there; cp copies a damaged file as it is.");
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
