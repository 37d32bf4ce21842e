// Arguments of the store's operations: read from words, and shown as words.
#ifndef ZEL_TESTS_VALUE_H
#define ZEL_TESTS_VALUE_H

#include "zel_common_storage.h"

#include <cstring>
#include <istream>
#include <string>
#include <type_traits>
#include <vector>

namespace zel_test
{

/// Precedes every text that a call is given, and is removed from all that is shown.
inline std::string prefix;
std::string without_prefix(std::string text);
/// A text as calls are written: in quotation marks if it is empty or holds blanks.
std::string shown(const char *text);

struct type;
struct member {
    const type *of;
    size_t offset;
};
struct type {
    enum { NUMBER, TEXT, RECORD, ARRAY, LIST, CALLBACK } form;
    size_t size = sizeof(void *); ///< of a value; all but numbers are pointers
    bool is_signed = false;
    const type *element = nullptr;    ///< of an array or a list
    std::vector<member> members = {}; ///< of a record
    size_t record_size = 0;
};

/// Room for a value of any type.
struct slot {
    alignas(8) unsigned char bytes[8] = {};
};

extern const type text_type, transfer, upload_request, content, share, upload_report, recipient, transfers, urls,
    callback_type;

template <typename T> const type *type_of()
{
    using pointee = std::remove_cv_t<std::remove_pointer_t<T>>;
    if constexpr (std::is_enum_v<T>) {
        return type_of<std::underlying_type_t<T>>();
    } else if constexpr (std::is_arithmetic_v<T>) {
        static const type number{type::NUMBER, sizeof(T), std::is_signed_v<T>};
        return &number;
    } else if constexpr (std::is_same_v<pointee, char>) {
        return &text_type;
    } else if constexpr (std::is_same_v<pointee, zel_content_sync_info>) {
        return &transfer;
    } else if constexpr (std::is_same_v<pointee, zel_upload_request_info>) {
        return &upload_request;
    } else if constexpr (std::is_same_v<pointee, zel_trans_content_info>) {
        return &content;
    } else if constexpr (std::is_same_v<pointee, zel_trans_share_content_info>) {
        return &share;
    } else if constexpr (std::is_same_v<pointee, zel_trans_upload_info>) {
        return &upload_report;
    } else if constexpr (std::is_same_v<pointee, quillo_msisdn_s>) {
        return &recipient;
    } else if constexpr (std::is_same_v<pointee, GList>) {
        return &transfers;
    } else if constexpr (std::is_function_v<pointee>) {
        return &callback_type;
    } else {
        static const type array{.form = type::ARRAY, .element = type_of<pointee>()};
        return &array;
    }
}

unsigned long long number_in(const std::string &word);
/// Reads a value from a word; a record's members have commas between them.
void read(const type &of, void *place, const std::string &word);
/// The value as a word. Releases it with all that it refers to. An array without a length ends with a null pointer.
constexpr unsigned long long NO_LENGTH = ~0ULL;
std::string take(const type &of, void *place, unsigned long long length = NO_LENGTH);
/// The members of a record, or the value alone; releases them too.
std::vector<std::string> take_members(const type &of, void *place);

} // namespace zel_test

#endif
