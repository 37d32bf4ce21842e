/*
 * Later releases read the files of release 1.0.0: an encoded share of two items, and a store with a row or two in each
 * table. Neither file ever changes; a later format gets a file of its own.
 */
#include "call.h"
#include "trace.h"
#include "world.h"
#include "zel_common_request/share_encoding.h"

#include <sstream>

using namespace zel_test;

TEST(Golden, a_share_is_decoded)
{
    const std::string bytes = content_of(ZEL_TEST_GOLDEN "/share-1.0.0");
    int offset = 0;
    zel_trans_share_content_info *share = nullptr;
    ASSERT_EQ(__get_share_content_info_list(bytes.data(), static_cast<int>(bytes.size()), &offset, &share), 0);
    // The reader logs each member: the share's, then the items'.
    std::string values;
    std::istringstream lines(lines_of(take_trace()));
    for (std::string line; std::getline(lines, line);)
        values += line.substr(line.find('['));
    EXPECT_EQ(values, "[t1][a share][2][+447700][+447701,+447702][1800000000000][0][2]"
                      "[http://s/o][http://s/t][http://s/m][http://s/b][na\xc3\xafve's.jpg][image/jpeg][t1][3][5]"
                      "[4000000000][0]"
                      "[(null)][(null)][(null)][(null)][(null)][(null)][(null)][0][0][0][0]");
    std::string encoded(__find_length_of_share_content_info_list(share), '\0');
    offset = 0;
    EXPECT_EQ(__set_share_content_info_list(encoded.data(), &offset, share), 0);
    EXPECT_EQ(encoded, bytes);
    _common_free_share_content_info(share);
}

TEST(Golden, a_store_is_read)
{
    put_file(content_of(ZEL_TEST_GOLDEN "/store-1.0.0.db"));
    ASSERT_EQ(_common_storage_init(), 0);
    std::string all;
    for (const std::string text :
         {"get_unique_data evt_access_token & & & &", "get_folder_info family & & & & &",
          "get_received_time_push_noti t1 &", "get_notification_data t1 &", "get_sync_content_info_by_sync_id 1 &",
          "get_upload_data 7 &", "is_recent_receiver_list_exist (44,7704,13,0) 1 & &false"}) {
        const result met = call(text)();
        all += std::to_string(met.code) + met.words() + "\n";
    }
    EXPECT_EQ(all,
              "0 it's r0 \"\" r2\n"
              "0 ct 1800000000001 ft 1800000000002 3\n"
              "0 1700000000000\n"
              "0 (t1,\"a share\",NULL,+447700,+447701,+447702,1800000000000,0,[(1,http://s/o,http://s/t,http://s/m,"
              "http://s/b,na\xc3\xafve's.jpg,image/jpeg,t1,3,0,4000000000)],1)\n"
              "0 (1,1,1,1,7,1,2,40,65536,2,1700000000,t7,http://s/7,/th,one,/files/one,key)\n"
              "0 (7,5000000000,2,1800000000003,1795599840,t7,2,[/files/one, /files/two],1,[(44,7703,12,0)])\n"
              "0 1 1\n");
}
