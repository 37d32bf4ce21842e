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
#include <utility>
#include <vector>

namespace bench
{

/** The log lines that the calling thread has written to the silent platform. */
inline constinit thread_local size_t lines_written = 0;

/** One side of a measure. The only counter is that of the log lines of a run, which are the same on both sides. */
struct side {
    std::function<void(benchmark::State &)> run;
    double items = 1; /**< the number of things that one run handles */
};

struct measure {
    std::string name;
    double bound; /**< highest ratio that passes */
    std::function<std::pair<side, side>()> make;
    int repetitions = 41;
    int threads = 1;
    bool sets_time = false; /**< the sides measure their time; otherwise it is the CPU time of all threads */
};

/** Adds measures when the program has started. */
inline std::vector<void (*)()> groups;
struct group {
    explicit group(void (*add_all)())
    {
        groups.push_back(add_all);
    }
};

void add(measure added);

/** A side that repeats the result of setup(), which is not timed. */
template <typename Setup> side repeat(Setup setup)
{
    return {[setup](benchmark::State &state) {
        auto operation = setup();
        const size_t before = lines_written;
        for (auto _ : state)
            operation();
        const auto lines = static_cast<double>(lines_written - before);
        state.counters["lines"] = benchmark::Counter(lines, benchmark::Counter::kAvgIterations);
    }};
}

/**
 * What one thing costs among 100 n things, beside what it costs among n. make gives an operation that handles a number
 * of things; with `flat` the operation handles one, among that number of others.
 */
void add_growth(const std::string &name, size_t n, std::function<side(size_t n)> make, bool flat = false);

/** A measure that is not a time, of the library and of the peer. A smoke run judges it too. */
void add_value(const std::string &name, double bound, const char *unit,
               std::function<std::pair<double, double>()> find);

/** Ends the program if a precondition of a measure does not hold. */
void require(bool condition, const char *what);

} // namespace bench

#endif
