/*
 * The dump of a share, the last step of its reader. The dump of a request is public.
 */
#ifndef ZEL_COMMON_REQUEST_DUMPS_H
#define ZEL_COMMON_REQUEST_DUMPS_H

#include "zel_common_request.h"

extern "C" {

/** Writes a share with its items to the log. */
void __print_share_content_info_list(const zel_trans_share_content_info *share_content_info);
}

#endif
