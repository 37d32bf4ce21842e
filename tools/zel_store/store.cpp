#include "texts.h"
#include "zel_common_storage.h"
#include "zel_common_storage/schema.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <glib.h>
#include <glob.h>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace zel_storage;
namespace fs = std::filesystem;

namespace
{

/** The columns whose values have words, and the enumerators that give them. */
constexpr struct {
    const char *table, *column;
    int values[9];
    const char *names;
} VOCABULARIES[] = {
#define WORDS(...) {__VA_ARGS__}, #__VA_ARGS__
    {TABLE_UPLOAD_REQUEST_DATA, "status",
     WORDS(QUILLO_UPLOAD_STATUS_NONE, QUILLO_UPLOAD_STATUS_STARTED, QUILLO_UPLOAD_STATUS_PROGRESSING,
           QUILLO_UPLOAD_STATUS_FINISHED, QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED,
           QUILLO_UPLOAD_STATUS_PAUSED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED, QUILLO_UPLOAD_STATUS_SHARE_RECALLED)},
    {TABLE_UPLOAD_REQUEST_DATA, "app_type",
     WORDS(APP_TYPE_NONE, QUILLO_APP_TYPE, PIKO_APP_TYPE, MOSAIC_EVENT_APP_TYPE)},
    {TABLE_CONTENT_INFO, "push_status",
     WORDS(QUILLO_PUSH_STATUS_NONE, QUILLO_PUSH_STATUS_SHARE_FINISHED, QUILLO_PUSH_STATUS_SHARE_RECALLED)},
    {TABLE_CONTENT_INFO_STATUS, "sync_type", WORDS(ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE)},
    {TABLE_CONTENT_INFO_STATUS, "status",
     WORDS(ZEL_SYNC_TODO, ZEL_SYNC_ONGOING, ZEL_SYNC_FAILED, ZEL_SYNC_PAUSED, ZEL_SYNC_PAUSED_TODO, ZEL_SYNC_COMPLETE)},
    {TABLE_PUSH_NOTI_INFO, "read_noti", {0, 1, 2}, "UNREAD,READ,MARKED_FOR_DELETION"}, // which no header names
#undef WORDS
};

/** Words are the enumerators without what their family begins with. */
void add_words(const connection &database)
{
    for (const auto &[table, column, values, names] : VOCABULARIES) {
        std::istringstream rest(names);
        std::string name;
        std::string cases;
        for (const int *value = values; std::getline(rest >> std::ws, name, ','); ++value) {
            name = match("^(QUILLO_UPLOAD_STATUS_|QUILLO_PUSH_STATUS_|ZEL_SYNC_|ZEL_|APP_TYPE_)?(.*?)(_APP_TYPE)?$",
                         name)[2];
            cases += format(" WHEN %d THEN lower(replace('%s', '_', ' '))", *value, name.c_str());
        }
        const char *const missing = std::string_view(column) == "push_status" ? "0" : "NULL"; // nothing was reported
        database.rows(
            format("ALTER TABLE %s ADD COLUMN %s_word AS (CASE coalesce(%s, %s)%s ELSE '?' || coalesce(%s, '') "
                   "END)",
                   table, column, column, missing, cases.c_str(), column));
    }
}

/** The first bytes of a file, as many as there are. */
std::string head_of(const std::string &path, size_t length)
{
    std::string bytes(length, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(bytes.data(), static_cast<std::streamsize>(length));
    return bytes.substr(0, static_cast<size_t>(file.gcount()));
}

/** Looks whether there is a file to read, and says what to do if not. */
struct stat status_of(const std::string &path)
{
    struct stat status = {};
    const bool is_there = stat(path.c_str(), &status) == 0;
    if (!is_there && (errno == ENOENT || errno == ENOTDIR))
        throw unreadable(path + ": there is no store. zel-store init makes one; STORE can also be its file or folder.");
    if (is_there && !S_ISREG(status.st_mode))
        throw unreadable(path + ": is no regular file. Name the store's file or its folder.");
    if (!is_there || access(path.c_str(), R_OK) != 0)
        throw unreadable(path + ": " + g_strerror(errno) + ". Run zel-store as the service's user or as root.");
    return status;
}

/**
 * What is another one whenever a writer may have changed the file in between. With a rollback journal, each commit
 * changes the counter in the file's header, and each write in progress has a journal with a number of its own. A
 * write-ahead log holds whatever the file lacks until it is copied there or the log begins anew, with other numbers.
 */
std::string fingerprint(const std::string &path)
{
    const struct stat status = status_of(path);
    return format("%llu %lld %lld.%09ld ", static_cast<unsigned long long>(status.st_ino),
                  static_cast<long long>(status.st_size), static_cast<long long>(status.st_mtim.tv_sec),
                  static_cast<long>(status.st_mtim.tv_nsec)) +
           head_of(path, 100) + head_of(path + "-journal", 28) + head_of(path + "-wal", 32);
}

/** A folder of its own that goes with it; no signal ends the program meanwhile. */
struct scratch_folder {
    std::string path = (fs::temp_directory_path() / "zel-store.XXXXXX").string();
    sigset_t signals = {};

    scratch_folder()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &signals);
        path = mkdtemp(path.data()) ? path : path + " (cannot be made)";
    }
    ~scratch_folder()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
        pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    }
};

