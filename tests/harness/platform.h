// The platform that tests link: it records every log line and answers the registry and the handles as a test says.
#ifndef ZEL_TESTS_RECORDING_PLATFORM_H
#define ZEL_TESTS_RECORDING_PLATFORM_H

#include "zel_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>

namespace zel_test
{

/// Log lines as text, one a row: kind, function, body. A line that breaks the layout reads MALFORMED.
struct trace {
    std::string text;
};

inline trace join(std::initializer_list<trace> parts)
{
    trace all;
    for (const trace &part : parts)
        all.text += part.text;
    return all;
}

/// A line of one kind.
struct kind {
    const char *name;
    trace operator()(const std::string &function, const std::string &body = "") const
    {
        return {std::string(name) + " " + function + ": " + body + "\n"};
    }
};
inline constexpr kind begin{"BEGIN"}, end{"END"}, critical{"CRITICAL"}, warning{"WARNING"}, info{"INFO"},
    plain{"PLAIN"}, debug{"DEBUG"};

/// The lines of an operation between its Begin and its End line.
inline trace whole(const std::string &function, std::initializer_list<trace> inside = {})
{
    return join({begin(function), join(inside), end(function)});
}

/// Writes a line of the test's own: what a callback sees, in its place among the library's lines.
void note(const std::string &text);
inline constexpr auto noted = [](const std::string &text) { return kind{"NOTE"}("", text); };

/// Takes out what the calling thread has written since the last take.
trace take_trace();
/// How many of the lines of a trace are of this kind and begin with this body, whatever the function.
int count_lines(const trace &lines, const std::string &kind, const std::string &body);

/// The calling thread has written exactly these lines, in this order, since the last take.
#define EXPECT_TRACE(...) EXPECT_EQ(zel_test::join({__VA_ARGS__}).text, zel_test::take_trace().text)

/// The call gives this result, unless it has none, and writes these lines.
template <typename Call, typename Expected> void expect_call(const Call &call, const Expected &result, trace lines)
{
    if constexpr (std::is_void_v<decltype(call())>)
        call();
    else
        EXPECT_EQ(call(), result) << lines.text;
    EXPECT_TRACE(lines);
}

/// In lines that are expected of a call: the function that is called.
inline const std::string it = "@";
inline constexpr auto rejection = [](const std::string &body) { return join({begin(it), critical(it, body)}); };
inline trace named(const std::string &function, trace lines)
{
    for (size_t at = 0; (at = lines.text.find(it, at)) != std::string::npos; at += function.size())
        lines.text.replace(at, it.size(), function);
    return lines;
}

/// function(...) gives `result` (any, if it has none) and writes these lines.
#define EXPECT_LOGS(result, lines, function, ...)                                                                      \
    zel_test::expect_call([&] { return function(__VA_ARGS__); }, result, zel_test::named(#function, lines))
/// The same with its Begin line before them; with its Begin and its End line around them.
#define EXPECT_BEGUN(result, lines, function, ...)                                                                     \
    EXPECT_LOGS(result, zel_test::join({zel_test::begin(zel_test::it), lines}), function, __VA_ARGS__)
#define EXPECT_WHOLE(result, lines, function, ...)                                                                     \
    EXPECT_LOGS(result, zel_test::whole(zel_test::it, {lines}), function, __VA_ARGS__)
/// function(...) gives `result` and writes its Begin line and this Critical line, nothing else.
#define EXPECT_REJECTED(result, body, function, ...)                                                                   \
    EXPECT_LOGS(result, zel_test::rejection(body), function, __VA_ARGS__)

/// For arguments that are not to be looked at: zeros, which have to stay zeros.
alignas(16) inline char nothing[512];

/// The call is refused, whichever of its first `count` pointers is NULL: it gives this result (NULL, if that is a
/// pointer), writes these lines, and leaves alone what the others point to.
template <typename Result, typename... Parameters>
void expect_nulls_refused(size_t count, int result, const trace &lines, Result (*function)(Parameters...))
{
    for (size_t victim = 0; victim < count; ++victim) {
        size_t index = 0;
        const auto pick = [&]<typename Value>(Value value) {
            if constexpr (std::is_pointer_v<Value>)
                return index++ == victim ? nullptr : reinterpret_cast<Value>(nothing);
            else
                return value;
        };
        const std::tuple<Parameters...> arguments = {pick(Parameters{})...};
        const auto call = [&] { return std::apply(function, arguments); };
        if constexpr (std::is_pointer_v<Result> || std::is_void_v<Result>)
            expect_call(call, nullptr, lines);
        else
            expect_call(call, static_cast<Result>(result), lines);
    }
    EXPECT_EQ(std::count(std::begin(nothing), std::end(nothing), 0), std::ssize(nothing)) << lines.text;
}

/// The same for several functions, whose names are given as one text.
template <typename... Functions>
void expect_nulls_refused(size_t count, int result, const trace &lines, const char *names, Functions... functions)
{
    std::istringstream rest(names);
    std::string name;
    ((std::getline(rest >> std::ws, name, ','), expect_nulls_refused(count, result, named(name, lines), functions)),
     ...);
}
/// Functions with a Begin line and a Critical line of this body; functions with the Critical line alone.
#define EXPECT_NULLS_REJECTED(count, result, body, ...)                                                                \
    zel_test::expect_nulls_refused(count, result, zel_test::rejection(body), #__VA_ARGS__, __VA_ARGS__)
#define EXPECT_NULLS_REFUSED(count, result, body, ...)                                                                 \
    zel_test::expect_nulls_refused(count, result, zel_test::critical(zel_test::it, body), #__VA_ARGS__, __VA_ARGS__)

/// What the rest of the platform answers, and what became of it. Not for several threads at once.
struct platform_state {
    int feature_result = SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    bool feature_value = false;
    void (*on_debug_line)() = nullptr; ///< called before the line is recorded

    std::set<app_control_h> handles; ///< those that exist
    int clone_result = 0;            ///< other than 0: the next clone fails with it, leaving this in its output
    app_control_h clone_left_behind = nullptr;
    int destroy_result = 0;
};
extern platform_state platform;

app_control_h new_handle();

} // namespace zel_test

#endif
