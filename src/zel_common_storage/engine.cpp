#include "engine.h"

#include "schema.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace zel_storage;

sqlite3 *_g_sqlite_handle;

namespace
{

constexpr char DATABASE_PATH[] = ZEL_APPS_ROOT "quillo.service/data/.quillo_service.db";
constexpr size_t INSERT_BUFFER_SIZE = 8046;

/** Rides out a busy database: ten attempts, a short sleep behind each failed one. */
class busy_retry
{
  public:
    /** Whether a statement that failed with `code` is to be tried again; sleeps first. */
    bool wait_and_retry(int code, log_site site = log_here())
    {
        if (code != SQLITE_BUSY)
            return false;
        g_usleep(100);
        if (++failures < LIMIT)
            return true;
        ZEL_CRITICAL_AT(site, "Retried for %d times - returning", LIMIT);
        return false;
    }

  private:
    static constexpr int LIMIT = 10;
    int failures = 0;
};

/** For a process whose first use of the store is a statement; creates no tables and stamps no version. */
bool open_lazily(log_site site = log_here())
{
    if (_g_sqlite_handle)
        return true;
    ZEL_DEBUG_AT(site, "Opening DB.....\n");
    sqlite3 *handle = nullptr;
    const int code = sqlite3_open(DATABASE_PATH, &handle);
    if (code != SQLITE_OK) {
        ZEL_CRITICAL_AT(site, "sqlite3_open error(%d)", code);
        sqlite3_close(handle);
        return false;
    }
    ZEL_DEBUG_AT(site, "DB open Success");
    _g_sqlite_handle = handle;
    return true;
}

/**
 * One attempt at an insert with the question for its row id. When memory runs out between the two the row is there all
 * the same: it is reported as stored, with its id, lest the caller store it a second time. The mutex keeps the inserts
 * of other threads out of that look.
 */
int insert_once(const char *text, int *row_id, bool *stored, char **message)
{
    sqlite3_mutex *const mutex = sqlite3_db_mutex(_g_sqlite_handle);
    sqlite3_mutex_enter(mutex);
    const int changes = sqlite3_total_changes(_g_sqlite_handle);
    const int code = sqlite3_exec(_g_sqlite_handle, text, __insert_callback, row_id, message);
    if (code == SQLITE_NOMEM && sqlite3_total_changes(_g_sqlite_handle) != changes) {
        *row_id = static_cast<int>(sqlite3_last_insert_rowid(_g_sqlite_handle));
        *stored = true;
    }
    sqlite3_mutex_leave(mutex);
    return code;
}

} // namespace

