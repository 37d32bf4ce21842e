// zel-store on stores of the library, and on traces that it writes here through the host platform.
#include "zel_common_storage.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using nlohmann::json;

const std::string STORE = ZEL_DATABASE;

struct outcome {
    int status;
    std::string text;
};

/// Runs the tool; what it writes, errors included.
outcome tool(const std::string &arguments)
{
    FILE *const output = popen((ZEL_TEST_TOOL " " + arguments + " 2>&1").c_str(), "r");
    std::string text;
    for (int letter = fgetc(output); letter != EOF; letter = fgetc(output))
        text += static_cast<char>(letter);
    return {WEXITSTATUS(pclose(output)), text};
}

json document(const std::string &arguments)
{
    return json::parse(tool(arguments).text);
}

void expect(const std::string &arguments, int status, const std::string &part)
{
    const outcome found = tool(arguments);
    EXPECT_EQ(found.status, status) << arguments << ": " << found.text;
    EXPECT_NE(found.text.find(part), std::string::npos) << arguments << ": " << found.text;
}

/// A connection that does not go through the library, with what it is to do first.
struct raw_connection {
    sqlite3 *handle = nullptr;

    explicit raw_connection(const std::string &statements)
    {
        sqlite3_open(STORE.c_str(), &handle);
        EXPECT_EQ(sqlite3_exec(handle, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(handle);
    }
    ~raw_connection()
    {
        sqlite3_close(handle);
    }
    raw_connection(const raw_connection &) = delete;
    raw_connection &operator=(const raw_connection &) = delete;
};

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
        const auto folder =
            std::filesystem::path(ZEL_TEST_SCRATCH) / testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        std::filesystem::current_path(folder);
        expect("init", 0, "all 9 tables");
        EXPECT_EQ(end_of(start([] {
                      EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
                      zel_upload_request_info request = {};
                      request.req_id = 3000000000U; // which some columns hold as a negative number
                      request.status = QUILLO_UPLOAD_STATUS_FINISHED;
                      request.file_count = request.receiver_count = 1;
                      _common_storage_add_upload_request_info(&request);
                      _common_storage_add_upload_receiver_details(request.req_id, "7700900123", "44", 1);
                      _common_storage_add_recent_receiver("7700900123", "44", 1, 1);
                      _common_storage_update_timestamp_recent_receiver_group(1);
                      _common_storage_upsert_unique_data("key", "a-long-secret", nullptr, nullptr, nullptr);
                      _common_storage_add_push_noti_info("share-token-1", "event", 1, 1);
                  })),
                  0);
        raw_connection(
            "INSERT INTO content_info VALUES(5,1,0,9,'share-token-1','','','+4477','','o','t','a','',1,'b','m',0);"
            "INSERT INTO content_info_status VALUES(1,1,5,0,3000000000,0,0,100,0,0,1,'','','','','one.bin','','');"
            "INSERT INTO content_info_status VALUES(9,3,5,5,0,0,0,100,0,0,1,'','','','','','','')");
    }
};

} // namespace

