// The readers of a share, an item and a string, on any bytes at any offset with any length. The bytes are cut or
// repeated to that length. What is read is written again: the same bytes, unless a string was irregular. Those bytes
// are read and written once more.
#include "fuzz.h"
#include "zel_common/records.h"
#include "zel_common_request/share_encoding.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{

using buffer = std::vector<uint8_t>; // of the exact size: the address check sees every step beyond
constexpr uint8_t nothing = 0;

unsigned int length_of_string(const char *text)
{
    return static_cast<unsigned int>(sizeof(int) + (text ? strlen(text) : 0));
}

template <typename Record>
void try_reader(zel_err_e (*reader)(const void *, int, int *, Record **), auto write, auto length_of,
                void (*release)(void *), const buffer &bytes, int start)
{
    const auto encode = [=](Record *record) {
        buffer written(length_of(record));
        int end = 0;
        g_assert_cmpint(write(written.data(), &end, record), ==, ZEL_ERR_NONE);
        g_assert_cmpuint(static_cast<size_t>(end), ==, written.size());
        return written;
    };
    const int length = static_cast<int>(bytes.size());
    int end = start, position = 0;
    Record *record = nullptr, *again = nullptr;
    const zel_err_e result = reader(length > 0 ? bytes.data() : &nothing, length, &end, &record);
    if (result != ZEL_ERR_NONE) {
        g_assert_true(result == ZEL_ERR_MEMORY && !record && end == start);
        return;
    }
    g_assert_true(start >= 0 && end > start);
    const buffer written = encode(record);
    const buffer read(bytes.begin() + start, bytes.begin() + std::min(end, length));
    // A string is written up to a zero in it. One of a negative length is written as absent, a cut one with the rest of
    // its length.
    g_assert_cmpuint(written.size(), <=, read.size());
    if (written.size() == read.size() && end <= length) {
        const auto difference = std::mismatch(read.begin(), read.end(), written.begin()).first;
        const auto field_end = difference + std::min<std::ptrdiff_t>(4, read.end() - difference);
        g_assert_true(difference == read.end() || *std::max_element(difference, field_end) >= 0x80);
    }
    g_assert_cmpint(reader(written.data(), static_cast<int>(written.size()), &position, &again), ==, ZEL_ERR_NONE);
    g_assert_true(position == static_cast<int>(written.size()) && encode(again) == written);
    release(record);
    release(again);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const int entry = input.ConsumeIntegralInRange(0, 2);
    const int start = input.ConsumeBool() ? input.ConsumeIntegral<int>() : input.ConsumeIntegral<uint8_t>();
    const int unit = input.ConsumeBool() ? 100 : 1;
    const int distance = unit * input.ConsumeIntegral<int8_t>(); // of the length from the number of bytes
    const buffer given = input.ConsumeRemainingBytes<uint8_t>();
    buffer bytes(static_cast<size_t>(std::max(0, static_cast<int>(given.size()) + distance)));
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = given.empty() ? 0 : given[i % given.size()];

    if (entry == 0)
        try_reader(__get_share_content_info_list, __set_share_content_info_list,
                   __find_length_of_share_content_info_list, _common_free_share_content_info, bytes, start);
    else if (entry == 1)
        try_reader(__get_content_info, __set_content_info, __find_length_of_content_info, __free_content_info, bytes,
                   start);
    else
        try_reader(__get_string, __set_string, length_of_string, g_free, bytes, start);
    return 0;
}
