#include "trace_sums.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

namespace
{

// Far beyond what the library makes: it has about 250 operations.
constexpr size_t MOST_OPERATIONS = 10'000;
constexpr size_t MOST_FAILURES = 1'000;
constexpr size_t MOST_KEPT = 100'000;
constexpr size_t LONGEST_TEXT = 4096;
constexpr size_t LONGEST_STATEMENT = 16'384;
constexpr char OTHERS[] = "further_operations";
constexpr char OTHER_COMPLAINTS[] = "further complaints";

/** These look bad and are not, as docs/log.md says. */
bool is_harmless(const std::string &text)
{
    return text == "Fail:Filesize is zero" || text == "req_queue->item_list is NULL" ||
           text == "waitCallback() TIME-OUT" || text.starts_with("No records") || text.starts_with("already");
}

std::string cut(std::string_view text, size_t longest)
{
    return std::string(text.substr(0, longest)) + (text.size() > longest ? " ~" : "");
}

std::string plain(std::string_view text, bool is_escaped)
{
    return is_escaped ? unescaped(text) : std::string(text);
}

} // namespace

long long call::us() const
{
    return thread && begin && end ? std::max(0LL, *end - *begin) : 0;
}

size_t trace_sums::operation_of(std::string_view name)
{
    auto known = names.find(name);
    if (known == names.end()) {
        if (operations.size() > MOST_OPERATIONS)
            return names.at(OTHERS);
        const std::string_view added = operations.size() == MOST_OPERATIONS ? OTHERS : name;
        known = names.emplace(added, operations.size()).first;
        operations.push_back({known->first});
        is_executor.push_back(added.starts_with("__execute_") || added == "__insert_callback" ||
                              added == "__db_finalize");
    }
    return known->second;
}

/** Takes a call as going on up to a line: the statements in front of it are its own. */
void trace_sums::extend(call &one, size_t last, std::optional<long long> end)
{
    operations[one.operation].statements += std::exchange(one.statements, 0);
    one.last = last;
    one.end = end;
}

void trace_sums::end_call(thread &of, calls &among, calls::iterator ended)
{
    operation &its = operations[ended->operation];
    const long long us = ended->us();
    ++its.calls;
    if (__builtin_add_overflow(its.total_us, us, &its.total_us)) // of times that somebody made up
        its.total_us = std::numeric_limits<long long>::max();
    its.longest_us = std::max(its.longest_us, us);
    (ended == among.begin() ? its.statements : std::prev(ended)->statements) += ended->statements;
    if (on_call)
        on_call(*ended);
    of.open.erase(ended->operation);
    among.erase(ended);
    --kept;
}

void trace_sums::end_statement(thread &of)
{
    const outcome_of_statement &ended = of.latest;
    for (const auto &[key, found] : ended.complaints) {
        const auto broken = ended.broken.find(key.first);
        add_failure(key.first, key.second, found, broken != ended.broken.end() ? broken->second : ended.refused, ended);
    }
    for (const auto &[operation, found] : ended.broken_reads) {
        const auto complaint = ended.complaints.lower_bound({operation, ""});
        if (complaint == ended.complaints.end() || complaint->first.first != operation) // nobody has complained of it
            add_failure(operation, "a read broke off", found, ended.broken.at(operation), ended);
    }
    kept -= ended.complaints.size();
    of.latest.statement.clear();
    of.latest.refused = 0;
    of.latest.attempts = 0;
    of.latest.broken.clear();
    of.latest.broken_reads.clear();
    of.latest.complaints.clear();
}

void trace_sums::add_failure(size_t operation, const std::string &text, const complaint &found, int code,
                             const outcome_of_statement &of)
{
    if (code == 0 && is_harmless(text))
        return;
    operations[operation].failures += static_cast<long long>(found.count);
    auto key = std::tuple(operation, text, code);
    if (failures.size() >= MOST_FAILURES && !failures.contains(key))
        key = {operation_of(OTHERS), OTHER_COMPLAINTS, 0};
    failure &kind = failures[key];
    if (kind.count == 0 || found.first_line < kind.first_line) {
        kind.operation = operations[std::get<0>(key)].name;
        kind.text = std::get<1>(key);
        kind.code = std::get<2>(key);
        kind.first_line = found.first_line;
        kind.statement = kind.code != 0 ? plain(of.statement, of.is_escaped) : "";
        kind.attempts = of.attempts;
    }
    kind.count += found.count;
}

