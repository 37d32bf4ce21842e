// zel-store on a store of the library.

#include "zel_store.h"

#include <thread>
#include <unistd.h>

namespace
{

/// Rows of an empty store: two requests, a share and two groups, of which nothing contradicts anything.
constexpr char SOUND_ROWS[] =
    "INSERT INTO upload_request_data VALUES (1, 1, 2, 2, 1, 9000000000000, 20, '', 1, 'd', 1700000000),"
    " (2, 2, 1, 7, 1, 9000000000000, 10, 'shared', 1, NULL, 1700000000);"
    "INSERT INTO contact_details VALUES (1, 1, 1, '5', '44'), (2, 2, 1, '5', '44');"
    "INSERT INTO content_info VALUES"
    " (1, 9000000000, 0, 3, 't', '', '', 'f', NULL, 'o1', '', 'n1', '', 1, '', '', NULL),"
    " (2, 9000000000, 0, 3, 't', '', '', 'f', NULL, 'o2', '', 'n2', '', 0, '', '', NULL);"
    "INSERT INTO push_noti_info VALUES (1, 't', NULL, 9000000000, 0, 1700000000);"
    "INSERT INTO content_info_status VALUES"
    " (1, 1, 5, 0, 1, 0, 0, 100, 0, 0, 1700000000, '', '', '', '', 'a', '/a', ''),"
    " (2, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1700000000, '', '', '', '', 'b', '/b', ''),"
    " (3, 1, 5, 0, 2, 0, 0, 100, 0, 0, 1700000000, '', '', '', '', 'c', '/c', ''),"
    " (4, 3, 5, 1, 0, 0, 0, 100, 0, 0, 1700000000, 't', '', 'o1', '', 'n1', '/n1', ''),"
    " (5, 3, 0, 2, 0, 0, 0, 0, 0, 0, 1700000000, 't', '', 'o2', '', 'n2', '/n2', '');"
    "INSERT INTO recent_receiver_group VALUES (1, 1, '2023-11-14 22:13:20'), (2, 2, '2023-11-14 22:13:21');"
    "INSERT INTO recent_receiver_details VALUES (1, 1, '5', '44', 1), (2, 2, '6', '44', 2);";

/// A write that was broken off: more than the cache takes, so that the file is written to before the commit.
constexpr char HALF_A_WRITE[] = "PRAGMA cache_size = 1; BEGIN; UPDATE upload_request_data SET description = 'half';"
                                "CREATE TABLE filler (x); INSERT INTO filler VALUES(zeroblob(900000))";

/// Writes at a journal's end that it belongs to a commit over several files, as SQLite does.
void name_super_journal(const std::string &journal, const std::string &name)
{
    const auto number = [](guint32 value) {
        const guint32 stored = GUINT32_TO_BE(value);
        return std::string(reinterpret_cast<const char *>(&stored), sizeof stored);
    };
    guint32 sum = 0;
    for (const char letter : name)
        sum += static_cast<guint32>(letter);
    const guint32 page_of_the_lock = (1U << 30) / 4096 + 1; // which no page of the file can have
    std::ofstream(journal, std::ios::binary | std::ios::app)
        << number(page_of_the_lock) << name << number(static_cast<guint32>(name.size())) << number(sum)
        << "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
}

} // namespace

