#include "check.h"

#include "text.h"
#include "words.h"

#include <algorithm>
#include <functional>
#include <set>

namespace zel_store
{

namespace
{

/** What is found, and what of it is the same for all rows. */
class checker
{
  public:
    explicit checker(const store &checked) : read(checked) {}

    std::vector<finding> all()
    {
        file();
        if (!read.copy.complaint.empty())
            return found;
        duplicates();
        // Rows that could not be read would be missed by others.
        if (std::all_of(read.tables.begin(), read.tables.end(),
                        [](const auto &one) { return one.second.complaint.empty(); })) {
            orphans();
            counts();
        }
        transfers();
        vocabularies();
        types();
        return found;
    }

  private:
    using condition = std::function<bool(const row &)>;

    void add(finding one)
    {
        found.push_back(std::move(one));
    }

    /** Adds a finding if there are rows of the table to which it applies. */
    void rows_where(const char *table, finding one, const condition &applies)
    {
        for (const row &each : read.rows(table))
            if (applies(each))
                one.rows.push_back(safe(each[0].text));
        if (one.rows.empty())
            return;
        one.table = table;
        one.key = read.tables.at(table).laid_down[0].name;
        add(std::move(one));
    }

    /** The values of a column as a set of ids. */
    std::set<unsigned int> ids(const char *table, int column) const
    {
        std::set<unsigned int> result;
        for (const row &each : read.rows(table))
            result.insert(each[column].id());
        return result;
    }

    void file()
    {
        const file_facts &facts = read.copy.facts;
        if (!read.copy.complaint.empty()) {
            add({"unreadable",
                 "SQLite cannot open the file: " + read.copy.complaint,
                 "It is no database, or its first page is damaged.",
                 "Keep a copy of it. Without it the next start makes an empty store.",
                 "",
                 "",
                 {}});
            return;
        }
        if (facts.is_cut())
            add({"cut",
                 "The file is shorter than it says",
                 format(
                     "%u pages of %u bytes were written, %lld bytes are here: a copy that broke off, or a file system "
                     "that lost its end.",
                     facts.stored_pages, facts.page_size, static_cast<long long>(facts.status.st_size)),
                 "Copy it again, with zel-store copy; if the service's own file is cut, save what show can read.",
                 "",
                 "",
                 {}});
        finding damage = {
            "damaged",
            "SQLite finds the file damaged",
            "Statements that meet the damage fail with code 11, others go on.",
            "Stop the service, keep a copy, and have sqlite3's .recover write what is left into a new file.",
            "",
            "",
            {}};
        std::string complaint;
        for (const row &one : rows_of(read.copy.database.get(), "PRAGMA integrity_check", &complaint))
            if (one[0].text != "ok")
                damage.rows.push_back(safe(one[0].text));
        if (!complaint.empty())
            damage.rows.push_back(safe(complaint));
        if (!damage.rows.empty())
            add(damage);
        if (read.version != SCHEMA_VERSION)
            add({"version",
                 format("The schema's version is %d, not %d", read.version, SCHEMA_VERSION),
                 "The file was made by another version of the library, or its first start broke off.",
                 "The next _common_storage_init writes its own version over it and leaves the tables that are there as "
                 "they are: see whether their columns are told here.",
                 "",
                 "",
                 {}});
        finding missing = {
            "missing-table",
            "Tables are missing",
            "Every operation on them fails. Two programs that start at once on an empty folder can leave "
            "this; without any of the nine the file is another program's, or its first start broke off.",
            "zel-store init with the services stopped, or _common_storage_db_create until it says "
            "ZEL_ERR_NONE.",
            "",
            "",
            {}};
        for (const table &one : TABLES) {
            const stored_table &table = read.tables.at(one.name);
            finding different = {"columns",
                                 std::string(one.name) + " has other columns than are laid down",
                                 "The library reads columns by their position: it takes one for another.",
                                 "Find the program or version that made the table; nothing alters it by itself.",
                                 one.name,
                                 "",
                                 {}};
            if (!table.exists)
                missing.rows.emplace_back(one.name);
            for (size_t i = 0; table.exists && i < std::max(table.found.size(), table.laid_down.size()); ++i) {
                const column none;
                const column &is = i < table.found.size() ? table.found[i] : none;
                const column &should = i < table.laid_down.size() ? table.laid_down[i] : none;
                if (is != should)
                    different.rows.push_back(format("%zu: %s %s instead of %s %s", i, safe(is.name).c_str(),
                                                    safe(is.type).c_str(), should.name.c_str(), should.type.c_str()));
            }
            if (!different.rows.empty())
                add(different);
        }
        if (!missing.rows.empty())
            add(missing);
    }

