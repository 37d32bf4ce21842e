// Runs the scripts of the folder scripts/: each command must tell what stands, indented, below it. Its README explains
// them. With ZEL_RECORD set, what they tell now is written there instead, to be read before it is committed.
#include "faulty_disk.h"
#include "operations.h"

#include <climits>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <sstream>

using namespace zel_test;

namespace
{

void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

/// The lines that an operation has written, in one line and shortened, each way of writing in one way only.
std::string shortened(std::string lines, const std::string &function)
{
    const std::pair<std::string, std::string> abbreviations[] = {
        {"BEGIN __execute_select_query: \nPLAIN __execute_select_query: query[", "prepare ["},
        {"PLAIN __execute_query: query [", "run ["},
        {"PLAIN __execute_insert_query: query [", "insert ["},
        {"DEBUG __execute_select_query: failed to execute [", "refused ["},
        {"DEBUG __execute_query: failed to execute [", "refused ["},
        {"CRITICAL __execute_insert_query: failed to execute [", "refused ["},
        {"CRITICAL __execute_select_query: Retried for 10 times - returning", "given up"},
        {"CRITICAL __execute_query: Retried for 10 times - returning", "given up"},
        {"CRITICAL __execute_insert_query: Retried for 10 times - returning", "given up"},
        {"BEGIN __insert_callback: \nDEBUG __insert_callback: Assigning value ", "new id "},
        {"\nEND __insert_callback: \n", "\n"},
        {"DEBUG " + function + ": sqlite3_finalize = ", "finalized "},
        {"BEGIN " + function + ": \n", "{\n"},
        {"END " + function + ": \n", "}\n"},
        {"BEGIN _common_util_get_current_timestamp: \nDEBUG _common_util_get_current_timestamp:  timestamp:6000000000\n"
         "END _common_util_get_current_timestamp: \n",
         "now\n"},
        {": \n", "\n"},
        {" " + function + ": ", " "},
        {"\t", "\\t"},
        {"\n\n", "\\n\n"}, // of a body that ends in a line end
    };
    for (const auto &[from, to] : abbreviations)
        replace_all(lines, from, to);
    for (size_t at = 0; (at = lines.find("[0x", at)) != std::string::npos; ++at)
        lines.replace(at + 1, lines.find(']', at) - at - 1, "address");
    std::vector<std::string> each = lines_of(lines);
    for (size_t i = 1; i < each.size(); ++i)
        if (each[i - 1].starts_with("BEGIN ") && each[i] == "END " + each[i - 1].substr(6)) {
            each[i] = each[i].substr(4) + "()";
            each.erase(each.begin() + static_cast<std::ptrdiff_t>(--i));
        }
    std::string all;
    for (size_t i = 0, times = 1; i < each.size(); ++i, ++times) {
        if (i + 1 < each.size() && each[i] == each[i + 1])
            continue;
        all += (all.empty() ? "" : " | ") + (times > 1 ? std::to_string(times) + " times " : "") + each[i];
        times = 0;
    }
    return all;
}

/// The texts behind "prepare [", "run [" and "insert [".
std::vector<std::string> statements_in(const std::string &told)
{
    std::vector<std::string> statements;
    for (const std::string head : {"prepare [", "run [", "insert ["})
        for (size_t at = 0; (at = told.find(head, at)) != std::string::npos;) {
            at += head.size();
            statements.push_back(told.substr(at, std::min(told.find("] | ", at), told.size()) - at));
        }
    return statements;
}

/// The rows that only one of the two has, in the order of the tables.
std::string difference(const std::string &before, const std::string &after)
{
    const auto missing_in = [](const std::string &rows, const std::string &others, const char *mark) {
        std::multiset<std::string> known;
        for (const std::string &row : lines_of(others))
            known.insert(row);
        std::string all;
        for (const std::string &row : lines_of(rows)) {
            const auto found = known.find(row);
            if (found != known.end())
                known.erase(found);
            else
                all += mark + row + "\n";
        }
        return all;
    };
    return missing_in(before, after, "- ") + missing_in(after, before, "+ ");
}

void run_in_store(const std::string &statement)
{
    EXPECT_EQ(sqlite3_exec(_g_sqlite_handle, statement.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << statement;
}

class storyteller
{
  public:
    /// Carries out a command and gives what it tells.
    std::string tell(const std::string &command)
    {
        const std::string verb = command.substr(0, command.find(' '));
        const std::string rest = command.substr(std::min(verb.size() + 1, command.size()));
        const auto known = verbs_.find(verb);
        return known == verbs_.end() ? outcome_and_changes(invocation(command)) : known->second(rest);
    }

  private:
    static std::string outcome(const invocation &made)
    {
        take_trace();
        answers out;
        std::string told = std::to_string(made(out));
        const std::string lines = take_trace().text;
        for (const std::string &entry : lines_of(out.take()))
            told += ", " + entry;
        take_trace();
        return told + (lines.empty() ? "\n" : ": " + shortened(lines, made.function()) + "\n");
    }

    static std::string outcome_and_changes(const invocation &made)
    {
        const std::string before = stored_rows();
        const std::string told = outcome(made);
        return told + difference(before, stored_rows());
    }

    /// What it would be after the store's own connection has run this.
    static std::string outcome_after(const std::string &statement, const invocation &made)
    {
        run_in_store("BEGIN; " + statement);
        const std::string told = outcome(made);
        run_in_store("ROLLBACK");
        return told;
    }

    std::string try_out(const invocation &made, bool takes_null)
    {
        std::vector<std::pair<std::string, std::string>> troubles;
        for (size_t n = 1; n <= made.arguments(); ++n)
            if (takes_null && made.has(n)) {
                const std::string told = outcome_after("", made.without(n)), number = std::to_string(n);
                if (!troubles.empty() && troubles.back().second == told)
                    troubles.back().first += ", " + number;
                else
                    troubles.emplace_back("without " + number, told);
            }
        troubles.emplace_back("no rows", outcome_after("DELETE FROM " + table_, made));
        troubles.emplace_back("no table", outcome_after("ALTER TABLE " + table_ + " RENAME TO hidden", made));
        run_in_store("SELECT * FROM sqlite_master"); // so that no look at the schema meets the lock
        raw().lock();
        troubles.emplace_back("locked", outcome(made));
        raw().unlock();

        std::string all = outcome_and_changes(made);
        const std::string usual = all.substr(0, all.find('\n') + 1);
        const std::vector<std::string> statements = statements_in(usual);
        for (auto &[trouble, told] : troubles) {
            if (told == usual)
                continue;
            for (size_t i = 0; i < statements.size(); ++i)
                replace_all(told, statements[i], i ? "~" + std::to_string(i + 1) : "~");
            all += trouble + ": " + told;
        }
        return all;
    }

    /// Made at the first use, and its folder with it.
    raw_database &raw()
    {
        return raw_ ? *raw_ : raw_.emplace();
    }

    std::optional<raw_database> raw_;
    std::string table_;
    const std::map<std::string, std::function<std::string(const std::string &)>> verbs_ = {
        {"open", [this](const std::string &) { return raw(), outcome(invocation("init")), ""; }},
        {"close", [](const std::string &) { return world::end(), ""; }},
        {"call", [](const std::string &call) { return outcome(invocation(call)); }},
        {"table", [this](const std::string &name) { return table_ = name, ""; }},
        {"sql", [this](const std::string &text) { return raw().run(text), ""; }},
        {"rows", [this](const std::string &query) { return raw().rows(query); }},
        {"lock", [this](const std::string &) { return raw().lock(), ""; }},
        {"unlock", [this](const std::string &) { return raw().unlock(), ""; }},
        {"no-memory",
         [](const std::string &rest) {
             size_t end = 0;
             const allocation_failure fault(std::stoi(rest, &end));
             return outcome(invocation(rest.substr(end)));
         }},
        {"no-memory-for-statement",
         [](const std::string &skipped) { return calls::sqlite_format.answer(0, std::stoi(skipped)), ""; }},
        {"try", [this](const std::string &call) { return try_out(invocation(call), true); }},
        {"try-with-all", [this](const std::string &call) { return try_out(invocation(call), false); }},
    };
};

const std::filesystem::path folder = ZEL_TEST_SCRIPTS;

std::vector<std::string> names()
{
    std::vector<std::string> all;
    for (const auto &file : std::filesystem::directory_iterator(folder))
        if (file.path().extension() == ".txt")
            all.push_back(file.path().stem());
    return all;
}

class StoreScripts : public testing::TestWithParam<std::string>
{
};

} // namespace

TEST_P(StoreScripts, tell)
{
    use_faulty_disk(); // for its clock, and for speed
    std::filesystem::remove_all(database_folder);
    const scripted_clock clock(6000000000, 0);
    calls::sleep.answer(0, 0, INT_MAX);
    const std::filesystem::path path = folder / (GetParam() + ".txt");
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    const std::vector<std::string> lines = lines_of(content.str());
    std::string all;
    storyteller teller;
    for (size_t i = 0; i < lines.size();) {
        const std::string &command = lines[i];
        SCOPED_TRACE(path.string() + ":" + std::to_string(i + 1) + ": " + command);
        std::string told, then;
        if (!command.empty() && command[0] != '#')
            for (const std::string &line : lines_of(teller.tell(command)))
                told += "  " + line + "\n";
        for (++i; i < lines.size() && lines[i].starts_with("  "); ++i)
            then += lines[i] + "\n";
        EXPECT_TRUE(then == told || std::getenv("ZEL_RECORD")) << "then:\n" << then << "now:\n" << told;
        all += command + "\n" + told;
    }
    if (std::getenv("ZEL_RECORD"))
        std::ofstream(path) << all;
    if (_g_sqlite_handle)
        world::end();
}

TEST(StoreScriptsTogether, name_every_operation)
{
    std::set<std::string> commands;
    for (const std::string &name : names()) {
        std::ifstream file(folder / (name + ".txt"));
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            for (std::string word; words >> word;)
                commands.insert(word);
        }
    }
    for (const std::string &operation : invocation::names())
        EXPECT_TRUE(commands.contains(operation)) << operation << " is in no script";
}

INSTANTIATE_TEST_SUITE_P(All, StoreScripts, testing::ValuesIn(names()), [](const auto &info) { return info.param; });
