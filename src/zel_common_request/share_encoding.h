/*
 * The share encoding: how a received share with its content items is laid out in a message between service and client.
 * The shared library does not export it: programs that link statically use it, under the name
 * zel_common_share_encoding.h once it is installed.
 *
 * Integers are 4 or 8 bytes in the host's order; a string is its length as a signed 4-byte integer and then its bytes,
 * without a terminator; an absent string is a length of 0, and so is an empty one. Fields follow one another without
 * gaps or alignment.
 *
 * Every operation starts at *offset and moves it past what it wrote or read, so an encoding ends below 2^31 bytes.
 * Writers do not know the size of their buffer: __find_length_of_share_content_info_list says how large it must be.
 * Readers are given max_length, the number of valid bytes, and never look past it.
 *
 * Results: ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when a pointer other than a string's value is NULL; the bounded readers
 * also ZEL_ERR_MEMORY when a field does not fit or an allocation fails, and then hand nothing out and leave *offset.
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

/* These three trust their caller to have tested that the field fits. */
zel_err_e __get_unsigned_int(const void *data, int *offset, unsigned int *out_value);
zel_err_e __get_int(const void *data, int *offset, int *out_value);
zel_err_e __get_unsigned_long_long(const void *data, int *offset, unsigned long long *out_value);

/**
 * Reads a string into *out_string, which the caller owns; an absent string leaves it untouched. A string whose declared
 * length runs past the buffer is refused if its bytes begin behind position 4096; otherwise it is cut off, to 4096
 * bytes at most, and *offset moves by the declared length (but not past INT_MAX) to where nothing more can be read.
 */
zel_err_e __get_string(const void *data, int max_length, int *offset, char **out_string);

/* Records */

/** Writes a content item. */
zel_err_e __set_content_info(void *buf, int *offset, const zel_trans_content_info *content_info);

/** Writes a share with its items, after bringing its item count up to date. */
zel_err_e __set_share_content_info_list(void *buf, int *offset, zel_trans_share_content_info *share_content_info);

/** Reads a content item into a new record. */
zel_err_e __get_content_info(const void *buf, int max_length, int *offset, zel_trans_content_info **content_info);

/** Reads a share with its items into a new record, which _common_free_share_content_info releases. */
zel_err_e __get_share_content_info_list(const void *buf, int max_length, int *offset,
                                        zel_trans_share_content_info **share_content_info);

/** Number of bytes that __set_content_info writes; 0 for NULL. */
unsigned int __find_length_of_content_info(const zel_trans_content_info *content_info);

/** Number of bytes that __set_share_content_info_list writes, after bringing the item count up to date; 0 for NULL. */
unsigned int __find_length_of_share_content_info_list(zel_trans_share_content_info *share_content_info);

#ifdef __cplusplus
}
#endif

#endif
