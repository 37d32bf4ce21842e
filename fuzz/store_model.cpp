// A sequence of store operations against a plain model of two tables: after each, code, outputs and rows must agree.
// The database lives in memory and is emptied for every input.
#include "fuzz.h"
#include "zel_common_storage.h"
#include "zel_common_storage/patterns.h"

#include <algorithm>
#include <map>
#include <vector>

namespace
{

using row = std::vector<std::string>;
using table = std::map<std::string, row>; ///< by the first column

// Columns of a transfer.
constexpr size_t ID = 0, TYPE = 1, STATUS = 2, REQ_ID = 4, RETRIES = 6, PERCENTAGE = 7, OFFSET = 8, CHUNK_NO = 9,
                 SENT_TIME = 10, LOCAL_PATH = 16, MUPLOAD_KEY = 17;

struct model {
    table folders, transfers;
    unsigned int last_transfer = 0;
};

std::string shown(const char *value)
{
    return value ? value : "NULL";
}

template <typename T>
requires std::is_arithmetic_v<T> || std::is_enum_v<T> std::string shown(T value)
{
    return std::to_string(+value); // an enumeration counts as its number
}

row cells(auto... values)
{
    return {shown(values)...};
}

/// The row of a transfer, which knows no absent texts, without the time, which the clock gives.
row row_of(const zel_content_sync_info &it)
{
    const auto text = [](const char *value) { return value ? value : ""; };
    return cells(it.sync_id, it.type, it.status, it.content_id, it.req_id, it.wifi_only, it.fail_retry_count,
                 it.percentage, it.offset, it.chunk_no, "", text(it.contents_token), "", text(it.original),
                 text(it.thumbnail), text(it.name), text(it.local_path), text(it.mupload_key));
}

table stored(const std::string &name)
{
    table all;
    sqlite3_stmt *statement = nullptr;
    const std::string query = "SELECT * FROM " + name;
    REQUIRE(sqlite3_prepare_v2(_g_sqlite_handle, query.c_str(), -1, &statement, nullptr) == SQLITE_OK);
    while (sqlite3_step(statement) == SQLITE_ROW) {
        row it;
        for (int i = 0; i < sqlite3_column_count(statement); ++i)
            it.push_back(shown(reinterpret_cast<const char *>(sqlite3_column_text(statement, i))));
        if (it.size() > SENT_TIME)
            it[SENT_TIME].clear();
        all[it[0]] = it;
    }
    sqlite3_finalize(statement);
    return all;
}

// Few of everything, so that rows meet.

char *any_text(FuzzedDataProvider &in)
{
    return const_cast<char *>(in.PickValueInArray({"", "a", "b", "it's", "100 %s \xff"}));
}

zel_file_sync_type any_type(FuzzedDataProvider &in)
{
    return in.PickValueInArray({ZEL_UNKNOWN, ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_FILE});
}

zel_file_sync_status any_status(FuzzedDataProvider &in)
{
    return in.PickValueInArray({ZEL_SYNC_TODO, ZEL_SYNC_FAILED, ZEL_SYNC_COMPLETE});
}

/// Merges values into a folder's record, or deletes it.
void folder_step(FuzzedDataProvider &in, model &rows)
{
    const char *const group = any_text(in);
    if (in.ConsumeBool()) {
        REQUIRE(_common_storage_delete_folder_info(group) == ZEL_ERR_NONE);
        rows.folders.erase(group);
        return;
    }
    const char *const content = in.ConsumeBool() ? any_text(in) : nullptr;
    const char *const token = in.ConsumeBool() ? any_text(in) : nullptr;
    unsigned long long times[3];
    for (unsigned long long &time : times)
        time = in.ConsumeIntegralInRange(0ULL, 3ULL);
    REQUIRE(_common_storage_upsert_folder_info(group, content, times[0], token, times[1], times[2]) == ZEL_ERR_NONE);
    const row given = cells(group, content, times[0], token, times[1], times[2]);
    row &now = rows.folders.try_emplace(group, given).first->second;
    for (size_t i = 0; i < given.size(); ++i)
        if (given[i] != "NULL" && given[i] != "0") // what is not given stays as it was
            now[i] = given[i];
}

/// Adds a transfer, or rewrites the one of this id.
void record_step(FuzzedDataProvider &in, model &rows)
{
    char *texts[6];
    for (char *&text : texts)
        text = any_text(in);
    const auto id = in.ConsumeIntegralInRange(0U, 5U), number = in.ConsumeIntegralInRange(0U, 5U);
    const auto retries = in.PickValueInArray({0U, 1U, 5U, 6U}); // around the bounds
    zel_content_sync_info info = {id,       any_type(in), any_status(in), 1,        number,  number & 1,
                                  retries,  number,       number,         -1,       5,       texts[0],
                                  texts[1], texts[2],     texts[3],       texts[4], texts[5]};
    if (in.ConsumeBool()) {
        REQUIRE(_common_storage_add_sync_content_info(&info) == ZEL_ERR_NONE);
        REQUIRE(info.sync_id == ++rows.last_transfer);
        rows.transfers[shown(info.sync_id)] = row_of(info);
        return;
    }
    REQUIRE(_common_storage_update_sync_content_info(&info) == ZEL_ERR_NONE);
    const auto found = rows.transfers.find(shown(id));
    if (found == rows.transfers.end())
        return;
    row now = row_of(info);
    for (const size_t kept : {PERCENTAGE, LOCAL_PATH, MUPLOAD_KEY})
        now[kept] = found->second[kept];
    found->second = now;
}

/// Changes the transfers that have some values, or deletes them.
void change_step(FuzzedDataProvider &in, model &rows)
{
    using some_cells = std::map<size_t, std::string>; // by column
    const auto change = [&rows](zel_err_e code, const some_cells &having, const some_cells &then) {
        REQUIRE(code == ZEL_ERR_NONE);
        for (const auto &[id, before] : table(rows.transfers)) {
            const auto is_there = [&it = before](const auto &cell) { return it[cell.first] == cell.second; };
            if (!std::all_of(having.begin(), having.end(), is_there))
                continue;
            for (const auto &[column, value] : then)
                rows.transfers[id][column] = value;
            if (then.empty())
                rows.transfers.erase(id);
        }
    };
    const int id = in.ConsumeIntegralInRange(1, 6), req = in.ConsumeIntegralInRange(1, 6);
    const auto type = any_type(in);
    const auto was = any_status(in), status = any_status(in);
    const some_cells by_id = {{ID, shown(id)}}, moved = {{STATUS, shown(status)}};
    switch (in.ConsumeIntegralInRange(0, 6)) {
    case 0:
        return change(_common_storage_set_failed_status_sync_content_info(id), by_id,
                      {{REQ_ID, "0"}, {STATUS, shown(ZEL_SYNC_FAILED)}});
    case 1:
        return change(_common_storage_update_status_sync_content_info(id, status), by_id, moved);
    case 2:
        return change(_common_storage_update_status_sync_content_info_by_req_id(req, status, was),
                      {{REQ_ID, shown(req)}, {STATUS, shown(was)}}, moved);
    case 3:
        return change(_common_storage_set_all_status_sync_content_info(type, was, status),
                      {{TYPE, shown(type)}, {STATUS, shown(was)}}, moved);
    case 4:
        return change(_common_storage_update_upload_info(id, 4000000000U, -req), by_id,
                      {{OFFSET, "4000000000"}, {CHUNK_NO, shown(-req)}});
    case 5:
        return change(_common_storage_delete_sync_content_info(static_cast<unsigned int>(id)), by_id, {});
    default:
        return change(
            _common_storage_delete_sync_content_info_based_on_param(static_cast<unsigned int>(req), type, was),
            {{REQ_ID, shown(req)}, {TYPE, shown(type)}, {STATUS, shown(was)}}, {});
    }
}

void question_step(FuzzedDataProvider &in, model &rows)
{
    const auto type = any_type(in);
    const auto status = any_status(in);
    const int consider = in.ConsumeIntegralInRange(-1, 1);
    const auto limit = in.ConsumeIntegralInRange<size_t>(0, 4);
    int countable = 0;
    table listable;
    for (auto &[id, it] : rows.transfers) {
        const int retries = std::stoi(it[RETRIES]);
        const bool has_status = it[STATUS] == shown(status), has_type = it[TYPE] == shown(type);
        const bool is_considered = consider == 0 ? retries == 0 : consider < 0 || (retries >= 1 && retries <= 5);
        countable += has_status && has_type && is_considered;
        if (has_status && (has_type || type == ZEL_UNKNOWN) && (status != ZEL_SYNC_FAILED || retries <= 5))
            listable[id] = it;
    }
    int count = 0;
    REQUIRE(_common_storage_get_sync_content_info_count(type, status, consider, &count) ==
            (countable ? ZEL_ERR_NONE : ZEL_ERR_STORAGE_NO_RECORDS));
    REQUIRE(count == countable);

    GList *list = nullptr;
    const size_t expected = std::min(limit, listable.size());
    REQUIRE(_common_storage_get_sync_content_info_list(type, status, &list, static_cast<int>(limit)) ==
            (expected ? ZEL_ERR_NONE : ZEL_ERR_STORAGE_NO_RECORDS));
    REQUIRE(g_list_length(list) == expected);
    for (const GList *node = list; node; node = node->next) {
        const row read = row_of(*static_cast<zel_content_sync_info *>(node->data));
        const auto found = listable.find(read[ID]);
        REQUIRE(found != listable.end() && found->second == read);
        listable.erase(found); // lest it come twice
    }
    g_list_free_full(list, _common_storage_free_sync_content_info);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int in_memory = sqlite3_vfs_register(sqlite3_vfs_find("memdb"), 1);
    static const int opened = _common_storage_init();
    REQUIRE(in_memory == SQLITE_OK && opened == ZEL_ERR_NONE);
    const char *const empty = "DELETE FROM folder_info; DELETE FROM content_info_status; DELETE FROM sqlite_sequence";
    REQUIRE(sqlite3_exec(_g_sqlite_handle, empty, nullptr, nullptr, nullptr) == SQLITE_OK);
    FuzzedDataProvider in(data, size);
    model rows;
    for (int i = 0; in.remaining_bytes() && i < 60; ++i) {
        in.PickValueInArray({folder_step, record_step, change_step, change_step, question_step})(in, rows);
        REQUIRE(stored("folder_info") == rows.folders && stored("content_info_status") == rows.transfers);
    }
    return 0;
}
