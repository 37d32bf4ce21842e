/* A store: read without disturbing anybody, copied, and made ready through the library itself. */

#include "texts.h"
#include "zel_common_storage.h"
#include "zel_common_storage/connection.h"
#include "zel_common_storage/schema.h"
#include "zel_platform.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <glob.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zel_storage;
namespace fs = std::filesystem;

namespace
{

/** The columns whose values have words, and what finds the enumerators (and UNNAMED, in no header): word, value. */
constexpr const char *VOCABULARIES[][3] = {
    {TABLE_UPLOAD_REQUEST_DATA, "status", R"(QUILLO_UPLOAD_STATUS_(\w+) = (\d+))"},
    {TABLE_UPLOAD_REQUEST_DATA, "app_type", R"((?|APP_TYPE_(NONE)|(\w+)_APP_TYPE) = (\d+))"},
    {TABLE_CONTENT_INFO, "push_status", R"(QUILLO_PUSH_STATUS_(\w+) = (\d+))"},
    {TABLE_CONTENT_INFO_STATUS, "sync_type", R"(ZEL_(UPLOAD_\w+|DOWNLOAD_\w+) = (\d+))"},
    {TABLE_CONTENT_INFO_STATUS, "status", R"(ZEL_SYNC_(\w+) = (\d+))"},
    {TABLE_PUSH_NOTI_INFO, "read_noti", R"(READ_NOTI_(\w+) = (\d+))"},
};
constexpr char UNNAMED[] = "READ_NOTI_UNREAD = 0, READ_NOTI_READ = 1, READ_NOTI_MARKED_FOR_DELETION = 2";

void add_words(const connection &database)
{
    for (const auto &[table, column, enumerator] : VOCABULARIES) {
        std::string cases;
        for (const texts &one : matches(enumerator, std::string(ENUMERATORS) + UNNAMED))
            cases += FORMAT(" WHEN %s THEN lower(replace('%s', '_', ' '))", one[2].c_str(), one[1].c_str());
        const char *const missing = column == std::string("push_status") ? "0" : "NULL"; // nothing was reported
        database.rows(FORMAT("ALTER TABLE %s ADD COLUMN %s_word AS"
                             " (CASE coalesce(%s, %s)%s ELSE '?' || coalesce(%s, '') END)",
                             table, column, column, missing, cases.c_str(), column));
    }
}

/**
 * What is another one whenever a writer may have changed the file in between. With a rollback journal, each commit
 * changes the counter in the file's header, and each write in progress has a journal with a number of its own. A
 * write-ahead log holds whatever the file lacks until it is copied there or the log begins anew, with other numbers.
 */
std::string fingerprint(const std::string &path)
{
    std::error_code error;
    const auto time = fs::last_write_time(path, error).time_since_epoch().count();
    std::string print = FORMAT("%ju %jd ", fs::file_size(path, error), static_cast<intmax_t>(time));
    for (const auto &[suffix, length] : {std::pair("", 100), {"-journal", 28}, {"-wal", 32}}) {
        std::string head(static_cast<size_t>(length), '\0');
        std::ifstream(path + suffix, std::ios::binary).read(head.data(), length);
        print += head;
    }
    return print;
}

/** Copies the file and what lies beside it, again and again until no writer has been at work meanwhile. */
void copy_consistently(const std::string &path, const std::string &target)
{
    const gint64 deadline = g_get_monotonic_time() + 5 * G_TIME_SPAN_SECOND;
    std::string before;
    for (gulong attempt = 0; fingerprint(path) != before; ++attempt) {
        if (g_get_monotonic_time() > deadline)
            throw unreadable(path + ": is written without a pause; no copy was whole. Try again when less is written.");
        g_usleep(100 * (attempt % 7));
        before = fingerprint(path);
        // The file first: what is written to it from then on is in the journal as it was before, or in the log.
        for (const std::string suffix : {"", "-journal", "-wal"}) {
            std::error_code error;
            fs::remove(target + suffix, error);
            fs::copy_file(path + suffix, target + suffix, error);
            if (error && (suffix.empty() || error != std::errc::no_such_file_or_directory))
                throw unreadable(path + suffix + ": " + error.message() +
                                 ". Can you read it, is there room in TMPDIR?");
        }
    }
}

/** The names of the processes that have the file open; those of other users only root sees. */
json openers_of(const std::string &path)
{
    json openers = json::object();
    glob_t found = {};
    glob("/proc/[0-9]*/fd/*", GLOB_NOSORT, nullptr, &found);
    for (size_t i = 0; i < found.gl_pathc; ++i) {
        const fs::path process = fs::path(found.gl_pathv[i]).parent_path().parent_path();
        std::error_code ignored;
        std::string name;
        if (fs::equivalent(found.gl_pathv[i], path, ignored) && std::getline(std::ifstream(process / "comm"), name))
            openers[process.filename()] = name;
    }
    globfree(&found);
    return openers;
}

/** Fills the tables in memory and says what is missing or different; the library reads columns by position. */
void load(store &read)
{
    json damages = json::array();
    for (const json &one : read.rows(LOAD_SQL)) {
        if (!one["differences"].is_null())
            read.find("columns", {{{text(one, "name"), one["differences"]}}});
        std::string complaint;
        for (const char *order : {"", " ORDER BY rowid DESC"}) // a damaged page is come to from either side
            if (*order == '\0' || !complaint.empty())
                for (const json &row : read.rows(text(one, "reading") + order, {}, &complaint))
                    read.rows(row["statement"]);
        if (!complaint.empty())
            damages.push_back({{"table", text(one, "name") + ": " + complaint}});
    }
    read.find("damaged-table", damages);
    read.find("missing-table", read.rows("SELECT name FROM main.sqlite_master WHERE name NOT GLOB 'sqlite_*'"
                                         " EXCEPT SELECT name FROM copy.sqlite_master"));
}

} // namespace

