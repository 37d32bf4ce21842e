/*
 * Internal releases of records.
 */
#ifndef ZEL_COMMON_RECORDS_H
#define ZEL_COMMON_RECORDS_H

#include "zel_common.h"

namespace zel_common
{

/** Releases a recipient with its strings; it may be NULL. */
void free_recipient(quillo_msisdn_s *recipient);

} // namespace zel_common

extern "C" {

/** Releases one string of an upload report's path list; data may be NULL. */
void __free_file_path_list(void *data);

/** Releases a zel_trans_content_info with its strings; data may be NULL. Writes no log line. */
void __free_content_info(void *data);
}

#endif
