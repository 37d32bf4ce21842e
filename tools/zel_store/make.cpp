/* What the tool makes: a copy of a store, and through the library this build's own store. */

#include "new_file.h"
#include "private_copy.h"
#include "zel_common_storage.h"
#include "zel_common_storage/connection.h"
#include "zel_common_storage/schema.h"
#include "zel_platform.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

using namespace zel_storage;
namespace fs = std::filesystem;

namespace
{

/** Says that others may get at what is there, unless only its user may. */
std::string warning_about(const fs::path &path, const char *closing)
{
    struct stat status = {};
    const bool is_open = stat(path.c_str(), &status) == 0 && (status.st_mode & 077) != 0;
    return is_open ? shown(path.string() + ": is open to others, though the store holds secrets. chmod " + closing +
                           " closes it.")
                   : "";
}

} // namespace

outcome copy(const options &wanted)
{
    const std::string target = wanted.copied.back();
    new_file written(target);
    store read(wanted.copied.size() == 2 ? wanted.copied[0] : wanted.store);
    std::string complaint;
    if (read.has_all_rows)
        read.rows("VACUUM copy INTO 'whole'", {}, &complaint);
    const int whole = private_file("whole");
    if (!read.has_all_rows || !complaint.empty() || whole < 0)
        throw unreadable(text(read.file, "path") + ": cannot be read whole" +
                         (complaint.empty() ? "" : " (" + complaint + ")") +
                         ". Nothing was copied; zel-store check tells why, cp copies the file as it is.");
    std::string bytes(1 << 16, '\0');
    ssize_t got = 0;
    for (off_t at = 0; (got = pread(whole, bytes.data(), bytes.size(), at)) > 0; at += got)
        written.add(std::string_view(bytes).substr(0, static_cast<size_t>(got)));
    if (got < 0)
        throw unreadable(std::string("the private copy cannot be read: ") + g_strerror(errno));
    written.publish();
    return {FINE, shown(target + " is a copy of " + text(read.file, "path") + ", mode 0600."), {}};
}

outcome init(const options &wanted)
{
    const fs::path folder = fs::path(ZEL_DATABASE).parent_path();
    std::error_code error;
    fs::create_directories(folder.parent_path(), error);
    umask(077); // what the store holds is its user's alone
    std::string view;
    if (mkdir(folder.c_str(), 0700) == 0)
        view = shown(folder.string() + ": made, mode 0700.");
    else if (errno != EEXIST)
        throw unreadable(folder.string() + ": " + g_strerror(errno) + ". Run zel-store as who may write there.");
    if (fs::is_symlink(ZEL_DATABASE) || (fs::exists(ZEL_DATABASE) && !fs::is_regular_file(ZEL_DATABASE)))
        throw unreadable(ZEL_DATABASE ": is a link, or no file. Look who put it there; the store has that place.");
    // Here SQLite opens the store itself: what lies beside it is looked at before.
    if (fs::exists(ZEL_DATABASE) && !copy_privately(ZEL_DATABASE).super_journal.empty())
        throw unreadable(ZEL_DATABASE "-journal: names a file that SQLite would delete. zel-store check says more.");
    if (_common_storage_init() != ZEL_ERR_NONE)
        throw unreadable("The store was not opened. Do " ZEL_DATABASE " and its folder belong to you?");
    _common_storage_db_upgrade();
    const auto is_missing = [](const table &one) { return !_common_storage_check_table_exist(one.name); };
    for (int i = 0; std::any_of(std::begin(TABLES), std::end(TABLES), is_missing); ++i) {
        if (i == 20) // tries, while another program makes tables too
            throw unreadable(std::string("Not all tables are there: ") + sqlite3_errmsg(_g_sqlite_handle) +
                             ". zel-store show tells who has the store open, zel-store check what is wrong with it.");
        g_usleep(10000);
        _common_storage_db_create();
    }
    view += warning_about(folder, "0700") + warning_about(ZEL_DATABASE, "0600");
    view += shown(FORMAT("%s is ready: version %d, all %zu tables.", ZEL_DATABASE, SCHEMA_VERSION, std::size(TABLES)));
    if (!wanted.uses_log)
        return {FINE, view, {}};
    std::string mode;
    const auto note = [](void *said, int, char **values, char **) {
        static_cast<std::string *>(said)->assign(values[0]);
        return 0;
    };
    sqlite3_busy_timeout(_g_sqlite_handle, 2000);
    sqlite3_exec(_g_sqlite_handle, "PRAGMA journal_mode = WAL", note, &mode, nullptr);
    if (mode != "wal")
        throw unreadable(std::string("The write-ahead log was not set: ") + sqlite3_errmsg(_g_sqlite_handle) +
                         ". End who has the store open, try again.");
    view +=
        shown("The write-ahead log is set for good: readers and a writer do not meet any more, and an acknowledged"
              " statement is safe against a power cut. Files -wal and -shm belong to the store: copy it with zel-store"
              " copy, keep it on a local file system. Back again: PRAGMA journal_mode = DELETE in the sqlite3 shell.");
    return {FINE, view, {}};
}

// The tool is the platform of the library that it holds, and says in its own words what fails.
int dlog_print(log_priority, const char *, const char *, ...)
{
    return 0;
}
