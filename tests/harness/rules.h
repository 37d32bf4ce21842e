// What the lines of every call have in common, and what is special in them.
#ifndef ZEL_TESTS_RULES_H
#define ZEL_TESTS_RULES_H

#include "call.h"

#include <string>
#include <vector>

namespace zel_test
{

/// A line that no rule states, or ";" for the statements that ran between two such lines.
struct own_line {
    std::string function; ///< Empty for the operation that is tried.
    std::string text;     ///< In quotation marks. Its kind and a colon precede it, unless it is Critical.
    bool operator==(const own_line &) const = default;
};

struct trace_report {
    std::vector<own_line> own_lines; ///< in their order
    std::vector<std::string> statements;
    std::vector<std::string> broken_rules;
};

struct trace_circumstances {
    bool is_locked; ///< each step meets a lock
    bool is_closed; ///< the store: the first statement opens it, unless the operation does
};
/// Reads the lines of a call, which have no addresses any more.
trace_report read_trace(const std::string &lines, const call &made, const trace_circumstances &with);

/// The lines after blanks; "x2" after one that comes twice, "(2 lines as usual)" for a long beginning.
std::string shown(const std::vector<own_line> &lines, const std::vector<own_line> &usual = {});

} // namespace zel_test

#endif