connection::connection() : handle(nullptr, sqlite3_close)
{
    sqlite3 *opened = nullptr;
    sqlite3_open(":memory:", &opened);
    handle.reset(opened);
}

json connection::rows(const std::string &statements, const texts &arguments, std::string *complaint) const
{
    json rows = json::array();
    int code = SQLITE_OK;
    for (const char *rest = statements.c_str(); code == SQLITE_OK && *rest;) {
        sqlite3_stmt *prepared = nullptr;
        code = sqlite3_prepare_v2(handle.get(), rest, -1, &prepared, &rest);
        for (size_t i = 0; i < arguments.size(); ++i)
            sqlite3_bind_text64(prepared, static_cast<int>(i) + 1, arguments[i].data(), arguments[i].size(),
                                SQLITE_STATIC, SQLITE_UTF8);
        while (prepared && sqlite3_step(prepared) == SQLITE_ROW) {
            json &row = rows.emplace_back(json::object());
            for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
                json &value = row[sqlite3_column_name(prepared, i)];
                const int type = sqlite3_column_type(prepared, i);
                const auto *const bytes = static_cast<const char *>(sqlite3_column_blob(prepared, i));
                if (type == SQLITE_INTEGER)
                    value = sqlite3_column_int64(prepared, i);
                else if (type == SQLITE_FLOAT)
                    value = sqlite3_column_double(prepared, i);
                else if (type != SQLITE_NULL)
                    value = std::string(bytes, static_cast<size_t>(sqlite3_column_bytes(prepared, i)));
            }
        }
        code = prepared ? sqlite3_finalize(prepared) : code;
    }
    if (code != SQLITE_OK && !complaint)
        throw unreadable(std::string("SQLite: ") + sqlite3_errmsg(handle.get()) + " in " + statements);
    if (code != SQLITE_OK)
        *complaint = sqlite3_errmsg(handle.get());
    return rows;
}

void store::find(const std::string &kind, const json &rows)
{
    if (rows.empty())
        return;
    const std::string key = rows[0].items().begin().key();
    const texts row = matches("\n\\| `" + kind + "` \\| (.*) \\| (.*) \\| (.*) \\|\n", DATABASE_MD).at(0);
    findings.push_back({{"kind", kind}, {"title", row[1]}, {"means", row[2]}, {"do", row[3]}, {"key", key}});
    for (const json &one : rows)
        findings.back()["rows"].push_back(text(one, key.c_str()));
    has_all_rows = has_all_rows && kind != "unreadable" && kind != "cut" && kind.find("damaged") != 0;
}

