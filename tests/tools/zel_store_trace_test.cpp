// zel-store trace, on traces of the library and on lines that are written here.

#include "zel_store.h"

#include "zel_platform.h"

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
    // Prefix, whether it has threads and times. The library's time, thread and priority are \1, \2 and \3.
    const std::tuple<std::string, std::string, std::string> forms[] = {
        {R"(\1 \2 \3/QUILLO_COMMON: )", "1", "1"},
        {R"(11-25 06:34:30.123  99 \2 \3 QUILLO_COMMON: )", "1", "1"},
        {"\\3/QUILLO_COMMON( \\2): \x1b[0;36m", "0", "0"},
        {"", "0", "0"},
        // For the journal, and as it prints them: short, short-iso-precise, short-precise.
        {R"(<6>\2 \3/QUILLO_COMMON: )", "1", "0"},
        {R"(Nov 25 06:34:30 host service[12]: \2 \3/QUILLO_COMMON: )", "1", "0"},
        {R"(2026-11-25T06:34:30.123456+01:00 host service[12]: \2 \3/QUILLO_COMMON: )", "1", "1"},
        {R"(Nov 25 06:34:30.123456 service[12]: \1 \2 \3/QUILLO_COMMON: )", "1", "1"},
    };
    for (const auto &[prefix, has_threads, has_times] : forms) {
        expect("sed -E 's@(.{26}) ([0-9]+) ([A-Z])/QUILLO_COMMON: @" + prefix + "@' trace.log >other.log", 0);
        expect("tool trace --json other.log", 1,
               {R"([{"advice":"busy: )", R"("attempts":10,"code":5,"count":1,)", R"("},{"advice":"busy: )",
                update + R"("statement":"UPDATE 'content_info_status' SET percentage = 5 WHERE sync_id = 1",)",
                R"("No records found"},{"advice":"an argument was missing)", update + R"("statements":1,)",
                update + R"("statement":"","text":"Invalid parameter"}],"operations":[)", R"("calls":2,"failures":2,)",
                R"(_exist","statements":9,)", R"("has_threads":)" + has_threads + R"(,"has_times":)" + has_times});
        expect("tool trace --tree other.log", has_threads == "1" ? 1 : 2,
               {has_threads == "1" ? "\n      _common_" : "a guess"});
    }
    expect("printf 'f(1):  * Critical * %s\n' 'No records found' 'Fail:Filesize is zero' | tool trace -", 0,
           {"failure: 0"});
}

TEST_F(ZelStore, calls_nest_and_end_without_an_end)
{
    std::ofstream trace("trace.log");
    for (const char *const line :
         {"a(1):  BEGIN >>>>", "b(1):  BEGIN >>>>", "b(2):  * Critical * Invalid",
          "__execute_select_query(1):  BEGIN >>>>", "__execute_select_query(2):  query[one]",
          "a(2): sqlite3_finalize = [0]", "c(1):  BEGIN >>>>", "__execute_query(1):  query [two]",
          "__execute_query(2): failed to execute [x], err[5], SQLITE_BUSY [5]",
          "__execute_query(3):  * Critical * Retried for 10 times - returning", "__execute_query(1):  query [three]",
          "c(2):  * Critical * not two's", "c(3):  END <<<<", "a(3):  END <<<<", "b(1):  BEGIN >>>>", "b(3):  END <<<<",
          "w(1):  BEGIN >>>>"})
        trace << "7 I/QUILLO_COMMON: " << line << "\n";
    trace.close();
    expect("tool trace --tree trace.log", 1,
           {"thread 7\n  a\n    b\n      Invalid\n    __execute_select_query\n      one\n    c\n      two\n      5 x\n"
            "      Retried for 10 times - returning\n      three\n      not two's\n  b\n  w\n"});
    expect("tool trace trace.log | sed -n 's/ *? *?  / /p'", 0,
           {"      2        1          0 b\n", "      1        0          1 a\n", "      1        1          2 c\n",
            "      1        0          0 w\n"});
    expect("tool trace --json trace.log", 1, {R"("code":0,"count":1,"first_line":12,)"});
}

