/* In C an enumeration takes the type that its values ask for. */
#include "zel_common_request.h"
#include "zel_common_storage.h"

_Static_assert((zel_err_e)-1 < 0 && (quillo_error_e)-1 < 0, "a negative result compares below 0");
_Static_assert(sizeof(zel_err_e) == 4 && sizeof(zel_cmd) == 4 && sizeof(zel_file_sync_status) == 4, "32 bits");
