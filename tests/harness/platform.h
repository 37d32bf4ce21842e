// The platform that tests link: it records every log line and answers the registry and the handles as a test says.
#ifndef ZEL_TESTS_PLATFORM_H
#define ZEL_TESTS_PLATFORM_H

#include "zel_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>

namespace zel_test
{

/// Takes out the lines that the calling thread has written since the last take, each as the platform was given it: the
/// letter of its priority, the tag and the text, without the number of the source line.
std::string take_trace();
/// Writes a line of the test's own: what a callback sees, in its place among the library's lines.
void note(const std::string &text);
/// How often a part stands in a text.
int count(const std::string &text, const std::string &part);
/// With nothing but "0x" of each address.
std::string without_addresses(std::string text);

/// What the calling thread has written since the last take has this checksum, addresses aside, and names these. Where
/// it does not, the lines are printed; each run leaves them in a file named for the case below ZEL_TEST_TOLD.
void expect_lines(unsigned int checksum, const std::string &addresses = "");

/// For arguments that are not to be looked at: zeros, which have to stay zeros.
alignas(16) inline char nothing[512];

/// Calls each with NULL for each of its first `count` pointers in turn, and notes the result, which is NULL if that is
/// a pointer. What the others point to is left alone.
template <typename... Functions> void leave_out_each(size_t count, Functions... functions)
{
    const auto leave_out = [count]<typename Result, typename... Parameters>(Result (*function)(Parameters...)) {
        for (size_t victim = 0; victim < count; ++victim) {
            size_t index = 0;
            const auto pick = [&]<typename Value>(Value value) {
                if constexpr (std::is_pointer_v<Value>)
                    return index++ == victim ? nullptr : reinterpret_cast<Value>(nothing);
                else
                    return value;
            };
            const std::tuple<Parameters...> arguments = {pick(Parameters{})...};
            if constexpr (std::is_void_v<Result>)
                std::apply(function, arguments);
            else if constexpr (std::is_pointer_v<Result>)
                EXPECT_EQ(std::apply(function, arguments), nullptr);
            else
                note(std::to_string(std::apply(function, arguments)));
        }
    };
    (leave_out(functions), ...);
    EXPECT_EQ(std::count(std::begin(nothing), std::end(nothing), 0), std::ssize(nothing));
}

/// What the rest of the platform answers, and what became of it. Not for several threads at once.
struct platform_state {
    int feature_result = SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    bool feature_value = false;
    void (*before_line)() = [] {}; ///< of the log

    std::set<app_control_h> handles; ///< those that exist
    int clone_result = 0;            ///< other than 0: the next clone fails with it, leaving this in its output
    app_control_h clone_left_behind = nullptr;
    int destroy_result = 0;
};
extern platform_state platform;

app_control_h new_handle();

} // namespace zel_test

#endif
