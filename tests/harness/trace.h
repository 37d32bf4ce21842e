// Expectations on what the library has logged, in words.
#ifndef ZEL_TESTS_TRACE_H
#define ZEL_TESTS_TRACE_H

#include "platform.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zel_test
{

struct log_line {
    std::string function; ///< empty for a line of the test's own, or of no known kind
    std::string kind;     ///< Begin, End, Critical, Warning, Info, Plain or Debug
    std::string text;
};
std::vector<log_line> parse_all(const std::string &trace);

/// The lines of a trace as "function: Kind: text", or as "    Kind: text" below another one of the same function.
///
/// Begin and End lines are left out where an End line follows its Begin line. A function writes no End line after a
/// Critical line; where it does, " (End)" stands after that Critical line. Each departure is shown.
std::string lines_of(const std::string &trace);

/// The calling thread has logged these lines, and nothing else, since the trace was last taken. The first line break
/// does not count, so that the text can begin on a line of its own.
void expect_lines(const std::string &expected, const char *file = __builtin_FILE(), int line = __builtin_LINE());

/// A text as printf makes it.
[[gnu::format(printf, 1, 2)]] std::string printed(const char *format, ...);

/// For arguments that must not be used: zeros, which must stay zeros.
alignas(16) inline char untouched[512];

/// An argument that is left alone, or NULL.
template <typename Value> Value argument(bool is_null)
{
    if constexpr (std::is_pointer_v<Value>)
        return is_null ? nullptr : reinterpret_cast<Value>(untouched);
    else
        return Value{};
}

/// A rejected call has logged one Critical line with this message, and left alone what it was given.
void expect_rejection(const std::string &message);

/// Calls a function with NULL for each of its first `count` pointers in turn. It logs one Critical line with this
/// message and returns the result (NULL for a pointer). It leaves the targets of the other pointers alone.
template <typename Result, typename... Parameters>
void expect_null_is_rejected(size_t count, const std::string &message, int result, Result (*function)(Parameters...))
{
    constexpr bool is_pointer[] = {std::is_pointer_v<Parameters>...};
    const auto call_with = [&]<size_t... I>(size_t null, std::index_sequence<I...>)
    {
        return function(argument<Parameters>(I == null)...);
    };
    constexpr std::index_sequence_for<Parameters...> all;
    for (size_t null = 0; count > 0; ++null) {
        if (!is_pointer[null])
            continue;
        --count;
        take_trace();
        if constexpr (std::is_void_v<Result>)
            call_with(null, all);
        else if constexpr (std::is_pointer_v<Result>)
            EXPECT_TRUE(call_with(null, all) == nullptr) << message;
        else
            EXPECT_TRUE(call_with(null, all) == static_cast<Result>(result)) << message;
        expect_rejection(message);
    }
}

template <typename... Functions>
void expect_null_is_rejected(size_t count, const std::string &message, int result, Functions... functions)
{
    (expect_null_is_rejected(count, message, result, functions), ...);
}

} // namespace zel_test

#endif
