/*
 * Records of the usual sizes.
 */
#ifndef ZEL_BENCH_SAMPLES_H
#define ZEL_BENCH_SAMPLES_H

#include "zel_common.h"

namespace bench
{

constexpr char TOKEN[] = "4f1c9a7e2b5d4803a6c1e9f07b3d2586";
constexpr char DESCRIPTION[] = "Three days at the lake, the best of them";
constexpr char NUMBER[] = "5551230000";
constexpr char TO_LIST[] = "+15551230001;+15551230002;+15551230003";
constexpr char URL[] = "https://files.example.org/v1/contents/4f1c9a7e2b5d4803/0001";
constexpr char THUMBNAIL_URL[] = "https://files.example.org/v1/thumbnails/4f1c9a7e2b5d4803/0001";
constexpr char LOCAL_PATH[] = "/opt/usr/media/DCIM/Camera/20261124_153000_0001.jpg";
constexpr char THUMBNAIL_PATH[] = "/opt/usr/media/.thumb/20261124_153000_0001.jpg";
constexpr char FILE_NAME[] = "20261124_153000_0001.jpg";
constexpr char CONTENT_TYPE[] = "image/jpeg";

/** A share with items, to be released with _common_free_share_content_info. */
inline zel_trans_share_content_info *new_share(size_t items)
{
    auto *share = g_new0(zel_trans_share_content_info, 1);
    share->contents_token = g_strdup(TOKEN);
    share->description = g_strdup(DESCRIPTION);
    share->type = g_strdup(CONTENT_TYPE);
    share->from_msisdn = g_strdup(NUMBER);
    share->to_list = g_strdup(TO_LIST);
    share->expired_time = 1795550000000ULL;
    share->content_info_list_length = static_cast<unsigned int>(items);
    for (size_t i = 0; i < items; ++i) {
        auto *item = g_new0(zel_trans_content_info, 1);
        item->original = g_strdup(URL);
        item->thumbnail = g_strdup(THUMBNAIL_URL);
        item->mid_thumbnail = g_strdup(THUMBNAIL_URL);
        item->big_thumbnail = g_strdup(THUMBNAIL_URL);
        item->name = g_strdup(FILE_NAME);
        item->content_type = g_strdup(CONTENT_TYPE);
        item->contents_token = g_strdup(TOKEN);
        item->size = 1234567;
        item->download_count = 2;
        item->max_download_count = 100;
        share->content_info_list = g_list_prepend(share->content_info_list, item);
    }
    return share;
}

} // namespace bench

#endif
