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

} // namespace

/** Looks at the row id as the library does. */
static int read_row_id(void *, int, char **values, char **)
{
    return values[0] ? 0 : 1;
}

void recording::record(const std::function<void()> &action)
{
    current = this;
    action();
    current = nullptr;
}

size_t recording::index_of(const sqlite3_stmt *statement) const
{
    // The address of a statement that is finalized is used again: the last one counts.
    const auto last = std::find(statements.rbegin(), statements.rend(), statement);
    return static_cast<size_t>(statements.rend() - last) - 1;
}

void recording::note_composed(const char *format, va_list arguments)
{
    std::vector<unsigned long long> values;
    for (const char *at = format; *at; ++at) {
        if (*at != '%' || *++at == '%')
            continue;
        const bool wide = *at == 'l';
        while (*at == 'l')
            ++at;
        if (*at == 'Q' || *at == 's') {
            const char *string = va_arg(arguments, const char *);
            values.push_back(string ? reinterpret_cast<unsigned long long>(strings.emplace_back(string).c_str()) : 0);
        } else {
            require(*at == 'd' || *at == 'u', "a conversion that is not known here");
            values.push_back(wide ? va_arg(arguments, unsigned long long) : va_arg(arguments, unsigned int));
        }
    }
    require(values.size() <= ARGUMENTS, "a text of more arguments than are passed on");
    values.resize(ARGUMENTS);
    note([text = std::string(format), values](recording &it) {
        it.composed.push_back(compose(text.c_str(), values.data()));
    });
}

void recording::replay(sqlite3 *on)
{
    database = on;
    for (const auto &call_again : calls)
        call_again(*this);
    for (char *each : composed)
        sqlite3_free(each);
    composed.clear();
}

void recording::release()
{
    for (char *each : copies)
        g_free(each);
    copies.clear();
}

} // namespace bench

/* The stand-ins, which the linker puts between the static objects and what they call. */

using bench::recording;
using bench::require;

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
    if (recording::current) {
        recording::current->writes = true;
        recording::current->note(
            [again = std::string(text), row_id = callback ? bench::read_row_id : nullptr](recording &it) {
                sqlite3_exec(it.database, again.c_str(), row_id, nullptr, nullptr);
            });
    }
    return __real_sqlite3_exec(database, text, callback, data, message);
}

decltype(sqlite3_prepare_v2) __real_sqlite3_prepare_v2;
int __wrap_sqlite3_prepare_v2(sqlite3 *database, const char *text, int length, sqlite3_stmt **statement,
                              const char **tail)
{
    const int result = __real_sqlite3_prepare_v2(database, text, length, statement, tail);
    if (recording::current) {
        recording::current->note(
            [again = std::string(text), length, i = recording::current->statements.size()](recording &it) {
                sqlite3_prepare_v2(it.database, again.c_str(), length, &it.statements[i], nullptr);
            });
        recording::current->statements.push_back(*statement);
    }
    return result;
}

#define OF_STATEMENT(name)                                                                                             \
    decltype(sqlite3_##name) __real_sqlite3_##name;                                                                    \
    int __wrap_sqlite3_##name(sqlite3_stmt *statement)                                                                 \
    {                                                                                                                  \
        const int result = __real_sqlite3_##name(statement);                                                           \
        if (recording::current) {                                                                                      \
            recording::current->note([i = recording::current->index_of(statement), result](recording &it) {            \
                require(sqlite3_##name(it.statements[i]) == result, "another answer than the recorded one");           \
            });                                                                                                        \
        }                                                                                                              \
        return result;                                                                                                 \
    }
OF_STATEMENT(step)
OF_STATEMENT(reset)
OF_STATEMENT(finalize)

#define OF_COLUMN(name, use)                                                                                           \
    decltype(sqlite3_##name) __real_sqlite3_##name;                                                                    \
    decltype(sqlite3_##name(nullptr, 0)) __wrap_sqlite3_##name(sqlite3_stmt *statement, int column)                    \
    {                                                                                                                  \
        if (recording::current) {                                                                                      \
            recording::current->note([i = recording::current->index_of(statement), column](recording &it) {            \
                const auto value = sqlite3_##name(it.statements[i], column);                                           \
                use;                                                                                                   \
            });                                                                                                        \
        }                                                                                                              \
        return __real_sqlite3_##name(statement, column);                                                               \
    }
OF_COLUMN(column_int, benchmark::DoNotOptimize(value))
OF_COLUMN(column_int64, benchmark::DoNotOptimize(value))
OF_COLUMN(column_text, it.read = reinterpret_cast<const char *>(value))

char *__real_g_strdup(const char *text);
char *__wrap_g_strdup(const char *text)
{
    if (recording::current)
        recording::current->note([](recording &it) { it.copies.push_back(g_strdup(it.read)); });
    return __real_g_strdup(text);
}

/* The platform: silent, and as cheap as it can be. */

int dlog_print(log_priority, const char *, const char *, ...)
{
    ++bench::lines_written;
    if (recording::current)
        recording::current->note(
            [](recording &) { dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "%s(%d): \n", "operation", 1); });
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
