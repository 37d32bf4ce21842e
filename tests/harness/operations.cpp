#include "operations.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace zel_test
{

outcome attempt(const call &made)
{
    take_trace();
    const int slept = calls::sleep.calls;
    outcome now{made(), take_trace(), ""};
    const std::string &lines = now.lines = without_addresses(now.lines);
    const bool has_ended = count(lines, made.function() + ":  \033[0;36mEND <<<<") > 0;
    now.brief = std::to_string(now.answer.code) + (has_ended ? "." : "") + now.answer.outputs;
    EXPECT_TRUE(now.answer.code == ZEL_ERR_NONE || now.answer.code == ZEL_ERR_STORAGE_NO_RECORDS ||
                made.name == "get_batch_count" || count(lines, "* Critical *") > 0 ||
                count(lines, "group count is 0") > 0)
        << lines;
    EXPECT_EQ(calls::sleep.calls - slept, 10 * count(lines, "Retried for 10 times - returning"));
    EXPECT_EQ(disk_sleeps, 0) << "besides, somebody waited for a lock";
    return now;
}

bool has_steps(const std::string &lines)
{
    return count(lines, ":  query [") > 1;
}

outcome meet(const world &in, const call &made, const circumstances &with)
{
    in.begin(with.given, with.warm);
    const auto before = in.rows();
    outcome met;
    {
        const fault planned(with.plan, with.nth);
        met = attempt(made);
        met.has_met_fault = fault::happened();
    }
    met.before = before;
    met.rows = in.rows();
    met.changed = changes(*before, *met.rows);
    world::end();
    return met;
}

std::vector<trouble> tell(const world &rows, const table_line &line)
{
    std::vector<trouble> all;
    const auto add = [&](const std::string &name, const call &made, const circumstances &with) {
        all.push_back({name, meet(rows, made, with)});
    };
    add("as usual", line.made, {line.given});
    const outcome usual = all[0].met;
    call other = line.made;
    for (std::string &word : other.arguments) {
        const std::string given = std::exchange(word, "NULL");
        if (given != "NULL" && given != "0" && other.name != "is_recent_receiver_list_exist") // which wants them all
            add("without " + given, other, {line.given});
        word = given;
    }
    if (!other.arguments.empty() && std::isdigit(other.arguments[0][0])) {
        other.arguments[0] = "-1";
        add("with -1", other, {line.given});
    }
    add("busy", line.made, {line.given, {DISK_LOCK, true, SQLITE_BUSY}, 1, true});
    for (const auto &[kind, statement] : {std::pair("none ", "; DELETE FROM "), std::pair("gone ", "; DROP TABLE ")})
        for (const auto &[key, columns] : *usual.before)
            if (const auto &[table, length, id] = key;
                length == 0 && usual.lines.find("'" + table + "'") != std::string::npos)
                add(kind + table, line.made, {line.given + statement + table});
    if (!line.given.starts_with("shut;"))
        add("shut", line.made, {"shut;" + line.given});
    for (const auto &[kind, planned] : {std::pair("text ", STATEMENT_TEXT), std::pair("memory ", LIBRARY_MEMORY)}) {
        const auto first = std::ssize(all);
        for (int nth = 1; nth <= 10; ++nth) {
            const outcome met = meet(rows, line.made, {line.given, {planned}, nth});
            if (!met.has_met_fault)
                break;
            all.push_back({kind + std::to_string(nth), met});
        }
        // In an order that does not depend on which argument a compiler looks at first.
        std::sort(all.begin() + first, all.end(),
                  [](const auto &one, const auto &other) { return one.met.lines < other.met.lines; });
    }
    return all;
}

} // namespace zel_test
