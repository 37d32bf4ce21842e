// The host platform itself, without the recording one.
#include "zel_platform_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono;

namespace
{

bool has_memory = true, has_files_in_memory = true;

/// Standard error that leads elsewhere: to a socket that keeps every write apart, or to what is given.
class diverted
{
  public:
    explicit diverted(int to = -1, int from = -1) : ends{to, from}
    {
        if (to < 0 && socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
            ADD_FAILURE();
        dup2(ends[0], STDERR_FILENO);
    }
    ~diverted()
    {
        dup2(saved, STDERR_FILENO);
        for (const int end : {ends[0], ends[1], saved})
            close(end);
    }
    /// A write, or as many as make so many lines.
    std::string next(std::ptrdiff_t lines = 0) const
    {
        std::string written;
        do {
            pollfd readable = {ends[1], POLLIN, 0};
            std::string piece(200000, '\0');
            const bool has_come = poll(&readable, 1, 10000) == 1;
            piece.resize(has_come ? static_cast<size_t>(read(ends[1], piece.data(), piece.size())) : 0);
            EXPECT_NE(piece, "");
            written += piece;
        } while (std::count(written.begin(), written.end(), '\n') < lines && !testing::Test::HasFailure());
        return written;
    }
    /// The text after time, thread and tag.
    std::string message(std::ptrdiff_t lines = 0) const
    {
        const std::string line = next(lines);
        return line.substr(std::min(line.size(), line.find("/TAG: ") + sizeof "/TAG: " - 1));
    }

  private:
    int ends[2], saved = dup(STDERR_FILENO);
};

std::string output_of(const std::string &command)
{
    FILE *const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int byte = 0; (byte = fgetc(pipe)) != EOF;)
        output += static_cast<char>(byte);
    EXPECT_EQ(pclose(pipe), 0);
    return output;
}

} // namespace

extern "C" void *__real_malloc(size_t);
extern "C" void *__wrap_malloc(size_t size)
{
    return has_memory ? __real_malloc(size) : nullptr;
}
extern "C" int __real_memfd_create(const char *, unsigned int);
extern "C" int __wrap_memfd_create(const char *name, unsigned int flags)
{
    return has_files_in_memory ? __real_memfd_create(name, flags) : -1;
}

TEST(HostPlatform, each_line_is_one_write_to_standard_error)
{
    const diverted standard_error;
    const auto in_front = [] { return "####-##-## ##:##:##.###### " + std::to_string(getpid()) + " "; };
    const auto expect = [&](const std::string &expected, int priority, const std::string &text) {
        const auto before = floor<microseconds>(system_clock::now());
        errno = EDOM;
        const int length = dlog_print(static_cast<log_priority>(priority), "TAG", "%s", text.c_str());
        EXPECT_EQ(errno, EDOM);
        std::string line = standard_error.next();
        EXPECT_EQ(static_cast<size_t>(length), line.size());
        ASSERT_GT(line.size(), in_front().size());
        std::tm second = {};
        strptime(line.c_str(), "%Y-%m-%d %H:%M:%S", &second);
        const microseconds fraction(atoi(line.c_str() + line.find('.') + 1));
        const auto time = system_clock::from_time_t(timegm(&second)) + fraction;
        EXPECT_TRUE(before <= time && time <= system_clock::now()) << line;
        std::replace_if(line.begin(), line.begin() + sizeof "2026-11-25 06:34:30.123456" - 1, isdigit, '#');
        EXPECT_EQ(line, in_front() + expected + "\n");
    };
    EXPECT_EQ(dlog_print(DLOG_SILENT, "TAG", "text"), 0);
    expect("I/TAG: ended", DLOG_INFO, "ended\n");
    expect("?/TAG: beyond", DLOG_PRIO_MAX + 1, "beyond");
    // The second one is the first that the usual buffer has no room for.
    for (const std::string &text :
         {std::string(20000, 'x'), std::string(8192 - (in_front() + "I/TAG: ").size(), 'y'), std::string("z")})
        expect("I/TAG: " + text, DLOG_INFO, text);
    if (fork() == 0) {
        sleep(1); // the second has changed since its parent computed it
        expect("I/TAG: a child's line", DLOG_INFO, "a child's line");
        _exit(HasFailure());
    }
    int status = -1;
    EXPECT_GT(wait(&status), 0);
    EXPECT_EQ(status, 0);
}

