// A sequence of store operations against a plain model of the tables: after each, code, outputs and rows must agree.
// The database lives in memory and is emptied for every input.
#include "fuzz.h"
#include "zel_common_storage.h"
#include "zel_common_storage/engine.h"

#include <algorithm>
#include <array>
#include <map>

namespace
{

// Few, so that rows meet. The first stands for an absent text.
const char *const words[] = {nullptr, "", "a", "b", "it's", "100 %s \xff"};

struct folder {
    const char *content, *token;
    std::array<unsigned long long, 3> times; ///< of the content, of the token, of the sync
};

struct model {
    std::map<std::string, folder> folders;
    std::map<unsigned int, zel_content_sync_info> transfers; ///< texts are among the words
    unsigned int last_transfer = 0;

    template <typename Which> int count(Which which) const
    {
        return static_cast<int>(
            std::count_if(transfers.begin(), transfers.end(), [&](const auto &row) { return which(row.second); }));
    }
};

std::string shown(const char *value)
{
    return value ? value : "NULL";
}

std::string shown(std::integral auto value)
{
    return std::to_string(value);
}

std::string rows_of(const model &rows)
{
    std::string all;
    const auto add = [&all](const auto &...values) { all += ((shown(values) + "|") + ...) + "\n"; };
    const auto text = [](const char *value) { return value ? value : ""; }; // transfers know no absent ones
    for (const auto &[group, row] : rows.folders)
        add(group.c_str(), row.content, row.times[0], row.token, row.times[1], row.times[2]);
    for (const auto &[id, row] : rows.transfers)
        add(id, static_cast<int>(row.type), static_cast<int>(row.status), row.content_id, row.req_id, row.wifi_only,
            row.fail_retry_count, row.percentage, row.offset, row.chunk_no, text(row.contents_token),
            text(row.original), text(row.thumbnail), text(row.name), text(row.local_path), text(row.mupload_key));
    return all;
}

std::string stored_rows()
{
    std::string all;
    for (const char *query : {"SELECT * FROM folder_info ORDER BY group_id",
                              "SELECT sync_id, sync_type, status, content_id, req_id, wifi_only, fail_retry_count, "
                              "percentage, offset, chunk_no, contents_token, original, thumbnail, name, local_path, "
                              "mupload_key FROM content_info_status ORDER BY sync_id"}) {
        sqlite3_stmt *statement = nullptr;
        REQUIRE(sqlite3_prepare_v2(_g_sqlite_handle, query, -1, &statement, nullptr) == SQLITE_OK);
        for (; sqlite3_step(statement) == SQLITE_ROW; all += "\n")
            for (int i = 0; i < sqlite3_column_count(statement); ++i)
                all += shown(reinterpret_cast<const char *>(sqlite3_column_text(statement, i))) + "|";
        sqlite3_finalize(statement);
    }
    return all;
}

void folder_step(FuzzedDataProvider &in, model &rows)
{
    const std::string group = in.PickValueInArray({"", "a", "it's"});
    const auto found = rows.folders.find(group);
    const folder row = found == rows.folders.end() ? folder() : found->second;
    const auto time = [&in] { return in.ConsumeIntegralInRange(0ULL, 3ULL); };
    folder now = {in.PickValueInArray(words), in.PickValueInArray(words), {time(), time(), time()}};
    switch (in.ConsumeIntegralInRange(0, 2)) {
    case 0:
        REQUIRE(_common_storage_upsert_folder_info(group.c_str(), now.content, now.times[0], now.token, now.times[1],
                                                   now.times[2]) == ZEL_ERR_NONE);
        // What is not given stays as it was.
        now.content = now.content ? now.content : row.content;
        now.token = now.token ? now.token : row.token;
        for (size_t i = 0; i < now.times.size(); ++i)
            now.times[i] = now.times[i] ? now.times[i] : row.times[i];
        rows.folders[group] = now;
        break;
    case 1:
        REQUIRE(_common_storage_delete_folder_info(group.c_str()) == ZEL_ERR_NONE);
        rows.folders.erase(group);
        break;
    default: {
        char *content = nullptr, *token = nullptr;
        now.times = {};
        REQUIRE(_common_storage_get_folder_info(group.c_str(), &content, &now.times[0], &token, &now.times[1],
                                                &now.times[2]) ==
                (found == rows.folders.end() ? ZEL_ERR_RESOURCE_DOESNT_EXIST : ZEL_ERR_NONE));
        REQUIRE(shown(content) == shown(row.content) && shown(token) == shown(row.token) && now.times == row.times);
        g_free(content);
        g_free(token);
        break;
    }
    }
}

zel_file_sync_type any_type(FuzzedDataProvider &in)
{
    return static_cast<zel_file_sync_type>(in.ConsumeIntegralInRange(0, 3));
}

zel_file_sync_status any_status(FuzzedDataProvider &in)
{
    return static_cast<zel_file_sync_status>(in.ConsumeIntegralInRange(0, 5));
}

/// Adds a transfer, or rewrites the one of this id.
void record_step(FuzzedDataProvider &in, model &rows)
{
    char *texts[6];
    for (char *&text : texts)
        text = const_cast<char *>(in.PickValueInArray(words));
    const auto id = in.ConsumeIntegralInRange(0U, 5U), number = in.ConsumeIntegralInRange(0U, 5U);
    const auto retries = in.ConsumeIntegralInRange(0U, 7U);
    zel_content_sync_info info = {id,       any_type(in), any_status(in), 1,        number,  number & 1,
                                  retries,  number,       number,         -1,       5,       texts[0],
                                  texts[1], texts[2],     texts[3],       texts[4], texts[5]};
    if (in.ConsumeBool()) {
        REQUIRE(_common_storage_add_sync_content_info(&info) == ZEL_ERR_NONE);
        REQUIRE(info.sync_id == ++rows.last_transfer);
        rows.transfers[info.sync_id] = info;
        return;
    }
    // The first four texts must be there, if a row is to be rewritten.
    const auto found = rows.transfers.find(id);
    const bool known = found != rows.transfers.end();
    const bool refused = known && std::find(texts, texts + 4, nullptr) != texts + 4;
    REQUIRE(_common_storage_update_sync_content_info(&info) == (refused ? ZEL_ERR_STORAGE_FAILURE : ZEL_ERR_NONE));
    if (known && !refused) {
        const zel_content_sync_info old = std::exchange(found->second, info);
        found->second.percentage = old.percentage;
        found->second.local_path = old.local_path;
        found->second.mupload_key = old.mupload_key;
    }
}

/// Arguments of a change of transfers.
struct wish {
    int id, req_id;
    zel_file_sync_type type;
    zel_file_sync_status status, other;
};

struct change {
    int (*call)(const wish &it);
    int wish::*above_zero; ///< NULL when any argument will do
    bool (*meets)(const wish &it, const zel_content_sync_info &row);
    void (*apply)(const wish &it, zel_content_sync_info &row); ///< NULL to remove the row
};

bool by_id(const wish &it, const zel_content_sync_info &row)
{
    return static_cast<int>(row.sync_id) == it.id;
}

#define CALL(name, ...) [](const wish &it) -> int { return _common_storage_##name(__VA_ARGS__); }
#define ROW(...) [](const wish &it, const zel_content_sync_info &row) -> bool { return __VA_ARGS__; }
#define CHANGE(...) [](const wish &it, zel_content_sync_info &row) { static_cast<void>(it), __VA_ARGS__; }

const change changes[] = {
    {CALL(set_failed_status_sync_content_info, it.id), &wish::id, by_id,
     CHANGE(row.req_id = 0, row.status = ZEL_SYNC_FAILED)},
    {CALL(update_status_sync_content_info, it.id, it.status), &wish::id, by_id, CHANGE(row.status = it.status)},
    {CALL(update_status_sync_content_info_by_req_id, it.req_id, it.status, it.other), &wish::req_id,
     ROW(static_cast<int>(row.req_id) == it.req_id && row.status == it.other), CHANGE(row.status = it.status)},
    {CALL(set_all_status_sync_content_info, it.type, it.status, it.other), nullptr,
     ROW(row.type == it.type && row.status == it.status), CHANGE(row.status = it.other)},
    {CALL(update_upload_info, it.id, 4000000000U, it.req_id), &wish::id, by_id,
     CHANGE(row.offset = 4000000000U, row.chunk_no = it.req_id)},
    {CALL(delete_sync_content_info, static_cast<unsigned int>(std::max(it.id, 0))), &wish::id, by_id, nullptr},
    {CALL(delete_sync_content_info_based_on_param, static_cast<unsigned int>(it.req_id), it.type, it.status), nullptr,
     ROW(static_cast<int>(row.req_id) == it.req_id && row.type == it.type && row.status == it.status), nullptr},
};

void change_step(FuzzedDataProvider &in, model &rows)
{
    const change &chosen = changes[in.ConsumeIntegralInRange<size_t>(0, std::size(changes) - 1)];
    const wish it = {in.ConsumeIntegralInRange(-1, 6), in.ConsumeIntegralInRange(-1, 6), any_type(in), any_status(in),
                     any_status(in)};
    const bool valid = !chosen.above_zero || it.*chosen.above_zero > 0;
    REQUIRE(chosen.call(it) == (valid ? ZEL_ERR_NONE : ZEL_ERR_INVALID_ARG));
    for (auto &[id, row] : rows.transfers)
        if (valid && chosen.apply && chosen.meets(it, row))
            chosen.apply(it, row);
    if (valid && !chosen.apply)
        std::erase_if(rows.transfers, [&](const auto &row) { return chosen.meets(it, row.second); });
}

void question_step(FuzzedDataProvider &in, model &rows)
{
    const auto type = any_type(in);
    const auto status = any_status(in);
    const int consider = in.ConsumeIntegralInRange(-2, 2), limit = in.ConsumeIntegralInRange(0, 4);
    const int expected = rows.count([&](const zel_content_sync_info &row) {
        const unsigned int retries = row.fail_retry_count;
        return row.status == status && row.type == type &&
               (consider == -1 || (consider == 0 ? retries == 0 : retries >= 1 && retries <= 5));
    });
    int count = -77;
    const bool unheard_of = consider < -1 || consider > 1;
    REQUIRE(_common_storage_get_sync_content_info_count(type, status, consider, &count) ==
            (unheard_of ? ZEL_ERR_STORAGE_FAILURE
             : expected ? ZEL_ERR_NONE
                        : ZEL_ERR_STORAGE_NO_RECORDS));
    REQUIRE(count == (unheard_of || expected == 0 ? -77 : expected));

    const int matching = std::min(limit, rows.count([&](const zel_content_sync_info &row) {
        return row.status == status && (type == ZEL_UNKNOWN || row.type == type) &&
               (status != ZEL_SYNC_FAILED || row.fail_retry_count <= 5);
    }));
    GList *list = nullptr;
    REQUIRE(_common_storage_get_sync_content_info_list(type, status, &list, limit) ==
            (matching ? ZEL_ERR_NONE : ZEL_ERR_STORAGE_NO_RECORDS));
    REQUIRE(static_cast<int>(g_list_length(list)) == matching);
    for (const GList *node = list; node; node = node->next) {
        const auto *const read = static_cast<zel_content_sync_info *>(node->data);
        const zel_content_sync_info &row = rows.transfers.at(read->sync_id);
        REQUIRE(row.status == status && row.offset == read->offset && row.chunk_no == read->chunk_no);
        REQUIRE(std::string(row.name ? row.name : "") == (read->name ? read->name : ""));
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
        REQUIRE(stored_rows() == rows_of(rows));
    }
    return 0;
}
