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

using condition = std::function<bool(const row &)>;

/** Collects what is found. */
class checker
{
  public:
    explicit checker(const store &checked) : read(checked) {}

    std::vector<finding> found;

    void file()
    {
        const file_facts &facts = read.copy.facts;
        if (!read.copy.complaint.empty()) {
            found.push_back(
                {"unreadable", "SQLite cannot open the file: " + read.copy.complaint,
                 "It is no database, or its first page is damaged.",
                 "Keep a copy. Take the file away, and the next start of the service makes an empty store."});
            return;
        }
        if (facts.is_cut())
            found.push_back(
                {"cut",
                 format("The file is cut: it says %u pages of %u bytes and has %lld bytes", facts.stored_pages,
                        facts.page_size, static_cast<long long>(facts.status.st_size)),
                 "A copy that broke off, or a file system that lost the end of the file.",
                 "Copy it again, with zel-store copy. If the service's own file is cut, save what show reads."});
        if (read.version != SCHEMA_VERSION)
            found.push_back({"version", format("The schema's version is %d, not %d", read.version, SCHEMA_VERSION),
                             "Another version of the library made the file, or its first start broke off.",
                             "The next _common_storage_init stamps its own version and leaves the tables as they are: "
                             "what matters is whether their columns are told here."});
        finding missing = {
            "missing-table", "Tables are missing",
            "Every operation on them fails. Two programs that start at once on an empty folder can leave "
            "some out. Without any of the nine it is another program's file, or nobody's yet.",
            "End the programs and run zel-store init."};
        for (const table &one : TABLES) {
            const stored_table &stored = read.tables.at(one.name);
            finding different = {"columns", one.name + std::string(" has other columns than are laid down"),
                                 "The library reads columns by position and takes one for another.",
                                 "Find the version or program that made the table; nothing alters it by itself."};
            for (size_t i = 0; stored.exists && i < std::max(stored.found.size(), stored.laid_down.size()); ++i) {
                const column is = i < stored.found.size() ? stored.found[i] : column{"nothing", ""};
                const column should = i < stored.laid_down.size() ? stored.laid_down[i] : column{"nothing", ""};
                if (is != should)
                    different.rows.push_back(safe(is.name + " " + is.type + " for " + should.name + " " + should.type));
            }
            if (!stored.exists)
                missing.rows.emplace_back(one.name);
            if (!different.rows.empty())
                found.push_back(different);
            if (!stored.complaint.empty())
                found.push_back({"damaged-table",
                                 format("%s: %zu rows can be read, then: %s", one.name, stored.rows.size(),
                                        stored.complaint.c_str()),
                                 "Operations that come to the damaged place fail with code 11.",
                                 "Keep a copy, and have sqlite3's .recover write what is left into a new file."});
        }
        if (!missing.rows.empty())
            found.push_back(missing);
    }

    void contradictions()
    {
        integrity();
        duplicates();
        // Rows that could not be read would be missed by others.
        const auto is_whole = [](const auto &one) { return one.second.complaint.empty(); };
        if (std::all_of(read.tables.begin(), read.tables.end(), is_whole)) {
            orphans();
            counts();
        }
        transfers();
        values();
    }

  private:
    /** Adds a finding with the rows of a table to which it applies, if there are any. */
    void add(const char *table, finding one, const condition &applies)
    {
        for (const row &each : read.rows(table))
            if (applies(each))
                one.rows.push_back(safe(each[0].text));
        one.table = table;
        one.key = read.tables.at(table).laid_down[0].name;
        if (!one.rows.empty())
            found.push_back(std::move(one));
    }

