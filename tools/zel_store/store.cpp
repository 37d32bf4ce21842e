#include "store.h"

#include "private_copy.h"
#include "text.h"
#include "zel_common_storage.h"
#include "zel_common_storage/schema.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <glib.h>
#include <pwd.h>
#include <unistd.h>

namespace zel_store
{

using namespace zel_storage;

namespace
{

struct named_value {
    int value;
    const char *word;
};

/** What an SQL function gives: enumerators of the public headers, without what their family begins with. */
struct vocabulary {
    const char *function;
    named_value words[9];
};

#define WORD(family, name)                                                                                             \
    {                                                                                                                  \
        family##name, #name                                                                                            \
    }
constexpr vocabulary VOCABULARIES[] = {
    {"upload_status",
     {WORD(QUILLO_UPLOAD_STATUS_, NONE), WORD(QUILLO_UPLOAD_STATUS_, STARTED), WORD(QUILLO_UPLOAD_STATUS_, PROGRESSING),
      WORD(QUILLO_UPLOAD_STATUS_, FINISHED), WORD(QUILLO_UPLOAD_STATUS_, FAILED),
      WORD(QUILLO_UPLOAD_STATUS_, CANCELLED), WORD(QUILLO_UPLOAD_STATUS_, PAUSED),
      WORD(QUILLO_UPLOAD_STATUS_, SHARE_FINISHED), WORD(QUILLO_UPLOAD_STATUS_, SHARE_RECALLED)}},
    {"push_status",
     {WORD(QUILLO_PUSH_STATUS_, NONE), WORD(QUILLO_PUSH_STATUS_, SHARE_FINISHED),
      WORD(QUILLO_PUSH_STATUS_, SHARE_RECALLED)}},
    {"app_type",
     {WORD(APP_TYPE_, NONE),
      {QUILLO_APP_TYPE, "quillo"},
      {PIKO_APP_TYPE, "piko"},
      {MOSAIC_EVENT_APP_TYPE, "mosaic event"}}},
    {"sync_type", {WORD(ZEL_, UPLOAD_FILE), WORD(ZEL_, DOWNLOAD_THUMBNAIL), WORD(ZEL_, DOWNLOAD_FILE)}},
    {"sync_status",
     {WORD(ZEL_SYNC_, TODO), WORD(ZEL_SYNC_, ONGOING), WORD(ZEL_SYNC_, FAILED), WORD(ZEL_SYNC_, PAUSED),
      WORD(ZEL_SYNC_, PAUSED_TODO), WORD(ZEL_SYNC_, COMPLETE)}},
    {"read_state", {{0, "unread"}, {1, "read"}, {2, "marked for deletion"}}}, // which no header names
};
#undef WORD

void give_word(sqlite3_context *context, int, sqlite3_value **arguments)
{
    const long long number = sqlite3_value_int64(arguments[0]);
    for (const named_value &one : static_cast<const vocabulary *>(sqlite3_user_data(context))->words) {
        if (!one.word || number != one.value || sqlite3_value_type(arguments[0]) == SQLITE_NULL)
            continue;
        std::string word = one.word;
        std::transform(word.begin(), word.end(), word.begin(),
                       [](char letter) { return letter == '_' ? ' ' : g_ascii_tolower(letter); });
        sqlite3_result_text(context, word.c_str(), -1, SQLITE_TRANSIENT);
    }
}

template <int NUMBER> void give_number(sqlite3_context *context, int, sqlite3_value **)
{
    sqlite3_result_int(context, NUMBER);
}

/** Whether a column holds what is shown shortened: numbers, tokens, keys, and addresses that may hold them. */
bool is_secret(const std::string &name)
{
    static constexpr const char *PARTS[] = {"phone",    "msisdn",    "to_list", "value", "reserv",
                                            "original", "thumbnail", "_token",  "_key"};
    return std::any_of(std::begin(PARTS), std::end(PARTS),
                       [&](const char *part) { return name.find(part) != std::string::npos; });
}

/** Who else has the file open, found by its device and number. */
void find_openers(json &file, const struct stat &wanted)
{
    namespace fs = std::filesystem;
    std::error_code error;
    file["open_in"] = json::array();
    file["sees_all_processes"] = true;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc", error)) {
        const auto id = static_cast<pid_t>(std::strtol(entry.path().filename().c_str(), nullptr, 10));
        bool has_it = false;
        for (fs::directory_iterator one(entry.path() / "fd", error), end; id > 0 && !error && one != end;
             one.increment(error)) {
            struct stat status = {};
            has_it = has_it || (stat(one->path().c_str(), &status) == 0 && status.st_dev == wanted.st_dev &&
                                status.st_ino == wanted.st_ino);
        }
        if (id > 0 && error == std::errc::permission_denied)
            file["sees_all_processes"] = false;
        std::string name;
        if (has_it && id != getpid() && std::getline(std::ifstream(entry.path() / "comm"), name))
            file["open_in"].push_back({{"pid", id}, {"name", name}});
    }
}

json describe(const std::string &path, const image &taken)
{
    const passwd *const owner = getpwuid(taken.status.st_uid);
    const auto size_of = [](const std::optional<std::string> &bytes) { return bytes ? json(bytes->size()) : json(); };
    const bool uses_log = taken.main.size() >= 100 && taken.main[18] == 2;
    json file = {{"path", std::filesystem::absolute(path).lexically_normal().string()},
                 {"owner", owner ? owner->pw_name : std::to_string(taken.status.st_uid)},
                 {"mode", format("%04o", taken.status.st_mode & 07777U)},
                 {"size", taken.main.size()},
                 {"journal_mode", uses_log ? "wal" : "delete"},
                 {"journal_size", size_of(taken.journal)},
                 {"log_size", size_of(taken.log)}};
    find_openers(file, taken.status);
    return file;
}

void add(json &findings, const char *kind, const std::string &title, const char *means, const char *action,
         const json &rows = json::array())
{
    findings.push_back({{"kind", kind}, {"title", title}, {"means", means}, {"do", action}, {"rows", rows}});
}

/** Copies the rows of a table that can be read; around a damaged page both from the front and from the end. */
std::string load(sqlite3 *database, const std::string &name, const std::string &columns)
{
    std::string complaint;
    for (const char *order : {"", " ORDER BY rowid DESC"}) {
        sqlite3_stmt *reading = nullptr;
        sqlite3_stmt *writing = nullptr;
        const std::string select = format("SELECT %s FROM copy.%s%s", columns.c_str(), name.c_str(), order);
        sqlite3_prepare_v2(database, select.c_str(), -1, &reading, nullptr);
        std::string places = "?";
        for (int i = 1; i < sqlite3_column_count(reading); ++i)
            places += ",?";
        const std::string insert = format("INSERT OR IGNORE INTO main.%s VALUES(%s)", name.c_str(), places.c_str());
        sqlite3_prepare_v2(database, insert.c_str(), -1, &writing, nullptr);
        int code = reading ? SQLITE_ROW : SQLITE_ERROR;
        while (code == SQLITE_ROW && (code = sqlite3_step(reading)) == SQLITE_ROW) {
            for (int i = 0; i < sqlite3_column_count(reading); ++i)
                sqlite3_bind_value(writing, i + 1, sqlite3_column_value(reading, i));
            sqlite3_step(writing);
            sqlite3_reset(writing);
        }
        const std::string failure = code == SQLITE_DONE ? "" : sqlite3_errmsg(database);
        sqlite3_finalize(reading);
        sqlite3_finalize(writing);
        if (failure.empty())
            break;
        complaint = failure;
    }
    return complaint;
}

/** Fills the tables in memory and says what is missing or different. */
void load_tables(store &read)
{
    sqlite3 *const database = read.database.get();
    json missing = json::array();
    for (const table &one : TABLES) {
        const auto info = [&](const char *schema) {
            return std::string("pragma_table_info('") + one.name + "', '" + schema + "')";
        };
        const json columns = rows_of(database, "SELECT laid.name AS name, laid.type AS type, found.name AS found, "
                                               "found.type AS found_type FROM " +
                                                   info("main") + " AS laid LEFT JOIN " + info("copy") +
                                                   " AS found USING (cid) ORDER BY cid");
        if (columns[0]["found"].is_null()) {
            missing.push_back(one.name);
            continue;
        }
        json differences = json::array();
        std::string names; // the library reads by position
        for (const json &each : columns) {
            if (each["name"] != each["found"] || each["type"] != each["found_type"])
                differences.push_back(text(each, "found") + " " + text(each, "found_type") + " for " +
                                      text(each, "name") + " " + text(each, "type"));
            names += names.empty() ? "" : ",";
            names += each["found"].is_null() ? "NULL" : "\"" + each["found"].get<std::string>() + "\"";
        }
        if (!differences.empty())
            add(read.findings, "columns", one.name + std::string(" has other columns than are laid down"),
                "The library reads columns by position and takes one for another.",
                "Find the version or program that made the table; nothing alters it by itself.", differences);
        if (const std::string complaint = load(database, one.name, names); !complaint.empty())
            add(read.findings, "damaged-table", one.name + std::string(" cannot be read whole: ") + complaint,
                "Operations that come to the damaged place fail with code 11.",
                "Keep a copy, and have sqlite3's .recover write what is left into a new file.");
    }
    if (!missing.empty())
        add(read.findings, "missing-table", "Tables are missing",
            "Every operation on them fails. Two programs that start at once on an empty folder can leave some out; "
            "without any of the nine it is another program's file, or nobody's yet.",
            "End the programs and run zel-store init.", missing);
    // Some ids are written as the negative number of the same 32 bits.
    sqlite3_exec(database,
                 "UPDATE content_info_status SET req_id = req_id & 4294967295, content_id = content_id & 4294967295,"
                 " offset = offset & 4294967295;"
                 "UPDATE upload_request_data SET req_id = req_id & 4294967295;"
                 "UPDATE contact_details SET req_id = req_id & 4294967295",
                 nullptr, nullptr, nullptr);
}

void open_image(store &read, const image &taken)
{
    const scratch_files files(taken);
    sqlite3 *database = nullptr;
    sqlite3_open(":memory:", &database);
    read.database.reset(database);
    for (const vocabulary &one : VOCABULARIES)
        sqlite3_create_function(database, one.function, 1, SQLITE_UTF8, const_cast<vocabulary *>(&one), give_word,
                                nullptr, nullptr);
    sqlite3_create_function(database, "batch_limit", 0, SQLITE_UTF8, nullptr, give_number<BATCH_LIMIT>, nullptr,
                            nullptr);
    sqlite3_create_function(database, "retry_cap", 0, SQLITE_UTF8, nullptr, give_number<RETRY_CAP>, nullptr, nullptr);
    sqlite3_create_function(database, "group_limit", 0, SQLITE_UTF8, nullptr, give_number<GROUP_LIMIT>, nullptr,
                            nullptr);
    for (const table &one : TABLES)
        sqlite3_exec(database, one.create, nullptr, nullptr, nullptr);
    // The first look undoes what was broken off. Exclusive: a log needs no shared memory then. With a writable schema a
    // file that is cut can be read up to there.
    std::string complaint;
    sqlite3_exec(database, "PRAGMA locking_mode = EXCLUSIVE; PRAGMA writable_schema = ON", nullptr, nullptr, nullptr);
    rows_of(database, "ATTACH '" + files.folder + "/store' AS copy", &complaint);
    if (complaint.empty())
        rows_of(database, "SELECT count(*) FROM copy.sqlite_master", &complaint);
    if (complaint.empty())
        return;
    read.is_readable = false;
    add(read.findings, "unreadable", "SQLite cannot open the file: " + complaint,
        "It is no database, or its first page is damaged.",
        "Keep a copy. Take the file away, and the next start of the service makes an empty store.");
}

} // namespace

