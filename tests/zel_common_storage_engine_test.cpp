#include "store_fixture.h"

#include <fstream>
#include <string>

using namespace zel_test;

namespace
{

/// The tables in the order of their creation, to the character: other programs read the file.
const struct {
    std::string name;
    std::string statement;
} tables[] = {
    {"push_noti_info",
     "CREATE TABLE push_noti_info (\tid \t\t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
     "\tcontents_token\tTEXT NOT NULL,\ttype\t\t\t\tTEXT,\texpired_time\t\tINTEGER,\tread_noti\tINTEGER,"
     "\treceived_time\t\tINTEGER);"},
    {"content_info",
     "CREATE TABLE content_info (\tcontent_id\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,\texpired_time\t\tINTEGER,"
     "\tdownload_count\t\tINTEGER,\tsize\t\t\t\tINTEGER,\tcontents_token\t\tTEXT NOT NULL,"
     "\tdescription\t\t\tTEXT,\ttype\t\t\t\tTEXT,\tfrom_msisdn\t\t\tTEXT NOT NULL,\tto_list\t\t\t\tTEXT,"
     "\toriginal\t\t\tTEXT NOT NULL,\tthumbnail\t\t\tTEXT NOT NULL,\tname\t\t\t\tTEXT,\tcontent_type\t\tTEXT,"
     "\tdownloaded\t\t\tINTEGER,\tbig_thumbnail\t\tTEXT NOT NULL,\tmid_thumbnail\t\tTEXT NOT NULL,"
     "\tpush_status\t\tINTEGER);"},
    {"content_info_status",
     "CREATE TABLE content_info_status (\tsync_id\t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
     "\tsync_type\t\t\tINTEGER,\tstatus\t\t\t\tINTEGER,\tcontent_id\t\t\tINTEGER,\treq_id\t\t\t\tINTEGER,"
     "\twifi_only\t\t\tINTEGER,\tfail_retry_count\tINTEGER,\tpercentage\t\t\tINTEGER,\toffset\t\t\t\tINTEGER,"
     "\tchunk_no\t\t\tINTEGER,\tsent_time\t\t\tINTEGER, \tcontents_token\t\tTEXT NOT NULL,"
     " \tcontent_type\t\tTEXT,\toriginal\t\t\tTEXT NOT NULL,\tthumbnail\t\t\tTEXT NOT NULL,"
     "\tname\t\t\t\tTEXT NOT NULL,\tlocal_path\t\t\tTEXT,\tmupload_key\t\t\tTEXT,"
     "\tFOREIGN KEY(content_id) REFERENCES content_info(content_id));"},
    {"recent_receiver_group", "CREATE TABLE recent_receiver_group (\tid \t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
                              "\tindex_value\t\t\tINTEGER,\ttime_stamp\t\t\tTIMESTAMP);"},
    {"recent_receiver_details",
     "CREATE TABLE recent_receiver_details (\tid \t\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
     "\tnumber_id\t\t\tINTEGER,\tphone_no\t\t\tTEXT,\tccc\t\t\t\tTEXT,\tgroup_id\t\t\tINTEGER);"},
    {"upload_request_data",
     "CREATE TABLE upload_request_data (\tunique_id\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,"
     "\treq_id\t\t\t\tINTEGER NOT NULL,\tfile_count\t\t\tINTEGER,\tstatus\t\t\t\tINTEGER,"
     "\treceiver_count\t\t\tINTEGER,\texpired_time\t\t\tINTEGER,\ttotal_size\t\t\tINTEGER NOT NULL,"
     "\tcontents_token\t\t\tTEXT,\tapp_type\t\t\tINTEGER,\tdescription\t\t\tTEXT,\tsent_time\t\t\tINTEGER);"},
    {"contact_details",
     "CREATE TABLE contact_details (\tid\t\t\tINTEGER PRIMARY KEY AUTOINCREMENT,\treq_id\t\t\tINTEGER NOT NULL,"
     "\tnumber_id\t\tINTEGER,\tphone_no\t\tTEXT,\tccc\t\t\tTEXT,"
     "\tFOREIGN KEY(req_id) REFERENCES upload_request_data(req_id));"},
    {"unique_data", "CREATE TABLE unique_data (key\t\t\tTEXT PRIMARY KEY,value\t\tTEXT,reserv_0\tTEXT,reserv_1\tTEXT,"
                    "reserv_2\tTEXT);"},
    {"folder_info", "CREATE TABLE folder_info (group_id\tTEXT PRIMARY KEY,contents_token\tTEXT,"
                    "content_token_expired_time\tINTEGER,folder_token\tTEXT,folder_token_expired_time\tINTEGER,"
                    "folder_sync_time\t\t\tINTEGER);"},
};

const std::string init = "_common_storage_init", creator = "_common_storage_db_create";
const std::string upgrader = "_common_storage_db_upgrade", version_reader = "__common_storage_get_db_version";
const std::string tester = "_common_storage_check_table_exist";

/// The test for a name, `found` being what is said of the count of objects.
trace existence_test(const std::string &name, const std::string &found, int finalize_code = SQLITE_OK)
{
    const std::string statement = "select count(name) from sqlite_master where name='" + name + "'";
    return whole(tester, {debug(tester, "check query [" + statement + "]"), prepared(statement), debug(tester, found),
                          finalized(tester, finalize_code)});
}

/// Creating the schema while only the tables of this name, or all, are missing.
trace creation(const std::string &missing)
{
    trace inside;
    for (const auto &[name, statement] : tables) {
        const bool creates = missing == "all" || missing == name;
        inside = join({inside, existence_test(name, creates ? "no records [0]" : "records found [1]")});
        if (creates)
            inside = join({inside, ran(statement), info(creator, "Success : create [" + name + "]")});
    }
    return whole(creator, {inside});
}

/// Stamping the version, up to what follows from the one that was found.
trace upgrade_from(int version)
{
    return join({begin(upgrader), whole(version_reader, {prepared("PRAGMA user_version;"), finalized(version_reader)}),
                 info(upgrader, "DB version is " + std::to_string(version))});
}

trace lazy_opening(const std::string &function, bool succeeds)
{
    return join({debug(function, "Opening DB.....\n"),
                 succeeds ? debug(function, "DB open Success") : critical(function, "sqlite3_open error(14)")});
}

trace ten_attempts(const trace &failed, const std::string &function)
{
    trace all;
    for (int i = 0; i < 10; ++i)
        all = join({all, failed});
    return join({all, critical(function, "Retried for 10 times - returning")});
}

struct StorageEngine : store_test {
};

const std::string insert = "INSERT INTO contact_details VALUES (NULL, 1, 2, '3', '4')";
const char locked[] = "failed to execute [database is locked], err[5], SQLITE_BUSY [5]";

} // namespace

