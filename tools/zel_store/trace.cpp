/* A trace made readable. docs/log.md describes its lines. */

#include "commands.h"
#include "text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <glib.h>
#include <iostream>
#include <map>

namespace zel_store
{

namespace
{

enum class kind { begin, end, critical, statement, refusal, broken_read, other };

struct line {
    size_t number = 0;
    kind what = kind::other;
    long long time = -1; /**< microseconds, or -1 */
    std::string thread;  /**< empty when the line does not tell */
    std::string function, body;
    int code = 0;     /**< SQLite's, of a refusal or a broken read */
    size_t last = 0;  /**< of a call's Begin: the place of its last line */
    size_t depth = 0; /**< calls that the line stands in */
};

constexpr char NO_THREADS[] = "The lines carry no thread ids, so lines of several threads may lie between each other: ";

/** The groups of a match, all of them; nothing when there is none. */
std::vector<std::string> match(GRegex *pattern, const std::string &text)
{
    GMatchInfo *info = nullptr;
    std::vector<std::string> groups;
    if (g_regex_match_full(pattern, text.data(), static_cast<gssize>(text.size()), 0, {}, &info, nullptr))
        for (int i = 0; i <= g_regex_get_capture_count(pattern); ++i) {
            int from = 0;
            int to = 0;
            g_match_info_fetch_pos(info, i, &from, &to);
            groups.push_back(from < 0 ? "" : text.substr(static_cast<size_t>(from), static_cast<size_t>(to - from)));
        }
    g_match_info_free(info);
    return groups;
}

GRegex *pattern(const char *text)
{
    return g_regex_new(text, static_cast<GRegexCompileFlags>(G_REGEX_OPTIMIZE | G_REGEX_RAW), {}, nullptr);
}

int number_in(const std::string &digits)
{
    return static_cast<int>(std::strtol(digits.c_str(), nullptr, 10));
}

/** Takes time and thread out of what stands in front of the library's part. */
void read_stamp(const std::string &before, line &read)
{
    // The thread is the last number behind the time: some platforms write the process in front of it.
    static GRegex *const STAMP =
        pattern(R"((?:(\d{4})-)?(\d\d)-(\d\d)[ T](\d\d):(\d\d):(\d\d)[.,](\d{1,6})\S*(?:\s+\d+)?(?:\s+(\d+)))");
    const std::vector<std::string> parts = match(STAMP, before);
    if (parts.empty())
        return;
    using namespace std::chrono;
    const auto part = [&](size_t i) { return number_in(parts[i]); };
    const sys_days day = year(parts[1].empty() ? 1970 : part(1)) / part(2) / part(3);
    const auto second = day.time_since_epoch() + hours(part(4)) + minutes(part(5)) + seconds(part(6));
    read.time = duration_cast<microseconds>(second).count() + number_in((parts[7] + "00000").substr(0, 6));
    read.thread = parts[8];
}

/** Says what a body is, and leaves of it what it is about. */
void classify(line &read)
{
    std::string &body = read.body;
    const auto between = [&](size_t from, size_t to) {
        body = body.substr(from, to == std::string::npos ? to : to - from);
    };
    const size_t code = body.rfind("], err[");
    if (body.starts_with("BEGIN >>>>")) {
        read.what = kind::begin;
    } else if (body.starts_with("END <<<<")) {
        read.what = kind::end;
    } else if (const size_t reason = body.find("failed to execute [");
               reason != std::string::npos && code != std::string::npos) {
        read.what = kind::refusal;
        read.code = number_in(body.substr(code + 7));
        between(reason + 19, code);
    } else if (body.starts_with("* Critical * ")) {
        read.what = kind::critical;
        between(13, std::string::npos);
    } else if (body.starts_with("sqlite3_finalize = [")) {
        read.code = number_in(body.substr(20));
        read.what = read.code ? kind::broken_read : kind::other;
    } else if (body.starts_with("query [") || body.starts_with("query[")) {
        read.what = kind::statement;
        between(body.find('[') + 1, body.rfind(']'));
    }
}

/** The library's lines; other lines belong to the one above as its text holds line ends, or to somebody else. */
std::vector<line> read_lines(std::istream &in)
{
    static GRegex *const COLOUR = pattern("\x1b\\[[0-9;]*m");
    static GRegex *const LINE =
        pattern(R"(^(.*?)(?:(QUILLO_COMMON)\s*(?:\([^)]*\))?\s*:\s*)?\b([A-Za-z_]\w*)\(\d+\): {1,2}(.*)$)");
    static GRegex *const FOREIGN = pattern(R"((?:^|\s)[VDIWEF](?:/| +)\w+ *(?:\([^)]*\))?:)");
    std::vector<line> lines;
    bool is_tagged = false;
    std::string text;
    for (size_t number = 1; std::getline(in, text); ++number) {
        char *const plain =
            g_regex_replace_literal(COLOUR, text.data(), static_cast<gssize>(text.size()), 0, "", {}, nullptr);
        text = plain ? plain : "";
        g_free(plain);
        const std::vector<std::string> parts = match(LINE, text);
        if (parts.empty() || (is_tagged && parts[2].empty())) {
            if (!lines.empty() && match(FOREIGN, text).empty())
                lines.back().body += "\n" + text;
            continue;
        }
        is_tagged = !parts[2].empty();
        line &read = lines.emplace_back();
        read.number = number;
        read_stamp(parts[1], read);
        read.function = parts[3];
        read.body = parts[4];
    }
    std::for_each(lines.begin(), lines.end(), classify);
    return lines;
}

/** What to make of a failure: by the reason that SQLite gave, or the first that its text begins with. */
std::pair<const char *, const char *> advice_for(const std::string &text, int code)
{
    struct advice {
        const char *begins, *means, *action;
        std::vector<int> codes;
    };
    static const advice ADVICE[] = {
        {"\n",
         "SQLite did not understand the statement, or a table or column is missing.",
         "Was _common_storage_init the first call of the process? zel-store check names missing tables.",
         {1}},
        {"\n",
         "Another connection held a lock for longer than ten attempts, about a millisecond.",
         "zel-store show says who has the file open. One process should own the store, or zel-store init --wal keeps "
         "readers and the writer apart; a step that must not get lost is asked for again.",
         {5}},
        {"\n",
         "The file system does not let SQLite work: read-only, an input or output error, full, or closed.",
         "Look at its room and mode, and whether file or folder were replaced under a running service.",
         {8, 10, 13, 14}},
        {"\n", "The file is damaged or no database.", "Keep a copy before anything else; zel-store check.", {11, 26}},
        {"\n",
         "A rewritten transfer lacks its token, original, thumbnail or name.",
         "Fill these fields of the record, with empty texts if need be.",
         {19}},
        {"sqlite3_open error",
         "The database's folder is missing or closed to this user.",
         "zel-store init makes it; zel-store init --help names the path.",
         {}},
        {"FAIL : create",
         "The table is missing, and every operation on it will fail.",
         "zel-store check, then init.",
         {}},
        {"offset to large", "A damaged or cut share.", "Look at who sent the bytes.", {}},
        {"Memory", "Memory ran out; nothing was handed out.", "Look at the process's memory.", {}},
        {"Invalid ", "An argument was missing or out of range; nothing was done.", "Look at the caller.", {}},
        {"[", "An argument was missing or out of range; nothing was done.", "Look at the caller.", {}},
        {"Failed to",
         "A statement failed, and the line with SQLite's reason, of Debug priority, is not in this trace.",
         "Record lines of all priorities. An insert also fails before _common_storage_init.",
         {}},
        {"", "A failure of the operation's own.", "The header of the operation tells its results.", {}},
    };
    const advice &found = *std::find_if(std::begin(ADVICE), std::end(ADVICE), [&](const advice &one) {
        return text.starts_with(one.begins) || std::count(one.codes.begin(), one.codes.end(), code) > 0;
    });
    return {found.means, found.action};
}

bool is_executor(const std::string &function)
{
    return function.starts_with("__execute_") || function == "__insert_callback" || function == "__db_finalize";
}

/** Adds the lines up in one pass, thread by thread. */
class reading
{
  public:
    std::vector<line> lines;
    bool has_threads, has_times;
    json operations = json::object();
    json failures = json::array();
    size_t recovered = 0, not_found = 0;