TEST_F(ZelStore, check_finds_each_contradiction)
{
    const std::pair<const char *, const char *> cases[] = {
        {"", ""},
        {"PRAGMA user_version = 103", "version 103, not 104"},
        {"DROP TABLE folder_info; CREATE VIEW folder_info AS SELECT 1",
         "missing-table folder_info; foreign-object view folder_info"},
        {"ALTER TABLE unique_data RENAME COLUMN reserv_1 TO other", "columns other TEXT for reserv_1 TEXT"},
        {"ALTER TABLE unique_data ADD COLUMN more", "columns declared otherwise"},
        {"CREATE TRIGGER spy AFTER INSERT ON unique_data BEGIN SELECT 1; END", "foreign-object trigger spy"},
        {"UPDATE sqlite_sequence SET seq = 1 WHERE name = 'contact_details'",
         "row-counter contact_details: id up to 2"},
        {"INSERT INTO upload_request_data VALUES (3, 1, 2, 2, 1, 9000000000000, 20, '', 1, 'd', 1700000000)",
         "duplicate-request 1, 3"},
        {"UPDATE upload_request_data SET contents_token = 'x'", "duplicate-token 1, 2"},
        {"UPDATE upload_request_data SET contents_token = ''", "shared-without-token 2"},
        {"UPDATE upload_request_data SET receiver_count = 0; DELETE FROM contact_details",
         "empty-request 1: files 2, recipients 0, 2: files 1, recipients 0"},
        {"UPDATE upload_request_data SET file_count = 9, receiver_count = 9",
         "file-count 1: says 9, has 2, 2: says 9, has 1; recipient-count 1: says 9, has 1, 2: says 9, has 1"},
        {"UPDATE upload_request_data SET expired_time = 1600000000000", "expired 1"},
        {"UPDATE upload_request_data SET status = 3", "finished-with-open-files 2"},
        {"UPDATE upload_request_data SET status = 5", "ended-with-open-files 2"},
        {"UPDATE upload_request_data SET status = 8 WHERE req_id = 2", "recalled-with-files 3"},
        {"UPDATE upload_request_data SET status = 6 WHERE req_id = 1", "running-though-paused 2"},
        {"UPDATE content_info_status SET status = 3 WHERE sync_id = 2", "paused-though-running 2"},
        {"DELETE FROM upload_request_data WHERE req_id = 1",
         "upload-without-request 1, 2; recipient-without-request 1"},
        {"UPDATE content_info_status SET req_id = 0 WHERE sync_id = 2",
         "file-count 1: says 2, has 1; goes-on-though-done 1; detached-upload 2"},
        {"INSERT INTO push_noti_info SELECT 2, contents_token, NULL, expired_time, 0, 0 FROM push_noti_info",
         "duplicate-notification 1, 2"},
        {"UPDATE content_info SET original = 'o'", "duplicate-item 1, 2"},
        {"UPDATE content_info SET from_msisdn = 'g' WHERE content_id = 1", "share-differs 1, 2"},
        {"UPDATE push_noti_info SET expired_time = 9000000001", "share-differs 1, 2"},
        {"UPDATE push_noti_info SET contents_token = 'u'",
         "notification-without-items 1; items-without-notification 1, 2"},
        {"DELETE FROM content_info WHERE content_id = 2", "download-without-item 5"},
        {"UPDATE content_info_status SET content_id = 2, status = 1 WHERE sync_id > 3",
         "duplicate-download 4, 5; interrupted 4, 5"},
        {"UPDATE content_info SET push_status = 2", "withdrawn 5"},
        {"UPDATE push_noti_info SET read_noti = 2", "withdrawn 5"},
        {"UPDATE content_info SET expired_time = 1600000000; UPDATE push_noti_info SET expired_time = 1600000000",
         "withdrawn 5"},
        {"UPDATE content_info SET downloaded = 1 - downloaded", "downloaded-differs 1, 2"},
        {"UPDATE content_info_status SET local_path = '', original = ''", "nowhere 2, 5"},
        {"CREATE TEMP TABLE n AS WITH n(i) AS (VALUES (6) UNION ALL SELECT i + 1 FROM n WHERE i < 16) SELECT * FROM n;"
         "INSERT INTO content_info_status SELECT i, 2, 1, i, 0, 0, 0, 0, 0, 0, 0, '', '', 'o', '', '', '', '' FROM n;"
         "INSERT INTO content_info SELECT i, 9000000000, 0, 3, 't', '', '', 'f', NULL, i, '', '', '', 0, '', '', NULL"
         " FROM n",
         "batch-exceeded download thumbnail: 11 of 10; interrupted 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16"},
        {"UPDATE content_info_status SET status = 2, fail_retry_count = 6 WHERE sync_id = 2",
         "goes-on-though-done 1; given-up 2"},
        {"UPDATE recent_receiver_group SET index_value = 2", "duplicate-group 1, 2; member-without-group 1"},
        {"UPDATE recent_receiver_group SET index_value = 3 WHERE id = 2;"
         "UPDATE recent_receiver_details SET group_id = 3 WHERE group_id = 2",
         "group-numbers 2: 3 of 2"},
        {"UPDATE recent_receiver_details SET number_id = 1, phone_no = '5'", "twin-groups 1, 2"},
        {"UPDATE push_noti_info SET read_noti = 3; UPDATE content_info_status SET percentage = 101 WHERE sync_id = 5;"
         "UPDATE recent_receiver_group SET time_stamp = 'now' WHERE id = 1",
         "unknown-value 1: read_noti 3; unknown-value 5: percentage 101; unknown-value 1: time_stamp now"},
        {"UPDATE upload_request_data SET file_count = NULL, contents_token = NULL WHERE req_id = 1;"
         "UPDATE content_info SET contents_token = ''; UPDATE push_noti_info SET contents_token = ''",
         "missing-value 1: file_count NULL, 1: contents_token NULL; missing-value 1: contents_token ; missing-value 1: "
         "contents_token , 2: contents_token "},
        {"UPDATE content_info_status SET offset = -5, fail_retry_count = -1, chunk_no = -1 WHERE sync_id = 2",
         "out-of-range 2: fail_retry_count -1, 2: chunk_no -1, 2: offset 4294967291"},
        {"UPDATE upload_request_data SET expired_time = 1600000000, sent_time = 1700000000000 WHERE req_id = 2",
         "wrong-time 2: expired_time 1600000000, 2: sent_time 1700000000000"},
        {"UPDATE upload_request_data SET expired_time = 1e19 WHERE req_id = 2",
         "floating-point 2: expired_time 1.0e+19"}};
    expect("rm -r apps && tool init", 0);
    raw(SOUND_ROWS);
    expect("cp $store sound", 0);
    const std::string check = R"(tool check | sed -nE 's/.*\[(.*)\]$/\1/p; s/^  where +\S+ ?//p' | paste -sd ' ;')";
    for (const auto &[statements, findings] : cases) {
        expect("cp sound $store", 0);
        raw(statements);
        std::string expected = findings;
        if (geteuid() != 0) // who cannot see every process cannot know that none is at work
            expected = expected.substr(0, expected.find("; interrupted"));
        EXPECT_EQ(expect(check + " | sed 's/;/; /g'", 0), expected + "\n") << statements;
    }
    raw("PRAGMA writable_schema = 1; UPDATE sqlite_master SET rootpage = 3 WHERE name = 'content_info'");
    expect("tool check", 1, {"[damaged]"});
}

