/* A trace made readable. It is added up line by line: what is kept grows with what is found, not with the trace. */

#include "new_file.h"
#include "texts.h"
#include "trace_line.h"
#include "trace_sums.h"
#include "zel_store.h"

#include <algorithm>
#include <functional>
#include <queue>
#include <utility>

namespace
{

constexpr char NO_THREADS[] = "The lines carry no thread ids, so lines of several threads may lie between each other: ";

/** What docs/log.md says of a failure: by the reason that SQLite gave, or by how its text begins. */
std::string advice_for(const std::string &text, int code)
{
    static const std::vector<texts> reasons = matches(R"((?m)^\| (\d[\d, ]*) \| (.*) \| (.*) \|$)", LOG_MD);
    static const std::vector<texts> troubles = [] {
        std::vector<texts> beginnings; // with the advice
        for (const texts &row : matches(R"((?m)^\| (`.*) \| (.*) \|$)", LOG_MD))
            for (const texts &beginning : matches("`(.*?)(?:\\.\\.\\..*?)?`", row[1]))
                beginnings.push_back({beginning[1], row[2]});
        return beginnings;
    }();
    for (const texts &row : reasons)
        if ((", " + row[1] + ",").find(", " + std::to_string(code) + ",") != std::string::npos)
            return row[2] + ": " + row[3];
    for (const texts &row : troubles)
        if (text.starts_with(row[0]))
            return row[1];
    return "the header of the operation tells its results";
}

std::string summary(const trace_sums &sums, size_t failures)
{
    const std::string threads = sums.has_threads() ? std::to_string(sums.threads) : "?";
    const std::string seconds = sums.has_times() ? FORMAT("%.3f", static_cast<double>(sums.duration()) / 1e6) : "?";
    std::string view = shown(FORMAT("%zu lines of the library, threads: %s, seconds: %s; kinds of failure: %zu",
                                    sums.lines, threads.c_str(), seconds.c_str(), failures)) +
                       "\n";
    view += shown("  calls failures statements  total ms  longest  operation", BOLD);
    for (const operation &one : sums.operations_by_time()) {
        if (one.failures == 0 && one.name.starts_with("__"))
            continue;
        const std::string times = sums.has_threads() && sums.has_times()
                                      ? FORMAT("%9.2f %8.2f", static_cast<double>(one.total_us) / 1e3,
                                               static_cast<double>(one.longest_us) / 1e3)
                                      : "        ?        ?";
        view += shown(FORMAT("%7lld %8lld %10lld %s  %s", one.calls, one.failures, one.statements, times.c_str(),
                             one.name.c_str()),
                      one.failures > 0 ? RED : PLAIN);
    }
    return view;
}

/** The calls, nested by thread. Who called whom shows when all is read: until then it is kept in a file without a name.
 */
class call_tree
{
  public:
    call_tree() : handle(nullptr, sqlite3_close), added(nullptr, sqlite3_finalize), ended(nullptr, sqlite3_finalize)
    {
        sqlite3 *opened = nullptr;
        const int code = sqlite3_open_v2("", &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, "unix");
        handle.reset(opened);
        require(code == SQLITE_OK);
        sqlite3_exec(opened,
                     "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA cache_size = -8000; BEGIN;"
                     "CREATE TABLE steps (thread INTEGER, n INTEGER, what INTEGER, text TEXT, last INTEGER, us INTEGER,"
                     " PRIMARY KEY (thread, n)) WITHOUT ROWID",
                     nullptr, nullptr, nullptr);
        added.reset(prepared("INSERT INTO steps VALUES(?, ?, ?, ?, NULL, NULL)"));
        ended.reset(prepared("UPDATE steps SET last = ?3, us = ?4 WHERE thread = ?1 AND n = ?2"));
    }
    void add(const trace_line &line, size_t n)
    {
        if (line.what == step::OTHER || line.what == step::END)
            return;
        std::string text = line.is_escaped ? unescaped(line.text) : std::string(line.text);
        if (line.what == step::BEGIN)
            text = line.function;
        else if (line.code != 0)
            text = std::to_string(line.code) + " " + text;
        bind(*added, line.thread, n);
        sqlite3_bind_int(added.get(), 3, static_cast<int>(line.what));
        sqlite3_bind_text(added.get(), 4, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        run(*added);
    }
    void end(const call &one)
    {
        bind(*ended, one.thread, one.first);
        sqlite3_bind_int64(ended.get(), 3, static_cast<sqlite3_int64>(one.last));
        if (one.begin && one.end)
            sqlite3_bind_int64(ended.get(), 4, one.us());
        run(*ended);
    }
    void print_all()
    {
        const statement rows(prepared("SELECT thread, n, what, text, last, us FROM steps ORDER BY thread, n"),
                             sqlite3_finalize);
        std::priority_queue<sqlite3_int64, std::vector<sqlite3_int64>, std::greater<>> open; // the last lines of calls
        sqlite3_int64 thread = 0;
        std::string view;
        int code = SQLITE_ROW;
        for (bool is_first = true; (code = sqlite3_step(rows.get())) == SQLITE_ROW; is_first = false) {
            const auto number = [&](int column) { return sqlite3_column_int64(rows.get(), column); };
            if (is_first || number(0) != thread) {
                thread = number(0);
                open = {};
                view += shown("thread " + std::to_string(static_cast<unsigned long long>(thread)), BOLD);
            }
            while (!open.empty() && open.top() < number(1))
                open.pop();
            const auto what = static_cast<step>(number(2));
            const auto *const bytes = static_cast<const char *>(sqlite3_column_blob(rows.get(), 3));
            std::string text(2 * std::min<size_t>(open.size(), DEEPEST) + 2, ' ');
            text.append(bytes, static_cast<size_t>(sqlite3_column_bytes(rows.get(), 3)));
            if (what == step::BEGIN) {
                open.push(number(4));
                if (sqlite3_column_type(rows.get(), 5) != SQLITE_NULL)
                    text += FORMAT("  %.2f ms", static_cast<double>(number(5)) / 1e3);
            }
            view += shown(text, what == step::BEGIN || what == step::STATEMENT ? PLAIN : RED);
            if (view.size() > 65536)
                print(std::exchange(view, {}));
        }
        require(code == SQLITE_DONE);
        print(view);
    }

  private:
    static constexpr size_t DEEPEST = 30; // deeper calls are shown at this depth
    using statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)>;

