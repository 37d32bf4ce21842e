/*
 * The share encoding: the bytes of a received share with its content items in a message between service and client. The
 * shared library does not export it; programs that link statically include it as zel_common_share_encoding.h.
 *
 * Integers are 4 or 8 bytes in host order. A string is its length as a signed 4-byte integer, then its bytes without a
 * terminator. An absent or empty string has length 0. Fields follow each other without gaps or alignment.
 *
 * Every operation starts at *offset and moves it past the bytes that it wrote or read. So an encoding is shorter than
 * 2^31 bytes. Writers do not check the size of their buffer: __find_length_of_share_content_info_list returns the size
 * needed. Readers never read past max_length, the number of valid bytes.
 *
 * push_status is not encoded. A share read from the store (_common_storage_get_notification_data) has neither its type
 * nor its items' max_download_count: passing it on loses both.
 *
 * Results: ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when a pointer other than a string's value is NULL. The bounded readers
 * also return ZEL_ERR_MEMORY when a field does not fit or an allocation fails; outputs and *offset stay untouched.
 */
#ifndef ZEL_COMMON_REQUEST_SHARE_ENCODING_H
#define ZEL_COMMON_REQUEST_SHARE_ENCODING_H

#include "zel_common_request.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Fields */

zel_err_e __set_unsigned_int(void *buf, int *offset, unsigned int value);
zel_err_e __set_int(void *buf, int *offset, int value);
zel_err_e __set_unsigned_long_long(void *buf, int *offset, unsigned long long value);
zel_err_e __set_string(void *buf, int *offset, const char *value);

/* These three do not check that the field fits: the caller does. */
zel_err_e __get_unsigned_int(const void *data, int *offset, unsigned int *out_value);
zel_err_e __get_int(const void *data, int *offset, int *out_value);
zel_err_e __get_unsigned_long_long(const void *data, int *offset, unsigned long long *out_value);

/**
 * Reads a string into *out_string, which the caller owns; an absent string leaves *out_string untouched. A declared
 * length past the end of the buffer is refused if the bytes start after position 4096. Otherwise the string is cut off
 * to 4096 bytes at most. Then *offset moves by the declared length (at most to INT_MAX), and no further read succeeds.
 */
zel_err_e __get_string(const void *data, int max_length, int *offset, char **out_string);

/* Records */

/** Writes a content item. */
zel_err_e __set_content_info(void *buf, int *offset, const zel_trans_content_info *content_info);

/** Writes a share with its items; first sets its item count to the length of its list. */
zel_err_e __set_share_content_info_list(void *buf, int *offset, zel_trans_share_content_info *share_content_info);

/** Reads a content item into a new record. */
zel_err_e __get_content_info(const void *buf, int max_length, int *offset, zel_trans_content_info **content_info);

/** Reads a share with its items into a new record, which _common_free_share_content_info releases. */
zel_err_e __get_share_content_info_list(const void *buf, int max_length, int *offset,
                                        zel_trans_share_content_info **share_content_info);

/** Returns the number of bytes that __set_content_info writes; 0 for NULL. */
unsigned int __find_length_of_content_info(const zel_trans_content_info *content_info);

/** Returns the number of bytes that __set_share_content_info_list writes; sets the item count first; 0 for NULL. */
unsigned int __find_length_of_share_content_info_list(zel_trans_share_content_info *share_content_info);

#ifdef __cplusplus
}
#endif

#endif
