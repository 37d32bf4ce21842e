/* Upload requests (upload_request_data) and their recipients (contact_details). */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

namespace
{

constexpr auto TABLE = TABLE_UPLOAD_REQUEST_DATA;

bool read_id(sqlite3_stmt *row, unsigned int *id)
{
    *id = uint_column(row, 0);
    return true;
}

/** True when a bit set of applications selects all of them. */
bool all_applications(unsigned int app_type)
{
    return (app_type & 3U) == 3U;
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

/* Single values of a request --------------------------------------------------------------------------------- */

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
    return read_text(sql("SELECT contents_token FROM %Q WHERE req_id = %u;", TABLE, req_id), 0, contents_token);
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
    if (!row) {
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

/* Lists of request ids --------------------------------------------------------------------------------------- */

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
    return list_counted({sql("SELECT count(*) FROM %Q;", TABLE), sql("SELECT req_id FROM %Q;", TABLE)}, read_id,
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
            {sql("SELECT count(*) FROM %Q WHERE status != %d and status != %d and status != %d;", TABLE,
                 QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED),
             sql("SELECT req_id FROM %Q WHERE status != %d and status != %d and status != %d;", TABLE,
                 QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED)},
            read_id, upload_list, count);
    return list_counted(
        {sql("SELECT count(*) FROM %Q WHERE status != %d and status != %d and status != %d and app_type = %d;", TABLE,
             QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED,
             app_type),
         sql("SELECT req_id FROM %Q WHERE status != %d and status != %d and status != %d and app_type = %d;", TABLE,
             QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED,
             app_type)},
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
        return list_counted({sql("SELECT count(*) FROM %Q WHERE status = %d or status = %d;", TABLE,
                                 QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED),
                             sql("SELECT req_id FROM %Q WHERE status = %d or status = %d;", TABLE,
                                 QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED)},
                            read_id, upload_list, count);
    return list_counted({sql("SELECT count(*) FROM %Q WHERE (status = %d or status = %d) and app_type = %d;", TABLE,
                             QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, app_type),
                         sql("SELECT req_id FROM %Q WHERE (status = %d or status = %d) and app_type = %d;", TABLE,
                             QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED, app_type)},
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

/* Statistics ------------------------------------------------------------------------------------------------- */

zel_err_e _common_storage_get_time_upload_total_file_static_hr(unsigned int time_duration_hr,
                                                               unsigned long long *get_total_file_size,
                                                               unsigned int *get_total_file_num)
{
    static constexpr unsigned long long HORIZON = 172800; /* 48 hours in seconds */
    static constexpr unsigned int SECONDS_PER_HOUR = 3600;

    ZEL_BEGIN();
    if (!get_total_file_size || !get_total_file_num)
        return reject("Invalid Params");
    const unsigned int duration = time_duration_hr * SECONDS_PER_HOUR; /* wraps in 32 bits */
    const unsigned long long now_time = _common_util_get_current_timestamp();
    unsigned long long chk_time = now_time + HORIZON - duration;
    ZEL_INFO("now_time is %llu, chk_time is %llu", now_time, chk_time);
    chk_time *= 1000; /* expiry is stored in milliseconds */
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
