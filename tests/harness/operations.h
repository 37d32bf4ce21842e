// What is told of each call of the table.
#ifndef ZEL_TESTS_OPERATIONS_H
#define ZEL_TESTS_OPERATIONS_H

#include "call.h"
#include "disk.h"
#include "world.h"

#include <memory>
#include <string>
#include <vector>

namespace zel_test
{

struct outcome {
    told answer;
    std::string lines;
    std::string brief;        ///< the code, with a dot behind it when the operation wrote its End line
    std::string changed = {}; ///< rows, if that was looked at
    std::shared_ptr<const rows_of_tables> rows = {}; ///< behind it, likewise
    std::string shown() const
    {
        return answer.outputs + changed;
    }
};

/// Calls; what holds of every call is expected: a failure is explained by a Critical line, and each statement that is
/// given up was tried ten times.
outcome attempt(const call &made);
/// Whether it ran several statements, of which some may have been carried out on a failure.
bool has_steps(const std::string &lines);

struct trouble {
    std::string name; ///< a kind, and which one
    outcome met;
};
/// The call as it is usually, and under each trouble that it can meet.
std::vector<trouble> tell(const world &rows, const table_line &line);

} // namespace zel_test

#endif