TEST(StorageOpening, creates_tables_and_version_once)
{
    raw_database database;
    for (const std::string missing : {"all", "folder_info", "none"}) {
        EXPECT_LOGGED(_common_storage_init(), ZEL_ERR_NONE,
                      missing == "none" ? whole(init, {debug(init, "DB Already Opened")})
                                        : whole(init, {debug(init, "Opening DB.....\n"), debug(init, "DB open Success"),
                                                       creation(missing), upgrade_from(missing == "all" ? 0 : 103),
                                                       ran("PRAGMA user_version = 104"), end(upgrader)}));
        std::string names;
        for (const auto &[name, statement] : tables) {
            names += name + "\n";
            EXPECT_EQ(database.value("SELECT sql || ';' FROM sqlite_master WHERE name = '" + name + "'"), statement);
        }
        EXPECT_EQ(database.rows("SELECT name FROM sqlite_master WHERE name NOT LIKE 'sqlite_%' ORDER BY rowid"), names);
        EXPECT_EQ(database.value("PRAGMA user_version"), "104");
        if (missing != "all")
            continue;
        EXPECT_EQ(sqlite3_close(_g_sqlite_handle), SQLITE_OK);
        _g_sqlite_handle = nullptr; // an older file, of another process
        database.run("DROP TABLE folder_info; INSERT INTO unique_data VALUES ('k', 'v', '', '', ''); "
                     "PRAGMA user_version = 103");
    }
    EXPECT_EQ(database.rows("SELECT * FROM unique_data"), "k|v|||\n");
    EXPECT_LOGGED(_common_storage_db_create(), ZEL_ERR_NONE, creation("none"));
    EXPECT_LOGGED(_common_storage_db_upgrade(), ZEL_ERR_NONE, upgrade_from(104));
}

