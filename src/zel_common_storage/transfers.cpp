/* The transfer rows of content_info_status: insert, update and delete. */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

namespace
{

constexpr auto TABLE = TABLE_CONTENT_INFO_STATUS;

/** One update or deletion of the family; they all share one failure line. */
zel_err_e change(const sql_text &statement, log_site site = log_here())
{
    return finish(run(statement, "Failed to delete sync file info ", site), site);
}

} // namespace

zel_err_e _common_storage_add_sync_content_info(zel_content_sync_info *content_sync_info)
{
    ZEL_BEGIN();
    zel_content_sync_info *const info = content_sync_info;
    if (!info)
        return reject("Invalid parameter");
    if (!info->sent_time)
        info->sent_time = _common_util_get_current_timestamp();
    return finish(
        insert(sql("INSERT into %Q VALUES (NULL,%d,%d,%u,%u,%u,%u,%u,%u,%d,%llu,%Q,%Q,%Q, %Q, %Q, %Q, %Q)", TABLE,
                   info->type, info->status, info->content_id, info->req_id, info->wifi_only, info->fail_retry_count,
                   info->percentage, info->offset, info->chunk_no, info->sent_time, text_or_empty(info->contents_token),
                   "", text_or_empty(info->original), text_or_empty(info->thumbnail), text_or_empty(info->name),
                   text_or_empty(info->local_path), text_or_empty(info->mupload_key)),
               &info->sync_id, "Failed to add file"));
}

zel_err_e _common_storage_update_sync_content_info(zel_content_sync_info *sync_info)
{
    ZEL_BEGIN();
    if (!sync_info)
        return reject("Invalid paramts");
    sync_info->sent_time = _common_util_get_current_timestamp();
    return finish(run(sql("UPDATE %Q set sync_type = %d, status = %d, content_id = %u, \treq_id = %u, wifi_only = %u, "
                          "sent_time = %llu, fail_retry_count = %u, offset = %u, chunk_no = %d, \tcontents_token = %Q, "
                          "original = %Q, \tthumbnail = %Q, name = %Q WHERE sync_id = %u",
                          TABLE, sync_info->type, sync_info->status, sync_info->content_id, sync_info->req_id,
                          sync_info->wifi_only, sync_info->sent_time, sync_info->fail_retry_count, sync_info->offset,
                          sync_info->chunk_no, sync_info->contents_token, sync_info->original, sync_info->thumbnail,
                          sync_info->name, sync_info->sync_id),
                      "Failed to add file"));
}

zel_err_e _common_storage_set_failed_status_sync_content_info(int sync_id)
{
    ZEL_BEGIN();
    if (sync_id <= 0)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET req_id = %d, status = %d, sent_time = 0 WHERE sync_id = %d", TABLE, 0,
                      ZEL_SYNC_FAILED, sync_id));
}

zel_err_e _common_storage_update_status_sync_content_info(int sync_id, zel_file_sync_status status)
{
    ZEL_BEGIN();
    if (sync_id <= 0)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET status = %d WHERE sync_id = %d", TABLE, status, sync_id));
}

zel_err_e _common_storage_update_status_sync_content_info_by_sync_id(int sync_id, zel_file_sync_status status,
                                                                     zel_file_sync_status previous_status)
{
    ZEL_BEGIN();
    if (sync_id <= 0)
        return reject("Invalid parameter");
    return change(
        sql("UPDATE %Q SET status = %d WHERE sync_id = %d and status = %d", TABLE, status, sync_id, previous_status));
}

zel_err_e _common_storage_update_status_sync_content_info_by_reqid(unsigned int req_id, zel_file_sync_status status)
{
    ZEL_BEGIN();
    if (!req_id)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET status = %d WHERE req_id = %u", TABLE, status, req_id));
}

zel_err_e _common_storage_update_status_sync_content_info_by_req_id(int req_id, zel_file_sync_status status,
                                                                    zel_file_sync_status previous_status)
{
    ZEL_BEGIN();
    if (req_id <= 0)
        return reject("Invalid parameter");
    return change(
        sql("UPDATE %Q SET status = %d WHERE req_id = %d and status = %d", TABLE, status, req_id, previous_status));
}

zel_err_e _common_storage_set_all_status_sync_content_info(zel_file_sync_type type, zel_file_sync_status current_status,
                                                           zel_file_sync_status set_status)
{
    ZEL_BEGIN();
    return change(
        sql("UPDATE %Q SET status = %d WHERE sync_type = %d and status = %d", TABLE, set_status, type, current_status));
}

zel_err_e _common_storage_update_percentage_sync_content_info(int sync_id, unsigned int percentage)
{
    ZEL_BEGIN();
    if (sync_id <= 0)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET percentage = %d WHERE sync_id = %d", TABLE, percentage, sync_id));
}

zel_err_e _common_storage_update_upload_info(int sync_id, unsigned int offset, int chunk_no)
{
    ZEL_BEGIN();
    if (sync_id <= 0)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET offset = %u, chunk_no=%d WHERE sync_id = %d", TABLE, offset, chunk_no, sync_id));
}

zel_err_e _common_storage_update_url_info(unsigned int sync_id, const char *public_url, const char *content_type)
{
    ZEL_BEGIN();
    if (!sync_id)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET original = %Q, content_type = %Q WHERE sync_id = %d", TABLE,
                      text_or_empty(public_url), content_type, sync_id));
}

zel_err_e _common_storage_update_url_info_by_reqid(unsigned int req_id, const char *public_url,
                                                   const char *content_type)
{
    ZEL_BEGIN();
    if (!req_id)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET original = %Q, content_type = %Q WHERE req_id = %d", TABLE,
                      text_or_empty(public_url), content_type, req_id));
}

zel_err_e _common_storage_update_wifi_only_by_req_id(int req_id, unsigned int wifi_only)
{
    ZEL_BEGIN();
    if (req_id <= 0)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET wifi_only = %d WHERE req_id = %d", TABLE, wifi_only, req_id));
}

zel_err_e _common_storage_update_mupload_key_sync_content_info(int sync_id, const char *mupload_key)
{
    ZEL_BEGIN();
    if (sync_id <= 0)
        return reject("Invalid parameter");
    return change(sql("UPDATE %Q SET mupload_key = %Q WHERE sync_id = %d", TABLE, mupload_key, sync_id));
}

zel_err_e _common_storage_delete_sync_content_info(unsigned int sync_id)
{
    ZEL_BEGIN();
    if (!sync_id)
        return reject("Invalid parameter");
    return change(sql("DELETE FROM %Q WHERE sync_id = %u", TABLE, sync_id));
}

zel_err_e _common_storage_delete_sync_content_info_by_req_id(unsigned int req_id)
{
    ZEL_BEGIN();
    if (!req_id)
        return reject("Invalid parameter");
    return change(sql("DELETE FROM %Q WHERE req_id = %u", TABLE, req_id));
}

zel_err_e _common_storage_delete_sync_content_info_based_on_sync_type(zel_file_sync_type type)
{
    ZEL_BEGIN();
    return change(sql("DELETE FROM %Q WHERE sync_type = %d", TABLE, type));
}

zel_err_e _common_storage_delete_sync_content_info_based_on_param(unsigned int req_id, zel_file_sync_type type,
                                                                  zel_file_sync_status status)
{
    ZEL_BEGIN();
    return change(
        sql("DELETE FROM %Q WHERE req_id = %u AND sync_type = %d AND status =%d", TABLE, req_id, type, status));
}