    explicit reading(std::istream &in) : lines(read_lines(in))
    {
        has_threads = std::all_of(lines.begin(), lines.end(), [](const line &one) { return !one.thread.empty(); });
        has_times = std::all_of(lines.begin(), lines.end(), [](const line &one) { return one.time >= 0; });
        if (!has_threads)
            for (line &one : lines)
                one.thread.clear();
        find_ends();
        for (size_t i = 0; i < lines.size(); ++i)
            step(i);
        for (auto &[name, thread] : threads)
            settle(thread);
        for (const json &one : failures)
            not_found += is_quiet(one) ? one["count"].get<size_t>() : 0;
        failures.erase(std::remove_if(failures.begin(), failures.end(),
                                      [](const json &one) { return is_quiet(one) || one["count"] == 0; }),
                       failures.end());
    }

    bool is_timed() const
    {
        return has_threads && has_times;
    }

    size_t thread_count() const
    {
        return threads.size();
    }

  private:
    struct thread_state {
        std::vector<size_t> open; /**< Begins of the calls that a line stands in */
        std::string statement;
        int code = 0, attempts = 0;  /**< of the statement that was refused last */
        size_t complaint = SIZE_MAX; /**< failure that a broken read right behind it explains */
    };

    /** Looks bad and is not. */
    static bool is_quiet(const json &failure)
    {
        return failure["code"] == 0 && failure["text"].get_ref<const std::string &>().starts_with("No records found");
    }