TEST_F(ZelStore, CheckFindsEachContradiction)
{
    const std::string request =
        "INSERT INTO upload_request_data SELECT 99,req_id,1,3,1,0,0,'',1,'',1 FROM upload_request_data";
    const std::string transfer = "INSERT INTO content_info_status SELECT 8,";
    const struct {
        std::string kind, statements, rows;
    } cases[] = {
        {"duplicate-request", request, R"(["1","99"])"},
        {"duplicate-notification", "INSERT INTO push_noti_info VALUES(8,'share-token-1','',1,0,1)", R"(["1","8"])"},
        {"duplicate-group", "INSERT INTO recent_receiver_group VALUES(8,1,'')", R"(["1","8"])"},
        {"download-without-item", transfer + "2,5,77,0,0,0,0,0,0,1,'','','','','','',''", R"(["8"])"},
        {"upload-without-request", transfer + "1,5,0,77,0,0,0,0,0,1,'','','','','','',''", R"(["8"])"},
        {"recipient-without-request", "INSERT INTO contact_details VALUES(8,77,1,'1','')", R"(["8"])"},
        {"member-without-group", "INSERT INTO recent_receiver_details VALUES(8,1,'1','',7)", R"(["8"])"},
        {"file-count", "UPDATE upload_request_data SET file_count = 4", R"(["1: says 4, has 1"])"},
        {"recipient-count", "UPDATE upload_request_data SET receiver_count = 4", R"(["1: says 4, has 1"])"},
        {"finished-with-open-files", "UPDATE content_info_status SET status = 3 WHERE sync_id = 1", R"(["1"])"},
        {"unknown-value", "UPDATE content_info_status SET status = 6 WHERE sync_id = 9", R"(["9"])"},
        {"unknown-value", "UPDATE push_noti_info SET read_noti = 3", R"(["1"])"},
        {"unknown-value", "UPDATE content_info SET push_status = 4294967296", R"(["5"])"},
        {"floating-point", "UPDATE content_info SET expired_time = 18446744073709551615", R"(["5"])"},
        {"given-up", "UPDATE content_info_status SET status = 2, fail_retry_count = 6 WHERE sync_id = 9", R"(["9"])"},
        {"interrupted", "UPDATE content_info_status SET status = 1 WHERE sync_id = 9", R"(["9"])"},
        {"missing-table", "DROP TABLE folder_info", R"(["folder_info"])"},
        {"columns", "ALTER TABLE folder_info RENAME COLUMN folder_token TO x", R"(["x TEXT for folder_token TEXT"])"},
        {"version", "PRAGMA user_version = 103", "[]"},
    };
    expect("check", 0, "Sound");
    EXPECT_EQ(document("show --json")["summary"].dump().find(":1,"), std::string::npos) << "all is complete";
    const std::string sound = bytes_of(STORE);
    for (const auto &one : cases) {
        raw_connection(one.statements);
        const json findings = document("check --json")["findings"];
        ASSERT_EQ(findings.size(), 1U) << one.kind << findings;
        EXPECT_EQ(findings[0]["kind"], one.kind);
        EXPECT_EQ(findings[0]["rows"], json::parse(one.rows)) << one.kind;
        expect("check", 1, "[" + one.kind + "]");
        std::ofstream(STORE, std::ios::binary) << sound;
    }
}

TEST_F(ZelStore, ABrokenOffWriteIsUndoneInTheViewOnly)
{
    raw_connection("UPDATE upload_request_data SET description = 'as it was'");
    EXPECT_EQ(end_of(start([] {
                  // More than the cache takes, so that the file is written to before the commit.
                  const raw_connection open(
                      "PRAGMA cache_size = 1; BEGIN; UPDATE upload_request_data SET description = "
                      "'half'; CREATE TABLE filler (x); INSERT INTO filler VALUES(zeroblob(900000))");
                  raise(SIGKILL);
              })),
              SIGKILL);
    const std::string before = bytes_of(STORE);
    const std::string journal = bytes_of(STORE + "-journal");
    EXPECT_NE(before.find("half"), std::string::npos);
    expect("show", 0, "a write was broken off");
    expect("show", 0, "\"as it was\"");
    expect("copy copied.db", 0, "mode 0600");
    expect("copy copied.db", 2, "File exists");
    EXPECT_EQ(document("show --json copied.db")["uploads"], document("show --json")["uploads"]);
    EXPECT_EQ(bytes_of(STORE), before);
    EXPECT_EQ(bytes_of(STORE + "-journal"), journal);
}

TEST_F(ZelStore, AWriterWithoutAPauseMeetsNobodyAndNoViewIsTorn)
{
    for (const std::string mode : {"DELETE", "WAL"}) {
        raw_connection("PRAGMA journal_mode = " + mode);
        std::filesystem::remove("end");
        const pid_t writer = start([] {
            EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
            for (unsigned int i = 1; access("end", F_OK) != 0; ++i) {
                const std::string text(20000, static_cast<char>('a' + i % 26)); // on several pages
                ASSERT_EQ(_common_storage_update_upload_info(1, i * 1000, static_cast<int>(i)), ZEL_ERR_NONE);
                ASSERT_EQ(_common_storage_upsert_unique_data("key", text.c_str(), nullptr, nullptr, nullptr),
                          ZEL_ERR_NONE);
            }
        });
        std::istringstream views(tool("watch --json --secrets --interval 0.02 --views 40").text);
        std::ofstream("end") << "";
        EXPECT_EQ(end_of(writer), 0) << "a statement was refused: " << mode;
        std::set<int> chunks;
        for (std::string view; std::getline(views, view);) {
            const json read = json::parse(view);
            const json file = read["uploads"][0]["transfers"][0];
            chunks.insert(file["chunk_no"].get<int>());
            EXPECT_EQ(file["offset"], 1000 * file["chunk_no"].get<int>());
            const std::string text = read["keys"][0]["value"];
            EXPECT_TRUE(text == "a-long-secret" || text == std::string(20000, text[0])) << mode;
            EXPECT_EQ(read["findings"], json::array());
        }
        EXPECT_GT(chunks.size(), 10U);
    }
}