store::store(const std::string &named)
{
    std::error_code error;
    const fs::path path = fs::is_directory(named, error) ? named / fs::path(ZEL_DATABASE).filename() : fs::path(named);
    struct stat status = {};
    errno = 0;
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw unreadable(path.string() + ": is no regular file. Name the store's file or its folder.");
    if (errno == ENOENT || errno == ENOTDIR)
        throw unreadable(path.string() + ": there is no store. zel-store init makes one; STORE is its file or folder.");
    if (access(path.c_str(), R_OK) != 0)
        throw unreadable(path.string() + ": " + g_strerror(errno) +
                         ". Run zel-store as the service's user or as root.");
    const passwd *const owner = getpwuid(status.st_uid);
    file = {{"path", fs::absolute(path).lexically_normal().string()},
            {"owner", owner ? owner->pw_name : std::to_string(status.st_uid)},
            {"mode", FORMAT("%04o", status.st_mode & 07777U)},
            {"open_in", openers_of(path)},
            {"sees_all_processes", geteuid() == 0}};
    const bool is_unused = file["open_in"].empty() && (geteuid() == 0 || geteuid() == status.st_uid);
    for (const table &one : TABLES)
        rows(one.create);
    rows(FORMAT("CREATE TEMP TABLE limits AS SELECT %d AS batch, %d AS retries, %d AS groups, %d AS is_unused",
                BATCH_LIMIT, RETRY_CAP, GROUP_LIMIT, is_unused));
    // The private copy goes with its folder as soon as it is open, and no signal ends the program before that.
    std::string folder = std::string(g_get_tmp_dir()) + "/zel-store.XXXXXX";
    sigset_t all;
    sigset_t signals;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &signals);
    folder = mkdtemp(folder.data()) ? folder : folder + " (cannot be made)";
    const std::shared_ptr<void> end(nullptr, [&](void *) {
        fs::remove_all(folder, error);
        pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    });
    const std::string copied = folder + "/store";
    copy_consistently(path, copied);
    for (const auto &[name, suffix] : {std::pair("size", ""), {"journal_size", "-journal"}, {"log_size", "-wal"}}) {
        const auto size = fs::file_size(copied + suffix, error);
        file[name] = error ? json() : json(size);
    }
    // Reads the file's schema, and so undoes what was broken off. Exclusive: a log needs no shared memory then. A file
    // that is cut can be read up to there with a writable schema only.
    std::string complaint;
    std::string cut;
    rows("PRAGMA locking_mode = EXCLUSIVE; ATTACH ? AS copy", {copied}, &complaint);
    if (!complaint.empty())
        rows("PRAGMA writable_schema = ON; ATTACH ? AS copy; SELECT 1 FROM copy.sqlite_master", {copied}, &cut);
    is_readable = cut.empty();
    if (!complaint.empty())
        find(is_readable ? "cut" : "unreadable", {{{"SQLite says:", complaint}}});
    if (is_readable) {
        for (const json &one : rows("PRAGMA copy.user_version; PRAGMA copy.journal_mode"))
            file.update(one);
        if (const int version = file["user_version"]; version != SCHEMA_VERSION)
            find("version", {{{"user_version", FORMAT("%d, not %d", version, SCHEMA_VERSION)}}});
        load(*this);
    }
    add_words(*this);
}

outcome copy(const options &wanted)
{
    const std::string target = fs::absolute(wanted.copied.back()).string(); // never a name that means more to SQLite
    const store read(wanted.copied.size() == 2 ? wanted.copied[0] : wanted.store);
    if (!read.has_all_rows)
        throw unreadable(text(read.file, "path") + ": cannot be read whole. zel-store check tells why; cp copies it.");
    if (fs::exists(target))
        throw unreadable(target + ": File exists. Name a file that is not there yet.");
    umask(077); // the copy holds what the store holds: nobody else may read it
    std::string complaint;
    read.rows("VACUUM copy INTO ?", {target}, &complaint);
    if (!complaint.empty()) {
        fs::remove(target);
        throw unreadable(target + ": " + complaint + ". Nothing was left there; cp copies a damaged file as it is.");
    }
    return {FINE, shown(target + " is a copy of " + text(read.file, "path") + ", mode 0600."), {}};
}

outcome init(const options &wanted)
{
    const fs::path folder = fs::path(ZEL_DATABASE).parent_path();
    std::error_code error;
    fs::create_directories(folder.parent_path(), error);
    std::string view;
    if (mkdir(folder.c_str(), 0700) == 0)
        view = shown(folder.string() + ": made, mode 0700.");
    else if (errno != EEXIST)
        throw unreadable(folder.string() + ": " + g_strerror(errno) + ". Run zel-store as who may write there.");
    else if ((fs::status(folder).permissions() & (fs::perms::group_all | fs::perms::others_all)) != fs::perms::none)
        view = shown(folder.string() + ": is open to others, though the store holds secrets. chmod 0700 closes it.");
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
    view += shown(FORMAT("%s is ready: version %d, all %zu tables.", ZEL_DATABASE, SCHEMA_VERSION, std::size(TABLES)));
    if (!wanted.uses_log)
        return {FINE, view, {}};
    const connection database;
    std::string complaint;
    const std::string setting = "PRAGMA busy_timeout = 2000; ATTACH ? AS live; PRAGMA live.journal_mode = WAL";
    if (database.rows(setting, {ZEL_DATABASE}, &complaint).back().value("journal_mode", "") != "wal")
        throw unreadable("The write-ahead log was not set: " + complaint + ". End who has the store open, try again.");
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