    /**
     * A call ends with its End line, or with its last line before the next call of the same operation: a rejection
     * writes no End. One that writes nothing more is still going on where its thread's lines stop.
     */
    void find_ends()
    {
        std::map<std::pair<std::string, std::string>, size_t> last_of;
        std::map<std::string, size_t> thread_end;
        for (size_t i = lines.size(); i-- > 0;) {
            line &one = lines[i];
            thread_end.emplace(one.thread, i);
            const auto [place, is_first] = last_of.emplace(std::pair(one.thread, one.function), i);
            if (place->second == SIZE_MAX) // behind it another call begins
                place->second = i;
            one.last = is_first ? thread_end[one.thread] : place->second;
            if (one.what == kind::begin)
                place->second = SIZE_MAX;
        }
    }

    static void add(json &row, const char *name, long long amount)
    {
        row[name] = number(row, name) + amount;
    }

    json &operation(const std::string &name)
    {
        static const json NOTHING = {
            {"calls", 0}, {"failures", 0}, {"statements", 0}, {"total_us", 0}, {"longest_us", 0}};
        return operations.emplace(name, json(NOTHING)).first.value();
    }

    void step(size_t i)
    {
        line &one = lines[i];
        thread_state &thread = threads[one.thread];
        while (!thread.open.empty() && lines[thread.open.back()].last < i)
            thread.open.pop_back();
        one.depth = thread.open.size();
        if (one.what == kind::begin) {
            if (!is_executor(one.function))
                settle(thread);
            thread.open.push_back(i);
            json &called = operation(one.function);
            const long long duration = is_timed() ? lines[one.last].time - one.time : 0;
            add(called, "calls", 1);
            add(called, "total_us", duration);
            called["longest_us"] = std::max(number(called, "longest_us"), duration);
        } else if (one.what == kind::statement) {
            settle(thread);
            thread.statement = one.body;
            const auto worker = std::find_if(thread.open.rbegin(), thread.open.rend(),
                                             [this](size_t call) { return !is_executor(lines[call].function); });
            add(operation(worker == thread.open.rend() ? one.function : lines[*worker].function), "statements", 1);
        } else if (one.what == kind::refusal) {
            thread.code = one.code;
            ++thread.attempts;
        } else if (one.what == kind::critical && !is_executor(one.function)) {
            fail(thread, one, one.body);
        } else if (one.what == kind::broken_read) {
            std::string text = "a read broke off";
            if (thread.complaint != SIZE_MAX && failures[thread.complaint]["operation"] == one.function) {
                text = failures[thread.complaint]["text"];
                count(failures[thread.complaint], -1);
            }
            thread.code = one.code;
            fail(thread, one, text);
        } else if (one.what == kind::end) {
            settle(thread);
        }
    }

