/*
 * What the families ask of the database as a whole.
 */
#ifndef ZEL_COMMON_STORAGE_DATABASE_H
#define ZEL_COMMON_STORAGE_DATABASE_H

#include "zel_common.h"
#include "zel_common_log/trace.h"

namespace zel_storage
{

/** Deletes a key of unique_data, with all lines of such an operation. The wipe forgets keys, too. */
zel_err_e delete_key(const char *key, log_site site = log_here());

} // namespace zel_storage

#endif
