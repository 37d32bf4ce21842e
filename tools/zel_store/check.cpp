/* Is a store sound, and does it contradict itself? */

#include "commands.h"
#include "text.h"
#include "zel_common_storage/schema.h"

#include <algorithm>
#include <cstdio>

namespace zel_store
{

namespace
{

/** A contradiction: the statement gives the rows that are in it, by a column that names them. */
struct contradiction {
    const char *kind, *table, *statement, *title, *means, *action;
};

#define UPLOAD "sync_type(sync_type) = 'upload file'"
#define FILES_OF_REQUEST "(SELECT count(*) FROM content_info_status AS t WHERE t.req_id = u.req_id AND " UPLOAD ")"
#define PEOPLE_OF_REQUEST "(SELECT count(*) FROM contact_details AS c WHERE c.req_id = u.req_id)"

constexpr contradiction CONTRADICTIONS[] = {
    {"duplicate-request", "upload_request_data",
     "SELECT unique_id FROM upload_request_data WHERE req_id IN (SELECT req_id FROM upload_request_data GROUP BY 1 "
     "HAVING "
     "count(*) > 1)",
     "Requests share an id",
     "Files and recipients of all of them count as one's; single values come from the first row.",
     "Let one process number the requests, on from the highest id that is stored."},
    {"duplicate-notification", "push_noti_info",
     "SELECT id FROM push_noti_info WHERE contents_token IN (SELECT contents_token FROM push_noti_info GROUP BY 1 "
     "HAVING "
     "count(*) > 1)",
     "Notifications share a token",
     "Two programs or threads stored the share at once, each before it saw the other's row. Lists name it twice.",
     "Let one process store notifications; a deletion by the token takes them all."},
    {"duplicate-group", "recent_receiver_group",
     "SELECT id FROM recent_receiver_group WHERE index_value IN (SELECT index_value FROM recent_receiver_group GROUP "
     "BY 1 "
     "HAVING count(*) > 1)",
     "Groups share a number",
     "The number of groups could not be read for a moment, or two programs added one. Members are offered twice.",
     "Only the wipe removes groups."},
    {"download-without-item", "content_info_status",
     "SELECT sync_id FROM content_info_status WHERE sync_type(sync_type) LIKE 'download%' AND content_id NOT IN "
     "(SELECT "
     "content_id FROM content_info)",
     "Downloads whose item is gone",
     "The share was deleted or has expired; what they were to fetch is no longer known.",
     "_common_storage_delete_sync_content_info for each."},
    {"upload-without-request", "content_info_status",
     "SELECT sync_id FROM content_info_status WHERE " UPLOAD " AND req_id <> 0 AND req_id NOT IN (SELECT req_id FROM "
     "upload_request_data)",
     "Uploads whose request is gone",
     "The service ended before it had stored the request, or between the two deletions of one.",
     "_common_storage_delete_sync_content_info_by_req_id, unless the service stores the request again."},
    {"recipient-without-request", "contact_details",
     "SELECT id FROM contact_details WHERE req_id NOT IN (SELECT req_id FROM upload_request_data)",
     "Recipients without a request",
     "Deleting a request leaves them behind. A new request with the same id would get them too.",
     "Nothing, as long as ids are not used again; the wipe takes them."},
    {"member-without-group", "recent_receiver_details",
     "SELECT id FROM recent_receiver_details WHERE group_id NOT IN (SELECT index_value FROM recent_receiver_group)",
     "Recent receivers without a group",
     "The service ended before it had stored the group. The next group with that number would get them too.",
     "_common_storage_delete_recent_receiver_by_group with the number."},
    {"file-count", "upload_request_data",
     "SELECT format('%lld: says %lld, has %lld', unique_id, file_count, " FILES_OF_REQUEST ") AS unique_id FROM "
     "upload_request_data AS u WHERE upload_status(status) IS NOT 'share recalled' AND file_count <> " FILES_OF_REQUEST,
     "A request's number of files is not that of its transfers",
     "The service ended while it stored the request, a failure has detached a file from it for good, or files were "
     "deleted. Without any file left it counts as completed.",
     "Send it again, or _common_storage_delete_upload_info."},
    {"recipient-count", "upload_request_data",
     "SELECT format('%lld: says %lld, has %lld', unique_id, receiver_count, " PEOPLE_OF_REQUEST ") AS unique_id FROM "
     "upload_request_data AS u WHERE receiver_count <> " PEOPLE_OF_REQUEST,
     "A request's number of recipients is not that of its rows",
     "The service ended while it stored the request, or an earlier request had the same id.",
     "Compare with what was asked for before it goes on."},
    {"finished-with-open-files", "content_info_status",
     "SELECT sync_id FROM content_info_status AS t WHERE " UPLOAD
     " AND sync_status(status) NOT IN ('complete', 'failed') "
     "AND EXISTS (SELECT 1 FROM upload_request_data AS u WHERE u.req_id = t.req_id AND upload_status(u.status) IN "
     "('finished', 'share finished'))",
     "Files are open, though their request is called finished",
     "Its status was set too early, or a file was taken up again afterwards.",
     "Ask _common_storage_check_all_file_completed_by_req_id before the status is set."},
    {"given-up", "content_info_status",
     "SELECT sync_id FROM content_info_status WHERE sync_status(status) = 'failed' AND fail_retry_count > retry_cap()",
     "Transfers were given up", "They failed, and were retried so often that no list for a retry has them any more.",
     "The trace tells why they failed. A smaller fail_retry_count makes them candidates again."},
    {"interrupted", "content_info_status",
     "SELECT sync_id FROM content_info_status WHERE sync_status(status) = 'ongoing'",
     "Transfers are under way, though no process has the store open",
     "The service ended in the middle of them; or this is a copy.",
     "Start the service: it goes on at the offset and chunk that are stored."},
};

/** Where a column holds what has no meaning there; without a push status nothing was reported. */
constexpr std::pair<const char *, const char *> VOCABULARIES[] = {
    {"upload_request_data", "upload_status(status) IS NULL"},
    {"upload_request_data", "app_type(app_type) IS NULL"},
    {"content_info", "push_status(coalesce(push_status, 0)) IS NULL"},
    {"content_info", "downloaded NOT IN (0, 1)"},
    {"content_info_status", "sync_type(sync_type) IS NULL"},
    {"content_info_status", "sync_status(status) IS NULL"},
    {"content_info_status", "wifi_only NOT IN (0, 1)"},
    {"content_info_status", "percentage NOT BETWEEN 0 AND 100"},
    {"push_noti_info", "read_state(read_noti) IS NULL"},
    {"recent_receiver_group", "index_value NOT BETWEEN 1 AND group_limit()"},
};

json check_all(const store &read)
{
    json findings = read.findings;
    // Adds a finding if the statement gives any rows.
    const auto add = [&](const contradiction &one, const std::string &statement, const std::string &title) {
        json rows = json::array();
        std::string key;
        for (const json &row : rows_of(read.database.get(), statement)) {
            key = row.begin().key();
            rows.push_back(text(row, key.c_str()));
        }
        if (!rows.empty())
            findings.push_back({{"kind", one.kind},
                                {"title", title},
                                {"means", one.means},
                                {"do", one.action},
                                {"table", one.table},
                                {"key", key},
                                {"rows", rows}});
    };
    add({"damaged", "", "", "", "Operations that come to the damaged place fail with code 11, others go on.",
         "Stop the service, keep a copy, and have sqlite3's .recover write what is left into a new file."},
        "SELECT integrity_check AS problem FROM pragma_integrity_check('copy') WHERE integrity_check <> 'ok'",
        "SQLite finds the file damaged");
    // Rows that could not be read would be missed by others.
    if (std::any_of(findings.begin(), findings.end(), [](const json &one) {
            return one["kind"] == "damaged" || one["kind"] == "damaged-table" || one["kind"] == "cut";
        }))
        return findings;
    for (const contradiction &one : CONTRADICTIONS)
        if (std::string_view(one.kind) != "interrupted" ||
            (read.file["open_in"].empty() && read.file["sees_all_processes"]))
            add(one, one.statement, one.title);
    for (const auto &[table, condition] : VOCABULARIES)
        add({"unknown-value", table, "", "", "A program stored it; the store looks at no value.",
             "The trace has the statement that wrote it."},
            std::string("SELECT * FROM ") + table + " WHERE " + condition, table + (": " + std::string(condition)));
    for (const zel_storage::table &one : zel_storage::TABLES)
        for (const json &column : rows_of(read.database.get(), std::string("SELECT name FROM pragma_table_info('") +
                                                                   one.name + "', 'main') WHERE type = 'INTEGER'"))
            add({"floating-point", one.name, "", "",
                 "From 2^63 on, and so before 1970, a time is stored as floating point: it loses its last digits and "
                 "is "
                 "compared wrongly. A text was written past the library.",
                 "Look at the device's clock, and at who passes the time."},
                std::string("SELECT * FROM ") + one.name + " WHERE typeof(" + text(column, "name") +
                    ") NOT IN ('integer', 'null')",
                one.name + ("." + text(column, "name")) + " holds no whole number");
    return findings;
}

} // namespace

int check(const std::string &path, bool as_json)
{
    static constexpr size_t SHOWN = 12;
    const store read(path);
    const json findings = read.is_readable ? check_all(read) : read.findings;
    const int status = !read.is_readable ? CANNOT_READ : findings.empty() ? FINE : FINDINGS;
    if (as_json) {
        std::fputs(text_of({{"store", read.file}, {"findings", findings}}).c_str(), stdout);
        return status;
    }
    for (const std::string &line : file_lines(read.file))
        print(line);
    for (const json &one : findings) {
        std::string where = text(one, "table") + (text(one, "key").empty() ? "" : " " + text(one, "key") + " ");
        const json &rows = one["rows"];
        for (size_t i = 0; i < std::min(rows.size(), SHOWN); ++i)
            where += (i > 0 ? ", " : "") + safe(rows[i].get<std::string>());
        if (rows.size() > SHOWN)
            where += format(" and %zu more", rows.size() - SHOWN);
        std::printf("\n%s\n",
                    coloured(colour::bold, wrapped(text(one, "title") + "  [" + text(one, "kind") + "]", 2)).c_str());
        for (const auto &[label, what] :
             {std::pair("where", where), std::pair("means", text(one, "means")), std::pair("do", text(one, "do"))})
            if (!what.empty())
                std::printf("  %-5s  %s\n", label, wrapped(what, 9).c_str());
    }
    std::printf("\n%s\n", findings.empty() ? coloured(colour::green, "Sound: nothing was found.").c_str()
                                           : coloured(colour::red, format("Findings: %zu.", findings.size())).c_str());
    return status;
}

} // namespace zel_store