    void count(json &failure, int difference)
    {
        add(failure, "count", difference);
        if (!is_quiet(failure))
            add(operation(failure["operation"]), "failures", difference);
    }

    void fail(thread_state &thread, const line &one, const std::string &text)
    {
        auto same = std::find_if(failures.begin(), failures.end(), [&](const json &known) {
            return known["operation"] == one.function && known["text"] == text && known["code"] == thread.code;
        });
        if (same == failures.end()) {
            const auto [means, action] = advice_for(text, thread.code);
            failures.push_back({{"operation", one.function},
                                {"text", text},
                                {"count", 0},
                                {"first_line", one.number},
                                {"statement", thread.code ? thread.statement : ""},
                                {"code", thread.code},
                                {"attempts", thread.attempts},
                                {"means", means},
                                {"do", action}});
            same = failures.end() - 1;
        }
        count(*same, 1);
        thread.complaint = static_cast<size_t>(same - failures.begin());
        thread.code = thread.attempts = 0;
    }

    /** A refusal that no operation complained about was tried again with success. */
    void settle(thread_state &thread)
    {
        recovered += thread.code == SQLITE_BUSY;
        thread.code = thread.attempts = 0;
        thread.complaint = SIZE_MAX;
    }

    std::map<std::string, thread_state> threads;
};

void print_summary(const reading &read)
{
    print(format("%zu lines of the library, %zu threads", read.lines.size(), read.thread_count()) +
          (read.has_times
               ? format(", %.3f seconds", static_cast<double>(read.lines.back().time - read.lines.front().time) / 1e6)
               : ""));
    if (!read.has_threads)
        std::printf("%s\n", wrapped(std::string(NO_THREADS) + "the statement beside a failure is the one written last "
                                                              "before it, and may be another thread's.",
                                    0)
                                .c_str());
    const auto row = [&](const std::string &name, const char *calls, const char *failures, const char *statements,
                         const std::string &total, const std::string &longest) {
        return in_columns(name, screen.width ? std::max(20, screen.width - (read.is_timed() ? 47 : 28)) : 66) +
               format(" %7s %8s %10s", calls, failures, statements) +
               (read.is_timed() ? format(" %9s %8s", total.c_str(), longest.c_str()) : "");
    };
    const auto milliseconds = [](const json &one, const char *name) {
        return format("%.2f", static_cast<double>(number(one, name)) / 1000);
    };
    std::vector<std::pair<std::string, json>> sorted;
    for (const auto &[name, one] : read.operations.items())
        if (number(one, "failures") || !name.starts_with("__")) // which are steps of the others
            sorted.emplace_back(name, one);
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto &a, const auto &b) {
        return std::pair(number(a.second, "total_us"), number(a.second, "calls")) >
               std::pair(number(b.second, "total_us"), number(b.second, "calls"));
    });
    std::printf("\n%s\n", coloured(colour::bold, row("operation (_common_ left out)", "calls", "failures", "statements",
                                                     "total ms", "longest"))
                              .c_str());
    for (const auto &[name, one] : sorted)
        print(coloured(number(one, "failures") ? colour::red : colour::plain,
                       row(name.starts_with("_common_") ? name.substr(8) : safe(name), text(one, "calls").c_str(),
                           text(one, "failures").c_str(), text(one, "statements").c_str(),
                           milliseconds(one, "total_us"), milliseconds(one, "longest_us"))));
    for (const json &one : read.failures) {
        std::printf("\n%s\n",
                    coloured(colour::bold, wrapped(text(one, "operation") + ": " + text(one, "text"), 2)).c_str());
        print("  " + text(one, "count") + " times, first in line " + text(one, "first_line"));
        if (!text(one, "statement").empty())
            std::printf("  statement  %s\n", wrapped(text(one, "statement"), 13).c_str());
        if (const auto code = static_cast<int>(number(one, "code")); code)
            print(format("  SQLite     %d, %s", code, sqlite3_errstr(code)) +
                  (number(one, "attempts") > 1 ? ", after " + text(one, "attempts") + " attempts" : ""));
        std::printf("  means      %s\n  do         %s\n", wrapped(text(one, "means"), 13).c_str(),
                    wrapped(text(one, "do"), 13).c_str());
    }
    print("");
    if (read.recovered)
        print(format("%zu statements met a locked database and went through when tried again.", read.recovered));
    if (read.not_found)
        print(format("%zu reads found nothing, which is often well.", read.not_found));
    print(read.failures.empty() ? coloured(colour::green, "No failures.")
                                : coloured(colour::red, format("Kinds of failure: %zu.", read.failures.size())));
}

