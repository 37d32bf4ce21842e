#include "recording.h"

#include "harness.h"
#include "zel_platform.h"

#include <algorithm>
#include <utility>

namespace bench
{

namespace
{

/** More than any statement text is composed of. */
constexpr size_t ARGUMENTS = 24;
static_assert(sizeof(void *) == sizeof(unsigned long long), "an argument of any type is passed as one of 64 bits");

char *compose(const char *format, const unsigned long long *arguments)
{
    return [&]<size_t... I>(std::index_sequence<I...>)
    {
        return sqlite3_mprintf(format, arguments[I]...);
    }
    (std::make_index_sequence<ARGUMENTS>());
}

/** Looks at the row id as the library does. */
int read_row_id(void *, int, char **values, char **)
{
    return values[0] ? 0 : 1;
}

} // namespace

recording::recording(const std::function<void()> &action)
{
    current = this;
    action();
    current = nullptr;
}

void recording::note(call what, const sqlite3_stmt *statement, int detail)
{
    // The address of a statement that is finalized is used again: the last one counts.
    const auto last = std::find(statements_.rbegin(), statements_.rend(), statement);
    events_.push_back({what, static_cast<int>(statements_.rend() - last) - 1, detail});
}

void recording::note_text(call what, const char *text, int detail)
{
    events_.push_back({what, static_cast<int>(texts_.size()), detail});
    texts_.push_back({text});
}

void recording::note_composed(const char *format, va_list arguments)
{
    note_text(call::compose, format, 0);
    auto &values = texts_.back().arguments;
    for (const char *at = format; *at; ++at) {
        if (*at != '%' || *++at == '%')
            continue;
        const bool wide = *at == 'l';
        while (*at == 'l')
            ++at;
        if (*at == 'Q' || *at == 's') {
            const char *string = va_arg(arguments, const char *);
            values.push_back(string ? reinterpret_cast<unsigned long long>(strings_.emplace_back(string).c_str()) : 0);
        } else {
            require(*at == 'd' || *at == 'u', "a conversion that is not known here");
            values.push_back(wide ? va_arg(arguments, unsigned long long) : va_arg(arguments, unsigned int));
        }
    }
    require(values.size() <= ARGUMENTS, "a text of more arguments than are passed on");
    values.resize(ARGUMENTS);
}

void recording::note_prepared(const char *text, int length, sqlite3_stmt *statement)
{
    note_text(call::prepare, text, length);
    statements_.push_back(statement);
}

void recording::replay(sqlite3 *database)
{
    size_t prepared = 0;
    for (const event &each : events_) {
        sqlite3_stmt **const statement = statements_.data() + std::max(each.which, 0);
        const text *const given = texts_.data() + std::max(each.which, 0);
        bool as_before = true;
        switch (each.what) {
        case call::log_line:
            dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "%s(%d): \n", "operation", 1);
            break;
        case call::compose:
            composed_.push_back(compose(given->content.c_str(), given->arguments.data()));
            break;
        case call::exec:
            as_before = sqlite3_exec(database, given->content.c_str(), each.detail ? read_row_id : nullptr, nullptr,
                                     nullptr) == SQLITE_OK;
            break;
        case call::prepare:
            as_before = sqlite3_prepare_v2(database, given->content.c_str(), each.detail, &statements_[prepared++],
                                           nullptr) == SQLITE_OK;
            break;
        case call::step:
            as_before = sqlite3_step(*statement) == each.detail;
            break;
        case call::column_int:
            benchmark::DoNotOptimize(sqlite3_column_int(*statement, each.detail));
            break;
        case call::column_int64:
            benchmark::DoNotOptimize(sqlite3_column_int64(*statement, each.detail));
            break;
        case call::column_text:
            benchmark::DoNotOptimize(sqlite3_column_text(*statement, each.detail));
            break;
        case call::reset:
            sqlite3_reset(*statement);
            break;
        case call::finalize:
            sqlite3_finalize(*statement);
            break;
        }
        require(as_before, "another answer than the recorded one");
    }
    for (char *each : composed_)
        sqlite3_free(each);
    composed_.clear();
}

