/*
 * The steps of the copy of a request.
 */
#ifndef ZEL_COMMON_REQUEST_REQUEST_H
#define ZEL_COMMON_REQUEST_REQUEST_H

#include "zel_common_request.h"

extern "C" {

/** Duplicates a list of strings, up to its first NULL element; NULL for an empty list. */
GList *_common_glist_dup(const GList *src);
}

#endif