void print_tree(const reading &read)
{
    std::map<std::string, std::vector<const line *>> by_thread;
    for (const line &one : read.lines)
        by_thread[one.thread].push_back(&one);
    for (const auto &[thread, lines] : by_thread) {
        print(coloured(colour::bold, "thread " + safe(thread)));
        for (const line *one : lines) {
            const std::string indentation(2 * one->depth + 2, ' ');
            const std::string body = (one->code ? std::to_string(one->code) + " " : "") + safe(one->body);
            if (one->what == kind::begin)
                print(indentation + safe(one->function) +
                      (read.has_times
                           ? format("  %.2f ms", static_cast<double>(read.lines[one->last].time - one->time) / 1000)
                           : ""));
            else if (one->what != kind::end && one->what != kind::other)
                print(indentation + coloured(one->what == kind::statement ? colour::dim : colour::red, body));
        }
    }
}

/** The Trace Event format: calls as complete events, statements and failures as instants; in microseconds. */
void write_timeline(const reading &read, const std::string &path)
{
    json events = json::array();
    for (const line &one : read.lines) {
        if (one.what == kind::end || one.what == kind::other)
            continue;
        const bool is_call = one.what == kind::begin;
        json &event = events.emplace_back(json{{"name", safe(is_call ? one.function : one.body)},
                                               {"ph", is_call ? "X" : "i"},
                                               {"ts", one.time - read.lines.front().time},
                                               {"pid", 1},
                                               {"tid", number_in(one.thread)}});
        if (is_call)
            event["dur"] = read.lines[one.last].time - one.time;
        else
            event["s"] = "t";
    }
    std::ofstream file(path);
    if (!(file << text_of({{"traceEvents", events}}, 0)).flush())
        throw unreadable(safe(path) + ": " + g_strerror(errno) + ". The timeline was not written.");
    std::fprintf(stderr, "%s: open it in Perfetto or Chrome's tracing page.\n", safe(path).c_str());
}

} // namespace

int trace(const std::string &path, const trace_options &options)
{
    std::ifstream file;
    if (path != "-")
        file.open(path, std::ios::binary);
    if (path != "-" && (!file || file.peek() == std::ifstream::traits_type::eof()))
        throw unreadable(safe(path) + ": " + (file ? "is empty" : g_strerror(errno)) + ". Name a file with a trace.");
    const reading read(path == "-" ? std::cin : file);
    if (read.lines.empty())
        throw unreadable(safe(path) + ": no line of it is the library's (they read \"operation(line): text\").");
    if ((options.shows_tree || !options.timeline.empty()) && !read.has_threads)
        throw unreadable(NO_THREADS + std::string("who called whom would be a guess. The host platform writes them."));
    if (!options.timeline.empty() && !read.has_times)
        throw unreadable("The lines carry no times: there is no timeline. The host platform writes them.");
    if (!options.timeline.empty())
        write_timeline(read, options.timeline);
    if (options.as_json)
        std::fputs(text_of({
                               {"lines", read.lines.size()},
                               {"has_threads", read.has_threads},
                               {"has_times", read.has_times},
                               {"operations", read.operations},
                               {"failures", read.failures},
                               {"recovered", read.recovered},
                               {"not_found", read.not_found},
                           })
                       .c_str(),
                   stdout);
    else if (options.shows_tree)
        print_tree(read);
    else
        print_summary(read);
    return read.failures.empty() ? FINE : FINDINGS;
}

} // namespace zel_store
