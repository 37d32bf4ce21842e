/*
 * What the families ask of the database as a whole.
 */
#ifndef ZEL_COMMON_STORAGE_DATABASE_H
#define ZEL_COMMON_STORAGE_DATABASE_H

#include "zel_common.h"
#include "zel_common_log/trace.h"

namespace zel_storage
{

/**
 * Deletes a key of unique_data and writes all lines of _common_storage_delete_unique_data, which is no more than this.
 * It stands here because the wipe ends with it.
 */
zel_err_e delete_key(const char *key, log_site site = log_here());

} // namespace zel_storage

#endif
