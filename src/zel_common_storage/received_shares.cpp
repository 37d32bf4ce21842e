/* Received shares: their push notifications (push_noti_info) and their items (content_info). */

#include "zel_common_storage/received_shares.h"
#include "zel_common_storage/patterns.h"
#include "zel_common_storage/rows.h"
#include "zel_common_storage/schema.h"

#include <cstdlib>

using namespace zel_storage;

namespace
{

/** True when a table has a row of this token. */
bool token_exists(const char *table, const char *contents_token, log_site site = log_here())
{
    if (!contents_token) {
        reject("Invalid Params", ZEL_ERR_INVALID_ARG, site);
        return false;
    }
    query row(sql("SELECT * FROM %Q WHERE contents_token = %Q", table, contents_token), site);
    if (check_prepared(row, "ExecuteSelectQuery Failed ", site) != ZEL_ERR_NONE)
        return false;
    const bool exists = row.next();
    if (!exists)
        ZEL_DEBUG_AT(site, "No records found");
    row.close();
    ZEL_END_AT(site);
    return exists;
}

/** Returns the tokens of a query's rows in an array that the caller releases with free. */
void list_tokens(const query &rows, char ***tokens, unsigned int *length, log_site site = log_here())
{
    char **found = nullptr;
    unsigned int count = 0;
    do {
        char *token = copy_column(rows, 0);
        if (!token)
            continue;
        if (!append(found, count, token, resize_with_realloc)) {
            ZEL_CRITICAL_AT(site, "Memory Allocation Failed!!");
            g_free(token);
            while (count)
                g_free(found[--count]);
            free(found);
            found = nullptr;
            break;
        }
    } while (rows.next());
    *tokens = found;
    *length = count;
}

} // namespace

/* Notifications ---------------------------------------------------------------------------------------------- */

bool _common_storage_exist_push_noti(const char *contents_token)
{
    ZEL_BEGIN();
    return token_exists(TABLE_PUSH_NOTI_INFO, contents_token);
}

zel_err_e _common_storage_add_push_noti_info(const char *contents_token, const char *type,
                                             unsigned long long expired_time, unsigned long long received_time)
{
    ZEL_BEGIN();
    if (!contents_token)
        return reject("Invalid parameter");
    if (_common_storage_exist_push_noti(contents_token))
        return finish(ZEL_ERR_NONE);
    return finish(insert(sql("INSERT into %Q VALUES (NULL, %Q, %Q, %llu, %d, %llu)", TABLE_PUSH_NOTI_INFO,
                             contents_token, type, expired_time, 0, received_time),
                         nullptr, "Failed to add file"));
}

zel_err_e _common_storage_delete_push_noti(const char *contents_token)
{
    ZEL_BEGIN();
    const zel_err_e result = run(sql("DELETE FROM %Q WHERE contents_token = %Q", TABLE_PUSH_NOTI_INFO, contents_token),
                                 "Failed to delete push noti ");
    if (result == ZEL_ERR_NONE)
        _common_storage_delete_content_info(contents_token);
    return finish(result);
}

zel_err_e _common_storage_delete_expired_push_noti(unsigned long long current_time)
{
    ZEL_BEGIN();
    const zel_err_e result = run(sql("DELETE FROM %Q WHERE expired_time < %llu", TABLE_PUSH_NOTI_INFO, current_time),
                                 "Failed to delete expired push noti ");
    if (result == ZEL_ERR_NONE)
        _common_storage_delete_expired_content_info(current_time);
    return finish(result);
}

zel_err_e _common_storage_update_read_push_noti(const char *type)
{
    ZEL_BEGIN();
    if (!type)
        return reject("Invalid parameter");
    return finish(run(sql("UPDATE %Q SET read_noti = 1 WHERE type = %Q and read_noti = 0", TABLE_PUSH_NOTI_INFO, type),
                      "Failed to update read_noti value of push noti "));
}

zel_err_e _common_storage_update_check_delete_push_noti(const char *contents_token)
{
    ZEL_BEGIN();
    if (!contents_token)
        return reject("Invalid parameter");
    return finish(
        run(sql("UPDATE %Q SET read_noti = 2 WHERE contents_token = %Q", TABLE_PUSH_NOTI_INFO, contents_token),
            "Failed to update read_noti value of push noti "));
}

zel_err_e _common_storage_get_received_time_push_noti(const char *contents_token, unsigned long long *received_time)
{
    ZEL_BEGIN();
    if (!contents_token || !received_time)
        return reject("Invalid Params");
    query row(sql("SELECT * FROM %Q WHERE contents_token = %Q;", TABLE_PUSH_NOTI_INFO, contents_token));
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE) {
        *received_time = ullong_column(row, COLUMN_PUSH_NOTI_INFO_RECEIVED_TIME);
        ZEL_DEBUG("*received_time[%llu]", *received_time);
    }
    return finish(row, result);
}