TEST_F(ZelStore, what_cannot_be_read_is_told_and_the_rest_is_shown)
{
    expect("tool show missing.db", 2, {"there is no store"});
    expect("seq 2000 >text.db; tool check text.db", 2, {"[unreadable]", "file is not a database"});
    expect("head -c -5000 $store >cut.db; tool show --all cut.db || tool check cut.db", 1,
           {"Request 3000000005", "[cut]"});
    expect("tool copy $store :memory: && test -s :memory: && tool copy cut.db new.db", 2, {"cannot be read whole"});
    expect("TMPDIR=/missing; export TMPDIR; tool show", 2,
           {"/missing takes no private copy of the store: No such file"});
    expect("(head -c 100 $store; printf %8d 0; tail -c +109 $store) >bad.db; tool show bad.db", 2, {"cannot open"});
    auto open = raw(HALF_A_WRITE);
    expect("tool show", 0, {"(" + std::to_string(getpid()) + ")", "a write is under way"}); // emulated: another name
    expect("tool init", 2, {"Not all tables are there: database is locked. zel-store show tells who"});
    expect("cp -r ${store%/*} broken; grep half broken/.*.db", 0);
    if (geteuid() == 0)
        expect("tool show broken", 1, {"a write was broken off", "\"d0\"", "nobody has the store open"});
    else
        expect("tool show broken", 0, {"is under way or was broken off, which cannot be seen", "\"d0\""});
    open.reset();
    expect("tool init --wal", 0, {"write-ahead log is set"});
    open = raw("UPDATE upload_request_data SET description = 'in the log'");
    expect("tool show", 0, {"\"in the log\""});
    if (geteuid() != 0)
        expect("chmod 0 cut.db; tool show cut.db", 2, {"Run zel-store as the service's user or as root"});
}

TEST_F(ZelStore, a_journal_that_names_a_file_reaches_none)
{
    auto open = raw(HALF_A_WRITE);
    expect("cp -r ${store%/*} broken; echo precious >victim", 0);
    open.reset();
    name_super_journal("broken/.quillo_service.db-journal", std::filesystem::absolute("victim"));
    expect("cp -r broken before", 0);
    // As long as the named file is there, the write does not count.
    expect("tool show broken; tool check broken; tool watch --views 1 broken; tool copy broken undone; cat victim", 0,
           {"\"d0\"", "[super-journal]", "victim, which is there", "undone is a copy", "precious"});
    expect("diff --recursive before broken && tool show undone", 0, {"\"d0\""});
    expect("cp broken/.*-journal $store-journal; tool init || cat victim", 0, {"names a file", "precious"});
    expect("rm victim; tool check broken && exit; tool show broken", 1, {"victim, which is gone", "\"half\""});
}