    void duplicates()
    {
        const auto look = [&](const char *table, int column, finding one) {
            std::map<std::string, int> seen;
            for (const row &each : read.rows(table))
                ++seen[each[column].text];
            rows_where(table, std::move(one), [&](const row &each) { return seen[each[column].text] > 1; });
        };
        look(TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_REQ_ID,
             {"duplicate-request",
              "Requests that share one id",
              "Transfers and recipients of both are taken for one request's; single values come from the first row.",
              "Let the service number its requests itself, from the highest id stored, in one process only.",
              "",
              "",
              {}});
        look(TABLE_PUSH_NOTI_INFO, COLUMN_PUSH_NOTI_INFO_COTENTS_TOKEN,
             {"duplicate-notification",
              "Notifications of one share, several times",
              "Two programs or threads stored the share at once, each before it saw the other's row. Lists name the "
              "share "
              "twice; a deletion by its token takes all of them.",
              "Let one process store notifications.",
              "",
              "",
              {}});
        look(
            TABLE_RECENT_RECEIVER_GROUP, COLUMN_GROUP_INDEX_VALUE,
            {"duplicate-group",
             "Groups that share one number",
             "The number of groups could not be read at one moment, or two programs added a group at once. Members are "
             "offered twice, and numbers above the limit come up.",
             "_common_storage_clear forgets them; or delete the older rows in a copy.",
             "",
             "",
             {}});
    }

    void orphans()
    {
        const auto items = ids(TABLE_CONTENT_INFO, COLUMN_CONTENT_INFO_CONTENT_ID);
        const auto requests = ids(TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_REQ_ID);
        const auto groups = ids(TABLE_RECENT_RECEIVER_GROUP, COLUMN_GROUP_INDEX_VALUE);
        rows_where(TABLE_CONTENT_INFO_STATUS,
                   {"download-without-item",
                    "Downloads whose item is gone",
                    "The share was deleted or expired while its downloads were still listed.",
                    "_common_storage_delete_sync_content_info for each; what they were to fetch is no longer known.",
                    "",
                    "",
                    {}},
                   [&](const row &one) {
                       const long long type = one[COLUMN_CONTENT_SYNC_INFO_TYPE].number;
                       return (type == ZEL_DOWNLOAD_FILE || type == ZEL_DOWNLOAD_THUMBNAIL) &&
                              !items.contains(one[COLUMN_CONTENT_SYNC_INFO_CONTENT_ID].id());
                   });
        rows_where(TABLE_CONTENT_INFO_STATUS,
                   {"upload-without-request",
                    "Uploads whose request is gone",
                    "The service ended between storing transfers and their request, or between two deletions.",
                    "_common_storage_delete_sync_content_info_by_req_id, unless the service completes the request.",
                    "",
                    "",
                    {}},
                   [&](const row &one) {
                       const unsigned int id = one[COLUMN_CONTENT_SYNC_INFO_REQ_ID].id();
                       return one[COLUMN_CONTENT_SYNC_INFO_TYPE].number == ZEL_UPLOAD_FILE && id != 0 &&
                              !requests.contains(id);
                   });
        rows_where(
            TABLE_CONTACT_DETAILS,
            {"recipient-without-request",
             "Recipients without a request",
             "Deleting a request leaves its recipients behind. A new request with the same id gets them as well.",
             "Harmless while request ids are not used again; the wipe takes them.",
             "",
             "",
             {}},
            [&](const row &one) { return !requests.contains(one[COLUMN_CONTACT_DETAILS_REQ_ID].id()); });
        rows_where(TABLE_RECENT_RECEIVER_DETAILS,
                   {"member-without-group",
                    "Recent receivers without a group",
                    "The service ended between adding members and their group. Nobody is offered them, but a new group "
                    "with that number gets them as well.",
                    "_common_storage_delete_recent_receiver_by_group with their number.",
                    "",
                    "",
                    {}},
                   [&](const row &one) { return !groups.contains(one[COLUMN_RECENT_RECEIVER_GROUP_ID].id()); });
    }

