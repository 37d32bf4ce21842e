/*
 * Upload requests: the readers of one recipient row.
 */
#ifndef ZEL_COMMON_STORAGE_UPLOADS_H
#define ZEL_COMMON_STORAGE_UPLOADS_H

#include "zel_common.h"

#include <sqlite3.h>

extern "C" {

/** Fills a zero-filled recipient from the contact_details row that a "SELECT *" stands on. */
void __fill_upload_receiver_info(sqlite3_stmt *stmt, quillo_msisdn_s *receiver_info);

/**
 * Stores the recipient of such a row as a text: "+", calling code and number, or the number alone without a calling
 * code; a row without a number leaves the place untouched.
 */
void __fill_upload_receipient_info(sqlite3_stmt *stmt, char **receipient);
}

#endif
