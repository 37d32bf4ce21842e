// A call in the world of the tests, as usual and with each fault that it can meet.
#ifndef ZEL_TESTS_OPERATIONS_H
#define ZEL_TESTS_OPERATIONS_H

#include "disk.h"
#include "table.h"
#include "world.h"

#include <memory>
#include <string>
#include <vector>

namespace zel_test
{

struct outcome {
    int code;
    std::string lines;
    std::string brief; ///< the code, followed by a dot when the operation wrote its End line, and the outputs
    /* Of a call in a world of its own: */
    bool is_locked = false, is_closed = false, has_met_fault = false;
    std::shared_ptr<const rows_of_tables> before = {}, rows = {}; ///< and after it
    std::string changed = {};
};

/// Calls; what holds of every call is expected: a failure is explained by a Critical line, and each statement that is
/// given up was tried ten times.
outcome attempt(const call &made);
/// Whether it ran several statements, of which some may have been carried out on a failure.
bool has_steps(const std::string &lines);

/// The circumstances of a call.
struct circumstances {
    std::string given = {}; ///< as in the table
    fault_plan plan = {};
    int nth = 1;       ///< of the planned calls fails
    bool warm = false; ///< the store knows its tables: else a lock meets the reading of the schema
};
/// A call in a world of its own, and what became of the rows.
outcome run_in(const world &rows, const call &made, const circumstances &with = {});

/// A call with a fault: a kind, and which one of that kind.
struct fault_case {
    std::string kind, which;
    outcome met;
};
/// The call as usual, and with each fault that it can meet; of the memory's faults, that many of a kind.
std::vector<fault_case> run_with_faults(const world &rows, const table_entry &entry, int memory_faults);

} // namespace zel_test

#endif
