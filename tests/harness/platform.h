// The platform that tests link: it records every log line, and answers for the registry and the handles as a test says.
#ifndef ZEL_TESTS_PLATFORM_H
#define ZEL_TESTS_PLATFORM_H

#include "zel_platform.h"

#include <set>
#include <string>

namespace zel_test
{

/// Hands over the lines that the calling thread has logged since the last call, each as the platform was given it: the
/// letter of its priority, the tag and the text, without the number of the source line.
std::string take_trace();
/// Adds a line of the test's own, such as a callback's, in its place among the library's lines.
void add_line(const std::string &text);
/// How often a part stands in a text.
int count(const std::string &text, const std::string &part);
/// With nothing but "0x" of each address.
std::string without_addresses(std::string text);

/// What the rest of the platform answers. Not for several threads at once.
struct platform_state {
    int feature_result = SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    bool feature_value = false;
    std::set<app_control_h> handles;      ///< those that exist
    int clone_result = 0;                 ///< other than 0: the next clone fails with it
    app_control_h failed_clone = nullptr; ///< the output of a clone that fails
    int destroy_result = 0;
};
extern platform_state platform;

app_control_h new_handle();

} // namespace zel_test

#endif
