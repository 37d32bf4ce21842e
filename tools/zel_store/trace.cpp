/* A trace made readable. docs/log.md describes its lines; SQL adds them up. */

#include "pages.h"
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

/** What a body is about, by the group that matches. */
constexpr char BODY[] = R"((?s)^(?:(.*failed to execute \[(.*)\], err\[(\d+).*)|\* Critical \* (.*)|)"
                        R"((sqlite3_finalize = \[([1-9]\d*).*)|query ?\[(.*)\].*|(BEGIN >>>>.*)|(END <<<<.*))$)";
constexpr struct {
    size_t group, body, code;
    const char *what;
} KINDS[] = {{1, 2, 3, "refusal"},   {4, 4, 0, "critical"}, {5, 5, 6, "broken read"},
             {7, 7, 0, "statement"}, {8, 8, 0, "begin"},    {9, 9, 0, "end"}};

constexpr char TABLES[] = R"(
CREATE TABLE lines (n INTEGER PRIMARY KEY, number, time, thread, function, what, body, code,
    is_executor AS (function IN ('__insert_callback', '__db_finalize') OR function GLOB '__execute_*'));
)";

/**
 * A call ends with its End line, or with its last line before the next call of the same operation: a rejection writes
 * no End. One that writes nothing more is still going on where its thread's lines stop. A step is a statement and what
 * comes of it: an operation's complaints, refusals (at most one code: the complaint tells the last), a broken read,
 * which gives the reason of the complaint in front of it.
 */
constexpr char ANALYSIS[] = R"(
UPDATE lines SET thread = '' WHERE EXISTS (SELECT 1 FROM lines WHERE thread = '');
CREATE INDEX by_thread ON lines (thread, n);
CREATE INDEX by_function ON lines (thread, function, n);
CREATE TABLE calls AS
    SELECT n, thread, function, is_executor, time, iif(last > n OR next, last,
           (SELECT max(n) FROM lines AS l WHERE l.thread = ended.thread)) AS last
    FROM (SELECT *, (SELECT max(n) FROM lines AS l WHERE l.thread = begun.thread AND l.function = begun.function
                     AND l.n < coalesce(next, 1e15)) AS last
          FROM (SELECT *, lead(n) OVER (PARTITION BY thread, function ORDER BY n) AS next
                FROM lines WHERE what = 'begin') AS begun) AS ended;
ALTER TABLE calls ADD COLUMN us;
UPDATE calls SET us = iif(thread <> '', (SELECT time FROM lines WHERE n = last) - time, 0);
CREATE INDEX calls_by_thread ON calls (thread, n);
CREATE TABLE steps AS
    SELECT lines.*, sum(what IN ('end', 'statement') OR (what = 'begin' AND NOT is_executor)) OVER before AS step,
           coalesce(sum((what = 'begin') - coalesce(ends, 0)) OVER (before ROWS BETWEEN UNBOUNDED PRECEDING
                                                                    AND 1 PRECEDING), 0) AS depth
    FROM lines LEFT JOIN (SELECT last AS n, count(*) AS ends FROM calls GROUP BY last) USING (n)
    WINDOW before AS (PARTITION BY thread ORDER BY n);
CREATE INDEX by_step ON steps (thread, step);
CREATE TABLE complaints AS
    SELECT c.thread, c.step, c.function AS operation, c.body AS text, c.number, coalesce(b.code, r.code, 0) AS code,
           coalesce(attempts, 0) AS attempts, iif(b.code OR r.code, s.body, '') AS statement
    FROM steps AS c
    LEFT JOIN steps AS b ON b.thread = c.thread AND b.step = c.step AND b.what = 'broken read' AND b.function = c.function
    LEFT JOIN (SELECT thread, step, max(code) AS code, count(*) AS attempts FROM steps WHERE what = 'refusal'
               GROUP BY thread, step) AS r ON r.thread = c.thread AND r.step = c.step
    LEFT JOIN steps AS s ON s.thread = c.thread AND s.step = c.step AND s.what = 'statement'
    WHERE NOT c.is_executor AND c.what = 'critical'
    UNION ALL SELECT b.thread, b.step, b.function, 'a read broke off', b.number, b.code, 0, s.body
    FROM steps AS b LEFT JOIN steps AS s ON s.thread = b.thread AND s.step = b.step AND s.what = 'statement'
    WHERE b.what = 'broken read' AND NOT EXISTS (SELECT 1 FROM steps AS c WHERE c.thread = b.thread AND c.step = b.step
                                                 AND c.function = b.function AND c.what = 'critical');
