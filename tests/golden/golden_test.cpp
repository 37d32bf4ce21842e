/*
 * What release 1.0.0 wrote is read for good: an encoded share of two items, and a store with a row or two in each
 * table. Neither file is ever written anew; what a later release writes differently gets a file of its own.
 */
#include "call.h"
#include "zel_common_request/share_encoding.h"
#include "zel_common_storage.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace
{

const std::filesystem::path FOLDER = ZEL_TEST_GOLDEN;
const std::filesystem::path DATABASE = ZEL_APPS_ROOT "quillo.service/data/.quillo_service.db";

std::string shown(std::initializer_list<const char *> texts)
{
    std::string all;
    for (const char *text : texts)
        all += zel_test::shown(text) + " ";
    return all;
}

} // namespace

TEST(Golden, a_share_is_decoded)
{
    std::ifstream file(FOLDER / "share-1.0.0", std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    int offset = 0;
    zel_trans_share_content_info *share = nullptr;
    ASSERT_EQ(__get_share_content_info_list(bytes.data(), static_cast<int>(bytes.size()), &offset, &share), 0);
    EXPECT_EQ(offset, static_cast<int>(bytes.size()));
    EXPECT_EQ(shown({share->contents_token, share->description, share->from_msisdn, share->to_list}),
              "t1 \"a share\" +447700 +447701,+447702 ");
    EXPECT_EQ(share->expired_time, 1800000000000ULL);
    const GList *node = share->content_info_list;
    for (const char *expected :
         {"http://s/o http://s/t http://s/m http://s/b na\xc3\xafve's.jpg image/jpeg t1 3 4000000000",
          "NULL NULL NULL NULL NULL NULL NULL 0 0"}) {
        ASSERT_NE(node, nullptr);
        const auto *item = static_cast<const zel_trans_content_info *>(node->data);
        EXPECT_EQ(shown({item->original, item->thumbnail, item->mid_thumbnail, item->big_thumbnail, item->name,
                         item->content_type, item->contents_token}) +
                      std::to_string(item->download_count) + " " + std::to_string(item->size),
                  expected);
        node = node->next;
    }
    EXPECT_EQ(node, nullptr);
    _common_free_share_content_info(share);
}

TEST(Golden, a_store_is_read)
{
    std::filesystem::create_directories(DATABASE.parent_path());
    std::filesystem::copy_file(FOLDER / "store-1.0.0.db", DATABASE);
    ASSERT_EQ(_common_storage_init(), 0);
    const std::pair<const char *, const char *> calls[] = {
        {"get_unique_data evt_access_token & & & &", " it's r0 \"\" r2"},
        {"get_folder_info family & & & & &", " ct 1800000000001 ft 1800000000002 3"},
        {"get_received_time_push_noti t1 &", " 1700000000000"},
        {"get_notification_data t1 &",
         " (t1,\"a "
         "share\",NULL,+447700,+447701,+447702,1800000000000,0,[(1,http://s/o,http://s/t,http://s/m,http://s/b,"
         "na\xc3\xafve's.jpg,image/jpeg,t1,3,0,4000000000)],1)"},
        {"get_sync_content_info_by_sync_id 1 &",
         " (1,1,1,1,7,1,2,40,65536,2,1700000000,t7,http://s/7,/th,one,/files/one,key)"},
        {"get_upload_data 7 &",
         " (7,5000000000,2,1800000000003,1795599840,t7,2,[/files/one,/files/two],[(44,7703,12,0)])"},
        {"is_recent_receiver_list_exist (44,7704,13,0) 1 & &false", " 1 1"}};
    for (const auto &[call, expected] : calls) {
        const zel_test::told told = zel_test::call(call)();
        EXPECT_EQ(std::pair(told.code, told.outputs), std::pair(0, std::string(expected))) << call;
    }
}
