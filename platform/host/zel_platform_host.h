/*
 * The platform of an ordinary Linux: what a program on it can do beyond the seam itself (zel_platform.h).
 *
 * The log goes to standard error: each dlog_print is one line, "LETTER/TAG: MESSAGE", in one write. The letter is that
 * of the priority (V, D, I, W, E, F; ? for one that is none of these), the message is ended with a newline if it has
 * none, and a line of priority DLOG_SILENT is not written. Lines of different threads never mix, nor do they with what
 * the program itself writes through stderr; errno stays as it was. The result is the number of bytes of the line, or
 * the negative errno value of a write that failed.
 *
 * The feature registry holds "quillo.feature.enhanced" (true) and no other key.
 *
 * A launch-request handle is a small object that carries the id of the application that made the request. The
 * operations on handles return 0, -EINVAL for a NULL argument, or -ENOMEM, with the outputs untouched on failure.
 * Different handles may be used by different threads at once; one handle may be read by several.
 */
#ifndef ZEL_PLATFORM_HOST_H
#define ZEL_PLATFORM_HOST_H

#include "zel_platform.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * Makes a handle.
 *
 * @param app_control receives the new handle, which its holder releases with app_control_destroy
 * @param app_id      id of the requesting application; copied
 * @return 0; -EINVAL when an argument is NULL; -ENOMEM when memory runs out
 */
int app_control_create(app_control_h *app_control, const char *app_id);

/**
 * Reads the application id of a handle.
 *
 * @param app_control the handle
 * @return the id, which belongs to the handle and lives as long; NULL for a NULL handle
 */
const char *app_control_get_app_id(app_control_h app_control);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
