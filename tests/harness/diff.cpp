#include "diff.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace zel_test
{

static std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> all;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        all.push_back(line);
    return all;
}

std::string unified_diff(const std::string &expected, const std::string &met)
{
    if (expected == met)
        return "";
    // EXPECT_EQ prints the same diff, but both texts in full before it.
    return testing::internal::edit_distance::CreateUnifiedDiff(lines_of(expected), lines_of(met), 1);
}

} // namespace zel_test
