// Each call of operations/ in the small world: its outcome, and its outcome with each fault, is what stands there.
#include "diff.h"
#include "operations.h"
#include "rules.h"

#include <algorithm>
#include <climits>
#include <set>

using namespace zel_test;

namespace
{

/// The faults of one outcome: "no row in a or in b, busy". A kind stands alone when it always has that outcome.
std::string names_of(const std::vector<const fault_case *> &faults, const std::vector<fault_case> &all)
{
    std::string names, kind;
    for (const fault_case *it : faults) {
        const auto is_like = [&](const fault_case &other) { return other.kind == it->kind; };
        const auto is_like_here = [&](const fault_case *other) { return other->kind == it->kind; };
        const bool is_alone =
            it->kind.starts_with("no ") &&
            std::count_if(all.begin(), all.end(), is_like) == std::count_if(faults.begin(), faults.end(), is_like_here);
        if (it->kind == kind && is_alone)
            continue;
        names += it->kind == kind ? " or" : (names.empty() ? "" : ", ") + it->kind;
        names += is_alone || it->which.empty() ? "" : " " + it->which;
        kind = it->kind;
    }
    return names;
}

/// A call with its outcomes as they stand in the table. A fault that makes no difference is left out.
struct rendered {
    std::string text;
    std::vector<std::string> broken_rules;
};
rendered render(const world &rows, const table_entry &entry)
{
    std::vector<fault_case> all;
    if (entry.is_first)
        all = run_with_faults(rows, entry, 3);
    else
        all.push_back({"as usual", "", run_in(rows, entry.made, {entry.given})});

    rendered result;
    struct group {
        std::string outcome, shown;
        std::vector<const fault_case *> faults;
    };
    std::vector<group> groups;
    std::vector<own_line> usual;
    for (const fault_case &it : all) {
        const trace_report trace = read_trace(it.met.lines, entry.made, {it.met.is_locked, it.met.is_closed});
        for (const std::string &rule : trace.broken_rules)
            result.broken_rules.push_back(it.kind + " " + it.which + ": " + rule);
        const std::string outcome = it.met.brief + it.met.changed;
        const group now{outcome + shown(trace.own_lines), outcome + shown(trace.own_lines, usual), {}};
        if (groups.empty())
            usual = trace.own_lines;
        auto known =
            std::find_if(groups.begin(), groups.end(), [&](const group &one) { return one.outcome == now.outcome; });
        if (known == groups.end())
            known = groups.insert(groups.end(), now);
        known->faults.push_back(&it);
    }
    result.text = wrapped(entry.made.text + " -> " + groups[0].shown);
    for (size_t i = 1; i < groups.size(); ++i)
        result.text += "\n" + wrapped("    " + names_of(groups[i].faults, all) + " -> " + groups[i].shown);
    return result;
}

struct difference {
    size_t line;
    std::string text;
};

/// Runs the calls of a family, or those of one operation, and compares them with the table. Mistakes in it come first.
std::vector<difference> differences(const std::string &family, const std::string &operation = "")
{
    calls::sleep.answer(0, INT_MAX);
    const world rows(ROWS);
    std::vector<difference> all;
    std::string recorded;
    for (const table_entry &entry : read_table(family)) {
        std::string met = entry.text;
        if (!entry.made.name.empty() && (operation.empty() || entry.made.name == operation)) {
            if (const std::string mistake = entry.made.mistake(); !mistake.empty()) {
                all.insert(all.begin(), {entry.line, mistake + "\n"});
            } else {
                const rendered now = render(rows, entry);
                if (const size_t broken = now.broken_rules.size(); broken > 0)
                    all.push_back({entry.line, entry.made.text + "\na rule is broken " + std::to_string(broken) +
                                                   " times, first " + now.broken_rules[0] + "\n"});
                else if (is_recorded(family))
                    met = now.text;
                else if (now.text != entry.text)
                    all.push_back({entry.line, entry.made.text + "\n" + unified_diff(entry.text, now.text)});
            }
        }
        recorded += met + "\n";
    }
    if (is_recorded(family))
        write_file(table_file(family), recorded);
    return all;
}

std::string suite_name(const std::string &family)
{
    std::string name;
    for (size_t i = 0; i < family.size(); ++i)
        if (family[i] != '_')
            name += i == 0 || family[i - 1] == '_' ? static_cast<char>(std::toupper(family[i])) : family[i];
    return name;
}

class Operation : public testing::Test
{
  public:
    Operation(const std::string &family, const std::string &operation) : family_(family), operation_(operation) {}
    void TestBody() override
    {
        for (const difference &it : differences(family_, operation_))
            ADD_FAILURE_AT(table_file(family_).c_str(), static_cast<int>(it.line)) << it.text;
    }

  private:
    std::string family_, operation_;
};

const bool are_registered = [] {
    for (const std::string &family : families) {
        std::set<std::string> names;
        for (const table_entry &entry : read_table(family))
            if (!entry.made.name.empty() && names.insert(entry.made.name).second) // a misspelt one fails
                testing::RegisterTest(
                    suite_name(family).c_str(), entry.made.name.c_str(), nullptr, nullptr, table_file(family).c_str(),
                    static_cast<int>(entry.line),
                    [=, name = entry.made.name]() -> testing::Test * { return new Operation(family, name); });
    }
    return true;
}();

using Table = testing::TestWithParam<std::string>;

} // namespace

/// A whole family at once. What many operations have in common, such as a message, is shown for the first ones.
TEST_P(Table, holds)
{
    constexpr size_t SHOWN = 2;
    std::string text, others;
    size_t number = 0;
    const std::vector<difference> all = differences(GetParam());
    for (const difference &it : all) {
        const std::string place = GetParam() + ".txt:" + std::to_string(it.line) + ": ";
        if (++number <= SHOWN)
            text += place + it.text;
        else
            others += " " + std::to_string(it.line);
    }
    if (!others.empty())
        text += "Others differ too, in the lines" + others + ".\n";
    if (!all.empty())
        ADD_FAILURE_AT(table_file(GetParam()).c_str(), static_cast<int>(all[0].line)) << "\n" << text;
}
INSTANTIATE_TEST_SUITE_P(All, Table, testing::ValuesIn(families), [](const auto &it) { return it.param; });

TEST(TableOfOperations, names_each_operation_in_one_family)
{
    std::vector<std::string> named;
    for (const std::string &family : families) {
        std::set<std::string> names;
        for (const table_entry &entry : read_table(family))
            if (!entry.made.name.empty() && names.insert(entry.made.name).second)
                named.push_back(entry.made.name);
    }
    std::vector<std::string> all = operation_names();
    std::sort(all.begin(), all.end());
    std::sort(named.begin(), named.end());
    EXPECT_EQ(named, all);
}
