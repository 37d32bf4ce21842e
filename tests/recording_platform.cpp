#include "recording_platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

struct app_control_s {
    int unused;
};

namespace
{

struct recorded_line {
    std::thread::id thread;
    std::string text;
};
std::mutex guard;
std::vector<recorded_line> lines;

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char byte : text)
        result += byte == '\n' ? std::string("\\n") : byte == '\033' ? std::string("\\e") : std::string(1, byte);
    return result;
}

bool strip(std::string_view &text, std::string_view head, std::string_view tail)
{
    if (text.size() < head.size() + tail.size() || !text.starts_with(head) || !text.ends_with(tail))
        return false;
    text = text.substr(head.size(), text.size() - head.size() - tail.size());
    return true;
}

// The layout, read back to the letter; what does not fit it has no kind.
const char *kind_of(int priority, std::string_view &body)
{
    switch (priority) {
    case DLOG_DEBUG:
        return "DEBUG";
    case DLOG_ERROR:
        return strip(body, " \033[0;31m* Critical * ", "\033[0;m") ? "CRITICAL" : nullptr;
    case DLOG_WARN:
        return strip(body, " \033[0;34m* Warning * ", "\033[0;m") ? "WARNING" : nullptr;
    case DLOG_INFO:
        if (strip(body, " \033[0;36mBEGIN >>>>\033[0;m", ""))
            return body.empty() ? "BEGIN" : nullptr;
        if (strip(body, " \033[0;36mEND <<<<\033[0;m", ""))
            return body.empty() ? "END" : nullptr;
        if (strip(body, " * Info * ", ""))
            return "INFO";
        return !body.starts_with(" \033") && strip(body, " ", "") ? "PLAIN" : nullptr;
    default:
        return nullptr;
    }
}

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
    return {std::string(kind) + " " + function + ": " + escaped(body) + "\n"};
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
    const std::lock_guard lock(guard);
    trace mine;
    std::erase_if(lines, [&mine](const recorded_line &line) {
        const bool is_mine = line.thread == std::this_thread::get_id();
        mine.text += is_mine ? line.text : "";
        return is_mine;
    });
    return mine;
}

trace take_trace_of_all()
{
    const std::lock_guard lock(guard);
    trace all;
    for (const recorded_line &line : std::exchange(lines, {}))
        all.text += line.text;
    return all;
}

int count_lines(const trace &lines, const std::string &kind, const std::string &body)
{
    int count = 0;
    const std::string tail = ": " + escaped(body);
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

    std::string_view body = text;
    const char *kind = nullptr;
    if (std::strcmp(tag, "QUILLO_COMMON") == 0 && std::string_view(fmt).ends_with("\n") && number > 0 &&
        strip(body, function + "(" + std::to_string(number) + "): ", "\n"))
        kind = kind_of(prio, body);
    const std::string whole_line = std::to_string(prio) + " " + tag + " " + text;
    const std::lock_guard lock(guard);
    lines.push_back({std::this_thread::get_id(),
                     zel_test::line(kind ? kind : "MALFORMED", function, kind ? std::string(body) : whole_line).text});
    platform.last_line = whole_line;
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
    platform.clones += result == 0;
    return result;
}

int app_control_destroy(app_control_h app_control)
{
    EXPECT_EQ(platform.handles.erase(app_control), 1u) << "a handle that does not exist is destroyed";
    delete app_control;
    return platform.destroy_result;
}

} // extern "C"
