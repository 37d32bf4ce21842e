// zel-store on a store of the library.

#include "zel_store.h"

#include <thread>
#include <unistd.h>

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
