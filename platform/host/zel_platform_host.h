/*
 * The platform of an ordinary Linux: what a program on it can do beyond the seam itself (zel_platform.h).
 *
 * The log goes to standard error: each dlog_print is one line, in one write, for instance
 *
 *     2026-11-25 06:34:30.123456 4711 I/QUILLO_COMMON: MESSAGE
 *
 * That is: the time (UTC), the thread's id, the letter of the priority (V, D, I, W, E, F; ? for one that is none of
 * these), the tag, and the message. Lines stand in the order of their times. Lines of different threads never mix, nor
 * do they with what the program itself writes through stderr; errno stays as it was. The result is the number of bytes
 * of the line, or a negative errno value: of a write that failed, or -ENOMEM when the line was cut for want of memory
 * and of file descriptors. For want of memory alone a line is written in several writes.
 *
 * A message cannot make a second line or reach a terminal's controls: line breaks, control characters, marks that turn
 * the direction of writing, line separators and invalid UTF-8 are escaped, a backslash is doubled, tabs stay
 * (docs/log.md has the forms). A newline at the end is left out, and one in front of it. The format is trusted with
 * colours (ESC [ ... m, the first 16 of it), arguments are not. Colours are left out unless standard error is a
 * terminal.
 *
 * systemd sets JOURNAL_STREAM to the device and inode of standard error. If they match, the line begins with the
 * journal's level (<3>) and has no time. A line that is too long for the journal is written in parts, each with the
 * prefix: an unfinished part ends with a single backslash, and the message of the next part begins with one.
 *
 * Each thread looks once a second where standard error leads. ZEL_HOST_LOG in the environment names the lowest priority
 * that is written: verbose (all lines, as without the variable), debug, info, warn, error, fatal or silent (none). For
 * any other value a warning is written, and all lines are. A line of priority DLOG_SILENT is never written, one of a
 * priority without a letter always. Both variables are read when the program is loaded.
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
