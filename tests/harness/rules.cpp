#include "rules.h"

#include "trace.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace zel_test
{

namespace
{

/// These write no Begin line.
const std::set<std::string> without_begin = {"__execute_query", "__execute_insert_query", "__execute_select_query",
                                             "get_upload_list_details"};
const std::string operation_head = "_common_storage_";

bool is_executor(const std::string &function)
{
    return function.starts_with("__execute_") || function == "__insert_callback";
}

bool is_finalize(const log_line &line)
{
    return line.kind == "Debug" && line.text.starts_with("sqlite3_finalize = [");
}

/// Reads what a call has logged, line by line.
class trace_reader
{
  public:
    trace_reader(const std::string &trace, const call &made, const trace_circumstances &with)
        : lines_(parse_all(trace)), made_(made), is_locked_(with.is_locked),
          is_closed_(with.is_closed && made.name != "init")
    {
    }

    trace_report read()
    {
        check(without_begin.contains(made_.name) || (at("Begin") && now().function == made_.function()), "Begin first");
        while (next_ < lines_.size()) {
            if (is_executor(now().function))
                read_statement();
            else if (is_finalize(now()))
                read_finalize();
            else if (at("Begin") || at("End"))
                read_frame();
            else
                read_own_line();
        }
        check(made_.name == "__execute_select_query" || prepared_ == finalized_, "one finalize line a statement");
        for (const auto &[function, count] : open_)
            check(count == 0 || function.starts_with(operation_head), "an End line of " + function);
        for (own_line &line : report_.own_lines)
            for (const std::string &statement : report_.statements)
                if (const size_t at = line.text.find(statement); at != std::string::npos)
                    line.text.replace(at, statement.size(), "<statement>");
        return report_;
    }

  private:
    void check(bool holds, const std::string &rule)
    {
        if (!holds)
            report_.broken_rules.push_back(rule);
    }
    const log_line &now() const
    {
        static const log_line none;
        return next_ < lines_.size() ? lines_[next_] : none;
    }
    bool at(const std::string &kind, const std::string &beginning = "") const
    {
        return now().kind == kind && now().text.starts_with(beginning);
    }
    bool skip(const std::string &function, const std::string &kind, const std::string &text = "")
    {
        const bool is_there = now().function == function && now().kind == kind && now().text == text;
        next_ += is_there;
        return is_there;
    }

    /// What an executor logs for a statement: it opens the store, shows the statement, and reports each attempt that
    /// fails, ten at a locked database.
    void read_statement()
    {
        report_.own_lines.push_back({"", ";"});
        const std::string by = now().function;
        const bool selects = by == "__execute_select_query", inserts = by == "__execute_insert_query";
        check(skip(by, "Begin") == selects, by + ": Begin for a selection");
        if (selects ? skip(by, "Critical", "NULL PARAM query[(nil)], sqlite_handle[0x]") ||
                          skip(by, "Critical", "NULL PARAM query[(nil)], sqlite_handle[(nil)]")
                    : skip(by, "Critical", "Invalid Param or sqlite handle is NULL"))
            return;
        if (skip(by, "Debug", "Opening DB....."))
            check(skip("", "") && skip(by, "Debug", "DB open Success") && std::exchange(is_closed_, false),
                  by + ": opens the store that is closed");
        if (!at("Plain", selects ? "query[" : "query [")) {
            check(false, by + ": its statement, and not " + now().kind + ": " + now().text);
            ++next_;
            return;
        }
        const std::string &text = now().text;
        const size_t from = text.find('[') + 1;
        const size_t asks_for_id = inserts ? text.rfind("; SELECT last_insert_rowid();]") : text.size() - 1;
        check(asks_for_id < text.size() && text.back() == ']', by + ": the question for the row id");
        report_.statements.push_back(text.substr(from, asks_for_id - from));
        ++next_;

        const bool is_busy = now().text.ends_with("err[5], SQLITE_BUSY [5]");
        check(!is_busy || is_locked_, by + ": a lock");
        int failures = 0;
        for (; at(inserts ? "Critical" : "Debug", "failed to execute ["); ++next_, ++failures)
            check(now().text.ends_with("], SQLITE_BUSY [5]"), by + ": " + now().text);
        check(failures == 0 || failures == (is_busy ? 10 : 1), by + ": ten attempts at a locked database, else one");
        check(skip(by, "Critical", "Retried for 10 times - returning") == (failures == 10), by + ": Retried");
        prepared_ += selects && failures == 0;
        if (inserts && failures == 0)
            check(skip("__insert_callback", "Begin") && at("Debug", "Assigning value ") && ++next_ &&
                      skip("__insert_callback", "End"),
                  by + ": the row id is taken");
    }

    /// One for each statement, after the operation's own lines for it; a step that met a lock leaves its code.
    void read_finalize()
    {
        ++finalized_;
        const bool has_code = is_locked_ && now().function != "__db_finalize";
        const bool is_usual = now().text == (has_code ? "sqlite3_finalize = [5]" : "sqlite3_finalize = [0]");
        const log_line line = now();
        ++next_;
        const bool is_last =
            next_ == lines_.size() || is_executor(now().function) || is_finalize(now()) || at("Begin") || at("End");
        if (!is_usual || !is_last)
            add_own(line);
    }

    /// Begin comes first; an End line, if there is one, last.
    void read_frame()
    {
        const bool begins = at("Begin");
        const std::string function = now().function;
        const bool is_first = next_ == 0, is_last = ++next_ == lines_.size();
        if (function == made_.function())
            check(begins ? is_first : is_last, begins ? "Begin once" : "End last");
        else
            check((open_[function] += begins ? 1 : -1) >= 0, "an End line of " + function + " after its Begin line");
    }

    void read_own_line()
    {
        const log_line line = now();
        ++next_;
        const bool is_clock = line.function == "_common_util_get_current_timestamp";
        if (!is_clock || !line.text.starts_with(" timestamp:"))
            add_own(line);
    }

    /// Of an operation that the tried one calls, only the Critical lines: its own case states the others.
    void add_own(const log_line &line)
    {
        const std::string text = (line.kind == "Critical" ? "\"" : line.kind + ":\"") + line.text + "\"";
        const bool is_operation = line.function.starts_with(operation_head);
        if (line.function.empty() && line.text.empty() && !report_.own_lines.empty())
            report_.own_lines.back().text.insert(report_.own_lines.back().text.size() - 1, "\\n");
        else if (line.function == made_.function())
            report_.own_lines.push_back({"", text});
        else if (!is_operation)
            report_.own_lines.push_back({line.function, text});
        else if (line.kind == "Critical")
            report_.own_lines.push_back({line.function.substr(operation_head.size()), text});
    }

    const std::vector<log_line> lines_;
    const call &made_;
    const bool is_locked_;
    bool is_closed_;
    size_t next_ = 0;
    int prepared_ = 0, finalized_ = 0;
    std::map<std::string, int> open_; ///< frames of what the operation calls
    trace_report report_;
};

} // namespace

trace_report read_trace(const std::string &lines, const call &made, const trace_circumstances &with)
{
    return trace_reader(lines, made, with).read();
}

std::string shown(const std::vector<own_line> &lines, const std::vector<own_line> &usual)
{
    constexpr size_t LONG = 40;
    const own_line apart{"", ";"};
    std::string all, function;
    const auto put = [&](const own_line &line) {
        if (line.function != function)
            all += (function.empty() ? "" : ")") + (line.function.empty() ? "" : " " + line.function + "(");
        all += (all.ends_with("(") ? "" : " ") + line.text;
        function = line.function;
    };
    auto next = lines.begin();
    const auto differs = std::mismatch(next, lines.end(), usual.begin(), usual.end()).first;
    if (!usual.empty() && shown({next, differs}).size() > LONG) {
        const auto count = differs - next - std::count(next, differs, apart);
        const std::string lines_as_usual = count == 1 ? "1 line" : std::to_string(count) + " lines";
        put({"", "(" + (lines == usual ? "lines" : lines_as_usual) + " as usual)"});
        next = differs;
    }
    for (bool is_apart = false; next != lines.end(); ++next) {
        if (*next == apart) {
            is_apart = !all.empty();
            continue;
        }
        if (std::exchange(is_apart, false))
            put(apart);
        own_line line = *next;
        int times = 1;
        for (auto after = next + 1; after != lines.end() && (*after == apart || *after == line); ++after)
            if (*after == line) {
                ++times;
                next = after;
            }
        line.text += times > 1 ? " x" + std::to_string(times) : "";
        put(line);
    }
    return all + (function.empty() ? "" : ")");
}

} // namespace zel_test
