/* A store, read without disturbing anybody and without trusting it. */

#include "private_copy.h"
#include "texts.h"
#include "zel_common_storage/schema.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <dirent.h>
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

/** Returns the columns of a table that hold words; they follow the stored columns. */
std::string words_of(const std::string &table)
{
    std::string columns;
    for (const auto &[name, column, enumerator] : VOCABULARIES) {
        std::string cases;
        for (const texts &one : matches(enumerator, std::string(ENUMERATORS) + UNNAMED))
            cases += FORMAT(" WHEN %s THEN lower(replace('%s', '_', ' '))", one[2].c_str(), one[1].c_str());
        const char *const missing = column == std::string("push_status") ? "0" : "NULL"; // nothing was reported
        if (name == table)
            columns += FORMAT(", CASE coalesce(%s, %s)%s ELSE '?' || coalesce(%s, '') END AS %s_word", column, missing,
                              cases.c_str(), column, column);
    }
    return columns;
}

/** Notes the processes that have the file open, or one that was at its place, and whether all could be asked. */
void add_holders(json &file, const std::string &path)
{
    struct stat wanted = {};
    const bool is_there = stat(path.c_str(), &wanted) == 0;
    file["open_in"] = file["replaced_in"] = json::object();
    bool sees_all = access("/proc/1", F_OK) == 0; // else processes are hidden from this user
    glob_t found = {};
    glob("/proc/[0-9]*", GLOB_NOSORT, nullptr, &found);
    for (size_t i = 0; i < found.gl_pathc; ++i) {
        const fs::path process = found.gl_pathv[i];
        const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir((process / "fd").c_str()), closedir);
        sees_all = sees_all && (folder || errno == ENOENT || errno == ESRCH); // it may have ended
        while (const dirent *const entry = folder ? readdir(folder.get()) : nullptr) {
            struct stat status = {};
            std::error_code ignored;
            if (fstatat(dirfd(folder.get()), entry->d_name, &status, 0) != 0 || !S_ISREG(status.st_mode))
                continue;
            const bool is_it = is_there && status.st_dev == wanted.st_dev && status.st_ino == wanted.st_ino;
            if (!is_it && (status.st_nlink > 0 ||
                           fs::read_symlink(process / "fd" / entry->d_name, ignored) != path + " (deleted)"))
                continue;
            std::string name;
            std::getline(std::ifstream(process / "comm"), name);
            file[is_it ? "open_in" : "replaced_in"][process.filename()] = name;
        }
    }
    globfree(&found);
    file["sees_all_processes"] = sees_all;
}

/** Processes as a person reads them. */
std::string listed(const json &processes)
{
    std::string list;
    for (const auto &[id, name] : processes.items())
        list += (list.empty() ? "" : ", ") + name.get<std::string>() + " (" + id + ")";
    return list;
}

/** Returns the meaning of the journal beside a file, as far as it can be known. */
const char *meaning_of_journal(const copied &copied, const json &file)
{
    if (!copied.has_hot_journal)
        return "no write is in it";
    if (!copied.super_journal.empty() && !copied.has_super_journal)
        return "a write to several files, which is done and counts";
    if (!file["open_in"].empty())
        return "a write is under way";
    return file["sees_all_processes"]
               ? "a write was broken off; here it is undone"
               : "a write is under way or was broken off, which cannot be seen; here it is undone";
}

long long seconds_used()
{
    timespec used = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return used.tv_sec;
}

/** A statement that is finalized. */
using statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)>;

statement prepared(sqlite3 *handle, const std::string &text)
{
    sqlite3_stmt *made = nullptr;
    sqlite3_prepare_v2(handle, text.c_str(), -1, &made, nullptr);
    return {made, sqlite3_finalize};
}

} // namespace

