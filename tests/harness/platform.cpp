#include "platform.h"

#include <glib.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>

namespace
{

thread_local std::string written;

// The layout of a line behind its function and source line: what stands before and behind the body.
struct layout {
    int priority;
    zel_test::kind kind;
    std::string_view head;
    std::string_view tail;
};
constexpr layout layouts[] = {
    {DLOG_ERROR, zel_test::critical, "  \033[0;31m* Critical * ", "\033[0;m\n"},
    {DLOG_WARN, zel_test::warning, "  \033[0;34m* Warning * ", "\033[0;m\n"},
    {DLOG_INFO, zel_test::begin, "  \033[0;36mBEGIN >>>>\033[0;m", "\n"},
    {DLOG_INFO, zel_test::end, "  \033[0;36mEND <<<<\033[0;m", "\n"},
    {DLOG_INFO, zel_test::info, "  * Info * ", "\n"},
    {DLOG_INFO, zel_test::plain, "  ", "\n"},
    {DLOG_DEBUG, zel_test::debug, " ", "\n"},
};

} // namespace

namespace zel_test
{

platform_state platform;

void note(const std::string &text)
{
    written += noted(text).text;
}

trace take_trace()
{
    return {std::exchange(written, {})};
}

int count_lines(const trace &lines, const std::string &kind, const std::string &body)
{
    int count = 0;
    std::istringstream all(lines.text);
    for (std::string one; std::getline(all, one);)
        count += one.starts_with(kind + " ") && one.find(": " + body) != std::string::npos;
    return count;
}

void expect_lines(unsigned int checksum)
{
    std::string lines = take_trace().text;
    for (size_t at = 0; (at = lines.find("0x", at)) != std::string::npos;)
        lines.erase(at, lines.find_first_not_of("0123456789abcdef", at + 2) - at);
    const testing::TestInfo &test = *testing::UnitTest::GetInstance()->current_test_info();
    std::filesystem::create_directories(ZEL_TEST_TOLD);
    std::ofstream(std::string(ZEL_TEST_TOLD) + "/" + test.test_suite_name() + "." + test.name() + ".txt") << lines;
    EXPECT_EQ(g_str_hash(lines.c_str()), checksum) << lines;
}

app_control_h new_handle()
{
    static std::intptr_t last = 0;
    return *platform.handles.insert(reinterpret_cast<app_control_h>(++last)).first;
}

} // namespace zel_test

using zel_test::platform;

extern "C" {

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const std::unique_ptr<char, decltype(&g_free)> text(g_strdup_vprintf(fmt, arguments), g_free);
    va_end(arguments);
    if (prio == DLOG_DEBUG && platform.on_debug_line)
        platform.on_debug_line();

    char function[100] = "";
    int number = 0;
    int length = 0;
    std::sscanf(text.get(), "%99[^( ](%d):%n", function, &number, &length);
    std::string_view body = text.get() + length;
    for (const layout &one : layouts) {
        if (number > 0 && prio == one.priority && std::string_view(tag) == "QUILLO_COMMON" &&
            body.size() >= one.head.size() + one.tail.size() && body.starts_with(one.head) &&
            body.ends_with(one.tail)) {
            body.remove_prefix(one.head.size());
            body.remove_suffix(one.tail.size());
            written += one.kind(function, std::string(body)).text;
            return -1;
        }
    }
    written += std::string("MALFORMED ") + text.get();
    return -1;
}

int system_info_get_custom_bool(const char *key, bool *value)
{
    EXPECT_STREQ(key, "quillo.feature.enhanced");
    if (platform.feature_result == SYSTEM_INFO_ERROR_NONE)
        *value = platform.feature_value;
    return platform.feature_result;
}

int app_control_clone(app_control_h *clone, app_control_h app_control)
{
    EXPECT_TRUE(platform.handles.contains(app_control)) << "a handle that does not exist is cloned";
    const int result = std::exchange(platform.clone_result, 0);
    *clone = result == 0 ? zel_test::new_handle() : platform.clone_left_behind;
    return result;
}

int app_control_destroy(app_control_h app_control)
{
    EXPECT_EQ(platform.handles.erase(app_control), 1u) << "a handle that does not exist is destroyed";
    return platform.destroy_result;
}

} // extern "C"
