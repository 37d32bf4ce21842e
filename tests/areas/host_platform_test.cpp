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

TEST(HostPlatform, EachLineIsOneWriteToStandardError)
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
        int micros = 0, behind = 0;
        pid_t thread = 0;
        std::tm at = {};
        const char *const point = strptime(line.c_str(), "%Y-%m-%d %H:%M:%S.", &at);
        EXPECT_TRUE(point && point - line.c_str() == 20 && sscanf(point, "%6d %d %n", &micros, &thread, &behind) == 2)
            << line;
        EXPECT_NEAR(static_cast<double>(timegm(&at)), static_cast<double>(time(nullptr)), 2);
        EXPECT_EQ(thread, getpid()) << line;
        return point ? std::string(point + behind) : line;
    };
    const std::pair<log_priority, char> letters[] = {{DLOG_VERBOSE, 'V'}, {DLOG_DEBUG, 'D'},   {DLOG_INFO, 'I'},
                                                     {DLOG_WARN, 'W'},    {DLOG_ERROR, 'E'},   {DLOG_FATAL, 'F'},
                                                     {DLOG_UNKNOWN, '?'}, {DLOG_PRIO_MAX, '?'}};
    for (const auto &[priority, letter] : letters) {
        errno = EDOM;
        const int length = dlog_print(priority, "TAG", "%s %d\n", "text", 7);
        EXPECT_EQ(errno, EDOM);
        const std::string line = message();
        EXPECT_EQ(line, std::string(1, letter) + "/TAG: text 7\n");
        EXPECT_EQ(length, static_cast<int>(sizeof "2026-11-25 06:34:30.123456 " + std::to_string(getpid()).size() +
                                           line.size()));
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
    if (const pid_t child = fork(); child == 0) {
        dlog_print(DLOG_INFO, "TAG", "a child's line");
        EXPECT_EQ(message(), "I/TAG: a child's line\n");
        _exit(HasFailure());
    } else {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    dup2(saved, STDERR_FILENO);
    for (const int descriptor : {saved, ends[0], ends[1]})
        close(descriptor);
}

TEST(HostPlatform, TheEnvironmentNamesTheLowestPriorityThatIsWritten)
{
    if (getenv("ZEL_HOST_LOG")) { // a process of the cases below
        for (const log_priority priority : {DLOG_DEBUG, DLOG_INFO, DLOG_WARN, DLOG_ERROR, DLOG_UNKNOWN})
            dlog_print(priority, "TAG", "line");
        return;
    }
    const std::pair<const char *, const char *> cases[] = {{"verbose", "DIWE?"}, {"DEBUG", "DIWE?"}, {"warn", "WE?"},
                                                           {"error", "E?"},      {"silent", "?"},    {"", "DIWE?"},
                                                           {"warning", "!DIWE?"}};
    for (const auto &[value, letters] : cases) {
        const std::string command = "ZEL_HOST_LOG=" + std::string(value) +
                                    " " ZEL_TEST_ITSELF " --gtest_filter='*TheEnvironment*' 2>&1 >/dev/null";
        FILE *const lines = popen(command.c_str(), "r");
        std::string found;
        char line[256];
        while (fgets(line, sizeof line, lines)) {
            const std::string_view text = line;
            if (const size_t tag = text.find("/TAG: line"); tag != text.npos)
                found += text[tag - 1];
            else
                found +=
                    text.find("W/zel_platform: ZEL_HOST_LOG=warning is none of verbose, ") != text.npos ? '!' : 'x';
        }
        EXPECT_EQ(pclose(lines), 0);
        EXPECT_EQ(found, letters) << value;
    }
}

TEST(HostPlatform, OneFeatureIsKnownAndHandlesAreIndependent)
{
    bool value = false;
    EXPECT_EQ(system_info_get_custom_bool("quillo.feature.enhanced", &value), SYSTEM_INFO_ERROR_NONE);
    EXPECT_TRUE(value);
    EXPECT_EQ(system_info_get_custom_bool("quillo.feature.other", &value), SYSTEM_INFO_ERROR_INVALID_PARAMETER);

    app_control_h original = nullptr;
    app_control_h copy = nullptr;
    ASSERT_EQ(app_control_create(&original, std::string("an.application").c_str()), 0);
    ASSERT_EQ(app_control_clone(&copy, original), 0);
    EXPECT_EQ(app_control_destroy(original), 0);
    EXPECT_STREQ(app_control_get_app_id(copy), "an.application");
    EXPECT_EQ(app_control_clone(&original, nullptr), -EINVAL);
    EXPECT_EQ(app_control_create(&original, nullptr), -EINVAL);
    EXPECT_EQ(app_control_destroy(copy), 0);
    EXPECT_EQ(app_control_destroy(nullptr), -EINVAL);
}
