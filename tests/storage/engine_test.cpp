// What the scripts of the store cannot say: a lock given up in between, long statements, addresses, rows of any shape.
#include "disk.h"
#include "world.h"
#include "zel_common_storage/patterns.h"
#include "zel_common_storage/rows.h"

using namespace zel_test;

namespace
{

class StorageEngine : public testing::Test
{
  protected:
    StorageEngine()
    {
        EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
        take_trace();
    }
    raw_database database;
    unsigned int row_id = 77;
};

const std::string insert = "INSERT INTO contact_details VALUES (NULL, 1, 2, '3', '4')";

} // namespace

TEST_F(StorageEngine, a_database_given_up_during_the_third_attempt_lets_the_fourth_succeed)
{
    database.run("BEGIN EXCLUSIVE");
    const auto give_up = [](void *locker, int) {
        if (calls::sleep.calls() == 2)
            static_cast<raw_database *>(locker)->run("ROLLBACK");
        return 0;
    };
    sqlite3_busy_handler(_g_sqlite_handle, give_up, &database);
    EXPECT_EQ(__execute_insert_query(insert.c_str(), &row_id), 1);
    EXPECT_EQ(calls::sleep.calls(), 3);
    EXPECT_EQ(last_sleep, 100u);
    EXPECT_EQ(row_id, 1u);
}

TEST_F(StorageEngine, inserts_of_any_length_give_the_new_id)
{
    // 8016 bytes fill the buffer to its end, more do not fit.
    for (const size_t length : {size_t{8016}, size_t{8017}, size_t{8046}, size_t{100000}}) {
        std::string statement = insert;
        statement.insert(insert.size() - 2, length - insert.size(), 'x');
        EXPECT_EQ(__execute_insert_query(statement.c_str(), &row_id), 1) << length;
        const std::string head = "PLAIN __execute_insert_query: query [" + statement;
        EXPECT_TRUE(take_trace().text.starts_with(head + "; SELECT last_insert_rowid();]\n"));
        EXPECT_EQ(database.value("SELECT max(id) || ' ' || length(ccc) FROM contact_details"),
                  std::to_string(row_id) + " " + std::to_string(length - insert.size() + 1));
    }
    const fault no_text({STATEMENT_TEXT}, 1);
    EXPECT_EQ(__execute_insert_query(("INSERT" + std::string(9000, ' ')).c_str(), &row_id), 0) << "no memory";
}

TEST_F(StorageEngine, an_insert_that_fails_behind_a_row_of_its_own_is_a_failure)
{
    database.run("CREATE TRIGGER refuse AFTER INSERT ON folder_info BEGIN SELECT RAISE(FAIL, 'no'); END");
    for (const char *statement : {"INSERT OR FAIL INTO unique_data(key) VALUES ('a'), ('a')",
                                  "INSERT INTO folder_info(group_id) VALUES ('a')"}) {
        EXPECT_EQ(__execute_insert_query(statement, &row_id), 0) << statement;
        EXPECT_EQ(row_id, 77u) << statement;
    }
    EXPECT_EQ(database.value("SELECT key || group_id FROM unique_data, folder_info"), "aa") << "the rows stay";
}

TEST_F(StorageEngine, a_large_row_id_wraps_to_32_bits)
{
    for (const long long id : {0x7fffffffLL, 0x80000000LL, 0xffffffffLL, 0x100000000LL, 0x7ffffffffffffffeLL}) {
        database.run("DELETE FROM contact_details; DELETE FROM sqlite_sequence; "
                     "INSERT INTO sqlite_sequence VALUES ('contact_details', " +
                     std::to_string(id - 1) + ")");
        EXPECT_EQ(__execute_insert_query(insert.c_str(), &row_id), 1);
        EXPECT_EQ(row_id, static_cast<unsigned int>(id));
    }
}

TEST_F(StorageEngine, a_list_is_looked_into_only_beside_a_group_of_its_size)
{
    database.run("INSERT INTO recent_receiver_group VALUES (1, 1, 0); "
                 "INSERT INTO recent_receiver_details VALUES (1, 1, '1', '1', 1)");
    quillo_msisdn_s *list[2] = {};
    int group = 0;
    bool exists = true;
    EXPECT_EQ(_common_storage_is_recent_receiver_list_exist(list, 2, &group, &exists), ZEL_ERR_NONE);
    EXPECT_EQ(group, 2);
    EXPECT_FALSE(exists);
}

TEST_F(StorageEngine, a_write_hands_its_callback_the_very_pointers)
{
    static const void *called_with[2];
    const char key[] = "k", value[] = "v";
    const auto note = [](void *written_key, void *written_value) {
        called_with[0] = written_key;
        called_with[1] = written_value;
    };
    EXPECT_EQ(_common_storage_upsert_and_involk_unique_data(key, value, nullptr, nullptr, nullptr, note), ZEL_ERR_NONE);
    EXPECT_EQ(called_with[0], key);
    EXPECT_EQ(called_with[1], value);
}

TEST_F(StorageEngine, the_row_callback_takes_the_row_id_column_only)
{
    const std::string function = "__insert_callback";
    char number[] = "12", other[] = "34", name[] = "last_insert_rowid()", wrong[] = "id";
    struct {
        char *values[3], *names[3];
        int found;
    } rows[] = {{{other, number, other}, {wrong, name, name}, 12},
                {{other, number, nullptr}, {nullptr, name, wrong}, 12},
                {{nullptr, number, other}, {name, name, wrong}, 5},
                {{other, other, other}, {wrong, nullptr, wrong}, 5}};
    for (auto &row : rows) {
        int found = 5;
        EXPECT_EQ(__insert_callback(&found, 3, row.values, row.names), 0);
        EXPECT_EQ(found, row.found);
        EXPECT_TRACE(whole(function, {found == 12 ? debug(function, "Assigning value 12") : trace()}));
        EXPECT_EQ(__insert_callback(nullptr, 3, row.values, row.names), 0);
        take_trace();
    }
}

namespace
{

/// Without a row, or without a record, the reader only writes its Begin and End line.
template <typename Record> void expect_idle(const char *name, void (*read)(sqlite3_stmt *, Record *), sqlite3_stmt *row)
{
    Record record = {};
    read(nullptr, &record);
    read(row, nullptr);
    EXPECT_TRACE(whole(name), whole(name));
}

} // namespace

TEST_F(StorageEngine, nothing_is_read_without_a_row_or_a_record)
{
    sqlite3_stmt *const row = __execute_select_query("SELECT 1");
    take_trace();
    expect_idle("__fill_content_sync_info", __fill_content_sync_info, row);
    expect_idle("__fill_content_info", __fill_content_info, row);
    expect_idle("__fill_last_receiver_info", __fill_last_receiver_info, row);
    expect_idle("__fill_upload_receiver_info", __fill_upload_receiver_info, row);
    expect_idle("__fill_upload_receipient_info", __fill_upload_receipient_info, row);
    __db_finalize(nullptr);
    EXPECT_TRACE();
    EXPECT_EQ(sqlite3_finalize(row), SQLITE_OK);
    EXPECT_EQ(zel_storage::resize_with_realloc(nullptr, SIZE_MAX, 2), nullptr) << "a size that overflows";
}