    void counts()
    {
        for (const upload &one : read.uploads) {
            const row &request = *one.request;
            const auto status = static_cast<quillo_upload_status_e>(request[COLUMN_UPLOAD_INFO_STATUS].number);
            const auto differs = [&](const char *kind, const std::string &what, int column, size_t rows,
                                     const std::string &meaning, const std::string &advice) {
                if (request[column].number != static_cast<long long>(rows))
                    add({kind,
                         format("Request %u counts %s %s, %zu are here", request[COLUMN_UPLOAD_INFO_REQ_ID].id(),
                                safe(request[column].text).c_str(), what.c_str(), rows),
                         meaning,
                         advice,
                         TABLE_UPLOAD_REQUEST_DATA,
                         read.tables.at(TABLE_UPLOAD_REQUEST_DATA).laid_down[0].name,
                         {request[0].text}});
            };
            if (status != QUILLO_UPLOAD_STATUS_SHARE_RECALLED) // a recalled share gives its transfers up
                differs("file-count", "files", COLUMN_UPLOAD_INFO_FILE_COUNT, one.transfers.size(),
                        "The service ended while it stored the request, a failure detached a file from it for good "
                        "(req_id 0), or files were deleted. Without a row left it counts as completed.",
                        "Send it again, or delete it with _common_storage_delete_upload_info. A service stores "
                        "transfers and recipients first and the request last.");
            differs("recipient-count", "recipients", COLUMN_UPLOAD_INFO_RECIEVERS_COUNT, one.recipients.size(),
                    "The service ended while it stored the request, or an earlier request had the same id.",
                    "Compare with what was asked for before it is sent on.");
            finding open = {"finished-with-open-files",
                            format("Request %u is called %s, but not all of its files are",
                                   request[COLUMN_UPLOAD_INFO_REQ_ID].id(), word_of(status).c_str()),
                            "The status was set before the last file was done, or a file was taken up again since.",
                            "Ask _common_storage_check_all_file_completed_by_req_id before the status is set.",
                            TABLE_CONTENT_INFO_STATUS,
                            read.tables.at(TABLE_CONTENT_INFO_STATUS).laid_down[0].name,
                            {}};
            for (const row *each : one.transfers) {
                const long long at = (*each)[COLUMN_CONTENT_SYNC_INFO_STATUS].number;
                if (at != ZEL_SYNC_COMPLETE && at != ZEL_SYNC_FAILED)
                    open.rows.push_back(safe((*each)[0].text));
            }
            if ((status == QUILLO_UPLOAD_STATUS_FINISHED || status == QUILLO_UPLOAD_STATUS_SHARE_FINISHED) &&
                !open.rows.empty())
                add(open);
        }
    }

    void transfers()
    {
        rows_where(TABLE_CONTENT_INFO_STATUS,
                   {"given-up",
                    "Transfers that were given up",
                    format("Retried %d times and failed: they are no longer listed for a retry.", RETRY_CAP),
                    "Look for the reason in the trace (zel-store trace); to try once more, write the row back with a "
                    "smaller fail_retry_count.",
                    "",
                    "",
                    {}},
                   is_given_up);
        if (!read.copy.facts.openers.empty() || !read.copy.facts.sees_all_processes)
            return;
        rows_where(TABLE_CONTENT_INFO_STATUS,
                   {"interrupted",
                    "Transfers under way, though no process has the store open",
                    "The service ended in the middle of them (or this is a copy of the file).",
                    "Start the service: it goes on at the offset and chunk that are stored here.",
                    "",
                    "",
                    {}},
                   [](const row &one) { return one[COLUMN_CONTENT_SYNC_INFO_STATUS].number == ZEL_SYNC_ONGOING; });
    }

