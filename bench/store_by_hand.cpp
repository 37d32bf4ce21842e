#include "store_by_hand.h"

#include "zel_common_log/trace.h"
#include "zel_common_storage/schema.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace bench::by_hand
{

namespace
{

constexpr auto TRANSFERS = zel_storage::TABLE_CONTENT_INFO_STATUS;
constexpr auto REQUESTS = zel_storage::TABLE_UPLOAD_REQUEST_DATA;
constexpr auto ITEMS = zel_storage::TABLE_CONTENT_INFO;
constexpr auto GROUPS = zel_storage::TABLE_RECENT_RECEIVER_GROUP;
constexpr auto MEMBERS = zel_storage::TABLE_RECENT_RECEIVER_DETAILS;
constexpr auto RECIPIENTS = zel_storage::TABLE_CONTACT_DETAILS;
constexpr auto KEYS = zel_storage::TABLE_UNIQUE_DATA;
constexpr auto FOLDERS = zel_storage::TABLE_FOLDER_INFO;

/* One statement. Each of these releases its text, but for the insert. */

bool run(sqlite3 *database, char *text)
{
    ZEL_PLAIN("query [%s]", text);
    sqlite3_stmt *statement = nullptr;
    bool done = sqlite3_prepare_v2(database, text, -1, &statement, nullptr) == SQLITE_OK &&
                sqlite3_step(statement) == SQLITE_DONE;
    done = sqlite3_finalize(statement) == SQLITE_OK && done;
    sqlite3_free(text);
    return done;
}

/** The text ends in "; SELECT last_insert_rowid();". */
bool insert(sqlite3 *database, char *text, unsigned int *row_id)
{
    ZEL_PLAIN("query [%s]", text);
    sqlite3_stmt *statement = nullptr;
    const char *tail = nullptr;
    bool done = sqlite3_prepare_v2(database, text, -1, &statement, &tail) == SQLITE_OK &&
                sqlite3_step(statement) == SQLITE_DONE;
    done = sqlite3_finalize(statement) == SQLITE_OK && done;
    if (done && sqlite3_prepare_v2(database, tail, -1, &statement, nullptr) == SQLITE_OK) {
        done = sqlite3_step(statement) == SQLITE_ROW;
        ZEL_BEGIN();
        ZEL_DEBUG("Assigning value %s", reinterpret_cast<const char *>(sqlite3_column_text(statement, 0)));
        *row_id = static_cast<unsigned int>(sqlite3_column_int(statement, 0));
        ZEL_END();
        sqlite3_finalize(statement);
    }
    return done;
}

template <bool lines = true> sqlite3_stmt *prepare(sqlite3 *database, char *text)
{
    if constexpr (lines) {
        ZEL_BEGIN();
        ZEL_PLAIN("query[%s]", text);
    }
    sqlite3_stmt *statement = nullptr;
    // The length without the terminator, as the library is bound to give it: SQLite copies the text then.
    sqlite3_prepare_v2(database, text, static_cast<int>(strlen(text)), &statement, nullptr);
    sqlite3_free(text);
    return statement;
}

template <bool lines = true> void finalize(sqlite3_stmt *statement)
{
    [[maybe_unused]] const int code = sqlite3_finalize(statement);
    if constexpr (lines)
        ZEL_DEBUG("sqlite3_finalize = [%d]", code);
}

/** The two reads that reset before they finalize. */
void reset_and_finalize(sqlite3_stmt *statement)
{
    sqlite3_clear_bindings(statement);
    sqlite3_reset(statement);
    finalize(statement);
}

/* Columns. */

const char *text_at(sqlite3_stmt *row, int column)
{
    return reinterpret_cast<const char *>(sqlite3_column_text(row, column));
}

char *copy_at(sqlite3_stmt *row, int column)
{
    const char *text = text_at(row, column);
    return text && *text ? g_strdup(text) : nullptr;
}

unsigned int number_at(sqlite3_stmt *row, int column)
{
    return static_cast<unsigned int>(sqlite3_column_int(row, column));
}

unsigned long long long_at(sqlite3_stmt *row, int column)
{
    return static_cast<unsigned long long>(sqlite3_column_int64(row, column));
}

unsigned long long timestamp()
{
    ZEL_BEGIN();
    timeval now = {};
    gettimeofday(&now, nullptr);
    const auto seconds = static_cast<unsigned long long>(now.tv_sec);
    ZEL_DEBUG(" timestamp:%llu", seconds);
    ZEL_END();
    return seconds;
}

template <bool lines = true> zel_content_sync_info *transfer_of(sqlite3_stmt *row)
{
    auto *info = g_new0(zel_content_sync_info, 1);
    if constexpr (lines)
        ZEL_BEGIN();
    info->sync_id = number_at(row, COLUMN_CONTENT_SYNC_INFO_SYNC_ID);
    info->type = static_cast<zel_file_sync_type>(sqlite3_column_int(row, COLUMN_CONTENT_SYNC_INFO_TYPE));
    info->status = static_cast<zel_file_sync_status>(sqlite3_column_int(row, COLUMN_CONTENT_SYNC_INFO_STATUS));
    info->content_id = number_at(row, COLUMN_CONTENT_SYNC_INFO_CONTENT_ID);
    info->req_id = number_at(row, COLUMN_CONTENT_SYNC_INFO_REQ_ID);
    info->wifi_only = number_at(row, COLUMN_CONTENT_SYNC_INFO_WIFI_ONLY);
    info->fail_retry_count = number_at(row, COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT);
    info->percentage = number_at(row, COLUMN_CONTENT_SYNC_INFO_PERCENTAGE);
    info->offset = number_at(row, COLUMN_CONTENT_SYNC_INFO_OFFSET);
    info->chunk_no = sqlite3_column_int(row, COLUMN_CONTENT_SYNC_INFO_CHUNK_NO);
    info->sent_time = long_at(row, COLUMN_CONTENT_SYNC_INFO_SENT_TIME);
    info->contents_token = copy_at(row, COLUMN_CONTENT_SYNC_INFO_CONTENTS_TOKEN);
    info->original = copy_at(row, COLUMN_CONTENT_SYNC_INFO_ORIGINAL);
    info->thumbnail = copy_at(row, COLUMN_CONTENT_SYNC_INFO_THUMBNAIL);
    info->name = copy_at(row, COLUMN_CONTENT_SYNC_INFO_NAME);
    info->local_path = copy_at(row, COLUMN_CONTENT_SYNC_INFO_LOCAL_PATH);
    info->mupload_key = copy_at(row, COLUMN_CONTENT_SYNC_INFO_MUPLOAD_KEY);
    if constexpr (lines)
        ZEL_END();
    return info;
}

/** The first column of a query's only row. */
unsigned int number_of(sqlite3 *database, char *text)
{
    sqlite3_stmt *row = prepare(database, text);
    const unsigned int number = sqlite3_step(row) == SQLITE_ROW ? number_at(row, 0) : 0;
    finalize(row);
    return number;
}

/** An array of the groups' numbers, the most recent first. */
int *read_groups(sqlite3 *database, int *count)
{
    ZEL_BEGIN();
    ZEL_BEGIN();
    *count = static_cast<int>(number_of(database, sqlite3_mprintf("SELECT count(*) FROM %Q;", GROUPS)));
    ZEL_END();
    sqlite3_stmt *row =
        prepare(database, sqlite3_mprintf("SELECT index_value FROM %Q ORDER BY time_stamp DESC, id DESC;", GROUPS));
    auto *groups = g_new0(int, *count);
    for (int i = 0; i < *count && sqlite3_step(row) == SQLITE_ROW; ++i)
        groups[i] = sqlite3_column_int(row, 0);
    finalize(row);
    ZEL_END();
    return groups;
}

bool is_listed(sqlite3_stmt *row, quillo_msisdn_s *const *list, unsigned int length)
{
    const int number_id = sqlite3_column_int(row, COLUMN_RECENT_RECEIVER_NUM_ID);
    const char *phone_no = text_at(row, COLUMN_RECENT_RECEIVER_PHONE_NO);
    const char *ccc = text_at(row, COLUMN_RECENT_RECEIVER_CCC);
    for (unsigned int i = 0; i < length; ++i)
        if (list[i]->number_id == number_id && strcmp(list[i]->phone_number, phone_no) == 0 &&
            strcmp(list[i]->ccc, ccc) == 0)
            return true;
    return false;
}

} // namespace

bool add_transfer(sqlite3 *database, zel_content_sync_info *info)
{
    ZEL_BEGIN();
    char *text = sqlite3_mprintf(
        "INSERT into %Q VALUES (NULL,%d,%d,%u,%u,%u,%u,%u,%u,%d,%llu,%Q,%Q,%Q, %Q, %Q, %Q, %Q); SELECT "
        "last_insert_rowid();",
        TRANSFERS, info->type, info->status, info->content_id, info->req_id, info->wifi_only, info->fail_retry_count,
        info->percentage, info->offset, info->chunk_no, info->sent_time, info->contents_token, "", info->original,
        info->thumbnail, info->name, info->local_path, info->mupload_key);
    const bool done = insert(database, text, &info->sync_id);
    sqlite3_free(text);
    ZEL_END();
    return done;
}

bool add_request(sqlite3 *database, zel_upload_request_info *info)
{
    ZEL_BEGIN();
    info->sent_time = timestamp();
    char *text = sqlite3_mprintf(
        "INSERT into %Q VALUES (NULL,%u,%u,%u,%u,%llu,%llu, %Q,%d,%Q,%llu); SELECT last_insert_rowid();", REQUESTS,
        info->req_id, info->file_count, info->status, info->receiver_count, info->expired_time, info->total_size,
        info->contents_token, info->app_type, info->description, info->sent_time);
    const bool done = insert(database, text, &info->unique_id);
    sqlite3_free(text);
    ZEL_END();
    return done;
}

bool rewrite_transfer(sqlite3 *database, zel_content_sync_info *info)
{
    ZEL_BEGIN();
    info->sent_time = timestamp();
    const bool done = run(
        database,
        sqlite3_mprintf("UPDATE %Q set sync_type = %d, status = %d, content_id = %u, \treq_id = %u, wifi_only = %u, "
                        "sent_time = %llu, fail_retry_count = %u, offset = %u, chunk_no = %d, \tcontents_token = %Q, "
                        "original = %Q, \tthumbnail = %Q, name = %Q WHERE sync_id = %u",
                        TRANSFERS, info->type, info->status, info->content_id, info->req_id, info->wifi_only,
                        info->sent_time, info->fail_retry_count, info->offset, info->chunk_no, info->contents_token,
                        info->original, info->thumbnail, info->name, info->sync_id));
    ZEL_END();
    return done;
}

bool update_status(sqlite3 *database, int sync_id, int status)
{
    ZEL_BEGIN();
    const bool done =
        run(database, sqlite3_mprintf("UPDATE %Q SET status = %d WHERE sync_id = %d", TRANSFERS, status, sync_id));
    ZEL_END();
    return done;
}

bool update_percentage(sqlite3 *database, int sync_id, unsigned int percentage)
{
    ZEL_BEGIN();
    const bool done = run(
        database, sqlite3_mprintf("UPDATE %Q SET percentage = %d WHERE sync_id = %d", TRANSFERS, percentage, sync_id));
    ZEL_END();
    return done;
}

bool update_chunk(sqlite3 *database, int sync_id, unsigned int offset, int chunk_no)
{
    ZEL_BEGIN();
    const bool done = run(database, sqlite3_mprintf("UPDATE %Q SET offset = %u, chunk_no=%d WHERE sync_id = %d",
                                                    TRANSFERS, offset, chunk_no, sync_id));
    ZEL_END();
    return done;
}

bool delete_transfer(sqlite3 *database, unsigned int sync_id)
{
    ZEL_BEGIN();
    const bool done = run(database, sqlite3_mprintf("DELETE FROM %Q WHERE sync_id = %u", TRANSFERS, sync_id));
    ZEL_END();
    return done;
}

bool read_percentage(sqlite3 *database, unsigned int sync_id, unsigned int *percentage)
{
    ZEL_BEGIN();
    sqlite3_stmt *row = prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE sync_id = %d;", TRANSFERS, sync_id));
    const bool found = sqlite3_step(row) == SQLITE_ROW;
    if (found)
        *percentage = number_at(row, COLUMN_CONTENT_SYNC_INFO_PERCENTAGE);
    finalize(row);
    ZEL_END();
    return found;
}

bool read_upload_status(sqlite3 *database, unsigned int req_id, int *status)
{
    ZEL_BEGIN();
    sqlite3_stmt *row =
        prepare(database, sqlite3_mprintf("SELECT status FROM %Q WHERE req_id = %u;", REQUESTS, req_id));
    const bool found = sqlite3_step(row) == SQLITE_ROW;
    if (found)
        *status = sqlite3_column_int(row, 0);
    finalize(row);
    ZEL_END();
    return found;
}

bool count_transfers(sqlite3 *database, int type, int status, int *count)
{
    ZEL_BEGIN();
    *count = static_cast<int>(
        number_of(database, sqlite3_mprintf("SELECT COUNT(*) FROM %Q WHERE status = %d and sync_type = %d", TRANSFERS,
                                            status, type)));
    ZEL_END();
    return *count > 0;
}

template <bool lines> zel_content_sync_info *read_transfer(sqlite3 *database, int sync_id)
{
    if constexpr (lines)
        ZEL_BEGIN();
    sqlite3_stmt *row =
        prepare<lines>(database, sqlite3_mprintf("SELECT * FROM %Q WHERE sync_id = %d;", TRANSFERS, sync_id));
    zel_content_sync_info *info = sqlite3_step(row) == SQLITE_ROW ? transfer_of<lines>(row) : nullptr;
    finalize<lines>(row);
    if constexpr (lines)
        ZEL_END();
    return info;
}
template zel_content_sync_info *read_transfer<true>(sqlite3 *, int);
template zel_content_sync_info *read_transfer<false>(sqlite3 *, int);

template <bool lines> void release_transfer(void *data)
{
    if constexpr (lines)
        ZEL_BEGIN();
    auto *info = static_cast<zel_content_sync_info *>(data);
    g_free(info->contents_token);
    g_free(info->original);
    g_free(info->thumbnail);
    g_free(info->name);
    g_free(info->local_path);
    g_free(info->mupload_key);
    g_free(info);
    if constexpr (lines)
        ZEL_END();
}
template void release_transfer<true>(void *);
template void release_transfer<false>(void *);

GList *list_transfers(sqlite3 *database, int type, int status, int limit)
{
    ZEL_BEGIN();
    sqlite3_stmt *row =
        prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE status = %d and sync_type = %d  LIMIT 0,%d",
                                          TRANSFERS, status, type, limit));
    GList *list = nullptr;
    while (sqlite3_step(row) == SQLITE_ROW)
        list = g_list_prepend(list, transfer_of(row));
    finalize(row);
    ZEL_END();
    return g_list_reverse(list);
}

