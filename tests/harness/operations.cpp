#include "operations.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <optional>

namespace zel_test
{

outcome attempt(const call &made)
{
    take_trace();
    const int slept = calls::sleep.calls;
    outcome now{made(), take_trace(), ""};
    const std::string &lines = now.lines = without_addresses(now.lines);
    const bool has_ended = count(lines, made.function() + ":  \033[0;36mEND <<<<") > 0;
    now.brief = std::to_string(now.answer.code) + (has_ended ? "." : "");
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

std::vector<trouble> tell(const world &rows, const table_line &line)
{
    using guard = std::shared_ptr<void>;
    const bool is_shut = line.given.starts_with("shut;");
    const auto read_rows = [] { return std::make_shared<const rows_of_tables>(stored_rows()); };
    std::shared_ptr<const rows_of_tables> before, usual_rows;
    std::vector<trouble> all;
    /// What it tells while what was prepared for it lasts. The store knows its tables if it is to meet a lock: else
    /// that meets the reading of the schema.
    const auto meet = [&](
                          const std::string &name, const call &asked,
                          const std::function<guard()> &prepare = [] { return guard(); }) {
        rows.begin(line.given.substr(is_shut ? 5 : 0), name == "busy");
        if (is_shut)
            world::end();
        guard prepared = prepare();
        const bool is_prepared = name.starts_with("none ") || name.starts_with("gone ");
        before = is_prepared || all.empty() ? read_rows() : usual_rows;
        usual_rows = all.empty() ? before : usual_rows;
        const std::string file = content_of(database_file);
        outcome met = attempt(asked);
        prepared.reset();
        met.rows = content_of(database_file) == file ? before : read_rows();
        met.changed = met.rows == before ? "" : changes(*before, *met.rows);
        all.push_back({name, met});
        world::end();
    };
    meet("as usual", line.made);
    const std::string usual = all[0].met.lines;
    call other = line.made;
    for (std::string &word : other.arguments) {
        const std::string given = std::exchange(word, "NULL");
        if (given != "NULL" && given != "0" && other.name != "is_recent_receiver_list_exist") // which wants them all
            meet("without " + given, other);
        word = given;
    }
    if (!other.arguments.empty() && std::isdigit(other.arguments[0][0])) {
        other.arguments[0] = "-1";
        meet("with -1", other);
    }
    meet("busy", line.made, [] {
        const auto locker = std::make_shared<raw_database>();
        locker->run("BEGIN EXCLUSIVE");
        return locker;
    });
    for (const auto &[kind, statement] : {std::pair("none ", "DELETE FROM "), std::pair("gone ", "DROP TABLE ")})
        for (const auto &[key, columns] : *usual_rows)
            if (const std::string &table = std::get<0>(key);
                std::get<1>(key) == 0 && usual.find("'" + table + "'") != std::string::npos)
                meet(kind + table, line.made, [&, text = statement + table] {
                    raw_database().run(text);
                    return guard();
                });
    if (!is_shut)
        meet("shut", line.made, [] {
            world::end();
            return guard();
        });
    for (const auto &[kind, planned] : {std::pair("text ", STATEMENT_TEXT), std::pair("memory ", LIBRARY_MEMORY)}) {
        const auto first = static_cast<std::ptrdiff_t>(all.size());
        bool happened = true;
        for (int nth = 1; happened && nth <= 10; ++nth)
            meet(kind + std::to_string(nth), line.made, [&, it = planned] {
                return std::shared_ptr<fault>(new fault({it}, nth), [&](fault *failed) {
                    happened = fault::happened();
                    delete failed;
                });
            });
        if (!happened)
            all.pop_back();
        // In an order that does not depend on which argument a compiler looks at first.
        std::sort(all.begin() + first, all.end(),
                  [](const auto &one, const auto &other) { return one.met.lines < other.met.lines; });
    }
    return all;
}

} // namespace zel_test
