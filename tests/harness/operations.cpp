#include "operations.h"

#include <algorithm>
#include <functional>

namespace zel_test
{

outcome attempt(const call &made)
{
    take_trace();
    const int slept = calls::sleep.calls();
    outcome now{made(), take_trace(), "", ""};
    std::string &lines = now.lines.text;
    for (size_t at = 0; (at = lines.find("[0x", at)) != std::string::npos; ++at)
        lines.replace(at + 1, lines.find(']', at) - at - 1, "address");
    const bool has_ended = lines.find("END " + made.function() + ": \n") != std::string::npos;
    now.brief = std::to_string(now.answer.code) + (has_ended ? "." : "");
    EXPECT_TRUE(now.answer.code == ZEL_ERR_NONE || now.answer.code == ZEL_ERR_STORAGE_NO_RECORDS ||
                lines.find("CRITICAL") != std::string::npos || lines.find("group count is 0") != std::string::npos)
        << lines;
    EXPECT_EQ(calls::sleep.calls() - slept,
              10 * count_lines(now.lines, "CRITICAL", "Retried for 10 times - returning"));
    return now;
}

bool has_steps(const trace &lines)
{
    return count_lines(lines, "PLAIN", "query [") > 1;
}

std::vector<trouble> tell(const world &rows, const table_line &line)
{
    const call &made = line.made;
    const bool is_shut = line.given.starts_with("shut;");
    rows_of_tables before;
    std::vector<trouble> all;
    /// What it tells once this is done. The store knows its tables if it is to meet a lock: else that meets the reading
    /// of the schema.
    const auto meet = [&](
                          const std::string &name, const call &asked, const std::function<void()> &prepare,
                          const std::function<void()> &undo = [] {}) {
        rows.begin(line.given.substr(is_shut ? 5 : 0), name == "busy");
        if (is_shut)
            world::end();
        prepare();
        if (all.empty() || name.starts_with("none ") || name.starts_with("gone "))
            before = stored_rows();
        const std::string file = content_of(database_file);
        outcome met = attempt(asked);
        undo();
        const rows_of_tables after = content_of(database_file) == file ? before : stored_rows();
        met.changed = changes(before, after);
        all.push_back({name, met, after});
        world::end();
    };
    const auto nothing = [] {};
    meet("", made, nothing);
    for (size_t n = 1; n <= made.arguments(); ++n)
        if (made.has(n) && made.name() != "is_recent_receiver_list_exist") // which wants them all
            meet("null " + std::to_string(n), made.without(n), nothing);
    const outcome usual = all[0].met;
    raw_database *locker = nullptr;
    meet(
        "busy", made, [&] { (locker = new raw_database)->lock(); }, [&] { delete locker; });
    const rows_of_tables tables = before;
    for (const auto &[trouble, statement] : {std::pair("none ", "DELETE FROM "), std::pair("gone ", "DROP TABLE ")})
        for (const auto &[table, unused] : tables)
            if (usual.lines.text.find("'" + table + "'") != std::string::npos)
                meet(trouble + table, made, [&, text = statement + table] { raw_database().run(text); });
    before = tables;
    if (!is_shut)
        meet("shut", made, world::end);
    // Failures of memory, until none happens any more.
    const auto meet_each = [&](const std::string &name, const std::function<void(int)> &plan,
                               const std::function<bool()> &happened) {
        const auto first = static_cast<std::ptrdiff_t>(all.size());
        bool did = true;
        for (int nth = 1; did && nth <= 10; ++nth)
            meet(
                name + std::to_string(nth), made, [&] { plan(nth); }, [&] { did = happened(); });
        if (!did)
            all.pop_back();
        // In an order that does not depend on which argument a compiler looks at first.
        std::sort(all.begin() + first, all.end(),
                  [](const trouble &one, const trouble &other) { return one.met.lines.text < other.met.lines.text; });
    };
    meet_each(
        "text ", [](int nth) { calls::sqlite_format.answer(0, nth - 1); },
        [] { return calls::sqlite_format.answered(); });
    meet_each(
        "memory ",
        [](int nth) {
            allocations = {0, nth, 0};
        },
        [] { return allocations.count >= std::exchange(allocations.failing, 0); });
    return all;
}

} // namespace zel_test
