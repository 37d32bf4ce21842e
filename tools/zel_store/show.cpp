/* A store at a glance. SQL puts the lines together; what is here besides are the functions that it uses. */

#include "zel_common_storage/schema.h"
#include "zel_store.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

namespace
{

constexpr char SUMMARY[] = R"(
CREATE TEMP TABLE paces (sync_id PRIMARY KEY, pace);
CREATE TEMP TABLE summary AS
    SELECT column1 AS kind, count(*) FILTER (WHERE status_word = 'ongoing' AND fail_retry_count = 0) AS in_use,
           count(*) FILTER (WHERE status_word = 'ongoing' AND fail_retry_count > 0) AS retries,
           count(*) FILTER (WHERE status_word = 'todo') AS waiting,
           count(*) FILTER (WHERE status_word LIKE 'paused%') AS paused,
           count(*) FILTER (WHERE status_word = 'failed' AND fail_retry_count <= limits.retries) AS to_retry,
           count(*) FILTER (WHERE status_word = 'failed' AND fail_retry_count > limits.retries) AS given_up, batch
    FROM (VALUES ('upload file'), ('download thumbnail'), ('download file')) JOIN limits
    LEFT JOIN content_info_status ON sync_type_word = column1 GROUP BY column1 ORDER BY column1 DESC;
)";

/** Leaves the request ?1 and the share ?2, or one of them if the other is ''. */
constexpr char NARROWING[] = R"(
DELETE FROM upload_request_data WHERE ?1 NOT IN ('', req_id || '') OR ?2 NOT IN ('', coalesce(contents_token, ''));
DELETE FROM contact_details WHERE req_id NOT IN (SELECT req_id FROM upload_request_data);
DELETE FROM push_noti_info WHERE ?1 <> '' OR ?2 <> contents_token;
DELETE FROM content_info WHERE ?1 <> '' OR ?2 <> contents_token;
DELETE FROM content_info_status WHERE (?1 NOT IN ('', req_id || '') OR ?2 NOT IN ('', contents_token))
    AND req_id NOT IN (SELECT req_id FROM upload_request_data)
    AND content_id NOT IN (SELECT content_id FROM content_info);
DELETE FROM recent_receiver_group; DELETE FROM recent_receiver_details;
DELETE FROM unique_data; DELETE FROM folder_info;
)";

/** A share is its notification, its items, or both; newest first. They are joined before tokens are shortened. */
constexpr char SHARES[] = R"(
CREATE TEMP TABLE shares AS SELECT contents_token, id AS notification FROM
    (SELECT contents_token FROM push_noti_info UNION SELECT contents_token FROM content_info)
    LEFT JOIN push_noti_info USING (contents_token) ORDER BY received_time DESC;
CREATE TEMP TABLE items AS
    SELECT shares.rowid AS share, content_id FROM shares JOIN content_info USING (contents_token);
)";