TEST(HostPlatform, a_text_never_makes_a_line_of_its_own_nor_an_order_to_a_terminal)
{
    const diverted standard_error;
    const std::string padding(70, '.'); // so that a block has nothing else that is odd
    const std::pair<std::string, std::string> cases[] = {
        {"a\nb\r\n", R"(a\nb\r)"}, // the format's newline goes, and one of the text's
        {"tab\t, \\ and \\n", R"(tab	, \\ and \\n)"},
        {"\033[0;31mred\033[0m \033]0;title\007 \177", R"(\x1b[0;31mred\x1b[0m \x1b]0;title\x07 \x7f)"},
        {"caf\u00e9 \u65e5\u672c \U0001f600 \u200d \u00a0", "caf\u00e9 \u65e5\u672c \U0001f600 \u200d \u00a0"},
        {"\u0085 \u009b \u061c \u200e \u2028 \u202e \u2066",
         R"(\u{85} \u{9b} \u{61c} \u{200e} \u{2028} \u{202e} \u{2066})"},
        {"\x80 \xc0\xaf \xe0\x80\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xff \xf0\x9f\x98",
         R"(\x80 \xc0\xaf \xe0\x80\xaf \xed\xa0\x80 \xf4\x90\x80\x80 \xff \xf0\x9f\x98)"},
    };
    for (const auto &[text, expected] : cases) {
        dlog_print(DLOG_INFO, "TAG", "%s\n", text.c_str());
        EXPECT_EQ(standard_error.message(), expected + "\n");
    }
    for (const auto &[text, expected] :
         {std::pair("\\", R"(\\)"), {"\177", R"(\x7f)"}, {"\1", R"(\x01)"}, {"\200", R"(\x80)"}}) {
        dlog_print(DLOG_INFO, "TAG", "%s%s%s\n", padding.c_str(), text, padding.c_str());
        EXPECT_EQ(standard_error.message(), padding + expected + padding + "\n");
    }
}

TEST(HostPlatform, only_colours_of_a_format_are_colours_and_only_on_a_terminal)
{
    const auto write = [] {
        dlog_print(DLOG_ERROR, "TAG", "%s(%d): \033[0;31m%s\033[0;m\n", "f", 1, "\033[0;32m%d\033[0;m\n");
        dlog_print(DLOG_ERROR, "TAG", "\033[1m\033[0m\033[2J\033[1\n");
    };
    const std::string text = R"(\x1b[0;32m%d\x1b[0;m)", orders = R"(\x1b[2J\x1b[1)";
    {
        const diverted standard_error;
        write();
        EXPECT_EQ(standard_error.message(), "f(1): " + text + "\n");
        EXPECT_EQ(standard_error.message(), orders + "\n");
        const std::string dots(600, '.');
        const std::string long_format = "\033[1m" + dots + "\033[0m%s";
        dlog_print(DLOG_ERROR, "TAG", long_format.c_str(), "end");
        EXPECT_EQ(standard_error.message(), dots + "end\n");
    }
    const int controller = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(grantpt(controller) == 0 && unlockpt(controller) == 0);
    const int terminal = open(ptsname(controller), O_RDWR | O_NOCTTY);
    termios raw = {};
    tcgetattr(terminal, &raw);
    cfmakeraw(&raw);
    tcsetattr(terminal, TCSANOW, &raw);
    const diverted standard_error(terminal, controller);
    std::thread(write).join(); // a thread that has not looked yet where standard error leads
    const std::string written = standard_error.next(2);
    EXPECT_NE(written.find("/TAG: f(1): \033[0;31m" + text + "\033[0;m\n"), std::string::npos) << written;
    EXPECT_NE(written.find("/TAG: \033[1m\033[0m" + orders + "\n"), std::string::npos) << written;
}