zel_trans_upload_info *read_report(sqlite3 *database, unsigned int req_id)
{
    ZEL_BEGIN();
    sqlite3_stmt *request = prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE req_id = %u;", REQUESTS, req_id));
    if (sqlite3_step(request) != SQLITE_ROW) {
        finalize(request);
        return nullptr;
    }
    auto *report = g_new0(zel_trans_upload_info, 1);
    const unsigned int receiver_count = number_at(request, COLUMN_UPLOAD_INFO_RECIEVERS_COUNT);
    report->request_id = req_id;
    report->total_size = long_at(request, COLUMN_UPLOAD_INFO_TOTAL_SIZE);
    report->file_count = number_at(request, COLUMN_UPLOAD_INFO_FILE_COUNT);
    report->expired_time = long_at(request, COLUMN_UPLOAD_INFO_EXPIRED_TIME);
    report->status = static_cast<quillo_upload_status_e>(sqlite3_column_int(request, COLUMN_UPLOAD_INFO_STATUS));
    report->sent_time = long_at(request, COLUMN_UPLOAD_INFO_SENT_TIME);
    report->contents_token = g_strdup(text_at(request, COLUMN_UPLOAD_INFO_CONTENTS_TOKEN));
    ZEL_INFO("Reqid [%u]: total_size: [%llu] file_count: [%u] exp.time: [%llu] receipient_count: [%u] "
             "upload_status: [%d] sent_time: [%llu] contents_token: [%s]\n",
             req_id, report->total_size, report->file_count, report->expired_time, receiver_count, report->status,
             report->sent_time, report->contents_token);

    // The number of recipients is read once more: the recipients are an operation of their own.
    ZEL_BEGIN();
    const unsigned int size =
        number_of(database, sqlite3_mprintf("SELECT receiver_count FROM %Q WHERE req_id = %u;", REQUESTS, req_id));
    sqlite3_stmt *row = prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE req_id = %u;", RECIPIENTS, req_id));
    report->msisdn_list = g_new0(quillo_msisdn_s *, size);
    for (unsigned int i = 0; i < size && sqlite3_step(row) == SQLITE_ROW; ++i) {
        auto *recipient = g_new0(quillo_msisdn_s, 1);
        ZEL_BEGIN();
        recipient->number_id = sqlite3_column_int(row, COLUMN_CONTACT_DETAILS_RECEIVER_NUM_ID);
        recipient->phone_number = copy_at(row, COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO);
        recipient->ccc = copy_at(row, COLUMN_CONTACT_DETAILS_RECEIVER_CCC);
        ZEL_END();
        report->msisdn_list[i] = recipient;
    }
    report->msisdn_count = size;
    finalize(row);
    ZEL_END();

    ZEL_BEGIN();
    row = prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE req_id = %d;", TRANSFERS, req_id));
    GList *paths = nullptr;
    while (sqlite3_step(row) == SQLITE_ROW) {
        const char *path = text_at(row, COLUMN_CONTENT_SYNC_INFO_LOCAL_PATH);
        if (!path)
            continue;
        paths = g_list_prepend(paths, g_strdup(path));
        ZEL_PLAIN("[Filepath] %s", path);
    }
    report->file_path_list = g_list_reverse(paths);
    finalize(row);
    ZEL_END();
    finalize(request);
    ZEL_END();
    return report;
}

