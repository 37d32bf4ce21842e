// The share encoding: any bytes, read at any offset with any length up to theirs. What is read is written: the same
// bytes, if no string was odd. Those are read and written once more.
#include "fuzz.h"
#include "zel_common_request/share_encoding.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace
{

using buffer = std::vector<uint8_t>;
using share_holder = std::unique_ptr<zel_trans_share_content_info, decltype(&_common_free_share_content_info)>;

/// Reads from a copy that ends exactly where the valid bytes do.
share_holder decode(const buffer &bytes, int length, int *offset)
{
    zel_trans_share_content_info *share = nullptr;
    const int start = *offset;
    const uint8_t nothing = 0;
    const buffer copy(bytes.begin(), bytes.begin() + std::max(length, 0));
    const zel_err_e result =
        __get_share_content_info_list(copy.empty() ? &nothing : copy.data(), length, offset, &share);
    REQUIRE(result == (share ? ZEL_ERR_NONE : ZEL_ERR_MEMORY));
    REQUIRE(share ? g_list_length(share->content_info_list) == share->content_info_list_length : *offset == start);
    return {share, _common_free_share_content_info};
}

buffer encode(const share_holder &share)
{
    buffer bytes(__find_length_of_share_content_info_list(share.get()));
    int end = 0;
    REQUIRE(__set_share_content_info_list(bytes.data(), &end, share.get()) == ZEL_ERR_NONE);
    REQUIRE(static_cast<size_t>(end) == bytes.size());
    return bytes;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const bool anywhere = input.ConsumeBool();
    const auto distance = input.ConsumeIntegral<int>();
    const buffer bytes = input.ConsumeRemainingBytes<uint8_t>();
    const auto length = static_cast<int>(bytes.size());

    const int start = anywhere ? distance : 0;
    int end = start;
    const share_holder share = decode(bytes, length - (anywhere ? (distance & 7) : 0), &end);
    if (!share)
        return 0;
    const buffer written = encode(share);
    const buffer read(bytes.begin() + start, bytes.begin() + end);
    // A string with a zero in it is written up to there, one of a negative length as absent.
    REQUIRE(written.size() <= read.size());
    if (written.size() == read.size()) {
        const auto difference = std::mismatch(read.begin(), read.end(), written.begin()).first;
        const auto field_end = difference + std::min<std::ptrdiff_t>(4, read.end() - difference);
        REQUIRE(difference == read.end() || *std::max_element(difference, field_end) >= 0x80);
    }
    int position = 0;
    const share_holder again = decode(written, static_cast<int>(written.size()), &position);
    REQUIRE(again && position == static_cast<int>(written.size()));
    REQUIRE(encode(again) == written);
    return 0;
}