    void vocabularies()
    {
        const auto look = [&](const char *table, int column, const condition &is_known) {
            const std::string name = read.tables.at(table).laid_down[static_cast<size_t>(column)].name;
            rows_where(table,
                       {"unknown-value",
                        std::string(table) + "." + name + " holds what it has no meaning for",
                        "A program stored what it was given unseen; the store checks no value.",
                        "Find the writer: the trace has its statement.",
                        "",
                        "",
                        {}},
                       [&](const row &one) { return !is_known(one); });
        };
        const auto within = [&](const char *table, int column, long long low, long long high) {
            look(table, column,
                 [=](const row &one) { return one[column].number >= low && one[column].number <= high; });
        };
        const auto known = [](auto enumerator) {
            return
                [](const value &stored) { return !word_of(static_cast<decltype(enumerator)>(stored.number)).empty(); };
        };
        const auto in = [&](const char *table, int column, const std::function<bool(const value &)> &is_known) {
            look(table, column, [=](const row &one) { return is_known(one[column]); });
        };
        in(TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_STATUS, known(QUILLO_UPLOAD_STATUS_NONE));
        in(TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_APP_TYPE, known(APP_TYPE_NONE));
        in(TABLE_CONTENT_INFO, COLUMN_CONTENT_INFO_PUSH_STATUS, known(QUILLO_PUSH_STATUS_NONE));
        in(TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_STATUS, known(ZEL_SYNC_TODO));
        in(TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_TYPE, [&](const value &stored) {
            return stored.number != ZEL_UNKNOWN && known(ZEL_UNKNOWN)(stored); // which no stored transfer is
        });
        in(TABLE_PUSH_NOTI_INFO, COLUMN_PUSH_NOTI_INFO_READ_NOTI,
           [](const value &stored) { return !read_state(stored.number).empty(); });
        within(TABLE_CONTENT_INFO, COLUMN_CONTENT_INFO_DOWNLOADED, 0, 1);
        within(TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_WIFI_ONLY, 0, 1);
        within(TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_PERCENTAGE, 0, 100);
        within(TABLE_RECENT_RECEIVER_GROUP, COLUMN_GROUP_INDEX_VALUE, 1, GROUP_LIMIT);
    }

    /** Whole numbers that are stored as something else. */
    void types()
    {
        for (const table &one : TABLES) {
            const stored_table &table = read.tables.at(one.name);
            for (size_t i = 0; i < table.laid_down.size(); ++i) {
                if (table.laid_down[i].type != "INTEGER")
                    continue;
                const std::string name = std::string(one.name) + "." + table.laid_down[i].name;
                const auto is_of = [i](bool floating) {
                    return [=](const row &each) {
                        const int type = each[static_cast<int>(i)].type;
                        return floating ? type == SQLITE_FLOAT : type == SQLITE_TEXT || type == SQLITE_BLOB;
                    };
                };
                rows_where(
                    one.name,
                    {"floating-point",
                     name + " is stored as floating point",
                     "A number from 2^63 on was passed, as a time before 1970 is: it has lost its last digits, and "
                     "comparisons with it are not to be relied on.",
                     "Look at the clock of the device, and at who passes the time.",
                     "",
                     "",
                     {}},
                    is_of(true));
                rows_where(one.name,
                           {"not-a-number",
                            name + " holds text where a number belongs",
                            "No operation of the library writes that; it reads as 0.",
                            "Find the program that writes to the file past the library.",
                            "",
                            "",
                            {}},
                           is_of(false));
            }
        }
    }

    const store &read;
    std::vector<finding> found;
};

} // namespace

std::vector<finding> check(const store &read)
{
    return checker(read).all();
}

std::vector<std::string> finding_lines(const std::vector<finding> &findings)
{
    static constexpr size_t SHOWN = 12;
    std::vector<std::string> lines;
    for (size_t i = 0; i < findings.size(); ++i) {
        const finding &one = findings[i];
        lines.push_back("");
        lines.push_back(coloured(colour::bold, wrapped(format("%zu. %s", i + 1, safe(one.title).c_str()), 3)) + "  [" +
                        one.kind + "]");
        std::string rows = one.key.empty() ? one.table : one.table + " " + one.key;
        for (size_t k = 0; k < std::min(one.rows.size(), SHOWN); ++k)
            rows += (k == 0 ? rows.empty() ? "" : " " : ", ") + one.rows[k];
        if (one.rows.size() > SHOWN)
            rows += format(" and %zu more", one.rows.size() - SHOWN);
        if (!rows.empty())
            lines.push_back("   where  " + wrapped(rows, 10));
        lines.push_back("   means  " + wrapped(one.meaning, 10));
        lines.push_back("   do     " + wrapped(one.advice, 10));
    }
    return lines;
}

} // namespace zel_store