bool add_share(sqlite3 *database, zel_trans_share_content_info *share)
{
    ZEL_BEGIN();
    ZEL_BEGIN();
    sqlite3_stmt *stored =
        prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE contents_token = %Q", ITEMS, share->contents_token));
    const bool exists = sqlite3_step(stored) == SQLITE_ROW;
    if (!exists)
        ZEL_DEBUG("No records found");
    finalize(stored);
    ZEL_END();
    if (exists)
        return false;
    const char *const no_push_status = nullptr;
    bool done = true;
    for (const GList *node = share->content_info_list; node; node = node->next) {
        auto *item = static_cast<zel_trans_content_info *>(node->data);
        ZEL_BEGIN();
        char *text = sqlite3_mprintf(
            "INSERT into %Q VALUES (NULL, %lld, %u, %u, %Q, %Q, %Q, %Q, %Q, %Q, %Q, %Q, %Q, %d, %Q, %Q, %Q); SELECT "
            "last_insert_rowid();",
            ITEMS, share->expired_time, item->download_count, item->size, share->contents_token, share->description,
            share->type, share->from_msisdn, share->to_list, item->original, item->thumbnail, item->name,
            item->content_type, 0, item->big_thumbnail, item->mid_thumbnail, no_push_status);
        done = insert(database, text, &item->content_id) && done;
        ZEL_INFO("[ZEL] err_code: [%d] Query: %s", 0, text);
        sqlite3_free(text);
        ZEL_END();
    }
    ZEL_END();
    return done;
}

