#include "trace.h"

#include "diff.h"

#include <glib.h>

#include <cstdarg>
#include <cstdint>
#include <map>
#include <sstream>

namespace zel_test
{

namespace
{

/* The functions that do not follow the rule of Begin and End lines. */

constexpr char BEGIN_ONLY[] = " _common_deinit_hash_table _common_write_to_hash_table _common_read_from_hash_table "
                              "_common_remove_from_hash_table _common_find_in_hash_table "
                              "_common_foreach_read_from_hash_table _common_get_hash_table_size "
                              "__execute_select_query ";

constexpr char NEITHER[] =
    " _common_find_and_remove_in_hash_table _common_foreach_remove_in_hash_table _common_get_hash_table_count "
    "_common_get_keys_from_hash_table _common_queue_get_wait_status _common_thread_get_wait_status "
    "_common_print_error_info _common_util_convert_service_error_to_client_error _common_util_set_pid_to_file "
    "_common_util_get_pid_from_file _common_util_check_enhanced_feature __print_zel_request __get_content_info "
    "__get_int __get_unsigned_int __get_unsigned_long_long __get_string __set_int __set_unsigned_int "
    "__set_unsigned_long_long __set_string __execute_query __execute_insert_query ";

bool is_in(const char *names, const std::string &function)
{
    return std::string(names).find(" " + function + " ") != std::string::npos;
}

log_line parse(const std::string &line)
{
    static constexpr struct {
        std::string_view name, head, before, after;
    } kinds[] = {
        {"Begin", "I QUILLO_COMMON ", "  \033[0;36mBEGIN >>>>\033[0;m", ""},
        {"End", "I QUILLO_COMMON ", "  \033[0;36mEND <<<<\033[0;m", ""},
        {"Critical", "E QUILLO_COMMON ", "  \033[0;31m* Critical * ", "\033[0;m"},
        {"Warning", "W QUILLO_COMMON ", "  \033[0;34m* Warning * ", "\033[0;m"},
        {"Info", "I QUILLO_COMMON ", "  * Info * ", ""},
        {"Plain", "I QUILLO_COMMON ", "  ", ""},
        {"Debug", "D QUILLO_COMMON ", " ", ""},
    };
    const size_t colon = line.find(':') + 1;
    const std::string_view body = std::string_view(line).substr(colon);
    for (const auto &[name, head, before, after] : kinds)
        if (line.starts_with(head) && body.starts_with(before) && body.ends_with(after))
            return {line.substr(head.size(), colon - 1 - head.size()), std::string(name),
                    std::string(body.substr(before.size(), body.size() - before.size() - after.size()))};
    return {"", "", line};
}

std::string joined(const std::vector<log_line> &lines)
{
    std::string all, function;
    for (const log_line &line : lines) {
        if (!line.function.empty())
            all += (line.function == function ? "   " : line.function + ":") + " " + line.kind;
        all += line.text + "\n";
        function = line.function;
    }
    return all;
}

void expect(const std::string &expected, const std::string &met, const char *file, int line)
{
    const std::string difference = unified_diff(expected.substr(expected.starts_with('\n')), met);
    if (!difference.empty())
        ADD_FAILURE_AT(file, line) << "expected (-) and met (+):\n" << difference;
}

} // namespace

std::vector<log_line> parse_all(const std::string &trace)
{
    std::vector<log_line> all;
    std::istringstream in(trace);
    for (std::string line; std::getline(in, line);)
        all.push_back(parse(line));
    return all;
}

std::string lines_of(const std::string &trace)
{
    constexpr size_t NONE = SIZE_MAX;
    struct frame {
        bool is_open;
        size_t critical; ///< the last line in it, if that is a Critical one
    };
    std::map<std::string, frame> frames;
    std::vector<log_line> shown;
    const auto leave = [&](const std::string &function, frame &left) {
        if (left.is_open && left.critical == NONE && !is_in(BEGIN_ONLY, function))
            shown.push_back({function, "no End", ""});
        left.is_open = false;
    };
    for (const auto &[function, kind, text] : parse_all(trace)) {
        frame &own = frames.try_emplace(function, frame{false, NONE}).first->second;
        const bool has_frame = !function.empty() && !is_in(NEITHER, function);
        if (kind == "Begin" && has_frame) {
            leave(function, own);
            own = {true, NONE};
        } else if (kind == "End" && own.is_open && !is_in(BEGIN_ONLY, function)) {
            if (own.critical != NONE)
                shown[own.critical].text += " (End)";
            own.is_open = false;
        } else {
            const bool is_frame_line = kind == "Begin" || kind == "End";
            const char *const departure = has_frame && !own.is_open ? " (no Begin)" : "";
            shown.push_back({function, kind + (is_frame_line || kind.empty() ? "" : ": "), text + departure});
            // A line of a function without a frame lies in all that are open.
            for (auto &[name, each] : frames)
                if (name == function || !has_frame)
                    each.critical = kind == "Critical" ? shown.size() - 1 : NONE;
        }
    }
    for (auto &[function, each] : frames)
        leave(function, each);
    return joined(shown);
}

std::string calls_of(const std::string &trace)
{
    std::string all;
    int depth = 0;
    for (const auto &[function, kind, text] : parse_all(trace)) {
        if (kind == "Begin") {
            const bool is_first = all.empty() || all.back() == '(' || all.back() == '\n';
            all += (is_first ? "" : " ") + function + "(";
            ++depth;
        } else if (kind == "End") {
            all.back() == '(' ? all.pop_back() : all.push_back(')');
            all += --depth == 0 ? "\n" : "";
        }
    }
    return all;
}

std::string printed(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char *const text = g_strdup_vprintf(format, arguments);
    va_end(arguments);
    const std::string copy = text;
    g_free(text);
    return copy;
}

void expect_rejection(const std::string &message)
{
    const std::string lines = lines_of(take_trace());
    EXPECT_EQ(lines, lines.substr(0, lines.find(':')) + ": Critical: " + message + "\n");
    EXPECT_EQ(std::string(untouched, sizeof untouched), std::string(sizeof untouched, '\0'));
}

void expect_lines(const std::string &expected, const char *file, int line)
{
    expect(expected, lines_of(take_trace()), file, line);
}

void expect_calls(const std::string &expected, const char *file, int line)
{
    expect(expected, calls_of(take_trace()), file, line);
}

} // namespace zel_test
