/* Result codes: their conversion for clients, and their names. */

#include "zel_common.h"
#include "zel_common_log/trace.h"

#include <iterator>

namespace
{

/** Names of the result codes that _common_print_error_info prints, by code. */
constexpr char err_tbl[][100] = {
    "ZEL_ERR_NONE",
    "ZEL_ERR_INVALID_ARG",
    "ZEL_ERR_MEMORY",
    "ZEL_ERR_SOCKET_FAILURE",
    "ZEL_ERR_SERVER_NOT_RUNNING",
    "ZEL_ERR_THREAD",
    "ZEL_ERR_REQUEST_FAILED",
    "ZEL_ERR_CANCELLED",
    "ZEL_ERR_NETWORK_FAILURE",
    "ZEL_ERR_TIMEOUT_ERR",
    "ZEL_ERR_RESOURCE_DOESNT_EXIST",
    "ZEL_ERR_MAX_FILE_SIZE_EXCEEDED",
    "ZEL_ERR_NOT_AUTHENTICATED",
    "ZEL_ERR_BROKEN_PIPE",
    "ZEL_ERR_TELEPHONY",
    "ZEL_ERR_STORAGE_FAILURE",
    "ZEL_ERR_INVALID_REQ_ID",
    "ZEL_ERR_SHARE_FILE_DOESNT_EXITS",
    "ZEL_ERR_AUTHENTICATION_FAILED",
    "ZEL_ERR_BAD_JSON_FORMAT",
    "ZEL_ERR_BAD_ACCESS_TOKEN",
    "ZEL_ERR_BAD_DEVICE_ID",
    "ZEL_ERR_BAD_CLIENT_ID",
    "ZEL_ERR_INVALID_UID",
    "ZEL_ERR_JSON_FAILURE",
    "ZEL_ERR_LIMIT_EXCEED",
    "ZEL_ERR_STORAGE_NO_RECORDS",
    "ZEL_ERR_STORAGE_INIT_FAILURE",
    "ZEL_ERR_INVALID_FILE",
    "ZEL_ERR_FILE_DOESNT_EXIST",
    "ZEL_ERR_NOT_A_FILE",
    "ZEL_ERR_TRANSPORT_FAILURE",
    "ZEL_ERR_SHARE_THUMBNAIL_ERR",
    "ZEL_ERR_REQ_PAUSED",
    "ZEL_ERR_UNKNOWN",
    "ZEL_ERR_RESOURCE_ALREADY_EXIST",
    "ZEL_ERR_MAX_REQ_REACHED",
};
static_assert(std::size(err_tbl) == ZEL_ERR_MAX_REQ_REACHED + 1);

} // namespace

quillo_error_e _common_util_convert_service_error_to_client_error(zel_err_e err)
{
    ZEL_DEBUG("err [%d]", err);

    switch (err) {
    case ZEL_ERR_NONE:
    case ZEL_ERR_CANCELLED:
    case ZEL_ERR_REQ_PAUSED:
        return QUILLO_ERROR_NONE;
    case ZEL_ERR_INVALID_ARG:
        return QUILLO_ERROR_INVALID_PARAMETER;
    case ZEL_ERR_MEMORY:
        return QUILLO_ERROR_OUT_OF_MEMORY;
    case ZEL_ERR_SOCKET_FAILURE:
    case ZEL_ERR_BROKEN_PIPE:
        return QUILLO_ERROR_SOCKET;
    case ZEL_ERR_SERVER_NOT_RUNNING:
        return QUILLO_ERROR_SERVICE_NOT_RUNNING;
    case ZEL_ERR_THREAD:
        return QUILLO_ERROR_THREAD;
    case ZEL_ERR_REQUEST_FAILED:
        return QUILLO_ERROR_REQUEST_FAILED;
    case ZEL_ERR_NETWORK_FAILURE:
        return QUILLO_ERROR_NETWORK_FAILED;
    case ZEL_ERR_TIMEOUT_ERR:
        return QUILLO_ERROR_TIMEOUT;
    case ZEL_ERR_RESOURCE_DOESNT_EXIST:
    case ZEL_ERR_INVALID_FILE:
    case ZEL_ERR_FILE_DOESNT_EXIST:
    case ZEL_ERR_NOT_A_FILE:
        return QUILLO_ERROR_RESOURCE_DOESNT_EXIST;
    case ZEL_ERR_MAX_FILE_SIZE_EXCEEDED:
        return QUILLO_ERROR_MAX_FILE_SIZE_EXCEEDED;
    case ZEL_ERR_NOT_AUTHENTICATED:
        return QUILLO_ERROR_NOT_AUTHENTICATED;
    case ZEL_ERR_INVALID_REQ_ID:
        return QUILLO_ERROR_INVALID_REQ_ID;
    case ZEL_ERR_BAD_ACCESS_TOKEN:
    case ZEL_ERR_INVALID_ACCESS_TOKEN:
        return QUILLO_ERROR_INVALID_ACCESS_TOKEN;
    case ZEL_ERR_STORAGE_NO_RECORDS:
        return QUILLO_ERROR_NO_CONTENT;
    case ZEL_ERR_TRANSPORT_FAILURE:
        return QUILLO_ERROR_TRANSPORT;
    case ZEL_ERR_SERVICE_INITIALIZING:
        return QUILLO_ERROR_SERVICE_INITIALIZING;
    case ZEL_ERR_PERMISSION_DENIED:
        return QUILLO_ERROR_PERMISSION_DENIED_ERROR;
    case ZEL_ERR_NOT_SUPPORTED_CONTENT_TYPE:
        return QUILLO_ERROR_NOT_SUPPORTED_CONTENT_TYPE;
    default:
        return QUILLO_ERROR_UNKNOWN;
    }
}

void _common_print_error_info(int err_code)
{
    if (err_code < ZEL_ERR_NONE || err_code > ZEL_ERR_MAX_REQ_REACHED)
        return;

    ZEL_CRITICAL("Error code [%d]: Error Msg[%s]", err_code, err_tbl[err_code]);
}
