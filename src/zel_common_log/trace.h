/*
 * The library's own trace: one macro a kind of line, each exactly one platform call whose whole format is a literal.
 *
 *     ZEL_BEGIN();  ZEL_END();
 *     ZEL_CRITICAL("open failed - %d", code);  ZEL_WARNING, ZEL_INFO, ZEL_PLAIN (raw content), ZEL_DEBUG
 *
 * A line carries the name and the source line of the function that writes it. Code that writes a line on behalf of an
 * operation takes a log_site as its last parameter, defaulted to log_here(), and uses the _AT form, so that the trace
 * reads by operation.
 */
#ifndef ZEL_COMMON_LOG_TRACE_H
#define ZEL_COMMON_LOG_TRACE_H

#include "zel_common.h"
#include "zel_platform.h"

/** The function and source line that a line names. */
struct log_site {
    const char *function;
    int line;
};

/** The place it is called from; as a default argument, the place the function with that argument is called from. */
constexpr log_site log_here(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    return {function, line};
}

/** A text as a log line shows it: what %s would do with NULL is undefined. */
constexpr const char *log_text(const char *text)
{
    return text ? text : "(null)";
}

#define ZEL_LOG_RED "\033[0;31m"
#define ZEL_LOG_BLUE "\033[0;34m"
#define ZEL_LOG_CYAN "\033[0;36m"
#define ZEL_LOG_RESET "\033[0;m"

#define ZEL_LOG_LINE(priority, site, layout, ...)                                                                      \
    dlog_print((priority), "QUILLO_COMMON", "%s(%d): " layout "\n", (site).function,                                   \
               (site).line __VA_OPT__(, ) __VA_ARGS__)

#define ZEL_BEGIN_AT(site) ZEL_LOG_LINE(DLOG_INFO, site, " " ZEL_LOG_CYAN "BEGIN >>>>" ZEL_LOG_RESET)
#define ZEL_END_AT(site) ZEL_LOG_LINE(DLOG_INFO, site, " " ZEL_LOG_CYAN "END <<<<" ZEL_LOG_RESET)
#define ZEL_CRITICAL_AT(site, body, ...)                                                                               \
    ZEL_LOG_LINE(DLOG_ERROR, site, " " ZEL_LOG_RED "* Critical * " body ZEL_LOG_RESET __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_WARNING_AT(site, body, ...)                                                                                \
    ZEL_LOG_LINE(DLOG_WARN, site, " " ZEL_LOG_BLUE "* Warning * " body ZEL_LOG_RESET __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_INFO_AT(site, body, ...) ZEL_LOG_LINE(DLOG_INFO, site, " * Info * " body __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_PLAIN_AT(site, body, ...) ZEL_LOG_LINE(DLOG_INFO, site, " " body __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_DEBUG_AT(site, body, ...) ZEL_LOG_LINE(DLOG_DEBUG, site, body __VA_OPT__(, ) __VA_ARGS__)

#define ZEL_BEGIN() ZEL_BEGIN_AT(log_here())
#define ZEL_END() ZEL_END_AT(log_here())
#define ZEL_CRITICAL(body, ...) ZEL_CRITICAL_AT(log_here(), body __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_WARNING(body, ...) ZEL_WARNING_AT(log_here(), body __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_INFO(body, ...) ZEL_INFO_AT(log_here(), body __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_PLAIN(body, ...) ZEL_PLAIN_AT(log_here(), body __VA_OPT__(, ) __VA_ARGS__)
#define ZEL_DEBUG(body, ...) ZEL_DEBUG_AT(log_here(), body __VA_OPT__(, ) __VA_ARGS__)

/* Inline: no name of the library but its operations is global in a program that links it statically. */
inline namespace zel_log
{

/** Logs a rejected argument as a Critical line; returns `result`, what the operation returns then. */
template <typename Result = zel_err_e>
Result reject(const char *message, Result result = ZEL_ERR_INVALID_ARG, log_site site = log_here())
{
    ZEL_CRITICAL_AT(site, "%s", message);
    return result;
}

} // namespace zel_log

#endif