TEST(HostPlatform, the_journal_gets_levels_and_lines_that_it_takes)
{
    const std::string text =
        std::string(49000, 'x') + std::string(100, '\n') + "\u65e5\u672c" + std::string(60000, 'y');
    constexpr size_t SHIFTS = 100;    // so that each byte stands at a part's end
    if (getenv("ZEL_TEST_JOURNAL")) { // a process of the case below
        for (int priority = DLOG_UNKNOWN; priority <= DLOG_FATAL; ++priority)
            dlog_print(static_cast<log_priority>(priority), "TAG", "\033[1mtext\033[m\n");
        for (size_t shift = 0; shift < SHIFTS; ++shift)
            dlog_print(DLOG_ERROR, "TAG", "%s\n", text.c_str() + shift);
        return;
    }
    // Its stream is known by its numbers; any other gets times.
    const std::string output = output_of(
        "lines() { " ZEL_TEST_ITSELF " --gtest_filter='*journal*' 2>&1 >/dev/null; };"
        "export ZEL_TEST_JOURNAL=1;"
        "{ JOURNAL_STREAM=$(stat --dereference --format %d:%i /dev/fd/3) lines; } 3>&1 | cat;"
        "{ JOURNAL_STREAM=$(stat --dereference --format %d:1 /dev/fd/3) lines; } 3>&1 | cut -c 1-2 | sort -u");
    const std::string thread = output.substr(3, output.find(' ') - 2);
    std::string escaped = text;
    for (size_t at = 0; (at = escaped.find('\n', at)) != std::string::npos;)
        escaped.replace(at, 1, "\\n");
    std::string expected;
    for (const std::string mark : {"<6>?", "<6>?", "<7>V", "<7>D", "<6>I", "<4>W", "<3>E", "<2>F"})
        expected += mark.substr(0, 3) + thread + mark.substr(3) + "/TAG: text\n";
    for (size_t shift = 0; shift < SHIFTS; ++shift)
        expected += "<3>" + thread + "E/TAG: " + escaped.substr(shift) + "\n";
    const std::string joint = "\\\n<3>" + thread + "E/TAG: \\";
    std::string joined;
    size_t at = 0;
    for (size_t end = 0; (end = output.find(joint, at)) != std::string::npos; at = end + joint.size()) {
        joined += output.substr(at, end - at);
        ASSERT_NE(joined.back(), '\\') << "an escape is cut";
        ASSERT_NE(output[end + joint.size()] & 0xc0, 0x80) << "a character is cut";
    }
    EXPECT_TRUE(joined + output.substr(at) == expected + "20\n");
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        ASSERT_LT(line.size(), 48U * 1024);
}

TEST(HostPlatform, without_memory_a_line_is_as_whole)
{
    const diverted standard_error;
    std::string text = "\033", escaped = R"(\x1b)";
    for (int i = 0; i < 3000; ++i) { // a window's end falls into a character
        text += "\u65e5.\n";
        escaped += "\u65e5.\\n";
    }
    const auto write = [&](const std::string &some) {
        has_memory = false;
        const int result = dlog_print(DLOG_INFO, "TAG", "\033[1m%s%s\033[0m\n", some.c_str(), "|");
        has_memory = true;
        return result;
    };
    write("a\nb");
    EXPECT_EQ(standard_error.message(1), "a\\nb|\n");
    write(text);
    EXPECT_EQ(standard_error.message(1), escaped + "|\n");
    has_files_in_memory = false;
    EXPECT_EQ(write(text), -ENOMEM);
    has_files_in_memory = true;
    const std::string beginning = standard_error.message(1);
    EXPECT_GT(beginning.size(), 8000u);
    EXPECT_TRUE(escaped.starts_with(beginning.substr(0, beginning.size() - 20)));
}

TEST(HostPlatform, the_environment_names_the_lowest_priority_that_is_written)
{
    if (getenv("ZEL_HOST_LOG")) { // a process of the cases below
        for (const log_priority priority : {DLOG_DEBUG, DLOG_INFO, DLOG_WARN, DLOG_ERROR, DLOG_UNKNOWN})
            dlog_print(priority, nullptr, "\n");
        return;
    }
    // What each value lets through, of all lines the priority's letter.
    EXPECT_EQ(output_of("for value in verbose DEBUG info warn error fatal silent '' warning; do "
                        "ZEL_HOST_LOG=$value " ZEL_TEST_ITSELF " --gtest_filter='*environment*' 2>&1 >/dev/null "
                        "| cut -d ' ' -f 4- | tr -d '/:\n'; echo $value; done"),
              "D I W E ? verbose\nD I W E ? DEBUG\nI W E ? info\nW E ? warn\nE ? error\n? fatal\n"
              "? silent\nD I W E ? \nWzel_platform ZEL_HOST_LOG=warning is none of verbose, debug, info, "
              "warn, error, fatal, silent every line is writtenD I W E ? warning\n");
}

TEST(HostPlatform, one_feature_is_known_and_handles_are_independent)
{
    bool value = false;
    EXPECT_EQ(system_info_get_custom_bool("quillo.feature.enhanced", &value), SYSTEM_INFO_ERROR_NONE);
    EXPECT_TRUE(value);
    EXPECT_EQ(system_info_get_custom_bool("quillo.feature.other", &value), SYSTEM_INFO_ERROR_INVALID_PARAMETER);

    app_control_h original = nullptr, copy = nullptr;
    ASSERT_EQ(app_control_create(&original, std::string("an.application").c_str()), 0);
    ASSERT_EQ(app_control_clone(&copy, original), 0);
    EXPECT_EQ(app_control_destroy(original), 0);
    EXPECT_STREQ(app_control_get_app_id(copy), "an.application");
    EXPECT_EQ(app_control_destroy(copy), 0);
}
