/*
 * Operations that join an upload request with its recipients and its transfers: the report, its lists, the reshare
 * check and the deletions. The file is above uploads and transfers, and calls both.
 */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/rows.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

namespace
{

constexpr auto TABLE = TABLE_UPLOAD_REQUEST_DATA;

bool read_path(sqlite3_stmt *row, char **path)
{
    *path = copy_column(row, 0);
    return *path;
}

bool read_receiver(sqlite3_stmt *row, quillo_msisdn_s **receiver)
{
    *receiver = g_try_new0(quillo_msisdn_s, 1);
    if (*receiver)
        __fill_upload_receiver_info(row, *receiver);
    return *receiver;
}

zel_err_e delete_rows(const char *table, unsigned int req_id, log_site site = log_here())
{
    return run(sql("DELETE FROM %Q WHERE req_id = %u", table, req_id), "Failed to delete upload info ", site);
}

} // namespace

zel_err_e _common_storage_get_upload_data(unsigned int request_id, zel_trans_upload_info **upload_info)
{
    ZEL_BEGIN();
    if (!request_id || !upload_info)
        return reject("Invalid params");
    std::unique_ptr<zel_trans_upload_info, releaser<_common_free_upload_info>> report(
        g_try_new0(zel_trans_upload_info, 1));
    if (!report)
        return fail(ZEL_ERR_MEMORY, "Failed to malloc");

    query row(sql("SELECT * FROM %Q WHERE req_id = %u;", TABLE, request_id));
    zel_err_e result = first_row(row, "Failed to get file details", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result != ZEL_ERR_NONE)
        return result;
    unsigned int msisdn_count = uint_column(row, COLUMN_UPLOAD_INFO_RECIEVERS_COUNT);
    report->request_id = request_id;
    report->total_size = ullong_column(row, COLUMN_UPLOAD_INFO_TOTAL_SIZE);
    report->file_count = uint_column(row, COLUMN_UPLOAD_INFO_FILE_COUNT);
    report->expired_time = ullong_column(row, COLUMN_UPLOAD_INFO_EXPIRED_TIME);
    report->status = static_cast<quillo_upload_status_e>(int_column(row, COLUMN_UPLOAD_INFO_STATUS));
    report->sent_time = ullong_column(row, COLUMN_UPLOAD_INFO_SENT_TIME);
    report->contents_token = g_strdup(text_column(row, COLUMN_UPLOAD_INFO_CONTENTS_TOKEN));
    ZEL_INFO("Reqid [%u]: total_size: [%llu] file_count: [%u] exp.time: [%llu] receipient_count: [%u] "
             "upload_status: [%d] sent_time: [%llu] contents_token: [%s]\n",
             request_id, report->total_size, report->file_count, report->expired_time, msisdn_count, report->status,
             report->sent_time, log_text(report->contents_token));
    if (!report->contents_token) {
        ZEL_CRITICAL("Contents token is NULL for req_id %u", request_id);
        return ZEL_ERR_STORAGE_NO_RECORDS;
    }

    result = _common_storage_get_upload_recievers_details(request_id, &report->msisdn_list, &msisdn_count);
    if (result != ZEL_ERR_NONE) {
        ZEL_CRITICAL("_common_storage_get_upload_recievers_details() failed [%d]", result);
        return result;
    }
    report->msisdn_count = msisdn_count;
    if (!report->msisdn_list || !msisdn_count) {
        ZEL_CRITICAL("Upload msisdn list is empty. msisdn count: [%u]", msisdn_count);
        return ZEL_ERR_STORAGE_NO_RECORDS;
    }

    if (report->status != QUILLO_UPLOAD_STATUS_SHARE_RECALLED) {
        result = _common_storage_get_sync_content_info_file_path_list(static_cast<int>(request_id), report.get());
        if (result != ZEL_ERR_NONE)
            ZEL_CRITICAL("_common_storage_get_sync_content_info_file_path_list() failed [%d]", result);
    }
    /* A report without its file paths is still useful; the code shows that they are missing. */
    *upload_info = report.release();
    return finish(row, result);
}

zel_err_e _common_storage_get_upload_recievers_details(unsigned int req_id,
                                                       quillo_msisdn_s ***upload_receiver_list_details,
                                                       unsigned int *count)
{
    ZEL_BEGIN();
    if (!req_id || !upload_receiver_list_details || !count)
        return reject("Invalid Params");
    return list_counted({sql("SELECT receiver_count FROM %Q WHERE req_id = %u;", TABLE, req_id),
                         sql("SELECT * FROM %Q WHERE req_id = %u;", TABLE_CONTACT_DETAILS, req_id)},
                        read_receiver, upload_receiver_list_details, count);
}

zel_err_e _common_storage_get_sync_content_info_file_path_list(int req_id, zel_trans_upload_info *upload_info)
{
    ZEL_BEGIN();
    if (req_id <= 0 || !upload_info)
        return reject("Invalid parameter");
    query rows(sql("SELECT * FROM %Q WHERE req_id = %d;", TABLE_CONTENT_INFO_STATUS, req_id));
    const zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE) {
        GList *paths = nullptr;
        do {
            const char *path = text_column(rows, COLUMN_CONTENT_SYNC_INFO_LOCAL_PATH);
            if (!path)
                continue;
            paths = g_list_prepend(paths, g_strdup(path));
            ZEL_PLAIN("[Filepath] %s", path);
        } while (rows.next());
        upload_info->file_path_list = g_list_reverse(paths);
    }
    return finish_on_success(rows, result);
}

