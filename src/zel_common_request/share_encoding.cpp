/* The share encoding: writes and reads the bytes of a received share with its items. */

#include "zel_common_request/share_encoding.h"
#include "zel_common/holders.h"
#include "zel_common/records.h"
#include "zel_common_log/trace.h"
#include "zel_common_request/dumps.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>
#include <memory>

/* Fields ----------------------------------------------------------------------------------------------------- */

namespace
{

/** Greatest length of a string that runs past its buffer, and greatest position at which one may start. */
constexpr int TRUNCATED_LENGTH_MAX = 4096;

using string_holder = std::unique_ptr<char, releaser<g_free>>;

template <typename Value> zel_err_e write_fixed(void *buf, int *offset, Value value, log_site site = log_here())
{
    if (!buf || !offset)
        return reject("Fail: Invalid Parameter", ZEL_ERR_INVALID_ARG, site);

    memcpy(static_cast<char *>(buf) + *offset, &value, sizeof(value));
    *offset += static_cast<int>(sizeof(value));
    return ZEL_ERR_NONE;
}

template <typename Value>
zel_err_e read_fixed(const void *data, int *offset, Value *out_value, log_site site = log_here())
{
    if (!data || !offset || !out_value)
        return reject("Fail: Invalid Parameter", ZEL_ERR_INVALID_ARG, site);

    memcpy(out_value, static_cast<const char *>(data) + *offset, sizeof(*out_value));
    *offset += static_cast<int>(sizeof(*out_value));
    return ZEL_ERR_NONE;
}

/** True when a field of this width fits into the buffer; else logs a line under the caller's name. */
bool field_fits(int offset, size_t width, int max_length, log_site site = log_here())
{
    const bool fits = offset >= 0 && offset + static_cast<long long>(width) <= max_length;
    if (!fits)
        ZEL_CRITICAL_AT(site, "offset to large, offset=%d, max_length=%d", offset, max_length);
    return fits;
}

/** Copies bytes into a new string; on failure returns NULL and logs a line under the caller's name. */
string_holder copy_bytes(const char *data, int length, int allocated, log_site site = log_here())
{
    string_holder copy(static_cast<char *>(g_try_malloc0(static_cast<size_t>(allocated) + 1)));
    if (copy)
        memcpy(copy.get(), data, static_cast<size_t>(length));
    else
        ZEL_CRITICAL_AT(site, "Memory allcation failure");
    return copy;
}

} // namespace

zel_err_e __set_unsigned_int(void *buf, int *offset, unsigned int value)
{
    return write_fixed(buf, offset, value);
}

zel_err_e __set_int(void *buf, int *offset, int value)
{
    return write_fixed(buf, offset, value);
}

zel_err_e __set_unsigned_long_long(void *buf, int *offset, unsigned long long value)
{
    return write_fixed(buf, offset, value);
}

zel_err_e __set_string(void *buf, int *offset, const char *value)
{
    const int length = value ? static_cast<int>(strlen(value)) : 0;
    const zel_err_e result = write_fixed(buf, offset, length);
    if (result == ZEL_ERR_NONE && length > 0) {
        memcpy(static_cast<char *>(buf) + *offset, value, static_cast<size_t>(length));
        *offset += length;
    }
    return result;
}

zel_err_e __get_unsigned_int(const void *data, int *offset, unsigned int *out_value)
{
    return read_fixed(data, offset, out_value);
}

zel_err_e __get_int(const void *data, int *offset, int *out_value)
{
    return read_fixed(data, offset, out_value);
}

zel_err_e __get_unsigned_long_long(const void *data, int *offset, unsigned long long *out_value)
{
    return read_fixed(data, offset, out_value);
}

zel_err_e __get_string(const void *data, int max_length, int *offset, char **out_string)
{
    if (!data || !offset || !out_string)
        return reject("Fail: Invalid Parameter");
    if (!field_fits(*offset, sizeof(int), max_length))
        return ZEL_ERR_MEMORY;

    int position = *offset;
    int length = 0;
    __get_int(data, &position, &length);
    if (length <= 0) {
        *offset = position;
        return ZEL_ERR_NONE;
    }

    const char *bytes = static_cast<const char *>(data) + position;
    const int available = max_length - position;
    if (length <= available) {
        string_holder string = copy_bytes(bytes, length, length);
        if (!string)
            return ZEL_ERR_MEMORY;
        *out_string = string.release();
        *offset = position + length;
        return ZEL_ERR_NONE;
    }

    ZEL_CRITICAL("offset to large, offset=%d, length=%d, max_length=%d", position, length, max_length);
    if (position > TRUNCATED_LENGTH_MAX) {
        ZEL_CRITICAL("fails to get string");
        return ZEL_ERR_MEMORY;
    }
    string_holder string = copy_bytes(bytes, std::min(available, TRUNCATED_LENGTH_MAX), TRUNCATED_LENGTH_MAX);
    if (!string)
        return ZEL_ERR_MEMORY;
    ZEL_WARNING("truncated data: %s", string.get());
    *out_string = string.release();
    *offset = length > INT_MAX - position ? INT_MAX : position + length;
    return ZEL_ERR_NONE;
}