/** Numbers, tokens, keys, and addresses that may hold them. */
constexpr char SHORTENING[] = R"(
SELECT format('UPDATE %w SET ', t.name) || replace('@ = iif(length(@) >= 8 AND @ NOT GLOB ''*[^!-~]*'', substr(@, 1, 3)' ||
          ' || ''…'' || substr(@, -2), ''…'') WHERE @ <> ''''', '@', c.name) AS statement
FROM (SELECT name FROM main.sqlite_master WHERE type = 'table' UNION SELECT 'shares') AS t,
     pragma_table_info(t.name) AS c JOIN (VALUES ('phone_no'), ('%msisdn'), ('to_list'), ('value'), ('reserv%'),
     ('%original'), ('%thumbnail'), ('%_token'), ('%_key')) ON c.name LIKE column1)";

/** The lines by section and place in it; those of what belongs to an entry stand behind it, by id and part. */
constexpr char LINES[] = R"(
CREATE TEMP VIEW transfers AS
    SELECT *, CASE status_word WHEN 'complete' THEN 32 WHEN 'failed' THEN 31 ELSE 0 END AS style,
        format('  %!-20s %-11s %s%s %3d %%', iif(length(label) > 20, substr(label, 1, 19) || '…', label), status_word,
               substr('██████████', 1, done / 10), substr('··········', done / 10 + 1), done) || coalesce(pace, '')
        || iif(is_upload AND status_word <> 'complete', format('  chunk %d at %d', chunk_no, offset), '')
        || iif(fail_retry_count > 0, '  retry ' || fail_retry_count, '')
        || iif(status_word = 'failed' AND fail_retry_count > retries, ', given up', '')
        || iif(wifi_only, '  Wi-Fi only', '') AS line
    FROM (SELECT *, sync_type_word = 'upload file' AS is_upload, sync_type_word LIKE 'download%' AS is_download,
                 iif(sync_type_word = 'upload file', name, sync_type_word) AS label,
                 iif(status_word = 'complete', 100, max(0, min(100, percentage))) AS done FROM content_info_status)
    JOIN limits LEFT JOIN paces USING (sync_id);
CREATE TEMP VIEW people AS
    SELECT kind, owner, group_concat(iif(ccc <> '', '+' || ccc || ' ', '') || phone_no, ', ') AS names FROM
        (SELECT 'request' AS kind, req_id AS owner, ccc, phone_no FROM contact_details
         UNION ALL SELECT 'group', group_id, ccc, phone_no FROM recent_receiver_details) GROUP BY kind, owner;
CREATE TEMP VIEW lines AS
    WITH uploads AS (SELECT *, row_number() OVER (ORDER BY sent_time DESC, unique_id DESC) AS at
                     FROM upload_request_data)
    SELECT 'Uploads' AS section, at, -1 AS id, 0 AS part,
           iif(status_word = 'failed', 31, iif(status_word LIKE '%finished', 32, 33)) AS style,
           format('Request %d  %s  files %d, %s, %s', req_id, status_word, file_count, amount(total_size),
                  moment(sent_time)) AS line1, '  to ' || coalesce(names, 'nobody') AS line2,
           format('  %s, %s, application %s', coalesce('token ' || nullif(contents_token, ''), 'no token yet'),
                  expiry(expired_time), app_type_word) AS line3, '  "' || nullif(description, '') || '"' AS line4
    FROM uploads LEFT JOIN people ON kind = 'request' AND owner = req_id
    UNION ALL SELECT 'Uploads', at, sync_id, 0, style, line, NULL, NULL, NULL
    FROM uploads JOIN transfers USING (req_id) WHERE is_upload
    UNION ALL SELECT 'Received shares', shares.rowid, -1, 0, 1,
           format('Share %s  %s', shares.contents_token,
                  coalesce(read_noti_word || ', arrived ' || moment(received_time), 'no notification')),
           format('  from %s, %s, sender''s side: %s', from_msisdn, expiry(coalesce(n.expired_time, c.expired_time)),
                  push_status_word), '  "' || nullif(description, '') || '"', NULL
    FROM shares LEFT JOIN push_noti_info AS n ON n.id = notification LEFT JOIN content_info AS c
         ON c.content_id = (SELECT min(content_id) FROM items WHERE share = shares.rowid)
    UNION ALL SELECT 'Received shares', share, content_id, 0, iif(downloaded = 1, 32, 0),
           format('  %-8s %s  %s  %s', iif(downloaded = 1, 'here', 'not yet'), name, amount(size), content_type),
           NULL, NULL, NULL
    FROM items JOIN content_info USING (content_id)
    UNION ALL SELECT 'Received shares', share, content_id, sync_id, style, line, NULL, NULL, NULL
    FROM items JOIN transfers USING (content_id) WHERE is_download
    UNION ALL SELECT 'Other transfers', 0, -1, sync_id, style, line, NULL, NULL, NULL FROM transfers
    WHERE NOT (is_upload AND coalesce(req_id IN (SELECT req_id FROM upload_request_data), 0)
               OR is_download AND coalesce(content_id IN (SELECT content_id FROM content_info), 0))
    UNION ALL SELECT 'Recent groups', row_number() OVER (ORDER BY time_stamp DESC, id DESC), -1, 0, 0,
           format('  %d  %s  %s', index_value, time_stamp, coalesce(names, 'nobody')), NULL, NULL, NULL
    FROM recent_receiver_group LEFT JOIN people ON kind = 'group' AND owner = index_value
    UNION ALL SELECT 'Keys', 0, -1, rowid, 0, format('  %s = %s', key, value), NULL, NULL, NULL FROM unique_data
    UNION ALL SELECT 'Folders', 0, -1, rowid, 0,
           format('  group %s: folder token %s, %s', group_id, coalesce(nullif(folder_token, ''), 'none'),
                  expiry(folder_token_expired_time)),
           format('    contents token %s, %s', coalesce(nullif(contents_token, ''), 'none'),
                  expiry(content_token_expired_time)), NULL, NULL FROM folder_info;
)";

/** A time in seconds or, from the year 5138 on, in milliseconds: the date (UTC) and, in brackets, how far away it is.
 */
std::string moment(long long time)
{
    static constexpr long long FIRST_MILLISECONDS = 100000000000; // as seconds in 5138, as milliseconds in 1973
    static constexpr std::pair<long long, const char *> UNITS[] = {
        {365 * 86400LL, "year"}, {86400, "day"}, {3600, "hour"}, {60, "minute"}, {0, "second"}};
    const auto seconds = static_cast<time_t>(time >= FIRST_MILLISECONDS ? time / 1000 : time);
    std::tm parts = {};
    char text[40] = "";
    if (!gmtime_r(&seconds, &parts) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts) == 0)
        return std::to_string(time);
    const long long left = seconds - std::time(nullptr);
    const auto &[unit, name] = *std::find_if(std::begin(UNITS), std::end(UNITS),
                                             [&](const auto &one) { return std::llabs(left) >= one.first; });
    const long long count = std::llabs(left) / std::max(unit, 1LL);
    return format(left > 0 ? "%s (in %lld %s%s)" : "%s (%lld %s%s ago)", text, count, name, count == 1 ? "" : "s");
}

std::string size_of_file(const std::string &path)
{
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return std::to_string(error ? 0 : size);
}

/** A function of one value for SQL. */
template <auto OF> void call(sqlite3_context *context, int, sqlite3_value **values)
{
    std::string result;
    if constexpr (std::is_invocable_v<decltype(OF), long long>)
        result = OF(sqlite3_value_int64(values[0]));
    else if (const unsigned char *const text = sqlite3_value_text(values[0]))
        result = OF(reinterpret_cast<const char *>(text));
    sqlite3_result_text(context, result.c_str(), -1, SQLITE_TRANSIENT);
}

std::string expiry(long long time)
{
    return time ? "expires " + moment(time) : "no expiry";
}

bool is_narrowed(const options &wanted)
{
    return !wanted.request.empty() || !wanted.token.empty();
}

} // namespace

store opened_for_view(const options &wanted)
{
    store read(wanted.store);
    const auto define = [&](const char *name, void (*function)(sqlite3_context *, int, sqlite3_value **)) {
        sqlite3_create_function(read.database.handle.get(), name, 1, SQLITE_UTF8, nullptr, function, nullptr, nullptr);
    };
    define("amount", call<amount>);
    define("moment", call<moment>);
    define("expiry", call<expiry>);
    define("size_of_file", call<size_of_file>);
    read.database.rows(SUMMARY);
    const auto id = static_cast<unsigned int>(std::strtoll(wanted.request.c_str(), nullptr, 10));
    if (is_narrowed(wanted))
        read.database.rows(NARROWING, {wanted.request.empty() ? "" : std::to_string(id), wanted.token});
    read.database.rows(SHARES);
    if (!wanted.shows_secrets)
        for (const json &one : read.database.rows(SHORTENING))
            read.database.rows(one["statement"]);
    read.database.rows(LINES);
    return read;
}

json document_of(const store &read)
{
    json document = {{"store", read.file}, {"findings", read.findings}};
    document["summary"] = read.database.rows("SELECT * FROM summary");
    for (const zel_storage::table &one : zel_storage::TABLES)
        document[one.name] = read.database.rows(std::string("SELECT * FROM ") + one.name);
    return document;
}

texts lines_of_file(const json &file)
{
    std::string openers;
    for (const json &one : file["open_in"])
        openers += (openers.empty() ? "" : ", ") + text(one, "name") + " (" + text(one, "pid") + ")";
    texts lines = {shown(text(file, "path"), BOLD),
                   shown("  owner " + text(file, "owner") + ", mode " + text(file, "mode") + ", " +
                         amount(file["size"]) +
                         (file.value("journal_mode", "") == "wal" ? ", write-ahead log" : ", rollback journal") +
                         "; times are UTC"),
                   shown("  open in " + (openers.empty() ? "no process" : openers) +
                         (file["sees_all_processes"] ? "" : "; those of other users are not seen"))};
    if (!file["journal_size"].is_null() && file["journal_size"] != 0)
        lines.push_back(
            shown("  beside it a journal of " + amount(file["journal_size"]) +
                  (openers.empty() ? ": a write was broken off; here it is undone" : ": a write is under way")));
    if (!file["log_size"].is_null())
        lines.push_back(shown("  beside it a write-ahead log of " + amount(file["log_size"]) + ", part of the data"));
    return lines;
}

texts lines_of(const store &read, const options &wanted)
{
    texts lines = lines_of_file(read.file);
    for (const json &one : read.findings)
        lines.push_back(shown("  " + text(one, "title") + "  (zel-store check tells more)", RED));
    lines.insert(lines.end(), {"", shown(format("Places of %d        in use  free  retries  waiting  paused  to retry"
                                                "  given up",
                                                zel_storage::BATCH_LIMIT),
                                         BOLD)});
    for (const json &one : read.database.rows("SELECT format('%-18s  %6d %5d %8d %8d %7d %9d %9d', kind, in_use, "
                                              "max(0, batch - in_use), retries, waiting,"
                                              " paused, to_retry, given_up) AS line FROM summary"))
        lines.push_back(shown(text(one, "line")));
    for (const char *section : {"Uploads", "Received shares", "Other transfers", "Recent groups", "Keys", "Folders"}) {
        const json rows = read.database.rows("SELECT * FROM lines WHERE section = ? ORDER BY at, id, part", {section});
        const auto entries = std::count_if(rows.begin(), rows.end(), [](const json &row) { return row["id"] == -1; });
        if (rows.empty() && is_narrowed(wanted))
            continue;
        lines.insert(lines.end(), {"", shown(format("%s (%td)", section, entries), BOLD)});
        for (const json &row : rows)
            for (const char *name : {"line1", "line2", "line3", "line4"})
                if (!row[name].is_null())
                    lines.push_back(shown(text(row, name), name[4] == '1' ? row["style"].get<int>() : PLAIN));
    }
    return lines;
}

int show(const options &wanted)
{
    const store read = opened_for_view(wanted);
    if (wanted.as_json)
        std::fputs(written(document_of(read)).c_str(), stdout);
    else
        for (const std::string &line : lines_of(read, wanted))
            std::puts(line.c_str());
    const bool has_match = !is_narrowed(wanted) || !read.database.rows("SELECT 1 FROM lines LIMIT 1").empty();
    return !read.is_readable ? CANNOT_READ : has_match ? FINE : FINDINGS;
}