TEST(StorageOpening, fails_and_is_tried_again)
{
    EXPECT_LOGGED(_common_storage_init(), ZEL_ERR_STORAGE_INIT_FAILURE, begin(init), debug(init, "Opening DB.....\n"),
                  critical(init, "sqlite3_open error - 14"));
    unsigned int row_id = 77;
    EXPECT_LOGGED(__execute_insert_query(insert.c_str(), &row_id), 0,
                  critical("__execute_insert_query", "Invalid Param or sqlite handle is NULL"));
    EXPECT_EQ(row_id, 77u);
    EXPECT_LOGGED(__execute_query("SELECT 1"), false, lazy_opening("__execute_query", false));
    EXPECT_LOGGED(__execute_select_query("SELECT 1"), nullptr, begin("__execute_select_query"),
                  lazy_opening("__execute_select_query", false));
    EXPECT_EQ(_g_sqlite_handle, nullptr);

    raw_database database; // makes the folder
    EXPECT_LOGGED(__execute_query("SELECT 1"), true, lazy_opening("__execute_query", true), ran("SELECT 1"));
    EXPECT_EQ(database.rows("SELECT * FROM sqlite_master"), "");
}

TEST(StorageOpening, of_a_file_that_is_no_database)
{
    std::filesystem::create_directories(database_folder);
    std::ofstream(database_file) << std::string(4096, 'x');
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    const trace lines = take_trace();
    for (const auto &[name, statement] : tables)
        EXPECT_EQ(count_lines(lines, "CRITICAL", "FAIL : create [" + name + "]"), 1) << name;
    EXPECT_EQ(count_lines(lines, "CRITICAL", "DB version get failed!"), 1);
    EXPECT_EQ(_common_storage_db_create(), ZEL_ERR_STORAGE_FAILURE);
}

TEST(StorageOpening, ten_attempts_at_reading_the_schema_for_a_query)
{
    raw_database database;
    database.run("CREATE TABLE t (a)");
    database.lock();
    const std::string function = "__execute_select_query", statement = "SELECT a FROM t;";
    EXPECT_LOGGED(__execute_select_query(statement.c_str()), nullptr, begin(function), lazy_opening(function, true),
                  plain(function, "query[" + statement + "]"),
                  ten_attempts(debug(function, raw_database().refusal(statement, true)), function));
    EXPECT_EQ(calls::sleep.calls(), 10);
}

TEST_F(StorageEngine, ten_attempts_at_a_busy_database)
{
    database.lock();
    EXPECT_LOGGED(__execute_query(insert.c_str()), false, ran(insert),
                  ten_attempts(debug("__execute_query", locked), "__execute_query"));
    unsigned int row_id = 77;
    EXPECT_LOGGED(__execute_insert_query(insert.c_str(), &row_id), 0, inserting(insert),
                  ten_attempts(critical("__execute_insert_query", locked), "__execute_insert_query"));
    EXPECT_EQ(row_id, 77u);
    EXPECT_EQ(calls::sleep.calls(), 20);
    EXPECT_EQ(last_sleep, 100u);

    // The database is given up during the third attempt: the fourth succeeds.
    const auto give_up = [](void *locker, int) {
        if (calls::sleep.calls() == 22)
            static_cast<raw_database *>(locker)->unlock();
        return 0;
    };
    sqlite3_busy_handler(_g_sqlite_handle, give_up, &database);
    EXPECT_EQ(__execute_insert_query(insert.c_str(), &row_id), 1);
    EXPECT_EQ(calls::sleep.calls(), 23);
    EXPECT_EQ(row_id, 1u);
}

TEST_F(StorageEngine, one_attempt_at_a_bad_statement)
{
    unsigned int row_id = 77;
    for (const std::string bad : {"INSERT INTO nothing VALUES (1)", "INSERT gibberish",
                                  "INSERT INTO upload_request_data(req_id) VALUES (NULL)"}) {
        EXPECT_LOGGED(__execute_query(bad.c_str()), false, ran_in_vain(bad));
        EXPECT_LOGGED(__execute_insert_query(bad.c_str(), &row_id), 0, inserted_in_vain(bad));
    }
    for (const std::string bad : {"SELECT * FROM nothing;", "SELECT gibberish; and more"}) {
        EXPECT_LOGGED(__execute_select_query(bad.c_str()), nullptr, prepared_in_vain(bad));
    }
    EXPECT_LOGGED(__execute_query(nullptr), false,
                  critical("__execute_query", "Invalid Param or sqlite handle is NULL"));
    EXPECT_LOGGED(__execute_insert_query(nullptr, &row_id), 0,
                  critical("__execute_insert_query", "Invalid Param or sqlite handle is NULL"));
    EXPECT_EQ(__execute_select_query(nullptr), nullptr);
    char body[100];
    snprintf(body, sizeof body, "NULL PARAM query[(nil)], sqlite_handle[%p]", static_cast<void *>(_g_sqlite_handle));
    EXPECT_TRACE(begin("__execute_select_query"), critical("__execute_select_query", body));
    EXPECT_EQ(row_id, 77u);
    EXPECT_EQ(calls::sleep.calls(), 0);
}