connection::connection()
    : handle(nullptr, sqlite3_close), steps_allowed(G_MAXINT64), seconds_allowed(G_MAXINT64), bytes_allowed(G_MAXINT64)
{
    know_private_files();
    sqlite3 *opened = nullptr;
    sqlite3_open_v2(":memory:", &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, PRIVATE_FILES);
    handle.reset(opened);
    const auto count = [](void *itself) {
        auto &limited = *static_cast<connection *>(itself);
        return static_cast<int>(++limited.steps > limited.steps_allowed || seconds_used() > limited.seconds_allowed);
    };
    sqlite3_progress_handler(opened, 1000, count, this);
}

void connection::limit(long long thousand_steps, long long seconds, long long bytes)
{
    seconds_allowed = seconds_used() + seconds;
    steps_allowed = steps + thousand_steps;
    bytes_allowed = bytes;
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
        while (prepared && bytes_allowed >= 0 && sqlite3_step(prepared) == SQLITE_ROW) {
            json &row = rows.emplace_back(json::object());
            for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
                json &value = row[sqlite3_column_name(prepared, i)];
                const int type = sqlite3_column_type(prepared, i);
                const auto *const bytes = static_cast<const char *>(sqlite3_column_blob(prepared, i));
                const int length = sqlite3_column_bytes(prepared, i);
                bytes_allowed -= length + 64; // and what holds them
                if (type == SQLITE_INTEGER)
                    value = sqlite3_column_int64(prepared, i);
                else if (type == SQLITE_FLOAT)
                    value = sqlite3_column_double(prepared, i);
                else if (type != SQLITE_NULL && bytes_allowed >= 0)
                    value = std::string(bytes, static_cast<size_t>(length));
            }
        }
        code = prepared ? sqlite3_finalize(prepared) : code;
    }
    const std::string reason = sqlite3_errmsg(handle.get());
    if (bytes_allowed < 0 || code == SQLITE_INTERRUPT || code == SQLITE_NOMEM)
        throw unreadable(
            "It takes more work or memory than a store of its size can need: it is damaged, or made to hold"
            " its reader up. Keep a copy (cp).");
    if (code == SQLITE_FULL)
        throw unreadable(std::string(g_get_tmp_dir()) +
                         " has no room to sort the rows. Set TMPDIR to a folder that has.");
    if (code != SQLITE_OK && !complaint && (code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_IOERR))
        throw damaged(reason);
    if (code != SQLITE_OK && !complaint)
        throw unreadable("SQLite: " + reason + " in " + statements.substr(0, 200));
    if (code != SQLITE_OK)
        *complaint = reason;
    return rows;
}

void store::find(const std::string &kind, const json &rows)
{
    if (rows.empty())
        return;
    const std::string key = rows[0].items().begin().key();
    const texts row = matches("\n\\| `" + kind + "` \\| (.*) \\| (.*) \\| (.*) \\| (.*) \\|\n", FINDINGS_MD).at(0);
    const auto is_same = [&](const json &one) { return one["kind"] == kind && one["key"] == key; };
    auto found = std::find_if(findings.begin(), findings.end(), is_same);
    if (found == findings.end())
        found = findings.insert(
            found,
            json{
                {"kind", kind}, {"title", row[1]}, {"legal", row[2]}, {"means", row[3]}, {"do", row[4]}, {"key", key}});
    for (const json &one : rows)
        (*found)["rows"].push_back(text(one, key.c_str()));
    has_all_rows = has_all_rows && kind != "unreadable" && kind != "cut" && kind.find("damaged") != 0;
}

