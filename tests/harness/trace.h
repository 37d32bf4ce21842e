// Expectations on what the library has logged, in words.
#ifndef ZEL_TESTS_TRACE_H
#define ZEL_TESTS_TRACE_H

#include "platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <tuple>
#include <type_traits>

namespace zel_test
{

/// The lines of a trace as "function: Kind: text", or as "    Kind: text" below another one of the same function.
///
/// Begin and End lines are left out where they follow the rule: a function writes its Begin line first and its End line
/// last, but no End line after a Critical line. Where it does, " (End)" stands after that Critical line. Each departure
/// is a line of its own. The functions that write no End line, or neither, stand in trace.cpp.
std::string lines_of(const std::string &trace);

/// The calls in a trace, by their Begin and End lines, one in a line: "outer(first second)".
std::string calls_of(const std::string &trace);

/// The calling thread has logged these lines, and nothing else, since the trace was last taken. The first line break
/// does not count, so that the text can begin on a line of its own.
void expect_lines(const std::string &expected, const char *file = __builtin_FILE(), int line = __builtin_LINE());
/// The same for the calls.
void expect_calls(const std::string &expected, const char *file = __builtin_FILE(), int line = __builtin_LINE());

/// For arguments that are not to be looked at: zeros, which have to stay zeros.
alignas(16) inline char untouched[512];

/// Calls each function with NULL for each of its first `count` pointers in turn. It logs one Critical line with this
/// message, returns the result (NULL for a pointer), and leaves alone what the other pointers point to.
template <typename... Functions>
void expect_null_is_rejected(size_t count, const std::string &message, int result, Functions... functions)
{
    const auto check = [&]<typename Result, typename... Parameters>(Result (*function)(Parameters...)) {
        for (size_t victim = 0; victim < count; ++victim) {
            size_t index = 0;
            const auto pick = [&]<typename Value>(Value value) {
                if constexpr (std::is_pointer_v<Value>)
                    return index++ == victim ? nullptr : reinterpret_cast<Value>(untouched);
                else
                    return value;
            };
            const std::tuple<Parameters...> arguments = {pick(Parameters{})...};
            take_trace();
            if constexpr (std::is_void_v<Result>)
                std::apply(function, arguments);
            else if constexpr (std::is_pointer_v<Result>)
                EXPECT_EQ(std::apply(function, arguments), nullptr);
            else
                EXPECT_EQ(static_cast<int>(std::apply(function, arguments)), result);
            const std::string lines = lines_of(take_trace());
            EXPECT_EQ(lines, lines.substr(0, lines.find(':')) + ": Critical: " + message + "\n")
                << "pointer " << victim;
        }
    };
    (check(functions), ...);
    EXPECT_EQ(std::count(std::begin(untouched), std::end(untouched), 0), std::ssize(untouched));
}

} // namespace zel_test

#endif
