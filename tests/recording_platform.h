// The platform that tests link: it records every log line and answers the registry and the handles as a test says.
#ifndef ZEL_TESTS_RECORDING_PLATFORM_H
#define ZEL_TESTS_RECORDING_PLATFORM_H

#include "zel_platform.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace zel_test
{

/// Log lines as text, one a row: kind, function, body. A line that breaks the layout reads MALFORMED.
struct trace {
    std::string text;
};

trace begin(const std::string &function);
trace end(const std::string &function);
trace critical(const std::string &function, const std::string &body);
trace warning(const std::string &function, const std::string &body);
trace info(const std::string &function, const std::string &body);
trace plain(const std::string &function, const std::string &body);
trace debug(const std::string &function, const std::string &body);

/// The lines of an operation between its Begin and its End line.
trace whole(const std::string &function, std::initializer_list<trace> inside = {});

trace join(std::initializer_list<trace> parts);

/// Takes out what the calling thread has written since the last take (the lines of other threads stay).
trace take_trace();
/// Takes out what all threads have written.
trace take_trace_of_all();
/// How many of the lines of a trace are of this kind and body, whatever the function.
int count_lines(const trace &lines, const std::string &kind, const std::string &body);

/// The calling thread has written exactly these lines, in this order, since the last take.
#define EXPECT_TRACE(...) EXPECT_EQ(zel_test::join({__VA_ARGS__}).text, zel_test::take_trace().text)

/// The raw text of one log call as the platform would have put it out.
struct raw_line {
    int priority;
    std::string tag;
    std::string text;
};
/// The last line that any thread has written.
raw_line last_raw_line();

/// What the feature registry answers from now on.
void answer_feature(int result, bool value);
/// How often the registry was asked, and for what at last.
int feature_queries();
std::string last_feature_key();

app_control_h new_handle();
/// Handles that exist, and how many were ever made by cloning.
int live_handles();
int cloned_handles();
/// The next clone fails with this result, leaving this in its output.
void fail_next_clone(int result, app_control_h left_behind);
/// What destroying reports from now on.
void answer_destroy(int result);

} // namespace zel_test

#endif