quillo_msisdn_s **read_recent_receivers(sqlite3 *database, unsigned int *count)
{
    ZEL_BEGIN();
    int group_count = 0;
    int *groups = read_groups(database, &group_count);
    quillo_msisdn_s **members = nullptr;
    unsigned int size = 0;
    *count = 0;
    for (int i = 0; i < group_count; ++i) {
        sqlite3_stmt *row =
            prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE group_id=%d", MEMBERS, groups[i]));
        while (sqlite3_step(row) == SQLITE_ROW) {
            if (*count == size) {
                size = size ? size * 2 : 8;
                members = static_cast<quillo_msisdn_s **>(realloc(members, size * sizeof *members));
            }
            auto *member = g_new0(quillo_msisdn_s, 1);
            ZEL_BEGIN();
            member->number_id = sqlite3_column_int(row, COLUMN_RECENT_RECEIVER_NUM_ID);
            member->phone_number = copy_at(row, COLUMN_RECENT_RECEIVER_PHONE_NO);
            member->ccc = copy_at(row, COLUMN_RECENT_RECEIVER_CCC);
            member->group_id = sqlite3_column_int(row, COLUMN_RECENT_RECEIVER_GROUP_ID);
            ZEL_END();
            members[(*count)++] = member;
        }
        finalize(row);
    }
    g_free(groups);
    ZEL_END();
    return members;
}