void trace_sums::end_thread(thread &of)
{
    end_statement(of);
    for (calls *const among : {&of.executors, &of.operations}) {
        while (!among->empty()) {
            if (call &last = among->back(); last.first == last.last) // it has written nothing more: it still goes on
                extend(last, of.last, of.end);
            end_call(of, *among, std::prev(among->end()));
        }
    }
}

void trace_sums::finish()
{
    for (auto &[id, one] : running)
        end_thread(one);
    running.clear();
}

void trace_sums::add(const trace_line &line)
{
    if (running.size() + kept > MOST_KEPT) // of no library: what is open is taken as ended
        finish();
    ++lines;
    if (line.thread)
        ++lines_with_thread;
    if (line.time) {
        earliest = lines_with_time == 0 ? *line.time : std::min(earliest, *line.time);
        latest = lines_with_time == 0 ? *line.time : std::max(latest, *line.time);
        ++lines_with_time;
    }
    const auto [entry, is_new] = running.try_emplace(line.thread);
    threads += is_new ? 1 : 0;
    thread &its = entry->second;
    const size_t who = operation_of(line.function);
    calls &among = is_executor[who] ? its.executors : its.operations;

    if (line.what == step::END || line.what == step::STATEMENT || (line.what == step::BEGIN && !is_executor[who]))
        end_statement(its);
    const auto known = its.open.find(who);
    if (line.what == step::BEGIN) {
        if (known != its.open.end()) // it was rejected, or called itself
            end_call(its, among, known->second);
        among.push_back({line.thread, who, lines, lines, line.time, line.time});
        its.open[who] = std::prev(among.end());
        ++kept;
    } else if (known != its.open.end()) {
        const calls::iterator writer = known->second;
        for (calls *const inner : {&its.executors, &its.operations}) // what it has called has returned
            while (!inner->empty() && inner->back().first > writer->first)
                end_call(its, *inner, std::prev(inner->end()));
        extend(*writer, lines, line.time);
        if (line.what == step::END)
            end_call(its, among, writer);
    }
    its.last = lines;
    its.end = line.time;

    outcome_of_statement &step_now = its.latest;
    if (line.what == step::STATEMENT) {
        ++(its.operations.empty() ? operations[who].statements : its.operations.back().statements);
        step_now.statement = cut(line.text, LONGEST_STATEMENT);
        step_now.is_escaped = line.is_escaped;
    } else if (line.what == step::REFUSAL) {
        step_now.refused = std::max(step_now.refused, line.code);
        ++step_now.attempts;
    } else if (line.what == step::BROKEN_READ || (line.what == step::COMPLAINT && !is_executor[who])) {
        if (line.what == step::BROKEN_READ)
            step_now.broken[who] = std::max(step_now.broken[who], line.code);
        std::string text = line.what == step::COMPLAINT ? cut(plain(line.text, line.is_escaped), LONGEST_TEXT) : "";
        if (step_now.complaints.size() >= MOST_FAILURES)
            text = OTHER_COMPLAINTS;
        complaint &kind =
            line.what == step::COMPLAINT ? step_now.complaints[{who, std::move(text)}] : step_now.broken_reads[who];
        kept += line.what == step::COMPLAINT && kind.count == 0 ? 1 : 0;
        if (kind.count++ == 0)
            kind.first_line = line.number;
    }
    if (on_line)
        on_line(line);
}

bool trace_sums::has_threads() const
{
    return lines_with_thread == lines;
}

bool trace_sums::has_times() const
{
    return lines_with_time == lines;
}

long long trace_sums::duration() const
{
    return latest - earliest;
}

const std::string &trace_sums::name_of(const call &one) const
{
    return operations[one.operation].name;
}

std::vector<operation> trace_sums::operations_by_time() const
{
    std::vector<operation> sorted;
    for (const operation &one : operations)
        if (one.calls + one.failures + one.statements > 0)
            sorted.push_back(one);
    std::sort(sorted.begin(), sorted.end(), [](const operation &one, const operation &other) {
        return std::tuple(-one.total_us, -one.calls, one.name) < std::tuple(-other.total_us, -other.calls, other.name);
    });
    return sorted;
}

std::vector<failure> trace_sums::failures_by_line() const
{
    std::vector<failure> sorted;
    for (const auto &[key, one] : failures)
        sorted.push_back(one);
    std::sort(sorted.begin(), sorted.end(),
              [](const failure &one, const failure &other) { return one.first_line < other.first_line; });
    return sorted;
}
