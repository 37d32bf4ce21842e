// What the families of the store have in common, each expectation driven by a table of calls.
#ifndef ZEL_TESTS_STORE_EXPECTATIONS_H
#define ZEL_TESTS_STORE_EXPECTATIONS_H

#include "operations.h"

#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace zel_test
{

enum needs { POINTERS = 1, FIRST = 2, EVERYTHING = 4 };

/// How an operation refuses an argument.
struct refusal {
    std::string message;
    int needed = EVERYTHING;   ///< which arguments; those that a call gives as NULL or zero are never looked at
    bool negative_too = false; ///< an int must be above 0
    bool with_end = false;
    int code = ZEL_ERR_INVALID_ARG;
};

struct store_call {
    const char *function;
    int (*call)(answers &out);
    void (*refuse)(answers &out, const refusal &how); ///< makes the call without each needed argument in turn
    std::string statement;
    std::string answer = {}; ///< of a question, over the rows that the test has stored
    trace inside = {};       ///< what it writes once its row is found
};
using store_calls = std::vector<store_call>;

/// The first members of a store_call, for _common_storage_<name>; the arguments may name the members of `out`.
#define ZEL_CALL(name, ...)                                                                                            \
    "_common_storage_" #name,                                                                                          \
        [](answers &out) -> int {                                                                                      \
            static_cast<void>(out);                                                                                    \
            return _common_storage_##name(__VA_ARGS__);                                                                \
        },                                                                                                             \
        [](answers &out, const refusal &how) {                                                                         \
            static_cast<void>(out);                                                                                    \
            expect_refusals("_common_storage_" #name, how, _common_storage_##name __VA_OPT__(, ) __VA_ARGS__);         \
        }

/// How a family of questions fails.
struct question_kind {
    const char *failure;
    int nothing_found; ///< the code
    refusal refused;
    bool with_end = true;
    trace (*line)(const std::string &, const std::string &) = critical; ///< of "No records found"; may be null
    const char *finalizer = nullptr;                                    ///< when it is not the operation itself
};

inline trace end_if(bool wanted, const std::string &function)
{
    return wanted ? end(function) : trace();
}

/// Makes the call, which gives this code, hands out just this and writes these lines.
inline void expect_outcome(const store_call &made, int code, const std::string &answer, const trace &lines)
{
    SCOPED_TRACE(made.function + (": " + made.statement));
    answers out;
    take_trace();
    EXPECT_EQ(made.call(out), code);
    EXPECT_TRACE(lines);
    EXPECT_EQ(out.take(), answer);
    take_trace();
}

/// The call gives this code, hands out just this and says why. It writes no End line.
inline void expect_failure(const store_call &made, int code, const std::string &message, const std::string &answer = "",
                           bool with_end = false)
{
    answers out;
    take_trace();
    EXPECT_EQ(made.call(out), code) << message;
    const std::string lines = take_trace().text;
    EXPECT_NE(lines.find(critical(made.function, message).text), std::string::npos) << message << " in\n" << lines;
    EXPECT_EQ(lines.ends_with(end(made.function).text), with_end) << message << " in\n" << lines;
    EXPECT_EQ(out.take(), answer) << message;
}

/// The same with an End line.
inline void expect_ended_failure(const store_call &made, int code, const std::string &message,
                                 const std::string &answer = "")
{
    expect_failure(made, code, message, answer, true);
}

template <typename Result, typename... Parameters>
void expect_refusals(const std::string &name, const refusal &how, Result (*function)(Parameters...),
                     std::type_identity_t<Parameters>... good)
{
    const std::tuple<Parameters...> all(good...);
    const auto spoil = [&]<size_t I, typename Value>(std::integral_constant<size_t, I>, Value value) {
        const int kind = (std::is_pointer_v<Value> ? POINTERS : 0) | (I == 0 ? FIRST : 0) | EVERYTHING;
        if (value == Value() || !(how.needed & kind))
            return;
        for (const int zero : {0, -1}) {
            std::tuple<Parameters...> bad = all;
            if constexpr (std::is_same_v<Value, int>)
                std::get<I>(bad) = zero;
            else
                std::get<I>(bad) = Value();
            if (zero && !(std::is_same_v<Value, int> && how.negative_too))
                break;
            EXPECT_EQ(static_cast<int>(std::apply(function, bad)), how.code) << name;
            EXPECT_TRACE(begin(name), critical(name, how.message), end_if(how.with_end, name));
        }
    };
    [&]<size_t... I>(std::index_sequence<I...>)
    {
        (spoil(std::integral_constant<size_t, I>(), good), ...);
    }
    (std::index_sequence_for<Parameters...>());
}

inline void expect_refused(const store_calls &calls, const refusal &how)
{
    for (const store_call &made : calls) {
        answers out;
        take_trace();
        made.refuse(out, how);
        EXPECT_EQ(out.take(), "") << made.function;
    }
}

/// Each call carries its statement out; without the table it fails; and it refuses bad arguments.
inline void expect_changes(const char *table, const store_calls &calls, const char *failure, const refusal &how,
                           bool with_end = true)
{
    for (const store_call &made : calls) {
        expect_outcome(made, ZEL_ERR_NONE, "", whole(made.function, {ran(made.statement)}));
        const missing_table gone(table);
        expect_outcome(made, ZEL_ERR_STORAGE_FAILURE, "",
                       join({begin(made.function), ran_in_vain(made.statement), critical(made.function, failure),
                             end_if(with_end, made.function)}));
    }
    expect_refused(calls, how);
}

inline void expect_answers(const store_calls &calls)
{
    for (const store_call &made : calls)
        expect_outcome(made, ZEL_ERR_NONE, made.answer,
                       whole(made.function, {prepared(made.statement), made.inside, finalized(made.function)}));
}

/// No question finds a row, or (with the code that finalizing gives then) none can read its row.
inline void expect_nothing_found(const store_calls &calls, const question_kind &kind, int finalize_code = SQLITE_OK)
{
    for (const store_call &made : calls)
        expect_outcome(made, kind.nothing_found, "",
                       join({begin(made.function), prepared(made.statement),
                             kind.line ? kind.line(made.function, "No records found") : trace(),
                             finalized(kind.finalizer ? kind.finalizer : made.function, finalize_code),
                             end_if(kind.with_end, made.function)}));
}

/// How the questions go wrong: without the table, with nothing in it (unless they count), with a database that is
/// busy, and with bad arguments.
inline void expect_failures(const char *table, const store_calls &calls, const question_kind &kind)
{
    {
        const missing_table gone(table);
        for (const store_call &made : calls)
            expect_outcome(made, ZEL_ERR_STORAGE_FAILURE, "",
                           join({begin(made.function), prepared_in_vain(made.statement),
                                 critical(made.function, kind.failure), end_if(kind.with_end, made.function)}));
    }
    raw_database database;
    database.lock();
    expect_nothing_found(calls, kind, kind.finalizer ? SQLITE_OK : SQLITE_BUSY);
    database.unlock();
    expect_refused(calls, kind.refused);
}

/// The questions are answered, and see above.
inline void expect_questions(const char *table, const store_calls &calls, const question_kind &kind)
{
    expect_answers(calls);
    expect_failures(table, calls, kind);
}

} // namespace zel_test

#endif
