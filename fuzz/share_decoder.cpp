// The share encoding: any bytes, read at any offset with any length up to theirs. What is read is written and read
// again, and must be the same.
#include "fuzz.h"
#include "zel_common_request_internal.h"

#include <memory>
#include <string_view>
#include <vector>

namespace
{

using share_holder = std::unique_ptr<zel_trans_share_content_info, decltype(&_common_free_share_content_info)>;

/// An empty text is written as an absent one.
bool same(const char *left, const char *right)
{
    return std::string_view(left ? left : "") == (right ? right : "");
}

bool same(const zel_trans_content_info &left, const zel_trans_content_info &right)
{
    return same(left.original, right.original) && same(left.thumbnail, right.thumbnail) &&
           same(left.mid_thumbnail, right.mid_thumbnail) && same(left.big_thumbnail, right.big_thumbnail) &&
           same(left.name, right.name) && same(left.content_type, right.content_type) &&
           same(left.contents_token, right.contents_token) && left.download_count == right.download_count &&
           left.max_download_count == right.max_download_count && left.size == right.size &&
           left.content_id == right.content_id;
}

/// Reads from a copy that ends exactly where the buffer does.
zel_err_e decode(const uint8_t *bytes, int length, int *offset, share_holder &share)
{
    zel_trans_share_content_info *read = nullptr;
    const int start = *offset;
    const std::vector<uint8_t> copy(bytes, bytes + std::max(length, 0));
    const zel_err_e result = __get_share_content_info_list(copy.empty() ? bytes : copy.data(), length, offset, &read);
    REQUIRE((result == ZEL_ERR_NONE) == (read != nullptr));
    REQUIRE(result == ZEL_ERR_NONE || (result == ZEL_ERR_MEMORY && *offset == start));
    share.reset(read);
    return result;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const bool anywhere = input.ConsumeBool();
    const auto distance = input.ConsumeIntegral<int>();
    const std::vector<uint8_t> bytes = input.ConsumeRemainingBytes<uint8_t>();
    const auto length = static_cast<int>(bytes.size());
    if (bytes.empty())
        return 0;

    share_holder share(nullptr, _common_free_share_content_info);
    int offset = anywhere ? distance : 0;
    if (decode(bytes.data(), length - (anywhere ? (distance & 7) : 0), &offset, share) != ZEL_ERR_NONE)
        return 0;
    REQUIRE(g_list_length(share->content_info_list) == share->content_info_list_length);

    std::vector<uint8_t> written(__find_length_of_share_content_info_list(share.get()));
    int end = 0;
    REQUIRE(__set_share_content_info_list(written.data(), &end, share.get()) == ZEL_ERR_NONE);
    REQUIRE(static_cast<size_t>(end) == written.size());

    share_holder again(nullptr, _common_free_share_content_info);
    int read = 0;
    REQUIRE(decode(written.data(), end, &read, again) == ZEL_ERR_NONE);
    REQUIRE(read == end);
    REQUIRE(same(share->contents_token, again->contents_token) && same(share->description, again->description));
    REQUIRE(same(share->type, again->type) && same(share->from_msisdn, again->from_msisdn));
    REQUIRE(same(share->to_list, again->to_list) && share->expired_time == again->expired_time);
    REQUIRE(share->content_info_list_length == again->content_info_list_length);
    const GList *left = share->content_info_list;
    for (const GList *right = again->content_info_list; right; left = left->next, right = right->next)
        REQUIRE(same(*static_cast<zel_trans_content_info *>(left->data),
                     *static_cast<zel_trans_content_info *>(right->data)));
    return 0;
}