/* Records ---------------------------------------------------------------------------------------------------- */

namespace
{

using item = zel_trans_content_info;
using share = zel_trans_share_content_info;

/* The fields of the two records, in the order of the encoding. */

constexpr char *item::*ITEM_STRINGS[] = {
    &item::original, &item::thumbnail,    &item::mid_thumbnail,  &item::big_thumbnail,
    &item::name,     &item::content_type, &item::contents_token,
};
constexpr unsigned int item::*ITEM_NUMBERS[] = {
    &item::download_count,
    &item::max_download_count,
    &item::size,
    &item::content_id,
};
constexpr unsigned int ITEM_SIZE = std::size(ITEM_STRINGS) * sizeof(int) + std::size(ITEM_NUMBERS) * sizeof(int);
static_assert(ITEM_SIZE == 44);

constexpr char *share::*SHARE_STRINGS[] = {
    &share::contents_token, &share::description, &share::type, &share::from_msisdn, &share::to_list,
};
/** After the strings come expired_time, the number of items, and the items. */
constexpr unsigned int SHARE_SIZE =
    std::size(SHARE_STRINGS) * sizeof(int) + sizeof(unsigned long long) + sizeof(unsigned int);
static_assert(SHARE_SIZE == 32);

/** Writes a number and returns the position of the next field. */
template <typename Value> char *put(char *to, Value value)
{
    memcpy(to, &value, sizeof(value));
    return to + sizeof(value);
}

/**
 * Writes a string like __set_string, but reads it only once. It also writes a terminator, which the next field of the
 * record overwrites: no record ends with a string.
 */
char *put(char *to, const char *value)
{
    char *const bytes = to + sizeof(int);
    char *const end = value ? stpcpy(bytes, value) : bytes;
    put(to, static_cast<int>(end - bytes));
    return end;
}

template <typename Record, size_t count>
char *put_strings(char *to, const Record *record, char *Record::*const (&strings)[count])
{
#pragma GCC unroll 8
    for (auto string : strings)
        to = put(to, static_cast<const char *>(record->*string));
    return to;
}

template <typename Record, size_t count>
bool read_strings(const void *buf, int max_length, int *offset, Record *record, char *Record::*const (&strings)[count])
{
    bool read = true;
    for (auto string : strings)
        read = read && __get_string(buf, max_length, offset, &(record->*string)) == ZEL_ERR_NONE;
    return read;
}

template <typename Record, size_t count>
unsigned int length_of_strings(const Record *record, char *Record::*const (&strings)[count])
{
    size_t length = 0;
    for (auto string : strings)
        length += record->*string ? strlen(record->*string) : 0;
    return static_cast<unsigned int>(length);
}

/** Reads a fixed-width field if it fits into the buffer; the field's own reader does not check. */
template <typename Value>
bool read_number(zel_err_e (*reader)(const void *, int *, Value *), const void *buf, int max_length, int *offset,
                 Value *value, log_site site = log_here())
{
    return field_fits(*offset, sizeof(Value), max_length, site) && reader(buf, offset, value) == ZEL_ERR_NONE;
}

/** Sets the item count of a share to the length of its list. */
void count_items(share *share_content_info)
{
    if (share_content_info->content_info_list)
        share_content_info->content_info_list_length = g_list_length(share_content_info->content_info_list);
}

} // namespace

zel_err_e __set_content_info(void *buf, int *offset, const zel_trans_content_info *content_info)
{
    ZEL_BEGIN();
    if (!buf || !offset || !content_info)
        return reject("Fail: Invalid Parameter");

    char *const begin = static_cast<char *>(buf) + *offset;
    char *end = put_strings(begin, content_info, ITEM_STRINGS);
    for (auto number : ITEM_NUMBERS)
        end = put(end, content_info->*number);
    *offset += static_cast<int>(end - begin);
    ZEL_END();
    return ZEL_ERR_NONE;
}

