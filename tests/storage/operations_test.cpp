// Each call of operations.txt on the small world: what it told is what stands there. With ZEL_RECORD set, what it tells
// now is written there instead, to be read against the headers before it is committed.
#include "disk.h"
#include "operations.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

using namespace zel_test;

namespace
{

/// FNV-1a.
std::string checksum(const std::string &text)
{
    uint32_t sum = 2166136261;
    for (const char byte : text)
        sum = (sum ^ static_cast<unsigned char>(byte)) * 16777619;
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", sum);
    return digits;
}

std::string in_full(const trouble &it)
{
    return (it.name.empty() ? "" : it.name + ": ") + it.met.brief + it.met.answer.outputs + it.met.changed + "\n" +
           it.met.answer.records + it.met.lines.text;
}

/// The call's line; the code of each trouble stands there for an operation's first call only, "=" where it makes no
/// difference and "~" where it is a success with another outcome.
std::string line_of(const table_line &line, const std::vector<trouble> &told, std::string &full)
{
    const outcome &usual = told[0].met;
    std::string all = line.made.text() + " -> " + usual.brief + usual.answer.outputs + usual.changed;
    std::string last;
    full = line.given + "\n" + line.made.text() + "\n";
    for (const trouble &it : told) {
        full += in_full(it);
        const std::string kind = it.name.substr(0, it.name.find(' '));
        const bool is_same = it.met.answer.outputs + it.met.changed == usual.answer.outputs + usual.changed;
        if (it.name.empty() || !line.is_first || (kind == "shut" && is_same && it.met.brief == usual.brief))
            continue;
        all += (kind == last ? " " : "; " + kind + " ") + (it.met.brief != usual.brief ? it.met.brief
                                                           : is_same                   ? "="
                                                                                       : "~");
        last = kind;
    }
    return all + " #" + checksum(full);
}

/// Broken into lines that can be read.
std::string wrapped(const std::string &line)
{
    std::istringstream words(line);
    std::string all, word;
    for (size_t length = 0; words >> word; length += word.size() + 1) {
        if (length && length + word.size() > 120) {
            all += "\n   ";
            length = 3;
        }
        all += (length ? " " : "") + word;
    }
    return all;
}

class StoreOperations : public testing::TestWithParam<std::string>
{
};

} // namespace

TEST_P(StoreOperations, tell)
{
    use_faulty_disk(); // for its clock, and for speed
    calls::sleep.answer(0, 0, INT_MAX);
    const world rows(DECOYS);
    std::filesystem::create_directories(ZEL_TEST_TOLD);
    std::ofstream told(std::filesystem::path(ZEL_TEST_TOLD) / (GetParam() + ".txt"));
    std::vector<std::string> file = lines_of(content_of(ZEL_TEST_OPERATIONS));
    std::vector<table_line> table = table_of_calls();
    for (auto line = table.rbegin(); line != table.rend(); ++line) {
        if (line->section != GetParam())
            continue;
        SCOPED_TRACE(line->made.text());
        std::string full;
        const std::string now = line_of(*line, tell(rows, *line), full);
        told << full << "\n";
        EXPECT_TRUE(now == line->recorded || std::getenv("ZEL_RECORD"))
            << "then " << line->recorded << "\nnow " << now << "\n"
            << full;
        file.erase(file.begin() + static_cast<std::ptrdiff_t>(line->begin),
                   file.begin() + static_cast<std::ptrdiff_t>(line->end));
        file.insert(file.begin() + static_cast<std::ptrdiff_t>(line->begin), wrapped(now));
    }
    if (!std::getenv("ZEL_RECORD"))
        return;
    std::ofstream out(ZEL_TEST_OPERATIONS);
    for (const std::string &line : file)
        out << line << "\n";
}
INSTANTIATE_TEST_SUITE_P(All, StoreOperations, testing::ValuesIn(sections()),
                         [](const auto &info) { return info.param; });

TEST(StoreOperationsTogether, name_every_operation)
{
    std::set<std::string> called;
    for (const table_line &line : table_of_calls())
        if (line.is_first)
            called.insert(line.made.name());
    for (const std::string &operation : call::names())
        EXPECT_TRUE(called.contains(operation)) << operation << " is not called in operations.txt";
}
