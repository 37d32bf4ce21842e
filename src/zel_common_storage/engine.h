/*
 * The storage engine: the one connection, the three executors, and the few patterns that every store operation is a
 * variation of. A typical operation reads:
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
 * The functions that write a line for an operation take its name and line through their last parameter.
 */
#ifndef ZEL_COMMON_STORAGE_ENGINE_H
#define ZEL_COMMON_STORAGE_ENGINE_H

#include "zel_common.h"
#include "zel_common/holders.h"
#include "zel_common_log/trace.h"
#include "zel_common_storage.h"

#include <glib.h>
#include <memory>
#include <sqlite3.h>
#include <utility>

extern "C" {

/** The process-wide connection; null until the store is opened, then set for the life of the process. */
extern sqlite3 *_g_sqlite_handle;

/** Runs a statement text to its end; opens the store when it is closed. False on any failure. */
bool __execute_query(const char *query);

/**
 * Prepares a statement text; opens the store when it is closed. The caller finalizes the statement.
 * Null on any failure.
 */
sqlite3_stmt *__execute_select_query(const char *query);

/**
 * Runs an insert (one statement, no semicolon behind it) and stores the new row's id in unique_id unless that is null.
 * Never opens the store. 1 on success; 0 on failure, with unique_id unchanged.
 */
int __execute_insert_query(const char *query, unsigned int *unique_id);

/** Row callback of the insert: puts the column "last_insert_rowid()" into the int that user_data points to. */
int __insert_callback(void *user_data, int argc, char **argv, char **col_name);
}

namespace zel_storage
{

/** A text that SQLite allocated. */
using sql_text = std::unique_ptr<char, releaser<sqlite3_free>>;

/** A statement text, put together by SQLite's printf; null when memory ran out, which every executor reports. */
sql_text sql(const char *format, ...);

/** For the columns that never hold NULL. */
inline const char *text_or_empty(const char *text)
{
    return text ? text : "";
}

/** A prepared statement that finalizes itself, with the operation's "sqlite3_finalize" line, on every path. */
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

    /** Moves to the next row; false when there is none, or it cannot be read. */
    bool next() const
    {
        return statement && sqlite3_step(statement) == SQLITE_ROW;
    }
    void close();
    /** Leaves the finalizing to the caller. */
    sqlite3_stmt *release()
    {
        return std::exchange(statement, nullptr);
    }

    sqlite3_stmt *statement; /**< null when it could not be prepared */
    log_site site;
};

/* Columns of the row that a query stands on. */

inline int int_column(const query &row, int column)
{
    return sqlite3_column_int(row.statement, column);
}
inline unsigned int uint_column(sqlite3_stmt *row, int column)
{
    return static_cast<unsigned int>(sqlite3_column_int(row, column));
}
inline unsigned int uint_column(const query &row, int column)
{
    return uint_column(row.statement, column);
}
inline unsigned long long ullong_column(sqlite3_stmt *row, int column)
{
    return static_cast<unsigned long long>(sqlite3_column_int64(row, column));
}
inline unsigned long long ullong_column(const query &row, int column)
{
    return ullong_column(row.statement, column);
}
/** The text, which lives until the next step; null for SQL NULL. */
inline const char *text_column(sqlite3_stmt *row, int column)
{
    return reinterpret_cast<const char *>(sqlite3_column_text(row, column));
}
inline const char *text_column(const query &row, int column)
{
    return text_column(row.statement, column);
}
/** A copy for the caller, to be released with g_free; null for SQL NULL and for the empty text. */
char *copy_column(sqlite3_stmt *row, int column);
inline char *copy_column(const query &row, int column)
{
    return copy_column(row.statement, column);
}
/** Hands the caller a copy of the text; SQL NULL and the empty text leave the output as it is. */
void hand_out_column(const query &row, int column, char **output);

/* The patterns. */

/** Writes a Critical line and passes the code on. */
zel_err_e fail(zel_err_e code, const char *message, log_site site = log_here());

/** A rejected argument: its Critical line and ZEL_ERR_INVALID_ARG, without an End line. */
zel_err_e reject(const char *message, log_site site = log_here());

/** Runs a statement; a failure is written as the Critical line `failure`. */
zel_err_e run(const sql_text &statement, const char *failure, log_site site = log_here());

/** Runs an insert and hands out its row id (row_id may be null); a failure is written as the line `failure`. */
zel_err_e insert(const sql_text &statement, unsigned int *row_id, const char *failure, log_site site = log_here());

/** ZEL_ERR_NONE when the query was prepared; else the Critical line `failure` and ZEL_ERR_STORAGE_FAILURE. */
zel_err_e prepared(const query &rows, const char *failure, log_site site = log_here());

/** Moves to the first row; without one, the Critical line "No records found" and the code `none`. */
zel_err_e first_row(const query &rows, const char *failure, zel_err_e none, log_site site = log_here());

/** The operation's End line, whatever its result, which is passed on. */
zel_err_e finish(zel_err_e result, log_site site = log_here());
/** Finalizes the query, then as above. */
zel_err_e finish(query &rows, zel_err_e result, log_site site = log_here());
/** For the operations that write an End line only when they succeeded. */
zel_err_e finish_on_success(zel_err_e result, log_site site = log_here());
zel_err_e finish_on_success(query &rows, zel_err_e result, log_site site = log_here());

/**
 * Hands out one column of a query's first row, for the operations that say "Failed to get file" and
 * ZEL_ERR_STORAGE_NO_RECORDS when there is none. Writes their End line.
 */
template <typename Value>
zel_err_e read_value(const sql_text &statement, int column, Value (*read)(const query &, int), Value *value,
                     log_site site = log_here())
{
    query row(statement, site);
    const zel_err_e result = first_row(row, "Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS, site);
    if (result == ZEL_ERR_NONE)
        *value = read(row, column);
    return finish(row, result, site);
}

/* Arrays of an unknown length. */

/** An allocator's resize of an array: block, number of elements, size of one. */
using resize_function = void *(*)(void *block, size_t count, size_t size);

/** realloc, for the arrays that their receiver releases with free. */
void *resize_with_realloc(void *block, size_t count, size_t size);

/**
 * Puts a value behind the `count` elements of an array that only this function has grown, from null: it doubles when
 * the count reaches a power of two. False when it cannot grow: the array is as it was.
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
 * Appends to an array of request ids. When it cannot grow, that is said with a Critical line and the array is given up:
 * null, with a count of 0.
 */
bool append_id(unsigned int *&ids, unsigned int &count, unsigned int id, log_site site = log_here());

} // namespace zel_storage

#endif
