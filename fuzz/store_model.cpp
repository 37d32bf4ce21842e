// A sequence of store operations against a plain model of the tables: after each, code, outputs and rows must agree.
// The database lives in memory and is emptied for every input.
#include "fuzz.h"
#include "zel_common_storage.h"
#include "zel_common_storage/engine.h"
#include "zel_common_storage/received_shares.h"

#include <algorithm>
#include <map>
#include <optional>
#include <vector>

namespace
{

using text = std::optional<std::string>;

struct transfer {
    long long type, status, content_id, req_id, wifi_only, retries, percentage, offset, chunk;
    text token, content_type, original, thumbnail, name, path, key;
};
struct folder {
    text content, token;
    unsigned long long content_time = 0, token_time = 0, sync_time = 0;
};
struct notification {
    std::string token;
    text type;
    unsigned long long expired, received;
    int state = 0;
};
struct values {
    std::string value[4];
};

struct model {
    std::map<std::string, values> keys;
    std::map<std::string, folder> folders;
    std::map<long long, transfer> transfers;
    std::vector<notification> notifications;
    long long last_transfer = 0;

    template <typename Which, typename Change> void change(Which which, Change change)
    {
        for (auto &[id, row] : transfers)
            if (which(id, row))
                change(row);
    }
    template <typename Which> void remove(Which which)
    {
        std::erase_if(transfers, [&](const auto &row) { return which(row.first, row.second); });
    }
    template <typename Which> int count(Which which) const
    {
        return static_cast<int>(std::count_if(transfers.begin(), transfers.end(),
                                              [&](const auto &row) { return which(row.first, row.second); }));
    }
};

std::string shown(const text &value)
{
    return value ? "'" + *value + "'|" : "NULL|";
}

std::string shown(long long value)
{
    return std::to_string(value) + "|";
}

/// Rows as the model has them.
std::string rows_of(const model &rows)
{
    std::string all;
    for (const auto &[key, row] : rows.keys)
        all +=
            shown(key) + shown(row.value[0]) + shown(row.value[1]) + shown(row.value[2]) + shown(row.value[3]) + "\n";
    for (const auto &[group, row] : rows.folders)
        all += shown(group) + shown(row.content) + shown(static_cast<long long>(row.content_time)) + shown(row.token) +
               shown(static_cast<long long>(row.token_time)) + shown(static_cast<long long>(row.sync_time)) + "\n";
    for (const auto &[id, row] : rows.transfers)
        all += shown(id) + shown(row.type) + shown(row.status) + shown(row.content_id) + shown(row.req_id) +
               shown(row.wifi_only) + shown(row.retries) + shown(row.percentage) + shown(row.offset) +
               shown(row.chunk) + shown(row.token) + shown(row.content_type) + shown(row.original) +
               shown(row.thumbnail) + shown(row.name) + shown(row.path) + shown(row.key) + "\n";
    for (const notification &row : rows.notifications)
        all += shown(row.token) + shown(row.type) + shown(static_cast<long long>(row.expired)) + shown(row.state) +
               shown(static_cast<long long>(row.received)) + "\n";
    return all;
}

/// Rows as the database has them.
std::string stored_rows()
{
    std::string all;
    for (const char *query : {"SELECT * FROM unique_data ORDER BY key", "SELECT * FROM folder_info ORDER BY group_id",
                              "SELECT sync_id, sync_type, status, content_id, req_id, wifi_only, fail_retry_count, "
                              "percentage, offset, chunk_no, contents_token, content_type, original, thumbnail, name, "
                              "local_path, mupload_key FROM content_info_status ORDER BY sync_id",
                              "SELECT contents_token, type, expired_time, read_noti, received_time FROM "
                              "push_noti_info ORDER BY id"}) {
        sqlite3_stmt *statement = nullptr;
        REQUIRE(sqlite3_prepare_v2(_g_sqlite_handle, query, -1, &statement, nullptr) == SQLITE_OK);
        while (sqlite3_step(statement) == SQLITE_ROW) {
            for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                const auto *value = reinterpret_cast<const char *>(sqlite3_column_text(statement, i));
                if (sqlite3_column_type(statement, i) == SQLITE_INTEGER)
                    all += std::string(value) + "|";
                else
                    all += shown(value ? text(value) : text());
            }
            all += "\n";
        }
        sqlite3_finalize(statement);
    }
    return all;
}

