// What the operations ask of SQLite is what stands in statements.txt.
#include "diff.h"
#include "operations.h"
#include "rules.h"

#include <algorithm>
#include <climits>
#include <glib.h>
#include <memory>
#include <set>
#include <utility>

using namespace zel_test;

namespace
{

/// The statement without its numbers and its texts, of which the names of tables are none.
std::string shape_of(const std::string &statement)
{
    static GRegex *const values =
        g_regex_new("(?<!=)'(unique_data|folder_info|push_noti_info|content_info|content_info_status|"
                    "recent_receiver_group|recent_receiver_details|upload_request_data|contact_details)'(*SKIP)(*FAIL)|"
                    "'(?:[^']|'')*'|-?\\b\\d+",
                    static_cast<GRegexCompileFlags>(0), static_cast<GRegexMatchFlags>(0), nullptr);
    const std::unique_ptr<char, decltype(&g_free)> shape(
        g_regex_replace_literal(values, statement.c_str(), -1, 0, "?", static_cast<GRegexMatchFlags>(0), nullptr),
        g_free);
    return shape.get();
}

bool scans(const std::string &statement)
{
    for (const auto &step : raw_database().rows("EXPLAIN QUERY PLAN " + statement))
        if (step[3].starts_with("SCAN") && step[3] != "SCAN CONSTANT ROW")
            return true;
    return false;
}

constexpr char HEADING[] =
    R"(# The statements of each operation: those of its first call in the table, "x2" for two that differ in values only, and
# those of other forms that further calls have. A star marks a statement that passes all rows of a table.
)";

/// The statements of a family's operations, in the order of the table.
std::string statements_of(const world &rows, const std::string &family)
{
    struct operation_statements {
        std::string name;
        std::set<std::string> shapes;
        std::string last_shape;
        std::vector<std::pair<std::string, int>> lines; ///< and how often in a row
    };
    std::vector<operation_statements> all;
    for (const table_entry &entry : read_table(family)) {
        const std::string &name = entry.made.name;
        if (name.empty() || name.starts_with("__execute") || !entry.made.mistake().empty())
            continue;
        auto of = std::find_if(all.begin(), all.end(), [&](const auto &it) { return it.name == name; });
        if (of == all.end())
            of = all.insert(of, {name, {}, "", {}});
        const outcome now = run_in(rows, entry.made, {entry.given});
        rows.begin(entry.given);
        for (const std::string &statement :
             read_trace(now.lines, entry.made, {now.is_locked, now.is_closed}).statements) {
            const std::string shape = shape_of(statement);
            const bool is_new = of->shapes.insert(shape).second;
            if (entry.is_first && shape == std::exchange(of->last_shape, shape))
                ++of->lines.back().second;
            else if (entry.is_first || is_new)
                of->lines.emplace_back((scans(statement) ? "* " : "  ") + statement, 1);
        }
        world::end();
    }
    std::string text;
    for (const operation_statements &it : all) {
        const bool is_alone = it.lines.size() == 1;
        text += it.name + (is_alone ? "" : "\n");
        for (const auto &[line, times] : it.lines)
            text += wrapped((is_alone ? " " : "  ") + line + (times > 1 ? " x" + std::to_string(times) : "")) + "\n";
    }
    return text;
}

} // namespace

TEST(Statements, are_listed)
{
    calls::sleep.answer(0, INT_MAX);
    const world rows(ROWS);
    std::string met = HEADING;
    for (const std::string &family : families)
        met += statements_of(rows, family);
    const std::string file = ZEL_TEST_STORAGE "/statements.txt";
    if (is_recorded("statements"))
        write_file(file, met);
    EXPECT_EQ(unified_diff(content_of(file), met), "");
}
