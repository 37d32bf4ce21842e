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
    std::string brief; ///< the code, with a dot behind it when the operation wrote its End line, and the outputs
    /* What meet looks at besides. */
    bool has_met_fault = false;
    std::shared_ptr<const rows_of_tables> before = {}, rows = {}; ///< and behind it
    std::string changed = {};
};

/// Calls; what holds of every call is expected: a failure is explained by a Critical line, and each statement that is
/// given up was tried ten times.
outcome attempt(const call &made);
/// Whether it ran several statements, of which some may have been carried out on a failure.
bool has_steps(const std::string &lines);

/// What a call meets.
struct circumstances {
    std::string given = {}; ///< as in the table
    fault_plan plan = {};
    int nth = 1;       ///< of the planned calls fails
    bool warm = false; ///< the store knows its tables: else a lock meets the reading of the schema
};
/// A call in a world of its own, and what became of the rows.
outcome meet(const world &in, const call &made, const circumstances &with = {});

struct trouble {
    std::string name; ///< a kind, and which one
    outcome met;
};
/// The call as it is usually, and under each trouble that it can meet.
std::vector<trouble> tell(const world &rows, const table_line &line);

} // namespace zel_test

#endif