zel_err_e _common_storage_get_upload_receipients_details(unsigned int req_id, unsigned int receipients_count,
                                                         char ***receipients)
{
    ZEL_BEGIN();
    if (!req_id || !receipients_count || !receipients)
        return reject("Invalid Params");
    query rows(sql("SELECT * FROM %Q WHERE req_id = %u;", TABLE_CONTACT_DETAILS, req_id));
    const zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result != ZEL_ERR_NONE)
        return result;
    auto *const texts = new_array<char *>(receipients_count);
    if (!texts)
        return ZEL_ERR_MEMORY;
    ZEL_INFO("rcp count [%d]", static_cast<int>(receipients_count));
    unsigned int filled = 0;
    do {
        __fill_upload_receipient_info(rows, &texts[filled]);
        ZEL_INFO("===== rcp[%d]: %s", static_cast<int>(filled), log_text(texts[filled]));
        ++filled;
    } while (filled < receipients_count && rows.next());
    *receipients = texts;
    return finish(rows, ZEL_ERR_NONE);
}

zel_err_e _common_storage_get_upload_content_path_list(unsigned int req_id, char ***content_path_list,
                                                       unsigned int *length)
{
    ZEL_BEGIN();
    if (!req_id || !content_path_list || !length)
        return reject("Invalid Params");
    return list_counted({sql("SELECT file_count FROM %Q WHERE req_id = %u;", TABLE, req_id),
                         sql("SELECT local_path FROM %Q WHERE req_id = %u;", TABLE_CONTENT_INFO_STATUS, req_id)},
                        read_path, content_path_list, length);
}

/* Reshare check ---------------------------------------------------------------------------------------------- */

zel_err_e _common_storage_get_matched_count_by_sent_time(int sent_time, int *matched_count)
{
    ZEL_BEGIN();
    if (!sent_time)
        return reject("Invalid Params");
    if (!matched_count) {
        ZEL_CRITICAL("Invalid params: sent_time[%d] matched_count[%p]", sent_time,
                     static_cast<const void *>(matched_count));
        return ZEL_ERR_INVALID_ARG;
    }
    query row(sql("SELECT COUNT(sent_time) FROM %Q WHERE sent_time = %d;", TABLE_CONTENT_INFO_STATUS, sent_time));
    const zel_err_e result = first_row(row, "Failed to get matched count!", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE)
        *matched_count = int_column(row, 0);
    return finish_on_success(row, result);
}

zel_err_e _common_storage_does_reshare_exist(unsigned int req_id, int sent_time, bool *does_reshare_exist)
{
    ZEL_BEGIN();
    if (!req_id || !sent_time || !does_reshare_exist) {
        ZEL_CRITICAL("Invalid Params: req_id[%u] sent_time[%d] does_reshare_exist[%p]", req_id, sent_time,
                     static_cast<const void *>(does_reshare_exist));
        return ZEL_ERR_INVALID_ARG;
    }
    *does_reshare_exist = false;
    int file_count = 0;
    zel_err_e result = _common_storage_get_upload_content_count(req_id, &file_count);
    if (result != ZEL_ERR_NONE) {
        ZEL_CRITICAL("Error: [ZEL] Req_id[%u]: Failed to get upload info()!! err_code[%d]", req_id, result);
        return result;
    }
    int matched_count = 0;
    result = _common_storage_get_matched_count_by_sent_time(sent_time, &matched_count);
    if (result != ZEL_ERR_NONE) {
        ZEL_CRITICAL("Error: [ZEL] Req_id[%u]: Not entries matching sent_time(%d)!! err_code[%d]", req_id, sent_time,
                     result);
        return result;
    }
    ZEL_INFO("[ZEL] Req_id [%u]: matched_count [%d] file_count [%d]", req_id, matched_count, file_count);
    if (matched_count < file_count) {
        ZEL_CRITICAL("Error: [ZEL] Req_id[%u]: Fatal error in DB!! There are fewer entries than expected", req_id);
        return ZEL_ERR_STORAGE_NO_RECORDS;
    }
    *does_reshare_exist = matched_count > file_count;
    return finish(ZEL_ERR_NONE);
}

/* Deletions -------------------------------------------------------------------------------------------------- */

zel_err_e _common_storage_delete_upload_info(unsigned int req_id)
{
    ZEL_BEGIN();
    if (!req_id)
        return reject("Invalid parameter");
    const zel_err_e transfers = delete_rows(TABLE_CONTENT_INFO_STATUS, req_id);
    const zel_err_e request = delete_rows(TABLE, req_id);
    return finish_on_success(transfers != ZEL_ERR_NONE ? transfers : request);
}

zel_err_e _common_storage_delete_recalled_contents(const char *contents_token)
{
    ZEL_BEGIN();
    if (!contents_token)
        return reject("Invalid parameter");
    unsigned int req_id = 0;
    zel_err_e result = _common_storage_get_reqid_from_contents_token(contents_token, &req_id);
    if (result != ZEL_ERR_NONE)
        return fail(result, "Error: _common_storage_get_reqid_from_contents_token() failed!");
    result = _common_storage_delete_sync_content_info_by_req_id(req_id);
    if (result != ZEL_ERR_NONE)
        return fail(result, "Error: _common_storage_delete_sync_content_info_by_req_id() failed!");
    return finish(ZEL_ERR_NONE);
}
