/* The readers that fill a record from a row, and the release of the store's own record. */

#include "zel_common_storage/rows.h"
#include "zel_common_storage/patterns.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

void __fill_content_info(sqlite3_stmt *stmt, zel_trans_content_info *content_info)
{
    ZEL_BEGIN();
    if (stmt && content_info) {
        content_info->content_id = uint_column(stmt, COLUMN_CONTENT_INFO_CONTENT_ID);
        content_info->download_count = uint_column(stmt, COLUMN_CONTENT_INFO_DOWNLOAD_COUNT);
        content_info->size = uint_column(stmt, COLUMN_CONTENT_INFO_SIZE);
        content_info->contents_token = copy_column(stmt, COLUMN_CONTENT_INFO_CONTENTS_TOKEN);
        content_info->original = copy_column(stmt, COLUMN_CONTENT_INFO_ORIGINAL);
        content_info->thumbnail = copy_column(stmt, COLUMN_CONTENT_INFO_THUMBNAIL);
        content_info->name = copy_column(stmt, COLUMN_CONTENT_INFO_NAME);
        content_info->content_type = copy_column(stmt, COLUMN_CONTENT_INFO_CONTENT_TYPE);
        content_info->big_thumbnail = copy_column(stmt, COLUMN_CONTENT_INFO_BIG_THUMBNAIL);
        content_info->mid_thumbnail = copy_column(stmt, COLUMN_CONTENT_INFO_MID_THUMBNAIL);
    }
    ZEL_END();
}

void __fill_content_sync_info(sqlite3_stmt *stmt, zel_content_sync_info *sync_info)
{
    ZEL_BEGIN();
    if (stmt && sync_info) {
        sync_info->sync_id = uint_column(stmt, COLUMN_CONTENT_SYNC_INFO_SYNC_ID);
        sync_info->type = static_cast<zel_file_sync_type>(int_column(stmt, COLUMN_CONTENT_SYNC_INFO_TYPE));
        sync_info->status = static_cast<zel_file_sync_status>(int_column(stmt, COLUMN_CONTENT_SYNC_INFO_STATUS));
        sync_info->content_id = uint_column(stmt, COLUMN_CONTENT_SYNC_INFO_CONTENT_ID);
        sync_info->req_id = uint_column(stmt, COLUMN_CONTENT_SYNC_INFO_REQ_ID);
        sync_info->wifi_only = uint_column(stmt, COLUMN_CONTENT_SYNC_INFO_WIFI_ONLY);
        sync_info->fail_retry_count = uint_column(stmt, COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT);
        sync_info->percentage = uint_column(stmt, COLUMN_CONTENT_SYNC_INFO_PERCENTAGE);
        sync_info->offset = uint_column(stmt, COLUMN_CONTENT_SYNC_INFO_OFFSET);
        sync_info->chunk_no = int_column(stmt, COLUMN_CONTENT_SYNC_INFO_CHUNK_NO);
        sync_info->sent_time = ullong_column(stmt, COLUMN_CONTENT_SYNC_INFO_SENT_TIME);
        sync_info->contents_token = copy_column(stmt, COLUMN_CONTENT_SYNC_INFO_CONTENTS_TOKEN);
        sync_info->original = copy_column(stmt, COLUMN_CONTENT_SYNC_INFO_ORIGINAL);
        sync_info->thumbnail = copy_column(stmt, COLUMN_CONTENT_SYNC_INFO_THUMBNAIL);
        sync_info->name = copy_column(stmt, COLUMN_CONTENT_SYNC_INFO_NAME);
        sync_info->local_path = copy_column(stmt, COLUMN_CONTENT_SYNC_INFO_LOCAL_PATH);
        sync_info->mupload_key = copy_column(stmt, COLUMN_CONTENT_SYNC_INFO_MUPLOAD_KEY);
    }
    ZEL_END();
}

void __fill_last_receiver_info(sqlite3_stmt *stmt, quillo_msisdn_s *receiver_info)
{
    ZEL_BEGIN();
    if (stmt && receiver_info) {
        receiver_info->number_id = int_column(stmt, COLUMN_RECENT_RECEIVER_NUM_ID);
        receiver_info->phone_number = copy_column(stmt, COLUMN_RECENT_RECEIVER_PHONE_NO);
        receiver_info->ccc = copy_column(stmt, COLUMN_RECENT_RECEIVER_CCC);
        receiver_info->group_id = int_column(stmt, COLUMN_RECENT_RECEIVER_GROUP_ID);
    }
    ZEL_END();
}

void __fill_upload_receiver_info(sqlite3_stmt *stmt, quillo_msisdn_s *receiver_info)
{
    ZEL_BEGIN();
    if (stmt && receiver_info) {
        receiver_info->number_id = int_column(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_NUM_ID);
        receiver_info->phone_number = copy_column(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO);
        receiver_info->ccc = copy_column(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_CCC);
    }
    ZEL_END();
}

void __fill_upload_receipient_info(sqlite3_stmt *stmt, char **receipient)
{
    ZEL_BEGIN();
    if (stmt && receipient) {
        const char *ccc = text_column(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_CCC);
        const char *number = text_column(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO);
        if (number && *number)
            *receipient = ccc && *ccc ? g_strdup_printf("%s%s%s", "+", ccc, number) : g_strdup(number);
        ZEL_INFO("*receipient: [%s]", log_text(*receipient));
    }
    ZEL_END();
}

void _common_storage_free_sync_content_info(void *data)
{
    ZEL_BEGIN();
    if (!data) {
        ZEL_CRITICAL("Data is NULL");
        return;
    }
    auto *info = static_cast<zel_content_sync_info *>(data);
    g_free(info->contents_token);
    g_free(info->original);
    g_free(info->thumbnail);
    g_free(info->name);
    g_free(info->local_path);
    g_free(info->mupload_key);
    g_free(info);
    ZEL_END();
}