int find_receiver_list(sqlite3 *database, quillo_msisdn_s *const *list, unsigned int length, bool *exists)
{
    ZEL_BEGIN();
    int group_count = 0;
    int *groups = read_groups(database, &group_count);
    int found = groups[group_count - 1];
    *exists = false;
    for (int i = 0; i < group_count && !*exists; ++i) {
        if (number_of(database, sqlite3_mprintf("SELECT count(*) FROM %Q WHERE group_id = %d;", MEMBERS, groups[i])) !=
            length)
            continue;
        sqlite3_stmt *row =
            prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE group_id = %d;", MEMBERS, groups[i]));
        bool all = true;
        while (all && sqlite3_step(row) == SQLITE_ROW)
            all = is_listed(row, list, length);
        finalize(row);
        if (all) {
            *exists = true;
            found = groups[i];
        }
    }
    g_free(groups);
    ZEL_END();
    return found;
}

bool upsert_key(sqlite3 *database, const char *key, const char *value)
{
    ZEL_BEGIN();
    const bool done = run(database, sqlite3_mprintf("INSERT OR REPLACE INTO %Q VALUES (%Q, %Q, %Q, %Q, %Q)", KEYS, key,
                                                    value, "", "", ""));
    ZEL_END();
    return done;
}

char *read_key(sqlite3 *database, const char *key)
{
    ZEL_BEGIN();
    sqlite3_stmt *row = prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE key = %Q;", KEYS, key));
    char *value = sqlite3_step(row) == SQLITE_ROW ? g_strdup(text_at(row, COLUMN_UNIQUE_DATA_VALUE)) : nullptr;
    reset_and_finalize(row);
    ZEL_END();
    return value;
}