/// Arguments out of the input: few enough of each for rows to meet.
struct arguments : FuzzedDataProvider {
    using FuzzedDataProvider::FuzzedDataProvider;

    std::string word()
    {
        const auto length = ConsumeIntegralInRange<size_t>(0, 12);
        return ConsumeBytesAsString(length).c_str();
    }
    text maybe()
    {
        return ConsumeBool() ? text(word()) : text();
    }
    std::string key()
    {
        return ConsumeBool() ? std::string(1, ConsumeIntegralInRange('a', 'c')) : word();
    }
    int small()
    {
        return ConsumeIntegralInRange(-1, 6);
    }
    unsigned int any()
    {
        return ConsumeBool() ? ConsumeIntegralInRange(0U, 3U) : ConsumeIntegral<unsigned int>();
    }
    unsigned long long time()
    {
        return ConsumeIntegralInRange(0ULL, 5ULL);
    }
};

const char *pointer(const text &value)
{
    return value ? value->c_str() : nullptr;
}

char *writable(text &value)
{
    return value ? value->data() : nullptr;
}

/// Takes over what an operation has handed out.
text taken(char *value)
{
    const text result = value ? text(value) : text();
    g_free(value);
    return result;
}

int code_of(bool valid)
{
    return valid ? ZEL_ERR_NONE : ZEL_ERR_INVALID_ARG;
}

void key_step(arguments &in, model &rows)
{
    const std::string key = in.key();
    const auto found = rows.keys.find(key);
    char *out[4] = {};
    switch (in.ConsumeIntegralInRange(0, 2)) {
    case 0: {
        const std::string value = in.word();
        const text more[3] = {in.maybe(), in.maybe(), in.maybe()};
        REQUIRE(_common_storage_upsert_unique_data(key.c_str(), value.c_str(), pointer(more[0]), pointer(more[1]),
                                                   pointer(more[2])) == ZEL_ERR_NONE);
        rows.keys[key] = {{value, more[0].value_or(""), more[1].value_or(""), more[2].value_or("")}};
        break;
    }
    case 1:
        REQUIRE(_common_storage_delete_unique_data(key.c_str()) == ZEL_ERR_NONE);
        rows.keys.erase(key);
        break;
    default:
        REQUIRE(_common_storage_get_unique_data(key.c_str(), &out[0], &out[1], &out[2], &out[3]) ==
                (found == rows.keys.end() ? ZEL_ERR_RESOURCE_DOESNT_EXIST : ZEL_ERR_NONE));
        for (int i = 0; i < 4; ++i)
            REQUIRE(taken(out[i]) == (found == rows.keys.end() ? text() : text(found->second.value[i])));
        break;
    }
}

void folder_step(arguments &in, model &rows)
{
    const std::string group = in.key();
    const auto found = rows.folders.find(group);
    const bool known = found != rows.folders.end();
    const int when_known = known ? ZEL_ERR_NONE : ZEL_ERR_RESOURCE_DOESNT_EXIST;
    switch (in.ConsumeIntegralInRange(0, 3)) {
    case 0: {
        const folder add = {in.maybe(), in.maybe(), in.time(), in.time(), in.time()};
        REQUIRE(_common_storage_upsert_folder_info(group.c_str(), pointer(add.content), add.content_time,
                                                   pointer(add.token), add.token_time, add.sync_time) == ZEL_ERR_NONE);
        folder &row = rows.folders[group];
        row.content = add.content ? add.content : row.content;
        row.token = add.token ? add.token : row.token;
        row.content_time = add.content_time ? add.content_time : row.content_time;
        row.token_time = add.token_time ? add.token_time : row.token_time;
        row.sync_time = add.sync_time ? add.sync_time : row.sync_time;
        break;
    }
    case 1:
        REQUIRE(_common_storage_delete_folder_info(group.c_str()) == ZEL_ERR_NONE);
        rows.folders.erase(group);
        break;
    case 2: {
        bool exists = true;
        REQUIRE(_common_storage_exist_folder_token(group.c_str(), &exists) == when_known);
        REQUIRE(exists == (known && !found->second.token.value_or("").empty()));
        break;
    }
    default: {
        char *content = nullptr, *token = nullptr;
        folder read;
        REQUIRE(_common_storage_get_folder_info(group.c_str(), &content, &read.content_time, &token, &read.token_time,
                                                &read.sync_time) == when_known);
        const folder expected = known ? found->second : folder();
        REQUIRE(taken(content) == expected.content && taken(token) == expected.token);
        REQUIRE(read.content_time == expected.content_time && read.token_time == expected.token_time &&
                read.sync_time == expected.sync_time);
        break;
    }
    }
}