    void integrity()
    {
        finding damage = {
            "damaged", "SQLite finds the file damaged",
            "Operations that come to the damaged place fail with code 11, others go on.",
            "Stop the service, keep a copy, and have sqlite3's .recover write what is left into a new file."};
        std::string complaint;
        for (const row &one : rows_of(read.copy.database.get(), "PRAGMA integrity_check", &complaint))
            if (one[0].text != "ok")
                damage.rows.push_back(safe(one[0].text));
        if (!complaint.empty())
            damage.rows.push_back(safe(complaint));
        if (!damage.rows.empty())
            found.push_back(damage);
    }

    void duplicates()
    {
        const auto look = [&](const char *table, int column, const finding &one) {
            std::map<std::string, int> seen;
            for (const row &each : read.rows(table))
                ++seen[each[column].text];
            add(table, one, [&](const row &each) { return seen[each[column].text] > 1; });
        };
        look(TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_REQ_ID,
             {"duplicate-request", "Requests that share an id",
              "Files and recipients of all of them count as one request's; single values come from the first row.",
              "Let one process number the requests, on from the highest id that is stored."});
        look(TABLE_PUSH_NOTI_INFO, COLUMN_PUSH_NOTI_INFO_COTENTS_TOKEN,
             {"duplicate-notification", "Notifications that share a token",
              "Two programs or threads stored the share at once, each before it saw the other's row. Lists name it "
              "twice.",
              "Let one process store notifications; a deletion by the token takes them all."});
        look(TABLE_RECENT_RECEIVER_GROUP, COLUMN_GROUP_INDEX_VALUE,
             {"duplicate-group", "Groups that share a number",
              "The number of groups could not be read for a moment, or two programs added one. Members are offered "
              "twice.",
              "Only the wipe removes groups."});
    }

    void orphans()
    {
        const auto ids = [&](const char *table, int column) {
            std::set<unsigned int> result;
            for (const row &each : read.rows(table))
                result.insert(each[column].id());
            return result;
        };
        const auto items = ids(TABLE_CONTENT_INFO, COLUMN_CONTENT_INFO_CONTENT_ID);
        const auto requests = ids(TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_REQ_ID);
        const auto groups = ids(TABLE_RECENT_RECEIVER_GROUP, COLUMN_GROUP_INDEX_VALUE);
        const auto is_upload = [](const row &one) {
            return one[COLUMN_CONTENT_SYNC_INFO_TYPE].number == ZEL_UPLOAD_FILE;
        };
        add(TABLE_CONTENT_INFO_STATUS,
            {"download-without-item", "Downloads whose item is gone",
             "The share was deleted or has expired; what they were to fetch is no longer known.",
             "_common_storage_delete_sync_content_info for each."},
            [&](const row &one) {
                return !is_upload(one) && !items.contains(one[COLUMN_CONTENT_SYNC_INFO_CONTENT_ID].id());
            });
        add(TABLE_CONTENT_INFO_STATUS,
            {"upload-without-request", "Uploads whose request is gone",
             "The service ended before it had stored the request, or between the two deletions of one.",
             "_common_storage_delete_sync_content_info_by_req_id, unless the service stores the request again."},
            [&](const row &one) {
                const unsigned int id = one[COLUMN_CONTENT_SYNC_INFO_REQ_ID].id(); // 0: detached by a failure
                return is_upload(one) && id != 0 && !requests.contains(id);
            });
        add(TABLE_CONTACT_DETAILS,
            {"recipient-without-request", "Recipients without a request",
             "Deleting a request leaves them behind. A new request with the same id would get them too.",
             "Nothing, as long as ids are not used again; the wipe takes them."},
            [&](const row &one) { return !requests.contains(one[COLUMN_CONTACT_DETAILS_REQ_ID].id()); });
        add(TABLE_RECENT_RECEIVER_DETAILS,
            {"member-without-group", "Recent receivers without a group",
             "The service ended before it had stored the group. The next group with that number would get them too.",
             "_common_storage_delete_recent_receiver_by_group with the number."},
            [&](const row &one) { return !groups.contains(one[COLUMN_RECENT_RECEIVER_GROUP_ID].id()); });
    }

