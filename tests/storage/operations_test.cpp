// Each call of operations/ on the small world: what it told is what stands there. What it tells now lies in the same
// form in build/*/tests/told, to be read against the headers and copied here.
#include "operations.h"

#include <climits>
#include <cstring>
#include <fstream>
#include <glib.h>
#include <set>
#include <sstream>

using namespace zel_test;

namespace
{

/// The words, the long ones shortened until there is room for all, or else without the last ones.
std::string brief(const std::string &words, size_t room)
{
    std::string all;
    size_t longest = 40;
    do {
        all.clear();
        std::istringstream in(words);
        for (std::string word; in >> word;)
            all += " " + (word.size() > longest ? word.replace(longest / 2, word.size() - longest + 3, "...") : word);
    } while (all.size() > room && --longest >= 20);
    return all.size() > room ? all.substr(0, room - 3) + "..." : all;
}

/// The call's line; README.md says how it reads. The checksum is of all that was told, in full.
std::string line_of(const table_line &line, const std::vector<trouble> &told, std::string &full)
{
    full = line.given + "\n" + line.made.text + "\n";
    for (const auto &[name, met] : told)
        full += name + ": " + met.brief + met.changed + "\n" + met.lines;
    char checksum[] = " #......";
    std::snprintf(checksum, sizeof checksum, " #%06x", g_str_hash(full.c_str()) & 0xffffff);

    std::string asked = line.made.text + "->";
    const auto width = [&] { return asked.size() - (asked.rfind('\n') + 1) + strlen(checksum); };
    if (width() > 98) // below a long call there is more room
        asked += "\n   ";
    return asked + brief(told[0].met.brief + told[0].met.changed, 120 - width()) + checksum;
}

using StoreOperations = testing::TestWithParam<std::string>;

} // namespace

TEST_P(StoreOperations, tell)
{
    calls::sleep.answer(0, INT_MAX);
    const world rows(DECOYS);
    const std::filesystem::path told = ZEL_TEST_TOLD;
    std::filesystem::create_directories(told);
    std::ofstream in_full(told / (GetParam() + ".full.txt")), table(told / (GetParam() + ".txt"));
    for (const table_line &line : table_of(GetParam())) {
        SCOPED_TRACE(line.made.text);
        std::string full, now = line.text;
        if (!line.made.name.empty())
            now = line_of(line, tell(rows, line), full);
        EXPECT_EQ(now, line.text) << full;
        in_full << full << "\n";
        table << now << "\n";
    }
}
INSTANTIATE_TEST_SUITE_P(All, StoreOperations, testing::ValuesIn(sections),
                         [](const auto &info) { return info.param; });

TEST(StoreOperationsTogether, name_every_operation)
{
    std::set<std::string> called;
    for (const std::string &section : sections)
        for (const table_line &line : table_of(section))
            EXPECT_TRUE(!line.is_first || called.insert(line.made.name).second) << line.text;
    EXPECT_EQ(called, operation_names());
}
