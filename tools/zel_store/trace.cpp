/* A trace made readable. */

#include "trace_reading.h"

#include "commands.h"
#include "text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

namespace zel_store
{

namespace
{

using json = nlohmann::ordered_json;

constexpr char NO_THREADS[] = "The lines carry no thread ids, so lines of several threads may lie between each other: ";

std::string milliseconds(long long microseconds)
{
    return format("%.2f", static_cast<double>(microseconds) / 1000);
}

void print(const std::string &text)
{
    std::printf("%s\n", cut(text, screen.width).c_str());
}

void print_operations(const trace_reading &read)
{
    const bool is_timed = read.has_threads && read.has_times;
    std::vector<std::pair<std::string, operation>> sorted(read.operations.begin(), read.operations.end());
    std::stable_sort(sorted.begin(), sorted.end(), [&](const auto &a, const auto &b) {
        return std::pair(a.second.total, a.second.calls) > std::pair(b.second.total, b.second.calls);
    });
    // The end of a long name tells more than its beginning.
    const auto row = [&](const char *calls, const char *failures, const char *statements, const std::string &total,
                         const std::string &longest, const std::string &name) {
        const std::string numbers = format("%7s %8s %10s", calls, failures, statements) +
                                    (is_timed ? format(" %10s %9s", total.c_str(), longest.c_str()) : "") + "  ";
        const int room = screen.width - static_cast<int>(numbers.size()) - 1;
        const bool fits = screen.width == 0 || static_cast<int>(name.size()) <= room;
        return numbers +
               (fits ? name : (screen.knows_utf8 ? "…" : "~") + name.substr(name.size() - static_cast<size_t>(room)));
    };
    print("");
    print(coloured(colour::bold, row("calls", "failures", "statements", "total ms", "longest", "operation")));
    for (const auto &[name, one] : sorted)
        if (one.failures || !name.starts_with("__")) // which are steps of the others
            print(coloured(one.failures ? colour::red : colour::plain,
                           row(std::to_string(one.calls).c_str(), std::to_string(one.failures).c_str(),
                               std::to_string(one.statements).c_str(), milliseconds(one.total),
                               milliseconds(one.longest), safe(name))));
}

void print_failures(const trace_reading &read)
{
    for (size_t i = 0; i < read.failures.size(); ++i) {
        const failure &one = read.failures[i];
        const advice given = advice_for(one);
        print("");
        std::printf(
            "%s\n",
            coloured(colour::bold, wrapped(format("%zu. %s: ", i + 1, safe(one.operation).c_str()) + safe(one.text), 3))
                .c_str());
        print(format("   %zu time%s, first in line %zu", one.count, one.count == 1 ? "" : "s", one.first_line));
        if (!one.statement.empty())
            std::printf("   statement  %s\n", wrapped(safe(one.statement), 14).c_str());
        if (one.code)
            print(format("   SQLite     %d, %s", one.code, sqlite3_errstr(one.code)) +
                  (one.attempts > 1 ? format(", after %d attempts", one.attempts) : ""));
        std::printf("   means      %s\n", wrapped(given.means, 14).c_str());
        std::printf("   do         %s\n", wrapped(given.action, 14).c_str());
    }
}

void print_summary(const trace_reading &read)
{
    std::string head = format("%zu lines of the library", read.lines.size());
    if (read.has_threads)
        head += format(", %zu thread%s", read.threads, read.threads == 1 ? "" : "s");
    if (read.has_times)
        head += format(", %.3f seconds", static_cast<double>(read.lines.back().time - read.lines.front().time) / 1e6);
    print(head);
    if (!read.has_threads)
        std::printf("%s\n", wrapped(NO_THREADS +
                                        std::string("the statement beside a failure is the one written last before it, "
                                                    "and may be another thread's."),
                                    0)
                                .c_str());
    print_operations(read);
    print_failures(read);
    print("");
    if (read.recovered)
        print(format("%zu statements met a locked database and went through when tried again.", read.recovered));
    if (read.not_found)
        print(format("%zu reads found nothing, which is often well.", read.not_found));
    for (const std::string &one : read.open_at_end)
        std::printf("%s\n", wrapped("The trace ends inside " + safe(one), 2).c_str());
    const size_t count = read.failures.size();
    print(count ? coloured(colour::red, format("%zu kind%s of failure.", count, count == 1 ? "" : "s"))
                : coloured(colour::green, "No failures."));
}

void print_tree(const trace_reading &read)
{
    std::map<std::string, std::vector<size_t>> by_thread;
    for (size_t i = 0; i < read.lines.size(); ++i)
        by_thread[read.lines[i].thread].push_back(i);
    std::map<size_t, const call *> begins;
    for (const call &one : read.calls)
        begins[one.begin] = &one;
    for (const auto &[thread, places] : by_thread) {
        print(coloured(colour::bold, "thread " + safe(thread)));
        std::vector<const call *> open;
        for (const size_t i : places) {
            const line &one = read.lines[i];
            while (!open.empty() && open.back()->end < i)
                open.pop_back();
            const std::string indentation(2 * open.size() + 2, ' ');
            if (one.what == kind::begin) {
                const call *const begun = begins[i];
                open.push_back(begun);
                print(indentation + safe(one.function) +
                      (read.has_times ? "  " + milliseconds(read.lines[begun->end].time - one.time) + " ms" : ""));
            } else if (one.what == kind::statement) {
                print(indentation + coloured(colour::dim, safe(one.body)));
            } else if (one.what != kind::end && one.what != kind::other) {
                print(indentation +
                      coloured(colour::red, safe(one.code ? format("%d ", one.code) + one.body : one.body)));
            }
        }
    }
}

/** The Trace Event format: calls as complete events, failures as instants; microseconds from the first line on. */
void write_timeline(const trace_reading &read, const std::string &path)
{
    std::ofstream file(path);
    const long long start = read.lines.front().time;
    const auto event = [&](const line &one, const char *phase, const std::string &name) -> json {
        return {{"name", safe(name)},
                {"ph", phase},
                {"ts", one.time - start},
                {"pid", 1},
                {"tid", std::strtoll(one.thread.c_str(), nullptr, 10)}};
    };
    const char *separator = "{\"traceEvents\": [\n";
    const auto write = [&](const json &one) {
        file << separator << text_of(one, -1);
        separator = ",";
    };
    for (const call &one : read.calls) {
        json made = event(read.lines[one.begin], "X", read.lines[one.begin].function);
        made["dur"] = read.lines[one.end].time - read.lines[one.begin].time;
        for (size_t i = one.begin; i <= one.end; ++i)
            if (read.lines[i].what == kind::statement && read.lines[i].thread == read.lines[one.begin].thread)
                made["args"]["statement"] = safe(read.lines[i].body);
        write(made);
    }
    for (const line &one : read.lines)
        if (one.what == kind::critical || one.what == kind::refusal || one.what == kind::broken_read) {
            json made = event(one, "i", one.body);
            made["s"] = "t";
            write(made);
        }
    file << (read.calls.empty() ? "{\"traceEvents\": [" : "") << "]}\n";
    if (!file.flush())
        throw unreadable(safe(path) + ": " + g_strerror(errno) + ". The timeline was not written.");
}

json trace_json(const trace_reading &read)
{
    json document = {{"lines", read.lines.size()},   {"has_threads", read.has_threads}, {"has_times", read.has_times},
                     {"operations", json::object()}, {"failures", json::array()},       {"recovered", read.recovered},
                     {"not_found", read.not_found},  {"ends_inside", read.open_at_end}};
    for (const auto &[name, one] : read.operations) {
        document["operations"][name] = {
            {"calls", one.calls}, {"failures", one.failures}, {"statements", one.statements}};
        if (read.has_threads && read.has_times) {
            document["operations"][name]["total_us"] = one.total;
            document["operations"][name]["longest_us"] = one.longest;
        }
    }
    for (const failure &one : read.failures) {
        const advice given = advice_for(one);
        document["failures"].push_back({{"operation", one.operation},
                                        {"text", one.text},
                                        {"count", one.count},
                                        {"first_line", one.first_line},
                                        {"statement", one.statement},
                                        {"code", one.code},
                                        {"attempts", one.attempts},
                                        {"means", given.means},
                                        {"do", given.action}});
    }
    return document;
}

} // namespace

int trace(const std::string &path, const trace_options &how)
{
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
        if (!file || file.peek() == std::ifstream::traits_type::eof())
            throw unreadable(safe(path) + ": " + (file ? "is empty" : g_strerror(errno)) +
                             ". Name a file with a trace.");
    }
    const trace_reading read = read_trace(path == "-" ? std::cin : file);
    if (read.lines.empty())
        throw unreadable(safe(path) + ": no line of it is the library's (they read \"operation(line): text\").");
    if ((how.shows_tree || !how.timeline.empty()) && !read.has_threads)
        throw unreadable(NO_THREADS + std::string("who called whom would be a guess. The host platform writes them."));
    if (!how.timeline.empty() && !read.has_times)
        throw unreadable("The lines carry no times: there is no timeline. The host platform writes them.");
    if (!how.timeline.empty()) {
        write_timeline(read, how.timeline);
        std::fprintf(stderr, "%s: open it in Perfetto or Chrome's tracing page.\n", safe(how.timeline).c_str());
    }
    if (how.as_json)
        std::fputs(text_of(trace_json(read)).c_str(), stdout);
    else if (how.shows_tree)
        print_tree(read);
    else
        print_summary(read);
    return read.failures.empty() ? FINE : FINDINGS;
}

} // namespace zel_store