TEST_F(ZelStore, a_timeline_is_new_whole_and_for_its_user_alone)
{
    expect(
        "printf '2026-11-25 06:34:30.%06d 7 I/QUILLO_COMMON: f(1):  %s\n' 5 'BEGIN >>>>' 9 'query [x]' 25 'END <<<<' "
        ">trace.log; tool trace --timeline events trace.log && stat --format 'mode %a' events",
        0, {"mode 600"});
    expect("mv events events.json; cat events.json", 0,
           {R"("traceEvents":[{"dur":0,"name":"x","ph":"i","pid":1,"s":"t","tid":7,"ts":0})",
            R"({"dur":20,"name":"f","ph":"X","pid":1,"s":"t","tid":7,"ts":-4}])"});
    expect("cp trace.log kept; tool trace --timeline trace.log trace.log || cmp kept trace.log", 0,
           {"trace.log: File exists"});
    expect("sed 's/^.* 7/7/' trace.log | tool trace --timeline none -; ls none", 2,
           {"carry no times", "none': No such"});
    // Ended while it reads: nothing is there, under no name.
    expect("mkdir folder; (cat trace.log; sleep 2) | timeout 1 " ZEL_TEST_TOOL " trace --timeline folder/new -;"
           "echo ended with $?, files: $(ls -A folder)",
           0, {"ended with 124, files:\n"});
}

TEST_F(ZelStore, a_text_in_a_trace_is_no_line)
{
    ASSERT_TRUE(freopen("trace.log", "w", stderr));
    _common_storage_init();
    const std::string forged = "2026-11-25 06:34:30.123456 7 E/QUILLO_COMMON: g(1):  * Critical * forged";
    const std::string value = "a\n" + forged + "\n\\n\u2028\x1b[0;31m";
    const auto locked = raw("BEGIN EXCLUSIVE");
    _common_storage_upsert_unique_data("k", value.c_str(), nullptr, nullptr, nullptr);
    dlog_print(DLOG_INFO, "OTHER", "%s\n", forged.c_str());
    expect("tool trace --json trace.log", 1, {R"('a\n2026-11-25)", " * Critical * forged\\n\\\\n\u2028\\u001b[0;31m'"});
    expect("tool trace trace.log | grep -c '^g'", 1);
    // Other programs' lines, and those of a program that puts a stranger's text in front.
    expect("for line in 'x " + forged + "' 'name[1]: " + forged + "' 'Nov 25 06:34:30 host name[1]: x " + forged +
               "' '" +
               "11-25 06:34:30.123 99 7 I OTHER: g(1):  * Critical * forged'; do echo \"$line\"; done | tool trace -",
           2, {"no line of it is the library's"});
    // The text after a line break belongs to a statement of a platform that does not escape.
    expect("printf '%s\n' 'I/QUILLO_COMMON: f(1):  query [a' 'b]' 'I/QUILLO_COMMON: f(1): failed to execute [x' "
           "'y], err[1], SQLITE_BUSY [5]' 'I/QUILLO_COMMON: f(2):  * Critical * bad' 'and more' | tool trace --json -",
           1, {R"("code":1,"count":1,"first_line":5,"operation":"f","statement":"a\nb","text":"bad")"});
}

TEST_F(ZelStore, a_line_is_taken_apart_by_its_outer_marks)
{
    // The last number is the thread. A line without the tag is another program's if others have it. A carriage return
    // is a terminal's. An escaped backslash at the end is text, and so are brackets and half a colour.
    expect(
        R"(printf '%b\n' '11-25 06:34:30.123  99 7 I QUILLO_COMMON: f(1):  BEGIN >>>>' 'g(1):  * Critical * forged' )"
        R"('7 I/QUILLO_COMMON: f(2):  query [a], err[1] [b]]\r' )"
        R"('7 I/QUILLO_COMMON: f(2): failed to execute [x], err[1], y], err[19], SQLITE_BUSY [5]' )"
        R"('7 I/QUILLO_COMMON: f(2):  * Critical * bad \033[0x \\\\' '7 I/QUILLO_COMMON: f(3):  END <<<<' >some;)"
        "tool trace --tree some",
        1, {"thread 7\n  f\n    a], err[1] [b]\n    19 x], err[1], y\n    bad \\x1b[0x \\\n"});
    expect("printf '2026-11-25T06:34:30.%s f(1): x\n' 5+01:00 '75-00:30' | sed 's/T06\\(.*-\\)/T05\\1/' | tool trace -",
           0, {"seconds: 1800.250"});
}

