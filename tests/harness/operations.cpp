#include "operations.h"

#include <algorithm>

#include <utility>

namespace zel_test
{

outcome attempt(const call &made)
{
    take_trace();
    const int slept = calls::sleep.calls;
    const result returned = made();
    outcome now{returned.code, without_addresses(take_trace()), ""};
    const std::string &lines = now.lines;
    const bool has_ended = count(lines, made.function() + ":  \033[0;36mEND <<<<") > 0;
    now.brief = std::to_string(now.code) + (has_ended ? "." : "") + returned.words();
    EXPECT_TRUE(now.code == ZEL_ERR_NONE || now.code == ZEL_ERR_STORAGE_NO_RECORDS || made.name == "get_batch_count" ||
                count(lines, "* Critical *") > 0 || count(lines, "group count is 0") > 0)
        << lines;
    EXPECT_EQ(calls::sleep.calls - slept, 10 * count(lines, "Retried for 10 times - returning"));
    EXPECT_EQ(disk_sleeps, 0) << "somebody else waited for a lock too";
    return now;
}

/// A transfer that is handed out as it is stored is shown as its row: all its members but the type have a column.
static std::string with_rows_for_transfers(std::string words, const rows_of_tables &stored)
{
    constexpr size_t CONTENT_TYPE = 12;
    for (const auto &[key, row] : stored) {
        if (std::get<0>(key) != "content_info_status")
            continue;
        std::string members;
        for (size_t i = 0; i < row.size(); ++i)
            members += i == CONTENT_TYPE ? "" : (i ? "," : "") + row[i];
        if (const size_t at = words.find("(" + members + ")"); at != std::string::npos)
            words.replace(at, members.size() + 2, "row " + row[0]);
    }
    return words;
}

bool has_steps(const std::string &lines)
{
    return count(lines, ":  query [") > 1;
}

outcome run_in(const world &rows, const call &made, const circumstances &with)
{
    rows.begin(with.given, with.warm);
    const auto before = rows.rows();
    outcome now;
    {
        const fault planned(with.plan, with.nth);
        now = attempt(made);
        now.has_met_fault = fault::happened();
    }
    now.is_locked = with.plan.code == SQLITE_BUSY;
    now.is_closed = with.given.starts_with("closed;");
    now.before = before;
    now.rows = rows.rows();
    now.brief = with_rows_for_transfers(now.brief, *before);
    now.changed = changes(*before, *now.rows);
    world::end();
    return now;
}

std::vector<fault_case> run_with_faults(const world &rows, const table_entry &entry, int memory_faults)
{
    std::vector<fault_case> all;
    const auto add = [&](const std::string &kind, const std::string &which, const call &made,
                         const circumstances &with) {
        all.push_back({kind, which, run_in(rows, made, with)});
    };
    const call &made = entry.made;
    add("as usual", "", made, {entry.given});
    const outcome usual = all[0].met;
    // A number can be 0 and -1; that is a case when it is refused.
    const auto add_if_refused = [&](const std::string &kind, const std::string &which, const call &other) {
        add(kind, which, other, {entry.given});
        if (all.back().met.code == usual.code)
            all.pop_back();
    };
    call other = made;
    for (size_t i = 0; i < other.arguments.size(); ++i) {
        std::string &word = other.arguments[i];
        const std::string given = std::exchange(word, "NULL");
        const bool is_alone = std::count(made.arguments.begin(), made.arguments.end(), given) == 1;
        const std::string which =
            given[0] == '(' ? "()" : shown(given.c_str()) + (is_alone ? "" : std::to_string(i + 1));
        if (given != "NULL" && made.name != "is_recent_receiver_list_exist") { // which wants them all
            if (made.takes_number(i))
                add_if_refused("with 0 for", which, other);
            else
                add("without", which, other, {entry.given});
        }
        word = given;
    }
    if (!other.arguments.empty() && made.takes_number(0)) {
        other.arguments[0] = "-1";
        add_if_refused("with", "-1", other);
    }
    add("busy", "", made, {entry.given, {DISK_LOCK, true, SQLITE_BUSY}, 1, true});
    std::vector<std::string> tables; // that it asks for
    for (const auto &[key, columns] : *usual.before)
        if (const auto &[table, length, id] = key; length == 0 && count(usual.lines, "'" + table + "'") > 0)
            tables.push_back(table);
    for (const std::string &table : tables)
        if (count(usual.lines, "DELETE FROM '" + table + "'") == 0) // which then has nothing to delete
            add("no row", "in " + table, made, {entry.given + "; DELETE FROM " + table});
    for (const std::string &table : tables)
        add("no table", table, made, {entry.given + "; DROP TABLE " + table});
    if (!entry.given.starts_with("closed;"))
        add("closed", "", made, {"closed;" + entry.given});
    for (const auto &[kind, planned] :
         {std::pair("no memory for text", STATEMENT_TEXT), std::pair("no memory for block", LIBRARY_MEMORY)})
        for (int nth = 1; nth <= memory_faults; ++nth) {
            const outcome met = run_in(rows, made, {entry.given, {planned}, nth});
            if (!met.has_met_fault)
                break;
            all.push_back({kind, std::to_string(nth), met});
        }
    return all;
}

} // namespace zel_test
