#include "harness.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <ostream>

namespace bench
{

namespace
{

struct options {
    bool smoke = false;
    std::string rows;
    std::string memory = ".";
    std::string disk = ".";
};
options chosen;

/** Two for the step from one cache to the next: what grows faster than its work shows ten at least. */
constexpr double GROWTH_BOUND = 2.0;
constexpr double FLAT_BOUND = 1.5;

/** Seconds that a batch takes at least. */
double batch_time()
{
    return chosen.smoke ? 20e-6 : 1e-3;
}

size_t fewest_batches(time_source source)
{
    return chosen.smoke || source == time_source::clock ? 3 : 21;
}

std::vector<measure> &measures()
{
    // Never destroyed: what the measures hold may log when it goes, and the platform would be gone by then.
    static auto &all = *new std::vector<measure>;
    return all;
}

double now(time_source source)
{
    timespec time = {};
    clock_gettime(source == time_source::thread_cpu    ? CLOCK_THREAD_CPUTIME_ID
                  : source == time_source::process_cpu ? CLOCK_PROCESS_CPUTIME_ID
                                                       : CLOCK_MONOTONIC,
                  &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double time_of_batch(const side &timed, size_t count, time_source source)
{
    if (timed.prepare)
        timed.prepare(count);
    const double start = now(source);
    timed.run(count);
    return now(source) - start;
}

/** The value that a share of the values lies below. */
double quantile(std::vector<double> values, double share)
{
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

/** How many operations, from `count` on, make a batch that takes some time. */
size_t batch_size(const side &timed, const measure &measured, size_t count, double time)
{
    while (time_of_batch(timed, count, measured.source) < time)
        count *= 2;
    return count;
}

void set_figures(benchmark::State &state, double own, double peer, double low, double high, double bound)
{
    state.counters["own"] = own;
    state.counters["peer"] = peer;
    state.counters["ratio"] = own / peer;
    state.counters["low"] = low;
    state.counters["high"] = high;
    state.counters["bound"] = bound;
}

void run_measure(benchmark::State &state, const measure &measured)
{
    for (auto _ : state) {
        const sides made = measured.make();
        const size_t own_count = batch_size(made.own, measured, 1, batch_time());
        // As many for the peer, if that is not too short to be timed.
        const auto as_many = static_cast<size_t>(static_cast<double>(own_count) * made.own.items / made.peer.items);
        const size_t peer_count = batch_size(made.peer, measured, as_many, batch_time() / 4);
        const double own_work = static_cast<double>(own_count) * made.own.items;
        const double peer_work = static_cast<double>(peer_count) * made.peer.items;

        std::vector<double> own;
        std::vector<double> peer;
        std::vector<double> ratios;
        const size_t fewest = fewest_batches(measured.source);
        const double start = now(time_source::clock);
        while (own.size() < fewest || (!chosen.smoke && now(time_source::clock) - start < measured.seconds)) {
            double own_time;
            double peer_time;
            if (own.size() % 2 == 0) {
                own_time = time_of_batch(made.own, own_count, measured.source);
                peer_time = time_of_batch(made.peer, peer_count, measured.source);
            } else {
                peer_time = time_of_batch(made.peer, peer_count, measured.source);
                own_time = time_of_batch(made.own, own_count, measured.source);
            }
            own.push_back(own_time / own_work);
            peer.push_back(peer_time / peer_work);
            ratios.push_back(own.back() / peer.back());
        }
        const double own_median = quantile(own, 0.5);
        set_figures(state, own_median, quantile(peer, 0.5), quantile(ratios, 0.25), quantile(ratios, 0.75),
                    measured.bound);
        state.SetIterationTime(own_median);
    }
}

/** Prints the table, and each row once more as JSON. */
class table : public benchmark::BenchmarkReporter
{
  public:
    explicit table(std::FILE *rows) : rows_file(rows) {}

    bool ReportContext(const Context &) override
    {
        if (!rows_file || std::ftell(rows_file) == 0) // else another program has begun the table
            std::printf("%-84s %7s  %-13s %6s  %-8s %12s\n", "measure", "ratio", "quartiles", "bound", "verdict",
                        "(of own)");
        return true;
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            report(run.run_name.function_name, run.counters);
        std::fflush(stdout);
    }

    int over = 0;
    int reported = 0;

  private:
    void report(const std::string &name, const benchmark::UserCounters &counters)
    {
        const double ratio = counters.at("ratio");
        const double bound = counters.at("bound");
        const bool weight = name.starts_with("memory");
        const bool judged = bound > NOT_JUDGED && !chosen.smoke;
        // As printed, to two places.
        const bool passed = std::round(ratio * 100) <= std::round(bound * 100);
        const char *verdict = !judged ? "-" : passed ? "ok" : "OVER";
        over += judged && !passed;
        ++reported;

        char own[32];
        if (weight)
            std::snprintf(own, sizeof own, "%.0f B", static_cast<double>(counters.at("own")));
        else
            std::snprintf(own, sizeof own, "%.4g us", counters.at("own") * 1e6);
        char limit[16] = "-";
        if (judged)
            std::snprintf(limit, sizeof limit, "%.2f", bound);
        std::printf("%-84s %7.2f  %5.2f - %-5.2f %6s  %-8s %12s\n", name.c_str(), ratio,
                    static_cast<double>(counters.at("low")), static_cast<double>(counters.at("high")), limit, verdict,
                    own);
        if (rows_file)
            std::fprintf(rows_file,
                         "{\"name\": \"%s\", \"ratio\": %.4f, \"low\": %.4f, \"high\": %.4f, \"bound\": %s, "
                         "\"verdict\": \"%s\", \"unit\": \"%s\", \"own\": %.6g, \"peer\": %.6g}\n",
                         name.c_str(), ratio, static_cast<double>(counters.at("low")),
                         static_cast<double>(counters.at("high")), judged ? limit : "null", judged ? verdict : "",
                         weight ? "bytes" : "seconds", static_cast<double>(counters.at("own")),
                         static_cast<double>(counters.at("peer")));
    }

    std::FILE *rows_file;
};

/** Runs both sides of each measure once and compares their lines. */
int compare_lines()
{
    int differing = 0;
    int compared = 0;
    for (const measure &each : measures()) {
        if (!each.same_lines)
            continue;
        const sides made = each.make();
        const auto lines_of = [](const side &written) {
            if (written.prepare)
                written.prepare(1);
            kept_lines()->clear();
            written.run(1);
            return *kept_lines();
        };
        const std::vector<std::string> own = lines_of(made.own);
        const std::vector<std::string> peer = lines_of(made.peer);
        ++compared;
        if (own == peer)
            continue;
        ++differing;
        const size_t length = std::min(own.size(), peer.size());
        const auto place = static_cast<size_t>(
            std::mismatch(own.begin(), own.begin() + static_cast<std::ptrdiff_t>(length), peer.begin()).first -
            own.begin());
        std::printf("%s: %zu lines beside %zu; at line %zu: \"%s\" beside \"%s\"\n", each.name.c_str(), own.size(),
                    peer.size(), place, place < own.size() ? own[place].c_str() : "",
                    place < peer.size() ? peer[place].c_str() : "");
    }
    std::printf("%d measures whose peer writes the same log lines; %d differ\n", compared, differing);
    return differing > 0;
}

const char *value_of(const char *argument, const char *option)
{
    const size_t length = strlen(option);
    return strncmp(argument, option, length) == 0 ? argument + length : nullptr;
}

bool read_options(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--smoke") == 0)
            chosen.smoke = true;
        else if (const char *rows = value_of(argv[i], "--rows="))
            chosen.rows = rows;
        else if (const char *memory = value_of(argv[i], "--memory="))
            chosen.memory = memory;
        else if (const char *disk = value_of(argv[i], "--disk="))
            chosen.disk = disk;
        else
            return false;
    }
    return true;
}

} // namespace

void add(measure added)
{
    measures().push_back(std::move(added));
}

void add_growth(const std::string &name, size_t n, std::function<side(size_t n)> make, bool flat)
{
    for (const size_t factor : {10, 100}) {
        add({
            .name = "growth: " + name + (flat ? ", among " : ", each of ") + std::to_string(n * factor) + " beside " +
                    std::to_string(n),
            .bound = flat ? FLAT_BOUND : GROWTH_BOUND,
            .make =
                [=] {
                    sides made = {make(n * factor), make(n)};
                    made.own.items = flat ? 1 : static_cast<double>(n * factor);
                    made.peer.items = flat ? 1 : static_cast<double>(n);
                    return made;
                },
            .same_lines = false,
            .seconds = 1.0,
        });
    }
}

void add_memory(const std::string &name, double bound, std::function<weights()> weigh)
{
    benchmark::RegisterBenchmark(("memory: " + name).c_str(),
                                 [=](benchmark::State &state) {
                                     for (auto _ : state) {
                                         const weights weighed = weigh();
                                         const double ratio = weighed.own / weighed.peer;
                                         set_figures(state, weighed.own, weighed.peer, ratio, ratio, bound);
                                         state.SetIterationTime(1);
                                     }
                                 })
        ->Iterations(1)
        ->UseManualTime();
}

void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "bench: %s\n", what);
    std::exit(2);
}

bool smoke()
{
    return chosen.smoke;
}

const std::string &memory_folder()
{
    return chosen.memory;
}

const std::string &disk_folder()
{
    return chosen.disk;
}

int run(int argc, char **argv, void (*add_all)())
{
    benchmark::Initialize(&argc, argv);
    if (!read_options(argc, argv)) {
        std::fprintf(stderr,
                     "usage: %s [--smoke] [--rows=FILE] [--memory=FOLDER] [--disk=FOLDER] "
                     "[--benchmark_filter=REGEX]\n",
                     argv[0]);
        return 2;
    }
    add_all();
    if (kept_lines())
        return compare_lines();

    for (const measure &each : measures())
        benchmark::RegisterBenchmark(each.name.c_str(), [&each](benchmark::State &state) { run_measure(state, each); })
            ->Iterations(1)
            ->UseManualTime();
    std::FILE *rows = chosen.rows.empty() ? nullptr : std::fopen(chosen.rows.c_str(), "a");
    require(chosen.rows.empty() || rows, "the file for the rows cannot be opened");
    table printed(rows);
    std::ostream nowhere(nullptr); // where a filter that matches nothing in this program is complained of
    printed.SetErrorStream(&nowhere);
    benchmark::RunSpecifiedBenchmarks(&printed);
    if (rows)
        std::fclose(rows);
    return printed.over > 0;
}

} // namespace bench
