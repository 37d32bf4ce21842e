/*
 * The peers of the store's operations: the same statements composed, prepared, stepped, read and finalized by hand on
 * a connection of their own, with the same log lines. Each does what the operation of its name does; those that hand
 * something out hand out the same records.
 */
#ifndef ZEL_BENCH_STORE_BY_HAND_H
#define ZEL_BENCH_STORE_BY_HAND_H

#include "zel_common.h"
#include "zel_common_storage.h"

#include <sqlite3.h>

namespace bench::by_hand
{

bool add_transfer(sqlite3 *database, zel_content_sync_info *info);
bool add_request(sqlite3 *database, zel_upload_request_info *info);
bool rewrite_transfer(sqlite3 *database, zel_content_sync_info *info);
bool update_status(sqlite3 *database, int sync_id, int status);
bool update_percentage(sqlite3 *database, int sync_id, unsigned int percentage);
bool update_chunk(sqlite3 *database, int sync_id, unsigned int offset, int chunk_no);
bool delete_transfer(sqlite3 *database, unsigned int sync_id);
bool read_percentage(sqlite3 *database, unsigned int sync_id, unsigned int *percentage);
bool read_upload_status(sqlite3 *database, unsigned int req_id, int *status);
bool count_transfers(sqlite3 *database, int type, int status, int *count);
/** Without log lines where `lines` is false. */
template <bool lines> zel_content_sync_info *read_transfer(sqlite3 *database, int sync_id);
template <bool lines> void release_transfer(void *data);
GList *list_transfers(sqlite3 *database, int type, int status, int limit);
zel_trans_upload_info *read_report(sqlite3 *database, unsigned int req_id);
bool add_share(sqlite3 *database, zel_trans_share_content_info *share);
/** The array is released with free. */
quillo_msisdn_s **read_recent_receivers(sqlite3 *database, unsigned int *count);
int find_receiver_list(sqlite3 *database, quillo_msisdn_s *const *list, unsigned int length, bool *exists);
bool upsert_key(sqlite3 *database, const char *key, const char *value);
char *read_key(sqlite3 *database, const char *key);
bool upsert_folder(sqlite3 *database, const char *group_id, const char *folder_token,
                   unsigned long long folder_token_expired_time);

} // namespace bench::by_hand

#endif