/** Copies the file and what lies beside it, again and again until no writer has been at work meanwhile. */
void copy_consistently(const std::string &path, const std::string &target)
{
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + seconds(5);
    for (unsigned int attempt = 0; steady_clock::now() < deadline; ++attempt) {
        const std::string before = fingerprint(path);
        // The file first: what is written to it from then on is in the journal as it was before, or in the log.
        for (const std::string suffix : {"", "-journal", "-wal"}) {
            std::error_code error;
            fs::remove(target + suffix, error);
            fs::copy_file(path + suffix, target + suffix, error);
            if (error && (suffix.empty() || error != std::errc::no_such_file_or_directory))
                throw unreadable(format("No private copy can be made as %s%s: %s. Name a folder with room in TMPDIR.",
                                        target.c_str(), suffix.c_str(), error.message().c_str()));
        }
        if (fingerprint(path) == before)
            return;
        std::this_thread::sleep_for(microseconds(100 * (attempt % 7)));
    }
    throw unreadable(path + ": is written without a pause; no copy was whole. Try again when the service does less.");
}

/** Which processes besides this one have the file open. */
void find_openers(json &file, const std::string &path)
{
    static bool sees_all = true;
    glob_t found = {};
    const auto complain = [](const char *, int error) {
        sees_all = sees_all && error != EACCES;
        return 0;
    };
    glob("/proc/[0-9]*/fd/*", GLOB_NOSORT, complain, &found);
    json openers = json::array();
    for (size_t i = 0; i < found.gl_pathc; ++i) { // those of a process stand together
        const auto id = static_cast<int>(std::strtol(found.gl_pathv[i] + sizeof "/proc/" - 1, nullptr, 10));
        std::error_code ignored;
        std::string name;
        if (id != getpid() && (openers.empty() || openers.back()["pid"] != id) &&
            fs::equivalent(found.gl_pathv[i], path, ignored) &&
            std::getline(std::ifstream(format("/proc/%d/comm", id)), name))
            openers.push_back({{"pid", id}, {"name", name}});
    }
    globfree(&found);
    file["open_in"] = openers;
    file["sees_all_processes"] = sees_all;
}

/** Copies the rows of a table that can be read; around a damaged page both from the front and from the end. */
std::string load(const connection &database, const std::string &table, const std::string &columns)
{
    std::string complaints;
    for (const char *order : {"", " ORDER BY rowid DESC"}) {
        std::string complaint;
        const std::string reading = format("SELECT %s FROM copy.%s%s", columns.c_str(), table.c_str(), order);
        for (const json &row : database.rows(reading, {}, &complaint)) {
            std::string places = "?";
            for (size_t i = 1; i < row.size(); ++i)
                places += ",?";
            database.rows(format("INSERT OR IGNORE INTO main.%s VALUES(%s)", table.c_str(), places.c_str()),
                          {row.begin(), row.end()});
        }
        if (complaint.empty())
            break;
        complaints = complaint;
    }
    return complaints;
}

/** Fills the tables in memory and says what is missing or different; the library reads columns by position. */
void load_tables(store &read)
{
    json missing = json::array();
    for (const table &one : TABLES) {
        const json found = read.database.rows(LOAD_SQL, {one.name})[0];
        if (found["columns"] == 0) {
            missing.push_back({{"name", one.name}});
            continue;
        }
        if (!found["differences"].is_null())
            read.find("columns", {{{one.name, found["differences"]}}});
        if (const std::string complaint = load(read.database, one.name, found["list"]); !complaint.empty())
            read.find("damaged-table", {{{one.name, complaint}}});
    }
    read.find("missing-table", missing);
}

} // namespace

connection::connection(const std::string &path) : handle(nullptr, sqlite3_close)
{
    sqlite3 *opened = nullptr;
    sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    handle.reset(opened);
}