TEST_F(StorageEngine, inserts_of_any_length_give_the_new_id)
{
    database.run("INSERT INTO contact_details(id, req_id) VALUES (41, 1)");
    EXPECT_LOGGED(__execute_insert_query(insert.c_str(), nullptr), 1, inserted(insert, 42));
    unsigned int row_id = 0;
    // 8016 bytes fill the buffer to its end, more do not fit.
    for (const size_t length : {size_t{8016}, size_t{8017}, size_t{8046}, size_t{100000}}) {
        std::string statement = insert;
        statement.insert(insert.size() - 2, length - insert.size(), 'x');
        EXPECT_EQ(__execute_insert_query(statement.c_str(), &row_id), 1) << length;
        EXPECT_TRACE(inserted(statement, static_cast<int>(row_id)));
        EXPECT_EQ(database.value("SELECT max(id) || ' ' || length(ccc) FROM contact_details"),
                  std::to_string(row_id) + " " + std::to_string(length - insert.size() + 1));
    }
    calls::sqlite_format.answer(0);
    EXPECT_EQ(__execute_insert_query(("INSERT" + std::string(9000, ' ')).c_str(), &row_id), 0) << "no memory";
}

TEST_F(StorageEngine, the_row_callback_takes_the_row_id_column_only)
{
    const std::string function = "__insert_callback";
    char number[] = "12", other[] = "34", name[] = "last_insert_rowid()", wrong[] = "id";
    const struct {
        char *values[3], *names[3];
    } rows[] = {{{other, number, other}, {wrong, name, name}},
                {{other, number, nullptr}, {nullptr, name, wrong}},
                {{nullptr, number, other}, {name, name, wrong}}};
    for (auto row : rows) {
        int row_id = 5;
        EXPECT_EQ(__insert_callback(&row_id, 3, row.values, row.names), 0);
        EXPECT_EQ(row_id, row.values[0] ? 12 : 5);
        EXPECT_TRACE(whole(function, {row_id == 12 ? debug(function, "Assigning value 12") : trace()}));
        EXPECT_EQ(__insert_callback(nullptr, 3, row.values, row.names), 0);
        take_trace();
    }
}

TEST_F(StorageEngine, the_existence_test_answers_no_whenever_it_cannot_tell)
{
    database.run("CREATE VIEW \"it's\" AS SELECT 1");
    EXPECT_LOGGED(_common_storage_check_table_exist("it's"), true, existence_test("it''s", "records found [1]"));
    EXPECT_LOGGED(_common_storage_check_table_exist("CONTENT_INFO"), false,
                  existence_test("CONTENT_INFO", "no records [0]"));
    EXPECT_LOGGED(_common_storage_check_table_exist(nullptr), false, begin(tester), critical(tester, "Invalid Params"));
    database.lock();
    EXPECT_LOGGED(_common_storage_check_table_exist("t"), false, existence_test("t", "No records found", SQLITE_BUSY));
    calls::sqlite_format.answer(0);
    EXPECT_FALSE(_common_storage_check_table_exist("t"));
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "ExecuteSelectQuery Failed "), 1);
}

TEST_F(StorageEngine, a_version_that_cannot_be_read_or_written)
{
    int version = 77;
    EXPECT_EQ(__common_storage_get_db_version(&version), ZEL_ERR_NONE);
    EXPECT_EQ(version, 104);
    database.run("PRAGMA user_version = 103; BEGIN IMMEDIATE"); // may be read, not written
    take_trace();
    EXPECT_LOGGED(_common_storage_db_upgrade(), ZEL_ERR_STORAGE_FAILURE, upgrade_from(103),
                  ran("PRAGMA user_version = 104"), ten_attempts(debug("__execute_query", locked), "__execute_query"),
                  critical(upgrader, "Failed to version up"), end(upgrader));
    database.unlock();
    database.lock();
    EXPECT_LOGGED(
        __common_storage_get_db_version(&version), ZEL_ERR_STORAGE_FAILURE,
        whole(version_reader, {prepared("PRAGMA user_version;"), critical(version_reader, "Failed to get DB version"),
                               finalized(version_reader, SQLITE_BUSY)}));
    calls::sqlite_format.answer(0);
    EXPECT_EQ(__common_storage_get_db_version(&version), ZEL_ERR_STORAGE_FAILURE);
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "ExecuteSelectQuery Failed"), 1);
    EXPECT_EQ(version, 104) << "an output was touched";
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, "Invalid Params", __common_storage_get_db_version, nullptr);
}
