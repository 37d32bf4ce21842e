/*
 * The seam to the device platform: all functions that the library expects of it.
 *
 * A program that loads the library supplies these functions. On an ordinary Linux it links zel_platform (the
 * implementation in platform/host), on a device the device's own services.
 *
 * All functions have C linkage and must be visible to the dynamic linker. Any thread calls them, several at a time. The
 * library is built without exceptions: they must not throw.
 */
#ifndef ZEL_PLATFORM_H
#define ZEL_PLATFORM_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Logging service -------------------------------------------------------------------------------------------- */

/** Priority of a log line. The library uses DLOG_DEBUG to DLOG_ERROR. */
typedef enum {
    DLOG_UNKNOWN = 0, /**< no priority; never used by the library */
    DLOG_DEFAULT = 1, /**< the service's own default; never used by the library */
    DLOG_VERBOSE = 2, /**< more detail than debugging needs; never used by the library */
    DLOG_DEBUG = 3,   /**< step-by-step detail */
    DLOG_INFO = 4,    /**< start and end of operations, notable values */
    DLOG_WARN = 5,    /**< a fault that does not fail the operation */
    DLOG_ERROR = 6,   /**< a failure */
    DLOG_FATAL = 7,   /**< the process cannot continue; never used by the library */
    DLOG_SILENT = 8,  /**< not written; never used by the library */
    DLOG_PRIO_MAX = 9 /**< number of priorities */
} log_priority;

/**
 * Writes one line to the platform's log, in one piece. Statement texts make lines of 10,000 bytes and more; their end
 * must not be lost.
 *
 * It must not call the library and must not block for long. Operations write many of their lines while they hold a lock
 * (six of ten in _common_queue_push), so a slow line blocks other threads.
 *
 * @param prio priority of the line; the platform filters, the library writes every line
 * @param tag  "QUILLO_COMMON" in every line of the library
 * @param fmt  printf-style format, ending in a newline, followed by its arguments
 * @return any value; the library ignores it
 */
int dlog_print(log_priority prio, const char *tag, const char *fmt, ...) __attribute__((format(printf, 3, 4)));

/* Feature registry ------------------------------------------------------------------------------------------- */

/** Success of a feature query. */
#define SYSTEM_INFO_ERROR_NONE 0
/** The registry does not know the key. */
#define SYSTEM_INFO_ERROR_INVALID_PARAMETER (-22)

/**
 * Reads a yes-or-no feature from the platform's feature registry. The library asks for "quillo.feature.enhanced". It
 * keeps the answer, or that the key is unknown, for the life of the process; after a failure it asks again.
 *
 * @param key   name of the feature
 * @param value receives the answer on success
 * @return SYSTEM_INFO_ERROR_NONE; SYSTEM_INFO_ERROR_INVALID_PARAMETER when the key is unknown on this device; any
 *         other negative value when the registry could not be asked
 */
int system_info_get_custom_bool(const char *key, bool *value);

/* Launch-request handles ------------------------------------------------------------------------------------- */

/** Opaque handle of the application that makes a request. */
typedef struct app_control_s *app_control_h;

/**
 * Copies a handle. The copy stays valid after the release of the original.
 *
 * @param clone       receives the new handle, which the caller releases with app_control_destroy
 * @param app_control the handle to copy
 * @return 0 on success; any other value when no copy was made
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
