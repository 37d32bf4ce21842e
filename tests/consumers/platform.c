/* The least that a device supplies, for a library built without a platform. */
#include <zel_platform.h>

#include <stddef.h>

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    (void)prio, (void)tag, (void)fmt;
    return 0;
}

int system_info_get_custom_bool(const char *key, bool *value)
{
    (void)key;
    *value = true;
    return SYSTEM_INFO_ERROR_NONE;
}

int app_control_clone(app_control_h *clone, app_control_h app_control)
{
    *clone = app_control;
    return 0;
}

int app_control_destroy(app_control_h app_control)
{
    (void)app_control;
    return 0;
}
