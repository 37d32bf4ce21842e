/*
 * What release 1.0.0 wrote is read for good: an encoded share of two items, and a store with a row or two in each
 * table. Neither file is ever written anew; what a later release writes differently gets a file of its own.
 */
#include "zel_common_request/share_encoding.h"
#include "zel_common_storage.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

namespace
{

const std::filesystem::path FOLDER = ZEL_TEST_GOLDEN;
const std::filesystem::path DATABASE = ZEL_APPS_ROOT "quillo.service/data/.quillo_service.db";

std::string shown(const char *text)
{
    return std::string(text ? text : "NULL") + "|";
}
std::string shown(unsigned long long number)
{
    return std::to_string(number) + "|";
}
template <typename... Values> std::string all_of(Values... values)
{
    return (shown(values) + ...);
}

/** The share with its items, which it releases. */
std::string told(zel_trans_share_content_info *share)
{
    std::string all =
        all_of(share->contents_token, share->description, share->from_msisdn, share->to_list, share->expired_time);
    for (const GList *node = share->content_info_list; node; node = node->next) {
        const auto *item = static_cast<const zel_trans_content_info *>(node->data);
        all += "\n" + all_of(item->original, item->thumbnail, item->mid_thumbnail, item->big_thumbnail, item->name,
                             item->content_type, item->contents_token, item->download_count, item->size);
    }
    _common_free_share_content_info(share);
    return all;
}

const std::string SHARE = "t1|a share|+447700|+447701,+447702|1800000000000|\n"
                          "http://s/o|http://s/t|http://s/m|http://s/b|na\xc3\xafve's.jpg|image/jpeg|t1|3|4000000000|";

} // namespace

TEST(Golden, a_share_is_decoded)
{
    std::ifstream file(FOLDER / "share-1.0.0", std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    int offset = 0;
    zel_trans_share_content_info *share = nullptr;
    ASSERT_EQ(__get_share_content_info_list(bytes.data(), static_cast<int>(bytes.size()), &offset, &share), 0);
    EXPECT_EQ(offset, static_cast<int>(bytes.size()));
    EXPECT_EQ(told(share), SHARE + "\nNULL|NULL|NULL|NULL|NULL|NULL|NULL|0|0|");
}

TEST(Golden, a_store_is_read)
{
    std::filesystem::create_directories(DATABASE.parent_path());
    std::filesystem::copy_file(FOLDER / "store-1.0.0.db", DATABASE, std::filesystem::copy_options::overwrite_existing);
    ASSERT_EQ(_common_storage_init(), 0);

    char *text[6] = {};
    unsigned long long time[4] = {};
    EXPECT_EQ(_common_storage_get_unique_data("evt_access_token", &text[0], &text[1], &text[2], &text[3]), 0);
    EXPECT_EQ(_common_storage_get_folder_info("family", &text[4], &time[0], &text[5], &time[1], &time[2]), 0);
    EXPECT_EQ(_common_storage_get_received_time_push_noti("t1", &time[3]), 0);
    EXPECT_EQ(all_of(text[0], text[1], text[2], text[3], text[4], text[5], time[0], time[1], time[2], time[3]),
              "it's|r0||r2|ct|ft|1800000000001|1800000000002|3|1700000000000|");
    for (char *each : text)
        g_free(each);

    zel_trans_share_content_info *share = nullptr;
    ASSERT_EQ(_common_storage_get_notification_data("t1", &share), 0);
    EXPECT_EQ(told(share), SHARE);

    zel_content_sync_info *got = nullptr;
    ASSERT_EQ(_common_storage_get_sync_content_info_by_sync_id(1, &got), 0);
    EXPECT_EQ(all_of(got->type, got->status, got->content_id, got->req_id, got->wifi_only, got->fail_retry_count,
                     got->percentage, got->offset, got->chunk_no, got->sent_time, got->contents_token, got->original,
                     got->thumbnail, got->name, got->local_path, got->mupload_key),
              "1|1|1|7|1|2|40|65536|2|1700000000|t7|http://s/7|/th|one|/files/one|key|");
    _common_storage_free_sync_content_info(got);

    zel_trans_upload_info *report = nullptr;
    ASSERT_EQ(_common_storage_get_upload_data(7, &report), 0);
    EXPECT_EQ(all_of(report->total_size, report->sent_time, report->msisdn_list[0]->phone_number,
                     static_cast<const char *>(report->file_path_list->next->data)),
              "5000000000|1795599840|7703|/files/two|");
    _common_free_upload_info(report);

    char ccc[] = "44", number[] = "7704";
    quillo_msisdn_s recipient = {ccc, number, 13, 0};
    quillo_msisdn_s *list[] = {&recipient};
    int group = 0;
    bool exists = false;
    EXPECT_EQ(_common_storage_is_recent_receiver_list_exist(list, 1, &group, &exists), 0);
    EXPECT_TRUE(exists);
}
