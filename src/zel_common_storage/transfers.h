/*
 * Transfer rows: what their writers and their queries share.
 */
#ifndef ZEL_COMMON_STORAGE_TRANSFERS_H
#define ZEL_COMMON_STORAGE_TRANSFERS_H

#include "zel_common_storage.h"

#include <sqlite3.h>

extern "C" {

/** Fills a zero-filled record from the row that a "SELECT *" of content_info_status stands on. */
void __fill_content_sync_info(sqlite3_stmt *stmt, zel_content_sync_info *sync_info);
}

#endif
