/* A trace made readable. docs/log.md describes its lines; trace.sql adds them up. */

#include "texts.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <glib.h>
#include <iostream>

namespace
{

constexpr char LINE[] = R"(^(.*?)(?:(QUILLO_COMMON)\s*(?:\([^)]*\))?\s*:\s*)?\b([A-Za-z_]\w*)\(\d+\): {1,2}(.*)$)";
// The thread is the last number behind the time: some platforms write the process in front of it.
constexpr char STAMP[] = R"((?:(\d{4})-)?(\d\d-\d\d)[ T](\d\d:\d\d:\d\d)[.,](\d{1,6})\S*(?:\s+\d+)?(?:\s+(\d+)))";
constexpr char FOREIGN[] = R"((?:^|\s)[VDIWEF](?:/| +)\w+ *(?:\([^)]*\))?:)";

constexpr char NO_THREADS[] = "The lines carry no thread ids, so lines of several threads may lie between each other: ";

/** The library's lines; other lines belong to the one above as its text holds line ends, or to somebody else. */
void read_lines(const connection &database, std::istream &in)
{
    database.rows("CREATE TABLE raw (number, time, thread, function, body)");
    const std::string insert = "INSERT INTO raw VALUES(?, strftime('%s', ?) * 1000000 + ?, ?, ?, ?)";
    bool has_lines = false;
    bool is_tagged = false;
    std::string text;
    for (size_t number = 1; std::getline(in, text); ++number) {
        for (size_t at = 0; (at = text.find("\033[", at)) != std::string::npos;) // colours
            text.erase(at, text.find_first_not_of("0123456789;", at + 2) + 1 - at);
        const texts parts = match(LINE, text);
        if (!parts.empty() && (!is_tagged || !parts[2].empty())) {
            has_lines = true;
            is_tagged = !parts[2].empty();
            const texts stamp = match(STAMP, parts[1]);
            if (stamp.empty())
                database.rows(insert, {number, nullptr, nullptr, "", parts[3], parts[4]});
            else
                database.rows(insert, {number, (stamp[1].empty() ? "1970" : stamp[1]) + "-" + stamp[2] + " " + stamp[3],
                                       std::stoi((stamp[4] + "00000").substr(0, 6)), stamp[5], parts[3], parts[4]});
        } else if (has_lines && match(FOREIGN, text).empty()) {
            database.rows(insert, {number, nullptr, nullptr, nullptr, nullptr, text});
        }
    }
}

/** What docs/log.md says of a failure: by the reason that SQLite gave, or by how its text begins. */
std::string advice_for(const std::string &text, int code)
{
    static const std::vector<texts> ROWS = advice(LOG_MD, "## Lines that mean trouble");
    for (const texts &row : ROWS)
        if (code && row.size() == 3 && (", " + row[0] + ",").find(format(", %d,", code)) != std::string::npos)
            return row[1] + ": " + row[2];
    for (const texts &row : ROWS)
        for (size_t at = 0, end = 0; row.size() == 2 && (at = row[0].find('`', end)) != std::string::npos; ++end) {
            end = row[0].find('`', at + 1);
            const size_t literal = std::min(end, row[0].find("...", at)) - at - 1;
            if (text.compare(0, literal, row[0], at + 1, literal) == 0)
                return row[1];
        }
    return "the header of the operation tells its results";
}

void print_summary(const connection &database, const json &totals, const json &failures)
{
    print(format("%s lines of the library, %s threads, %.3f seconds", text(totals, "lines").c_str(),
                 text(totals, "threads").c_str(), totals["us"].is_null() ? 0 : totals["us"].get<double>() / 1e6));
    if (totals["has_threads"] == 0)
        print_labelled("beware", NO_THREADS + std::string("a statement may be another thread's."));
    const int room = screen.width ? std::max(20, screen.width - 47) : 66;
    std::puts("");
    print(format("%-*s   calls failures statements  total ms  longest", room, "operation (_common_ left out)"), BOLD);
    for (const json &one : database.rows("SELECT format('%-*.*s %7d %8d %10d %9.2f %8.2f', ?1, ?1,"
                                         " substr(operation, iif(operation GLOB '_common_*', 9, 1)), calls, failures,"
                                         " statements, total_us / 1000.0, longest_us / 1000.0) AS line, failures"
                                         " FROM operations WHERE failures OR operation NOT GLOB '__*'",
                                         {room}))
        print(text(one, "line"), one["failures"] == 0 ? PLAIN : RED);
    for (const json &one : failures) {
        std::puts("");
        print(text(one, "operation") + ": " + text(one, "text"), BOLD);
        print_labelled("found", text(one, "count") + " times, first in line " + text(one, "first_line"));
        if (one["code"] != 0) {
            print_labelled("statement", text(one, "statement"));
            print_labelled("SQLite", text(one, "code") + ", " + sqlite3_errstr(one["code"]) +
                                         "; refusals: " + text(one, "attempts"));
        }
        print_labelled("advice", text(one, "advice"));
    }
    std::printf("\nTried again with success: %s. Reads that found nothing, often well: %s.\n",
                text(totals, "recovered").c_str(), text(totals, "not_found").c_str());
    print(failures.empty() ? "No failures." : format("Kinds of failure: %zu.", failures.size()),
          failures.empty() ? GREEN : RED);
}

/** The Trace Event format: calls as complete events, statements and failures as instants; in microseconds. */
void write_timeline(const connection &database, const std::string &path)
{
    json events = database.rows("SELECT * FROM complete_events");
    for (json &one : database.rows("SELECT * FROM instant_events"))
        events.push_back(std::move(one));
    std::ofstream file(path);
    if (!(file << written({{"traceEvents", events}}, 0)).flush())
        throw unreadable(path + ": " + g_strerror(errno) + ". The timeline was not written.");
    std::fprintf(stderr, "%s: open it in Perfetto or Chrome's tracing page.\n", safe(path).c_str());
}

} // namespace

int trace(const options &wanted)
{
    const std::string &path = wanted.trace;
    std::ifstream file(path == "-" ? "/dev/null" : path, std::ios::binary);
    if (path != "-" && (!file || file.peek() == std::ifstream::traits_type::eof()))
        throw unreadable(path + ": " + (file ? "is empty" : g_strerror(errno)) + ". Name a file with a trace.");
    const connection database;
    read_lines(database, path == "-" ? std::cin : file);
    database.rows(TRACE_SQL);
    const json totals = database.rows("SELECT * FROM totals")[0];
    if (totals["lines"] == 0)
        throw unreadable(path + ": no line of it is the library's (they read \"operation(line): text\").");
    if (totals["has_threads"] == 0 && (wanted.shows_tree || !wanted.timeline.empty()))
        throw unreadable(NO_THREADS + std::string("who called whom would be a guess. The host platform writes them."));
    if (totals["has_times"] == 0 && !wanted.timeline.empty())
        throw unreadable("The lines carry no times: there is no timeline. The host platform writes them.");
    if (!wanted.timeline.empty())
        write_timeline(database, wanted.timeline);
    json failures = database.rows("SELECT * FROM failures");
    for (json &one : failures)
        one["advice"] = advice_for(one["text"], one["code"]);
    const json document = {
        {"totals", totals}, {"operations", database.rows("SELECT * FROM operations")}, {"failures", failures}};
    if (wanted.as_json)
        std::fputs(written(document).c_str(), stdout);
    else if (wanted.shows_tree)
        for (const json &one : database.rows("SELECT * FROM tree"))
            print(text(one, "line"), one["style"]);
    else
        print_summary(database, totals, failures);
    return failures.empty() ? FINE : FINDINGS;
}