namespace zel_storage
{

sql_text sql(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    sql_text text(sqlite3_vmprintf(format, arguments));
    va_end(arguments);
    return text;
}

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

void hand_out_column(const query &row, int column, char **output)
{
    if (char *copy = copy_column(row.statement, column))
        *output = copy;
}

zel_err_e fail(zel_err_e code, const char *message, log_site site)
{
    ZEL_CRITICAL_AT(site, "%s", message);
    return code;
}

zel_err_e reject(const char *message, log_site site)
{
    return fail(ZEL_ERR_INVALID_ARG, message, site);
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

zel_err_e prepared(const query &rows, const char *failure, log_site site)
{
    return rows.statement ? ZEL_ERR_NONE : fail(ZEL_ERR_STORAGE_FAILURE, failure, site);
}

zel_err_e first_row(const query &rows, const char *failure, zel_err_e none, log_site site)
{
    const zel_err_e result = prepared(rows, failure, site);
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

} // namespace zel_storage

zel_err_e _common_storage_init(void)
{
    ZEL_BEGIN();
    if (_g_sqlite_handle) {
        ZEL_DEBUG("DB Already Opened");
        return finish(ZEL_ERR_NONE);
    }
    ZEL_DEBUG("Opening DB.....\n");
    sqlite3 *handle = nullptr;
    const int code = sqlite3_open_v2(DATABASE_PATH, &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (code != SQLITE_OK) {
        ZEL_CRITICAL("sqlite3_open error - %d", code);
        sqlite3_close(handle);
        return ZEL_ERR_STORAGE_INIT_FAILURE;
    }
    ZEL_DEBUG("DB open Success");
    _g_sqlite_handle = handle;
    _common_storage_db_create();
    _common_storage_db_upgrade();
    return finish(ZEL_ERR_NONE);
}

zel_err_e __common_storage_get_db_version(int *version)
{
    ZEL_BEGIN();
    if (!version)
        return reject("Invalid Params");
    query row(sql("PRAGMA user_version;"));
    zel_err_e result = prepared(row, "ExecuteSelectQuery Failed");
    if (result == ZEL_ERR_NONE) {
        if (row.next())
            *version = int_column(row, 0);
        else
            result = fail(ZEL_ERR_STORAGE_FAILURE, "Failed to get DB version");
    }
    return finish(row, result);
}

zel_err_e _common_storage_db_upgrade(void)
{
    ZEL_BEGIN();
    int version = 0;
    const zel_err_e result = __common_storage_get_db_version(&version);
    if (result != ZEL_ERR_NONE)
        return fail(result, "DB version get failed!");
    ZEL_INFO("DB version is %d", version);
    if (version == SCHEMA_VERSION)
        return ZEL_ERR_NONE;
    return finish(run(sql("PRAGMA user_version = %d", SCHEMA_VERSION), "Failed to version up"));
}

bool __execute_query(const char *query)
{
    if (!query) {
        ZEL_CRITICAL("Invalid Param or sqlite handle is NULL");
        return false;
    }
    if (!open_lazily())
        return false;
    ZEL_PLAIN("query [%s]", query);
    for (busy_retry retry;;) {
        char *message = nullptr;
        const int code = sqlite3_exec(_g_sqlite_handle, query, nullptr, nullptr, &message);
        if (code == SQLITE_OK)
            return true;
        ZEL_DEBUG("failed to execute [%s], err[%d], SQLITE_BUSY [%d]", log_text(message), code, SQLITE_BUSY);
        sqlite3_free(message);
        if (!retry.wait_and_retry(code))
            return false;
    }
}

sqlite3_stmt *__execute_select_query(const char *query)
{
    ZEL_BEGIN();
    if (!query) {
        ZEL_CRITICAL("NULL PARAM query[%p], sqlite_handle[%p]", static_cast<const void *>(query),
                     static_cast<void *>(_g_sqlite_handle));
        return nullptr;
    }
    if (!open_lazily())
        return nullptr;
    ZEL_PLAIN("query[%s]", query);
    for (busy_retry retry;;) {
        sqlite3_stmt *statement = nullptr;
        const char *tail = nullptr;
        const int code =
            sqlite3_prepare_v2(_g_sqlite_handle, query, static_cast<int>(strlen(query)), &statement, &tail);
        if (code == SQLITE_OK)
            return statement;
        ZEL_DEBUG("failed to execute [%s], err[%d], SQLITE_BUSY [%d]", log_text(tail), code, SQLITE_BUSY);
        if (!retry.wait_and_retry(code))
            return nullptr;
    }
}

int __execute_insert_query(const char *query, unsigned int *unique_id)
{
    static constexpr char WITH_ROW_ID[] = "%s; SELECT last_insert_rowid();";

    if (!query || !_g_sqlite_handle) {
        ZEL_CRITICAL("Invalid Param or sqlite handle is NULL");
        return 0;
    }
    char buffer[INSERT_BUFFER_SIZE];
    const char *text = buffer;
    sql_text long_text;
    const int length = snprintf(buffer, sizeof buffer, WITH_ROW_ID, query);
    if (length < 0 || static_cast<size_t>(length) >= sizeof buffer) {
        long_text = sql(WITH_ROW_ID, query);
        if (!long_text) {
            ZEL_CRITICAL("Memory allocation failed");
            return 0;
        }
        text = long_text.get();
    }
    ZEL_PLAIN("query [%s]", text);
    int row_id = 0;
    for (busy_retry retry;;) {
        char *message = nullptr;
        bool stored = false;
        const int code = insert_once(text, &row_id, &stored, &message);
        if (code == SQLITE_OK)
            break;
        ZEL_CRITICAL("failed to execute [%s], err[%d], SQLITE_BUSY [%d]", log_text(message), code, SQLITE_BUSY);
        sqlite3_free(message);
        if (stored)
            break;
        if (!retry.wait_and_retry(code))
            return 0;
    }
    if (unique_id)
        *unique_id = static_cast<unsigned int>(row_id);
    return 1;
}

int __insert_callback(void *user_data, int argc, char **argv, char **col_name)
{
    ZEL_BEGIN();
    for (int i = 0; i < argc; ++i) {
        if (!col_name[i] || strcmp(col_name[i], "last_insert_rowid()") != 0)
            continue;
        if (argv[i] && user_data) {
            ZEL_DEBUG("Assigning value %s", argv[i]);
            /* The lowest 32 bits of the id, on every target. */
            *static_cast<int *>(user_data) = static_cast<int>(strtoll(argv[i], nullptr, 10));
        }
        break;
    }
    ZEL_END();
    return 0;
}

void __db_finalize(sqlite3_stmt *stmt)
{
    if (!stmt)
        return;
    sqlite3_clear_bindings(stmt);
    sqlite3_reset(stmt);
    const int code = sqlite3_finalize(stmt);
    ZEL_DEBUG("sqlite3_finalize = [%d]", code);
}

bool _common_storage_check_table_exist(const char *table_name)
{
    ZEL_BEGIN();
    if (!table_name) {
        ZEL_CRITICAL("Invalid Params");
        return false;
    }
    const sql_text text = sql("select count(name) from sqlite_master where name=%Q", table_name);
    ZEL_DEBUG("check query [%s]", log_text(text.get()));
    query row(text);
    bool exists = false;
    if (prepared(row, "ExecuteSelectQuery Failed ") == ZEL_ERR_NONE) {
        if (!row.next()) {
            ZEL_DEBUG("No records found");
        } else if (const int count = int_column(row, 0); count >= 1) {
            ZEL_DEBUG("records found [%d]", count);
            exists = true;
        } else {
            ZEL_DEBUG("no records [%d]", count);
        }
    }
    row.close();
    ZEL_END();
    return exists;
}