TEST_F(ZelStore, nothing_holds_the_reader_up)
{
    expect("for part in '' -journal -wal; do rm -rf held; cp -r ${store%/*} held; rm -f held/.*.db$part;"
           "mkfifo held/.quillo_service.db$part; timeout 20 " ZEL_TEST_TOOL " show held; echo $?; done | sort -u",
           0, {"no regular file"});
    expect("rm held/.*-wal; ln -s /etc/passwd held/.quillo_service.db-wal; tool show held", 2, {"no regular file"});
    raw("DROP TABLE folder_info; CREATE VIEW folder_info AS WITH n(x) AS (VALUES (1) UNION ALL SELECT x + 1 FROM n)"
        " SELECT x, 1, 1, 1, 1, 1 FROM n; CREATE VIEW spare AS SELECT 1");
    expect("tool show --all", 1, {"Tables are missing", "Request 7 "});
    raw("ALTER TABLE unique_data RENAME TO old; CREATE TABLE unique_data (key, value AS (hex(zeroblob(1 << 28))))");
    raw("INSERT INTO unique_data (key) VALUES (1), (2)");
    expect("tool show --all", 1, {"1 = "});
    // A signal ends it at any moment, and nothing is left.
    raw("WITH n(i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 300000) INSERT INTO contact_details"
        " SELECT NULL, i, i, '', '' FROM n");
    expect("mkdir tmp; export TMPDIR=$PWD/tmp; for s in INT TERM HUP; do for t in 0.02 0.1 0.5; do"
           " timeout -s $s -k 10 $t " ZEL_TEST_TOOL
           " check >out; test $? = 124 -o $s = HUP || echo late; done; done; ls -A tmp",
           0);
}

TEST_F(ZelStore, what_is_shown_costs_what_it_holds)
{
    long long steps[2] = {};
    for (const int round : {0, 1}) {
        raw("WITH n(i) AS (SELECT max(req_id) + 1 FROM upload_request_data UNION ALL SELECT i + 1 FROM n LIMIT " +
            std::string(round == 0 ? "400" : "600") +
            ") INSERT INTO upload_request_data SELECT NULL, i, 10, 2, 1, 0, 1, '', 1, '', 1 FROM n;"
            "DELETE FROM content_info_status; INSERT INTO content_info_status SELECT NULL, 1, 0, 0, req_id, 0, 0, 0, "
            "0, 0,"
            " 1, '', '', '', '', 'IMG_' || value || '.jpg', '', '' FROM upload_request_data JOIN "
            "json_each('[0,1,2,3,4,5,6,7,8,9]')");
        const auto document = nlohmann::json::parse(expect("tool show --json", 0));
        EXPECT_EQ(document["content_info_status"].size(), document["upload_request_data"].size() * 10);
        steps[round] = document["store"]["steps"];
    }
    EXPECT_GT(steps[0], 10);
    EXPECT_LT(steps[1], 3 * steps[0]); // two and a half times as much is there
    const auto one = nlohmann::json::parse(expect("tool show --json --request 3000000010", 0));
    EXPECT_EQ(one["content_info_status"].size(), 10U);
    EXPECT_LT(one["store"]["steps"].get<long long>(), steps[1] / 3);
}

TEST_F(ZelStore, what_it_makes_is_its_users_and_in_nobodys_place)
{
    expect("rm -r apps && umask 000 && tool init && stat -c '%a %F' $store ${store%/*}", 0,
           {"600 regular file", "700 directory"});
    expect("ln -s nowhere link; tool copy link", 2, {"link: File exists"});
    expect("tool copy new && stat -c %a new && tool copy new; tool copy missing/new", 2,
           {"600", "new: File exists", "missing/new: No such file"});
    expect("rm $store; ln -s $PWD/elsewhere $store; tool init || ls elsewhere", 2, {"is a link", "cannot access"});
}

TEST_F(ZelStore, what_cannot_be_known_is_not_said)
{
    const auto held = raw("");
    const std::string process = "(" + std::to_string(getpid()) + ")";
    expect("cp $store other; mv other $store; tool show; tool check", 1,
           {"replaced or deleted, but still open in", process, "[replaced]"});
    expect("rm $store; tool show", 2, {"was deleted, and ", process});
}

