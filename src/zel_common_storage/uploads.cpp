/* Upload requests (upload_request_data) and their recipients (contact_details). */

#include "uploads.h"

#include "engine.h"
#include "schema.h"

using namespace zel_storage;

namespace
{

constexpr auto TABLE = TABLE_UPLOAD_REQUEST_DATA;

/** A zero-filled array for an operation to hand out; reports the failure when there is no memory for it. */
template <typename T> T *new_array(unsigned int count, log_site site = log_here())
{
    void *array = g_try_malloc0_n(count, sizeof(T));
    if (!array)
        ZEL_CRITICAL_AT(site, "Memory Allocation Failure");
    return static_cast<T *>(array);
}

/** The number that sizes a list to come; without one, or when it is zero, there is nothing to list. */
zel_err_e read_size(const sql_text &statement, unsigned int *size, log_site site = log_here())
{
    query row(statement, site);
    const zel_err_e result = prepared(row, "Failed to get file", site);
    if (result != ZEL_ERR_NONE)
        return result;
    *size = row.next() ? uint_column(row, 0) : 0;
    return *size ? ZEL_ERR_NONE : fail(ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found", site);
}

/** Hands out what is read from the rows of `listing`, in as many places as `counting` says; a row can give nothing. */
template <typename T>
zel_err_e list_counted(const sql_text &counting, const sql_text &listing, bool (*read)(const query &row, T *place),
                       T **list, unsigned int *count, log_site site = log_here())
{
    unsigned int size = 0;
    zel_err_e result = read_size(counting, &size, site);
    if (result != ZEL_ERR_NONE)
        return result;
    query rows(listing, site);
    result = first_row(rows, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST, site);
    if (result != ZEL_ERR_NONE)
        return result;
    T *const found = new_array<T>(size, site);
    if (!found)
        return ZEL_ERR_MEMORY;
    unsigned int filled = 0;
    do
        filled += read(rows, &found[filled]);
    while (filled < size && rows.next());
    *list = found;
    *count = size;
    return finish_on_success(rows, ZEL_ERR_NONE, site);
}

bool read_id(const query &row, unsigned int *id)
{
    *id = uint_column(row, 0);
    return true;
}

bool read_path(const query &row, char **path)
{
    *path = copy_column(row, 0);
    return *path;
}

bool read_receiver(const query &row, quillo_msisdn_s **receiver)
{
    *receiver = static_cast<quillo_msisdn_s *>(g_try_malloc0(sizeof(quillo_msisdn_s)));
    if (*receiver)
        __fill_upload_receiver_info(row.statement, *receiver);
    return *receiver;
}

/** Whether a bit set of applications stands for all of them. */
bool all_applications(unsigned int app_type)
{
    return (app_type & 3U) == 3U;
}

zel_err_e delete_rows(const char *table, unsigned int req_id, log_site site = log_here())
{
    return run(sql("DELETE FROM %Q WHERE req_id = %u", table, req_id), "Failed to delete upload info ", site);
}

} // namespace

zel_err_e _common_storage_add_upload_request_info(zel_upload_request_info *upload_request_info)
{
    ZEL_BEGIN();
    zel_upload_request_info *const info = upload_request_info;
    if (!info)
        return reject("Invalid parameter");
    info->sent_time = _common_util_get_current_timestamp();
    return finish(insert(sql("INSERT into %Q VALUES (NULL,%u,%u,%u,%u,%llu,%llu, %Q,%d,%Q,%llu)", TABLE, info->req_id,
                             info->file_count, info->status, info->receiver_count, info->expired_time, info->total_size,
                             text_or_empty(info->contents_token), info->app_type, info->description, info->sent_time),
                         &info->unique_id, "Failed to add file"));
}

zel_err_e _common_storage_update_contents_token_info(int req_id, const char *contents_token,
                                                     unsigned long long expired_time)
{
    ZEL_BEGIN();
    if (req_id < 1 || !contents_token)
        return reject("Invalid parameter");
    return finish(run(sql("UPDATE %Q SET contents_token = %Q,expired_time = %llu WHERE req_id = %d", TABLE,
                          contents_token, expired_time, req_id),
                      "Failed to update contetns token "));
}

zel_err_e _common_storage_update_upload_status(int req_id, quillo_upload_status_e status)
{
    ZEL_BEGIN();
    if (req_id <= 0)
        return reject("Invalid parameter");
    return finish(
        run(sql("UPDATE %Q SET status = %d WHERE req_id = %d", TABLE, status, req_id), "Failed to update status"));
}

zel_err_e _common_storage_update_expiry_time(int req_id, unsigned long long expiry_time)
{
    ZEL_BEGIN();
    if (req_id <= 0)
        return reject("Invalid parameter");
    return finish(run(sql("UPDATE %Q SET expired_time = %llu WHERE req_id = %d", TABLE, expiry_time, req_id),
                      "Failed to update status"));
}

zel_err_e _common_storage_add_upload_receiver_details(unsigned int req_id, const char *phone_no, const char *ccc,
                                                      int number_id)
{
    ZEL_BEGIN();
    if (!req_id || !phone_no || !ccc)
        return reject("Invalid parameter");
    return finish(run(
        sql("INSERT into %Q VALUES (NULL, %u, %d, %Q, %Q)", TABLE_CONTACT_DETAILS, req_id, number_id, phone_no, ccc),
        "Failed to add file"));
}

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

/* Single values of a request. -------------------------------------------------------------------------------------- */

zel_err_e _common_storage_get_upload_content_count(unsigned int req_id, int *count)
{
    ZEL_BEGIN();
    if (!req_id || !count)
        return reject("Invalid parameter");
    *count = 0;
    return read_value(sql("SELECT file_count FROM %Q WHERE req_id = %u;", TABLE, req_id), 0, int_column, count);
}

zel_err_e _common_storage_get_upload_total_size(unsigned int req_id, unsigned long long *size)
{
    ZEL_BEGIN();
    if (!req_id || !size)
        return reject("Invalid parameter");
    return read_value(sql("SELECT total_size FROM %Q WHERE req_id = %u;", TABLE, req_id), 0, ullong_column, size);
}

zel_err_e _common_storage_get_upload_expire_time(unsigned int req_id, unsigned long long *expire_time)
{
    ZEL_BEGIN();
    if (!req_id || !expire_time)
        return reject("Invalid parameter");
    return read_value(sql("SELECT expired_time FROM %Q WHERE req_id = %u;", TABLE, req_id), 0, ullong_column,
                      expire_time);
}

zel_err_e _common_storage_get_upload_contents_token(unsigned int req_id, char **contents_token)
{
    ZEL_BEGIN();
    if (!req_id || !contents_token)
        return reject("Invalid parameter");
    query row(sql("SELECT contents_token FROM %Q WHERE req_id = %u;", TABLE, req_id));
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE)
        hand_out_column(row, 0, contents_token);
    return finish(row, result);
}