void notification_step(arguments &in, model &rows)
{
    const std::string token = in.key();
    const unsigned long long time = in.time();
    const auto is_it = [&](const notification &row) { return row.token == token; };
    const bool known = std::any_of(rows.notifications.begin(), rows.notifications.end(), is_it);
    switch (in.ConsumeIntegralInRange(0, 5)) {
    case 0: {
        const text type = in.maybe();
        REQUIRE(_common_storage_add_push_noti_info(token.c_str(), pointer(type), time, 0) == ZEL_ERR_NONE);
        if (!known)
            rows.notifications.push_back({token, type, time, 0});
        break;
    }
    case 1:
        REQUIRE(_common_storage_delete_expired_push_noti(time) == ZEL_ERR_NONE);
        std::erase_if(rows.notifications, [&](const notification &row) { return row.expired < time; });
        break;
    case 2:
        REQUIRE(_common_storage_update_read_push_noti(token.c_str()) == ZEL_ERR_NONE);
        for (notification &row : rows.notifications)
            if (row.type == token && row.state == 0)
                row.state = 1;
        break;
    case 3:
        REQUIRE(_common_storage_update_check_delete_push_noti(token.c_str()) == ZEL_ERR_NONE);
        for (notification &row : rows.notifications)
            if (is_it(row))
                row.state = 2;
        break;
    case 4:
        REQUIRE(_common_storage_delete_push_noti(token.c_str()) == ZEL_ERR_NONE);
        std::erase_if(rows.notifications, is_it);
        break;
    default: {
        const bool unread = in.ConsumeBool();
        const text type = in.ConsumeBool() ? text(token) : text();
        std::vector<std::string> expected, read;
        bool any = false;
        for (const notification &row : rows.notifications) {
            if (type && row.type != type)
                continue;
            if (unread ? row.state != 0 : row.state == 2)
                continue;
            any = true;
            if (!row.token.empty())
                expected.push_back(row.token);
        }
        char **tokens = nullptr;
        unsigned int length = 0;
        REQUIRE(_common_storage_get_contents_token_list(pointer(type), unread, &tokens, &length) ==
                (any ? ZEL_ERR_NONE : ZEL_ERR_RESOURCE_DOESNT_EXIST));
        for (unsigned int i = 0; i < length; ++i)
            read.push_back(taken(tokens[i]).value());
        free(tokens);
        // All arrived at the same time: in any order.
        std::sort(read.begin(), read.end());
        std::sort(expected.begin(), expected.end());
        REQUIRE(read == expected);
        break;
    }
    }
}

