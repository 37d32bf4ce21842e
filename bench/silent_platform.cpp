/* A device platform whose log call does nothing, so that a measure shows the library and not the platform. */

#include "measures.h"
#include "zel_platform.h"

int dlog_print(log_priority, const char *, const char *, ...)
{
    return 0;
}

std::vector<std::string> *bench::kept_lines()
{
    return nullptr;
}

int main(int argc, char **argv)
{
    return bench::run(argc, argv, bench::add_measures);
}
