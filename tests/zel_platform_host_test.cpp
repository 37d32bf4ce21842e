// The host platform itself, without the recording one.
#include "zel_platform_host.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <sys/socket.h>
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
    const std::pair<log_priority, char> letters[] = {{DLOG_VERBOSE, 'V'}, {DLOG_DEBUG, 'D'},   {DLOG_INFO, 'I'},
                                                     {DLOG_WARN, 'W'},    {DLOG_ERROR, 'E'},   {DLOG_FATAL, 'F'},
                                                     {DLOG_UNKNOWN, '?'}, {DLOG_PRIO_MAX, '?'}};
    for (const auto &[priority, letter] : letters) {
        errno = EDOM;
        EXPECT_EQ(dlog_print(priority, "TAG", "%s %d\n", "text", 7), 14);
        EXPECT_EQ(errno, EDOM);
        EXPECT_EQ(written(), std::string(1, letter) + "/TAG: text 7\n");
    }
    EXPECT_EQ(dlog_print(DLOG_SILENT, "TAG", "silent\n"), 0);
    EXPECT_EQ(written(), "");
    for (const std::string &message : {std::string(20000, 'x'), std::string(8184, 'y'), std::string("no newline")}) {
        dlog_print(DLOG_INFO, "TAG", "%s", message.c_str());
        EXPECT_EQ(written(), "I/TAG: " + message + "\n");
    }
    dup2(saved, STDERR_FILENO);
    for (const int descriptor : {saved, ends[0], ends[1]})
        close(descriptor);
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