zel_err_e _common_storage_get_contents_token_list(const char *type, bool except_read, char ***contents_token_list,
                                                  unsigned int *length)
{
    ZEL_BEGIN();
    if (!contents_token_list || !length)
        return reject("Invalid Params");
    sql_text statement;
    if (!type && !except_read)
        statement = sql("SELECT contents_token FROM %Q WHERE read_noti != 2 ORDER BY received_time DESC;",
                        TABLE_PUSH_NOTI_INFO);
    else if (!type)
        statement =
            sql("SELECT contents_token FROM %Q WHERE read_noti = 0 ORDER BY received_time DESC;", TABLE_PUSH_NOTI_INFO);
    else if (!except_read)
        statement = sql("SELECT contents_token FROM %Q WHERE type = %Q and read_noti != 2 ORDER BY received_time DESC;",
                        TABLE_PUSH_NOTI_INFO, type);
    else
        statement = sql("SELECT contents_token FROM %Q WHERE type = %Q and read_noti = 0 ORDER BY received_time DESC;",
                        TABLE_PUSH_NOTI_INFO, type);
    query rows(statement);
    const zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE)
        list_tokens(rows, contents_token_list, length);
    return finish(rows, result);
}

/* Shares and their items ------------------------------------------------------------------------------------- */

bool _common_storage_exist_content_info(const char *contents_token)
{
    ZEL_BEGIN();
    return token_exists(TABLE_CONTENT_INFO, contents_token);
}

zel_err_e _common_storage_add_content_info(zel_trans_content_info *content_info, const char *contents_token,
                                           const char *description, const char *type, const char *from_msisdn,
                                           const char *to_list, unsigned long long expired_time)
{
    ZEL_BEGIN();
    if (!content_info || !contents_token)
        return reject("Invalid parameter");
    const char *const no_push_status = nullptr;
    const sql_text statement =
        sql("INSERT into %Q VALUES (NULL, %lld, %u, %u, %Q, %Q, %Q, %Q, %Q, %Q, %Q, %Q, %Q, %d, %Q, %Q, %Q)",
            TABLE_CONTENT_INFO, expired_time, content_info->download_count, content_info->size, contents_token,
            text_or_empty(description), text_or_empty(type), text_or_empty(from_msisdn), to_list,
            text_or_empty(content_info->original), text_or_empty(content_info->thumbnail),
            text_or_empty(content_info->name), text_or_empty(content_info->content_type), 0,
            text_or_empty(content_info->big_thumbnail), text_or_empty(content_info->mid_thumbnail), no_push_status);
    const zel_err_e result = insert(statement, &content_info->content_id, "Failed to add content");
    ZEL_INFO("[ZEL] err_code: [%d] Query: %s", result, log_text(statement.get()));
    return finish(result);
}

zel_err_e _common_storage_add_notification(zel_trans_share_content_info *noti_info)
{
    ZEL_BEGIN();
    if (!noti_info)
        return reject("Invalid parameter");
    if (_common_storage_exist_content_info(noti_info->contents_token)) {
        ZEL_CRITICAL("already exist contents token %s", noti_info->contents_token);
        return ZEL_ERR_INVALID_ARG;
    }
    for (const GList *node = noti_info->content_info_list; node; node = node->next)
        _common_storage_add_content_info(static_cast<zel_trans_content_info *>(node->data), noti_info->contents_token,
                                         noti_info->description, noti_info->type, noti_info->from_msisdn,
                                         noti_info->to_list, noti_info->expired_time);
    return finish(ZEL_ERR_NONE);
}

zel_err_e _common_storage_delete_content_info(const char *contents_token)
{
    ZEL_BEGIN();
    return finish(run(sql("DELETE FROM %Q WHERE contents_token = %Q", TABLE_CONTENT_INFO, contents_token),
                      "Failed to delete content info "));
}

zel_err_e _common_storage_delete_expired_content_info(unsigned long long current_time)
{
    ZEL_BEGIN();
    return finish(run(sql("DELETE FROM %Q WHERE expired_time < %llu", TABLE_CONTENT_INFO, current_time),
                      "Failed to delete content info "));
}

zel_err_e _common_storage_update_downloaded_content_info(const char *original)
{
    ZEL_BEGIN();
    if (!original)
        return reject("Invalid parameter");
    return finish(run(sql("UPDATE %Q SET downloaded = 1 WHERE original = %Q", TABLE_CONTENT_INFO, original),
                      "Failed to update downloaded content info "));
}

