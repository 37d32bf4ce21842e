#include "trace_reading.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <glib.h>
#include <memory>
#include <sqlite3.h>

namespace zel_store
{

namespace
{

class pattern
{
  public:
    explicit pattern(const char *text)
        : compiled(g_regex_new(text, static_cast<GRegexCompileFlags>(G_REGEX_OPTIMIZE | G_REGEX_RAW), {}, nullptr))
    {
    }

    /** The groups of a match, all of them; nothing when there is none. */
    std::vector<std::string> match(const std::string &text) const
    {
        GMatchInfo *info = nullptr;
        std::vector<std::string> groups;
        if (g_regex_match_full(compiled.get(), text.data(), static_cast<gssize>(text.size()), 0, {}, &info, nullptr))
            for (int i = 0; i <= g_regex_get_capture_count(compiled.get()); ++i) {
                int from = -1;
                int to = -1;
                g_match_info_fetch_pos(info, i, &from, &to);
                groups.push_back(from < 0 ? ""
                                          : text.substr(static_cast<size_t>(from), static_cast<size_t>(to - from)));
            }
        g_match_info_free(info);
        return groups;
    }

  private:
    struct deleter {
        void operator()(GRegex *held) const
        {
            g_regex_unref(held);
        }
    };
    std::unique_ptr<GRegex, deleter> compiled;
};

int number_in(const std::string &digits)
{
    return static_cast<int>(std::strtol(digits.c_str(), nullptr, 10));
}

/** Takes the microseconds out of what stands in front of the library's part, and the thread. */
void read_stamp(const std::string &before, line &read)
{
    // The time; then process and thread, or the thread alone; or both in brackets behind the tag.
    static const pattern STAMP(
        R"((?:(\d{4})-)?(\d\d)-(\d\d)[ T](\d\d):(\d\d):(\d\d)[.,](\d{1,6})\S*(?:\s+(\d+))?(?:\s+(\d+))?)");
    static const pattern THREAD(R"(\bT\s*(\d+)\))");
    if (const std::vector<std::string> found = THREAD.match(before); !found.empty())
        read.thread = found[1];
    const std::vector<std::string> parts = STAMP.match(before);
    if (parts.empty())
        return;
    using namespace std::chrono;
    const auto number = [&](size_t i) { return number_in(parts[i]); };
    const sys_days day = year(parts[1].empty() ? 1970 : number(1)) / number(2) / number(3);
    const int fraction = number_in((parts[7] + "00000").substr(0, 6));
    read.time =
        duration_cast<microseconds>(day.time_since_epoch() + hours(number(4)) + minutes(number(5)) + seconds(number(6)))
            .count() +
        fraction;
    if (read.thread.empty())
        read.thread = !parts[9].empty() ? parts[9] : parts[8];
}

/** Says what a body is. */
void classify(line &read)
{
    static const pattern REFUSAL(R"(failed to execute \[((?s).*)\], err\[(\d+)\], SQLITE_BUSY)");
    static const pattern FINALIZED(R"(^sqlite3_finalize = \[(\d+)\])");
    static const pattern STATEMENT(R"(^query ?\[((?s).*)\]\s*$)");
    static const std::string CRITICAL = "* Critical * ";
    if (read.body.starts_with("BEGIN >>>>")) {
        read.what = kind::begin;
    } else if (read.body.starts_with("END <<<<")) {
        read.what = kind::end;
    } else if (const auto refusal = REFUSAL.match(read.body); !refusal.empty()) {
        read.what = kind::refusal;
        read.code = number_in(refusal[2]);
        read.body = refusal[1];
    } else if (read.body.starts_with(CRITICAL)) {
        read.what = kind::critical;
        read.body.erase(0, CRITICAL.size());
    } else if (const auto finalized = FINALIZED.match(read.body); !finalized.empty() && finalized[1] != "0") {
        read.what = kind::broken_read;
        read.code = number_in(finalized[1]);
    } else if (const auto statement = STATEMENT.match(read.body); !statement.empty()) {
        read.what = kind::statement;
        read.body = statement[1];
    }
}

/** The library's lines out of a trace, with what other lines belong to them as their texts hold line ends. */
std::vector<line> read_lines(std::istream &in)
{
    static const pattern COLOUR("\x1b\\[[0-9;]*m");
    static const pattern LINE(R"(^(.*?)(?:(QUILLO_COMMON)\s*(\([^)]*\))?\s*:\s*)?\b([A-Za-z_]\w*)\(\d+\): {1,2}(.*)$)");
    static const pattern FOREIGN(R"((?:^|\s)[VDIWEF](?:/| +)\w+ *(?:\([^)]*\))?:)");
    std::vector<line> lines;
    bool is_tagged = false;
    std::string text;
    for (size_t number = 1; std::getline(in, text); ++number) {
        for (size_t at = text.find("\x1b["); at != std::string::npos; at = text.find("\x1b[", at)) {
            const std::vector<std::string> sequence = COLOUR.match(text.substr(at));
            if (sequence.empty() || !text.substr(at).starts_with(sequence[0]))
                ++at;
            else
                text.erase(at, sequence[0].size());
        }
        const std::vector<std::string> parts = LINE.match(text);
        if (parts.empty() || (is_tagged && parts[2].empty())) {
            if (!lines.empty() && FOREIGN.match(text).empty())
                lines.back().body += "\n" + text;
            continue;
        }
        is_tagged = is_tagged || !parts[2].empty();
        line read;
        read.number = number;
        read_stamp(parts[1] + parts[3], read);
        read.function = parts[4];
        read.body = parts[5];
        lines.push_back(std::move(read));
    }
    for (line &one : lines)
        classify(one);
    return lines;
}

bool is_executor(const std::string &function)
{
    return function.starts_with("__execute_") || function == "__insert_callback" || function == "__db_finalize";
}

} // namespace

/* By the reason that SQLite gave, or the first that the text begins with. */
advice advice_for(const failure &one)
{
    static constexpr advice BY_CODE[] = {
        {"1 ", "SQLite did not understand the statement, or a table or column is missing.",
         "Was _common_storage_init the first call of the process? zel-store check names missing tables."},
        {"5 ", "Another connection held a lock for longer than ten attempts, about a millisecond.",
         "zel-store show says who has the file open. One process should own the store, or zel-store init --wal keeps "
         "readers and writer apart; a step that must not get lost is asked for again."},
        {"8 10 13 14 ",
         "The file system does not let SQLite work: read-only, an input or output error, full, or closed.",
         "Look at its room and mode, and whether file or folder were removed or replaced under a running service."},
        {"11 26 ", "The file is damaged or no database.", "zel-store check; keep a copy before anything else."},
        {"19 ", "A rewritten transfer lacks its token, original, thumbnail or name.",
         "Fill these fields of the record, with empty texts if need be."},
    };
    static constexpr advice BY_TEXT[] = {
        {"sqlite3_open error", "The database's folder is missing or closed to this user.",
         "zel-store init makes it; zel-store init --help names the path of the build."},
        {"Invalid Param or sqlite handle is NULL", "An insert came before _common_storage_init, or memory ran out.",
         "Call _common_storage_init first, alone."},
        {"NULL PARAM query", "No statement: memory ran out, or a retry condition other than -1, 0 and 1.",
         "Look at the argument of the count."},
        {"FAIL : create", "The table is missing, and every operation on it will fail.", "zel-store check, then init."},
        {"offset to large", "A damaged or cut share.", "Look at who sent the bytes; docs/encoding.md describes them."},
        {"Memory", "Memory ran out; nothing was handed out.", "Look at the process's memory."},
        {"Invalid ", "An argument was missing or out of range; nothing was done.", "Look at the caller."},
        {"[", "An argument was missing or out of range; nothing was done.", "Look at the caller."},
        {"No records found", "There is no such row, or the store could not be read (then a number stands above).",
         "Often well: a first look at something that is not stored yet."},
        {"Failed to", "A statement failed; SQLite's reason is a line of Debug priority, which is not in this trace.",
         "Record lines of all priorities."},
        {"", "A failure of the operation's own.", "The header of the operation tells its results."},
    };
    const std::string number = std::to_string(one.code) + " ";
    for (const advice &each : BY_CODE)
        if (one.code && (" " + std::string(each.text)).find(" " + number) != std::string::npos)
            return each;
    return *std::find_if(std::begin(BY_TEXT), std::end(BY_TEXT),
                         [&](const advice &each) { return one.text.starts_with(each.text); });
}

namespace
{

class reader : public trace_reading
{
  public:
    explicit reader(std::istream &in)
    {
        lines = read_lines(in);
        for (const line &one : lines) {
            has_threads = has_threads && !one.thread.empty();
            has_times = has_times && one.time >= 0;
        }
        if (!has_threads)
            for (line &one : lines)
                one.thread.clear();
        find_ends();
        for (size_t i = 0; i < lines.size(); ++i)
            step(i);
        threads = states.size();
        for (auto &[name, one] : states) {
            flush(one);
            std::string chain = name.empty() ? "" : "thread " + name;
            bool is_open = false;
            for (const size_t open : one.open)
                if (const kind last = lines[calls[open].end].what; last != kind::end && last != kind::critical) {
                    chain += (chain.empty() ? "" : " > ");
                    chain += lines[calls[open].begin].function;
                    is_open = true;
                }
            if (is_open)
                open_at_end.push_back(chain);
        }
        std::erase_if(failures, [this](const failure &one) {
            not_found += one.is_quiet ? one.count : 0;
            return one.is_quiet;
        });
    }

