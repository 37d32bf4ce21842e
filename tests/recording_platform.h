// The platform that tests link: it records every log line and answers the registry and the handles as a test says.
#ifndef ZEL_TESTS_RECORDING_PLATFORM_H
#define ZEL_TESTS_RECORDING_PLATFORM_H

#include "zel_platform.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>

namespace zel_test
{

/// Log lines as text, one a row: kind, function, body. A line that breaks the layout reads MALFORMED.
struct trace {
    std::string text;
};

trace join(std::initializer_list<trace> parts);

trace line(const char *kind, const std::string &function, const std::string &body = "");

inline constexpr auto begin = [](const std::string &function) { return line("BEGIN", function); };
inline constexpr auto end = [](const std::string &function) { return line("END", function); };
inline constexpr auto critical = [](const std::string &f, const std::string &body) {
    return line("CRITICAL", f, body);
};
inline constexpr auto warning = [](const std::string &f, const std::string &body) { return line("WARNING", f, body); };
inline constexpr auto info = [](const std::string &f, const std::string &body) { return line("INFO", f, body); };
inline constexpr auto plain = [](const std::string &f, const std::string &body) { return line("PLAIN", f, body); };
inline constexpr auto debug = [](const std::string &f, const std::string &body) { return line("DEBUG", f, body); };
/// The lines of an operation between its Begin and its End line.
inline trace whole(const std::string &function, std::initializer_list<trace> inside = {})
{
    return join({begin(function), join(inside), end(function)});
}

/// Takes out what the calling thread has written since the last take.
trace take_trace();
/// How many of the lines of a trace are of this kind and body, whatever the function.
int count_lines(const trace &lines, const std::string &kind, const std::string &body);

/// The calling thread has written exactly these lines, in this order, since the last take.
#define EXPECT_TRACE(...) EXPECT_EQ(zel_test::join({__VA_ARGS__}).text, zel_test::take_trace().text)

/// The call of `function` gives this result, unless it has none, and writes these lines.
template <typename Call, typename Expected> void expect_call(const Call &call, const Expected &result, trace lines)
{
    if constexpr (std::is_void_v<decltype(call())>)
        call();
    else
        EXPECT_EQ(call(), result) << lines.text;
    EXPECT_TRACE(lines);
}

/// The same for each of the first pointers among the arguments in turn replaced by NULL.
template <typename Expected, typename Result, typename... Parameters>
void expect_nulls_refused(size_t count, const Expected &result, const trace &lines, Result (*function)(Parameters...),
                          std::type_identity_t<Parameters>... arguments)
{
    for (size_t victim = 0; victim < count; ++victim) {
        size_t index = 0;
        const auto pick = [&]<typename Value>(Value value) {
            return std::is_pointer_v<Value> && index++ == victim ? Value() : value;
        };
        const std::tuple<Parameters...> picked = {pick(arguments)...};
        expect_call([&] { return std::apply(function, picked); }, result, lines);
    }
}

/// function(...) gives `result` (any, if it has none) and writes its Begin line and this Critical line, nothing else.
#define EXPECT_REJECTED(result, body, function, ...)                                                                   \
    zel_test::expect_call([&] { return function(__VA_ARGS__); }, result,                                               \
                          zel_test::join({zel_test::begin(#function), zel_test::critical(#function, body)}))
/// So it does for each of the first `count` pointers among its arguments replaced by NULL; the second form is for a
/// function without a Begin line.
#define EXPECT_NULLS_REJECTED(count, result, body, function, ...)                                                      \
    zel_test::expect_nulls_refused(count, result,                                                                      \
                                   zel_test::join({zel_test::begin(#function), zel_test::critical(#function, body)}),  \
                                   function, __VA_ARGS__)
#define EXPECT_NULLS_REFUSED(count, result, body, function, ...)                                                       \
    zel_test::expect_nulls_refused(count, result, zel_test::critical(#function, body), function, __VA_ARGS__)

/// What the rest of the platform answers, and what became of it. Not for several threads at once.
struct platform_state {
    int feature_result = SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    bool feature_value = false;
    int feature_queries = 0;
    std::string feature_key;

    std::set<app_control_h> handles; ///< those that exist
    int clone_result = 0;            ///< other than 0: the next clone fails with it, leaving this in its output
    app_control_h clone_left_behind = nullptr;
    int destroy_result = 0;
};
extern platform_state platform;

app_control_h new_handle();

} // namespace zel_test

#endif
