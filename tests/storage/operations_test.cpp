// Each call of operations.txt on the small world: what it told is what stands there. With ZEL_RECORD set, what it tells
// now is written there instead, to be read against the headers before it is committed.
#include "disk.h"
#include "operations.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

using namespace zel_test;

namespace
{

/// The call's line; for an operation's first call with the codes in trouble: "=" where that makes no difference and "~"
/// where it is a success with another outcome, one for all that are alike, and none where all are as usual.
std::string line_of(const table_line &line, const std::vector<trouble> &told, std::string &full)
{
    const outcome &usual = told[0].met;
    std::map<std::string, std::vector<std::string>> codes; // by kind
    full = line.given + "\n" + line.made.text + "\n";
    for (const auto &[name, met] : told) {
        full += name + ": " + met.brief + met.shown() + "\n" + met.answer.records + met.lines;
        codes[name.substr(0, name.find(' '))].push_back(met.brief != usual.brief       ? met.brief
                                                        : met.shown() == usual.shown() ? "="
                                                                                       : "~");
    }
    std::string all = line.made.text + " ->", word;
    for (std::istringstream words(" " + usual.brief + usual.shown()); words >> word;)
        all += " " + (word.size() > 30 ? word.substr(0, 14) + "..." + word.substr(word.size() - 14) : word);
    for (const std::string kind : {"null", "below", "none", "busy", "gone", "shut", "text", "memory"}) {
        static const std::map<std::string, std::string> rules = {
            {"null", "1"}, {"shut", "="}, {"busy", "15"}, {"gone", "15"}, {"text", "15"}};
        std::vector<std::string> &here = codes[kind];
        if (std::set(here.begin(), here.end()).size() == 1)
            here.resize(1);
        const std::string rule = rules.contains(kind) ? rules.at(kind) : "~";
        const bool is_usual = here.empty() || (here.size() == 1 && (here[0] == rule || here[0] == rule + "."));
        if (!line.is_first || is_usual || ((kind == "busy" || kind == "below") && here == codes["none"]))
            continue;
        all += "; " + kind;
        for (const std::string &code : here)
            all += " " + code;
    }
    char checksum[16];
    std::snprintf(checksum, sizeof checksum, " #%08x", g_str_hash(full.c_str()));
    return all + checksum;
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
        SCOPED_TRACE(line->made.text);
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
            called.insert(line.made.name);
    EXPECT_EQ(called, operation_names());
}
