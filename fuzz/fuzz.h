// What the fuzz targets share: a quiet trace, a requirement, and bytes taken apart.
#ifndef ZEL_FUZZ_FUZZ_H
#define ZEL_FUZZ_FUZZ_H

#include "zel_platform.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>

// Formats every line, so that each of its arguments is looked at.
int dlog_print(log_priority, const char *, const char *fmt, ...)
{
    char line[256];
    va_list arguments;
    va_start(arguments, fmt);
    vsnprintf(line, sizeof line, fmt, arguments);
    va_end(arguments);
    return 0;
}

#define REQUIRE(condition)                                                                                             \
    ((condition) ? void() : (fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition), abort()))

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#endif
