// zel-store on stores of the library, and on traces that it writes here through the host platform.

#include "zel_common_storage.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

using nlohmann::json;
namespace fs = std::filesystem;

namespace
{

const std::string STORE = ZEL_DATABASE;

/// Runs the tool; its status, and what it writes, errors included.
std::pair<int, std::string> tool(const std::string &arguments)
{
    FILE *const output = popen((ZEL_TEST_TOOL " " + arguments + " 2>&1").c_str(), "r");
    std::string text;
    for (int letter = fgetc(output); letter != EOF; letter = fgetc(output))
        text += static_cast<char>(letter);
    return {WEXITSTATUS(pclose(output)), text};
}

json document(const std::string &arguments)
{
    return json::parse(tool(arguments).second);
}

void expect(const std::string &arguments, int status, const std::vector<std::string> &parts = {})
{
    const auto [found, text] = tool(arguments);
    EXPECT_EQ(found, status) << arguments << ": " << text;
    for (const std::string &part : parts)
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << arguments << ": " << text;
}

/// A connection that does not go through the library, with what it is to do first.
std::shared_ptr<sqlite3> raw(const std::string &statements)
{
    sqlite3 *handle = nullptr;
    sqlite3_open(STORE.c_str(), &handle);
    EXPECT_EQ(sqlite3_exec(handle, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << statements;
    return {handle, sqlite3_close};
}

/// Begins something in a process of its own, as a service would; the trace goes to a file.
pid_t start(const std::function<void()> &work)
{
    const pid_t child = fork();
    if (child == 0) {
        EXPECT_TRUE(freopen("trace.log", "a", stderr));
        work();
        _exit(testing::Test::HasFailure());
    }
    return child;
}

int end_of(pid_t child)
{
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

std::string bytes_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Each case has a folder of its own with a store in which nothing contradicts itself.
class ZelStore : public testing::Test
{
  protected:
    void SetUp() override
    {
        const auto folder = fs::path(ZEL_TEST_SCRATCH) / testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::remove_all(folder);
        fs::create_directories(folder);
        fs::current_path(folder);
        expect("init", 0, {"mode 0700", "all 9 tables"});
        EXPECT_EQ(fs::status(fs::path(STORE).parent_path()).permissions(), fs::perms::owner_all);
        raw("INSERT INTO upload_request_data VALUES(1,3000000000,1,3,1,0,0,'',1,'',1);"
            "INSERT INTO contact_details VALUES(1,-1294967296,1,'7700900123','44');" // the same id, written signed
            "INSERT INTO content_info_status VALUES(1,1,5,0,3000000000,0,0,100,0,0,1,'','','','','one.bin','','');"
            "INSERT INTO push_noti_info VALUES(1,'share-token-1','event',1,0,1);"
            "INSERT INTO content_info VALUES(5,1,0,9,'share-token-1','','','+4477','','o','t','a','',1,'b','m',0);"
            "INSERT INTO content_info_status VALUES(9,3,5,5,0,0,0,100,0,0,1,'','','','','','','');"
            "INSERT INTO recent_receiver_group VALUES(1,1,'2026-11-25 06:34:30');"
            "INSERT INTO recent_receiver_details VALUES(1,1,'7700900123','44',1);"
            "INSERT INTO unique_data VALUES('key','a-long-secret','','','')");
    }
};

} // namespace

TEST_F(ZelStore, check_finds_each_contradiction)
{
    const struct {
        std::string kind, statements, rows;
    } cases[] = {
        {"duplicate-request", "INSERT INTO upload_request_data VALUES(99,3000000000,1,3,1,0,0,'',1,'',1)",
         R"(["1","99"])"},
        {"duplicate-notification", "INSERT INTO push_noti_info VALUES(8,'share-token-1','',1,0,1)", R"(["1","8"])"},
        {"duplicate-group", "INSERT INTO recent_receiver_group VALUES(8,1,'')", R"(["1","8"])"},
        {"download-without-item", "UPDATE content_info_status SET content_id = 77 WHERE sync_id = 9", R"(["9"])"},
        {"upload-without-request",
         "INSERT INTO content_info_status VALUES(8,1,5,0,77,0,0,0,0,0,1,'','','','','','','')", R"(["8"])"},
        {"recipient-without-request", "INSERT INTO contact_details VALUES(8,77,1,'1','')", R"(["8"])"},
        {"member-without-group", "INSERT INTO recent_receiver_details VALUES(8,1,'1','',7)", R"(["8"])"},
        {"file-count", "UPDATE upload_request_data SET file_count = 4", R"(["1: says 4, has 1"])"},
        {"recipient-count", "UPDATE upload_request_data SET receiver_count = 4", R"(["1: says 4, has 1"])"},
        {"finished-with-open-files", "UPDATE content_info_status SET status = 3 WHERE sync_id = 1", R"(["1"])"},
        {"unknown-value", "UPDATE content_info_status SET status = 6 WHERE sync_id = 9", R"(["9: status 6"])"},
        {"unknown-value", "UPDATE push_noti_info SET read_noti = 3", R"(["1: read_noti 3"])"},
        {"unknown-value", "UPDATE content_info SET push_status = 4294967296", R"(["5: push_status 4294967296"])"},
        {"unknown-value",
         "UPDATE recent_receiver_group SET index_value = 10; UPDATE recent_receiver_details SET "
         "group_id = 10",
         R"(["1: index_value 10"])"},
        {"floating-point", "UPDATE content_info SET expired_time = 18446744073709551615",
         R"(["5: expired_time 1.84467440737096e+19"])"},
        {"given-up", "UPDATE content_info_status SET status = 2, fail_retry_count = 5 + (sync_id = 9)", R"(["9"])"},
        {"interrupted", "UPDATE content_info_status SET status = 1 WHERE sync_id = 9", R"(["9"])"},
        {"missing-table", "DROP TABLE folder_info", R"(["folder_info"])"},
        {"columns", "ALTER TABLE folder_info RENAME COLUMN folder_token TO x", R"(["x TEXT for folder_token TEXT"])"},
        {"version", "PRAGMA user_version = 103", R"(["103, not 104"])"},
        {"damaged",
         "PRAGMA writable_schema = 1; UPDATE sqlite_master SET rootpage = (SELECT rootpage FROM sqlite_master"
         " WHERE name = 'sqlite_autoindex_unique_data_1') WHERE name = 'sqlite_autoindex_folder_info_1'",
         ""},
    };
    expect("check", 0, {"Sound"});
    const std::string sound = bytes_of(STORE);
    for (const auto &one : cases) {
        raw(one.statements);
        const json findings = document("check --json")["findings"];
        ASSERT_EQ(findings.size(), 1U) << one.kind << findings;
        EXPECT_EQ(findings[0]["kind"], one.kind);
        EXPECT_TRUE(one.rows.empty() || findings[0]["rows"] == json::parse(one.rows)) << findings;
        expect("check", 1, {"[" + one.kind + "]"});
        std::ofstream(STORE, std::ios::binary) << sound;
    }
}

TEST_F(ZelStore, a_broken_off_write_is_undone_in_the_view_only)
{
    raw("UPDATE upload_request_data SET description = 'as it was'");
    EXPECT_EQ(end_of(start([] {
                  // More than the cache takes, so that the file is written to before the commit.
                  const auto open = raw("PRAGMA cache_size = 1; BEGIN; UPDATE upload_request_data SET description = "
                                        "'half'; CREATE TABLE filler (x); INSERT INTO filler VALUES(zeroblob(900000))");
                  raise(SIGKILL);
              })),
              SIGKILL);
    const std::string before = bytes_of(STORE) + bytes_of(STORE + "-journal");
    EXPECT_NE(before.find("half"), std::string::npos);
    expect("show", 0, {"a write was broken off", "\"as it was\""});
    expect("copy copied.db", 0, {"mode 0600"});
    EXPECT_EQ(fs::status("copied.db").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    expect("copy copied.db", 2, {"File exists"});
    EXPECT_EQ(document("show --json copied.db")["upload_request_data"], document("show --json")["upload_request_data"]);
    EXPECT_EQ(bytes_of(STORE) + bytes_of(STORE + "-journal"), before);
}

TEST_F(ZelStore, a_writer_without_a_pause_meets_nobody_and_no_view_is_torn)
{
    for (const std::string mode : {"DELETE", "WAL"}) {
        raw("PRAGMA journal_mode = " + mode);
        fs::remove("end");
        const size_t length = mode == "WAL" ? 20'000 : 200'000; // on many pages, and mostly in the log
        const pid_t writer = start([length] {
            EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
            for (unsigned int i = 1; access("end", F_OK) != 0; ++i) {
                const std::string text(length, static_cast<char>('a' + i % 26));
                ASSERT_EQ(_common_storage_update_upload_info(1, i * 1000, static_cast<int>(i)), ZEL_ERR_NONE);
                ASSERT_EQ(_common_storage_upsert_unique_data("key", text.c_str(), nullptr, nullptr, nullptr),
                          ZEL_ERR_NONE);
            }
        });
        std::istringstream views(tool("watch --json --secrets --interval 0.02 --views 40").second);
        std::ofstream("end") << "";
        EXPECT_EQ(end_of(writer), 0) << "a statement was refused: " << mode;
        std::set<int> chunks;
        for (std::string view; std::getline(views, view);) {
            const json read = json::parse(view);
            const json file = read["content_info_status"][0];
            chunks.insert(file["chunk_no"].get<int>());
            EXPECT_EQ(file["offset"], 1000 * file["chunk_no"].get<int>());
            const std::string text = read["unique_data"][0]["value"];
            EXPECT_TRUE(text == "a-long-secret" || text == std::string(length, text[0])) << mode;
            EXPECT_EQ(read["findings"], json::array());
        }
        EXPECT_GT(chunks.size(), 10U);
    }
}

TEST_F(ZelStore, hostile_texts_are_shown_and_not_obeyed)
{
    raw("UPDATE upload_request_data SET description = char(27,93,48,59,7,10,120,8238) || CAST(x'fffe' AS TEXT);"
        "UPDATE content_info_status SET name = char(155) || '31m', status = 1, fail_retry_count = 2 WHERE sync_id = 1");
    setenv("LC_ALL", "C", 1);
    expect("show", 0,
           {R"("\x1b]0;\x07\x0ax\u{202e}\xff\xfe")", R"(\u{9b}31m)", "Request 3000000000", "retry 2", "to +44 770~23",
            "\nupload file              0    10        1 "});
    const std::string shown = tool("show").second;
    EXPECT_TRUE(std::all_of(shown.begin(), shown.end(), [](char c) { return c == '\n' || (c >= ' ' && c < 127); }));
    for (const char *secret : {"a-long-secret", "7700900123", "share-token-1"}) {
        EXPECT_EQ((shown + tool("show --json").second).find(secret), std::string::npos);
        expect("show --secrets", 0, {secret});
    }
    EXPECT_EQ(document("show --json --request 3000000000")["contact_details"].size(), 1U);
    EXPECT_EQ(document("show --json --token share-token-1")["content_info"].size(), 1U);
    EXPECT_EQ(document("show --json --token share-token-1")["upload_request_data"].size(), 0U);
    expect("show --request 1", 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    expect("show", 0, {R"(\x1b]0;\x07\x0ax\u{202e}\xff\xfe")"});
}

TEST_F(ZelStore, what_cannot_be_read_is_told_and_the_rest_is_shown)
{
    std::ofstream("text.db") << std::string(5000, 'x');
    std::ofstream("empty.db") << "";
    std::string bytes = bytes_of(STORE);
    std::ofstream("cut.db") << bytes.substr(0, bytes.size() - 5000);
    std::fill_n(bytes.begin() + 100, 8, '\xff');
    std::ofstream("damaged.db") << bytes;
    expect("show missing.db", 2, {"there is no store"});
    expect("show /dev/null", 2, {"no regular file"});
    expect("check text.db", 2, {"[unreadable]", "file is not a database"});
    expect("trace text.db", 2, {"no line of it is the library's"});
    expect("check empty.db", 1, {"[missing-table]"});
    expect("check cut.db", 1, {"[cut]"});
    expect("show cut.db", 0, {"Request 3000000000"});
    expect("show damaged.db", 2, {"cannot open the file"});
    expect("init --wal", 0, {"write-ahead log is set"});
    const auto locked = raw("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE");
    expect("show", 0, {"(" + std::to_string(getpid()) + ")"}); // an emulated process has another name
    fs::permissions("cut.db", fs::perms::none);
    if (geteuid() != 0)
        expect("show cut.db", 2, {"Run zel-store as the service's user or as root"});
}

TEST_F(ZelStore, a_trace_is_read_with_and_without_threads_times_and_colours)
{
    EXPECT_EQ(end_of(start([] {
                  EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
                  const auto locked = raw("BEGIN EXCLUSIVE");
                  unsigned long long time = 0;
                  _common_storage_update_percentage_sync_content_info(1, 5);
                  _common_storage_get_received_time_push_noti("share-token-1", &time);
                  _common_storage_update_percentage_sync_content_info(0, 5);
              })),
              0);
    const struct {
        const char *prefix;
        bool has_threads, has_times;
    } cases[] = {
        {"\\1 \\2 \\3/QUILLO_COMMON: ", true, true},
        {"11-25 06:34:30.123  99 \\2 \\3 QUILLO_COMMON: ", true, true},
        {"\\3/QUILLO_COMMON( \\2): \x1b[0;36m", false, false},
        {"host service[12]: \\3/QUILLO_COMMON: ", false, false},
        {"", false, false},
    };
    for (const auto &one : cases) {
        const std::string command = "sed -E 's@(.{26}) ([0-9]+) ([A-Z])/QUILLO_COMMON: @";
        EXPECT_EQ(std::system((command + one.prefix + "@' trace.log >other.log").c_str()), 0);
        const json trace = document("trace --json other.log");
        EXPECT_EQ(trace["totals"]["has_threads"], one.has_threads ? 1 : 0) << one.prefix;
        EXPECT_EQ(trace["totals"]["has_times"], one.has_times ? 1 : 0) << one.prefix;
        for (const json &each : trace["operations"])
            EXPECT_TRUE(each["operation"] != "_common_storage_update_percentage_sync_content_info" ||
                        (each["calls"] == 2 && each["failures"] == 2 && each["statements"] == 1));
        const json failures = trace["failures"];
        ASSERT_EQ(failures.size(), 3U) << failures;
        EXPECT_EQ(failures[0]["code"], SQLITE_BUSY);
        EXPECT_EQ(failures[0]["attempts"], 10);
        EXPECT_EQ(failures[0]["statement"], "UPDATE 'content_info_status' SET percentage = 5 WHERE sync_id = 1");
        EXPECT_EQ(failures[0]["advice"].get<std::string>().find("busy: "), 0U);
        EXPECT_EQ(failures[1]["operation"], "_common_storage_get_received_time_push_noti");
        EXPECT_EQ(failures[1]["code"], SQLITE_BUSY);
        EXPECT_EQ(failures[2]["text"], "Invalid parameter");
        EXPECT_EQ(failures[2]["advice"].get<std::string>().find("an argument was missing"), 0U);
        expect("trace --tree other.log", one.has_threads ? 1 : 2);
    }
    expect("trace trace.log", 1, {"storage_update_percentage_sync_content_info", "SQLite    5, database is locked"});
    expect("trace --timeline events.json trace.log", 1);
    const json events = json::parse(bytes_of("events.json"))["traceEvents"];
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [](const json &event) { return event["name"] == "_common_storage_init"; }),
              1);
    expect("trace --tree trace.log", 1, {"\n      _common_storage_check_table_exist"});
}
