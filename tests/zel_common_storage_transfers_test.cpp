#include "store_expectations.h"

using namespace zel_test;

namespace
{

struct StorageTransfers : store_test {
};

const char table[] = "content_info_status";
#define UPDATE "UPDATE 'content_info_status' SET "
#define DELETE "DELETE FROM 'content_info_status' WHERE "
const store_calls changes = {
    {ZEL_CALL(set_failed_status_sync_content_info, 7),
     UPDATE "req_id = 0, status = 2, sent_time = 0 WHERE sync_id = 7"},
    {ZEL_CALL(update_status_sync_content_info, 7, ZEL_SYNC_PAUSED), UPDATE "status = 3 WHERE sync_id = 7"},
    {ZEL_CALL(update_status_sync_content_info_by_sync_id, 7, ZEL_SYNC_PAUSED, ZEL_SYNC_ONGOING),
     UPDATE "status = 3 WHERE sync_id = 7 and status = 1"},
    {ZEL_CALL(update_status_sync_content_info_by_reqid, 3000000000, ZEL_SYNC_COMPLETE),
     UPDATE "status = 5 WHERE req_id = 3000000000"},
    {ZEL_CALL(update_status_sync_content_info_by_req_id, 9, ZEL_SYNC_PAUSED, ZEL_SYNC_ONGOING),
     UPDATE "status = 3 WHERE req_id = 9 and status = 1"},
    {ZEL_CALL(update_percentage_sync_content_info, 7, 3000000000), UPDATE "percentage = -1294967296 WHERE sync_id = 7"},
    {ZEL_CALL(update_upload_info, 7, 3000000000, -2), UPDATE "offset = 3000000000, chunk_no=-2 WHERE sync_id = 7"},
    {ZEL_CALL(update_url_info, 3000000000, "u'", "c'"),
     UPDATE "original = 'u''', content_type = 'c''' WHERE sync_id = -1294967296"},
    {ZEL_CALL(update_url_info, 7, nullptr, nullptr), UPDATE "original = '', content_type = NULL WHERE sync_id = 7"},
    {ZEL_CALL(update_url_info_by_reqid, 3000000000, "u", "c"),
     UPDATE "original = 'u', content_type = 'c' WHERE req_id = -1294967296"},
    {ZEL_CALL(update_url_info_by_reqid, 9, nullptr, nullptr),
     UPDATE "original = '', content_type = NULL WHERE req_id = 9"},
    {ZEL_CALL(update_wifi_only_by_req_id, 9, 1), UPDATE "wifi_only = 1 WHERE req_id = 9"},
    {ZEL_CALL(update_mupload_key_sync_content_info, 7, "k'"), UPDATE "mupload_key = 'k''' WHERE sync_id = 7"},
    {ZEL_CALL(update_mupload_key_sync_content_info, 7, nullptr), UPDATE "mupload_key = NULL WHERE sync_id = 7"},
    {ZEL_CALL(delete_sync_content_info, 3000000000), DELETE "sync_id = 3000000000"},
    {ZEL_CALL(delete_sync_content_info_by_req_id, 3000000000), DELETE "req_id = 3000000000"},
};
const store_calls changes_by_type = {
    {ZEL_CALL(set_all_status_sync_content_info, ZEL_DOWNLOAD_FILE, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO),
     UPDATE "status = 0 WHERE sync_type = 3 and status = 1"},
    {ZEL_CALL(delete_sync_content_info_based_on_sync_type, ZEL_UNKNOWN), DELETE "sync_type = 0"},
    {ZEL_CALL(delete_sync_content_info_based_on_param, 3000000000, ZEL_DOWNLOAD_THUMBNAIL, ZEL_SYNC_PAUSED_TODO),
     DELETE "req_id = 3000000000 AND sync_type = 2 AND status =4"},
};

zel_content_sync_info full_record()
{
    const auto text = [](const char *constant) { return const_cast<char *>(constant); };
    return {3000000077,      ZEL_DOWNLOAD_THUMBNAIL,
            ZEL_SYNC_PAUSED, 4000000001,
            4000000002,      4000000003,
            4000000004,      4000000005,
            4000000006,      -7,
            5000000000,      text("t'"),
            text("o"),       text("th"),
            text("n"),       text("l"),
            text("k")};
}
const char full_insert[] = "INSERT into 'content_info_status' VALUES (NULL,2,3,4000000001,4000000002,4000000003,"
                           "4000000004,4000000005,4000000006,-7,5000000000,'t''','','o', 'th', 'n', 'l', 'k')";

trace current_time(const std::string &seconds)
{
    const std::string function = "_common_util_get_current_timestamp";
    return whole(function, {debug(function, " timestamp:" + seconds)});
}

} // namespace

