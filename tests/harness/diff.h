// How a difference between two texts is shown.
#ifndef ZEL_TESTS_DIFF_H
#define ZEL_TESTS_DIFF_H

#include <string>

namespace zel_test
{

/// A unified diff of the lines of two texts: "-" for what is only expected, "+" for what is only met, one line of
/// context around them. Empty when the texts are equal.
std::string unified_diff(const std::string &expected, const std::string &met);

} // namespace zel_test

#endif
