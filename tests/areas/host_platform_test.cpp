// The host platform itself, without the recording one.
#include "zel_platform_host.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(HostPlatform, each_line_is_one_write_to_standard_error)
{
    int ends[2] = {-1, -1}; // of a socket that keeps every write apart
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const int saved = dup(STDERR_FILENO);
    dup2(ends[0], STDERR_FILENO);
    const auto written = [&] {
        std::string text(100000, '\0');
        const ssize_t length = recv(ends[1], text.data(), text.size(), MSG_DONTWAIT);
        return text.substr(0, length > 0 ? static_cast<size_t>(length) : 0);
    };
    // The line without its time and thread, which are looked at here.
    const auto message = [&] {
        const std::string line = written();
        int thread = 0;
        int behind = 0;
        std::tm at = {};
        EXPECT_TRUE(strptime(line.c_str(), "%Y-%m-%d %H:%M:%S.", &at)) << line;
        EXPECT_NEAR(difftime(timegm(&at), time(nullptr)), 0, 2);
        EXPECT_EQ(sscanf(line.c_str(), "%*19c.%*6d %d %n", &thread, &behind), 1) << line;
        EXPECT_EQ(thread, getpid());
        return line.substr(static_cast<size_t>(behind));
    };
    const std::pair<log_priority, char> letters[] = {{DLOG_VERBOSE, 'V'}, {DLOG_DEBUG, 'D'},   {DLOG_INFO, 'I'},
                                                     {DLOG_WARN, 'W'},    {DLOG_ERROR, 'E'},   {DLOG_FATAL, 'F'},
                                                     {DLOG_UNKNOWN, '?'}, {DLOG_PRIO_MAX, '?'}};
    for (const auto &[priority, letter] : letters) {
        errno = EDOM;
        const int length = dlog_print(priority, "TAG", "%s %d\n", "text", 7);
        EXPECT_EQ(errno, EDOM);
        const std::string line = std::string(1, letter) + "/TAG: text 7\n";
        EXPECT_EQ(message(), line);
        const size_t whole = sizeof "2026-11-25 06:34:30.123456 " + std::to_string(getpid()).size() + line.size();
        EXPECT_EQ(length, static_cast<int>(whole));
    }
    EXPECT_EQ(dlog_print(DLOG_SILENT, "TAG", "silent\n"), 0);
    EXPECT_EQ(written(), "");
    for (const std::string &text : {std::string(20000, 'x'), std::string(8145, 'y'), std::string("no newline")}) {
        dlog_print(DLOG_INFO, "TAG", "%s", text.c_str());
        EXPECT_EQ(message(), "I/TAG: " + text + "\n");
    }
    // No terminal: no colours, and nothing but colours is taken out.
    dlog_print(DLOG_INFO, "TAG", "\033[0;31mred\033[0;m \033]0;title\007 \033[2J \033[1\033[0m\033");
    EXPECT_EQ(message(), "I/TAG: red \033]0;title\007 \033[2J \033[1\033\n");
    if (fork() == 0) {
        dlog_print(DLOG_INFO, "TAG", "a child's line");
        EXPECT_EQ(message(), "I/TAG: a child's line\n");
        _exit(HasFailure());
    }
    int status = -1;
    EXPECT_GT(wait(&status), 0);
    EXPECT_EQ(status, 0);
    dup2(saved, STDERR_FILENO);
    for (const int descriptor : {saved, ends[0], ends[1]})
        close(descriptor);
}

TEST(HostPlatform, the_environment_names_the_lowest_priority_that_is_written)
{
    if (getenv("ZEL_HOST_LOG")) { // a process of the cases below
        for (const log_priority priority : {DLOG_DEBUG, DLOG_INFO, DLOG_WARN, DLOG_ERROR, DLOG_UNKNOWN})
            dlog_print(priority, "TAG", "line");
        return;
    }
    const std::pair<std::string, const char *> cases[] = {{"verbose", "DIWE?"}, {"DEBUG", "DIWE?"}, {"warn", "WE?"},
                                                          {"error", "E?"},      {"silent", "?"},    {"", "DIWE?"},
                                                          {"warning", "!DIWE?"}};
    for (const auto &[value, letters] : cases) {
        const std::string command = "ZEL_HOST_LOG=" + value + " " ZEL_TEST_ITSELF " --gtest_filter='*environment*' " +
                                    "2>&1 >/dev/null | sed 's|.* \\(.\\)/TAG: line$|\\1|; s|.* W/zel_platform: "
                                    "ZEL_HOST_LOG=warning is none of verbose, .*|!|' | tr -d '\\n'";
        char found[256] = "";
        FILE *const lines = popen(command.c_str(), "r");
        EXPECT_TRUE(fgets(found, sizeof found, lines));
        EXPECT_EQ(pclose(lines), 0);
        EXPECT_STREQ(found, letters) << value;
    }
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
