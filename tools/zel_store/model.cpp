#include "model.h"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace zel_store
{

namespace
{

std::vector<column> columns_of(sqlite3 *database, const std::string &table)
{
    std::vector<column> columns;
    for (const row &one : rows_of(database, "SELECT name, type FROM pragma_table_info('" + table + "')"))
        columns.push_back({one[0].text, one[1].text});
    return columns;
}

/** Reads all rows; around a damaged page both from the front and from the end. */
void read_rows(sqlite3 *database, const std::string &name, stored_table &table)
{
    table.rows = rows_of(database, "SELECT * FROM " + name, &table.complaint);
    if (table.complaint.empty())
        return;
    std::map<long long, row> by_id;
    for (const char *order : {"ASC", "DESC"})
        for (row &one : rows_of(database, "SELECT *, rowid FROM " + name + " ORDER BY rowid " + order)) {
            const long long id = one.columns.back().number;
            one.columns.pop_back();
            by_id.emplace(id, std::move(one));
        }
    table.rows.clear();
    for (auto &[id, one] : by_id)
        table.rows.push_back(std::move(one));
}

void read_tables(store &read)
{
    sqlite3 *opened = nullptr;
    sqlite3_open(":memory:", &opened);
    const connection laid_down(opened);
    sqlite3 *const database = read.copy.database.get();
    for (const table &one : TABLES) {
        sqlite3_exec(opened, one.create, nullptr, nullptr, nullptr);
        stored_table &stored = read.tables[one.name];
        stored.laid_down = columns_of(opened, one.name);
        stored.found = columns_of(database, one.name);
        stored.exists = !stored.found.empty();
        if (stored.exists)
            read_rows(database, one.name, stored);
    }
}

using rows_by = std::multimap<unsigned int, const row *>;

rows_by by_id(const std::vector<row> &rows, int column)
{
    rows_by result;
    for (const row &one : rows)
        result.emplace(one[column].id(), &one);
    return result;
}

std::vector<const row *> with_id(const rows_by &rows, unsigned int id)
{
    std::vector<const row *> result;
    for (auto [one, end] = rows.equal_range(id); one != end; ++one)
        result.push_back(one->second);
    return result;
}

template <typename Record, typename Key> void newest_first(std::vector<Record> &records, Key key)
{
    std::stable_sort(records.begin(), records.end(), [&](const Record &a, const Record &b) { return key(a) > key(b); });
}

void put_together(store &read)
{
    std::set<const row *> placed;
    rows_by recipients = by_id(read.rows(TABLE_CONTACT_DETAILS), COLUMN_CONTACT_DETAILS_REQ_ID);
    rows_by of_request;
    rows_by of_item;
    for (const row &one : read.rows(TABLE_CONTENT_INFO_STATUS)) {
        if (one[COLUMN_CONTENT_SYNC_INFO_TYPE].number == ZEL_UPLOAD_FILE)
            of_request.emplace(one[COLUMN_CONTENT_SYNC_INFO_REQ_ID].id(), &one);
        else
            of_item.emplace(one[COLUMN_CONTENT_SYNC_INFO_CONTENT_ID].id(), &one);
    }
    for (const row &one : read.rows(TABLE_UPLOAD_REQUEST_DATA)) {
        const unsigned int id = one[COLUMN_UPLOAD_INFO_REQ_ID].id();
        read.uploads.push_back({&one, with_id(recipients, id), with_id(of_request, id)});
        placed.insert(read.uploads.back().transfers.begin(), read.uploads.back().transfers.end());
    }
    newest_first(read.uploads, [](const upload &one) {
        return std::pair((*one.request)[COLUMN_UPLOAD_INFO_SENT_TIME].number,
                         (*one.request)[COLUMN_UPLOAD_INFO_UNIQUE_ID].number);
    });

    std::map<std::string, size_t> places;
    const auto share_of = [&](const std::string &token) -> share & {
        const auto [place, is_new] = places.emplace(token, read.shares.size());
        if (is_new)
            read.shares.push_back({token, nullptr, {}});
        return read.shares[place->second];
    };
    for (const row &one : read.rows(TABLE_PUSH_NOTI_INFO))
        share_of(one[COLUMN_PUSH_NOTI_INFO_COTENTS_TOKEN].text).notification = &one;
    for (const row &one : read.rows(TABLE_CONTENT_INFO)) {
        const item made = {&one, with_id(of_item, one[COLUMN_CONTENT_INFO_CONTENT_ID].id())};
        placed.insert(made.transfers.begin(), made.transfers.end());
        share_of(one[COLUMN_CONTENT_INFO_CONTENTS_TOKEN].text).items.push_back(made);
    }
    newest_first(read.shares, [](const share &one) {
        return one.notification ? (*one.notification)[COLUMN_PUSH_NOTI_INFO_RECEIVED_TIME].number : 0;
    });

    const rows_by members = by_id(read.rows(TABLE_RECENT_RECEIVER_DETAILS), COLUMN_RECENT_RECEIVER_GROUP_ID);
    for (const row &one : read.rows(TABLE_RECENT_RECEIVER_GROUP))
        read.groups.push_back({&one, with_id(members, one[COLUMN_GROUP_INDEX_VALUE].id())});
    newest_first(read.groups, [](const group &one) {
        return std::pair((*one.entry)[COLUMN_GROUP_TIME_STAMP].text, (*one.entry)[COLUMN_GROUP_ID].number);
    });

    for (const row &one : read.rows(TABLE_CONTENT_INFO_STATUS))
        if (!placed.contains(&one))
            read.loose.push_back(&one);
}

void narrow(store &read, const narrowing &wanted)
{
    const auto id = static_cast<unsigned int>(std::strtoll(wanted.request.c_str(), nullptr, 10));
    const auto is_token = [&](const std::string &token) { return wanted.token.empty() || token == wanted.token; };
    std::erase_if(read.uploads, [&](const upload &one) {
        return !is_token((*one.request)[COLUMN_UPLOAD_INFO_CONTENTS_TOKEN].text) ||
               (!wanted.request.empty() && (*one.request)[COLUMN_UPLOAD_INFO_REQ_ID].id() != id);
    });
    std::erase_if(read.shares, [&](const share &one) { return !wanted.request.empty() || !is_token(one.token); });
    std::erase_if(read.loose, [&](const row *one) {
        return wanted.request.empty() ? (*one)[COLUMN_CONTENT_SYNC_INFO_CONTENTS_TOKEN].text != wanted.token
                                      : (*one)[COLUMN_CONTENT_SYNC_INFO_REQ_ID].id() != id;
    });
    read.groups.clear();
}

} // namespace

std::vector<row> rows_of(sqlite3 *database, const std::string &statement, std::string *complaint)
{
    std::vector<row> rows;
    sqlite3_stmt *prepared = nullptr;
    int code = sqlite3_prepare_v2(database, statement.c_str(), -1, &prepared, nullptr);
    while (code == SQLITE_OK && (code = sqlite3_step(prepared)) == SQLITE_ROW) {
        row one;
        for (int i = 0; i < sqlite3_column_count(prepared); ++i) {
            value stored = {sqlite3_column_type(prepared, i), sqlite3_column_int64(prepared, i), {}};
            if (const void *bytes = sqlite3_column_blob(prepared, i); bytes)
                stored.text.assign(static_cast<const char *>(bytes),
                                   static_cast<size_t>(sqlite3_column_bytes(prepared, i)));
            one.columns.push_back(std::move(stored));
        }
        rows.push_back(std::move(one));
        code = SQLITE_OK;
    }
    if (code != SQLITE_DONE && complaint)
        *complaint = sqlite3_errmsg(database);
    sqlite3_finalize(prepared);
    return rows;
}

store read_store(const std::string &path, const narrowing &wanted)
{
    store read;
    read.copy = take_copy(path);
    const std::vector<row> version = rows_of(read.copy.database.get(), "PRAGMA user_version");
    read.version = version.empty() ? 0 : static_cast<int>(version[0][0].number);
    read_tables(read);
    put_together(read);
    if (wanted.is_set())
        narrow(read, wanted);
    return read;
}

} // namespace zel_store
