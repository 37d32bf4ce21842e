/*
 * A trace, added up line by line. The open calls, the latest statement of each thread and the findings are kept. Each
 * of them is bounded, since a trace can hold anything.
 */
#ifndef ZEL_STORE_TRACE_SUMS_H
#define ZEL_STORE_TRACE_SUMS_H

#include "trace_line.h"

#include <functional>
#include <list>
#include <map>

struct operation {
    std::string name;
    long long calls = 0, failures = 0, statements = 0, total_us = 0, longest_us = 0;
};

/** A kind of failure: an operation's complaint, with SQLite's reason if it has one. */
struct failure {
    std::string operation, text;
    int code = 0;
    size_t count = 0, first_line = 0; /**< the rest is of that one */
    std::string statement;
    long long attempts = 0;
};

/** A call of an operation; its lines count those of the operation itself. */
struct call {
    std::optional<unsigned long long> thread;
    size_t operation;
    size_t first, last; /**< line, counting the library's only */
    std::optional<long long> begin, end;
    long long statements =
        0; /**< since its last line: its own if it writes one more, else those of the call around it */

    long long us() const; /**< 0 when it is not known */
};

class trace_sums
{
  public:
    std::function<void(const trace_line &line)> on_line; /**< if set, called for every line */
    std::function<void(const call &)> on_call;           /**< if set, called when a call has ended */

    void add(const trace_line &line);
    /** Ends what is still open. */
    void finish();

    size_t lines = 0;
    size_t threads = 0;
    bool has_threads() const;
    bool has_times() const;
    long long duration() const;
    const std::string &name_of(const call &one) const;
    std::vector<operation> operations_by_time() const;
    std::vector<failure> failures_by_line() const;

  private:
    using calls = std::list<call>;
    struct complaint {
        size_t count = 0, first_line = 0;
    };
    /** A statement and its results, up to the next one, an End line, or an operation's begin. */
    struct outcome_of_statement {
        std::string statement;
        bool is_escaped = false;
        int refused = 0;
        long long attempts = 0;
        std::map<size_t, int> broken;                                   /**< by operation: SQLite's code */
        std::map<size_t, complaint> broken_reads;                       /**< by operation */
        std::map<std::pair<size_t, std::string>, complaint> complaints; /**< by operation and text */
    };
    struct thread {
        calls operations, executors; /**< that are open, the innermost last */
        std::map<size_t, calls::iterator> open;
        outcome_of_statement latest;
        size_t last = 0;
        std::optional<long long> end;
    };

    size_t operation_of(std::string_view name);
    void extend(call &one, size_t last, std::optional<long long> end);
    void end_call(thread &of, calls &among, calls::iterator ended);
    void end_statement(thread &of);
    void end_thread(thread &of);
    void add_failure(size_t operation, const std::string &text, const complaint &found, int code,
                     const outcome_of_statement &of);

    std::map<std::string, size_t, std::less<>> names;
    std::vector<operation> operations;
    std::vector<bool> is_executor;
    std::map<std::tuple<size_t, std::string, int>, failure> failures;
    std::map<std::optional<unsigned long long>, thread> running;
    size_t kept = 0; /**< of open calls and of complaints whose reason may still come */
    size_t lines_with_thread = 0, lines_with_time = 0;
    long long earliest = 0, latest = 0;
};

#endif