  private:
    struct thread_state {
        std::vector<size_t> open; /**< places of the calls that a line stands in */
        std::string statement;
        int code = 0, attempts = 0; /**< of the statement that was refused last */
        std::string reason;
        size_t latest = SIZE_MAX; /**< failure that a broken read explains */
    };

    /**
     * A call ends with its End line, or with its last line before the next call of the same operation: a rejection
     * writes no End. One that writes nothing more is still going on where its thread's lines stop.
     */
    void find_ends()
    {
        static constexpr size_t TAKEN = SIZE_MAX;
        std::map<std::pair<std::string, std::string>, size_t> last_line;
        std::map<std::string, size_t> thread_end;
        ends.resize(lines.size());
        for (size_t i = lines.size(); i-- > 0;) {
            const line &one = lines[i];
            thread_end.emplace(one.thread, i);
            const auto [place, is_last] = last_line.emplace(std::pair(one.thread, one.function), i);
            if (one.what == kind::begin) {
                ends[i] = is_last ? thread_end[one.thread] : place->second == TAKEN ? i : place->second;
                place->second = TAKEN;
            } else if (place->second == TAKEN) {
                place->second = i;
            }
        }
    }

    void step(size_t i)
    {
        const line &one = lines[i];
        thread_state &thread = states[one.thread];
        while (!thread.open.empty() && calls[thread.open.back()].end < i)
            thread.open.pop_back();
        switch (one.what) {
        case kind::begin:
            if (!is_executor(one.function))
                flush(thread);
            thread.open.push_back(calls.size());
            calls.push_back({i, ends[i], static_cast<int>(thread.open.size()) - 1});
            count_call(one, lines[ends[i]]);
            break;
        case kind::statement:
            flush(thread);
            thread.statement = one.body;
            ++operations[current(thread, one)].statements;
            break;
        case kind::refusal:
            thread.code = one.code;
            thread.reason = one.body;
            ++thread.attempts;
            break;
        case kind::critical:
            if (!is_executor(one.function))
                fail(thread, one.function, one.body, i);
            else if (!one.body.starts_with("Retried for"))
                thread.reason = one.body;
            break;
        case kind::broken_read:
            if (thread.latest != SIZE_MAX && failures[thread.latest].operation == one.function) {
                take_back(thread.latest);
                thread.code = one.code;
                fail(thread, one.function, failures[thread.latest].text, i);
            } else {
                thread.code = one.code;
                fail(thread, one.function, "a read broke off", i);
            }
            break;
        case kind::end:
            flush(thread);
            break;
        case kind::other:
            break;
        }
    }