zel_err_e _common_storage_get_upload_status(unsigned int req_id, int *status)
{
    ZEL_BEGIN();
    if (!req_id || !status)
        return reject("Invalid parameter");
    return read_value(sql("SELECT status FROM %Q WHERE req_id = %u;", TABLE, req_id), 0, int_column, status);
}

zel_err_e _common_storage_get_upload_app_info(unsigned int req_id, unsigned int *app_type, char **description)
{
    ZEL_BEGIN();
    if (!req_id || !app_type)
        return reject("Invalid parameter");
    query row(sql("SELECT * FROM %Q WHERE req_id = %u;", TABLE, req_id));
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
    if (result == ZEL_ERR_NONE) {
        *app_type = uint_column(row, COLUMN_UPLOAD_INFO_APP_TYPE);
        if (description)
            hand_out_column(row, COLUMN_UPLOAD_INFO_DESCRIPTION, description);
    }
    return finish(row, result);
}

zel_err_e _common_storage_get_reqid_from_contents_token(const char *contents_token, unsigned int *req_id)
{
    if (req_id)
        *req_id = 0;
    ZEL_BEGIN();
    if (!contents_token || !req_id)
        return reject("Invalid parameter");
    query row(sql("SELECT req_id FROM %Q WHERE contents_token = %Q;", TABLE, contents_token));
    if (!row.statement) {
        ZEL_CRITICAL("Failed to get req_id for contents_token [%s]", contents_token);
        return ZEL_ERR_STORAGE_FAILURE;
    }
    if (!row.next()) {
        ZEL_CRITICAL("No records found for contents_token [%s]", contents_token);
        return ZEL_ERR_STORAGE_NO_RECORDS;
    }
    *req_id = uint_column(row, 0);
    return finish(row, ZEL_ERR_NONE);
}

