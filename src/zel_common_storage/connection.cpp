/* The connection, and the executors that all statements run through. */

#include "zel_common_storage/connection.h"
#include "zel_common_log/trace.h"
#include "zel_common_storage.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace zel_storage;

sqlite3 *_g_sqlite_handle;

const char zel_storage::DATABASE_PATH[] = ZEL_APPS_ROOT "quillo.service/data/.quillo_service.db";

namespace
{

constexpr size_t INSERT_BUFFER_SIZE = 8046;

/** Retries on a busy database: ten attempts, a short sleep after each failed one. */
class busy_retry
{
  public:
    /** Sleeps after a failure with `code`; returns whether to try again. */
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

/** Opens the store for a process that did not call init; creates no tables and writes no version. */
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
 * Runs an insert and the query for its row id once. If memory runs out between the two, the row exists: it is reported
 * as stored, with its id, so that the caller does not store it again. The mutex keeps other threads' inserts out.
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

} // namespace zel_storage

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
