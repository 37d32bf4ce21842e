// zel-store trace, on traces of the library and on lines that are written here.

#include "zel_store.h"

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
