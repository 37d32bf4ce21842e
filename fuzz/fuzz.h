// What the fuzz targets share: the input taken apart, and a log without output. They check with g_assert_true, which
// prints the place of a failure and aborts.
#ifndef ZEL_FUZZ_FUZZ_H
#define ZEL_FUZZ_FUZZ_H

#include "zel_platform.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <fuzzer/FuzzedDataProvider.h>

// Formats every line, so that each of its arguments is read.
int dlog_print(log_priority, const char *, const char *fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const int length = vsnprintf(nullptr, 0, fmt, arguments);
    va_end(arguments);
    return length;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#endif