    void require(bool is_done) const
    {
        if (!is_done)
            throw unreadable(FORMAT("The tree: %s. Is there room in TMPDIR?", sqlite3_errmsg(handle.get())));
    }
    sqlite3_stmt *prepared(const char *text)
    {
        sqlite3_stmt *made = nullptr;
        require(sqlite3_prepare_v2(handle.get(), text, -1, &made, nullptr) == SQLITE_OK);
        return made;
    }
    static void bind(sqlite3_stmt &to, std::optional<unsigned long long> thread, size_t n)
    {
        sqlite3_bind_int64(&to, 1, static_cast<sqlite3_int64>(thread.value_or(0)));
        sqlite3_bind_int64(&to, 2, static_cast<sqlite3_int64>(n));
    }
    void run(sqlite3_stmt &one) const
    {
        require(sqlite3_step(&one) == SQLITE_DONE);
        sqlite3_reset(&one);
        sqlite3_clear_bindings(&one);
    }

    std::unique_ptr<sqlite3, int (*)(sqlite3 *)> handle;
    statement added, ended;
};

/** The calls in the Trace Event format: complete ones, and statements and failures as instants of a thread. */
class timeline
{
  public:
    explicit timeline(const std::string &path) : file(path)
    {
        file.add("{\"traceEvents\":[");
    }
    void add(const trace_line &line)
    {
        if (line.what != step::OTHER && line.what != step::BEGIN && line.what != step::END)
            add(line.is_escaped ? unescaped(line.text) : std::string(line.text), "i", line.thread, line.time, 0);
    }
    void add(const call &one, const std::string &name)
    {
        add(name, "X", one.thread, one.begin, one.us());
    }
    void publish()
    {
        file.add("\n]}\n");
        file.publish();
    }