zel_err_e _common_storage_update_status_content_info(const char *contents_token, quillo_push_status_e status)
{
    ZEL_BEGIN();
    if (!contents_token)
        return reject("Invalid parameter");
    return finish(
        run(sql("UPDATE %Q SET push_status = %d WHERE contents_token = %Q", TABLE_CONTENT_INFO, status, contents_token),
            "Failed to update push status"));
}

zel_err_e _common_storage_get_content_name(const char *url, char **name)
{
    ZEL_BEGIN();
    if (!url || !name)
        return reject("Invalid Params");
    return read_text(
        sql("SELECT * FROM %Q WHERE original = %Q or thumbnail = %Q or big_thumbnail = %Q or mid_thumbnail = %Q;",
            TABLE_CONTENT_INFO, url, url, url, url),
        COLUMN_CONTENT_INFO_NAME, name, ZEL_ERR_RESOURCE_DOESNT_EXIST);
}

zel_err_e _common_storage_get_contents_token_content_info(const char *url, char **contents_token)
{
    ZEL_BEGIN();
    if (!url || !contents_token)
        return reject("Invalid Params");
    return read_text(sql("SELECT contents_token FROM %Q WHERE original = %Q or thumbnail = %Q or big_thumbnail = %Q or "
                         "mid_thumbnail = %Q;",
                         TABLE_CONTENT_INFO, url, url, url, url),
                     0, contents_token, ZEL_ERR_RESOURCE_DOESNT_EXIST);
}

zel_err_e _common_storage_get_content_info_not_downloaded_count(const char *contents_token, int *count)
{
    ZEL_BEGIN();
    if (!contents_token || !count)
        return reject("Invalid Params");
    query row(sql("SELECT COUNT(*) FROM %Q WHERE contents_token = %Q and downloaded = 0", TABLE_CONTENT_INFO,
                  contents_token));
    const zel_err_e result = first_row(row, "Failed to get receiver group count!!", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE)
        *count = int_column(row, 0);
    return finish(row, result);
}

zel_err_e _common_storage_get_contents(const char *contents_token, zel_trans_share_content_info **noti_info)
{
    ZEL_BEGIN();
    if (!contents_token || !noti_info)
        return reject("Invalid Params");
    ZEL_DEBUG("contents_token[%s]", contents_token);
    query rows(sql("SELECT * FROM %Q WHERE contents_token = %Q;", TABLE_CONTENT_INFO, contents_token));
    zel_err_e result = check_prepared(rows, "Failed to get file");
    if (result != ZEL_ERR_NONE)
        return finish(rows, result);
    std::unique_ptr<zel_trans_share_content_info, releaser<_common_free_share_content_info>> share(
        g_try_new0(zel_trans_share_content_info, 1));
    if (!share)
        return finish(rows, fail(ZEL_ERR_MEMORY, "Failed to get file"));
    share->contents_token = g_strdup(contents_token);
    if (!rows.next()) {
        result = fail(ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found");
    } else {
        share->expired_time = ullong_column(rows, COLUMN_CONTENT_INFO_EXPIRED_TIME);
        share->description = copy_column(rows, COLUMN_CONTENT_INFO_DESCRIPTION);
        share->from_msisdn = copy_column(rows, COLUMN_CONTENT_INFO_FROM_MSISDN);
        share->to_list = copy_column(rows, COLUMN_CONTENT_INFO_TO_LIST);
        share->push_status = uint_column(rows, COLUMN_CONTENT_INFO_PUSH_STATUS);
        do {
            auto *item = g_try_new0(zel_trans_content_info, 1);
            if (!item)
                continue;
            __fill_content_info(rows, item);
            share->content_info_list = g_list_prepend(share->content_info_list, item);
            ++share->content_info_list_length;
        } while (rows.next());
        share->content_info_list = g_list_reverse(share->content_info_list);
    }
    rows.close();
    if (result == ZEL_ERR_NONE)
        *noti_info = share.release();
    share.reset(); /* its lines come before the End line */
    return finish(result);
}

zel_err_e _common_storage_get_notification_data(const char *contents_token, zel_trans_share_content_info **noti_info)
{
    ZEL_BEGIN();
    if (!contents_token || !noti_info)
        return reject("Invalid Params");
    const zel_err_e result = _common_storage_get_contents(contents_token, noti_info);
    if (result != ZEL_ERR_NONE)
        return fail(result, "_common_storage_get_contents Failed");
    return finish(ZEL_ERR_NONE);
}
