// What the table of the store cannot say: a lock given up in between, long statements, addresses, rows of any shape.
#include "disk.h"
#include "trace.h"
#include "world.h"
#include "zel_common_storage/patterns.h"
#include "zel_common_storage/rows.h"

#include <memory>

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
        if (calls::sleep.calls == 2)
            static_cast<raw_database *>(locker)->run("ROLLBACK");
        return 0;
    };
    sqlite3_busy_handler(_g_sqlite_handle, give_up, &database);
    EXPECT_EQ(__execute_insert_query(insert.c_str(), &row_id), 1);
    EXPECT_EQ(calls::sleep.calls, 3);
    EXPECT_EQ(last_sleep, 100u);
    EXPECT_EQ(row_id, 1u);
}

TEST_F(StorageEngine, the_executors_log_each_statement_and_its_failure)
{
    EXPECT_TRUE(__execute_query("DELETE FROM unique_data"));
    EXPECT_FALSE(__execute_query("DELETE FROM absent"));
    EXPECT_FALSE(__execute_query(nullptr));
    EXPECT_EQ(sqlite3_finalize(__execute_select_query("SELECT 1; and more")), SQLITE_OK);
    EXPECT_EQ(__execute_select_query("SELECT absent; and more"), nullptr);
    EXPECT_EQ(__execute_insert_query(insert.c_str(), &row_id), 1);
    EXPECT_EQ(__execute_insert_query("INSERT INTO absent VALUES (1)", &row_id), 0);
    EXPECT_EQ(__execute_insert_query(nullptr, &row_id), 0);
    expect_lines(R"(
__execute_query: Plain: query [DELETE FROM unique_data]
    Plain: query [DELETE FROM absent]
    Debug: failed to execute [no such table: absent], err[1], SQLITE_BUSY [5]
    Critical: Invalid Param or sqlite handle is NULL
__execute_select_query: Plain: query[SELECT 1; and more]
    Plain: query[SELECT absent; and more]
    Debug: failed to execute [ and more], err[1], SQLITE_BUSY [5]
__execute_insert_query: Plain: query [INSERT INTO contact_details VALUES (NULL, 1, 2, '3', '4'); SELECT last_insert_rowid();]
__insert_callback: Debug: Assigning value 1
__execute_insert_query: Plain: query [INSERT INTO absent VALUES (1); SELECT last_insert_rowid();]
    Critical: failed to execute [no such table: absent], err[1], SQLITE_BUSY [5]
    Critical: Invalid Param or sqlite handle is NULL
)");
}

TEST_F(StorageEngine, inserts_of_any_length_give_the_new_id)
{
    // 8016 bytes fill the buffer to its end, more do not fit.
    for (const size_t length : {size_t{8016}, size_t{8017}, size_t{100000}}) {
        std::string statement = insert;
        statement.insert(insert.size() - 2, length - insert.size(), 'x');
        EXPECT_EQ(__execute_insert_query(statement.c_str(), &row_id), 1) << length;
        const std::string head = "I QUILLO_COMMON __execute_insert_query:  query [" + statement;
        EXPECT_TRUE(take_trace().starts_with(head + "; SELECT last_insert_rowid();]\n"));
        EXPECT_EQ(database.value("SELECT max(id) || ' ' || length(ccc) FROM contact_details"),
                  std::to_string(row_id) + " " + std::to_string(length - insert.size() + 1));
    }
    const fault no_text({STATEMENT_TEXT}, 1);
    EXPECT_EQ(__execute_insert_query(("INSERT" + std::string(9000, ' ')).c_str(), &row_id), 0) << "no memory";
}

TEST_F(StorageEngine, a_time_before_1970_is_stored_as_a_floating_point_number)
{
    const scripted_clock clock(-5, 0);
    zel_content_sync_info transfer = {};
    zel_upload_request_info upload = {};
    transfer.req_id = upload.req_id = 7;
    EXPECT_EQ(_common_storage_add_sync_content_info(&transfer), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_add_upload_request_info(&upload), ZEL_ERR_NONE);
    for (const std::string table : {"content_info_status", "upload_request_data"})
        EXPECT_EQ(database.value("SELECT typeof(sent_time) || sent_time FROM " + table), "real1.84467440737096e+19");
    int sent = 0;
    EXPECT_EQ(_common_storage_get_sent_time_by_req_id(7, &sent), ZEL_ERR_NONE);
    EXPECT_EQ(sent, -1) << "the lowest bits of the largest integer";
}

TEST_F(StorageEngine, the_row_callback_takes_the_row_id_column_only)
{
    char number[] = "12", other[] = "34", name[] = "last_insert_rowid()", wrong[] = "id";
    char *rows[][4] = {{other, number, wrong, name}, // two values and their names
                       {other, number, nullptr, name},
                       {number, other, name, name},
                       {nullptr, number, name, name},
                       {other, other, wrong, nullptr}};
    for (auto &row : rows) {
        const bool has_id = &row < rows + 3;
        int found = 5;
        EXPECT_EQ(__insert_callback(&found, 2, row, row + 2), 0);
        EXPECT_EQ(found, has_id ? 12 : 5);
        EXPECT_EQ(__insert_callback(nullptr, 2, row, row + 2), 0);
        expect_lines(has_id ? "__insert_callback: Debug: Assigning value 12\n" : "");
    }
}

/// Without a row, or without a record, a reader only writes its Begin and End line.
TEST_F(StorageEngine, nothing_is_read_without_a_row_or_a_record)
{
    sqlite3_stmt *const row = __execute_select_query("SELECT 1");
    take_trace();
    const auto read_nothing = [row]<typename... Records>(void (*...read)(sqlite3_stmt *, Records *)) {
        (read(nullptr, std::make_unique<Records>().get()), ...);
        (read(row, nullptr), ...);
    };
    read_nothing(__fill_content_sync_info, __fill_content_info, __fill_last_receiver_info, __fill_upload_receiver_info,
                 __fill_upload_receipient_info);
    __db_finalize(nullptr);
    expect_lines("");
    EXPECT_EQ(sqlite3_finalize(row), SQLITE_OK);
    _common_storage_free_sync_content_info(nullptr);
    EXPECT_EQ(zel_storage::resize_with_realloc(nullptr, SIZE_MAX / 2 + 2, 2), nullptr) << "a size that overflows";
}