TEST_F(ZelStore, a_long_line_of_the_journal_is_put_together)
{
    const std::string rows =
        "printf '<6>%s\n' '7 I/QUILLO_COMMON: f(1):  query [a\\' '8 I/QUILLO_COMMON: g(1): x' "
        "'7 I/QUILLO_COMMON: \\g(1):  * Critical * b\\\\\\' '7 I/OTHER: \\c' '8 I/QUILLO_COMMON: \\d' "
        "'7 I/QUILLO_COMMON: \\c]' '7 E/QUILLO_COMMON: f(2): failed to execute [x], err[19], ' "
        "'7 E/QUILLO_COMMON: f(2):  * Critical * bad' '7 I/QUILLO_COMMON: \\late'";
    expect(rows + " | tool trace --json -", 1,
           {R"("statement":"ag(1):  * Critical * b\\c","text":"bad")", R"("lines":4,)"});
    // Without its end it ends where its thread goes on.
    expect(rows + " | grep -v 'c]' | tool trace --json -", 1, {R"("code":19,)", R"("text":"bad")", R"("lines":4,)"});
}

TEST_F(ZelStore, no_trace_is_too_much_and_none_reaches_the_terminal)
{
    const std::string tag = "7 I/QUILLO_COMMON: f(1): ";
    const auto write = [&](const std::string &lines) { std::ofstream("trace.log") << lines; };
    write(tag + " BEGIN >>>> \x1b[0\n" + tag + "\x1b[");
    expect("tool trace trace.log", 0, {"2 lines of the library"});
    std::string refusals = tag;
    for (int i = 0; i < 2000; ++i)
        refusals += "failed to execute [";
    write(refusals + "\n" + tag + " * Critical * bad\n");
    expect("tool trace trace.log", 1, {"f: bad"});
    write(tag + " query [a" + std::string(3'000'000, 'x') + "z]\n" + tag + "failed to execute [x], err[5], \n" + tag +
          " * Critical * bad\n");
    expect("tool trace trace.log | cut -c 1-30; tool trace --tree trace.log | wc -c", 0, {"statement ax", "524"});
    // More calls, threads and kinds of failure than there are.
    std::string many;
    for (int i = 0; i < 3000; ++i)
        many += tag + " * Critical * " + std::to_string(i) + "\n";
    for (int i = 0; i < 110'000; ++i)
        many += std::to_string(i) + " I/QUILLO_COMMON: f" + std::to_string(i / 10) + "(1):  BEGIN >>>>\n";
    write(many);
    expect("tool trace --json trace.log", 1,
           {R"("calls":10020,"failures":0,"longest_us":0,"operation":"further_operations")", R"("lines":113000)"});
    expect("tool trace trace.log | grep -A 1 ': further'", 0,
           {"further complaints\n  found     2000 times, first in line 1001"});
    // Controls, C1 among them, marks of the direction, separators, invalid bytes.
    const std::string odd = "\x01\x1b]0;x\x07\x7f\u009b\u202e\u2028\u2029\u200f\xff \\u{202e}\\x1b\\u{9b}\\x0a";
    const std::string front = "2026-11-25 06:34:30.123456 7 I/QUILLO_COMMON: f(1): ";
    write(front + " BEGIN >>>>\n" + front + " query [" + odd + "]\n" + front + "failed to execute [" + odd +
          "], err[5], \n" + front + " * Critical * " + odd + "\n");
    for (const std::string view : {"tool trace", "tool trace --tree", "tool trace --js'on'", "tool trace --timeline t"})
        expect("export LC_ALL=C.UTF-8; (" + view +
                   " trace.log; cat t 2>/dev/null) >view; iconv -f UTF-8 view >/dev/null &&"
                   "grep -q 202e view && ! grep -aP '[\\p{Cc}\\p{Cf}\\p{Zl}\\p{Zp}]' view",
               0);
    expect("tool trace trace.log >/dev/full", 2, {"standard output: No space left on device"});
    expect(": >trace.log; tool trace trace.log || tool trace . || tool trace missing", 2,
           {"is empty", "Is a directory", "missing: No such file"});
}
