#include "harness.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <vector>

namespace bench
{

namespace
{

struct options {
    bool smoke = false;
    std::string rows = "/dev/null"; /**< file that a JSON object a measure is appended to */
};
options chosen;

/** Two for the step from one cache to the next: what grows faster than its work shows ten at least. */
constexpr double GROWTH_BOUND = 2.0;
constexpr double FLAT_BOUND = 1.5;

constexpr int REPETITIONS = 41;
/** A ratio that is over its bound is measured once more, for longer; that figure counts. */
constexpr int REPETITIONS_IN_DOUBT = 161;
constexpr double SECONDS_A_REPETITION = 0.002;

/** What a row of the table comes from: judges, and prints it. */
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

/** The medians of the sides, by name. */
class medians : public benchmark::BenchmarkReporter
{
  public:
    struct figures {
        double time; /**< in nanoseconds */
        double lines;
    };

    explicit medians(time_source source) : source_(source) {}
    bool ReportContext(const Context &) override
    {
        return true;
    }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            if (run.aggregate_name == "median") {
                const auto lines = run.counters.find("lines");
                of[run.run_name.function_name] = {source_ == time_source::manual ? run.GetAdjustedRealTime()
                                                                                 : run.GetAdjustedCPUTime(),
                                                  lines == run.counters.end() ? 0 : lines->second.value};
            }
    }
    std::map<std::string, figures> of;

  private:
    time_source source_;
};

medians medians_of(const measure &measured, const sides &made, int repetitions)
{
    for (const auto &[name, timed] : {std::pair("own", &made.own), std::pair("peer", &made.peer)}) {
        auto *added = benchmark::RegisterBenchmark(name, timed->run);
        added->Repetitions(repetitions)->MinTime(chosen.smoke ? 1e-9 : SECONDS_A_REPETITION);
        if (measured.source == time_source::manual)
            added->UseManualTime();
        else if (measured.source == time_source::process)
            added->MeasureProcessCPUTime();
    }
    medians reporter(measured.source);
    benchmark::RunSpecifiedBenchmarks(&reporter, ".");
    benchmark::ClearRegisteredBenchmarks();
    return reporter;
}

/** Prints a row of the table and writes it once more as JSON; whether the ratio, as printed, keeps to the bound. */
bool report(const std::string &name, double bound, double own, double peer, const char *unit)
{
    const double ratio = own / peer;
    const bool judged = bound > NOT_JUDGED && !chosen.smoke;
    const bool passed = !judged || std::round(ratio * 100) <= std::round(bound * 100);
    std::printf("%-100s %6.2f %6.2f  %-4s %10.4g %s\n", name.c_str(), ratio, bound,
                !judged  ? "-"
                : passed ? "ok"
                         : "OVER",
                own, unit);
    std::fflush(stdout);
    std::FILE *file = std::fopen(chosen.rows.c_str(), "a");
    require(file, "the file for the rows cannot be opened");
    std::fprintf(file,
                 R"({"name": "%s", "ratio": %.4f, "bound": %.2f, "own": %.6g, "peer": %.6g, "unit": "%s"})"
                 "\n",
                 name.c_str(), ratio, judged ? bound : 0, own, peer, unit);
    std::fclose(file);
    return passed;
}

bool run_measure(const measure &measured)
{
    const sides made = measured.make();
    medians found = medians_of(measured, made, chosen.smoke ? 2 : REPETITIONS);
    const auto ratio = [&] { return found.of["own"].time / made.own.items / found.of["peer"].time * made.peer.items; };
    if (measured.bound > NOT_JUDGED && !chosen.smoke && ratio() > measured.bound)
        found = medians_of(measured, made, REPETITIONS_IN_DOUBT);
    bool passed = report(measured.name, measured.bound, found.of["own"].time / made.own.items / 1e3,
                         found.of["peer"].time / made.peer.items / 1e3, "us");
    if (measured.same_lines && found.of["own"].lines != found.of["peer"].lines) {
        std::printf("  %g log lines beside %g\n", found.of["own"].lines, found.of["peer"].lines);
        passed = false;
    }
    return passed;
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
        else
            return false;
    }
    return true;
}

} // namespace

group::group(void (*add_all)())
{
    groups().push_back(add_all);
}

void add(measure added)
{
    rows().push_back({added.name, [added] { return run_measure(added); }});
}

void add_check(const std::string &name, std::function<bool()> holds)
{
    rows().push_back({name, [=] {
                          const bool held = holds();
                          std::printf("%-100s %20s\n", name.c_str(), held ? "ok" : "NOT SO");
                          return held;
                      }});
}

void add_growth(const std::string &name, size_t n, std::function<side(size_t n)> make, bool flat)
{
    const size_t many = 100 * n;
    add({
        .name =
            "growth: " + name + (flat ? ", among " : ", each of ") + std::to_string(many) + " / " + std::to_string(n),
        .bound = flat ? FLAT_BOUND : GROWTH_BOUND,
        .make =
            [=] {
                sides made = {make(many), make(n)};
                made.own.items = flat ? 1 : static_cast<double>(many);
                made.peer.items = flat ? 1 : static_cast<double>(n);
                return made;
            },
        .same_lines = false,
    });
}

void add_memory(const std::string &name, double bound, std::function<weights()> weigh)
{
    const std::string full = "memory: " + name;
    rows().push_back({full, [=] {
                          const weights weighed = weigh();
                          return report(full, bound, weighed.own, weighed.peer, "bytes");
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
    if (!read_options(count, arguments.data())) {
        std::fprintf(stderr, "usage: %s [--smoke] [--rows=FILE] [--benchmark_filter=REGEX]\n", argv[0]);
        return 2;
    }
    for (const auto add_all : groups())
        add_all();
    const std::regex wanted(benchmark::GetBenchmarkFilter());
    bool passed = true;
    for (const row &each : rows())
        if (std::regex_search(each.name, wanted))
            passed &= each.make();
    return !passed;
}
