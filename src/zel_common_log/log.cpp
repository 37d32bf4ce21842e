/* The logging entry point. */

#include "zel_common_log.h"

void zel_service_log(const char *, const char *, int, const char *, const char *, ...) {}
