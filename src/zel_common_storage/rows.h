/*
 * Readers. Each fills a zero-filled record from the current row of a "SELECT *" of its table. A NULL or empty text
 * leaves its member NULL. A reader without a row or a record does nothing.
 */
#ifndef ZEL_COMMON_STORAGE_ROWS_H
#define ZEL_COMMON_STORAGE_ROWS_H

#include "zel_common.h"
#include "zel_common_storage.h"

#include <sqlite3.h>

extern "C" {

/** Reads an item of content_info. */
void __fill_content_info(sqlite3_stmt *stmt, zel_trans_content_info *content_info);

/** Reads a transfer of content_info_status. */
void __fill_content_sync_info(sqlite3_stmt *stmt, zel_content_sync_info *sync_info);

/** Reads a member of recent_receiver_details. */
void __fill_last_receiver_info(sqlite3_stmt *stmt, quillo_msisdn_s *receiver_info);

/** Reads a recipient of contact_details. */
void __fill_upload_receiver_info(sqlite3_stmt *stmt, quillo_msisdn_s *receiver_info);

/**
 * Reads a recipient of contact_details as a text: "+", calling code and number, or only the number without a calling
 * code. A row without a number leaves the output untouched.
 */
void __fill_upload_receipient_info(sqlite3_stmt *stmt, char **receipient);
}

#endif