    void counts()
    {
        for (const upload &one : read.uploads) {
            const row &request = *one.request;
            const auto status = static_cast<quillo_upload_status_e>(request[COLUMN_UPLOAD_INFO_STATUS].number);
            const auto is_this = [&](const row &each) { return &each == &request; };
            const auto compare = [&](int column, size_t rows, const std::string &what, finding differs) {
                differs.title = format("Request %u says %s %s and has %zu", request[COLUMN_UPLOAD_INFO_REQ_ID].id(),
                                       safe(request[column].text).c_str(), what.c_str(), rows);
                if (request[column].number != static_cast<long long>(rows))
                    add(TABLE_UPLOAD_REQUEST_DATA, differs, is_this);
            };
            if (status != QUILLO_UPLOAD_STATUS_SHARE_RECALLED) // which gives its files up
                compare(
                    COLUMN_UPLOAD_INFO_FILE_COUNT, one.transfers.size(), "files",
                    {"file-count", "",
                     "The service ended while it stored the request, a failure has detached a file from it for good, "
                     "or files were deleted. Without any file left it counts as completed.",
                     "Send it again, or _common_storage_delete_upload_info."});
            compare(COLUMN_UPLOAD_INFO_RECIEVERS_COUNT, one.recipients.size(), "recipients",
                    {"recipient-count", "",
                     "The service ended while it stored the request, or an earlier request had the same id.",
                     "Compare with what was asked for before it goes on."});
            if (status == QUILLO_UPLOAD_STATUS_FINISHED || status == QUILLO_UPLOAD_STATUS_SHARE_FINISHED)
                add(TABLE_CONTENT_INFO_STATUS,
                    {"finished-with-open-files",
                     format("Request %u is called %s, but not all of its files are",
                            request[COLUMN_UPLOAD_INFO_REQ_ID].id(), word_of(status).c_str()),
                     "Its status was set too early, or a file was taken up again afterwards.",
                     "Ask _common_storage_check_all_file_completed_by_req_id before the status is set."},
                    [&](const row &each) {
                        const long long at = each[COLUMN_CONTENT_SYNC_INFO_STATUS].number;
                        return at != ZEL_SYNC_COMPLETE && at != ZEL_SYNC_FAILED &&
                               std::find(one.transfers.begin(), one.transfers.end(), &each) != one.transfers.end();
                    });
        }
    }

    void transfers()
    {
        add(TABLE_CONTENT_INFO_STATUS,
            {"given-up", "Transfers that were given up",
             format("They failed and were retried more than %d times: no list for a retry has them.", RETRY_CAP),
             "The trace tells why they failed. A smaller fail_retry_count makes them candidates again."},
            is_given_up);
        if (read.copy.facts.openers.empty() && read.copy.facts.sees_all_processes)
            add(TABLE_CONTENT_INFO_STATUS,
                {"interrupted", "Transfers under way, though no process has the store open",
                 "The service ended in the middle of them; or this is a copy.",
                 "Start the service: it goes on at the offset and chunk that are stored."},
                [](const row &one) { return one[COLUMN_CONTENT_SYNC_INFO_STATUS].number == ZEL_SYNC_ONGOING; });
    }

