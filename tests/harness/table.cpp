#include "table.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace zel_test
{

namespace
{

constexpr char CONTINUED[] = "        ";
constexpr size_t WIDTH = 120;

/// The lines of an entry as one, up to the first arrow or the first indented line with faults.
std::string call_in(const std::string &text)
{
    std::string all = text.substr(0, text.find("\n    ", 0));
    for (size_t end = all.size(); text.compare(end, 9, std::string("\n") + CONTINUED) == 0;) {
        const size_t next = text.find('\n', end + 1);
        all += " " + text.substr(end + 9, next == std::string::npos ? next : next - end - 9);
        end = next == std::string::npos ? text.size() : next;
    }
    all.erase(std::min(all.find("->"), all.size()));
    return all.substr(0, all.find_last_not_of(' ') + 1);
}

} // namespace

std::string table_file(const std::string &family)
{
    return ZEL_TEST_STORAGE "/operations/" + family + ".txt";
}

std::vector<table_entry> read_table(const std::string &family)
{
    std::vector<table_entry> all;
    std::set<std::string> known;
    std::string given;
    std::ifstream file(table_file(family));
    size_t number = 0;
    for (std::string text, more; std::getline(file, text);) {
        const size_t first = ++number;
        for (; file.peek() == ' ' && std::getline(file, more); ++number)
            text += "\n" + more;
        const std::string joined = call_in(text);
        const bool is_given = text.empty() || text.starts_with("given ");
        if (is_given)
            given = text.empty() ? "" : joined.substr(6);
        const call made(is_given || text[0] == '#' ? "" : joined);
        all.push_back({first, text, made, given, !made.name.empty() && known.insert(made.name).second});
    }
    return all;
}

bool is_recorded(const std::string &family)
{
    const char *const wanted = std::getenv("ZEL_TEST_RECORD");
    return wanted && wanted == family;
}

void write_file(const std::string &file, const std::string &content)
{
    const std::string beside = file + ".new";
    std::ofstream(beside) << content;
    std::filesystem::rename(beside, file);
}

std::string wrapped(const std::string &text)
{
    std::string all, line;
    for (size_t from = 0, to; from < text.size(); from = to + 1) {
        bool is_quoted = false;
        for (to = from; to < text.size(); ++to) {
            is_quoted ^= text[to] == '"';
            const bool is_single = text[to] == ' ' && text[to + 1] != ' ' && to > from && text[to - 1] != ' ';
            if (is_single && !is_quoted)
                break;
        }
        const std::string word = text.substr(from, to - from);
        if (from > 0 && line.size() + 1 + word.size() > WIDTH) {
            all += line + "\n";
            line = CONTINUED + word;
        } else {
            line += (from > 0 ? " " : "") + word;
        }
    }
    return all + line;
}

std::vector<call> first_calls()
{
    std::vector<call> all;
    for (const std::string &family : families) {
        std::set<std::string> known;
        for (const table_entry &it : read_table(family))
            if (it.given.empty() && !it.made.name.empty() && !it.made.name.starts_with("__execute") &&
                it.made.name != "init" && it.made.mistake().empty() && known.insert(it.made.name).second)
                all.push_back(it.made);
    }
    return all;
}

} // namespace zel_test
