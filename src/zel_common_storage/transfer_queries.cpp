/* Reads of the transfer rows of content_info_status: lists, records and single fields. */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/rows.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

namespace
{

constexpr auto TABLE = TABLE_CONTENT_INFO_STATUS;

/* Lists and records ------------------------------------------------------------------------------------------ */

/** Returns a new record of the current row; null when memory runs out. */
zel_content_sync_info *new_record(sqlite3_stmt *row)
{
    auto *record = g_try_new0(zel_content_sync_info, 1);
    if (record)
        __fill_content_sync_info(row, record);
    return record;
}

/** Sets `records` to a list of a query's rows. */
zel_err_e list_records(const sql_text &statement, GList **records, log_site site = log_here())
{
    query rows(statement, site);
    zel_err_e result = check_prepared(rows, "Failed to get file", site);
    if (result == ZEL_ERR_NONE && !rows.next())
        result = ZEL_ERR_STORAGE_NO_RECORDS;
    if (result == ZEL_ERR_NONE) {
        GList *list = nullptr;
        do {
            if (zel_content_sync_info *record = new_record(rows))
                list = g_list_prepend(list, record);
        } while (rows.next());
        *records = g_list_reverse(list);
    }
    return finish(rows, result, site);
}

/** Sets the output to a record; logs a record that could not be allocated. */
zel_err_e hand_out_record(zel_content_sync_info *record, zel_content_sync_info **output, log_site site = log_here())
{
    if (!record)
        return fail(ZEL_ERR_MEMORY, "Memory Allocation Failure", site);
    *output = record;
    return ZEL_ERR_NONE;
}

/** Sets `ids` to the request ids of a query's rows, one for each run of equal ids. */
zel_err_e list_request_ids(const sql_text &statement, unsigned int **ids, unsigned int *count,
                           log_site site = log_here())
{
    query rows(statement, site);
    const zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST, site);
    if (result == ZEL_ERR_NONE) {
        unsigned int *found = nullptr;
        unsigned int found_count = 0;
        unsigned int last = 0;
        do {
            const unsigned int id = uint_column(rows, 0);
            if (id == last)
                continue;
            if (!append_id(found, found_count, id, site))
                break;
            last = id;
        } while (rows.next());
        *ids = found;
        *count = found_count;
    }
    return finish(rows, result, site);
}

/* Single fields ---------------------------------------------------------------------------------------------- */

sql_text row_by_sync_id(unsigned int sync_id)
{
    return sql("SELECT * FROM %Q WHERE sync_id = %d;", TABLE, sync_id);
}

zel_err_e read_wifi_only(const sql_text &statement, bool *wifi_only, log_site site = log_here())
{
    query row(statement, site);
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS, site);
    if (result == ZEL_ERR_NONE)
        *wifi_only = int_column(row, 0) == 1;
    return finish(row, result, site);
}

} // namespace

zel_err_e _common_storage_get_sync_content_info_list(zel_file_sync_type type, zel_file_sync_status status,
                                                     GList **content_info_list, int limit)
{
    ZEL_BEGIN();
    if (!content_info_list)
        return reject("Invalid Params");
    sql_text statement;
    if (type != ZEL_UNKNOWN && status != ZEL_SYNC_FAILED)
        statement =
            sql("SELECT * FROM %Q WHERE status = %d and sync_type = %d  LIMIT 0,%d", TABLE, status, type, limit);
    else if (type != ZEL_UNKNOWN)
        statement =
            sql("SELECT * FROM %Q WHERE status = %d \t\t\t\tand sync_type = %d and fail_retry_count <= %d order "
                "by fail_retry_count  LIMIT 0,%d",
                TABLE, status, type, RETRY_CAP, limit);
    else if (status != ZEL_SYNC_FAILED)
        statement = sql("SELECT * FROM %Q WHERE status = %d  LIMIT 0,%d", TABLE, status, limit);
    else
        statement = sql("SELECT * FROM %Q WHERE status = %d and \t\t\t\tfail_retry_count <= %d order by "
                        "fail_retry_count  LIMIT 0,%d",
                        TABLE, status, RETRY_CAP, limit);
    return list_records(statement, content_info_list);
}

zel_err_e _common_storage_get_sync_content_info_list_by_req_id(zel_file_sync_type type, zel_file_sync_status status,
                                                               GList **content_info_list, int req_id)
{
    ZEL_BEGIN();
    if (!content_info_list)
        return reject("Invalid Params");
    sql_text statement;
    if (type != ZEL_UNKNOWN && status != ZEL_SYNC_FAILED)
        statement =
            sql("SELECT * FROM %Q WHERE status = %d and sync_type = %d and req_id = %d", TABLE, status, type, req_id);
    else if (type != ZEL_UNKNOWN)
        statement = sql("SELECT * FROM %Q WHERE status = %d and sync_type = %d and fail_retry_count <= %d and "
                        "req_id = %d order by fail_retry_count",
                        TABLE, status, type, RETRY_CAP, req_id);
    else if (status != ZEL_SYNC_FAILED)
        statement = sql("SELECT * FROM %Q WHERE status = %d and req_id = %d", TABLE, status, req_id);
    else
        statement = sql("SELECT * FROM %Q WHERE status = %d and fail_retry_count <= %d and req_id = %d order by "
                        "fail_retry_count",
                        TABLE, status, RETRY_CAP, req_id);
    return list_records(statement, content_info_list);
}