void transfer_step(arguments &in, model &rows)
{
    const int id = in.small();
    const int req_id = in.small();
    const auto status = static_cast<zel_file_sync_status>(in.ConsumeIntegralInRange(0, 5));
    const auto other = static_cast<zel_file_sync_status>(in.ConsumeIntegralInRange(0, 5));
    const auto type = static_cast<zel_file_sync_type>(in.ConsumeIntegralInRange(0, 3));
    const unsigned int number = in.any();
    const auto this_row = [&](long long row_id, const transfer &) { return row_id == id; };
    const auto of_request = [&](long long, const transfer &row) { return row.req_id == req_id; };
    const bool good_id = id > 0, good_request = req_id > 0;
    switch (in.ConsumeIntegralInRange(0, 15)) {
    case 0:
    case 1: {
        text token = in.maybe(), original = in.maybe(), thumbnail = in.maybe(), name = in.maybe(), path = in.maybe(),
             key = in.maybe();
        const unsigned int retries = in.ConsumeIntegralInRange(0U, 7U);
        zel_content_sync_info info = {77,
                                      type,
                                      status,
                                      1,
                                      number,
                                      number,
                                      retries,
                                      number,
                                      number,
                                      id,
                                      5,
                                      writable(token),
                                      writable(original),
                                      writable(thumbnail),
                                      writable(name),
                                      writable(path),
                                      writable(key)};
        if (in.ConsumeBool()) {
            REQUIRE(_common_storage_add_sync_content_info(&info) == ZEL_ERR_NONE);
            REQUIRE(info.sync_id == ++rows.last_transfer);
            rows.transfers[info.sync_id] = {type,
                                            status,
                                            1,
                                            number,
                                            number,
                                            retries,
                                            number,
                                            number,
                                            id,
                                            token.value_or(""),
                                            "",
                                            original.value_or(""),
                                            thumbnail.value_or(""),
                                            name.value_or(""),
                                            path.value_or(""),
                                            key.value_or("")};
            break;
        }
        info.sync_id = static_cast<unsigned int>(id);
        // The four texts must be there, if a row is to be rewritten.
        const bool complete = token && original && thumbnail && name;
        const bool refused = !complete && rows.transfers.count(id) != 0;
        REQUIRE(_common_storage_update_sync_content_info(&info) == (refused ? ZEL_ERR_STORAGE_FAILURE : ZEL_ERR_NONE));
        if (!refused)
            rows.change(this_row, [&](transfer &row) {
                row = {type,  status,           1,        number,    number, retries,  row.percentage, number, id,
                       token, row.content_type, original, thumbnail, name,   row.path, row.key};
            });
        break;
    }
    case 2:
        REQUIRE(_common_storage_set_failed_status_sync_content_info(id) == code_of(good_id));
        rows.change(this_row, [&](transfer &row) { row.req_id = 0, row.status = ZEL_SYNC_FAILED; });
        break;
    case 3:
        REQUIRE(_common_storage_update_status_sync_content_info(id, status) == code_of(good_id));
        rows.change(this_row, [&](transfer &row) { row.status = status; });
        break;
    case 4:
        REQUIRE(_common_storage_update_status_sync_content_info_by_sync_id(id, status, other) == code_of(good_id));
        rows.change(this_row, [&](transfer &row) { row.status = row.status == other ? status : row.status; });
        break;
    case 5:
        REQUIRE(_common_storage_update_status_sync_content_info_by_req_id(req_id, status, other) ==
                code_of(good_request));
        if (good_request)
            rows.change(of_request, [&](transfer &row) { row.status = row.status == other ? status : row.status; });
        break;
    case 6:
        REQUIRE(_common_storage_set_all_status_sync_content_info(type, status, other) == ZEL_ERR_NONE);
        rows.change([&](long long, const transfer &row) { return row.type == type && row.status == status; },
                    [&](transfer &row) { row.status = other; });
        break;
    case 7:
        REQUIRE(_common_storage_update_percentage_sync_content_info(id, number) == code_of(good_id));
        rows.change(this_row, [&](transfer &row) { row.percentage = static_cast<int>(number); });
        break;
    case 8:
        REQUIRE(_common_storage_update_upload_info(id, number, req_id) == code_of(good_id));
        rows.change(this_row, [&](transfer &row) { row.offset = number, row.chunk = req_id; });
        break;
    case 9: {
        const text url = in.maybe(), content_type = in.maybe();
        REQUIRE(_common_storage_update_url_info(static_cast<unsigned int>(id), pointer(url), pointer(content_type)) ==
                code_of(id != 0));
        rows.change(this_row, [&](transfer &row) { row.original = url.value_or(""), row.content_type = content_type; });
        break;
    }
    case 10:
        REQUIRE(_common_storage_delete_sync_content_info(static_cast<unsigned int>(id)) == code_of(id != 0));
        rows.remove(this_row);
        break;
    case 11:
        REQUIRE(_common_storage_delete_sync_content_info_based_on_param(number, type, status) == ZEL_ERR_NONE);
        rows.remove([&](long long, const transfer &row) {
            return row.req_id == number && row.type == type && row.status == status;
        });
        break;
    case 12: {
        const int consider = in.ConsumeIntegralInRange(-2, 2);
        const int expected = rows.count([&](long long, const transfer &row) {
            return row.status == status && row.type == type &&
                   (consider == -1 || (consider == 0 ? row.retries == 0 : row.retries >= 1 && row.retries <= 5));
        });
        int count = -77;
        const int code = _common_storage_get_sync_content_info_count(type, status, consider, &count);
        if (consider < -1 || consider > 1)
            REQUIRE(code == ZEL_ERR_STORAGE_FAILURE && count == -77);
        else if (expected)
            REQUIRE(code == ZEL_ERR_NONE && count == expected);
        else
            REQUIRE(code == ZEL_ERR_STORAGE_NO_RECORDS && count == -77);
        if (consider == 0)
            REQUIRE(_common_storage_get_batch_count(type, status, false) == std::max(10 - expected, 0));
        break;
    }
    case 13: {
        const int limit = in.ConsumeIntegralInRange(0, 4);
        const int matching = rows.count([&](long long, const transfer &row) {
            return row.status == status && (type == ZEL_UNKNOWN || row.type == type) &&
                   (status != ZEL_SYNC_FAILED || row.retries <= 5);
        });
        GList *list = nullptr;
        REQUIRE(_common_storage_get_sync_content_info_list(type, status, &list, limit) ==
                (std::min(matching, limit) ? ZEL_ERR_NONE : ZEL_ERR_STORAGE_NO_RECORDS));
        REQUIRE(static_cast<int>(g_list_length(list)) == std::min(matching, limit));
        long long retries = 0;
        for (const GList *node = list; node; node = node->next) {
            const auto *const read = static_cast<zel_content_sync_info *>(node->data);
            const transfer &row = rows.transfers.at(read->sync_id);
            REQUIRE(read->status == status && row.offset == read->offset && row.chunk == read->chunk_no);
            REQUIRE((read->name ? read->name : "") == row.name);
            REQUIRE(status != ZEL_SYNC_FAILED || row.retries >= retries);
            retries = row.retries;
        }
        g_list_free_full(list, _common_storage_free_sync_content_info);
        break;
    }
    case 14: {
        bool completed = false;
        REQUIRE(_common_storage_check_all_file_completed_by_req_id(req_id, &completed) == code_of(req_id != 0));
        if (req_id)
            REQUIRE(completed == (rows.count([&](long long, const transfer &row) {
                        return row.req_id == req_id && row.status != ZEL_SYNC_COMPLETE && row.status != ZEL_SYNC_FAILED;
                    }) == 0));
        break;
    }
    default:
        if (in.ConsumeIntegralInRange(0, 7) != 0)
            break;
        REQUIRE(_common_storage_clear() == ZEL_ERR_NONE);
        rows.transfers.clear();
        rows.notifications.clear();
        break;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int in_memory = sqlite3_vfs_register(sqlite3_vfs_find("memdb"), 1);
    static const int opened = _common_storage_init();
    REQUIRE(in_memory == SQLITE_OK && opened == ZEL_ERR_NONE);
    REQUIRE(sqlite3_exec(_g_sqlite_handle,
                         "DELETE FROM unique_data; DELETE FROM folder_info; DELETE FROM content_info_status;"
                         "DELETE FROM push_noti_info; DELETE FROM sqlite_sequence",
                         nullptr, nullptr, nullptr) == SQLITE_OK);
    arguments in(data, size);
    model rows;
    for (int steps = 0; in.remaining_bytes() && steps < 60; ++steps) {
        switch (in.ConsumeIntegralInRange(0, 4)) {
        case 0:
            key_step(in, rows);
            break;
        case 1:
            folder_step(in, rows);
            break;
        case 2:
            notification_step(in, rows);
            break;
        default:
            transfer_step(in, rows);
            break;
        }
        REQUIRE(stored_rows() == rows_of(rows));
    }
    return 0;
}
