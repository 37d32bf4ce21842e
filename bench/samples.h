/*
 * Records of the usual sizes.
 */
#ifndef ZEL_BENCH_SAMPLES_H
#define ZEL_BENCH_SAMPLES_H

#include "zel_common.h"
#include "zel_common_storage.h"

#include <array>
#include <memory>

namespace bench
{

constexpr char TOKEN[] = "4f1c9a7e2b5d4803a6c1e9f07b3d2586";
constexpr char DESCRIPTION[] = "Three days at the lake, the best of them";
constexpr char NUMBER[] = "5551230000";
constexpr char URL[] = "https://files.example.org/v1/contents/4f1c9a7e2b5d4803/0001";
constexpr char FILE_NAME[] = "20261124_153000_0001.jpg";
constexpr char LOCAL_PATH[] = "/opt/usr/media/DCIM/Camera/20261124_153000_0001.jpg";

/* The members of records, by type. */

inline std::array<char **, 5> texts_of(zel_trans_share_content_info &share)
{
    return {&share.contents_token, &share.description, &share.type, &share.from_msisdn, &share.to_list};
}
inline std::array<char **, 7> texts_of(zel_trans_content_info &item)
{
    return {&item.original, &item.thumbnail,    &item.mid_thumbnail, &item.big_thumbnail,
            &item.name,     &item.content_type, &item.contents_token};
}
inline std::array<char **, 6> texts_of(zel_content_sync_info &info)
{
    return {&info.contents_token, &info.original, &info.thumbnail, &info.name, &info.local_path, &info.mupload_key};
}
inline std::array<unsigned int *, 4> numbers_of(zel_trans_content_info &item)
{
    return {&item.download_count, &item.max_download_count, &item.size, &item.content_id};
}

using share_holder = std::shared_ptr<zel_trans_share_content_info>;

inline share_holder hold(zel_trans_share_content_info *share)
{
    return share_holder(share, _common_free_share_content_info);
}

/** A share with items. */
inline share_holder new_share(size_t items)
{
    auto *share = g_new0(zel_trans_share_content_info, 1);
    for (char **text : texts_of(*share))
        *text = g_strdup(DESCRIPTION);
    share->expired_time = 1795550000000ULL;
    share->content_info_list_length = static_cast<unsigned int>(items);
    for (size_t i = 0; i < items; ++i) {
        auto *item = g_new0(zel_trans_content_info, 1);
        const char *const texts[] = {URL, URL, URL, URL, FILE_NAME, "image/jpeg", TOKEN};
        for (size_t text = 0; text < std::size(texts); ++text)
            *texts_of(*item)[text] = g_strdup(texts[text]);
        for (unsigned int *number : numbers_of(*item))
            *number = 1234567;
        share->content_info_list = g_list_prepend(share->content_info_list, item);
    }
    return hold(share);
}

} // namespace bench

#endif