zel_err_e _common_storage_get_sync_content_info_list_only_by_req_id(zel_file_sync_type type, GList **content_info_list,
                                                                    int req_id)
{
    ZEL_BEGIN();
    if (!content_info_list)
        return reject("Invalid Params");
    return list_records(sql("SELECT * FROM %Q WHERE sync_type = %d and req_id = %d", TABLE, type, req_id),
                        content_info_list);
}

zel_err_e _common_storage_get_sync_content_info(int content_id, zel_file_sync_type type,
                                                zel_content_sync_info **sync_info)
{
    ZEL_BEGIN();
    if (!sync_info)
        return reject("Invalid Params");
    query rows(sql("SELECT * FROM %Q WHERE content_id = %d and sync_type = %d", TABLE, content_id, type));
    zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE) {
        zel_content_sync_info *last = nullptr;
        do {
            if (last)
                _common_storage_free_sync_content_info(last);
            last = new_record(rows);
        } while (rows.next());
        result = hand_out_record(last, sync_info);
    }
    return finish(rows, result);
}

zel_err_e _common_storage_get_sync_content_info_by_sync_id(int sync_id, zel_content_sync_info **sync_info)
{
    ZEL_BEGIN();
    if (!sync_info)
        return reject("Invalid Params");
    query row(row_by_sync_id(static_cast<unsigned int>(sync_id)));
    zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE)
        result = hand_out_record(new_record(row), sync_info);
    return finish(row, result);
}

zel_err_e _common_storage_get_req_id_by_sync_type_and_status(zel_file_sync_type type, unsigned int **req_id_list,
                                                             unsigned int *count, bool is_pause)
{
    ZEL_BEGIN();
    if (!req_id_list || !count)
        return reject("Invalid parameters");
    return list_request_ids(sql("SELECT req_id FROM %Q WHERE (status = %d or status = %d) and sync_type = %d and "
                                "fail_retry_count = 0",
                                TABLE, is_pause ? ZEL_SYNC_TODO : ZEL_SYNC_PAUSED,
                                is_pause ? ZEL_SYNC_ONGOING : ZEL_SYNC_PAUSED_TODO, type),
                            req_id_list, count);
}

zel_err_e _common_storage_get_resumable_and_cancellable_req_id_by_sync_type(zel_file_sync_type type,
                                                                            unsigned int **req_id_list,
                                                                            unsigned int *count)
{
    ZEL_BEGIN();
    if (!req_id_list || !count)
        return reject("Invalid parameters");
    return list_request_ids(
        sql("SELECT req_id FROM %Q WHERE (status = %d or status = %d or status = %d or status = %d) and sync_type = %d "
            "and fail_retry_count = 0",
            TABLE, ZEL_SYNC_TODO, ZEL_SYNC_ONGOING, ZEL_SYNC_PAUSED, ZEL_SYNC_PAUSED_TODO, type),
        req_id_list, count);
}

zel_err_e _common_storage_get_sync_content_info_url_list(int req_id, GList **url_list)
{
    ZEL_BEGIN();
    if (req_id <= 0 || !url_list)
        return reject("Invalid parameter");
    query rows(sql("SELECT * FROM %Q WHERE req_id = %d;", TABLE, req_id));
    const zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE) {
        GList *list = nullptr;
        do {
            const char *url = text_column(rows, COLUMN_CONTENT_SYNC_INFO_ORIGINAL);
            const char *content_type = text_column(rows, COLUMN_CONTENT_SYNC_INFO_CONTENT_TYPE);
            if (!url || !content_type)
                continue;
            auto *info = g_try_new0(zel_trans_url_info, 1);
            if (!info)
                continue;
            info->url = g_strdup(url);
            info->content_type = g_strdup(content_type);
            ZEL_INFO("restore url_info url = %s", info->url);
            ZEL_INFO("restore url_info content_type = %s", info->content_type);
            list = g_list_prepend(list, info);
        } while (rows.next());
        *url_list = g_list_reverse(list);
    }
    return finish(rows, result);
}

zel_err_e _common_storage_get_original_by_sync_id(int sync_id, char **original)
{
    ZEL_BEGIN();
    if (!original)
        return reject("Invalid Params");
    return read_text(row_by_sync_id(static_cast<unsigned int>(sync_id)), COLUMN_CONTENT_SYNC_INFO_ORIGINAL, original);
}

