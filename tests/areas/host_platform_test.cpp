// The host platform itself, without the recording one.
#include "zel_platform_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono;

TEST(HostPlatform, each_line_is_one_write_to_standard_error)
{
    int ends[2] = {-1, -1}; // of a socket that keeps every write apart
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const int saved = dup(STDERR_FILENO);
    dup2(ends[0], STDERR_FILENO);
    const auto in_front = [] { return "####-##-## ##:##:##.###### " + std::to_string(getpid()) + " "; };
    const auto expect = [&](const std::string &expected, int priority, const std::string &text) {
        const auto before = floor<microseconds>(system_clock::now());
        errno = EDOM;
        const int length = dlog_print(static_cast<log_priority>(priority), "TAG", "%s", text.c_str());
        EXPECT_EQ(errno, EDOM);
        std::string line(100000, '\0');
        line.resize(static_cast<size_t>(std::max<ssize_t>(0, recv(ends[1], line.data(), line.size(), MSG_DONTWAIT))));
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
    const std::pair<int, std::string> letters[] = {{0, "?"}, {1, "?"}, {2, "V"}, {3, "D"}, {4, "I"},
                                                   {5, "W"}, {6, "E"}, {7, "F"}, {9, "?"}};
    for (const auto &[priority, letter] : letters)
        expect(letter + "/TAG: ended", priority, "ended\n");
    // The second one is the first that the usual buffer has no room for.
    for (const std::string &text :
         {std::string(20000, 'x'), std::string(8192 - (in_front() + "I/TAG: ").size(), 'y'), std::string("z")})
        expect("I/TAG: " + text, DLOG_INFO, text);
    // No terminal: no colours, and nothing but colours is taken out.
    expect("I/TAG: red \033]0;message\007 \033[2J \033[1\033", DLOG_INFO,
           "\033[0;31mred\033[0;m \033]0;message\007 \033[2J \033[1\033[0m\033");
    if (fork() == 0) {
        sleep(1); // its second is not the one that its parent has worked out
        expect("I/TAG: a child's line", DLOG_INFO, "a child's line");
        _exit(HasFailure());
    }
    int status = -1;
    EXPECT_GT(wait(&status), 0);
    EXPECT_EQ(status, 0);
    dup2(saved, STDERR_FILENO);
}

TEST(HostPlatform, the_environment_names_the_lowest_priority_that_is_written)
{
    if (getenv("ZEL_HOST_LOG")) { // a process of the cases below
        for (const log_priority priority : {DLOG_DEBUG, DLOG_INFO, DLOG_WARN, DLOG_ERROR, DLOG_UNKNOWN})
            dlog_print(priority, nullptr, "\n");
        return;
    }
    // What each value lets through, of all lines the priority's letter.
    FILE *const lines = popen("for value in verbose DEBUG info warn error fatal silent '' warning; do "
                              "ZEL_HOST_LOG=$value " ZEL_TEST_ITSELF " --gtest_filter='*environment*' 2>&1 >/dev/null "
                              "| cut -d ' ' -f 4- | tr -d '/:\n'; echo $value; done",
                              "r");
    char written[1000] = "";
    EXPECT_GT(fread(written, 1, sizeof written - 1, lines), 0u);
    EXPECT_EQ(pclose(lines), 0);
    EXPECT_STREQ(written, "D I W E ? verbose\nD I W E ? DEBUG\nI W E ? info\nW E ? warn\nE ? error\n? fatal\n"
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
    EXPECT_EQ(app_control_clone(&original, nullptr), -EINVAL);
    EXPECT_EQ(app_control_create(&original, nullptr), -EINVAL);
    EXPECT_EQ(app_control_destroy(copy), 0);
    EXPECT_EQ(app_control_destroy(nullptr), -EINVAL);
}
