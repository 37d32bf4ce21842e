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

struct store_call {
    const char *function;
    int (*call)(answers &out);
    std::string statement;
    std::string answer = {}; ///< of a question, over the rows that the test has stored
    trace inside = {};       ///< what it writes once its row is found
};
using store_calls = std::vector<store_call>;

/// The first two members of a store_call, for _common_storage_<name>; the arguments may name the members of `out`.
#define ZEL_CALL(name, ...)                                                                                            \
    "_common_storage_" #name, [](answers &out) -> int {                                                                \
        static_cast<void>(out);                                                                                        \
        return _common_storage_##name(__VA_ARGS__);                                                                    \
    }

/// How a family of questions fails.
struct question_kind {
    const char *failure;
    int nothing_found; ///< the code
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

inline void expect_changes(const store_calls &calls)
{
    for (const store_call &made : calls)
        expect_outcome(made, ZEL_ERR_NONE, "", whole(made.function, {ran(made.statement)}));
}

/// The database refuses the statement of each call.
inline void expect_failing_changes(const store_calls &calls, const char *failure, bool with_end = true)
{
    for (const store_call &made : calls)
        expect_outcome(made, ZEL_ERR_STORAGE_FAILURE, "",
                       join({begin(made.function), ran_in_vain(made.statement), critical(made.function, failure),
                             end_if(with_end, made.function)}));
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

/// No question can be asked, since its table is gone.
inline void expect_failing_questions(const store_calls &calls, const question_kind &kind)
{
    for (const store_call &made : calls)
        expect_outcome(made, ZEL_ERR_STORAGE_FAILURE, "",
                       join({begin(made.function), prepared_in_vain(made.statement),
                             critical(made.function, kind.failure), end_if(kind.with_end, made.function)}));
}

/// How an operation refuses an argument.
struct refusal {
    std::string message;
    bool negative_too = false; ///< an int must be above 0
    bool with_end = false;
    int code = ZEL_ERR_INVALID_ARG;
};

template <typename Result, typename... Parameters>
void expect_refusals(const std::string &name, Result (*function)(Parameters...), const refusal &how,
                     std::type_identity_t<Parameters>... good)
{
    const std::tuple<Parameters...> all(good...);
    const auto expect = [&](const std::tuple<Parameters...> &bad) {
        EXPECT_EQ(static_cast<int>(std::apply(function, bad)), how.code) << name;
        EXPECT_TRACE(begin(name), critical(name, how.message), end_if(how.with_end, name));
    };
    const auto spoil = [&]<size_t I>() {
        std::tuple<Parameters...> bad = all;
        auto &argument = std::get<I>(bad);
        using type = std::remove_reference_t<decltype(argument)>;
        if (argument == type())
            return;
        argument = type();
        expect(bad);
        if constexpr (std::is_same_v<type, int>) {
            argument = -1;
            if (how.negative_too)
                expect(bad);
        }
    };
    [&]<size_t... I>(std::index_sequence<I...>)
    {
        (spoil.template operator()<I>(), ...);
    }
    (std::index_sequence_for<Parameters...>());
}

/// _common_storage_<name> needs each argument that is given here and is neither NULL nor zero: without any of them it
/// says so and does nothing else.
#define EXPECT_NEEDED(how, name, ...)                                                                                  \
    do {                                                                                                               \
        answers out;                                                                                                   \
        expect_refusals("_common_storage_" #name, _common_storage_##name, how, __VA_ARGS__);                           \
        EXPECT_EQ(out.take(), "") << #name;                                                                            \
        take_trace();                                                                                                  \
    } while (false)

} // namespace zel_test

#endif