std::string recording::shape() const
{
    struct statement {
        bool inserts = false, prepared = false, to_the_end = false;
        int steps = 0, rows = 0, first_columns = 0, columns = 0;

        std::string shape() const
        {
            if (!prepared)
                return inserts ? "insert" : "exec";
            const int later = rows > 1 ? (columns - first_columns) / (rows - 1) : first_columns;
            const int other_steps = steps - rows - to_the_end;
            const int other_columns = columns - first_columns - later * std::max(rows - 1, 0);
            return (rows == 0 ? "no row"
                              : (to_the_end  ? "rows of "
                                 : rows == 1 ? "row of "
                                             : "some rows of ") +
                                    std::to_string(later)) +
                   (first_columns != later ? " (first " + std::to_string(first_columns) + ")" : "") +
                   (other_steps ? " +" + std::to_string(other_steps) + " steps" : "") +
                   (other_columns ? " +" + std::to_string(other_columns) + " columns" : "");
        }
    };
    std::vector<statement> all;
    std::vector<size_t> prepared; // where in `all` each stands
    int texts = 0;
    int finalized = 0;
    for (const event &each : events_) {
        statement *const of =
            each.what >= call::step && each.which >= 0 ? &all[prepared[static_cast<size_t>(each.which)]] : nullptr;
        texts += each.what == call::compose;
        finalized += each.what == call::finalize;
        if (each.what == call::exec) {
            all.push_back({.inserts = each.detail != 0});
        } else if (each.what == call::prepare) {
            prepared.push_back(all.size());
            all.push_back({.prepared = true});
        } else if (of && each.what == call::step) {
            ++of->steps;
            of->rows += each.detail == SQLITE_ROW;
            of->to_the_end = each.detail == SQLITE_DONE;
        } else if (of && each.what >= call::column_int && each.what <= call::column_text) {
            ++of->columns;
            of->first_columns += of->rows == 1;
        }
    }
    std::vector<std::pair<std::string, int>> parts;
    for (const statement &each : all) {
        if (parts.empty() || parts.back().first != each.shape())
            parts.emplace_back(each.shape(), 0);
        ++parts.back().second;
    }
    std::string joined;
    for (const auto &[part, count] : parts)
        joined += (joined.empty() ? "" : ", ") + (count > 1 ? std::to_string(count) + " times " : "") + part;
    const auto other = [&](int count, const char *what) {
        joined += count ? " +" + std::to_string(count) + " " + what : "";
    };
    other(texts - static_cast<int>(all.size()), "texts");
    other(finalized - static_cast<int>(prepared.size()), "finalized");
    return joined;
}

} // namespace bench

/* The stand-ins, which the linker puts between the static objects and what they call. */

using call = bench::recording::call;

extern "C" {

#define REAL(name) decltype(name) __real_##name
REAL(sqlite3_vmprintf);
REAL(sqlite3_exec);
REAL(sqlite3_prepare_v2);
REAL(sqlite3_step);
REAL(sqlite3_column_int);
REAL(sqlite3_column_int64);
REAL(sqlite3_column_text);
REAL(sqlite3_reset);
REAL(sqlite3_finalize);

char *__wrap_sqlite3_vmprintf(const char *format, va_list arguments)
{
    if (bench::recording::current) {
        va_list copy;
        va_copy(copy, arguments);
        bench::recording::current->note_composed(format, copy);
        va_end(copy);
    }
    return __real_sqlite3_vmprintf(format, arguments);
}

int __wrap_sqlite3_exec(sqlite3 *database, const char *text, int (*callback)(void *, int, char **, char **), void *data,
                        char **message)
{
    if (bench::recording::current)
        bench::recording::current->note_text(call::exec, text, callback != nullptr);
    return __real_sqlite3_exec(database, text, callback, data, message);
}

int __wrap_sqlite3_prepare_v2(sqlite3 *database, const char *text, int length, sqlite3_stmt **statement,
                              const char **tail)
{
    const int result = __real_sqlite3_prepare_v2(database, text, length, statement, tail);
    if (bench::recording::current)
        bench::recording::current->note_prepared(text, length, *statement);
    return result;
}

int __wrap_sqlite3_step(sqlite3_stmt *statement)
{
    const int result = __real_sqlite3_step(statement);
    if (bench::recording::current)
        bench::recording::current->note(call::step, statement, result);
    return result;
}

#define COLUMN(type)                                                                                                   \
    decltype(sqlite3_column_##type(nullptr, 0)) __wrap_sqlite3_column_##type(sqlite3_stmt *statement, int column)      \
    {                                                                                                                  \
        if (bench::recording::current)                                                                                 \
            bench::recording::current->note(call::column_##type, statement, column);                                   \
        return __real_sqlite3_column_##type(statement, column);                                                        \
    }
COLUMN(int)
COLUMN(int64)
COLUMN(text)

int __wrap_sqlite3_reset(sqlite3_stmt *statement)
{
    if (bench::recording::current)
        bench::recording::current->note(call::reset, statement);
    return __real_sqlite3_reset(statement);
}

int __wrap_sqlite3_finalize(sqlite3_stmt *statement)
{
    if (bench::recording::current)
        bench::recording::current->note(call::finalize, statement);
    return __real_sqlite3_finalize(statement);
}

/* The platform: silent, and as cheap as it can be. */

int dlog_print(log_priority, const char *, const char *, ...)
{
    ++bench::lines_written;
    if (bench::recording::current)
        bench::recording::current->note(call::log_line);
    return 0;
}

int system_info_get_custom_bool(const char *, bool *)
{
    return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
}

int app_control_clone(app_control_h *clone, app_control_h)
{
    *clone = static_cast<app_control_h>(malloc(1));
    return 0;
}

int app_control_destroy(app_control_h app_control)
{
    free(app_control);
    return 0;
}
}
