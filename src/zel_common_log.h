/*
 * The logging entry point.
 *
 * The library writes its own trace with the platform's log call (dlog_print in zel_platform.h). Each line is one call,
 * with the tag "QUILLO_COMMON". docs/log.md describes the lines.
 */
#ifndef ZEL_COMMON_LOG_H
#define ZEL_COMMON_LOG_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * Accepts a log call and writes nothing, so that programs keep their calls where no output exists.
 *
 * Changes no state; any thread may call it. Any argument may be NULL.
 *
 * @param file_name source file of the caller
 * @param func_name function of the caller
 * @param line      source line of the caller
 * @param tag       tag of the caller
 * @param fmt       printf-style format, followed by its arguments; all are ignored
 */
void zel_service_log(const char *file_name, const char *func_name, int line, const char *tag, const char *fmt, ...)
    __attribute__((format(printf, 5, 6)));

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
