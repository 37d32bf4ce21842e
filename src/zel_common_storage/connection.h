/*
 * The connection to the database, the three executors, which retry on a busy database, and their statement texts.
 */
#ifndef ZEL_COMMON_STORAGE_CONNECTION_H
#define ZEL_COMMON_STORAGE_CONNECTION_H

#include "zel_common/holders.h"

#include <memory>
#include <sqlite3.h>

extern "C" {

/** The process-wide connection; null until the store is opened, then set for the life of the process. */
extern sqlite3 *_g_sqlite_handle;

/** Runs a statement text; opens the store when it is closed. Returns false on any failure. */
bool __execute_query(const char *query);

/**
 * Prepares a statement text; opens the store when it is closed. The caller finalizes the statement. Returns null on any
 * failure.
 */
sqlite3_stmt *__execute_select_query(const char *query);

/**
 * Runs an insert (one statement without a semicolon) and sets unique_id, unless it is null, to the new row's id.
 * Never opens the store. 1 on success; 0 on failure, with unique_id unchanged.
 */
int __execute_insert_query(const char *query, unsigned int *unique_id);

/** Row callback of the insert: puts the column "last_insert_rowid()" into the int that user_data points to. */
int __insert_callback(void *user_data, int argc, char **argv, char **col_name);
}

namespace zel_storage
{

extern const char DATABASE_PATH[];

/** A text that SQLite allocated. */
using sql_text = std::unique_ptr<char, releaser<sqlite3_free>>;

/** Formats a statement text with SQLite's printf; null when memory runs out, which every executor reports. */
sql_text sql(const char *format, ...);

} // namespace zel_storage

#endif
