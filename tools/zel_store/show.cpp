#include "show.h"

#include "check.h"
#include "text.h"
#include "words.h"

#include <algorithm>
#include <pwd.h>

namespace zel_store
{

namespace
{

using json = nlohmann::ordered_json;

constexpr zel_file_sync_type KINDS[] = {ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE};

/** How many transfers of a kind stand where; in the order of the summary's columns. */
std::vector<std::pair<const char *, int>> summary_of(const store &read, zel_file_sync_type kind)
{
    int first_tries = 0;
    int retries = 0;
    int given_up = 0;
    std::map<long long, int> at;
    for (const row &one : read.rows(TABLE_CONTENT_INFO_STATUS)) {
        if (one[COLUMN_CONTENT_SYNC_INFO_TYPE].number != kind)
            continue;
        const long long status = one[COLUMN_CONTENT_SYNC_INFO_STATUS].number;
        if (status == ZEL_SYNC_ONGOING)
            ++(one[COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT].number == 0 ? first_tries : retries);
        given_up += is_given_up(one);
        ++at[status];
    }
    return {{"first tries", first_tries},
            {"retries", retries},
            {"waiting", at[ZEL_SYNC_TODO]},
            {"paused", at[ZEL_SYNC_PAUSED] + at[ZEL_SYNC_PAUSED_TODO]},
            {"to retry", at[ZEL_SYNC_FAILED] - given_up},
            {"given up", given_up},
            {"complete", at[ZEL_SYNC_COMPLETE]}};
}

/** Writes the view; holds what all its parts want to know. */
class viewer
{
  public:
    viewer(const store &shown, const show_options &wanted) : read(shown), options(wanted) {}