json rows_of(sqlite3 *database, const std::string &statement, std::string *complaint)
{
    json rows = json::array();
    sqlite3_stmt *prepared = nullptr;
    int code = sqlite3_prepare_v2(database, statement.c_str(), -1, &prepared, nullptr);
    while ((code == SQLITE_OK || code == SQLITE_ROW) && (code = sqlite3_step(prepared)) == SQLITE_ROW) {
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
    if (code != SQLITE_DONE && complaint)
        *complaint = sqlite3_errmsg(database);
    sqlite3_finalize(prepared);
    return rows;
}

json store::rows(const std::string &statement) const
{
    json found = rows_of(database.get(), statement);
    for (json &row : found)
        for (const auto &column : row.items())
            if (column.value().is_string() && !shows_secrets && is_secret(column.key()))
                column.value() = shortened(column.value().get_ref<const std::string &>());
    return found;
}

std::string store_path(const std::string &named)
{
    std::error_code error;
    if (!std::filesystem::is_directory(named, error))
        return named;
    return (std::filesystem::path(named) / std::filesystem::path(ZEL_DATABASE).filename()).string();
}

store::store(const std::string &path, bool with_secrets) : shows_secrets(with_secrets)
{
    const image taken = read_consistently(path);
    file = describe(path, taken);
    open_image(*this, taken);
    const auto header = [&](size_t at) { // a number of four bytes; of a file that is too short 0
        unsigned int number = 0;
        for (size_t i = at; taken.main.size() >= 100 && i < at + 4; ++i)
            number = number << 8 | static_cast<unsigned char>(taken.main[i]);
        return number;
    };
    const json version = rows_of(database.get(), "PRAGMA copy.user_version");
    file["version"] = version.empty() ? json() : version[0]["user_version"];
    if (!is_readable)
        return;
    // The number of pages counts if the version that wrote it was the last to change the file, and the log has no more.
    const unsigned int page_size = header(16) >> 16 == 1 ? 65536 : header(16) >> 16;
    if (!taken.journal && !taken.log && header(24) == header(92) &&
        static_cast<unsigned long long>(page_size) * header(28) > taken.main.size())
        add(findings, "cut",
            format("The file is cut: it says %u pages of %u bytes and has %zu bytes", header(28), page_size,
                   taken.main.size()),
            "A copy that broke off, or a file system that lost the end of the file.",
            "Copy it again, with zel-store copy. If the service's own file is cut, save what show reads.");
    if (file["version"] != SCHEMA_VERSION)
        add(findings, "version",
            format("The schema's version is %s, not %d", file["version"].dump().c_str(), SCHEMA_VERSION),
            "Another version of the library made the file, or its first start broke off.",
            "The next _common_storage_init stamps its own version and leaves the tables as they are: what matters is "
            "whether their columns are told here.");
    load_tables(*this);
}

std::string text_of(const json &document, int indentation)
{
    return document.dump(indentation, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace zel_store