TEST_F(ZelStore, a_wrong_command_line_is_refused_with_its_fault)
{
    expect("tool shwo; tool show --request abc; tool copy; tool show --nothing; tool watch --interval nan; tool", 2,
           {"no command \"shwo\"", "not \"abc\"", "copy takes [STORE] TO", "Unknown option --nothing",
            "--interval takes", "A command is missing"});
    expect("tool --help; tool show --help; tool --version", 0, {"Usage: zel-store", "--request=ID", "Manual"});
    expect("tool show >/dev/full", 2, {"No space left on device"});
}

TEST_F(ZelStore, hostile_texts_are_shown_and_not_obeyed)
{
    raw("UPDATE upload_request_data SET description = char(27,93,48,59,7,10,120,8238,133,8232,127) || CAST(x'fffe' AS "
        "TEXT);"
        "UPDATE content_info_status SET name = char(155) || '31m', fail_retry_count = 2, offset = 'x',"
        "percentage = 'x' WHERE sync_id = 2");
    expect("LC_ALL=C.UTF-8; tool show --all", 0, {R"("\x1b]0;\x07\x0ax\u{202e}\u{85}\u{2028}\x7f\xff\xfe")"});
    expect("tool show --all", 0,
           {R"(\x1b]0;)", R"(\u{9b}31m)", "Request 3000000005", "retry 2", "to +44 770~23, ~, +44 ", "k = ~",
            "\nupload file              0    10        1        2       2         4         1\n"});
    expect(
        "tool show --all | grep '[^ -~]'; tool check | grep '[^ -~]'; tool show --all --json >json; grep '[^ -~]' json",
        1);
    expect("tool show | grep -m 1 ^Request", 0, {"Request 7 "}); // the newest
    expect(R"((tool show --all; tool show --all --json) | grep -E '7700900123|k = v|"v"|"t"|"from"')", 1);
    expect("tool show --all --secrets", 0, {"7700900123", "k = v", "Share t", "from from"});
    expect("tool show --json --request 3000000005", 0, {R"("contact_details":[{"ccc":"8",)", R"("push_noti_info":[])"});
    expect("tool show --json --token t", 0, {R"("content_info":[{)", R"("upload_request_data":[])"});
    expect("tool show --request 1", 1, {"Nothing matches"});
}

TEST_F(ZelStore, at_night_only_what_is_unfinished_is_shown_and_why)
{
    expect("rm -r apps && tool init", 0);
    raw(SOUND_ROWS);
    raw("UPDATE content_info_status SET status = 2, fail_retry_count = 1, sent_time = strftime('%s', 'now') - 7300"
        " WHERE sync_id = 2; INSERT INTO unique_data VALUES"
        " ('sharingd.trouble.transfer.2', 'The server did not answer in time.', '-8', '', '')");
    const std::string view = expect("tool show", 0,
                                    {"Request 1 ", "files 2, complete 1", "transfer 2 ", "(2 hours ago)", "retry 1",
                                     "      The server did not answer in time. (-8)\n", "item 2 ", "transfer 5 ",
                                     "unfinished: 1 uploads, 3 transfers, 2 groups, 1 keys. --all shows everything."});
    for (const char *over : {"Request 2 ", "transfer 1 ", "item 1 ", "Recent groups"})
        EXPECT_EQ(view.find(over), std::string::npos) << over;
    // On a terminal a name keeps its end, and letters that are wide count twice.
    raw("UPDATE content_info_status SET name = 'IMG_20261125_120000_' || substr('\u4e2d\u6587\u4e2d\u6587', 1, "
        "sync_id) ||"
        " '_00' || sync_id || '.jpg', local_path = '/x'");
    expect("export LC_ALL=C.UTF-8 TERM=xterm; script -qec 'stty cols 60 rows 30; " ZEL_TEST_TOOL
           " show --request 1' /dev/null | tr -d '\\r'",
           0, {"…", "_001.jpg", "_002.jpg"});
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
        expect("tool watch --all --json --secrets --interval 0.02 --views 40 >views", 0);
        // Each is whole: no findings, the numbers of one write, one letter only.
        expect(R"(tr -s A-Z <views | grep -Ec '"findings":\[\].*"sync_id":1,[^}]*"offset":([0-9]+)(000)?,)"
               R"("chunk_no":\1,.*"key":"k","value":"[A-Zv]"')",
               0, {"40\n"});
        expect("test $(grep -o '\"chunk_no\":[1-9][0-9]*' views | sort -u | wc -l) -gt 10", 0);
    }
}