/* Lists of request ids. -------------------------------------------------------------------------------------------- */

zel_err_e _common_storage_get_request_id_list(quillo_app_type_e app_type, unsigned int **request_id_list,
                                              unsigned int *request_id_count)
{
    ZEL_BEGIN();
    if (!request_id_list || !request_id_count)
        return fail(static_cast<zel_err_e>(-1), "Invalid param");
    query rows(app_type == APP_TYPE_NONE
                   ? sql("SELECT req_id FROM %Q ORDER BY sent_time DESC;", TABLE)
                   : sql("SELECT req_id FROM %Q WHERE app_type = %d ORDER BY sent_time DESC;", TABLE, app_type));
    const zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE) {
        unsigned int *ids = nullptr;
        unsigned int count = 0;
        do {
            if (!append_id(ids, count, uint_column(rows, 0)))
                break;
        } while (rows.next());
        *request_id_list = ids;
        *request_id_count = count;
    }
    return finish_on_success(rows, result);
}

zel_err_e _common_storage_get_upload_list_details(unsigned int **upload_list, unsigned int *count)
{
    if (!upload_list || !count)
        return reject("Invalid Params");
    return list_counted(sql("SELECT count(*) FROM %Q;", TABLE), sql("SELECT req_id FROM %Q;", TABLE), read_id,
                        upload_list, count);
}

zel_err_e _common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt(unsigned int app_type,
                                                                              unsigned int **upload_list,
                                                                              unsigned int *count)
{
    ZEL_BEGIN();
    if (!upload_list || !count)
        return reject("Invalid Params");
    if (all_applications(app_type))
        return list_counted(
            sql("SELECT count(*) FROM %Q WHERE status != %d and status != %d and status != %d;", TABLE,
                QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED),
            sql("SELECT req_id FROM %Q WHERE status != %d and status != %d and status != %d;", TABLE,
                QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED),
            read_id, upload_list, count);
    return list_counted(
        sql("SELECT count(*) FROM %Q WHERE status != %d and status != %d and status != %d and app_type = %d;", TABLE,
            QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED, app_type),
        sql("SELECT req_id FROM %Q WHERE status != %d and status != %d and status != %d and app_type = %d;", TABLE,
            QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED, app_type),
        read_id, upload_list, count);
}

zel_err_e _common_storage_get_failed_and_cancelled_upload_req_id_and_cnt(unsigned int app_type,
                                                                         unsigned int **upload_list,
                                                                         unsigned int *count)
{
    ZEL_BEGIN();
    if (!upload_list || !count)
        return reject("Invalid Params");
    if (all_applications(app_type))
        return list_counted(sql("SELECT count(*) FROM %Q WHERE status = %d or status = %d;", TABLE,
                                QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED),
                            sql("SELECT req_id FROM %Q WHERE status = %d or status = %d;", TABLE,
                                QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED),
                            read_id, upload_list, count);
    return list_counted(sql("SELECT count(*) FROM %Q WHERE (status = %d or status = %d) and app_type = %d;", TABLE,
                            QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, app_type),
                        sql("SELECT req_id FROM %Q WHERE (status = %d or status = %d) and app_type = %d;", TABLE,
                            QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, app_type),
                        read_id, upload_list, count);
}

zel_err_e _common_storage_get_resumable_and_cancellable_upload_cnt(unsigned int *count)
{
    ZEL_BEGIN();
    if (!count)
        return reject("Invalid Params");
    unsigned int found = 0;
    const zel_err_e result =
        read_size(sql("SELECT count(*) FROM %Q WHERE status != %d and status != %d and status != %d;", TABLE,
                      QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED),
                  &found);
    if (result == ZEL_ERR_NONE)
        *count = found;
    return finish_on_success(result);
}

