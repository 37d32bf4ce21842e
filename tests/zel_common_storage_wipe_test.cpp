#include "store_expectations.h"

using namespace zel_test;

namespace
{

struct StorageWipe : store_test {
    std::string rows_of_all()
    {
        std::string counts;
        for (const char *table : tables)
            counts += database.value(std::string("SELECT count(*) FROM ") + table);
        return counts;
    }
    const char *tables[7] = {
        "push_noti_info",          "content_info",        "content_info_status", "recent_receiver_group",
        "recent_receiver_details", "upload_request_data", "contact_details"};
};

} // namespace

TEST_F(StorageWipe, forgets_all_but_folders_and_other_keys)
{
    furnish();
    database.run("INSERT INTO unique_data(key) VALUES ('evt_refresh_token'), ('evt_access_token')");
    const std::string last = database.value("SELECT max(content_id) FROM content_info");
    take_trace();
    EXPECT_EQ(_common_storage_clear(), ZEL_ERR_NONE);
    const std::string remover = "_common_storage_delete_unique_data";
    trace inside;
    for (const std::string table : tables)
        inside = join({inside, ran("DELETE FROM '" + table + "'")});
    for (const std::string key : {"evt_refresh_token", "evt_access_token", "evt_push_token"})
        inside = join({inside, whole(remover, {ran("DELETE FROM 'unique_data' WHERE key = '" + key + "'")})});
    EXPECT_TRACE(whole("_common_storage_clear", {inside}));
    EXPECT_EQ(rows_of_all(), "0000000");
    EXPECT_EQ(database.value("SELECT group_concat(key) FROM unique_data"), word);
    EXPECT_EQ(database.value("SELECT count(*) FROM folder_info"), "1");
    database.run("INSERT INTO content_info(contents_token, from_msisdn, original, thumbnail, big_thumbnail, "
                 "mid_thumbnail) VALUES ('', '', '', '', '', '')");
    EXPECT_GT(std::stoi(database.value("SELECT content_id FROM content_info")), std::stoi(last));
}

TEST_F(StorageWipe, empties_the_other_tables_when_one_fails)
{
    for (const char *missing : tables) {
        furnish();
        database.run(std::string("DELETE FROM ") + missing);
        {
            const missing_table gone(missing);
            expect_ended_failure({ZEL_CALL(clear), ""}, ZEL_ERR_STORAGE_FAILURE, "Failed to delete all content");
        }
        EXPECT_EQ(rows_of_all(), "0000000") << missing;
        EXPECT_EQ(database.value("SELECT count(*) FROM unique_data"), "1");
    }
    const missing_table gone("unique_data"); // what became of the keys does not count
    EXPECT_EQ(_common_storage_clear(), ZEL_ERR_NONE);
}
