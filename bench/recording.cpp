#include "recording.h"

#include "harness.h"
#include "zel_platform.h"

#include <glib.h>

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
    const char *read = nullptr;
    for (const event &each : events_) {
        sqlite3_stmt **const statement = statements_.data() + std::max(each.which, 0);
        const text *const given = texts_.data() + std::max(each.which, 0);
        int result = each.detail;
        switch (each.what) {
        case call::log_line:
            dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "%s(%d): \n", "operation", 1);
            break;
        case call::compose:
            composed_.push_back(compose(given->content.c_str(), given->arguments.data()));
            break;
        case call::copy:
            copies_.push_back(g_strdup(read));
            break;
        case call::exec:
            sqlite3_exec(database, given->content.c_str(), each.detail ? read_row_id : nullptr, nullptr, nullptr);
            break;
        case call::prepare:
            sqlite3_prepare_v2(database, given->content.c_str(), each.detail, &statements_[prepared++], nullptr);
            break;
        case call::step:
            result = sqlite3_step(*statement);
            break;
        case call::column_int:
            benchmark::DoNotOptimize(sqlite3_column_int(*statement, each.detail));
            break;
        case call::column_int64:
            benchmark::DoNotOptimize(sqlite3_column_int64(*statement, each.detail));
            break;
        case call::column_text:
            read = reinterpret_cast<const char *>(sqlite3_column_text(*statement, each.detail));
            break;
        case call::reset:
            sqlite3_reset(*statement);
            break;
        case call::finalize:
            result = sqlite3_finalize(*statement);
            break;
        }
        require(result == each.detail, "another answer than the recorded one");
    }
    for (char *each : composed_)
        sqlite3_free(each);
    composed_.clear();
}

void recording::release()
{
    for (char *each : copies_)
        g_free(each);
    copies_.clear();
}

std::string recording::shape() const
{
    std::vector<std::pair<std::string, int>> parts; // with the number of columns
    int statements = 0;
    int texts = 0;
    int surplus_copies = 0;
    for (const event &each : events_) {
        surplus_copies += (each.what == call::copy) - (each.what == call::column_text);
        statements += each.what == call::exec || each.what == call::prepare;
        texts += each.what == call::compose;
        if (each.what == call::exec)
            parts.emplace_back(each.detail ? "insert" : "exec", 0);
        else if (each.what == call::step)
            parts.emplace_back(each.detail == SQLITE_ROW ? "row of " : "end", 0);
        else if (each.what >= call::column_int && each.what <= call::column_text)
            ++parts.back().second;
    }
    parts.erase(std::unique(parts.begin(), parts.end()), parts.end());
    std::string all;
    for (const auto &[part, columns] : parts)
        all += (all.empty() ? "" : ", ") + part + (part == "row of " ? std::to_string(columns) : "");
    return all + (statements > 1 ? " by " + std::to_string(statements) + " statements" : "") +
           (texts != statements ? " of " + std::to_string(texts) + " texts" : "") +
           (surplus_copies > 0 ? ", more copies than texts read" : "");
}

} // namespace bench

/* The stand-ins, which the linker puts between the static objects and what they call. */

using bench::recording;
using call = recording::call;

extern "C" {

char *__real_sqlite3_vmprintf(const char *format, va_list arguments);
char *__wrap_sqlite3_vmprintf(const char *format, va_list arguments)
{
    if (recording::current) {
        va_list copy;
        va_copy(copy, arguments);
        recording::current->note_composed(format, copy);
        va_end(copy);
    }
    return __real_sqlite3_vmprintf(format, arguments);
}

decltype(sqlite3_exec) __real_sqlite3_exec;
int __wrap_sqlite3_exec(sqlite3 *database, const char *text, int (*callback)(void *, int, char **, char **), void *data,
                        char **message)
{
    if (recording::current)
        recording::current->note_text(call::exec, text, callback != nullptr);
    return __real_sqlite3_exec(database, text, callback, data, message);
}

decltype(sqlite3_prepare_v2) __real_sqlite3_prepare_v2;
int __wrap_sqlite3_prepare_v2(sqlite3 *database, const char *text, int length, sqlite3_stmt **statement,
                              const char **tail)
{
    const int result = __real_sqlite3_prepare_v2(database, text, length, statement, tail);
    if (recording::current)
        recording::current->note_prepared(text, length, *statement);
    return result;
}

#define OF_STATEMENT(name)                                                                                             \
    decltype(sqlite3_##name) __real_sqlite3_##name;                                                                    \
    int __wrap_sqlite3_##name(sqlite3_stmt *statement)                                                                 \
    {                                                                                                                  \
        const int result = __real_sqlite3_##name(statement);                                                           \
        if (recording::current)                                                                                        \
            recording::current->note(call::name, statement, result);                                                   \
        return result;                                                                                                 \
    }
OF_STATEMENT(step)
OF_STATEMENT(reset)
OF_STATEMENT(finalize)

#define OF_COLUMN(name)                                                                                                \
    decltype(sqlite3_##name) __real_sqlite3_##name;                                                                    \
    decltype(sqlite3_##name(nullptr, 0)) __wrap_sqlite3_##name(sqlite3_stmt *statement, int column)                    \
    {                                                                                                                  \
        if (recording::current)                                                                                        \
            recording::current->note(call::name, statement, column);                                                   \
        return __real_sqlite3_##name(statement, column);                                                               \
    }
OF_COLUMN(column_int)
OF_COLUMN(column_int64)
OF_COLUMN(column_text)

char *__real_g_strdup(const char *text);
char *__wrap_g_strdup(const char *text)
{
    if (recording::current)
        recording::current->note(call::copy);
    return __real_g_strdup(text);
}

/* The platform: silent, and as cheap as it can be. */

int dlog_print(log_priority, const char *, const char *, ...)
{
    ++bench::lines_written;
    if (recording::current)
        recording::current->note(call::log_line);
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
