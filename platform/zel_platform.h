/*
 * The seam to the device platform: everything that the library expects of it, and nothing else.
 *
 * A program that loads the library supplies these functions: on a plain Linux by linking zel_platform (the
 * implementation in platform/host), on a device by linking the device's own services.
 *
 * All of them have C linkage, must be visible to the dynamic linker, and are called from any thread, several at a time,
 * by code that is built without exceptions: they must not throw.
 */
#ifndef ZEL_PLATFORM_H
#define ZEL_PLATFORM_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Logging service -------------------------------------------------------------------------------------------- */

/** Priority of a log line. The library writes lines of the four priorities DLOG_DEBUG to DLOG_ERROR. */
typedef enum {
    DLOG_UNKNOWN = 0, /**< no priority; never used by the library */
    DLOG_DEFAULT = 1, /**< the service's own default; never used by the library */
    DLOG_VERBOSE = 2, /**< more than debugging needs; never used by the library */
    DLOG_DEBUG = 3,   /**< step-by-step detail */
    DLOG_INFO = 4,    /**< begin and end of operations, notable values */
    DLOG_WARN = 5,    /**< something odd that the operation survived */
    DLOG_ERROR = 6,   /**< a failure */
    DLOG_FATAL = 7,   /**< the process cannot go on; never used by the library */
    DLOG_SILENT = 8,  /**< not written; never used by the library */
    DLOG_PRIO_MAX = 9 /**< number of priorities */
} log_priority;

/**
 * Writes one line to the platform's log, in one piece. Lines of 10,000 bytes and more occur (statement texts) and must
 * keep their tail.
 *
 * It must not call the library and must not block for long. Every operation writes a few lines, many of them while it
 * holds a lock (six of the ten of _common_queue_push), so that a slow line holds up other threads.
 *
 * @param prio how important the line is; filtering is the platform's business, the library always calls
 * @param tag  who writes; every line of the library carries "QUILLO_COMMON"
 * @param fmt  printf-style format, ending in a newline, followed by its arguments
 * @return anything; the library ignores it
 */
int dlog_print(log_priority prio, const char *tag, const char *fmt, ...) __attribute__((format(printf, 3, 4)));

/* Feature registry ------------------------------------------------------------------------------------------- */

/** Success of a feature query. */
#define SYSTEM_INFO_ERROR_NONE 0
/** The registry does not know the key. */
#define SYSTEM_INFO_ERROR_INVALID_PARAMETER (-22)

/**
 * Asks the platform's feature registry for a yes or no. The library asks for "quillo.feature.enhanced" and keeps the
 * answer, or that the key is unknown, for the life of the process; after a failure it asks again.
 *
 * @param key   name of the feature
 * @param value receives the answer on success
 * @return SYSTEM_INFO_ERROR_NONE; SYSTEM_INFO_ERROR_INVALID_PARAMETER when the key is unknown on this device; any
 *         other negative value when the registry could not be asked
 */
int system_info_get_custom_bool(const char *key, bool *value);

/* Launch-request handles ------------------------------------------------------------------------------------- */

/** An opaque handle of the application that made a request. */
typedef struct app_control_s *app_control_h;

/**
 * Makes a copy of a handle that lives on when the original is released.
 *
 * @param clone       receives the new handle, which its holder releases with app_control_destroy
 * @param app_control the handle to copy
 * @return 0 on success, another value when no copy was made
 */
int app_control_clone(app_control_h *clone, app_control_h app_control);

/**
 * Releases a handle.
 *
 * @param app_control the handle; not to be used afterwards
 * @return 0 on success; the library only logs it
 */
int app_control_destroy(app_control_h app_control);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