CREATE VIEW failures AS
    SELECT operation, text, count(*) AS count, min(number) AS first_line, statement, code, attempts FROM complaints
    WHERE code OR text NOT LIKE 'No records found%' GROUP BY operation, text, code ORDER BY first_line;
CREATE VIEW operations AS
    SELECT operation, sum(calls) AS calls, sum(failures) AS failures, sum(statements) AS statements,
           sum(us) AS total_us, max(us) AS longest_us
    FROM (SELECT function AS operation, 1 AS calls, 0 AS failures, 0 AS statements, us FROM calls
          UNION ALL SELECT operation, 0, count, 0, 0 FROM failures
          UNION ALL SELECT coalesce((SELECT function FROM calls AS c WHERE c.thread = s.thread AND c.n < s.n AND
                                     c.last >= s.n AND NOT c.is_executor ORDER BY c.n DESC LIMIT 1), function), 0, 0, 1, 0
          FROM lines AS s WHERE what = 'statement')
    GROUP BY operation ORDER BY total_us DESC, calls DESC, operation;
CREATE VIEW totals AS
    SELECT count(*) AS lines, min(thread) <> '' AS has_threads, min(time) IS NOT NULL AND count(time) = count(*) AS
           has_times, count(DISTINCT thread) AS threads, max(time) - min(time) AS us,
           (SELECT count(DISTINCT thread || ' ' || step) FROM steps AS r WHERE what = 'refusal' AND code = 5 AND NOT EXISTS
            (SELECT 1 FROM complaints AS c WHERE c.thread = r.thread AND c.step = r.step)) AS recovered,
           (SELECT count(*) FROM complaints WHERE NOT code AND text LIKE 'No records found%') AS not_found
    FROM lines;
)";

/** Microseconds, or nothing. */
json time_of(const texts &stamp)
{
    if (stamp.empty())
        return nullptr;
    const std::string text =
        (stamp[1].empty() ? "1970" : stamp[1]) + "-" + stamp[2] + "T" + stamp[3] + "." + stamp[4] + "Z";
    GDateTime *const moment = g_date_time_new_from_iso8601(text.c_str(), nullptr);
    if (!moment)
        return nullptr;
    const gint64 time = g_date_time_to_unix(moment) * 1000000 + g_date_time_get_microsecond(moment);
    g_date_time_unref(moment);
    return time;
}

/** The library's lines; other lines belong to the one above as its text holds line ends, or to somebody else. */
void read_lines(const connection &database, std::istream &in)
{
    texts last; // groups of the last line, and its number
    bool is_tagged = false;
    const auto store_last = [&] {
        if (last.empty())
            return;
        const texts stamp = match(STAMP, last[1]);
        const texts body = match(BODY, last[4]);
        const auto *const kind = std::find_if(std::begin(KINDS), std::end(KINDS), [&](const auto &one) {
            return !body.empty() && !body[one.group].empty();
        });
        const bool is_known = kind != std::end(KINDS);
        database.rows("INSERT INTO lines VALUES(NULL, ?, ?, ?, ?, ?, ?, ?)",
                      {std::stoll(last[5]), time_of(stamp), stamp.empty() ? "" : stamp[5], last[3],
                       is_known ? kind->what : "other", is_known ? body[kind->body] : last[4],
                       is_known && kind->code ? std::strtoll(body[kind->code].c_str(), nullptr, 10) : 0});
    };
    std::string text;
    for (size_t number = 1; std::getline(in, text); ++number) {
        for (size_t at = 0; (at = text.find("\033[", at)) != std::string::npos;) // colours
            text.erase(at, text.find_first_not_of("0123456789;", at + 2) + 1 - at);
        texts parts = match(LINE, text);
        if (!parts.empty() && (!is_tagged || !parts[2].empty())) {
            store_last();
            is_tagged = !parts[2].empty();
            last = std::move(parts);
            last.push_back(std::to_string(number));
        } else if (!last.empty() && match(FOREIGN, text).empty()) {
            last[4] += "\n" + text;
        }
    }
    store_last();
}