json connection::rows(const std::string &statements, const std::vector<json> &arguments, std::string *complaint) const
{
    json rows = json::array();
    int code = SQLITE_DONE;
    for (const char *rest = statements.c_str(); code == SQLITE_DONE && *rest;) {
        sqlite3_stmt *prepared = nullptr;
        code = sqlite3_prepare_v2(handle.get(), rest, -1, &prepared, &rest);
        for (int i = 1; i <= sqlite3_bind_parameter_count(prepared); ++i) {
            const json &value = arguments.at(static_cast<size_t>(i - 1));
            if (value.is_string())
                sqlite3_bind_text64(prepared, i, value.get_ref<const std::string &>().data(),
                                    value.get_ref<const std::string &>().size(), SQLITE_TRANSIENT, SQLITE_UTF8);
            else if (value.is_number_float())
                sqlite3_bind_double(prepared, i, value);
            else if (value.is_number())
                sqlite3_bind_int64(prepared, i, value);
        }
        while (prepared && (code = sqlite3_step(prepared)) == SQLITE_ROW) {
            json &row = rows.emplace_back(json::object());
            for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
                json &value = row[sqlite3_column_name(prepared, i)];
                const int type = sqlite3_column_type(prepared, i);
                if (type == SQLITE_INTEGER)
                    value = sqlite3_column_int64(prepared, i);
                else if (type == SQLITE_FLOAT)
                    value = sqlite3_column_double(prepared, i);
                else if (const void *bytes = sqlite3_column_blob(prepared, i); type != SQLITE_NULL)
                    value = std::string(static_cast<const char *>(bytes ? bytes : ""),
                                        static_cast<size_t>(sqlite3_column_bytes(prepared, i)));
            }
        }
        sqlite3_finalize(prepared);
    }
    const bool is_failed = code != SQLITE_DONE && code != SQLITE_OK;
    if (is_failed && !complaint)
        throw unreadable(std::string("SQLite: ") + sqlite3_errmsg(handle.get()) + " in " + statements);
    if (is_failed)
        *complaint = sqlite3_errmsg(handle.get());
    return rows;
}

void store::find(const std::string &kind, const json &rows)
{
    static const std::vector<texts> TEXTS = advice(DATABASE_MD, "## What zel-store check finds");
    if (rows.empty())
        return;
    const std::string key = rows[0].items().begin().key();
    json names = json::array();
    for (const json &row : rows)
        names.push_back(text(row, key.c_str()));
    for (const texts &row : TEXTS)
        if (row.size() == 4 && row[0] == "`" + kind + "`")
            findings.push_back(
                {{"kind", kind}, {"title", row[1]}, {"means", row[2]}, {"do", row[3]}, {"key", key}, {"rows", names}});
}

store::store(const std::string &named)
{
    std::error_code error;
    const std::string path =
        fs::is_directory(named, error) ? (fs::path(named) / fs::path(ZEL_DATABASE).filename()).string() : named;
    const struct stat status = status_of(path);
    const passwd *const owner = getpwuid(status.st_uid);
    file = {{"path", fs::absolute(path).lexically_normal().string()},
            {"owner", owner ? owner->pw_name : std::to_string(status.st_uid)},
            {"mode", format("%04o", status.st_mode & 07777U)}};
    find_openers(file, path);
    for (const table &one : TABLES)
        database.rows(one.create);
    database.rows(format("CREATE TEMP TABLE limits AS SELECT %d AS batch, %d AS retries, %d AS groups", BATCH_LIMIT,
                         RETRY_CAP, GROUP_LIMIT));
    const scratch_folder scratch;
    const std::string copied = scratch.path + "/store";
    copy_consistently(path, copied);
    for (const auto &[name, suffix] : {std::pair("size", ""), {"journal_size", "-journal"}, {"log_size", "-wal"}}) {
        const auto size = fs::file_size(copied + suffix, error);
        file[name] = error ? json() : json(size);
    }
    // The first look undoes what was broken off. Exclusive: a log needs no shared memory then. A file that is cut can
    // be read up to there with a writable schema only.
    const std::string look = "ATTACH ? AS copy; SELECT count(*) FROM copy.sqlite_master";
    std::string complaint;
    std::string cut;
    database.rows("PRAGMA locking_mode = EXCLUSIVE; " + look, {copied}, &complaint);
    if (!complaint.empty()) {
        database.rows("DETACH copy", {}, &cut);
        cut.clear();
        database.rows("PRAGMA writable_schema = ON; " + look, {copied}, &cut);
    }
    is_readable = cut.empty();
    if (!complaint.empty())
        find(is_readable ? "cut" : "unreadable", {{{"SQLite says:", complaint}}});
    if (is_readable) {
        file["version"] = database.rows("PRAGMA copy.user_version")[0]["user_version"];
        file["journal_mode"] = database.rows("PRAGMA copy.journal_mode")[0]["journal_mode"];
        if (file["version"] != SCHEMA_VERSION)
            find("version", {{{"user_version", format("%s, not %d", text(file, "version").c_str(), SCHEMA_VERSION)}}});
        load_tables(*this);
    }
    add_words(database);
}
