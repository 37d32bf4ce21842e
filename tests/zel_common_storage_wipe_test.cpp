#include "store_expectations.h"

using namespace zel_test;

namespace
{

const std::string wiper = "_common_storage_clear";
const std::string tables[] = {
    "push_noti_info",          "content_info",        "content_info_status", "recent_receiver_group",
    "recent_receiver_details", "upload_request_data", "contact_details"};

/// A wipe while one table, or none, is missing.
trace wiping(const std::string &missing)
{
    const std::string remover = "_common_storage_delete_unique_data";
    trace inside;
    for (const std::string &table : tables) {
        const std::string statement = "DELETE FROM '" + table + "'";
        inside = join({inside, table == missing
                                   ? join({ran_in_vain(statement), critical(wiper, "Failed to delete all content")})
                                   : ran(statement)});
    }
    for (const std::string key : {"evt_refresh_token", "evt_access_token", "evt_push_token"})
        inside = join({inside, whole(remover, {ran("DELETE FROM 'unique_data' WHERE key = '" + key + "'")})});
    return whole(wiper, {inside});
}

struct StorageWipe : store_test {
    std::string rows_of_all()
    {
        std::string counts;
        for (const std::string &table : tables)
            counts += database.value("SELECT count(*) FROM " + table);
        return counts;
    }
};

} // namespace

TEST_F(StorageWipe, forgets_all_but_folders_and_other_keys)
{
    furnish();
    database.run("INSERT INTO unique_data(key) VALUES ('evt_refresh_token'), ('evt_access_token')");
    const std::string last = database.value("SELECT max(content_id) FROM content_info");
    take_trace();
    EXPECT_EQ(_common_storage_clear(), ZEL_ERR_NONE);
    EXPECT_TRACE(wiping("none"));
    EXPECT_EQ(rows_of_all(), "0000000");
    EXPECT_EQ(database.value("SELECT group_concat(key) FROM unique_data"), word);
    EXPECT_EQ(database.value("SELECT count(*) FROM folder_info"), "1");
    EXPECT_EQ(_common_storage_clear(), ZEL_ERR_NONE) << "an empty store";
    database.run("INSERT INTO content_info(contents_token, from_msisdn, original, thumbnail, big_thumbnail, "
                 "mid_thumbnail) VALUES ('', '', '', '', '', '')");
    EXPECT_GT(std::stoi(database.value("SELECT content_id FROM content_info")), std::stoi(last));
}

TEST_F(StorageWipe, empties_the_other_tables_when_one_fails)
{
    for (const std::string &missing : tables) {
        furnish();
        const std::string statement = database.value("SELECT sql FROM sqlite_master WHERE name = '" + missing + "'");
        drop_table(missing);
        take_trace();
        EXPECT_EQ(_common_storage_clear(), ZEL_ERR_STORAGE_FAILURE);
        EXPECT_TRACE(wiping(missing));
        EXPECT_TRUE(__execute_query(statement.c_str()));
        EXPECT_EQ(rows_of_all(), "0000000") << missing;
        EXPECT_EQ(database.value("SELECT count(*) FROM unique_data"), "1");
    }
    // What became of the keys does not count.
    drop_table("unique_data");
    EXPECT_EQ(_common_storage_clear(), ZEL_ERR_NONE);
}
