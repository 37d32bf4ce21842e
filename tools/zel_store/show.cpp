/* A store at a glance. */

#include "commands.h"
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <glib.h>

namespace zel_store
{

namespace
{

constexpr char TRANSFERS[] = "SELECT *, sync_type(sync_type) AS kind_word, sync_status(status) AS status_word FROM "
                             "content_info_status WHERE ";

std::string quoted(const std::string &text)
{
    char *const made = sqlite3_mprintf("%Q", text.c_str());
    std::string result = made;
    sqlite3_free(made);
    return result;
}

std::string counted(const char *title, const json &list)
{
    return format("%s (%zu)", title, list.size());
}

std::string expiry(const json &row, const char *column)
{
    const long long time = number(row, column);
    return time ? "expires " + date(time) : "no expiry";
}

std::string people(const json &rows)
{
    std::string names;
    for (const json &one : rows) {
        names += names.empty() ? "" : ", ";
        names += text(one, "ccc").empty() ? "" : "+" + text(one, "ccc") + " ";
        names += text(one, "phone_no");
    }
    return names.empty() ? "nobody" : names;
}

/** The word of a value, or the value that has none. */
std::string word(const json &row, const char *word_column, const char *column)
{
    const std::string found = text(row, word_column);
    return !found.empty() ? found : "?" + text(row, column);
}

/** A line with a bar. */
std::string transfer_line(const json &transfer, const std::string &further)
{
    const std::string status = text(transfer, "status_word");
    const bool is_upload = text(transfer, "kind_word") == "upload file";
    const bool is_complete = status == "complete";
    const long long percent = is_complete ? 100 : number(transfer, "percentage");
    std::string detail = further;
    if (is_upload && !is_complete)
        detail += format("  chunk %lld at %lld", number(transfer, "chunk_no"), number(transfer, "offset"));
    if (number(transfer, "fail_retry_count"))
        detail += format("  retry %lld", number(transfer, "fail_retry_count"));
    detail += number(transfer, "given_up") ? ", given up" : "";
    detail += number(transfer, "wifi_only") ? "  Wi-Fi only" : "";
    const std::string label = is_upload ? text(transfer, "name") : word(transfer, "kind_word", "sync_type");
    return "  " + in_columns(label, std::max(20, screen.width / 4)) + " " +
           coloured(is_complete          ? colour::green
                    : status == "failed" ? colour::red
                                         : colour::plain,
                    in_columns(word(transfer, "status_word", "status"), 11)) +
           " " + bar(percent, screen.width > 100 ? 20 : 10) + format(" %3lld %%", percent) + detail;
}

} // namespace

json view_of(const store &read, const view_options &options)
{
    const bool is_narrowed = !options.request.empty() || !options.token.empty();
    const std::string id =
        std::to_string(static_cast<unsigned int>(std::strtoll(options.request.c_str(), nullptr, 10)));
    const std::string of_token = options.token.empty() ? "true" : "contents_token = " + quoted(options.token);
    const std::string of_request = options.request.empty() ? "true" : "req_id = " + id;
    const auto transfers = [&](const std::string &condition) {
        return read.rows(TRANSFERS + condition + " ORDER BY sync_id");
    };
    json view = {{"store", read.file}, {"findings", read.findings}};
    view["summary"] = read.rows(
        "WITH transfers AS (SELECT sync_type(sync_type) AS kind, sync_status(status) AS word, fail_retry_count AS tries"
        " FROM content_info_status) SELECT kinds.column1 AS kind, coalesce(sum(word = 'ongoing' AND tries = 0), 0) AS "
        "\"in use\","
        " max(0, batch_limit() - coalesce(sum(word = 'ongoing' AND tries = 0), 0)) AS free,"
        " coalesce(sum(word = 'ongoing' AND tries > 0), 0) AS retries, coalesce(sum(word = 'todo'), 0) AS waiting,"
        " coalesce(sum(word LIKE 'paused%'), 0) AS paused, coalesce(sum(word = 'failed' AND tries <= retry_cap()), 0) "
        "AS \"to retry\","
        " coalesce(sum(word = 'failed' AND tries > retry_cap()), 0) AS \"given up\", batch_limit() AS places"
        " FROM (VALUES ('upload file'), ('download thumbnail'), ('download file')) AS kinds"
        " LEFT JOIN transfers ON transfers.kind = kinds.column1 GROUP BY kinds.column1 ORDER BY 1 DESC");
    view["uploads"] = read.rows("SELECT *, upload_status(status) AS status_word, app_type(app_type) AS app_word FROM "
                                "upload_request_data WHERE " +
                                of_token + " AND " + of_request + " ORDER BY sent_time DESC, unique_id DESC");
    for (json &one : view["uploads"]) {
        const std::string owned = "req_id = " + std::to_string(number(one, "req_id"));
        one["recipients"] = read.rows("SELECT * FROM contact_details WHERE " + owned + " ORDER BY id");
        one["transfers"] = transfers(owned + " AND sync_type(sync_type) = 'upload file'");
    }
    // A share is its notification, its items, or both.
    view["received_shares"] = read.rows(
        "SELECT shares.contents_token, noti.type, noti.expired_time, noti.read_noti, noti.received_time,"
        " read_state(read_noti) AS state_word, hex(shares.contents_token) AS token_bytes FROM (SELECT contents_token "
        "FROM"
        " push_noti_info UNION SELECT contents_token FROM content_info) AS shares LEFT JOIN push_noti_info AS noti"
        " USING (contents_token) WHERE " +
        of_token + (options.request.empty() ? "" : " AND false") + " ORDER BY received_time DESC");
    for (json &one : view["received_shares"]) {
        one["items"] = read.rows("SELECT *, push_status(coalesce(push_status, 0)) AS push_word FROM content_info WHERE "
                                 "hex(contents_token) = '" +
                                 text(one, "token_bytes") + "' ORDER BY content_id");
        one.erase("token_bytes");
        for (json &item : one["items"])
            item["transfers"] = transfers("content_id = " + std::to_string(number(item, "content_id")) +
                                          " AND sync_type(sync_type) LIKE 'download%'");
    }
    view["other_transfers"] = transfers(
        of_token + " AND " + of_request +
        " AND ((sync_type(sync_type) = 'upload file' AND req_id NOT IN (SELECT req_id FROM upload_request_data))"
        " OR (sync_type(sync_type) LIKE 'download%' AND content_id NOT IN (SELECT content_id FROM content_info))"
        " OR sync_type(sync_type) IS NULL)");
    if (is_narrowed)
        return view;
    view["recent_groups"] = read.rows("SELECT * FROM recent_receiver_group ORDER BY time_stamp DESC, id DESC");
    for (json &one : view["recent_groups"])
        one["members"] = read.rows("SELECT * FROM recent_receiver_details WHERE group_id = " +
                                   std::to_string(number(one, "index_value")) + " ORDER BY id");
    view["keys"] = read.rows("SELECT * FROM unique_data");
    view["folders"] = read.rows("SELECT * FROM folder_info");
    return view;
}

std::vector<std::string> file_lines(const json &file)
{
    std::vector<std::string> lines = {coloured(colour::bold, text(file, "path"))};
    lines.push_back("  owner " + text(file, "owner") + ", mode " + text(file, "mode") + ", " +
                    size(number(file, "size")) + ", " +
                    (text(file, "journal_mode") == "wal" ? "write-ahead log" : "rollback journal") + "; times are UTC");
    if (number(file, "journal_size"))
        lines.push_back(
            "  beside it a journal of " + size(number(file, "journal_size")) +
            (file["open_in"].empty() ? ": a write was broken off; here it is undone" : ": a write is under way"));
    if (!file["log_size"].is_null())
        lines.push_back("  beside it a write-ahead log of " + size(number(file, "log_size")) +
                        ", which belongs to the data");
    std::string openers = file["open_in"].empty() ? "no process" : "";
    for (const json &one : file["open_in"])
        openers += (openers.empty() ? "" : ", ") + text(one, "name") + " (" + text(one, "pid") + ")";
    lines.push_back("  open in " + openers + (file["sees_all_processes"] ? "" : "; those of other users are not seen"));
    return lines;
}

std::vector<std::string> lines_of(const json &view, const std::function<std::string(const json &transfer)> &further)
{
    std::vector<std::string> lines = file_lines(view["store"]);
    const auto add = [&](const std::string &line) { lines.push_back(line); };
    const auto add_head = [&](const std::string &head) {
        lines.emplace_back();
        lines.push_back(coloured(colour::bold, head));
    };
    const auto add_all = [&](const json &transfers) {
        for (const json &one : transfers)
            add(transfer_line(one, further ? further(one) : ""));
    };
    const auto add_quoted = [&](const json &row) {
        if (!text(row, "description").empty())
            add("  \"" + text(row, "description") + "\"");
    };
    for (const json &one : view["findings"])
        add("  " + coloured(colour::red, text(one, "title")) + "  (zel-store check tells more)");
    std::string head = format("%-18s", ("Places of " + text(view["summary"][0], "places")).c_str());
    for (const auto &[name, count] : view["summary"][0].items())
        head += name == "kind" || name == "places" ? "" : "  " + name;
    add_head(head);
    for (const json &kind : view["summary"]) {
        std::string line = format("%-18s", text(kind, "kind").c_str());
        for (const auto &[name, count] : kind.items())
            if (name != "kind" && name != "places")
                line += format("  %*lld", static_cast<int>(name.size()), count.get<long long>());
        add(line);
    }
    add_head(counted("Uploads", view["uploads"]));
    for (const json &one : view["uploads"]) {
        const std::string status = word(one, "status_word", "status");
        const std::string token = text(one, "contents_token");
        add(coloured(colour::bold, "Request " + text(one, "req_id") + "  ") +
            coloured(status == "failed"             ? colour::red
                     : status.ends_with("finished") ? colour::green
                                                    : colour::yellow,
                     status) +
            "  files " + text(one, "file_count") + ", " + size(number(one, "total_size")) + ", " +
            date(number(one, "sent_time")));
        add("  to " + people(one["recipients"]));
        add("  " + (token.empty() ? "no token yet" : "token " + token) + ", " + expiry(one, "expired_time") +
            ", application " + word(one, "app_word", "app_type"));
        add_quoted(one);
        add_all(one["transfers"]);
    }
    add_head(counted("Received shares", view["received_shares"]));
    for (const json &one : view["received_shares"]) {
        const json first = one["items"].empty() ? json::object() : one["items"][0];
        const bool is_announced = !one["received_time"].is_null();
        add(coloured(colour::bold, "Share " + text(one, "contents_token")) + "  " +
            (is_announced ? word(one, "state_word", "read_noti") + ", arrived " + date(number(one, "received_time"))
                          : "no notification"));
        add("  from " + text(first, "from_msisdn") + ", " + expiry(is_announced ? one : first, "expired_time") +
            ", sender's side: " + word(first, "push_word", "push_status"));
        add_quoted(first);
        for (const json &item : one["items"]) {
            const bool is_here = number(item, "downloaded") == 1;
            add("  " + coloured(is_here ? colour::green : colour::dim, is_here ? "here     " : "not yet  ") +
                text(item, "name") + "  " + size(number(item, "size")) + "  " + text(item, "content_type"));
            add_all(item["transfers"]);
        }
    }
    if (!view["other_transfers"].empty())
        add_head(counted("Transfers of no request and no item", view["other_transfers"]));
    add_all(view["other_transfers"]);
    if (!view.contains("keys"))
        return lines;
    add_head(counted("Recent groups", view["recent_groups"]));
    for (const json &one : view["recent_groups"])
        add("  " + text(one, "index_value") + "  " + text(one, "time_stamp") + "  " + people(one["members"]));
    add_head(counted("Keys", view["keys"]));
    for (const json &one : view["keys"])
        add("  " + text(one, "key") + " = " + text(one, "value"));
    add_head(counted("Folders", view["folders"]));
    for (const json &one : view["folders"])
        for (const std::string kind : {"folder_token", "content"}) {
            const bool is_folder = kind == "folder_token";
            const std::string token = text(one, is_folder ? "folder_token" : "contents_token");
            add(is_folder ? "  group " + text(one, "group_id") + ": folder token "
                          : std::string("    contents token "));
            lines.back() +=
                token.empty() ? "none"
                              : token + ", " +
                                    expiry(one, is_folder ? "folder_token_expired_time" : "content_token_expired_time");
        }
    return lines;
}

void print(const std::string &line)
{
    std::printf("%s\n", cut(line, screen.width).c_str());
}

int show(const std::string &path, const view_options &options)
{
    const store read(path, options.shows_secrets);
    const json view = view_of(read, options);
    if (options.as_json)
        std::fputs(text_of(view).c_str(), stdout);
    else
        for (const std::string &line : lines_of(view))
            print(line);
    const bool has_match =
        !view["uploads"].empty() || !view["received_shares"].empty() || !view["other_transfers"].empty();
    return !read.is_readable ? CANNOT_READ : has_match || view.contains("keys") ? FINE : FINDINGS;
}

} // namespace zel_store