/** What docs/log.md says of a failure: by the reason that SQLite gave, or by how its text begins. */
std::string advice_for(const std::string &text, int code)
{
    static const std::vector<texts> ROWS = advice(LOG_PAGE, "## Lines that mean trouble");
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
    const auto milliseconds = [](const json &us) { return us.is_null() ? 0 : us.get<double>() / 1000; };
    print(format("%s lines of the library, %s threads, %.3f seconds", text(totals, "lines").c_str(),
                 text(totals, "threads").c_str(), milliseconds(totals["us"]) / 1000));
    if (totals["has_threads"] == 0)
        print_labelled("beware",
                       "The lines carry no thread ids: lines of several threads may lie between each other, and "
                       "the statement beside a failure may be another thread's.");
    const int room = screen.width ? std::max(20, screen.width - 47) : 66;
    std::puts("");
    print(format("%-*s   calls failures statements  total ms  longest", room, "operation (_common_ left out)"), BOLD);
    for (const json &one : database.rows("SELECT * FROM operations WHERE failures OR operation NOT GLOB '__*'")) {
        const std::string name = text(one, "operation");
        print(format("%-*.*s %7s %8s %10s %9.2f %8.2f", room, room,
                     name.c_str() + (name.starts_with("_common_") ? 8 : 0), text(one, "calls").c_str(),
                     text(one, "failures").c_str(), text(one, "statements").c_str(), milliseconds(one["total_us"]),
                     milliseconds(one["longest_us"])),
              one["failures"] == 0 ? PLAIN : RED);
    }
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
    std::printf("\n%s statements met a locked database and went through when tried again.\n"
                "%s reads found nothing, which is often well.\n",
                text(totals, "recovered").c_str(), text(totals, "not_found").c_str());
    print(failures.empty() ? "No failures." : format("Kinds of failure: %zu.", failures.size()),
          failures.empty() ? GREEN : RED);
}

void print_tree(const connection &database)
{
    for (const json &one : database.rows(R"(
             SELECT iif(thread IS lag(thread) OVER (ORDER BY thread, n), NULL, 'thread ' || thread) AS head,
                    what IN ('begin', 'statement') AS is_well, format('%*s', 2 * depth + 2, '') ||
                    iif(what = 'begin', function || coalesce(format('  %.2f ms', us / 1000.0), ''),
                        coalesce(nullif(code, 0) || ' ', '') || body) AS line
             FROM (SELECT steps.*, us FROM steps LEFT JOIN calls USING (n))
             WHERE what NOT IN ('end', 'other') ORDER BY thread, n)")) {
        if (!one["head"].is_null())
            print(text(one, "head"), BOLD);
        print(text(one, "line"), one["is_well"] == 1 ? PLAIN : RED);
    }
}

/** The Trace Event format: calls as complete events, statements and failures as instants; in microseconds. */
void write_timeline(const connection &database, const std::string &path)
{
    json events =
        database.rows("SELECT function AS name, 'X' AS ph, time - (SELECT min(time) FROM lines) AS ts, 1 AS pid,"
                      " CAST(thread AS INTEGER) AS tid, us AS dur FROM calls");
    for (json &one :
         database.rows("SELECT body AS name, 'i' AS ph, time - (SELECT min(time) FROM lines) AS ts, 1 AS pid,"
                       " CAST(thread AS INTEGER) AS tid, 't' AS s FROM lines"
                       " WHERE what NOT IN ('begin', 'end', 'other')"))
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
    std::ifstream file;
    if (path != "-")
        file.open(path, std::ios::binary);
    if (path != "-" && (!file || file.peek() == std::ifstream::traits_type::eof()))
        throw unreadable(path + ": " + (file ? "is empty" : g_strerror(errno)) + ". Name a file with a trace.");
    const connection database;
    database.rows(TABLES);
    read_lines(database, path == "-" ? std::cin : file);
    database.rows(ANALYSIS);
    const json totals = database.rows("SELECT * FROM totals")[0];
    if (totals["lines"] == 0)
        throw unreadable(path + ": no line of it is the library's (they read \"operation(line): text\").");
    if (totals["has_threads"] == 0 && (wanted.shows_tree || !wanted.timeline.empty()))
        throw unreadable("The lines carry no thread ids: lines of several threads may lie between each other, and who "
                         "called whom would be a guess. The host platform writes them.");
    if (totals["has_times"] == 0 && !wanted.timeline.empty())
        throw unreadable("The lines carry no times: there is no timeline. The host platform writes them.");
    if (!wanted.timeline.empty())
        write_timeline(database, wanted.timeline);
    json failures = database.rows("SELECT * FROM failures");
    for (json &one : failures)
        one["advice"] = advice_for(one["text"], one["code"]);
    if (wanted.as_json)
        std::fputs(
            written(
                {{"totals", totals}, {"operations", database.rows("SELECT * FROM operations")}, {"failures", failures}})
                .c_str(),
            stdout);
    else if (wanted.shows_tree)
        print_tree(database);
    else
        print_summary(database, totals, failures);
    return failures.empty() ? FINE : FINDINGS;
}
