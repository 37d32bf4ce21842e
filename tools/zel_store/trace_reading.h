/* What the lines of a trace add up to. docs/log.md describes the lines. */
#ifndef ZEL_STORE_TRACE_READING_H
#define ZEL_STORE_TRACE_READING_H

#include <istream>
#include <map>
#include <string>
#include <vector>

namespace zel_store
{

enum class kind { begin, end, critical, statement, refusal, broken_read, other };

struct line {
    size_t number = 0;
    kind what = kind::other;
    long long time = -1; /**< microseconds, or -1 */
    std::string thread;  /**< empty when the line does not tell */
    std::string function, body;
    int code = 0; /**< SQLite's, of a refusal or a broken read */
};

/** A call of an operation: from its Begin to its last line. */
struct call {
    size_t begin, end;
    int depth;
};

/** What failed, each time in the same way. */
struct failure {
    std::string operation, text, statement;
    int code = 0, attempts = 0;
    size_t count = 0, first_line = 0;
    bool is_quiet = false; /**< looks bad and is not */
};

struct operation {
    size_t calls = 0, failures = 0, statements = 0;
    long long total = 0, longest = 0;
};

/** What the lines add up to. */
struct trace_reading {
    std::vector<line> lines;
    std::vector<call> calls;                     /**< in the order of their beginnings */
    std::map<std::string, operation> operations; /**< by name */
    std::vector<failure> failures;
    std::vector<std::string> open_at_end; /**< for each thread that the trace leaves inside an operation */
    size_t recovered = 0;                 /**< statements that met a lock and went through */
    size_t not_found = 0;                 /**< reads that found nothing, and nothing else */
    size_t threads = 0;
    bool has_threads = true, has_times = true;
};

trace_reading read_trace(std::istream &in);

/** What a failure means, and what to do. */
struct advice {
    const char *text, *means, *action;
};
advice advice_for(const failure &one);

} // namespace zel_store

#endif
