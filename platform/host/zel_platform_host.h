/*
 * The platform of an ordinary Linux, and its additions to the seam (zel_platform.h).
 *
 * dlog_print writes one line to standard error, in one write, for instance
 *
 *     2026-11-25 06:34:30.123456 4711 I/QUILLO_COMMON: MESSAGE
 *
 * It has the time (UTC), the thread's id, the letter of the priority (V, D, I, W, E, F, or ? for any other), the tag
 * and the message. Lines are in the order of their times. They never mix with lines of other threads or with the
 * program's own output to stderr. errno does not change. dlog_print returns the number of bytes of the line, or a
 * negative errno value: that of a failed write, or -ENOMEM for a line that was cut. A line is cut when both memory and
 * file descriptors run out. When only memory runs out, it takes several writes.
 *
 * A message cannot start a second line or control a terminal. Line breaks, control characters, marks of the writing
 * direction, line separators and invalid UTF-8 are escaped. A backslash is doubled, tabs stay (docs/log.md has the
 * forms). Up to two newlines at the end are left out. Only the format may contain colours (ESC [ ... m, the first 16),
 * arguments may not. Only a terminal gets colours.
 *
 * systemd sets JOURNAL_STREAM to the device and inode of standard error. If they match, the line begins with the
 * journal's level (<3>) and has no time. A line that is too long for the journal is written in parts, each with the
 * prefix: an unfinished part ends with a single backslash, and the message of the next part begins with one.
 *
 * Each thread checks once a second where standard error leads. ZEL_HOST_LOG in the environment names the lowest
 * priority that is written: verbose (all lines, as without the variable), debug, info, warn, error, fatal or silent
 * (none). Any other value gives a warning and writes all lines. A line of priority DLOG_SILENT is never written; a line
 * whose priority has no letter is always written. The platform reads both variables when the program is loaded.
 *
 * The feature registry holds "quillo.feature.enhanced" (true) and no other key.
 *
 * A launch-request handle is a small object that carries the id of the application that made the request. The
 * operations on handles return 0, -EINVAL for a NULL argument, or -ENOMEM, with the outputs untouched on failure.
 * Threads may use different handles at the same time, and may read the same handle.
 */
#ifndef ZEL_PLATFORM_HOST_H
#define ZEL_PLATFORM_HOST_H

#include "zel_platform.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * Creates a handle.
 *
 * @param app_control receives the new handle; app_control_destroy releases it
 * @param app_id      id of the requesting application; copied
 * @return 0; -EINVAL when an argument is NULL; -ENOMEM when memory runs out
 */
int app_control_create(app_control_h *app_control, const char *app_id);

/**
 * Reads the application id of a handle.
 *
 * @param app_control the handle
 * @return the id, owned by the handle and valid as long as it; NULL for a NULL handle
 */
const char *app_control_get_app_id(app_control_h app_control);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
