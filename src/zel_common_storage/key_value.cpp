/*
 * The key-value table unique_data and the folder records of folder_info.
 *
 * Here, unlike in the other families, most rejections write an End line, and the two reads finalize with __db_finalize.
 */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

namespace
{

zel_err_e write_key(const char *key, const char *val, const char *resv0, const char *resv1, const char *resv2,
                    log_site site = log_here())
{
    return run(sql("INSERT OR REPLACE INTO %Q VALUES (%Q, %Q, %Q, %Q, %Q)", TABLE_UNIQUE_DATA, key, val,
                   text_or_empty(resv0), text_or_empty(resv1), text_or_empty(resv2)),
               "__execute_query error", site);
}

/* Outputs that may be null. */

void hand_out_time(unsigned long long *output, sqlite3_stmt *row, int column)
{
    if (output)
        *output = ullong_column(row, column);
}

void hand_out_text(char **output, sqlite3_stmt *row, int column)
{
    if (output)
        *output = g_strdup(text_column(row, column));
}

} // namespace

zel_err_e _common_storage_upsert_unique_data(const char *key, const char *val, const char *resv0, const char *resv1,
                                             const char *resv2)
{
    ZEL_BEGIN();
    if (!key)
        return finish(reject("[key] is NULL_PARAM"));
    if (!val)
        return finish(reject("[val] is NULL_PARAM"));
    return finish(write_key(key, val, resv0, resv1, resv2));
}

zel_err_e _common_storage_upsert_and_involk_unique_data(const char *key, const char *val, const char *resv0,
                                                        const char *resv1, const char *resv2,
                                                        quillo_storage_unique_data_involk_cb pointer)
{
    ZEL_BEGIN();
    if (!key)
        return finish(reject("[key] is NULL_PARAM"));
    if (!val)
        return finish(reject("[val] is NULL_PARAM"));
    if (!pointer)
        return finish(reject("[pointer] is NULL_PARAM"));
    const zel_err_e result = write_key(key, val, resv0, resv1, resv2);
    pointer(const_cast<char *>(key), const_cast<char *>(val));
    return finish(result);
}

zel_err_e _common_storage_get_unique_data(const char *key, char **val, char **resv0, char **resv1, char **resv2)
{
    ZEL_BEGIN();
    if (!key)
        return finish(reject("[key] is NULL_PARAM"));
    if (!val)
        return finish(reject("[val] is NULL_PARAM"));
    query row(sql("SELECT * FROM %Q WHERE key = %Q;", TABLE_UNIQUE_DATA, key));
    const zel_err_e result = first_row(row, "__execute_query error", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE) {
        hand_out_text(val, row, COLUMN_UNIQUE_DATA_VALUE);
        hand_out_text(resv0, row, COLUMN_UNIQUE_DATA_RESERV_0);
        hand_out_text(resv1, row, COLUMN_UNIQUE_DATA_RESERV_1);
        hand_out_text(resv2, row, COLUMN_UNIQUE_DATA_RESERV_2);
    }
    __db_finalize(row.release()); /* its reset keeps the code of a failed step out of the finalize line */
    return finish(result);
}

zel_err_e _common_storage_delete_unique_data(const char *key)
{
    ZEL_BEGIN();
    if (!key)
        return finish(reject("[key] is NULL_PARAM"));
    return finish(run(sql("DELETE FROM %Q WHERE key = %Q", TABLE_UNIQUE_DATA, key), "__execute_query error"));
}

zel_err_e _common_storage_upsert_folder_info(const char *group_id, const char *content_token,
                                             unsigned long long content_token_expired_time, const char *folder_token,
                                             unsigned long long folder_token_expired_time,
                                             unsigned long long folder_sync_time)
{
    ZEL_BEGIN();
    if (!group_id)
        return finish(reject("[group_id] is NULL_PARAM"));
    ZEL_PLAIN("before group_id[%p], contents_token[%p], content_token_expired_time[%lld], folder_token[%p], "
              "folder_token_expired_time[%lld], folder_sync_time[%lld]",
              static_cast<const void *>(group_id), static_cast<const void *>(content_token),
              static_cast<long long>(content_token_expired_time), static_cast<const void *>(folder_token),
              static_cast<long long>(folder_token_expired_time), static_cast<long long>(folder_sync_time));

    /* A null or a zero keeps the stored value; a group without a row has none. */
    char *stored_content_token = nullptr;
    char *stored_folder_token = nullptr;
    unsigned long long stored_content_time = 0;
    unsigned long long stored_folder_time = 0;
    unsigned long long stored_sync_time = 0;
    _common_storage_get_folder_info(group_id, &stored_content_token, &stored_content_time, &stored_folder_token,
                                    &stored_folder_time, &stored_sync_time);
    const sql_text statement = sql("INSERT OR REPLACE INTO %Q VALUES (%Q, %Q, %lld, %Q, %lld, %lld)", TABLE_FOLDER_INFO,
                                   group_id, content_token ? content_token : stored_content_token,
                                   content_token_expired_time ? content_token_expired_time : stored_content_time,
                                   folder_token ? folder_token : stored_folder_token,
                                   folder_token_expired_time ? folder_token_expired_time : stored_folder_time,
                                   folder_sync_time ? folder_sync_time : stored_sync_time);
    g_free(stored_content_token);
    g_free(stored_folder_token);

    ZEL_DEBUG("after");
    return finish(run(statement, "__execute_query error"));
}

zel_err_e _common_storage_get_folder_info(const char *group_id, char **content_token,
                                          unsigned long long *content_token_expired_time, char **folder_token,
                                          unsigned long long *folder_token_expired_time,
                                          unsigned long long *folder_sync_time)
{
    ZEL_BEGIN();
    if (!group_id)
        return finish(reject("[group_id] is NULL_PARAM"));
    query row(sql("SELECT * FROM %Q WHERE group_id = %Q;", TABLE_FOLDER_INFO, group_id));
    const zel_err_e result = first_row(row, "__execute_query error", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE) {
        hand_out_text(content_token, row, COLUMN_FOLDER_INFO_CONTENT_TOKEN);
        hand_out_time(content_token_expired_time, row, COLUMN_FOLDER_INFO_CONTENT_TOKEN_EXPIRED_TIME);
        hand_out_text(folder_token, row, COLUMN_FOLDER_INFO_FOLDER_TOKEN);
        hand_out_time(folder_token_expired_time, row, COLUMN_FOLDER_INFO_FOLDER_TOKEN_EXPIRED_TIME);
        hand_out_time(folder_sync_time, row, COLUMN_FOLDER_INFO_FOLDER_SYNC_TIME);
    }
    __db_finalize(row.release()); /* its reset keeps the code of a failed step out of the finalize line */
    return finish(result);
}

zel_err_e _common_storage_exist_folder_token(const char *group_id, bool *is_exist)
{
    ZEL_BEGIN();
    if (!group_id || !is_exist)
        return reject("Invalid Params");
    *is_exist = false;
    query row(sql("SELECT folder_token FROM %Q WHERE group_id = %Q;", TABLE_FOLDER_INFO, group_id));
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE) {
        const char *token = text_column(row, 0);
        if (token && *token) {
            ZEL_DEBUG("get folder token [%s]", token);
            *is_exist = true;
        }
    }
    return finish(row, result);
}

zel_err_e _common_storage_delete_folder_info(const char *group_id)
{
    ZEL_BEGIN();
    if (!group_id)
        return finish(reject("[group_id] is NULL_PARAM"));
    return finish(run(sql("DELETE FROM %Q WHERE group_id = %Q", TABLE_FOLDER_INFO, group_id), "__execute_query error"));
}
