/*
 * Measures, each beside its peer in the same run.
 *
 * A measure has two sides that do the same work: the library's and the peer's. They take turns, batch by batch, and
 * the figure is the ratio of the medians of their times, with the quartiles of the ratios of neighbouring batches as
 * its spread. Google Benchmark lists, filters and runs the measures.
 */
#ifndef ZEL_BENCH_HARNESS_H
#define ZEL_BENCH_HARNESS_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench
{

/** One side of a measure. */
struct side {
    std::function<void(size_t count)> run; /**< does the operation count times; timed */
    std::function<void(size_t count)> prepare =
        nullptr;      /**< called before each run with its count, if set; not timed */
    double items = 1; /**< the number of things that one operation handles */
};

struct sides {
    side own;
    side peer;
};

/** What is counted: the thread's CPU time; that of all threads; the time that passes, where the disk is waited for. */
enum class time_source { thread_cpu, process_cpu, clock };

constexpr double NOT_JUDGED = 0;

struct measure {
    std::string name;
    double bound; /**< highest ratio that passes; NOT_JUDGED: only shown */
    std::function<sides()> make;
    bool same_lines = true; /**< the peer writes the library's log lines, format for format */
    time_source source = time_source::thread_cpu;
    double seconds = 1.5; /**< how long the two sides take turns */
};

void add(measure added);

/**
 * What one thing costs among 10 n and 100 n things, beside what it costs among n. make gives an operation that handles
 * a number of things; with `flat` the operation handles one, among that number of others.
 */
void add_growth(const std::string &name, size_t n, std::function<side(size_t n)> make, bool flat = false);

/** Bytes held by the two sides, which `weigh` compares. */
struct weights {
    double own;
    double peer;
};
void add_memory(const std::string &name, double bound, std::function<weights()> weigh);

/** Ends the program when something that a measure rests on is not so. */
void require(bool condition, const char *what);

/** The formats of the lines written so far, in the order of the calls; null when the platform keeps none. */
std::vector<std::string> *kept_lines();

/** Whether there is time for a few batches only. */
bool smoke();

/** Folders for databases: in a memory file system, and on a disk. */
const std::string &memory_folder();
const std::string &disk_folder();

/** Reads the command line, lets add_all add the measures and runs those that are asked for; the program's result. */
int run(int argc, char **argv, void (*add_all)());

} // namespace bench

#endif
