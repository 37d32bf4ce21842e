#include "harness.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <regex>
#include <sched.h>
#include <vector>

namespace bench
{

namespace
{

/** Two for the step from one cache to the next: what grows faster than its work shows a hundred. */
constexpr double GROWTH_BOUND = 2.0;
constexpr double FLAT_BOUND = 1.5;

/** A ratio that is over its bound is measured once more, for so many times as long; that figure counts. */
constexpr int IN_DOUBT = 4;
constexpr double SECONDS_A_REPETITION = 0.002;

bool smoke;

/** What a row of the table comes from: prints it, and says whether all is well. */
struct row {
    std::string name;
    std::function<bool()> make;
};

std::vector<row> &rows()
{
    // Never destroyed: what the measures hold may log when it goes.
    static auto &all = *new std::vector<row>;
    return all;
}

std::vector<void (*)()> &groups()
{
    static std::vector<void (*)()> all;
    return all;
}

/** The median run of each side, by name. */
class medians : public benchmark::BenchmarkReporter
{
  public:
    medians(const measure &measured, const std::pair<side, side> &sides, int repetitions)
    {
        // What is held up while the number of runs is looked for can end up with too few of them.
        int attempts = 0;
        do {
            too_short_ = false;
            for (const auto &[name, timed] : {std::pair("own", &sides.first), std::pair("peer", &sides.second)}) {
                auto *added = benchmark::RegisterBenchmark(name, timed->run);
                added->Repetitions(repetitions)->MinTime(smoke ? 1e-9 : SECONDS_A_REPETITION)->MeasureProcessCPUTime();
                if (measured.sets_time)
                    added->UseManualTime();
                measured.configure(added);
            }
            benchmark::RunSpecifiedBenchmarks(this, ".");
            benchmark::ClearRegisteredBenchmarks();
        } while (too_short_ && !smoke && !measured.sets_time && ++attempts < 5);
        const auto microseconds = [&](const char *name, const side &timed) {
            const Run &median = of_.at(name);
            return (measured.sets_time ? median.GetAdjustedRealTime() : median.GetAdjustedCPUTime()) / 1e3 /
                   timed.items;
        };
        own = microseconds("own", sides.first);
        peer = microseconds("peer", sides.second);
        const auto lines = [&](const char *name) {
            const auto &counters = of_.at(name).counters;
            return counters.contains("lines") ? counters.at("lines").value : 0;
        };
        same_lines = sides.first.items != sides.second.items || lines("own") == lines("peer");
    }
    bool ReportContext(const Context &) override
    {
        return true;
    }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            const double time = run.GetAdjustedCPUTime() * static_cast<double>(run.iterations);
            if (run.aggregate_name == "median")
                of_[run.run_name.function_name] = run;
            else if (run.run_type == Run::RT_Iteration)
                too_short_ |= time < SECONDS_A_REPETITION * 1e9 / 4;
        }
    }
    double own, peer;
    bool same_lines;

  private:
    std::map<std::string, Run> of_;
    bool too_short_ = false;
};

/** As printed, to two places. */
bool keeps_to(double bound, double own, double peer)
{
    return smoke || std::round(own / peer * 100) <= std::round(bound * 100);
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
    medians found(measured, sides, smoke ? 2 : measured.repetitions);
    if (!keeps_to(measured.bound, found.own, found.peer))
        found = medians(measured, sides, IN_DOUBT * measured.repetitions);
    const bool kept = keeps_to(measured.bound, found.own, found.peer);
    report(measured.name, measured.bound, found.own, found.peer, "us",
           !found.same_lines ? "LINES"
           : !kept           ? "OVER"
           : smoke           ? "-"
                             : "ok");
    return kept && found.same_lines;
}

} // namespace

group::group(void (*add_all)())
{
    groups().push_back(add_all);
}

void add(measure added)
{
    rows().push_back({added.name, [added] { return run(added); }});
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

void add_memory(const std::string &name, double bound, std::function<std::pair<double, double>()> weigh)
{
    rows().push_back({"memory: " + name, [=] {
                          const auto [own, peer] = weigh();
                          const bool kept = keeps_to(bound, own, peer);
                          report("memory: " + name, bound, own, peer, "bytes", kept ? "ok" : "OVER");
                          return kept;
                      }});
}

void add_check(const std::string &name, std::function<bool()> holds)
{
    rows().push_back({name, [=] {
                          const bool held = holds();
                          report(name, 1, 1, 1, "", held ? "ok" : "NOT SO");
                          return held;
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
    std::string interleaved = "--benchmark_enable_random_interleaving";
    std::vector<char *> arguments(argv, argv + argc);
    arguments.push_back(interleaved.data());
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    smoke = count == 2 && arguments[1] == std::string("--smoke");
    if (count != 1 + smoke) {
        std::fprintf(stderr, "usage: %s [--smoke] [--benchmark_filter=REGEX]\n", argv[0]);
        return 2;
    }
    // On one processor a thread that hands over does not wait for another one to wake.
    cpu_set_t here;
    CPU_ZERO(&here);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &here);
    require(sched_setaffinity(0, sizeof here, &here) == 0, "no processor can be chosen");
    for (const auto add_all : groups())
        add_all();
    const std::regex wanted(benchmark::GetBenchmarkFilter());
    bool passed = true;
    for (const row &each : rows())
        if (std::regex_search(each.name, wanted))
            passed &= each.make();
    return !passed;
}
