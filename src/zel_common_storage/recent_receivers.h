/*
 * Recent receivers: the reader of one member row.
 */
#ifndef ZEL_COMMON_STORAGE_RECENT_RECEIVERS_H
#define ZEL_COMMON_STORAGE_RECENT_RECEIVERS_H

#include "zel_common.h"

#include <sqlite3.h>

extern "C" {

/** Fills a zero-filled recipient from the recent_receiver_details row that a "SELECT *" stands on. */
void __fill_last_receiver_info(sqlite3_stmt *stmt, quillo_msisdn_s *receiver_info);
}

#endif
