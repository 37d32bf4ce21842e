#include "recording_platform.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>
#include <utility>

struct app_control_s {
    int unused;
};

namespace
{

thread_local std::string written;

// The layout, read back to the letter.
struct layout {
    int priority;
    const char *kind;
    std::string_view head;
    std::string_view tail;
};
constexpr layout layouts[] = {
    {DLOG_ERROR, "CRITICAL", " \033[0;31m* Critical * ", "\033[0;m\n"},
    {DLOG_WARN, "WARNING", " \033[0;34m* Warning * ", "\033[0;m\n"},
    {DLOG_INFO, "BEGIN", " \033[0;36mBEGIN >>>>\033[0;m", "\n"},
    {DLOG_INFO, "END", " \033[0;36mEND <<<<\033[0;m", "\n"},
    {DLOG_INFO, "INFO", " * Info * ", "\n"},
    {DLOG_INFO, "PLAIN", " ", "\n"},
    {DLOG_DEBUG, "DEBUG", "", "\n"},
};

std::string formatted(const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, format, again)), '\0');
    va_end(again);
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace

namespace zel_test
{

platform_state platform;

trace line(const char *kind, const std::string &function, const std::string &body)
{
    return {std::string(kind) + " " + function + ": " + body + "\n"};
}

trace join(std::initializer_list<trace> parts)
{
    trace all;
    for (const trace &part : parts)
        all.text += part.text;
    return all;
}

trace take_trace()
{
    return {std::exchange(written, {})};
}

int count_lines(const trace &lines, const std::string &kind, const std::string &body)
{
    int count = 0;
    const std::string tail = ": " + body;
    for (size_t start = 0; start < lines.text.size();) {
        const size_t stop = lines.text.find('\n', start);
        const std::string_view line(lines.text.data() + start, stop - start);
        count += line.starts_with(kind + " ") && line.ends_with(tail);
        start = stop + 1;
    }
    return count;
}

app_control_h new_handle()
{
    return *platform.handles.insert(new app_control_s()).first;
}

} // namespace zel_test

using zel_test::platform;

extern "C" {

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const std::string text = formatted(fmt, arguments);
    va_end(arguments);
    va_start(arguments, fmt);
    const bool has_prefix = std::string_view(fmt).starts_with("%s(%d): ");
    const std::string function = has_prefix ? va_arg(arguments, const char *) : "";
    const int number = has_prefix ? va_arg(arguments, int) : 0;
    va_end(arguments);

    const std::string prefix = function + "(" + std::to_string(number) + "): ";
    for (const layout &one : layouts) {
        const std::string head = prefix + std::string(one.head);
        if (prio == one.priority && number > 0 && std::string_view(tag) == "QUILLO_COMMON" && text.starts_with(head) &&
            text.ends_with(one.tail) && text.size() >= head.size() + one.tail.size()) {
            const size_t length = text.size() - head.size() - one.tail.size();
            written += zel_test::line(one.kind, function, text.substr(head.size(), length)).text;
            return -1;
        }
    }
    written += "MALFORMED " + text;
    return -1;
}

int system_info_get_custom_bool(const char *key, bool *value)
{
    ++platform.feature_queries;
    platform.feature_key = key;
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
    delete app_control;
    return platform.destroy_result;
}

} // extern "C"
