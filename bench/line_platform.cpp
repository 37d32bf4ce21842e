/* A device platform that keeps what is logged, for the comparison of a measure's lines with its peer's. */

#include "measures.h"
#include "zel_platform.h"

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    bench::kept_lines()->push_back(std::to_string(prio) + " " + tag + " " + fmt);
    return 0;
}

std::vector<std::string> *bench::kept_lines()
{
    static std::vector<std::string> lines;
    return &lines;
}

int main(int argc, char **argv)
{
    return bench::run(argc, argv, bench::add_measures);
}
