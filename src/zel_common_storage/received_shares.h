/*
 * Received shares: the internal operations.
 */
#ifndef ZEL_COMMON_STORAGE_RECEIVED_SHARES_H
#define ZEL_COMMON_STORAGE_RECEIVED_SHARES_H

#include "zel_common.h"

extern "C" {

/** Deletes the notifications of a token and, after a success, its items. */
zel_err_e _common_storage_delete_push_noti(const char *contents_token);

/** Deletes the items of a token. */
zel_err_e _common_storage_delete_content_info(const char *contents_token);

/** Inserts one item of a share and sets its content_id to the new row id. */
zel_err_e _common_storage_add_content_info(zel_trans_content_info *content_info, const char *contents_token,
                                           const char *description, const char *type, const char *from_msisdn,
                                           const char *to_list, unsigned long long expired_time);

/** True when a token has items; false also when the query fails. */
bool _common_storage_exist_content_info(const char *contents_token);

/** Reads a share with its items into a new record. */
zel_err_e _common_storage_get_contents(const char *contents_token, zel_trans_share_content_info **noti_info);
}

#endif
