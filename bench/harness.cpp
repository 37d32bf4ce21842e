#include "harness.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <regex>
#include <sched.h>

namespace bench
{

namespace
{

/** Two for the step from one cache to the next; work that grows faster shows a hundred. */
constexpr double GROWTH_BOUND = 2.0;
constexpr double FLAT_BOUND = 1.5;

/** A ratio over its bound is measured once more, this many times as long; the second figure counts. */
constexpr int IN_DOUBT = 4;
constexpr double SECONDS_A_REPETITION = 0.002;

bool smoke;

/** The source of a row of the table: prints the row and returns whether it passes. */
struct row {
    std::string name;
    std::function<bool()> make;
};

std::vector<row> rows;

/** The median of each side's repetitions. */
class medians : public benchmark::BenchmarkReporter
{
  public:
    medians(const measure &measured, const std::pair<side, side> &sides, int repetitions) : from(measured)
    {
        // A side that is delayed while the number of runs is chosen can get too few of them.
        for (int attempt = 0; attempt < 5 && too_short; ++attempt) {
            too_short = false;
            for (const auto &[name, timed] : {std::pair("own", &sides.first), std::pair("peer", &sides.second)}) {
                auto *added = benchmark::RegisterBenchmark(name, timed->run);
                added->Repetitions(repetitions)->MinTime(smoke ? 1e-9 : SECONDS_A_REPETITION)->MeasureProcessCPUTime();
                added->Threads(measured.threads);
                if (measured.sets_time)
                    added->UseManualTime();
            }
            benchmark::RunSpecifiedBenchmarks(this, ".");
            benchmark::ClearRegisteredBenchmarks();
        }
        own = times["own"] / sides.first.items;
        peer = times["peer"] / sides.second.items;
        same_lines = sides.first.items != sides.second.items || lines["own"] == lines["peer"];
    }
    bool ReportContext(const Context &) override
    {
        return true;
    }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const double time = (from.sets_time ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) / 1e3;
            if (run.aggregate_name == "median") {
                times[run.run_name.function_name] = time;
                for (const auto &[name, counter] : run.counters)
                    lines[run.run_name.function_name] = counter;
            } else if (run.run_type == Run::RT_Iteration && !smoke) {
                too_short |= time * static_cast<double>(run.iterations) < SECONDS_A_REPETITION * 1e6 / 4;
            }
        }
    }

    const measure &from;
    std::map<std::string, double> times, lines; /**< of a run: microseconds, log lines */
    bool too_short = true;
    double own, peer; /**< of a thing */
    bool same_lines;
};

/** As printed, to two places. */
bool keeps_to(double bound, double own, double peer)
{
    return std::round(own / peer * 100) <= std::round(bound * 100);
}

/** Prints a row of the table. */
void report(const std::string &name, double bound, double own, double peer, const char *unit, const char *verdict)
{
    std::printf("%-84s %6.2f %6.2f  %-8s %10.4g %s\n", name.c_str(), own / peer, bound, verdict, own, unit);
    std::fflush(stdout);
}

bool run(const measure &measured)
{
    const auto sides = measured.make();
    auto found = std::make_unique<medians>(measured, sides, smoke ? 2 : measured.repetitions);
    if (!smoke && !keeps_to(measured.bound, found->own, found->peer))
        found = std::make_unique<medians>(measured, sides, IN_DOUBT * measured.repetitions);
    const bool kept = smoke || keeps_to(measured.bound, found->own, found->peer);
    report(measured.name, measured.bound, found->own, found->peer, "us",
           !found->same_lines ? "LINES"
           : !kept            ? "OVER"
           : smoke            ? "-"
                              : "ok");
    return kept && found->same_lines;
}

} // namespace

void add(measure added)
{
    rows.push_back({added.name, [added] { return run(added); }});
}

void add_growth(const std::string &name, size_t n, std::function<side(size_t n)> make, bool flat)
{
    const size_t many = 100 * n;
    add({"growth: " + name + (flat ? ", among " : ", each of ") + std::to_string(many) + " / " + std::to_string(n),
         flat ? FLAT_BOUND : GROWTH_BOUND, [=] {
             std::pair sides(make(many), make(n));
             if (!flat) {
                 sides.first.items = static_cast<double>(many);
                 sides.second.items = static_cast<double>(n);
             }
             return sides;
         }});
}

void add_value(const std::string &name, double bound, const char *unit, std::function<std::pair<double, double>()> find)
{
    rows.push_back({name, [=] {
                        const auto [own, peer] = find();
                        const bool kept = keeps_to(bound, own, peer);
                        report(name, bound, own, peer, unit, kept ? "ok" : "OVER");
                        return kept;
                    }});
}

void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "bench: %s\n", what);
    std::exit(2);
}

} // namespace bench

int main(int argc, char **argv)
{
    using namespace bench;
    std::vector<char *> arguments(argv, argv + argc);
    std::string interleaved = "--benchmark_enable_random_interleaving";
    arguments.push_back(interleaved.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    smoke = count == 2 && arguments[1] == std::string("--smoke");
    require(count == 1 + smoke, "takes --smoke and --benchmark_filter=REGEX");
    // On one processor a thread that hands over does not wait for another one to wake.
    cpu_set_t here;
    CPU_ZERO(&here);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
    require(sched_setaffinity(0, sizeof here, &here) == 0, "no processor can be chosen");
    for (const auto add_all : groups)
        add_all();
    const std::regex wanted(benchmark::GetBenchmarkFilter());
    bool passed = true;
    for (const row &each : rows)
        if (std::regex_search(each.name, wanted))
            passed &= each.make();
    return !passed;
}