TEST_F(ZelStore, HostileTextsAreShownAndNotObeyed)
{
    raw_connection(
        "UPDATE upload_request_data SET description = char(27,93,48,59,7,10,120,8238) || CAST(x'fffe' AS TEXT);"
        "UPDATE content_info_status SET name = char(155) || '31m' WHERE sync_id = 1");
    setenv("LC_ALL", "C", 1);
    const outcome shown = tool("show");
    for (const char *part : {R"("\x1b]0;\x07\x0ax\u{202e}\xff\xfe")", R"(\u{9b}31m)", "Request 3000000000"})
        EXPECT_NE(shown.text.find(part), std::string::npos) << part << " in " << shown.text;
    for (const char letter : shown.text)
        EXPECT_TRUE(letter == '\n' || (letter >= ' ' && letter < 127)) << static_cast<int>(letter);
    for (const char *secret : {"a-long-secret", "7700900123", "share-token-1"}) {
        EXPECT_EQ(shown.text.find(secret), std::string::npos);
        expect("show --secrets", 0, secret);
    }
    EXPECT_EQ(document("show --json --request 3000000000")["uploads"].size(), 1U);
    EXPECT_EQ(document("show --json --token share-token-1")["received_shares"].size(), 1U);
    EXPECT_EQ(tool("show --request 1").status, 1);
    setenv("LC_ALL", "C.UTF-8", 1);
    expect("show", 0, R"(\x1b]0;\x07\x0ax\u{202e}\xff\xfe")");
}

TEST_F(ZelStore, WhatCannotBeReadIsToldAndTheRestIsShown)
{
    std::ofstream("text.db") << std::string(5000, 'x');
    std::ofstream("empty.db") << "";
    std::string bytes = bytes_of(STORE);
    std::ofstream("cut.db") << bytes.substr(0, bytes.size() - 5000);
    std::fill_n(bytes.begin() + 100, 8, '\xff');
    std::ofstream("damaged.db") << bytes;
    expect("show missing.db", 2, "there is no store");
    expect("show /dev/null", 2, "no regular file");
    expect("show text.db", 2, "file is not a database");
    expect("check text.db", 2, "[unreadable]");
    expect("trace text.db", 2, "no line of it is the library's");
    expect("check empty.db", 1, "[missing-table]");
    expect("check cut.db", 1, "[cut]");
    expect("show cut.db", 0, "Request 3000000000");
    expect("show damaged.db", 2, "malformed");
    const auto mode = [](const std::string &path) { return std::filesystem::status(path).permissions(); };
    EXPECT_EQ(mode(std::filesystem::path(STORE).parent_path()), std::filesystem::perms::owner_all);
    expect("init --wal", 0, "write-ahead log is set");
    const raw_connection locked("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE");
    expect("show", 0, "(" + std::to_string(getpid()) + ")"); // an emulated process has another name
    std::filesystem::permissions("cut.db", std::filesystem::perms::none);
    if (geteuid() != 0)
        expect("show cut.db", 2, "Run zel-store as that user or as root");
}

TEST_F(ZelStore, ATraceIsReadWithAndWithoutThreadsTimesAndColours)
{
    EXPECT_EQ(end_of(start([] {
                  EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
                  const raw_connection locked("BEGIN EXCLUSIVE");
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
        EXPECT_EQ(trace["has_threads"], one.has_threads) << one.prefix;
        EXPECT_EQ(trace["has_times"], one.has_times) << one.prefix;
        EXPECT_EQ(trace["operations"]["_common_storage_update_percentage_sync_content_info"]["calls"], 2);
        const json failures = trace["failures"];
        ASSERT_EQ(failures.size(), 3U) << failures;
        EXPECT_EQ(failures[0]["code"], SQLITE_BUSY);
        EXPECT_EQ(failures[0]["attempts"], 10);
        EXPECT_EQ(failures[0]["statement"], "UPDATE 'content_info_status' SET percentage = 5 WHERE sync_id = 1");
        EXPECT_EQ(failures[1]["operation"], "_common_storage_get_received_time_push_noti");
        EXPECT_EQ(failures[1]["code"], SQLITE_BUSY);
        EXPECT_EQ(failures[2]["text"], "Invalid parameter");
        EXPECT_EQ(tool("trace --tree other.log").status, one.has_threads ? 1 : 2);
    }
    EXPECT_EQ(tool("trace --timeline events.json trace.log").status, 1);
    const json events = json::parse(bytes_of("events.json"))["traceEvents"];
    EXPECT_EQ(std::count_if(events.begin(), events.end(),
                            [](const json &event) { return event["name"] == "_common_storage_init"; }),
              2);
    expect("trace --tree trace.log", 1, "\n      _common_storage_check_table_exist");
}
