// The share encoding, entered at the decoders of a share, an item, a string and a number: any bytes, read at any offset
// with any length; they are cut to it or repeated up to it. What is read is written: the same bytes, if no string was
// odd. Those are read and written once more.
#include "fuzz.h"
#include "zel_common/records.h"
#include "zel_common_request/share_encoding.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{

using buffer = std::vector<uint8_t>; // of no room to spare: the address check sees every step beyond
constexpr uint8_t nothing = 0;

unsigned int length_of_string(const char *text)
{
    return static_cast<unsigned int>(sizeof(int) + (text ? strlen(text) : 0));
}

template <auto length_of, auto write, typename Record> buffer encode(Record *record)
{
    buffer bytes(length_of(record));
    int end = 0;
    REQUIRE(write(bytes.data(), &end, record) == ZEL_ERR_NONE && static_cast<size_t>(end) == bytes.size());
    return bytes;
}

template <auto length_of, auto write, typename Record>
void try_reader(zel_err_e (*reader)(const void *, int, int *, Record **), void (*release)(void *), const buffer &bytes,
                int start)
{
    const int length = static_cast<int>(bytes.size());
    int end = start, position = 0;
    Record *record = nullptr, *again = nullptr;
    const zel_err_e result = reader(length > 0 ? bytes.data() : &nothing, length, &end, &record);
    REQUIRE(result == ZEL_ERR_NONE ? start >= 0 && end > start : result == ZEL_ERR_MEMORY && !record && end == start);
    if (result != ZEL_ERR_NONE)
        return;
    const buffer written = encode<length_of, write>(record);
    const buffer read(bytes.begin() + start, bytes.begin() + std::min(end, length));
    // A string with a zero in it is written up to there, one of a negative length as absent, a cut one with the length
    // that was left.
    REQUIRE(written.size() <= read.size());
    if (written.size() == read.size() && end <= length) {
        const auto difference = std::mismatch(read.begin(), read.end(), written.begin()).first;
        const auto field_end = difference + std::min<std::ptrdiff_t>(4, read.end() - difference);
        REQUIRE(difference == read.end() || *std::max_element(difference, field_end) >= 0x80);
    }
    REQUIRE(reader(written.data(), static_cast<int>(written.size()), &position, &again) == ZEL_ERR_NONE);
    REQUIRE((position == static_cast<int>(written.size()) && encode<length_of, write>(again) == written));
    release(record);
    release(again);
}

// Its reader knows no bound: the caller has tested that it fits.
template <auto read, auto write, typename Number> void try_number(const buffer &bytes, int start, Number number)
{
    if (start < 0 || static_cast<size_t>(start) + sizeof number > bytes.size())
        return;
    buffer written(sizeof number);
    int end = start, written_end = 0;
    REQUIRE(read(bytes.data(), &end, &number) == ZEL_ERR_NONE && end == start + static_cast<int>(sizeof number));
    REQUIRE(write(written.data(), &written_end, number) == ZEL_ERR_NONE && written_end == end - start);
    REQUIRE(std::equal(written.begin(), written.end(), bytes.begin() + start));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const int entry = input.ConsumeIntegralInRange(0, 3);
    const int start = input.ConsumeBool() ? input.ConsumeIntegral<int>() : input.ConsumeIntegral<uint8_t>();
    const int unit = input.ConsumeBool() ? 100 : 1;
    const int distance = unit * input.ConsumeIntegral<int8_t>(); // of the length from the number of bytes
    const buffer given = input.ConsumeRemainingBytes<uint8_t>();
    buffer bytes(static_cast<size_t>(std::max(0, static_cast<int>(given.size()) + distance)));
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = given.empty() ? 0 : given[i % given.size()];

    if (entry == 0)
        try_reader<__find_length_of_share_content_info_list, __set_share_content_info_list>(
            __get_share_content_info_list, _common_free_share_content_info, bytes, start);
    else if (entry == 1)
        try_reader<__find_length_of_content_info, __set_content_info>(__get_content_info, __free_content_info, bytes,
                                                                      start);
    else if (entry == 2)
        try_reader<length_of_string, __set_string>(__get_string, g_free, bytes, start);
    try_number<__get_unsigned_int, __set_unsigned_int>(bytes, start, 0U);
    try_number<__get_int, __set_int>(bytes, start, 0);
    try_number<__get_unsigned_long_long, __set_unsigned_long_long>(bytes, start, 0ULL);
    return 0;
}