    void count_call(const line &begin, const line &end)
    {
        operation &called = operations[begin.function];
        ++called.calls;
        if (!has_times || !has_threads)
            return;
        called.total += end.time - begin.time;
        called.longest = std::max(called.longest, end.time - begin.time);
    }

    /** The operation that an executor works for. */
    std::string current(const thread_state &thread, const line &one) const
    {
        for (size_t k = thread.open.size(); k-- > 0;)
            if (const std::string &name = lines[calls[thread.open[k]].begin].function; !is_executor(name))
                return name;
        return one.function;
    }

    void take_back(size_t place)
    {
        --failures[place].count;
        if (!failures[place].is_quiet)
            --operations[failures[place].operation].failures;
    }

    void fail(thread_state &thread, const std::string &name, const std::string &text, size_t at)
    {
        const bool is_quiet = text.starts_with("No records found") && !thread.code;
        auto same = std::find_if(failures.begin(), failures.end(), [&](const failure &one) {
            return one.operation == name && one.text == text && one.code == thread.code;
        });
        if (same == failures.end()) {
            failures.push_back({name, text, thread.code || !thread.reason.empty() || is_quiet ? thread.statement : "",
                                thread.code, thread.attempts, 0, lines[at].number, is_quiet});
            same = failures.end() - 1;
        }
        ++same->count;
        operations[name].failures += !is_quiet;
        thread.latest = static_cast<size_t>(same - failures.begin());
        thread.code = thread.attempts = 0;
        thread.reason.clear();
    }

    /** A refusal that no operation complained about: tried again with success, or passed over. */
    void flush(thread_state &thread)
    {
        recovered += thread.attempts > 0 && thread.code == SQLITE_BUSY;
        thread.code = thread.attempts = 0;
        thread.reason.clear();
        thread.latest = SIZE_MAX;
    }

    std::vector<size_t> ends; /**< of the call that begins at a line */
    std::map<std::string, thread_state> states;
};

} // namespace

trace_reading read_trace(std::istream &in)
{
    return reader(in);
}

} // namespace zel_store
