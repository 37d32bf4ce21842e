/*
 * Measures, each beside its peer in the same run.
 *
 * A measure has two sides that do the same work: the library's and the peer's. Google Benchmark repeats both in random
 * order; the figure is the ratio of their medians.
 */
#ifndef ZEL_BENCH_HARNESS_H
#define ZEL_BENCH_HARNESS_H

#include <benchmark/benchmark.h>
#include <functional>
#include <string>

namespace bench
{

/** The log lines that the calling thread has written to the silent platform. */
inline constinit thread_local size_t lines_written = 0;

/** One side of a measure. */
struct side {
    std::function<void(benchmark::State &)> run;
    double items = 1; /**< the number of things that one operation handles */
};

struct sides {
    side own;
    side peer;
};

constexpr double NOT_JUDGED = 0;

/** What is counted: the thread's CPU time; that of all threads; what the sides set themselves. */
enum class time_source { thread, process, manual };

struct measure {
    std::string name;
    double bound; /**< highest ratio that passes; NOT_JUDGED: only shown */
    std::function<sides()> make;
    bool same_lines = true; /**< the peer writes as many log lines as the library */
    time_source source = time_source::thread;
};

/** Adds measures when the program has started. */
struct group {
    explicit group(void (*add_all)());
};

void add(measure added);

/** A side that repeats what setup() gives; the setting up is not timed. */
template <typename Setup> side repeat(Setup setup)
{
    return {[setup](benchmark::State &state) {
        auto operation = setup();
        const size_t before = lines_written;
        for (auto _ : state)
            operation();
        state.counters["lines"] =
            benchmark::Counter(static_cast<double>(lines_written - before), benchmark::Counter::kAvgIterations);
    }};
}

/**
 * What one thing costs among 100 n things, beside what it costs among n. make gives an operation that handles a number
 * of things; with `flat` the operation handles one, among that number of others.
 */
void add_growth(const std::string &name, size_t n, std::function<side(size_t n)> make, bool flat = false);

/** Something that is so or is not, whatever the time it takes. */
void add_check(const std::string &name, std::function<bool()> holds);

/** Bytes held by the two sides, which `weigh` compares. */
struct weights {
    double own;
    double peer;
};
void add_memory(const std::string &name, double bound, std::function<weights()> weigh);

/** Ends the program when something that a measure rests on is not so. */
void require(bool condition, const char *what);

} // namespace bench

#endif
