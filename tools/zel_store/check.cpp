/* Is a store sound, and does it contradict itself? */

#include "zel_store.h"

#include <algorithm>
#include <cstdio>

namespace
{

/** The statements give the rows that are in a contradiction, by a column that names them. */
constexpr struct {
    const char *kind, *table, *statement;
} CONTRADICTIONS[] = {
    {"duplicate-request", "upload_request_data",
     R"(SELECT unique_id FROM upload_request_data
        WHERE req_id IN (SELECT req_id FROM upload_request_data GROUP BY 1 HAVING count(*) > 1))"},
    {"duplicate-notification", "push_noti_info",
     R"(SELECT id FROM push_noti_info
        WHERE contents_token IN (SELECT contents_token FROM push_noti_info GROUP BY 1 HAVING count(*) > 1))"},
    {"duplicate-group", "recent_receiver_group",
     R"(SELECT id FROM recent_receiver_group
        WHERE index_value IN (SELECT index_value FROM recent_receiver_group GROUP BY 1 HAVING count(*) > 1))"},
    {"download-without-item", "content_info_status",
     R"(SELECT sync_id FROM content_info_status
        WHERE sync_type_word LIKE 'download%' AND content_id NOT IN (SELECT content_id FROM content_info))"},
    {"upload-without-request", "content_info_status",
     R"(SELECT sync_id FROM content_info_status WHERE sync_type_word = 'upload file' AND req_id <> 0
        AND req_id NOT IN (SELECT req_id FROM upload_request_data))"},
    {"recipient-without-request", "contact_details",
     "SELECT id FROM contact_details WHERE req_id NOT IN (SELECT req_id FROM upload_request_data)"},
    {"member-without-group", "recent_receiver_details",
     "SELECT id FROM recent_receiver_details WHERE group_id NOT IN (SELECT index_value FROM recent_receiver_group)"},
    {"file-count", "upload_request_data",
     R"(SELECT format('%d: says %d, has %d', unique_id, file_count, count(sync_id)) AS unique_id
        FROM upload_request_data AS u LEFT JOIN content_info_status AS t
             ON t.req_id = u.req_id AND sync_type_word = 'upload file'
        WHERE u.status_word <> 'share recalled' GROUP BY u.unique_id HAVING file_count <> count(sync_id))"},
    {"recipient-count", "upload_request_data",
     R"(SELECT format('%d: says %d, has %d', unique_id, receiver_count, count(id)) AS unique_id
        FROM upload_request_data AS u LEFT JOIN contact_details USING (req_id)
        GROUP BY u.unique_id HAVING receiver_count <> count(id))"},
    {"finished-with-open-files", "content_info_status",
     R"(SELECT sync_id FROM content_info_status
        WHERE sync_type_word = 'upload file' AND status_word NOT IN ('complete', 'failed')
        AND req_id IN (SELECT req_id FROM upload_request_data WHERE status_word LIKE '%finished'))"},
    {"given-up", "content_info_status",
     "SELECT sync_id FROM content_info_status, limits WHERE status_word = 'failed' AND fail_retry_count > retries"},
    {"interrupted", "content_info_status", "SELECT sync_id FROM content_info_status WHERE status_word = 'ongoing'"},
};

/** What columns may hold: in their vocabulary or range, and whole numbers in all that are to hold numbers. */
constexpr char COLUMNS[] = R"(
    SELECT t, kind, format('SELECT %s || '': %s '' || coalesce(%s, ''NULL'') AS %s FROM %s WHERE %s', k.name, c, c, k.name,
                           t, condition) AS statement
    FROM (SELECT t.name AS t, c.name AS c, 'floating-point' AS kind,
                 format('typeof(%s) NOT IN (''integer'', ''null'')', c.name) AS condition
          FROM main.sqlite_master AS t, pragma_table_info(t.name) AS c WHERE c.type = 'INTEGER'
          UNION ALL SELECT t.name, replace(c.name, '_word', ''), 'unknown-value', c.name || ' LIKE ''?%'''
          FROM main.sqlite_master AS t, pragma_table_xinfo(t.name) AS c WHERE c.hidden
          UNION ALL SELECT column1, column2, 'unknown-value', column2 || column3 FROM (VALUES
              ('content_info', 'downloaded', ' NOT IN (0, 1)'), ('content_info_status', 'wifi_only', ' NOT IN (0, 1)'),
              ('content_info_status', 'percentage', ' NOT BETWEEN 0 AND 100'),
              ('recent_receiver_group', 'index_value', ' NOT BETWEEN 1 AND (SELECT groups FROM limits)')))
    JOIN pragma_table_info(t) AS k ON k.pk)";

void check_all(store &read)
{
    std::string complaint;
    const json damages = read.database.rows("PRAGMA copy.integrity_check", {}, &complaint);
    if (!damages.empty() && damages[0]["integrity_check"] != "ok")
        read.find("damaged", "", damages);
    // Rows that could not be read would be missed by others.
    if (std::any_of(read.findings.begin(), read.findings.end(), [](const json &one) {
            return one["kind"] == "damaged" || one["kind"] == "damaged-table" || one["kind"] == "cut";
        }))
        return;
    const bool is_unused = read.file["open_in"].empty() && read.file["sees_all_processes"];
    for (const auto &[kind, table, statement] : CONTRADICTIONS)
        if (is_unused || std::string_view(kind) != "interrupted")
            read.find(kind, table, read.database.rows(statement));
    for (const json &one : read.database.rows(COLUMNS))
        read.find(one["kind"], one["t"], read.database.rows(one["statement"]));
}

} // namespace

int check(const options &wanted)
{
    static constexpr size_t SHOWN = 12;
    store read(wanted.store);
    if (read.is_readable)
        check_all(read);
    const bool is_sound = read.findings.empty();
    const int status = !read.is_readable ? CANNOT_READ : is_sound ? FINE : FINDINGS;
    if (wanted.as_json) {
        std::fputs(written({{"store", read.file}, {"findings", read.findings}}).c_str(), stdout);
        return status;
    }
    for (const std::string &line : lines_of_file(read.file))
        std::puts(line.c_str());
    for (const json &one : read.findings) {
        std::string where = text(one, "table") + " " + text(one, "key");
        const json &rows = one["rows"];
        for (size_t i = 0; i < std::min(rows.size(), SHOWN); ++i)
            where += (i > 0 ? ", " : " ") + rows[i].get<std::string>();
        if (rows.size() > SHOWN)
            where += format(" and %zu more", rows.size() - SHOWN);
        std::puts("");
        print(text(one, "title") + "  [" + text(one, "kind") + "]", BOLD);
        print_labelled("where", where);
        print_labelled("means", text(one, "means"));
        print_labelled("do", text(one, "do"));
    }
    std::puts("");
    print(is_sound ? "Sound: nothing was found." : format("Findings: %zu.", read.findings.size()),
          is_sound ? GREEN : RED);
    return status;
}