bool upsert_folder(sqlite3 *database, const char *group_id, const char *folder_token,
                   unsigned long long folder_token_expired_time)
{
    ZEL_BEGIN();
    ZEL_PLAIN("before group_id[%p], contents_token[%p], content_token_expired_time[%lld], folder_token[%p], "
              "folder_token_expired_time[%lld], folder_sync_time[%lld]",
              static_cast<const void *>(group_id), static_cast<const void *>(nullptr), 0LL,
              static_cast<const void *>(folder_token), static_cast<long long>(folder_token_expired_time), 0LL);
    // What is stored is read first: it stays where nothing new is given.
    char *stored_token = nullptr;
    char *stored_folder_token = nullptr;
    unsigned long long stored_time = 0;
    unsigned long long stored_sync_time = 0;
    ZEL_BEGIN();
    sqlite3_stmt *row = prepare(database, sqlite3_mprintf("SELECT * FROM %Q WHERE group_id = %Q;", FOLDERS, group_id));
    if (sqlite3_step(row) == SQLITE_ROW) {
        stored_token = g_strdup(text_at(row, COLUMN_FOLDER_INFO_CONTENT_TOKEN));
        stored_time = long_at(row, COLUMN_FOLDER_INFO_CONTENT_TOKEN_EXPIRED_TIME);
        stored_folder_token = g_strdup(text_at(row, COLUMN_FOLDER_INFO_FOLDER_TOKEN));
        stored_sync_time = long_at(row, COLUMN_FOLDER_INFO_FOLDER_SYNC_TIME);
    }
    reset_and_finalize(row);
    ZEL_END();
    char *text = sqlite3_mprintf("INSERT OR REPLACE INTO %Q VALUES (%Q, %Q, %lld, %Q, %lld, %lld)", FOLDERS, group_id,
                                 stored_token, stored_time, folder_token ? folder_token : stored_folder_token,
                                 folder_token_expired_time, stored_sync_time);
    g_free(stored_token);
    g_free(stored_folder_token);
    ZEL_DEBUG("after");
    const bool done = run(database, text);
    ZEL_END();
    return done;
}

} // namespace bench::by_hand
