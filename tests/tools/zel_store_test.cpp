// zel-store on a store of the library with the rows of the operations' world, and on a trace that is written here.

#include "zel_common_storage.h"
#include "zel_common_storage/connection.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <unistd.h>

namespace
{

/// Runs a line of shell, in which "tool" is the tool and $store its file, and looks for parts of what it says, errors
/// included. What has json in its line says a document: it is looked at without blanks, the names in their order.
std::string expect(const std::string &line, int status, const std::vector<std::string> &parts = {})
{
    const std::string words = "export LC_ALL=C; tool() { " ZEL_TEST_TOOL " \"$@\"; }; store=" ZEL_DATABASE "; ";
    EXPECT_EQ(WEXITSTATUS(std::system((words + "{ " + line + "\n} >said 2>&1").c_str())), status) << line;
    std::string text(std::istreambuf_iterator<char>(std::ifstream("said").rdbuf()), {});
    if (line.find("json") != std::string::npos)
        text = nlohmann::json::parse(text, nullptr, false).dump();
    for (const std::string &part : parts)
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << line << ": " << text;
    return text;
}

/// A connection that does not go through the library, with what it is to do first.
std::shared_ptr<sqlite3> raw(const std::string &statements)
{
    sqlite3 *handle = nullptr;
    sqlite3_open(ZEL_DATABASE, &handle);
    EXPECT_EQ(sqlite3_exec(handle, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << statements;
    return {handle, sqlite3_close};
}

/// Each case has a folder of its own with a store in it.
class ZelStore : public testing::Test
{
  protected:
    void SetUp() override
    {
        const auto &test = *testing::UnitTest::GetInstance()->current_test_info();
        const std::filesystem::path folder(std::string(ZEL_TEST_SCRATCH "/") + test.name());
        remove_all(folder);
        create_directories(folder);
        current_path(folder);
        expect("tool init && tool check && stat -c %A ${store%/*}", 0, {"0700", "all 9 tables", "Sound", "drwx------"});
        raw(expect("cat " ZEL_TEST_WORLD, 0) + "PRAGMA user_version = 104");
    }
};

} // namespace

TEST_F(ZelStore, check_finds_each_contradiction)
{
    raw("DROP TABLE folder_info; ALTER TABLE unique_data RENAME COLUMN reserv_1 TO other;"
        "PRAGMA user_version = 103; DELETE FROM upload_request_data WHERE unique_id BETWEEN 4 AND 9;"
        "INSERT INTO upload_request_data VALUES(21, 7, 6, 3, 3, 1e19, 0, '', 0, '', 0);"
        "UPDATE contact_details SET req_id = iif(id = 6, -1294967291, 6) WHERE id > 4;" // an id that is written signed
        "UPDATE content_info_status SET percentage = 8 * sync_id;"
        "UPDATE content_info_status SET req_id = 6, status = 6, wifi_only = 2 WHERE sync_id = 10;"
        "UPDATE recent_receiver_group SET index_value = iif(id = 4, 3, 10) WHERE id IN (1, 4);"
        "UPDATE push_noti_info SET read_noti = 3 WHERE id = 1;"
        "UPDATE content_info SET push_status = 1 << 32, downloaded = 2 WHERE content_id = 1");
    // Kinds and rows, without the names of the columns by which rows are told.
    expect(
        R"(tool check | sed -nE 's/.*\[(.*)\]$/\1/p; s/^  where +\S+ //p' | paste -sd ':;')", 0,
        {"version:103, not 104;columns:other TEXT for reserv_1 TEXT;missing-table:folder_info;duplicate-request:1, 21;"
         "duplicate-notification:5, 7;duplicate-group:3, 4;download-without-item:12, 13;upload-without-request:10;"
         "recipient-without-request:5;member-without-group:1, 2, 5, 6;file-count:1: says 5, has 6, 2: says 6, has 2, "
         "3: says 7, has 1;recipient-count:1: says 2, has 3, 2: says 3, has 1, 3: says 4, has 0;"
         "finished-with-open-files:1, 2;given-up:6;interrupted:2;floating-point:21: expired_time "
         "1.0e+19;unknown-value:1: read_noti "
         "3;unknown-value:1: push_status 4294967296;unknown-value:10: status 6;unknown-value:1: downloaded 2;"
         "unknown-value:10: wifi_only 2;unknown-value:13: percentage 104;unknown-value:1: index_value 10\n"});
    raw("PRAGMA writable_schema = 1; UPDATE sqlite_master SET rootpage = 3 WHERE name = 'content_info'");
    expect("tool check", 1, {"[damaged]"});
}

TEST_F(ZelStore, what_cannot_be_read_is_told_and_the_rest_is_shown)
{
    expect("tool show missing.db || tool show /dev/null", 2, {"there is no store", "no regular file"});
    expect("seq 2000 >text.db; tool check text.db", 2, {"[unreadable]", "file is not a database"});
    expect("tool trace text.db", 2, {"no line of it is the library's"});
    expect(": >empty.db; tool check --json empty.db", 1, {R"("kind":"missing-table")"});
    expect("head -c -5000 $store >cut.db; tool show cut.db || tool check cut.db", 1, {"Request 3000000005", "[cut]"});
    expect("tool copy $store :memory: && test -s :memory: && tool copy cut.db new.db", 2, {"cannot be read whole"});
    expect("TMPDIR=/missing; export TMPDIR; tool show", 2, {"room in TMPDIR?"});
    expect("(head -c 100 $store; printf %8d 0; tail -c +109 $store) >bad.db; tool show bad.db", 2, {"cannot open"});
    // A write that was broken off: more than the cache takes, so that the file is written to before the commit.
    auto open = raw("PRAGMA cache_size = 1; BEGIN; UPDATE upload_request_data SET description = 'half';"
                    "CREATE TABLE filler (x); INSERT INTO filler VALUES(zeroblob(900000))");
    expect("tool show", 0, {"(" + std::to_string(getpid()) + ")", "a write is under way"}); // emulated: another name
    expect("tool init", 2, {"Not all tables are there: database is locked. zel-store show tells who"});
    expect("cp -r ${store%/*} broken; cp -r broken before; grep half broken/.*.db", 0);
    expect("tool show broken", 0, {"a write was broken off", "\"d0\""});
    expect("tool copy broken new.db && stat -c %A new.db && tool copy broken new.db", 2, {"-rw-------", "File exists"});
    expect("tool show --json new.db", 0, {R"("description":"d0")"});
    expect("diff --recursive before broken", 0);
    open.reset();
    expect("tool init --wal", 0, {"write-ahead log is set"});
    open = raw("UPDATE upload_request_data SET description = 'in the log'");
    expect("tool show", 0, {"\"in the log\""});
    if (geteuid() != 0)
        expect("chmod 0 cut.db; tool show cut.db", 2, {"Run zel-store as the service's user or as root"});
}

TEST_F(ZelStore, hostile_texts_are_shown_and_not_obeyed)
{
    raw("UPDATE upload_request_data SET description = char(27,93,48,59,7,10,120,8238) || CAST(x'fffe' AS TEXT);"
        "UPDATE content_info_status SET name = char(155) || '31m', fail_retry_count = 2, offset = 'x',"
        "percentage = 'x' WHERE sync_id = 2");
    expect("LC_ALL=C.UTF-8; tool show", 0, {R"("\x1b]0;\x07\x0ax\u{202e}\xff\xfe")"});
    expect("tool show", 0,
           {R"(\x1b]0;)", R"(\u{9b}31m)", "Request 3000000005", "retry 2", "to +44 770~23, ~, +44 ", "k = ~",
            "\nupload file              0    10        1        2       2         4         1\n"});
    expect("tool show | grep '[^ -~]'", 1);
    expect("tool show | grep -m 1 ^Request", 0, {"Request 7 "}); // the newest
    expect(R"((tool show; tool show --json) | grep -E '7700900123|k = v|"v"|"t"|"from"')", 1);
    expect("tool show --secrets", 0, {"7700900123", "k = v", "Share t", "from from"});
    expect("tool show --json --request 3000000005", 0, {R"("contact_details":[{"ccc":"8",)", R"("push_noti_info":[])"});
    expect("tool show --json --token t", 0, {R"("content_info":[{)", R"("upload_request_data":[])"});
    expect("tool show --request 1", 1, {"Nothing matches"});
}

TEST_F(ZelStore, a_writer_without_a_pause_meets_nobody_and_no_view_is_torn)
{
    ASSERT_TRUE(freopen("trace.log", "w", stderr));
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    for (const auto &[mode, length] : {std::pair("DELETE", 200'000), {"WAL", 20'000}}) { // many pages; mostly the log
        raw(std::string("UPDATE content_info_status SET offset = 0, chunk_no = 0; PRAGMA journal_mode = ") + mode);
        // Never at rest for a sync: a copy that is taken only once is torn now and then.
        sqlite3_exec(_g_sqlite_handle, "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
        std::jthread writer([size = static_cast<size_t>(length)](const std::stop_token &end) {
            for (unsigned int i = 1; !end.stop_requested(); ++i) {
                const std::string text(size, static_cast<char>('A' + i % 26));
                ASSERT_EQ(_common_storage_update_upload_info(1, i * 1000, static_cast<int>(i)), 0);
                ASSERT_EQ(_common_storage_upsert_unique_data("k", text.c_str(), nullptr, nullptr, nullptr), 0);
            }
        });
        expect("tool watch --json --secrets --interval 0.02 --views 40 >views", 0);
        // Each is whole: no findings, the numbers of one write, one letter only.
        expect(R"(tr -s A-Z <views | grep -Ec '"findings":\[\].*"sync_id":1,[^}]*"offset":([0-9]+)(000)?,)"
               R"("chunk_no":\1,.*"key":"k","value":"[A-Zv]"')",
               0, {"40\n"});
        expect("test $(grep -o '\"chunk_no\":[1-9][0-9]*' views | sort -u | wc -l) -gt 10", 0);
    }
}

TEST_F(ZelStore, a_trace_is_read_with_and_without_threads_times_and_colours)
{
    ASSERT_TRUE(freopen("trace.log", "w", stderr));
    _common_storage_init();
    const auto locked = raw("BEGIN EXCLUSIVE");
    unsigned long long time = 0;
    _common_storage_update_percentage_sync_content_info(1, 5);
    _common_storage_get_received_time_push_noti("t", &time);
    _common_storage_update_percentage_sync_content_info(0, 5);
    const std::string update = R"("operation":"_common_storage_update_percentage_sync_content_info",)";
    const std::pair<std::string, std::string> cases[] = {
        {"\\1 \\2 \\3/QUILLO_COMMON: ", "1"}, // with threads and times
        {"11-25 06:34:30.123  99 \\2 \\3 QUILLO_COMMON: ", "1"},
        {"\\3/QUILLO_COMMON( \\2): \x1b[0;36m", "0"},
        {"host service[12]: \\3/QUILLO_COMMON: ", "0"},
        {"", "0"},
    };
    for (const auto &[prefix, has] : cases) {
        expect("sed -E 's@(.{26}) ([0-9]+) ([A-Z])/QUILLO_COMMON: @" + prefix + "@' trace.log >other.log", 0);
        expect("tool trace --json other.log", 1,
               {R"([{"advice":"busy: )", R"("attempts":10,"code":5,"count":1,)", R"(info "},{"advice":"busy: )",
                update + R"("statement":"UPDATE 'content_info_status' SET percentage = 5 WHERE sync_id = 1",)",
                R"("No records found"},{"advice":"an argument was missing)", update + R"("statements":1,)",
                update + R"("statement":"","text":"Invalid parameter"}],"operations":[)", R"("calls":2,"failures":2,)",
                R"(_exist","statements":9,)", R"("has_threads":)" + has + R"(,"has_times":)" + has});
        expect("tool trace --tree other.log", has == "1" ? 1 : 2, {has == "1" ? "\n      _common_" : "a guess"});
    }
    expect("printf 'f(1):  * Critical * %s\n' 'No records found' 'Fail:Filesize is zero' | tool trace -", 0,
           {"failure: 0"});
    expect("tool trace --timeline events trace.log", 1, {"storage_update_", "SQLite    5, database is locked"});
    expect("mv events events.json; cat events.json", 0, {R"("name":"_common_storage_init","ph":"X","pid":1)"});
}