/* The upload report and its recipients. ---------------------------------------------------------------------------- */

zel_err_e _common_storage_get_upload_data(unsigned int request_id, zel_trans_upload_info **upload_info)
{
    ZEL_BEGIN();
    if (!request_id || !upload_info)
        return reject("Invalid params");
    std::unique_ptr<zel_trans_upload_info, releaser<_common_free_upload_info>> report(
        static_cast<zel_trans_upload_info *>(g_try_malloc0(sizeof(zel_trans_upload_info))));
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
    /* A report without its file paths is still worth having; the code tells that they are missing. */
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
    return list_counted(sql("SELECT receiver_count FROM %Q WHERE req_id = %u;", TABLE, req_id),
                        sql("SELECT * FROM %Q WHERE req_id = %u;", TABLE_CONTACT_DETAILS, req_id), read_receiver,
                        upload_receiver_list_details, count);
}

void __fill_upload_receiver_info(sqlite3_stmt *stmt, quillo_msisdn_s *receiver_info)
{
    ZEL_BEGIN();
    if (stmt && receiver_info) {
        receiver_info->number_id = sqlite3_column_int(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_NUM_ID);
        receiver_info->phone_number = copy_column(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO);
        receiver_info->ccc = copy_column(stmt, COLUMN_CONTACT_DETAILS_RECEIVER_CCC);
    }
    ZEL_END();
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
        __fill_upload_receipient_info(rows.statement, &texts[filled]);
        ZEL_INFO("===== rcp[%d]: %s", static_cast<int>(filled), log_text(texts[filled]));
        ++filled;
    } while (filled < receipients_count && rows.next());
    *receipients = texts;
    return finish(rows, ZEL_ERR_NONE);
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

zel_err_e _common_storage_get_upload_content_path_list(unsigned int req_id, char ***content_path_list,
                                                       unsigned int *length)
{
    ZEL_BEGIN();
    if (!req_id || !content_path_list || !length)
        return reject("Invalid Params");
    return list_counted(sql("SELECT file_count FROM %Q WHERE req_id = %u;", TABLE, req_id),
                        sql("SELECT local_path FROM %Q WHERE req_id = %u;", TABLE_CONTENT_INFO_STATUS, req_id),
                        read_path, content_path_list, length);
}

/* Statistics and the reshare check. -------------------------------------------------------------------------------- */

zel_err_e _common_storage_get_time_upload_total_file_static_hr(unsigned int time_duration_hr,
                                                               unsigned long long *get_total_file_size,
                                                               unsigned int *get_total_file_num)
{
    static constexpr unsigned long long HORIZON = 172800; // 48 hours in seconds
    static constexpr unsigned int SECONDS_PER_HOUR = 3600;

    ZEL_BEGIN();
    if (!get_total_file_size || !get_total_file_num)
        return reject("Invalid Params");
    const unsigned int duration = time_duration_hr * SECONDS_PER_HOUR; // wraps in 32 bits
    const unsigned long long now_time = _common_util_get_current_timestamp();
    unsigned long long chk_time = now_time + HORIZON - duration;
    ZEL_INFO("now_time is %llu, chk_time is %llu", now_time, chk_time);
    chk_time *= 1000; // expiry is stored in milliseconds
    ZEL_INFO("chk_time is %llu", chk_time);

    query rows(sql("SELECT file_count, total_size FROM %Q WHERE expired_time >= %llu;", TABLE, chk_time));
    zel_err_e result = first_row(rows, "Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST);
    if (result == ZEL_ERR_NONE) {
        unsigned int total_num = 0;
        unsigned long long total_size = 0;
        do {
            const unsigned int num = uint_column(rows, 0);
            const unsigned long long size = ullong_column(rows, 1);
            ZEL_INFO("checked file num is %u", num);
            ZEL_INFO("checked size is %llu", size);
            total_num += num;
            total_size += size;
        } while (rows.next());
        ZEL_DEBUG("total file num is : %u", total_num);
        ZEL_DEBUG("total file size is : %llu", total_size);
        if (total_num && total_size) {
            *get_total_file_num = total_num;
            *get_total_file_size = total_size;
        } else {
            result = fail(ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found");
        }
    }
    return finish(rows, result);
}

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