TEST_F(StorageTransfers, a_transfer_is_added_with_each_field_in_its_column)
{
    const std::string adder = "_common_storage_add_sync_content_info";
    const scripted_clock clock(6000000000, 0);
    zel_content_sync_info full = full_record(), bare = {};
    EXPECT_LOGGED(_common_storage_add_sync_content_info(&full), ZEL_ERR_NONE, whole(adder, {inserted(full_insert, 1)}));
    EXPECT_EQ(full.sync_id, 1u);
    EXPECT_LOGGED(_common_storage_add_sync_content_info(&bare), ZEL_ERR_NONE,
                  whole(adder, {current_time("6000000000"),
                                inserted("INSERT into 'content_info_status' VALUES (NULL,0,0,0,0,0,0,0,0,0,6000000000,"
                                         "'','','', '', '', '', '')",
                                         2)}));
    EXPECT_EQ(bare.sync_id, 2u);
    EXPECT_EQ(bare.sent_time, 6000000000u);

    // Every column reads back into its own field, and an empty text as none.
    database.run("UPDATE content_info_status SET content_type = 'ct', sent_time = 5000000001 WHERE sync_id = 1");
    const trace filled = whole("__fill_content_sync_info");
    expect_answers(
        {{ZEL_CALL(get_sync_content_info_by_sync_id, 1, &out.record),
          "SELECT * FROM 'content_info_status' WHERE sync_id = 1;",
          "record 1 2 3 4000000001 4000000002 4000000003 4000000004 4000000005 4000000006 -7 5000000001 t' o "
          "th n l k\n",
          filled},
         {ZEL_CALL(get_sync_content_info_by_sync_id, 2, &out.record),
          "SELECT * FROM 'content_info_status' WHERE sync_id = 2;",
          "record 2 0 0 0 0 0 0 0 0 0 6000000000 NULL NULL NULL NULL NULL NULL\n", filled}});
    _common_storage_free_sync_content_info(g_new0(zel_content_sync_info, 1));
    EXPECT_TRACE(whole("_common_storage_free_sync_content_info"));
    _common_storage_free_sync_content_info(nullptr);
    EXPECT_TRACE(begin("_common_storage_free_sync_content_info"),
                 critical("_common_storage_free_sync_content_info", "Data is NULL"));
}

TEST_F(StorageTransfers, a_rewrite_keeps_what_it_does_not_name)
{
    const std::string rewriter = "_common_storage_update_sync_content_info";
    const scripted_clock clock(1700000000, 0);
    database.run(
        "INSERT INTO content_info_status VALUES (3000000077, 0, 0, 0, 0, 0, 0, 41, 0, 0, 0, 'a', 'kept type', 'b', "
        "'c', 'd', 'kept path', 'kept key')");
    zel_content_sync_info record = full_record();
    EXPECT_LOGGED(
        _common_storage_update_sync_content_info(&record), ZEL_ERR_NONE,
        whole(rewriter,
              {current_time("1700000000"),
               ran("UPDATE 'content_info_status' set sync_type = 2, status = 3, content_id = 4000000001, "
                   "\treq_id = 4000000002, wifi_only = 4000000003, sent_time = 1700000000, fail_retry_count = "
                   "4000000004, offset = 4000000006, chunk_no = -7, \tcontents_token = 't''', original = 'o', "
                   "\tthumbnail = 'th', name = 'n' WHERE sync_id = 3000000077")}));
    EXPECT_EQ(database.rows("SELECT percentage, content_type, local_path, mupload_key FROM content_info_status"),
              "41|kept type|kept path|kept key\n");
    record.name = nullptr;
    record.status = ZEL_SYNC_TODO;
    record.sent_time = 1;
    EXPECT_EQ(_common_storage_update_sync_content_info(&record), ZEL_ERR_STORAGE_FAILURE);
    EXPECT_EQ(record.sent_time, 1700000000u);
    EXPECT_TRUE(take_trace().text.ends_with(join({critical(rewriter, "Failed to add file"), end(rewriter)}).text));
    EXPECT_EQ(database.value("SELECT status FROM content_info_status"), "3");
}

TEST_F(StorageTransfers, changes_rejections_and_failures)
{
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, "Invalid parameter", _common_storage_add_sync_content_info, nullptr);
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, "Invalid paramts", _common_storage_update_sync_content_info, nullptr);
    expect_changes(table, changes, "Failed to delete sync file info ", {"Invalid parameter", FIRST, true});
    expect_changes(table, changes_by_type, "Failed to delete sync file info ", {"", 0});
    const missing_table gone(table);
    const std::string adder = "_common_storage_add_sync_content_info";
    zel_content_sync_info record = full_record();
    EXPECT_LOGGED(_common_storage_add_sync_content_info(&record), ZEL_ERR_STORAGE_FAILURE,
                  whole(adder, {inserted_in_vain(full_insert), critical(adder, "Failed to add file")}));
    EXPECT_EQ(record.sync_id, 3000000077u);
}
