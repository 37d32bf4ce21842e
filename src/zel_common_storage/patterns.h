/*
 * The few patterns that every store operation is a variation of. A typical operation reads:
 *
 *     ZEL_BEGIN();
 *     if (!req_id || !contents_token)
 *         return reject("Invalid parameter");
 *     query row(sql("SELECT contents_token FROM %Q WHERE req_id = %u;", TABLE_UPLOAD_REQUEST_DATA, req_id));
 *     const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS);
 *     if (result == ZEL_ERR_NONE)
 *         hand_out_column(row, 0, contents_token);
 *     return finish(row, result);
 *
 * Functions that log for an operation take the operation's name and line as their last parameter.
 */
#ifndef ZEL_COMMON_STORAGE_PATTERNS_H
#define ZEL_COMMON_STORAGE_PATTERNS_H

#include "zel_common.h"
#include "zel_common/holders.h"
#include "zel_common_log/trace.h"
#include "zel_common_storage.h"
#include "zel_common_storage/connection.h"

#include <glib.h>
#include <memory>
#include <sqlite3.h>
#include <utility>

namespace zel_storage
{

/** Returns "" for NULL, for the columns that never hold NULL. */
inline const char *text_or_empty(const char *text)
{
    return text ? text : "";
}

/** A prepared statement. Its destructor finalizes it and logs the operation's "sqlite3_finalize" line. */
struct query {
    explicit query(const sql_text &text, log_site of = log_here())
        : statement(__execute_select_query(text.get())), site(of)
    {
    }
    ~query()
    {
        close();
    }
    query(const query &) = delete;
    query &operator=(const query &) = delete;
    operator sqlite3_stmt *() const
    {
        return statement;
    }

    /** Moves to the next row; false when there is none, or it cannot be read. */
    bool next() const
    {
        return statement && sqlite3_step(statement) == SQLITE_ROW;
    }
    void close();
    /** Returns the statement, which the caller finalizes. */
    sqlite3_stmt *release()
    {
        return std::exchange(statement, nullptr);
    }

    sqlite3_stmt *statement; /**< null when it could not be prepared */
    log_site site;
};

/* Columns of a statement's current row. */

inline int int_column(sqlite3_stmt *row, int column)
{
    return sqlite3_column_int(row, column);
}
inline unsigned int uint_column(sqlite3_stmt *row, int column)
{
    return static_cast<unsigned int>(sqlite3_column_int(row, column));
}
inline unsigned long long ullong_column(sqlite3_stmt *row, int column)
{
    return static_cast<unsigned long long>(sqlite3_column_int64(row, column));
}
/** Returns the text, valid until the next step; null for SQL NULL. */
inline const char *text_column(sqlite3_stmt *row, int column)
{
    return reinterpret_cast<const char *>(sqlite3_column_text(row, column));
}
/** Returns a copy, which the caller releases with g_free; null for SQL NULL and for the empty text. */
char *copy_column(sqlite3_stmt *row, int column);
/** Sets the output to a copy of the text; SQL NULL and the empty text leave the output untouched. */
void hand_out_column(sqlite3_stmt *row, int column, char **output);

/* The patterns. */

/** Logs a Critical line and returns the code. */
zel_err_e fail(zel_err_e code, const char *message, log_site site = log_here());

/** Runs a statement; logs a failure as the Critical line `failure`. */
zel_err_e run(const sql_text &statement, const char *failure, log_site site = log_here());

/** Runs an insert and sets row_id (may be null) to its row id; logs a failure as the Critical line `failure`. */
zel_err_e insert(const sql_text &statement, unsigned int *row_id, const char *failure, log_site site = log_here());

/** ZEL_ERR_NONE when the query was prepared; else logs the line `failure` and returns ZEL_ERR_STORAGE_FAILURE. */
zel_err_e check_prepared(const query &rows, const char *failure, log_site site = log_here());

/** Moves to the first row; without one logs "No records found" and returns the code `none`. */
zel_err_e first_row(const query &rows, const char *failure, zel_err_e none, log_site site = log_here());

/** Writes the operation's End line, whatever the result, and returns the result. */
zel_err_e finish(zel_err_e result, log_site site = log_here());
/** Finalizes the query first. */
zel_err_e finish(query &rows, zel_err_e result, log_site site = log_here());
/** Writes the End line on ZEL_ERR_NONE only; returns the result. */
zel_err_e finish_on_success(zel_err_e result, log_site site = log_here());
zel_err_e finish_on_success(query &rows, zel_err_e result, log_site site = log_here());

/**
 * Sets `value` to one column of a query's first row. For the operations that log "Failed to get file", and without a
 * row return ZEL_ERR_STORAGE_NO_RECORDS. Writes their End line.
 */
template <typename Value>
zel_err_e read_value(const sql_text &statement, int column, Value (*read)(sqlite3_stmt *, int), Value *value,
                     log_site site = log_here())
{
    query row(statement, site);
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS, site);
    if (result == ZEL_ERR_NONE)
        *value = read(row, column);
    return finish(row, result, site);
}

/** The same for a copy of a text; SQL NULL and the empty text leave the output untouched. */
zel_err_e read_text(const sql_text &statement, int column, char **text, zel_err_e none = ZEL_ERR_STORAGE_NO_RECORDS,
                    log_site site = log_here());

/* Arrays of an unknown length. */

/** Resizes an array: block, number of elements, size of one element. */
using resize_function = void *(*)(void *block, size_t count, size_t size);

/** realloc, for the arrays that the caller releases with free. */
void *resize_with_realloc(void *block, size_t count, size_t size);

/**
 * Appends a value to an array of `count` elements, which starts as null and which only this function resizes: it
 * doubles the size when the count is a power of two. Returns false, with the array unchanged, when memory runs out.
 */
template <typename T> bool append(T *&array, unsigned int &count, T value, resize_function resize)
{
    const bool full = (count & (count - 1)) == 0;
    if (full) {
        void *larger = resize(array, count ? size_t{count} * 2 : 1, sizeof(T));
        if (!larger)
            return false;
        array = static_cast<T *>(larger);
    }
    array[count++] = value;
    return true;
}

/**
 * Appends to an array of request ids. When memory runs out it logs a Critical line, releases the array and sets it to
 * null, with a count of 0.
 */
bool append_id(unsigned int *&ids, unsigned int &count, unsigned int id, log_site site = log_here());

/* Lists whose size a first statement reads. */

/** Returns a zero-filled array for an output; logs a failed allocation. */
template <typename T> T *new_array(unsigned int count, log_site site = log_here())
{
    T *const array = g_try_new0(T, count);
    if (!array)
        ZEL_CRITICAL_AT(site, "Memory Allocation Failure");
    return array;
}

/** Reads the size of a list; without a row, or with the size zero, logs "No records found". */
zel_err_e read_size(const sql_text &statement, unsigned int *size, log_site site = log_here());

/** Both statements of a list. A braced list fixes the order of evaluation; two arguments would not. */
struct counted_rows {
    sql_text counting, listing;
};

/** Reads the rows of `listing` into an array of the size that `counting` returns; `read` can skip a row. */
template <typename T>
zel_err_e list_counted(const counted_rows &statements, bool (*read)(sqlite3_stmt *row, T *place), T **list,
                       unsigned int *count, log_site site = log_here())
{
    unsigned int size = 0;
    zel_err_e result = read_size(statements.counting, &size, site);
    if (result != ZEL_ERR_NONE)
        return result;
    query rows(statements.listing, site);
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

} // namespace zel_storage

#endif
