/* Counts of transfer rows (content_info_status): by kind and status, by request, and whether a request is finished. */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

namespace
{

constexpr auto TABLE = TABLE_CONTENT_INFO_STATUS;

/** Reads the first column of a counting query; zero when the row cannot be read. */
zel_err_e read_count(const query &row, const char *failure, int *count, log_site site = log_here())
{
    const zel_err_e result = check_prepared(row, failure, site);
    if (result == ZEL_ERR_NONE)
        *count = row.next() ? int_column(row, 0) : 0;
    return result;
}

/** Sets `count` to the number of rows; zero is a failure. */
zel_err_e count_rows(const sql_text &statement, int *count, log_site site = log_here())
{
    query row(statement, site);
    int rows = 0;
    zel_err_e result = read_count(row, "Failed to get file", &rows, site);
    if (result == ZEL_ERR_NONE && !rows) {
        ZEL_DEBUG_AT(site, "No records found");
        result = ZEL_ERR_STORAGE_NO_RECORDS;
    }
    if (result == ZEL_ERR_NONE)
        *count = rows;
    return finish(row, result, site);
}

/** The same for the counts by kind, which report zero with another code. */
zel_err_e count_rows_of_kind(const sql_text &statement, unsigned int *count, log_site site = log_here())
{
    query row(statement, site);
    int rows = 0;
    zel_err_e result = read_count(row, "Failed to get file", &rows, site);
    if (result == ZEL_ERR_NONE && !rows)
        result = fail(ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found", site);
    if (result == ZEL_ERR_NONE)
        *count = static_cast<unsigned int>(rows);
    return finish(row, result, site);
}

/** Sets `all` to whether `finished` counts every row of a request. */
zel_err_e compare_counts(int req_id, const sql_text &finished, const char *failure, bool *all,
                         log_site site = log_here())
{
    query total(sql("SELECT COUNT(*) FROM %Q WHERE req_id = %d", TABLE, req_id), site);
    zel_err_e result = first_row(total, "Failed to get file count!!", ZEL_ERR_RESOURCE_DOESNT_EXIST, site);
    if (result != ZEL_ERR_NONE)
        return result;
    const int total_count = int_column(total, 0);
    total.close();

    query part(finished, site);
    int finished_count = 0;
    result = read_count(part, failure, &finished_count, site);
    if (result == ZEL_ERR_NONE)
        *all = finished_count == total_count;
    return finish_on_success(part, result, site);
}

} // namespace

zel_err_e _common_storage_get_sync_content_info_count(zel_file_sync_type type, zel_file_sync_status status,
                                                      int consider_fail, int *count)
{
    ZEL_BEGIN();
    if (!count)
        return reject("Invalid parameters");
    sql_text statement;
    switch (consider_fail) {
    case 1:
        statement = sql("SELECT COUNT(*) FROM %Q WHERE status = %d and sync_type = %d and fail_retry_count >= 1 and "
                        "fail_retry_count <= %d",
                        TABLE, status, type, RETRY_CAP);
        break;
    case 0:
        statement = sql("SELECT COUNT(*) FROM %Q WHERE status = %d and sync_type = %d and fail_retry_count = 0", TABLE,
                        status, type);
        break;
    case -1:
        statement = sql("SELECT COUNT(*) FROM %Q WHERE status = %d and sync_type = %d", TABLE, status, type);
        break;
    default: /* the missing text fails in the executor */
        break;
    }
    return count_rows(statement, count);
}

zel_err_e _common_storage_get_sync_content_info_count_for_req_id(zel_file_sync_type type, zel_file_sync_status status,
                                                                 int consider_fail, int *count, unsigned int req_id)
{
    ZEL_BEGIN();
    if (!count || !req_id)
        return reject("Invalid parameters");
    sql_text statement;
    switch (consider_fail) {
    case 1:
        statement = sql("SELECT COUNT(*) FROM %Q WHERE status = %d and sync_type = %d and fail_retry_count >= 1 and "
                        "fail_retry_count <= %d and req_id = %u",
                        TABLE, status, type, RETRY_CAP, req_id);
        break;
    case 0:
        statement = sql("SELECT COUNT(*) FROM %Q WHERE status = %d and sync_type = %d and fail_retry_count = 0 and "
                        "req_id = %u",
                        TABLE, status, type, req_id);
        break;
    case -1:
        statement = sql("SELECT COUNT(*) FROM %Q WHERE status = %d and sync_type = %d and req_id = %u", TABLE, status,
                        type, req_id);
        break;
    default: /* the missing text fails in the executor */
        break;
    }
    return count_rows(statement, count);
}

zel_err_e _common_storage_get_sync_content_info_remaining_syncable_count_for_req_id(zel_file_sync_type type, int *count,
                                                                                    unsigned int req_id)
{
    ZEL_BEGIN();
    if (!count || !req_id)
        return reject("Invalid parameters");
    return count_rows(sql("SELECT COUNT(*) FROM %Q WHERE (status = %d or status = %d or status = %d or status = %d) "
                          "and sync_type = %d and req_id = %u",
                          TABLE, ZEL_SYNC_TODO, ZEL_SYNC_ONGOING, ZEL_SYNC_PAUSED, ZEL_SYNC_PAUSED_TODO, type, req_id),
                      count);
}

zel_err_e _common_storage_get_sync_content_info_remaining_thumbnail_count_for_req_id(zel_file_sync_type type,
                                                                                     int *count, unsigned int req_id)
{
    ZEL_BEGIN();
    if (!count || !req_id)
        return reject("Invalid parameters");
    return count_rows(sql("SELECT COUNT(*) FROM %Q WHERE status != %d and sync_type = %d and req_id = %u", TABLE,
                          ZEL_SYNC_FAILED, type, req_id),
                      count);
}

zel_err_e _common_storage_get_pausable_cnt_by_sync_type(zel_file_sync_type type, unsigned int *count)
{
    ZEL_BEGIN();
    if (!count)
        return reject("Invalid Params");
    return count_rows_of_kind(sql("SELECT count(*) FROM %Q WHERE (status = %d or status = %d) and sync_type = %d",
                                  TABLE, ZEL_SYNC_TODO, ZEL_SYNC_ONGOING, type),
                              count);
}

zel_err_e _common_storage_get_resumable_and_cancellable_cnt_by_sync_type(zel_file_sync_type type, unsigned int *count)
{
    ZEL_BEGIN();
    if (!count)
        return reject("Invalid Params");
    return count_rows_of_kind(
        sql("SELECT count(*) FROM %Q WHERE (status = %d or status = %d or status = %d or status = %d) and "
            "sync_type = %d",
            TABLE, ZEL_SYNC_TODO, ZEL_SYNC_ONGOING, ZEL_SYNC_PAUSED, ZEL_SYNC_PAUSED_TODO, type),
        count);
}

zel_err_e _common_storage_get_batch_count(zel_file_sync_type type, zel_file_sync_status status, bool fail_retry)
{
    ZEL_BEGIN();
    int left = BATCH_LIMIT;
    int count = 0;
    if (_common_storage_get_sync_content_info_count(type, status, fail_retry ? 1 : 0, &count) == ZEL_ERR_NONE) {
        left = 0;
        if (count < BATCH_LIMIT) {
            left = BATCH_LIMIT - count;
            ZEL_INFO("left_req_count [%d]", left);
        }
    }
    return finish(static_cast<zel_err_e>(left));
}

zel_err_e _common_storage_check_all_file_completed_by_req_id(int req_id, bool *all_completed)
{
    ZEL_BEGIN();
    if (!req_id || !all_completed)
        return reject("Invalid Params");
    return compare_counts(req_id,
                          sql("SELECT COUNT(*) FROM %Q WHERE req_id = %d and (status = %d or status = %d)", TABLE,
                              req_id, ZEL_SYNC_COMPLETE, ZEL_SYNC_FAILED),
                          "Failed to get completed file count!!", all_completed);
}

zel_err_e _common_storage_check_all_file_failed_by_req_id(int req_id, bool *all_failed)
{
    ZEL_BEGIN();
    if (!req_id || !all_failed)
        return reject("Invalid Params");
    return compare_counts(
        req_id, sql("SELECT COUNT(*) FROM %Q WHERE req_id = %d and status = %d", TABLE, req_id, ZEL_SYNC_FAILED),
        "Failed to get file count!!", all_failed);
}
