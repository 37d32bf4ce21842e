#include "recording_platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
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
zel_test::raw_line last_line;

int feature_result = SYSTEM_INFO_ERROR_INVALID_PARAMETER;
bool feature_value = false;
int feature_count = 0;
std::string feature_key;

std::set<app_control_h> handles;
int clones = 0;
int clone_result = 0;
app_control_h clone_left_behind = nullptr;
int destroy_result = 0;

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char byte : text) {
        if (byte == '\n')
            result += "\\n";
        else if (byte == '\033')
            result += "\\e";
        else
            result += byte;
    }
    return result;
}

std::string row(const char *kind, std::string_view function, std::string_view body)
{
    return std::string(kind) + " " + std::string(function) + ": " + escaped(body) + "\n";
}

bool strip(std::string_view &text, std::string_view head, std::string_view tail)
{
    if (text.size() < head.size() + tail.size() || !text.starts_with(head) || !text.ends_with(tail))
        return false;
    text = text.substr(head.size(), text.size() - head.size() - tail.size());
    return true;
}

// The layout, read back to the letter; what does not fit it has no kind.
std::string decode(int priority, const char *tag, const char *format, std::string_view text, const char *function,
                   int line)
{
    const std::string prefix = std::string(function) + "(" + std::to_string(line) + "): ";
    std::string_view body = text;
    if (std::strcmp(tag, "QUILLO_COMMON") == 0 && std::string_view(format).ends_with("\n") && line > 0 &&
        strip(body, prefix, "\n")) {
        if (priority == DLOG_DEBUG)
            return row("DEBUG", function, body);
        if (priority == DLOG_ERROR && strip(body, " \033[0;31m* Critical * ", "\033[0;m"))
            return row("CRITICAL", function, body);
        if (priority == DLOG_WARN && strip(body, " \033[0;34m* Warning * ", "\033[0;m"))
            return row("WARNING", function, body);
        if (priority == DLOG_INFO && body == " \033[0;36mBEGIN >>>>\033[0;m")
            return row("BEGIN", function, "");
        if (priority == DLOG_INFO && body == " \033[0;36mEND <<<<\033[0;m")
            return row("END", function, "");
        if (priority == DLOG_INFO && strip(body, " * Info * ", ""))
            return row("INFO", function, body);
        if (priority == DLOG_INFO && !body.starts_with(" \033") && strip(body, " ", ""))
            return row("PLAIN", function, body);
    }
    return "MALFORMED priority " + std::to_string(priority) + " tag " + tag + " line " + escaped(text) + "\n";
}

} // namespace

extern "C" {

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, fmt, arguments)), '\0');
    va_end(arguments);
    va_list prefix;
    va_copy(prefix, again);
    std::vsnprintf(text.data(), text.size() + 1, fmt, again);
    va_end(again);

    const char *function = "";
    int line = 0;
    if (std::string_view(fmt).starts_with("%s(%d): ")) {
        function = va_arg(prefix, const char *);
        line = va_arg(prefix, int);
    }
    va_end(prefix);

    const std::lock_guard lock(guard);
    lines.push_back({std::this_thread::get_id(), decode(prio, tag, fmt, text, function, line)});
    last_line = {prio, tag, text};
    return -1;
}

int system_info_get_custom_bool(const char *key, bool *value)
{
    const std::lock_guard lock(guard);
    ++feature_count;
    feature_key = key;
    if (feature_result == SYSTEM_INFO_ERROR_NONE)
        *value = feature_value;
    return feature_result;
}

int app_control_clone(app_control_h *clone, app_control_h app_control)
{
    const std::lock_guard lock(guard);
    EXPECT_TRUE(handles.contains(app_control)) << "a handle that does not exist is cloned";
    if (clone_result != 0) {
        *clone = clone_left_behind;
        return std::exchange(clone_result, 0);
    }
    *clone = *handles.insert(new app_control_s()).first;
    ++clones;
    return 0;
}

int app_control_destroy(app_control_h app_control)
{
    const std::lock_guard lock(guard);
    EXPECT_EQ(handles.erase(app_control), 1u) << "a handle that does not exist is destroyed";
    delete app_control;
    return destroy_result;
}

} // extern "C"

namespace zel_test
{

trace begin(const std::string &function)
{
    return {row("BEGIN", function, "")};
}

trace end(const std::string &function)
{
    return {row("END", function, "")};
}

trace critical(const std::string &function, const std::string &body)
{
    return {row("CRITICAL", function, body)};
}

trace warning(const std::string &function, const std::string &body)
{
    return {row("WARNING", function, body)};
}

trace info(const std::string &function, const std::string &body)
{
    return {row("INFO", function, body)};
}

trace plain(const std::string &function, const std::string &body)
{
    return {row("PLAIN", function, body)};
}

trace debug(const std::string &function, const std::string &body)
{
    return {row("DEBUG", function, body)};
}

trace whole(const std::string &function, std::initializer_list<trace> inside)
{
    return join({begin(function), join(inside), end(function)});
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
        if (is_mine)
            mine.text += line.text;
        return is_mine;
    });
    return mine;
}

trace take_trace_of_all()
{
    const std::lock_guard lock(guard);
    trace all;
    for (const recorded_line &line : lines)
        all.text += line.text;
    lines.clear();
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

raw_line last_raw_line()
{
    const std::lock_guard lock(guard);
    return last_line;
}

void answer_feature(int result, bool value)
{
    const std::lock_guard lock(guard);
    feature_result = result;
    feature_value = value;
}

int feature_queries()
{
    const std::lock_guard lock(guard);
    return feature_count;
}

std::string last_feature_key()
{
    const std::lock_guard lock(guard);
    return feature_key;
}

app_control_h new_handle()
{
    const std::lock_guard lock(guard);
    return *handles.insert(new app_control_s()).first;
}

int live_handles()
{
    const std::lock_guard lock(guard);
    return static_cast<int>(handles.size());
}

int cloned_handles()
{
    const std::lock_guard lock(guard);
    return clones;
}

void fail_next_clone(int result, app_control_h left_behind)
{
    const std::lock_guard lock(guard);
    clone_result = result;
    clone_left_behind = left_behind;
}

void answer_destroy(int result)
{
    const std::lock_guard lock(guard);
    destroy_result = result;
}

} // namespace zel_test
