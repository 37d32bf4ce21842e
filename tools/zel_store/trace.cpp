/* A trace made readable. docs/log.md describes its lines; trace.sql adds them up. */

#include "new_file.h"
#include "texts.h"
#include "zel_store.h"

#include <cerrno>
#include <fstream>

namespace
{

constexpr char LINE[] = R"(^(.*?)(?:(QUILLO_COMMON)\s*(?:\([^)]*\))?\s*:\s*)?\b([A-Za-z_]\w*)\(\d+\): {1,2}(.*)$)";
// The thread is the last number behind the time: some platforms write the process in front of it.
constexpr char STAMP[] = R"((?:(\d{4})-)?(\d\d-\d\d)[ T](\d\d:\d\d:\d\d)[.,](\d{1,6})\S*(?:(?:\s+\d+)?\s+(\d+))?)";
constexpr char FOREIGN[] = R"((?:^|\s)[VDIWEF](?:/| +)\w+ *(?:\([^)]*\))?:)";

// What a line is, what that is about, and SQLite's code.
constexpr char BODY[] = R"((?s)^(?|.*?(failed to execute) \[(.*?)\], err\[(\d+)|\* (Critical) \* (.*)()|)"
                        R"((?=sqlite3_(finalize) = )(.*\[([1-9]\d*)\].*)|(query) ?\[(.*)\]()|)"
                        R"((BEGIN) >>>>()()|(END) <<<<()()|()(.*)()))";

constexpr char NO_THREADS[] = "The lines carry no thread ids, so lines of several threads may lie between each other: ";

/** The library's lines; other lines belong to the one above as its text holds line ends, or to somebody else. */
void read_lines(const connection &database, std::istream &in)
{
    database.rows(
        "CREATE TABLE lines (n INTEGER PRIMARY KEY, number INTEGER, time INTEGER, thread, function, body, what,"
        " code INTEGER,"
        " is_executor AS (function GLOB '__execute_*' OR function IN ('__insert_callback', '__db_finalize')))");
    std::vector<texts> lines;
    bool is_tagged = false;
    std::string text;
    for (size_t number = 1; std::getline(in, text); ++number) {
        for (size_t at = 0; (at = text.find("\033[", at)) != std::string::npos;) // colours
            text.erase(at, text.find_first_not_of("0123456789;", at + 2) + 1 - at);
        const std::vector<texts> line = matches(LINE, text);
        if (!line.empty() && (!is_tagged || !line[0][2].empty())) {
            is_tagged = !line[0][2].empty();
            texts &row = lines.emplace_back(texts{std::to_string(number), "", "", "", line[0][3], line[0][4]});
            for (const texts &stamp : matches(STAMP, line[0][1])) {
                row[1] = (stamp[1].empty() ? "1970" : stamp[1]) + "-" + stamp[2] + " " + stamp[3];
                row[2] = (stamp[4] + "00000").substr(0, 6);
                row[3] = stamp[5];
            }
        } else if (!lines.empty() && matches(FOREIGN, text).empty()) {
            lines.back().back() += "\n" + text;
        }
    }
    for (texts &line : lines) {
        const texts body = matches(BODY, line.back())[0];
        line.insert(line.end(), {body[2], body[1], body[3]});
        database.rows("INSERT INTO lines VALUES(NULL, ?1, strftime('%s', ?2) * 1000000 + ?3, ?4, ?5, ?7, ?8, ?9 + 0)",
                      line);
    }
}

/** What docs/log.md says of a failure: by the reason that SQLite gave, or by how its text begins. */
std::string advice_for(const std::string &text, int code)
{
    for (const texts &row : matches(FORMAT("\n\\| (?:\\d+, )*%d(?:, \\d+)* \\| (.*) \\| (.*) \\|\n", code), LOG_MD))
        return row[1] + ": " + row[2];
    for (const texts &row : matches("(?m)^\\| (`.*) \\| (.*) \\|$", LOG_MD))
        for (const texts &beginning : matches("`(.*?)(?:\\.\\.\\..*?)?`", row[1]))
            if (text.starts_with(beginning[1]))
                return row[2];
    return "the header of the operation tells its results";
}

} // namespace

outcome trace(const options &wanted)
{
    std::ifstream file(wanted.trace == "-" ? "/dev/stdin" : wanted.trace, std::ios::binary);
    if (!file || file.peek() == std::ifstream::traits_type::eof())
        throw unreadable(wanted.trace + ": " + (file ? "is empty" : g_strerror(errno)) + ". Name a file with a trace.");
    const connection database;
    read_lines(database, file);
    database.rows(TRACE_SQL);
    const json totals = database.rows("SELECT * FROM totals")[0];
    if (totals["lines"] == 0)
        throw unreadable(wanted.trace + ": no line of it is the library's (they read \"operation(line): text\").");
    if (totals["has_threads"] == 0 && (wanted.shows_tree || !wanted.timeline.empty()))
        throw unreadable(NO_THREADS + std::string("who called whom would be a guess. The host platform writes them."));
    if (!wanted.timeline.empty()) {
        new_file timeline(wanted.timeline);
        timeline.add(written({{"traceEvents", database.rows("SELECT * FROM events")}}, 0));
        timeline.publish();
    }
    json failures = database.rows("SELECT * FROM failures");
    for (json &one : failures)
        one["advice"] = advice_for(one["text"], one["code"]);
    std::string view = lines_of(database.rows(wanted.shows_tree ? "SELECT * FROM tree" : "SELECT * FROM summary"));
    if (totals["has_threads"] == 0)
        view += labelled("beware", NO_THREADS + std::string("a statement may be another thread's."));
    for (const json &one : wanted.shows_tree ? json::array() : failures) {
        view += "\n" + shown(text(one, "operation") + ": " + text(one, "text"), BOLD) +
                labelled("found", text(one, "count") + " times, first in line " + text(one, "first_line"));
        if (one["code"] != 0)
            view += labelled("statement", text(one, "statement")) +
                    labelled("SQLite", text(one, "code") + ", " + sqlite3_errstr(one["code"]) +
                                           "; refusals: " + text(one, "attempts"));
        view += labelled("advice", text(one, "advice"));
    }
    return {failures.empty() ? FINE : FINDINGS,
            view,
            {{"totals", totals}, {"operations", database.rows("SELECT * FROM operations")}, {"failures", failures}}};
}
