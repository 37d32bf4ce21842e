#include "show.h"

#include "text.h"
#include "words.h"

#include <algorithm>
#include <pwd.h>

namespace zel_store
{

namespace
{

using lines = std::vector<std::string>;
using json = nlohmann::ordered_json;

/** How much of a kind of transfer stands where. */
struct kind_summary {
    int first_tries = 0, retries = 0, waiting = 0, paused = 0, to_be_retried = 0, given_up = 0, complete = 0;
};

kind_summary summary_of(const store &read, zel_file_sync_type kind)
{
    kind_summary sum;
    for (const row &one : read.rows(TABLE_CONTENT_INFO_STATUS)) {
        if (one[COLUMN_CONTENT_SYNC_INFO_TYPE].number != kind)
            continue;
        const bool is_retry = one[COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT].number > 0;
        switch (static_cast<zel_file_sync_status>(one[COLUMN_CONTENT_SYNC_INFO_STATUS].number)) {
        case ZEL_SYNC_TODO:
            ++sum.waiting;
            break;
        case ZEL_SYNC_ONGOING:
            ++(is_retry ? sum.retries : sum.first_tries);
            break;
        case ZEL_SYNC_FAILED:
            ++(is_given_up(one) ? sum.given_up : sum.to_be_retried);
            break;
        case ZEL_SYNC_PAUSED:
        case ZEL_SYNC_PAUSED_TODO:
            ++sum.paused;
            break;
        case ZEL_SYNC_COMPLETE:
            ++sum.complete;
            break;
        }
    }
    return sum;
}

constexpr zel_file_sync_type KINDS[] = {ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE};

std::string number_of(size_t count, const std::string &noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string column_names(const std::vector<column> &columns)
{
    std::string names;
    for (const column &one : columns)
        names += (names.empty() ? "" : ", ") + one.name;
    return names;
}

/** Writes the view; holds what all its parts want to know. */
class viewer
{
  public:
    viewer(const store &shown, const show_options &wanted) : read(shown), options(wanted) {}

    lines all()
    {
        out = file_lines(read);
        summary();
        heading("Uploads", read.uploads.size());
        for (const upload &one : read.uploads)
            show(one);
        heading("Received shares", read.shares.size());
        for (const share &one : read.shares)
            show(one);
        if (!read.loose.empty()) {
            heading("Transfers of no request and no item", read.loose.size());
            for (const row *one : read.loose)
                show_transfer(*one, nullptr);
        }
        if (!options.wanted.is_set())
            show_groups_keys_and_folders();
        return out;
    }

  private:
    void heading(const std::string &title, size_t count)
    {
        out.push_back("");
        out.push_back(coloured(colour::bold, title + " (" + std::to_string(count) + ")"));
    }

    std::string secret(const value &stored) const
    {
        return options.shows_secrets ? safe(stored.text) : shortened(stored.text);
    }

    static std::string expiry(const value &stored)
    {
        return stored.number ? "expires " + date(stored.number) + " (" + away(stored.number) + ")" : "no expiry";
    }

    std::string people(const std::vector<const row *> &rows, int number, int code) const
    {
        std::string names;
        for (const row *one : rows)
            names += (names.empty() ? "" : ", ") +
                     ((*one)[code].text.empty() ? "" : "+" + safe((*one)[code].text) + " ") + secret((*one)[number]);
        return names.empty() ? "nobody" : names;
    }

    void summary()
    {
        out.push_back("");
        out.push_back(coloured(colour::bold, format("%-19s %11s %8s %8s %7s %9s %9s",
                                                    format("Places in use of %d", BATCH_LIMIT).c_str(), "first tries",
                                                    "retries", "waiting", "paused", "to retry", "given up")));
        for (const zel_file_sync_type kind : KINDS) {
            const kind_summary sum = summary_of(read, kind);
            out.push_back(format("  %-17s %11d %8d %8d %7d %9d ", word_of(kind).c_str(), sum.first_tries, sum.retries,
                                 sum.waiting, sum.paused, sum.to_be_retried) +
                          coloured(sum.given_up ? colour::red : colour::plain, format("%9d", sum.given_up)));
        }
    }

    void show(const upload &one)
    {
        const row &request = *one.request;
        const auto status = static_cast<quillo_upload_status_e>(request[COLUMN_UPLOAD_INFO_STATUS].number);
        const colour shade = status == QUILLO_UPLOAD_STATUS_FAILED ? colour::red
                             : status == QUILLO_UPLOAD_STATUS_FINISHED || status == QUILLO_UPLOAD_STATUS_SHARE_FINISHED
                                 ? colour::green
                                 : colour::yellow;
        const value &stored = request[COLUMN_UPLOAD_INFO_SENT_TIME];
        const value &files = request[COLUMN_UPLOAD_INFO_FILE_COUNT];
        out.push_back(coloured(colour::bold, format("Request %u", request[COLUMN_UPLOAD_INFO_REQ_ID].id())) + "  " +
                      coloured(shade, word<quillo_upload_status_e>(request[COLUMN_UPLOAD_INFO_STATUS])) + "  " +
                      number_of(files.id(), "file") + ", " + size(request[COLUMN_UPLOAD_INFO_TOTAL_SIZE].number) +
                      ", stored " + date(stored.number) + " (" + away(stored.number) + ")");
        out.push_back("  to " + people(one.recipients, COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO,
                                       COLUMN_CONTACT_DETAILS_RECEIVER_CCC));
        const std::string token = secret(request[COLUMN_UPLOAD_INFO_CONTENTS_TOKEN]);
        out.push_back("  " + (token.empty() ? "no token yet" : "token " + token) + ", " +
                      expiry(request[COLUMN_UPLOAD_INFO_EXPIRED_TIME]) + ", application " +
                      word<quillo_app_type_e>(request[COLUMN_UPLOAD_INFO_APP_TYPE]));
        if (!request[COLUMN_UPLOAD_INFO_DESCRIPTION].text.empty())
            out.push_back("  \"" + safe(request[COLUMN_UPLOAD_INFO_DESCRIPTION].text) + "\"");
        for (const row *transfer : one.transfers)
            show_transfer(*transfer, nullptr);
    }

    void show(const share &one)
    {
        const row none;
        const row &notification = one.notification ? *one.notification : none;
        const row &first = one.items.empty() ? none : *one.items[0].content;
        const value &expires = one.notification ? notification[COLUMN_PUSH_NOTI_INFO_EXPIRED_TIME]
                                                : first[COLUMN_CONTENT_INFO_EXPIRED_TIME];
        const std::string state = read_state(notification[COLUMN_PUSH_NOTI_INFO_READ_NOTI].number);
        out.push_back(
            coloured(colour::bold, "Share " + secret({SQLITE_TEXT, 0, one.token})) + "  " +
            (!one.notification ? "no notification"
             : state.empty()   ? "?" + safe(notification[COLUMN_PUSH_NOTI_INFO_READ_NOTI].text)
                               : state) +
            "  " + number_of(one.items.size(), "item") +
            (one.notification ? ", arrived " + date(notification[COLUMN_PUSH_NOTI_INFO_RECEIVED_TIME].number) : ""));
        const value &push = first[COLUMN_CONTENT_INFO_PUSH_STATUS];
        out.push_back("  from " + (one.items.empty() ? "?" : secret(first[COLUMN_CONTENT_INFO_FROM_MSISDN])) + ", " +
                      expiry(expires) + (push.number ? ", " + word<quillo_push_status_e>(push) : ""));
        if (!first[COLUMN_CONTENT_INFO_DESCRIPTION].text.empty())
            out.push_back("  \"" + safe(first[COLUMN_CONTENT_INFO_DESCRIPTION].text) + "\"");
        for (const item &each : one.items) {
            const row &content = *each.content;
            const bool is_here = content[COLUMN_CONTENT_INFO_DOWNLOADED].number == 1;
            out.push_back("  " + coloured(is_here ? colour::green : colour::dim, is_here ? "here   " : "not yet") +
                          "  " + safe(content[COLUMN_CONTENT_INFO_NAME].text) + "  " +
                          size(content[COLUMN_CONTENT_INFO_SIZE].id()) + "  " +
                          safe(content[COLUMN_CONTENT_INFO_CONTENT_TYPE].text));
            for (const row *transfer : each.transfers)
                show_transfer(*transfer, &content);
        }
    }

    /** A line with a bar; `content` is the item that a download belongs to. */
    void show_transfer(const row &transfer, const row *content)
    {
        const auto status = static_cast<zel_file_sync_status>(transfer[COLUMN_CONTENT_SYNC_INFO_STATUS].number);
        const auto kind = static_cast<zel_file_sync_type>(transfer[COLUMN_CONTENT_SYNC_INFO_TYPE].number);
        const bool is_complete = status == ZEL_SYNC_COMPLETE;
        const bool has_failed = status == ZEL_SYNC_FAILED;
        const long long percent = is_complete ? 100 : transfer[COLUMN_CONTENT_SYNC_INFO_PERCENTAGE].number;
        const long long retries = transfer[COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT].number;
        const std::string label = content || kind != ZEL_UPLOAD_FILE
                                      ? word<zel_file_sync_type>(transfer[COLUMN_CONTENT_SYNC_INFO_TYPE])
                                      : safe(transfer[COLUMN_CONTENT_SYNC_INFO_NAME].text);
        std::string detail;
        if (kind == ZEL_UPLOAD_FILE && !is_complete)
            detail += format("  chunk %lld at %u", transfer[COLUMN_CONTENT_SYNC_INFO_CHUNK_NO].number,
                             transfer[COLUMN_CONTENT_SYNC_INFO_OFFSET].id());
        if (retries)
            detail += format("  retry %lld of %d", retries, RETRY_CAP);
        if (is_given_up(transfer))
            detail = "  given up" + detail;
        if (has_failed && transfer[COLUMN_CONTENT_SYNC_INFO_REQ_ID].number == 0 && kind == ZEL_UPLOAD_FILE)
            detail += "  detached from its request";
        if (transfer[COLUMN_CONTENT_SYNC_INFO_WIFI_ONLY].number)
            detail += "  Wi-Fi only";
        const int cells = screen.width > 100 ? 20 : 10;
        const colour shade = is_complete ? colour::green : has_failed ? colour::red : colour::plain;
        out.push_back(
            "    " + in_columns(label, std::max(20, screen.width / 4)) + " " +
            coloured(shade, in_columns(word<zel_file_sync_status>(transfer[COLUMN_CONTENT_SYNC_INFO_STATUS]), 11)) +
            " " + bar(percent, cells) + format(" %3lld %%", percent) +
            (options.further ? options.further(transfer, content) : "") + detail);
    }

    void show_groups_keys_and_folders()
    {
        heading("Recent groups", read.groups.size());
        for (const group &one : read.groups)
            out.push_back("  " + safe((*one.entry)[COLUMN_GROUP_INDEX_VALUE].text) + "  " +
                          safe((*one.entry)[COLUMN_GROUP_TIME_STAMP].text) + "  " +
                          people(one.members, COLUMN_RECENT_RECEIVER_PHONE_NO, COLUMN_RECENT_RECEIVER_CCC));
        const std::vector<row> &keys = read.rows(TABLE_UNIQUE_DATA);
        heading("Keys", keys.size());
        for (const row &one : keys)
            out.push_back("  " + safe(one[COLUMN_UNIQUE_DATA_KEY].text) + " = " +
                          secret(one[COLUMN_UNIQUE_DATA_VALUE]));
        const std::vector<row> &folders = read.rows(TABLE_FOLDER_INFO);
        heading("Folders", folders.size());
        for (const row &one : folders) {
            const auto token = [&](int column, int expires) {
                return one[column].text.empty() ? "none" : secret(one[column]) + ", " + expiry(one[expires]);
            };
            out.push_back("  group " + safe(one[COLUMN_FOLDER_INFO_GROUP_ID].text));
            out.push_back("    folder token " +
                          token(COLUMN_FOLDER_INFO_FOLDER_TOKEN, COLUMN_FOLDER_INFO_FOLDER_TOKEN_EXPIRED_TIME));
            out.push_back("    contents token " +
                          token(COLUMN_FOLDER_INFO_CONTENT_TOKEN, COLUMN_FOLDER_INFO_CONTENT_TOKEN_EXPIRED_TIME));
        }
    }

    const store &read;
    const show_options &options;
    lines out;
};

json value_json(const value &stored)
{
    switch (stored.type) {
    case SQLITE_NULL:
        return nullptr;
    case SQLITE_INTEGER:
        return stored.number;
    case SQLITE_FLOAT:
        return std::stod(stored.text);
    default:
        return stored.text;
    }
}

} // namespace

std::vector<std::string> file_lines(const store &read)
{
    const file_facts &facts = read.copy.facts;
    const passwd *const owner = getpwuid(facts.status.st_uid);
    lines out = {coloured(colour::bold, safe(facts.path))};
    out.push_back("  owner " + (owner ? safe(owner->pw_name) : std::to_string(facts.status.st_uid)) +
                  format(", mode %04o, %s, ", facts.status.st_mode & 07777U, size(facts.status.st_size).c_str()) +
                  (facts.is_database
                       ? format("version %d, %s", read.version, facts.uses_log ? "write-ahead log" : "rollback journal")
                       : "no SQLite database"));
    if (facts.journal_size.value_or(0))
        out.push_back(
            "  beside it: a journal of " + size(static_cast<long long>(*facts.journal_size)) +
            (facts.openers.empty() ? ": a write was broken off; here it is undone" : ": a write is under way"));
    if (facts.log_size)
        out.push_back("  beside it: a write-ahead log of " + size(static_cast<long long>(*facts.log_size)) +
                      ", which belongs to the data");
    std::string openers;
    for (const process &one : facts.openers)
        openers += (openers.empty() ? "" : ", ") + safe(one.name) + " (" + std::to_string(one.id) + ")";
    out.push_back("  open in " + (openers.empty() ? "no process" : openers) +
                  (facts.sees_all_processes ? "" : "; those of other users cannot be seen"));
    const auto complain = [&](const std::string &text) {
        out.push_back("  " + coloured(colour::red, wrapped(text, 2)));
    };
    if (!facts.is_database)
        complain("It does not begin as a database does: another file, or one whose beginning was overwritten.");
    else if (!read.copy.complaint.empty())
        complain("SQLite cannot open it: " + safe(read.copy.complaint) + ".");
    if (facts.is_cut())
        complain(format("It is cut off: %u pages of %u bytes are %s.", facts.stored_pages, facts.page_size,
                        size(static_cast<long long>(facts.stored_pages) * facts.page_size).c_str()));
    if (facts.is_database && read.version != SCHEMA_VERSION)
        complain(format("Of version %d; this tool knows %d and reads what is laid out alike.", read.version,
                        SCHEMA_VERSION));
    std::string missing;
    for (const auto &[name, table] : read.tables) {
        if (!table.exists && facts.is_database)
            missing += (missing.empty() ? "" : ", ") + std::string(name);
        else if (table.exists && table.found != table.laid_down)
            complain(std::string(name) + " has other columns than are laid down: " + safe(column_names(table.found)) +
                     ".");
        if (!table.complaint.empty())
            complain(std::string(name) + ": " + safe(table.complaint) +
                     format("; %zu rows could be read.", table.rows.size()));
    }
    if (!missing.empty())
        complain("Tables that are missing: " + missing + ".");
    return out;
}

std::vector<std::string> show_lines(const store &read, const show_options &options)
{
    return viewer(read, options).all();
}

json file_json(const store &read)
{
    const file_facts &facts = read.copy.facts;
    json openers = json::array();
    for (const process &one : facts.openers)
        openers.push_back({{"pid", one.id}, {"name", one.name}});
    json complaints = json::object();
    for (const auto &[name, table] : read.tables)
        if (!table.exists || !table.complaint.empty())
            complaints[std::string(name)] = table.exists ? table.complaint : "missing";
    const auto size_or_null = [](const std::optional<size_t> &size) { return size ? json(*size) : json(); };
    return {{"path", facts.path},
            {"uid", facts.status.st_uid},
            {"mode", format("%04o", facts.status.st_mode & 07777U)},
            {"size", facts.status.st_size},
            {"version", read.version},
            {"journal_mode", facts.uses_log ? "wal" : "delete"},
            {"journal_size", size_or_null(facts.journal_size)},
            {"log_size", size_or_null(facts.log_size)},
            {"is_database", facts.is_database},
            {"is_cut", facts.is_cut()},
            {"complaint", read.copy.complaint},
            {"table_complaints", complaints},
            {"open_in", openers},
            {"sees_all_processes", facts.sees_all_processes}};
}

json show_json(const store &read, const show_options &options)
{
    const auto fields = [&](const char *table, const row &one) {
        json object = json::object();
        const std::vector<column> &columns = read.tables.at(table).laid_down;
        for (size_t i = 0; i < columns.size(); ++i) {
            const value &stored = one[static_cast<int>(i)];
            const bool hides = !options.shows_secrets && is_secret(table, static_cast<int>(i)) && !stored.is_null();
            object[columns[i].name] = hides ? json(shortened(stored.text)) : value_json(stored);
        }
        return object;
    };
    const auto list = [&](const char *table, const std::vector<const row *> &rows) {
        json array = json::array();
        for (const row *one : rows) {
            array.push_back(fields(table, *one));
            if (table == TABLE_CONTENT_INFO_STATUS) {
                array.back()["type_word"] = word<zel_file_sync_type>((*one)[COLUMN_CONTENT_SYNC_INFO_TYPE]);
                array.back()["status_word"] = word<zel_file_sync_status>((*one)[COLUMN_CONTENT_SYNC_INFO_STATUS]);
            }
        }
        return array;
    };
    const auto all = [&](const char *table) {
        std::vector<const row *> rows;
        for (const row &one : read.rows(table))
            rows.push_back(&one);
        return list(table, rows);
    };
    json document = {{"store", file_json(read)}, {"summary", json::object()}};
    for (const zel_file_sync_type kind : KINDS) {
        const kind_summary sum = summary_of(read, kind);
        document["summary"][word_of(kind)] = {{"places", BATCH_LIMIT},    {"first_tries", sum.first_tries},
                                              {"retries", sum.retries},   {"waiting", sum.waiting},
                                              {"paused", sum.paused},     {"to_be_retried", sum.to_be_retried},
                                              {"given_up", sum.given_up}, {"complete", sum.complete}};
    }
    json uploads = json::array();
    json shares = json::array();
    json groups = json::array();
    for (const upload &one : read.uploads) {
        uploads.push_back(fields(TABLE_UPLOAD_REQUEST_DATA, *one.request));
        uploads.back()["status_word"] = word<quillo_upload_status_e>((*one.request)[COLUMN_UPLOAD_INFO_STATUS]);
        uploads.back()["recipients"] = list(TABLE_CONTACT_DETAILS, one.recipients);
        uploads.back()["transfers"] = list(TABLE_CONTENT_INFO_STATUS, one.transfers);
    }
    for (const share &one : read.shares) {
        json items = json::array();
        for (const item &each : one.items) {
            items.push_back(fields(TABLE_CONTENT_INFO, *each.content));
            items.back()["transfers"] = list(TABLE_CONTENT_INFO_STATUS, each.transfers);
        }
        shares.push_back({{"notification", one.notification ? fields(TABLE_PUSH_NOTI_INFO, *one.notification) : json()},
                          {"items", items}});
    }
    for (const group &one : read.groups) {
        groups.push_back(fields(TABLE_RECENT_RECEIVER_GROUP, *one.entry));
        groups.back()["members"] = list(TABLE_RECENT_RECEIVER_DETAILS, one.members);
    }
    document["uploads"] = uploads;
    document["received_shares"] = shares;
    document["other_transfers"] = list(TABLE_CONTENT_INFO_STATUS, read.loose);
    if (!options.wanted.is_set()) {
        document["recent_groups"] = groups;
        document["keys"] = all(TABLE_UNIQUE_DATA);
        document["folders"] = all(TABLE_FOLDER_INFO);
    }
    return document;
}

std::string text_of(const json &document, int indentation)
{
    return document.dump(indentation, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace zel_store
