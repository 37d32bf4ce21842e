// The host platform itself, without the recording one.
#include "zel_platform_host.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

// Standard error on a socket that keeps every write apart.
class captured_stderr
{
  public:
    captured_stderr() : saved_(dup(STDERR_FILENO))
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_), 0);
        dup2(ends_[0], STDERR_FILENO);
    }
    ~captured_stderr()
    {
        dup2(saved_, STDERR_FILENO);
        for (const int descriptor : {saved_, ends_[0], ends_[1]})
            close(descriptor);
    }
    captured_stderr(const captured_stderr &) = delete;
    captured_stderr &operator=(const captured_stderr &) = delete;

    std::string next_write()
    {
        std::string text(100000, '\0');
        const ssize_t length = recv(ends_[1], text.data(), text.size(), MSG_DONTWAIT);
        text.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return text;
    }

  private:
    int saved_;
    int ends_[2] = {-1, -1};
};

} // namespace

TEST(HostPlatform, EachLineIsOneWrite)
{
    captured_stderr output;
    const std::pair<log_priority, char> letters[] = {{DLOG_VERBOSE, 'V'}, {DLOG_DEBUG, 'D'},   {DLOG_INFO, 'I'},
                                                     {DLOG_WARN, 'W'},    {DLOG_ERROR, 'E'},   {DLOG_FATAL, 'F'},
                                                     {DLOG_UNKNOWN, '?'}, {DLOG_PRIO_MAX, '?'}};
    for (const auto &[priority, letter] : letters) {
        errno = EDOM;
        EXPECT_EQ(dlog_print(priority, "TAG", "%s %d\n", "text", 7), 14);
        EXPECT_EQ(errno, EDOM);
        EXPECT_EQ(output.next_write(), std::string(1, letter) + "/TAG: text 7\n");
    }
    EXPECT_EQ(dlog_print(DLOG_SILENT, "TAG", "silent\n"), 0);
    const std::string huge(20000, 'x');
    for (const std::string &message : {huge, std::string(8184, 'y'), std::string("no newline")}) {
        dlog_print(DLOG_INFO, "TAG", "%s", message.c_str());
        EXPECT_EQ(output.next_write(), "I/TAG: " + message + "\n");
    }
    EXPECT_EQ(output.next_write(), "");
}

TEST(HostPlatform, LinesOfThreadsDoNotMix)
{
    captured_stderr output;
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c', 'd'})
        threads.emplace_back([letter] {
            for (int i = 0; i < 3; ++i)
                dlog_print(DLOG_INFO, "TAG", "%s\n", std::string(3000, letter).c_str());
        });
    for (std::thread &thread : threads)
        thread.join();
    for (int i = 0; i < 12; ++i) {
        const std::string line = output.next_write();
        ASSERT_EQ(line.size(), 3008u);
        EXPECT_EQ(line, "I/TAG: " + std::string(3000, line[7]) + "\n");
    }
}

TEST(HostPlatform, RegistryKnowsOneFeature)
{
    bool value = false;
    EXPECT_EQ(system_info_get_custom_bool("quillo.feature.enhanced", &value), SYSTEM_INFO_ERROR_NONE);
    EXPECT_TRUE(value);
    EXPECT_EQ(system_info_get_custom_bool("quillo.feature.other", &value), SYSTEM_INFO_ERROR_INVALID_PARAMETER);
    EXPECT_TRUE(value);
}

TEST(HostPlatform, HandlesAreIndependent)
{
    app_control_h original = nullptr;
    app_control_h copy = nullptr;
    std::string id = "an.application";
    ASSERT_EQ(app_control_create(&original, id.c_str()), 0);
    id[0] = 'X';
    ASSERT_EQ(app_control_clone(&copy, original), 0);
    EXPECT_NE(copy, original);
    EXPECT_EQ(app_control_destroy(original), 0);
    EXPECT_STREQ(app_control_get_app_id(copy), "an.application");
    app_control_h untouched = copy;
    EXPECT_EQ(app_control_clone(&untouched, nullptr), -EINVAL);
    EXPECT_EQ(app_control_create(&untouched, nullptr), -EINVAL);
    EXPECT_EQ(untouched, copy);
    EXPECT_EQ(app_control_destroy(copy), 0);
    EXPECT_EQ(app_control_destroy(nullptr), -EINVAL);
}
