#include "platform.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <utility>

namespace
{

thread_local std::string written;

} // namespace

namespace zel_test
{

platform_state platform;

std::string take_trace()
{
    return std::exchange(written, {});
}

void add_line(const std::string &text)
{
    written += text + "\n";
}

int count(const std::string &text, const std::string &part)
{
    int count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
        ++count;
    return count;
}

std::string without_addresses(std::string text)
{
    for (size_t at = 0; (at = text.find("0x", at)) != std::string::npos;) {
        at += 2;
        text.erase(at, text.find_first_not_of("0123456789abcdef", at) - at);
    }
    return text;
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

    std::string line = std::string(1, "??VDIWEFS"[prio]) + " " + tag + " " + text.get();
    const size_t number = line.find('(');
    written += line.erase(number, line.find_first_not_of("0123456789", number + 1) + 1 - number);
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
    *clone = result == 0 ? zel_test::new_handle() : platform.failed_clone;
    return result;
}

int app_control_destroy(app_control_h app_control)
{
    EXPECT_EQ(platform.handles.erase(app_control), 1u) << "a handle that does not exist is destroyed";
    return platform.destroy_result;
}

} // extern "C"