    /** Values that have no meaning, and whole numbers that are stored as something else. */
    void values()
    {
        const auto within = [](long long low, long long high) {
            return [=](const value &stored) { return stored.number >= low && stored.number <= high; };
        };
        const auto is_kind = [](const value &stored) { // of a stored transfer, which is always of one
            return stored.number != ZEL_UNKNOWN && !known_word<zel_file_sync_type>(stored).empty();
        };
        const auto in = [](auto example) {
            return [](const value &stored) { return !known_word<decltype(example)>(stored).empty(); };
        };
        const struct {
            const char *table;
            int column;
            std::function<bool(const value &)> is_known;
        } vocabularies[] = {
            {TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_STATUS, in(QUILLO_UPLOAD_STATUS_NONE)},
            {TABLE_UPLOAD_REQUEST_DATA, COLUMN_UPLOAD_INFO_APP_TYPE, in(APP_TYPE_NONE)},
            {TABLE_CONTENT_INFO, COLUMN_CONTENT_INFO_PUSH_STATUS, in(QUILLO_PUSH_STATUS_NONE)},
            {TABLE_CONTENT_INFO, COLUMN_CONTENT_INFO_DOWNLOADED, within(0, 1)},
            {TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_TYPE, is_kind},
            {TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_STATUS, in(ZEL_SYNC_TODO)},
            {TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_WIFI_ONLY, within(0, 1)},
            {TABLE_CONTENT_INFO_STATUS, COLUMN_CONTENT_SYNC_INFO_PERCENTAGE, within(0, 100)},
            {TABLE_PUSH_NOTI_INFO, COLUMN_PUSH_NOTI_INFO_READ_NOTI, in(read_state())},
            {TABLE_RECENT_RECEIVER_GROUP, COLUMN_GROUP_INDEX_VALUE, within(1, GROUP_LIMIT)},
        };
        for (const auto &[table, column, is_known] : vocabularies)
            add(table,
                {"unknown-value",
                 table + ("." + read.tables.at(table).laid_down[static_cast<size_t>(column)].name) +
                     " holds what has no meaning there",
                 "A program stored it; the store looks at no value.", "The trace has the statement that wrote it."},
                [&, at = column, &knows = is_known](const row &one) { return !knows(one[at]); });
        for (const auto &[name, table] : read.tables)
            for (size_t i = 0; i < table.laid_down.size(); ++i)
                if (table.laid_down[i].type == "INTEGER")
                    add(name.data(),
                        {"floating-point", std::string(name) + "." + table.laid_down[i].name + " holds no whole number",
                         "From 2^63 on, and so before 1970, a time is stored as floating point: it loses its last "
                         "digits "
                         "and is compared wrongly. A text was written past the library.",
                         "Look at the device's clock, and at who passes the time."},
                        [i](const row &each) {
                            const int type = each[static_cast<int>(i)].type;
                            return type != SQLITE_INTEGER && type != SQLITE_NULL;
                        });
    }

    const store &read;
};

} // namespace

std::vector<finding> check_file(const store &read)
{
    checker check(read);
    check.file();
    return check.found;
}

std::vector<finding> check_all(const store &read)
{
    checker check(read);
    check.file();
    if (read.copy.complaint.empty())
        check.contradictions();
    return check.found;
}

std::vector<std::string> lines_of(const std::vector<finding> &findings)
{
    static constexpr size_t SHOWN = 12;
    std::vector<std::string> lines;
    for (const finding &one : findings) {
        std::string rows = one.key.empty() ? "" : one.table + " " + one.key;
        for (size_t k = 0; k < std::min(one.rows.size(), SHOWN); ++k)
            rows += (k > 0 ? ", " : rows.empty() ? "" : " ") + one.rows[k];
        if (one.rows.size() > SHOWN)
            rows += format(" and %zu more", one.rows.size() - SHOWN);
        lines.push_back("\n" + coloured(colour::bold, wrapped(safe(one.title), 2)) + "  [" + one.kind + "]");
        if (!rows.empty())
            lines.push_back("  where  " + wrapped(rows, 9));
        lines.push_back("  means  " + wrapped(one.means, 9));
        lines.push_back("  do     " + wrapped(one.action, 9));
    }
    return lines;
}

nlohmann::ordered_json json_of(const std::vector<finding> &findings)
{
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const finding &one : findings)
        list.push_back({{"kind", one.kind},
                        {"title", one.title},
                        {"table", one.table},
                        {"key", one.key},
                        {"rows", one.rows},
                        {"means", one.means},
                        {"do", one.action}});
    return list;
}

} // namespace zel_store
