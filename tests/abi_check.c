/* In C the values of an enumeration determine its type. abi/ holds the layout of the records. */
#include <assert.h>

#include "zel_common_request.h"
#include "zel_common_storage.h"

static_assert((zel_err_e)-1 < 0 && (quillo_error_e)-1 < 0, "a negative result compares below 0");
static_assert(sizeof(zel_err_e) == 4 && sizeof(zel_cmd) == 4 && sizeof(zel_file_sync_status) == 4, "32 bits");