store::store(const std::string &named)
{
    std::error_code error;
    const fs::path given = fs::is_directory(named, error) ? named / fs::path(ZEL_DATABASE).filename() : fs::path(named);
    // The journal or log is beside the target of a link.
    const std::string path = fs::weakly_canonical(fs::absolute(given), error).string();
    file = {{"path", fs::absolute(given).lexically_normal().string()}};
    add_holders(file, path);
    const json processes = file["replaced_in"];
    struct stat status = {};
    errno = 0;
    if (stat(path.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR))
        throw unreadable(given.string() +
                         (processes.empty()
                              ? ": there is no store. zel-store init makes one; STORE is its file or folder."
                              : ": was deleted, and " + listed(processes) +
                                    " still has it open: what is stored there goes with the process. End "
                                    "it, so that its next start makes a new store."));
    const std::string reason = g_strerror(errno);
    if (access(path.c_str(), R_OK) != 0)
        throw unreadable(given.string() + ": " + g_strerror(errno) +
                         ". Run zel-store as the service's user or as root.");
    const copied copied = copy_privately(path);
    const passwd *const owner = getpwuid(status.st_uid);
    const auto number = [](long long size) { return size < 0 ? json() : json(size); };
    const json known = {{"owner", owner ? owner->pw_name : std::to_string(status.st_uid)},
                        {"mode", FORMAT("%04o", status.st_mode & 07777U)},
                        {"size", copied.size},
                        {"journal_size", number(copied.journal_size)},
                        {"log_size", number(copied.log_size)},
                        {"journal", copied.journal_size > 0 ? meaning_of_journal(copied, file) : ""}};
    file.update(known);
    const bool is_unused = file["open_in"].empty() && file["sees_all_processes"];

    // It may be made to turn on its reader: no triggers, no views of its own, no more work than such a size can take.
    limit(100'000 + copied.size / 16, 60 + (copied.size >> 19), (64LL << 20) + 32 * copied.size);
    sqlite3_hard_heap_limit64((64LL << 20) + 4 * copied.size);
    sqlite3_limit(handle.get(), SQLITE_LIMIT_LENGTH,
                  static_cast<int>(std::min(G_MAXINT / 2LL, copied.size + (1 << 20))));
    for (const auto &[setting, value] : {std::pair(SQLITE_DBCONFIG_DEFENSIVE, 1),
                                         {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                         {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
                                         {SQLITE_DBCONFIG_ENABLE_VIEW, 0}})
        sqlite3_db_config(handle.get(), setting, value, nullptr);

    for (const table &one : TABLES)
        rows(one.create);
    rows(FORMAT("CREATE TEMP TABLE limits AS SELECT %d AS batch, %d AS retries, %d AS groups, %d AS is_unused",
                BATCH_LIMIT, RETRY_CAP, GROUP_LIMIT, is_unused));
    // Reads the file's schema, and so undoes what was broken off. Exclusive: a log needs no shared memory then.
    const std::string attach = "PRAGMA cell_size_check = ON; PRAGMA locking_mode = EXCLUSIVE; ATTACH ? AS copy";
    std::string complaint;
    std::string second;
    rows(attach, {PRIVATE_COPY}, &complaint);
    if (!complaint.empty()) {
        lengthen_copy();
        rows(attach, {PRIVATE_COPY}, &second);
    }
    is_readable = second.empty();
    if (!complaint.empty())
        find(is_readable ? "cut" : "unreadable", {{{"SQLite says:", complaint}}});
    json held = json::array();
    for (const auto &[id, name] : processes.items())
        held.push_back({{"process", name.get<std::string>() + " (" + id + ")"}});
    find("replaced", held);
    if (!copied.super_journal.empty())
        find("super-journal",
             {{{"the journal names",
                copied.super_journal + (copied.has_super_journal ? ", which is there: the write is undone here"
                                                                 : ", which is gone: the write counts")}}});
    else if (copied.has_hot_journal && is_unused)
        find("broken-off", {{{"journal", amount(copied.journal_size)}}});
    if (is_readable) {
        for (const json &one : rows("PRAGMA copy.user_version; PRAGMA copy.journal_mode"))
            file.update(one);
        if (const int version = file["user_version"]; version != SCHEMA_VERSION)
            find("version", {{{"user_version", FORMAT("%d, not %d", version, SCHEMA_VERSION)}}});
        for (const json &one : rows(LOAD_SQL)) {
            if (!one["differences"].is_null())
                find("columns", {{{text(one, "name"), one["differences"]}}});
            readings.emplace_back(one["name"], one["reading"]);
        }
        find("missing-table", rows("SELECT name FROM main.sqlite_master WHERE name NOT GLOB 'sqlite_*' EXCEPT"
                                   " SELECT name FROM copy.sqlite_master WHERE type = 'table' AND rootpage > 0"));
    }
    lay_views();
}

void store::lay_views()
{
    for (const table &one : TABLES) {
        const auto found = std::find_if(readings.begin(), readings.end(),
                                        [&](const auto &reading) { return reading.first == one.name; });
        const std::string reading =
            found == readings.end() ? std::string("SELECT * FROM main.") + one.name : found->second;
        rows(FORMAT("DROP VIEW IF EXISTS temp.%s; CREATE TEMP VIEW %s AS SELECT *%s FROM (%s)", one.name, one.name,
                    words_of(one.name).c_str(), reading.c_str()));
    }
    const char *const counting =
        readings.empty() || rows("SELECT 1 FROM copy.sqlite_master WHERE name = 'sqlite_sequence'").empty() ? "main"
                                                                                                            : "copy";
    rows(FORMAT(
        "DROP VIEW IF EXISTS temp.counters; CREATE TEMP VIEW counters AS SELECT name, seq FROM %s.sqlite_sequence",
        counting));
}

void store::salvage()
{
    json damages = json::array();
    for (const auto &[name, reading] : readings) {
        const auto columns = rows("SELECT * FROM pragma_table_info(?, 'main')", {name}).size();
        std::string places(2 * columns - 1, '?');
        for (size_t i = 1; i < places.size(); i += 2)
            places[i] = ',';
        const statement kept =
            prepared(handle.get(), FORMAT("INSERT OR IGNORE INTO main.%s VALUES(%s)", name.c_str(), places.c_str()));
        std::string complaint;
        for (const char *order : {"", " ORDER BY rowid DESC"}) { // reaches a damaged page from either side
            if (*order != '\0' && complaint.empty())
                continue;
            const statement row = prepared(handle.get(), reading + order);
            while (row && sqlite3_step(row.get()) == SQLITE_ROW) {
                for (int i = 0; i < sqlite3_column_count(row.get()); ++i)
                    sqlite3_bind_value(kept.get(), i + 1, sqlite3_column_value(row.get(), i));
                sqlite3_step(kept.get());
                sqlite3_reset(kept.get());
            }
            if (!row || sqlite3_reset(row.get()) != SQLITE_OK)
                complaint = sqlite3_errmsg(handle.get());
        }
        if (!complaint.empty())
            damages.push_back({{"table", FORMAT("%s: %s", name.c_str(), complaint.c_str())}});
    }
    find("damaged-table", damages);
    readings.clear();
    lay_views();
}

std::string view_of_file(const json &file)
{
    const std::string openers = listed(file["open_in"]);
    const bool sees_all = file["sees_all_processes"];
    const std::string kind = file.value("journal_mode", "") == "wal" ? "write-ahead log" : "rollback journal";
    std::string view = shown(text(file, "path"), BOLD);
    view += shown("  owner " + text(file, "owner") + ", mode " + text(file, "mode") + ", " + amount(file["size"]) +
                  ", " + kind + "; times are UTC");
    view += shown("  open in " +
                  (!openers.empty() ? openers
                   : sees_all       ? "no process"
                                    : "no process that can be seen") +
                  (sees_all ? "" : "; those of other users cannot be seen"));
    if (!file["replaced_in"].empty())
        view += shown("  replaced or deleted, but still open in " + listed(file["replaced_in"]) +
                          ": what that stores is not here",
                      RED);
    if (file["journal_size"] > 0)
        view += shown("  beside it a journal of " + amount(file["journal_size"]) + ": " + text(file, "journal"));
    if (file["log_size"] > 0)
        view += shown("  beside it a write-ahead log of " + amount(file["log_size"]) + ", part of the data");
    return view;
}