    std::vector<std::string> all()
    {
        out = file_lines(read.copy.facts);
        for (const finding &one : check_file(read))
            out.push_back("  " + coloured(colour::red, safe(one.title)) + "  (zel-store check)");
        summary();
        heading("Uploads", read.uploads.size());
        for (const upload &one : read.uploads)
            show(one);
        heading("Received shares", read.shares.size());
        for (const share &one : read.shares)
            show(one);
        if (!read.loose.empty())
            heading("Transfers of no request and no item", read.loose.size());
        for (const row *one : read.loose)
            show_transfer(*one, nullptr);
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

    std::string secret(const std::string &text) const
    {
        return options.shows_secrets ? safe(text) : shortened(text);
    }

    static std::string expiry(const value &stored)
    {
        return stored.number ? "expires " + date(stored.number) : "no expiry";
    }

    std::string people(const std::vector<const row *> &rows, int number, int code) const
    {
        std::string names;
        for (const row *one : rows) {
            names += names.empty() ? "" : ", ";
            names += (*one)[code].text.empty() ? "" : "+" + safe((*one)[code].text) + " ";
            names += secret((*one)[number].text);
        }
        return names.empty() ? "nobody" : names;
    }

    void describe(const value &text)
    {
        if (!text.text.empty())
            out.push_back("  \"" + safe(text.text) + "\"");
    }

    void summary()
    {
        std::string head = format("%-18s", format("Places of %d", BATCH_LIMIT).c_str());
        for (const auto &[name, count] : summary_of(read, ZEL_UNKNOWN))
            head += "  " + std::string(name);
        out.push_back("");
        out.push_back(coloured(colour::bold, head));
        for (const zel_file_sync_type kind : KINDS) {
            std::string line = format("%-18s", word_of(kind).c_str());
            for (const auto &[name, count] : summary_of(read, kind))
                line += format("  %*d", static_cast<int>(strlen(name)), count);
            out.push_back(line);
        }
    }

    void show(const upload &one)
    {
        const row &request = *one.request;
        const long long status = request[COLUMN_UPLOAD_INFO_STATUS].number;
        const bool is_done = status == QUILLO_UPLOAD_STATUS_FINISHED || status == QUILLO_UPLOAD_STATUS_SHARE_FINISHED;
        out.push_back(coloured(colour::bold, format("Request %u  ", request[COLUMN_UPLOAD_INFO_REQ_ID].id())) +
                      coloured(status == QUILLO_UPLOAD_STATUS_FAILED ? colour::red
                               : is_done                             ? colour::green
                                                                     : colour::yellow,
                               word<quillo_upload_status_e>(request[COLUMN_UPLOAD_INFO_STATUS])) +
                      format("  files %u, ", request[COLUMN_UPLOAD_INFO_FILE_COUNT].id()) +
                      size(request[COLUMN_UPLOAD_INFO_TOTAL_SIZE].number) + ", " +
                      date(request[COLUMN_UPLOAD_INFO_SENT_TIME].number));
        const std::string token = secret(request[COLUMN_UPLOAD_INFO_CONTENTS_TOKEN].text);
        out.push_back("  to " + people(one.recipients, COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO,
                                       COLUMN_CONTACT_DETAILS_RECEIVER_CCC));
        out.push_back("  " + (token.empty() ? "no token yet" : "token " + token) + ", " +
                      expiry(request[COLUMN_UPLOAD_INFO_EXPIRED_TIME]) + ", application " +
                      word<quillo_app_type_e>(request[COLUMN_UPLOAD_INFO_APP_TYPE]));
        describe(request[COLUMN_UPLOAD_INFO_DESCRIPTION]);
        for (const row *transfer : one.transfers)
            show_transfer(*transfer, nullptr);
    }

    void show(const share &one)
    {
        const row none;
        const row &notification = one.notification ? *one.notification : none;
        const row &first = one.items.empty() ? none : *one.items[0].content;
        out.push_back(coloured(colour::bold, "Share " + secret(one.token)) + "  " +
                      (one.notification
                           ? word<read_state>(notification[COLUMN_PUSH_NOTI_INFO_READ_NOTI]) + ", arrived " +
                                 date(notification[COLUMN_PUSH_NOTI_INFO_RECEIVED_TIME].number)
                           : "no notification"));
        out.push_back("  from " + secret(first[COLUMN_CONTENT_INFO_FROM_MSISDN].text) + ", " +
                      expiry(one.notification ? notification[COLUMN_PUSH_NOTI_INFO_EXPIRED_TIME]
                                              : first[COLUMN_CONTENT_INFO_EXPIRED_TIME]) +
                      ", sender's side: " + word<quillo_push_status_e>(first[COLUMN_CONTENT_INFO_PUSH_STATUS]));
        describe(first[COLUMN_CONTENT_INFO_DESCRIPTION]);
        for (const item &each : one.items) {
            const row &content = *each.content;
            const bool is_here = content[COLUMN_CONTENT_INFO_DOWNLOADED].number == 1;
            out.push_back("  " + coloured(is_here ? colour::green : colour::dim, is_here ? "here     " : "not yet  ") +
                          safe(content[COLUMN_CONTENT_INFO_NAME].text) + "  " +
                          size(content[COLUMN_CONTENT_INFO_SIZE].id()) + "  " +
                          safe(content[COLUMN_CONTENT_INFO_CONTENT_TYPE].text));
            for (const row *transfer : each.transfers)
                show_transfer(*transfer, &content);
        }
    }

    /** A line with a bar; `content` is the item that a download belongs to. */
    void show_transfer(const row &transfer, const row *content)
    {
        const long long status = transfer[COLUMN_CONTENT_SYNC_INFO_STATUS].number;
        const bool is_upload = transfer[COLUMN_CONTENT_SYNC_INFO_TYPE].number == ZEL_UPLOAD_FILE;
        const bool is_complete = status == ZEL_SYNC_COMPLETE;
        const long long percent = is_complete ? 100 : transfer[COLUMN_CONTENT_SYNC_INFO_PERCENTAGE].number;
        const long long retries = transfer[COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT].number;
        std::string detail = is_given_up(transfer) ? "  given up" : "";
        if (is_upload && !is_complete)
            detail += format("  chunk %lld at %u", transfer[COLUMN_CONTENT_SYNC_INFO_CHUNK_NO].number,
                             transfer[COLUMN_CONTENT_SYNC_INFO_OFFSET].id());
        if (retries)
            detail += format("  retry %lld of %d", retries, RETRY_CAP);
        if (transfer[COLUMN_CONTENT_SYNC_INFO_WIFI_ONLY].number)
            detail += "  Wi-Fi only";
        out.push_back("    " +
                      in_columns(is_upload ? safe(transfer[COLUMN_CONTENT_SYNC_INFO_NAME].text)
                                           : word<zel_file_sync_type>(transfer[COLUMN_CONTENT_SYNC_INFO_TYPE]),
                                 std::max(20, screen.width / 4)) +
                      " " +
                      coloured(is_complete                 ? colour::green
                               : status == ZEL_SYNC_FAILED ? colour::red
                                                           : colour::plain,
                               in_columns(word<zel_file_sync_status>(transfer[COLUMN_CONTENT_SYNC_INFO_STATUS]), 11)) +
                      " " + bar(percent, screen.width > 100 ? 20 : 10) + format(" %3lld %%", percent) +
                      (options.further ? options.further(transfer, content) : "") + detail);
    }

    void show_groups_keys_and_folders()
    {
        heading("Recent groups", read.groups.size());
        for (const group &one : read.groups)
            out.push_back("  " + safe((*one.entry)[COLUMN_GROUP_INDEX_VALUE].text) + "  " +
                          safe((*one.entry)[COLUMN_GROUP_TIME_STAMP].text) + "  " +
                          people(one.members, COLUMN_RECENT_RECEIVER_PHONE_NO, COLUMN_RECENT_RECEIVER_CCC));
        heading("Keys", read.rows(TABLE_UNIQUE_DATA).size());
        for (const row &one : read.rows(TABLE_UNIQUE_DATA))
            out.push_back("  " + safe(one[COLUMN_UNIQUE_DATA_KEY].text) + " = " +
                          secret(one[COLUMN_UNIQUE_DATA_VALUE].text));
        heading("Folders", read.rows(TABLE_FOLDER_INFO).size());
        for (const row &one : read.rows(TABLE_FOLDER_INFO)) {
            const auto token = [&](int column, int expires) {
                return one[column].text.empty() ? "none" : secret(one[column].text) + ", " + expiry(one[expires]);
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
    std::vector<std::string> out;
};

json json_of(const value &stored)
{
    return stored.type == SQLITE_NULL      ? json()
           : stored.type == SQLITE_INTEGER ? json(stored.number)
           : stored.type == SQLITE_FLOAT   ? json(std::stod(stored.text))
                                           : json(stored.text);
}

} // namespace

std::vector<std::string> file_lines(const file_facts &facts)
{
    const passwd *const owner = getpwuid(facts.status.st_uid);
    std::vector<std::string> out = {coloured(colour::bold, safe(facts.path))};
    out.push_back("  owner " + (owner ? safe(owner->pw_name) : std::to_string(facts.status.st_uid)) +
                  format(", mode %04o, %s, %s; times are UTC", facts.status.st_mode & 07777U,
                         size(facts.status.st_size).c_str(), facts.uses_log ? "write-ahead log" : "rollback journal"));
    if (facts.journal_size.value_or(0))
        out.push_back(
            "  beside it a journal of " + size(static_cast<long long>(*facts.journal_size)) +
            (facts.openers.empty() ? ": a write was broken off; here it is undone" : ": a write is under way"));
    if (facts.log_size)
        out.push_back("  beside it a write-ahead log of " + size(static_cast<long long>(*facts.log_size)) +
                      ", which belongs to the data");
    std::string openers = facts.openers.empty() ? "no process" : "";
    for (const process &one : facts.openers)
        openers += (openers.empty() ? "" : ", ") + safe(one.name) + " (" + std::to_string(one.id) + ")";
    out.push_back("  open in " + openers + (facts.sees_all_processes ? "" : "; those of other users are not seen"));
    return out;
}

json file_json(const file_facts &facts)
{
    json openers = json::array();
    for (const process &one : facts.openers)
        openers.push_back({{"pid", one.id}, {"name", one.name}});
    const auto size_or_null = [](const std::optional<size_t> &size) { return size ? json(*size) : json(); };
    return {{"path", facts.path},
            {"uid", facts.status.st_uid},
            {"mode", format("%04o", facts.status.st_mode & 07777U)},
            {"size", facts.status.st_size},
            {"journal_mode", facts.uses_log ? "wal" : "delete"},
            {"journal_size", size_or_null(facts.journal_size)},
            {"log_size", size_or_null(facts.log_size)},
            {"open_in", openers},
            {"sees_all_processes", facts.sees_all_processes}};
}

std::vector<std::string> show_lines(const store &read, const show_options &options)
{
    return viewer(read, options).all();
}

json show_json(const store &read, const show_options &options)
{
    // A row as an object of its columns; what has a word gets it too.
    const auto object = [&](const char *table, const row &one) {
        json made = json::object();
        const std::vector<column> &columns = read.tables.at(table).laid_down;
        for (size_t i = 0; i < columns.size(); ++i) {
            const value &stored = one[static_cast<int>(i)];
            const bool hides = !options.shows_secrets && !stored.is_null() && is_secret(columns[i]);
            made[columns[i].name] = hides ? json(shortened(stored.text)) : json_of(stored);
        }
        if (table == TABLE_CONTENT_INFO_STATUS) {
            made["kind_word"] = word<zel_file_sync_type>(one[COLUMN_CONTENT_SYNC_INFO_TYPE]);
            made["status_word"] = word<zel_file_sync_status>(one[COLUMN_CONTENT_SYNC_INFO_STATUS]);
        } else if (table == TABLE_UPLOAD_REQUEST_DATA) {
            made["status_word"] = word<quillo_upload_status_e>(one[COLUMN_UPLOAD_INFO_STATUS]);
        }
        return made;
    };
    const auto list = [&](const char *table, const std::vector<const row *> &rows) {
        json made = json::array();
        for (const row *one : rows)
            made.push_back(object(table, *one));
        return made;
    };
    const auto whole = [&](const char *table) {
        json made = json::array();
        for (const row &one : read.rows(table))
            made.push_back(object(table, one));
        return made;
    };
    json document = {
        {"store", file_json(read.copy.facts)}, {"findings", json_of(check_file(read))},
        {"summary", json::object()},           {"uploads", json::array()},
        {"received_shares", json::array()},    {"other_transfers", list(TABLE_CONTENT_INFO_STATUS, read.loose)}};
    for (const zel_file_sync_type kind : KINDS)
        for (const auto &[name, count] : summary_of(read, kind))
            document["summary"][word_of(kind)][name] = count;
    for (const upload &one : read.uploads) {
        json &made = document["uploads"].emplace_back(object(TABLE_UPLOAD_REQUEST_DATA, *one.request));
        made["recipients"] = list(TABLE_CONTACT_DETAILS, one.recipients);
        made["transfers"] = list(TABLE_CONTENT_INFO_STATUS, one.transfers);
    }
    for (const share &one : read.shares) {
        json &made = document["received_shares"].emplace_back();
        made["notification"] = one.notification ? object(TABLE_PUSH_NOTI_INFO, *one.notification) : json();
        made["items"] = json::array();
        for (const item &each : one.items)
            made["items"].emplace_back(object(TABLE_CONTENT_INFO, *each.content))["transfers"] =
                list(TABLE_CONTENT_INFO_STATUS, each.transfers);
    }
    if (options.wanted.is_set())
        return document;
    document["recent_groups"] = json::array();
    for (const group &one : read.groups)
        document["recent_groups"].emplace_back(object(TABLE_RECENT_RECEIVER_GROUP, *one.entry))["members"] =
            list(TABLE_RECENT_RECEIVER_DETAILS, one.members);
    document["keys"] = whole(TABLE_UNIQUE_DATA);
    document["folders"] = whole(TABLE_FOLDER_INFO);
    return document;
}

std::string text_of(const json &document, int indentation)
{
    return document.dump(indentation, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace zel_store
