/*
 * The library's own trace: one macro for each kind of line, each exactly one platform call with a literal format.
 *
 *     ZEL_BEGIN();  ZEL_END();
 *     ZEL_CRITICAL("open failed - %d", code);  ZEL_WARNING, ZEL_INFO, ZEL_PLAIN (raw content), ZEL_DEBUG
 *
 * A line names the function that writes it and its source line. Code that logs for an operation takes a log_site as its
 * last parameter, with the default log_here(). It uses the _AT form, so that the line names the operation.
 */
#ifndef ZEL_COMMON_LOG_TRACE_H
#define ZEL_COMMON_LOG_TRACE_H

#include "zel_common.h"
#include "zel_platform.h"

/** The function and source line in a log line. */
struct log_site {
    const char *function;
    int line;
};

/** Returns the site of the call; as a default argument, the site of the call of the function with that argument. */
constexpr log_site log_here(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    return {function, line};
}

/** Returns a text for %s, for which NULL is undefined. */
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

/* A namespace, since only operations may be global symbols of the static library; inline, for short calls. */
inline namespace zel_log
{

/** Logs a rejected argument as a Critical line and returns the operation's `result`. */
template <typename Result = zel_err_e>
Result reject(const char *message, Result result = ZEL_ERR_INVALID_ARG, log_site site = log_here())
{
    ZEL_CRITICAL_AT(site, "%s", message);
    return result;
}

} // namespace zel_log

#endif
