/* The patterns of the store's operations. */

#include "zel_common_storage/patterns.h"

#include <cstdint>
#include <cstdlib>

namespace zel_storage
{

void query::close()
{
    if (!statement)
        return;
    const int code = sqlite3_finalize(statement);
    statement = nullptr;
    ZEL_DEBUG_AT(site, "sqlite3_finalize = [%d]", code);
}

char *copy_column(sqlite3_stmt *row, int column)
{
    const char *text = text_column(row, column);
    return text && *text ? g_strdup(text) : nullptr;
}

void hand_out_column(sqlite3_stmt *row, int column, char **output)
{
    if (char *copy = copy_column(row, column))
        *output = copy;
}

zel_err_e fail(zel_err_e code, const char *message, log_site site)
{
    ZEL_CRITICAL_AT(site, "%s", message);
    return code;
}

zel_err_e run(const sql_text &statement, const char *failure, log_site site)
{
    return __execute_query(statement.get()) ? ZEL_ERR_NONE : fail(ZEL_ERR_STORAGE_FAILURE, failure, site);
}

zel_err_e insert(const sql_text &statement, unsigned int *row_id, const char *failure, log_site site)
{
    return __execute_insert_query(statement.get(), row_id) ? ZEL_ERR_NONE
                                                           : fail(ZEL_ERR_STORAGE_FAILURE, failure, site);
}

zel_err_e check_prepared(const query &rows, const char *failure, log_site site)
{
    return rows ? ZEL_ERR_NONE : fail(ZEL_ERR_STORAGE_FAILURE, failure, site);
}

zel_err_e first_row(const query &rows, const char *failure, zel_err_e none, log_site site)
{
    const zel_err_e result = check_prepared(rows, failure, site);
    if (result != ZEL_ERR_NONE || rows.next())
        return result;
    return fail(none, "No records found", site);
}

zel_err_e finish(zel_err_e result, log_site site)
{
    ZEL_END_AT(site);
    return result;
}

zel_err_e finish(query &rows, zel_err_e result, log_site site)
{
    rows.close();
    return finish(result, site);
}

zel_err_e finish_on_success(zel_err_e result, log_site site)
{
    return result == ZEL_ERR_NONE ? finish(result, site) : result;
}

zel_err_e finish_on_success(query &rows, zel_err_e result, log_site site)
{
    rows.close();
    return finish_on_success(result, site);
}

zel_err_e read_text(const sql_text &statement, int column, char **text, zel_err_e none, log_site site)
{
    query row(statement, site);
    const zel_err_e result = first_row(row, "Failed to get file", none, site);
    if (result == ZEL_ERR_NONE)
        hand_out_column(row, column, text);
    return finish(row, result, site);
}

void *resize_with_realloc(void *block, size_t count, size_t size)
{
    return count > SIZE_MAX / size ? nullptr : realloc(block, count * size);
}

bool append_id(unsigned int *&ids, unsigned int &count, unsigned int id, log_site site)
{
    if (append(ids, count, id, g_try_realloc_n))
        return true;
    ZEL_CRITICAL_AT(site, "Memory Allocation Failed!!");
    g_clear_pointer(&ids, g_free);
    count = 0;
    return false;
}

zel_err_e read_size(const sql_text &statement, unsigned int *size, log_site site)
{
    query row(statement, site);
    const zel_err_e result = check_prepared(row, "Failed to get file", site);
    if (result != ZEL_ERR_NONE)
        return result;
    *size = row.next() ? uint_column(row, 0) : 0;
    return *size ? ZEL_ERR_NONE : fail(ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found", site);
}

} // namespace zel_storage