  private:
    void add(const std::string &name, const char *kind, std::optional<unsigned long long> thread,
             std::optional<long long> time, long long us)
    {
        if (!time)
            return;
        origin = origin.value_or(*time);
        const json event = {
            {"name", name}, {"ph", kind}, {"ts", *time - *origin}, {"pid", 1}, {"tid", thread.value_or(0)},
            {"dur", us},    {"s", "t"}};
        std::string text = written(event, -1);
        text.pop_back(); // its newline
        file.add(std::exchange(separator, ",\n") + text);
    }

    new_file file;
    std::string separator = "\n";
    std::optional<long long> origin;
};

} // namespace

outcome trace(const options &wanted)
{
    trace_reader reader(wanted.trace);
    trace_sums sums;
    std::optional<call_tree> tree;
    std::optional<timeline> events;
    if (wanted.shows_tree && !wanted.as_json)
        tree.emplace();
    if (!wanted.timeline.empty())
        events.emplace(wanted.timeline);
    sums.on_line = [&](const trace_line &line) {
        if (tree)
            tree->add(line, sums.lines);
        if (events)
            events->add(line);
    };
    sums.on_call = [&](const call &one) {
        if (tree)
            tree->end(one);
        if (events)
            events->add(one, sums.name_of(one));
    };
    while (const std::optional<trace_line> line = reader.next())
        sums.add(*line);
    sums.finish();
    if (reader.is_empty())
        throw unreadable(wanted.trace + ": is empty. Name a file with a trace.");
    if (sums.lines == 0)
        throw unreadable(wanted.trace + ": no line of it is the library's (they read \"operation(line): text\").");
    if (!sums.has_threads() && (wanted.shows_tree || events))
        throw unreadable(NO_THREADS + std::string("who called whom would be a guess. The host platform writes them."));
    if (!sums.has_times() && events)
        throw unreadable("The lines carry no times with a fraction of a second. From the journal: -o short-precise.");
    if (events)
        events->publish();

    json failures = json::array();
    json operations = json::array();
    std::string details;
    for (const failure &one : sums.failures_by_line()) {
        const std::string advice = advice_for(one.text, one.code);
        failures.push_back({{"operation", one.operation},
                            {"text", one.text},
                            {"count", one.count},
                            {"first_line", one.first_line},
                            {"statement", one.statement},
                            {"code", one.code},
                            {"attempts", one.attempts},
                            {"advice", advice}});
        details += "\n" + shown(one.operation + ": " + one.text, BOLD) +
                   labelled("found", FORMAT("%zu times, first in line %zu", one.count, one.first_line));
        if (one.code != 0)
            details +=
                labelled("statement", one.statement) +
                labelled("SQLite", FORMAT("%d, %s; refusals: %lld", one.code, sqlite3_errstr(one.code), one.attempts));
        details += labelled("advice", advice);
    }
    for (const operation &one : sums.operations_by_time())
        operations.push_back({{"operation", one.name},
                              {"calls", one.calls},
                              {"failures", one.failures},
                              {"statements", one.statements},
                              {"total_us", one.total_us},
                              {"longest_us", one.longest_us}});
    const json totals = {{"lines", sums.lines},
                         {"has_threads", static_cast<int>(sums.has_threads())},
                         {"has_times", static_cast<int>(sums.has_times())},
                         {"threads", sums.threads},
                         {"us", sums.has_times() ? json(sums.duration()) : json()}};
    if (tree)
        tree->print_all();
    std::string view = tree ? "" : summary(sums, failures.size());
    if (!sums.has_threads())
        view += labelled("beware", NO_THREADS + std::string("a statement may be another thread's."));
    return {failures.empty() ? FINE : FINDINGS,
            tree ? view : view + details,
            {{"totals", totals}, {"operations", operations}, {"failures", failures}}};
}