zel_err_e _common_storage_get_mupload_key_by_sync_id(unsigned int sync_id, char **mupload_key)
{
    ZEL_BEGIN();
    if (!mupload_key)
        return reject("Invalid Params");
    if (!sync_id)
        return reject("Invalid parameter");
    return read_text(row_by_sync_id(sync_id), COLUMN_CONTENT_SYNC_INFO_MUPLOAD_KEY, mupload_key);
}

zel_err_e _common_storage_get_local_path_by_sync_id(unsigned int sync_id, char **local_path)
{
    ZEL_BEGIN();
    if (!local_path)
        return reject("Invalid Params");
    if (!sync_id)
        return reject("Invalid parameter");
    /* The thumbnail, not the column local_path: callers rely on it. */
    return read_text(row_by_sync_id(sync_id), COLUMN_CONTENT_SYNC_INFO_THUMBNAIL, local_path);
}

zel_err_e _common_storage_get_percentage_by_sync_id(unsigned int sync_id, unsigned int *percentage)
{
    ZEL_BEGIN();
    if (!percentage)
        return reject("Invalid Params");
    if (!sync_id)
        return reject("Invalid parameter");
    return read_value(row_by_sync_id(sync_id), COLUMN_CONTENT_SYNC_INFO_PERCENTAGE, uint_column, percentage);
}

zel_err_e _common_storage_get_upload_info(int sync_id, unsigned int *offset, int *chunk_no)
{
    ZEL_BEGIN();
    if (!chunk_no || !offset)
        return reject("Invalid Params");
    if (!sync_id)
        return reject("Invalid parameter");
    query row(row_by_sync_id(static_cast<unsigned int>(sync_id)));
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE) {
        *offset = uint_column(row, COLUMN_CONTENT_SYNC_INFO_OFFSET);
        *chunk_no = int_column(row, COLUMN_CONTENT_SYNC_INFO_CHUNK_NO);
    }
    return finish(row, result);
}

zel_err_e _common_storage_get_wifi_only_by_sync_id(int sync_id, bool *wifi_only)
{
    ZEL_BEGIN();
    if (!wifi_only)
        return reject("Invalid Params");
    return read_wifi_only(sql("SELECT wifi_only FROM %Q WHERE sync_id = %d;", TABLE, sync_id), wifi_only);
}

zel_err_e _common_storage_get_wifi_only_by_req_id(int req_id, bool *wifi_only)
{
    ZEL_BEGIN();
    if (!wifi_only)
        return reject("Invalid Params");
    return read_wifi_only(sql("SELECT wifi_only FROM %Q WHERE req_id = %d;", TABLE, req_id), wifi_only);
}

zel_err_e _common_storage_get_sync_type_by_req_id(int req_id, int *sync_type)
{
    ZEL_BEGIN();
    if (!sync_type)
        return reject("Invalid Params");
    return read_value(sql("SELECT sync_type FROM %Q WHERE req_id = %d;", TABLE, req_id), 0, int_column, sync_type);
}

zel_err_e _common_storage_get_sent_time_by_req_id(int req_id, int *sent_time)
{
    ZEL_BEGIN();
    if (!req_id || !sent_time)
        return reject("Invalid Params");
    query row(sql("SELECT sent_time FROM %Q WHERE req_id = %d;", TABLE, req_id));
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE) {
        *sent_time = int_column(row, 0);
        ZEL_INFO("sent_time[%d] reqid[%d]", *sent_time, req_id);
    }
    return finish(row, result);
}

zel_err_e _common_storage_get_sent_time_local_path_by_req_id(int req_id, int *sent_time, char ***local_paths,
                                                             int *count)
{
    ZEL_BEGIN();
    ZEL_INFO("[Reshare] req_id [%u]", static_cast<unsigned int>(req_id));
    if (!req_id || !sent_time || !local_paths || !count)
        return reject("Invalid Params");
    query rows(sql("SELECT sent_time, local_path FROM %Q WHERE req_id = %d;", TABLE, req_id));
    zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE) {
        const int first_sent_time = int_column(rows, 0);
        ZEL_INFO("[Reshare] sent_time [%d]", first_sent_time);
        char **paths = nullptr;
        unsigned int path_count = 0;
        do {
            char *path = copy_column(rows, 1);
            if (path && !append(paths, path_count, path, g_try_realloc_n)) {
                g_free(path);
                result = fail(ZEL_ERR_MEMORY, "Memory Allocation Failed!!");
                break;
            }
            ZEL_PLAIN("local_path[%s]", log_text(path_count ? paths[path_count - 1] : nullptr));
        } while (rows.next());
        if (result == ZEL_ERR_NONE) {
            *sent_time = first_sent_time;
            *local_paths = paths;
            *count = static_cast<int>(path_count);
            ZEL_INFO("[Reshare] count [%d]", *count);
        } else {
            while (path_count)
                g_free(paths[--path_count]);
            g_free(paths);
        }
    }
    return finish(rows, result);
}