zel_err_e __set_share_content_info_list(void *buf, int *offset, zel_trans_share_content_info *share_content_info)
{
    ZEL_BEGIN();
    if (!buf || !offset || !share_content_info)
        return reject("Fail: Invalid Parameter");

    count_items(share_content_info);
    char *const begin = static_cast<char *>(buf) + *offset;
    char *end = put_strings(begin, share_content_info, SHARE_STRINGS);
    end = put(end, share_content_info->expired_time);
    end = put(end, share_content_info->content_info_list_length);
    *offset += static_cast<int>(end - begin);
    for (const GList *node = share_content_info->content_info_list; node; node = node->next) {
        /*
         * The items of a long list are not in the cache. So prefetch the strings of the next item, whose record was
         * prefetched one node ago, and the record after it. (The compiler drops a function that only prefetches.)
         */
        if (const GList *next = node->next) {
            if (const auto *coming = static_cast<const item *>(next->data)) {
#pragma GCC unroll 8
                for (auto string : ITEM_STRINGS)
                    __builtin_prefetch(coming->*string);
            }
            if (next->next)
                __builtin_prefetch(next->next->data);
        }
        __set_content_info(buf, offset, static_cast<const item *>(node->data));
    }
    ZEL_END();
    return ZEL_ERR_NONE;
}

zel_err_e __get_content_info(const void *buf, int max_length, int *offset, zel_trans_content_info **content_info)
{
    if (!buf || !offset || !content_info)
        return reject("Fail: Invalid Parameter");

    std::unique_ptr<item, releaser<__free_content_info>> decoded(g_try_new0(item, 1));
    if (!decoded) {
        ZEL_CRITICAL("Fail: Memory Allocation Failure");
        return ZEL_ERR_MEMORY;
    }

    int position = *offset;
    if (!read_strings(buf, max_length, &position, decoded.get(), ITEM_STRINGS))
        return ZEL_ERR_MEMORY;
    for (auto number : ITEM_NUMBERS) {
        if (!read_number(__get_unsigned_int, buf, max_length, &position, &(decoded.get()->*number)))
            return ZEL_ERR_MEMORY;
    }

    *offset = position;
    *content_info = decoded.release();
    return ZEL_ERR_NONE;
}

zel_err_e __get_share_content_info_list(const void *buf, int max_length, int *offset,
                                        zel_trans_share_content_info **share_content_info)
{
    ZEL_BEGIN();
    if (!buf || !offset || !share_content_info)
        return reject("Fail: Invalid Parameter");

    std::unique_ptr<share, releaser<_common_free_share_content_info>> decoded(g_try_new0(share, 1));
    if (!decoded) {
        ZEL_CRITICAL("Fail: Memory Allocation Failure");
        return ZEL_ERR_MEMORY;
    }

    int position = *offset;
    if (!read_strings(buf, max_length, &position, decoded.get(), SHARE_STRINGS) ||
        !read_number(__get_unsigned_long_long, buf, max_length, &position, &decoded->expired_time) ||
        !read_number(__get_unsigned_int, buf, max_length, &position, &decoded->content_info_list_length))
        return ZEL_ERR_MEMORY;
    for (unsigned int i = 0; i < decoded->content_info_list_length; ++i) {
        item *content_info = nullptr;
        if (__get_content_info(buf, max_length, &position, &content_info) != ZEL_ERR_NONE)
            return ZEL_ERR_MEMORY;
        decoded->content_info_list = g_list_prepend(decoded->content_info_list, content_info);
    }
    decoded->content_info_list = g_list_reverse(decoded->content_info_list);

    __print_share_content_info_list(decoded.get());
    *offset = position;
    *share_content_info = decoded.release();
    ZEL_END();
    return ZEL_ERR_NONE;
}

/* Sizes ------------------------------------------------------------------------------------------------------ */

unsigned int __find_length_of_content_info(const zel_trans_content_info *content_info)
{
    ZEL_BEGIN();
    if (!content_info)
        return reject("Invalid Parameter", 0U);

    const unsigned int length = ITEM_SIZE + length_of_strings(content_info, ITEM_STRINGS);
    ZEL_END();
    return length;
}

unsigned int __find_length_of_share_content_info_list(zel_trans_share_content_info *share_content_info)
{
    ZEL_BEGIN();
    if (!share_content_info)
        return reject("Invalid Parameter", 0U);

    unsigned int length = SHARE_SIZE + length_of_strings(share_content_info, SHARE_STRINGS);
    count_items(share_content_info);
    for (const GList *node = share_content_info->content_info_list; node; node = node->next)
        length += __find_length_of_content_info(static_cast<const item *>(node->data));
    ZEL_END();
    return length;
}
