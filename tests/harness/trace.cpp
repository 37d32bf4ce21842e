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

/// The functions that never write an End line.
constexpr char BEGIN_ONLY[] = " _common_deinit_hash_table _common_write_to_hash_table _common_read_from_hash_table "
                              "_common_remove_from_hash_table _common_find_in_hash_table "
                              "_common_foreach_read_from_hash_table _common_get_hash_table_size "
                              "__execute_select_query ";

bool writes_end(const std::string &function)
{
    return std::string(BEGIN_ONLY).find(" " + function + " ") == std::string::npos;
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
    std::map<std::string, size_t> open; ///< the last line in each function, if that is a Critical one
    std::vector<log_line> shown;
    const auto leave = [&](const std::string &function) {
        const auto left = open.extract(function);
        if (left && left.mapped() == NONE && writes_end(function))
            shown.push_back({function, "no End", ""});
    };
    for (const auto &[function, kind, text] : parse_all(trace)) {
        const auto own = open.find(function);
        if (kind == "Begin") {
            leave(function);
            open[function] = NONE;
        } else if (kind == "End" && own != open.end() && writes_end(function)) {
            if (own->second != NONE)
                shown[own->second].text += " (End)";
            open.erase(own);
        } else {
            const char *const departure = own == open.end() && !writes_end(function) ? " (no Begin)" : "";
            shown.push_back({function, kind + (kind == "End" || kind.empty() ? "" : ": "), text + departure});
            // A line of a function without a Begin line lies in all that are open.
            for (auto &[name, last] : open)
                if (own == open.end() || name == function)
                    last = kind == "Critical" ? shown.size() - 1 : NONE;
        }
    }
    while (!open.empty())
        leave(open.begin()->first);
    return joined(shown);
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
    const std::string met = lines_of(take_trace());
    const std::string difference = unified_diff(expected.substr(expected.starts_with('\n')), met);
    if (!difference.empty())
        ADD_FAILURE_AT(file, line) << "expected (-) and met (+):\n" << difference;
}

} // namespace zel_test
