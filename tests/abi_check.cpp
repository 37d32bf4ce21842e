// What users of the public headers compile in: the values of enumerators, and the order and width of fields.
#include "zel_common.h"
#include "zel_common_queue.h"
#include "zel_common_request.h"
#include "zel_common_storage.h"
#include "zel_common_thread.h"

#include <cstddef>
#include <iterator>

namespace
{

/// Whether enumerators count up (or down) from the first.
template <size_t count> constexpr bool run(int first, int step, const int (&values)[count])
{
    for (size_t i = 0; i < count; ++i)
        if (values[i] != first + static_cast<int>(i) * step)
            return false;
    return true;
}

struct field {
    size_t offset;
    size_t size;
    size_t width;
};

/// Whether fields stand in the order in which they are listed, each as wide as it should be.
template <size_t count> constexpr bool layout(const field (&fields)[count])
{
    for (size_t i = 0; i < count; ++i)
        if (fields[i].size != fields[i].width || (i > 0 && fields[i].offset <= fields[i - 1].offset))
            return false;
    return true;
}

} // namespace

// clang-format off
static_assert(run(0, 1, {ZEL_ERR_NONE, ZEL_ERR_INVALID_ARG, ZEL_ERR_MEMORY, ZEL_ERR_SOCKET_FAILURE,
    ZEL_ERR_SERVER_NOT_RUNNING, ZEL_ERR_THREAD, ZEL_ERR_REQUEST_FAILED, ZEL_ERR_CANCELLED, ZEL_ERR_NETWORK_FAILURE,
    ZEL_ERR_TIMEOUT_ERR, ZEL_ERR_RESOURCE_DOESNT_EXIST, ZEL_ERR_MAX_FILE_SIZE_EXCEEDED, ZEL_ERR_NOT_AUTHENTICATED,
    ZEL_ERR_BROKEN_PIPE, ZEL_ERR_TELEPHONY, ZEL_ERR_STORAGE_FAILURE, ZEL_ERR_INVALID_REQ_ID,
    ZEL_ERR_SHARE_FILE_DOESNT_EXITS, ZEL_ERR_AUTHENTICATION_FAILED, ZEL_ERR_BAD_JSON_FORMAT, ZEL_ERR_BAD_ACCESS_TOKEN,
    ZEL_ERR_BAD_DEVICE_ID, ZEL_ERR_BAD_CLIENT_ID, ZEL_ERR_INVALID_UID, ZEL_ERR_JSON_FAILURE, ZEL_ERR_LIMIT_EXCEED,
    ZEL_ERR_STORAGE_NO_RECORDS, ZEL_ERR_STORAGE_INIT_FAILURE, ZEL_ERR_INVALID_FILE, ZEL_ERR_FILE_DOESNT_EXIST,
    ZEL_ERR_NOT_A_FILE, ZEL_ERR_TRANSPORT_FAILURE, ZEL_ERR_SHARE_THUMBNAIL_ERR, ZEL_ERR_REQ_PAUSED, ZEL_ERR_UNKNOWN,
    ZEL_ERR_RESOURCE_ALREADY_EXIST, ZEL_ERR_MAX_REQ_REACHED, ZEL_ERR_SERVICE_ADAPTER_CONNECTION_FAILURE,
    ZEL_ERR_NO_PAUSABLE_REQ_ID, ZEL_ERR_NO_RESUMABLE_REQ_ID, ZEL_ERR_NO_CANCELLABLE_REQ_ID,
    ZEL_ERR_LAST_CHUNK_ALREADY_SENT, ZEL_ERR_INVALID_ACCESS_TOKEN, ZEL_ERR_ALREADY_COMPLETED_MULTI_CHANNEL,
    ZEL_ERR_SERVICE_INITIALIZING, ZEL_ERR_PERMISSION_DENIED, ZEL_ERR_NOT_SUPPORTED_CONTENT_TYPE, ZEL_ERR_PUSH,
    ZEL_ERR_INTERNAL_ERROR}));
static_assert(run(0, -1, {QUILLO_ERROR_NONE, QUILLO_ERROR_INVALID_PARAMETER, QUILLO_ERROR_OUT_OF_MEMORY,
    QUILLO_ERROR_SOCKET, QUILLO_ERROR_SERVICE_NOT_RUNNING, QUILLO_ERROR_THREAD, QUILLO_ERROR_REQUEST_FAILED,
    QUILLO_ERROR_NETWORK_FAILED, QUILLO_ERROR_TIMEOUT, QUILLO_ERROR_RESOURCE_DOESNT_EXIST,
    QUILLO_ERROR_MAX_FILE_SIZE_EXCEEDED, QUILLO_ERROR_NOT_AUTHENTICATED, QUILLO_ERROR_STORAGE_FAILURE,
    QUILLO_ERROR_INVALID_REQ_ID, QUILLO_ERROR_NO_CONTENT, QUILLO_ERROR_INVALID_INDEX, QUILLO_ERROR_TRANSPORT,
    QUILLO_ERROR_PERMISSION_DENIED_ERROR, QUILLO_ERROR_SERVICE_INITIALIZING, QUILLO_ERROR_FEATURE_NOT_SUPPORTED,
    QUILLO_ERROR_LUM_NOT_JOINED, QUILLO_ERROR_NOT_SUPPORTED_CONTENT_TYPE, QUILLO_ERROR_INVALID_ACCESS_TOKEN}));
static_assert(run(-100, 0, {QUILLO_ERROR_UNKNOWN}));
static_assert(run(0, 1, {ZEL_CMD_DOWNLOAD, ZEL_CMD_UPLOAD, ZEL_CMD_GET_SHARE_CONTENT_LIST,
    ZEL_CMD_GET_SHARE_CONTENT_INFO_FOR_APP, ZEL_CMD_DELETE_SHARE_CONTENTS_INFO, ZEL_CMD_DEACTIVATE,
    ZEL_CMD_UPLOAD_CANCEL, ZEL_CMD_UPLOAD_PAUSE, ZEL_CMD_UPLOAD_RESUME, ZEL_CMD_DOWNLOAD_CANCEL,
    ZEL_CMD_DOWNLOAD_PAUSE, ZEL_CMD_DOWNLOAD_RESUME, ZEL_CMD_GET_UPLOAD_LIST, ZEL_CMD_GET_LOGIN_STATUS}));
static_assert(run(15, 1, {ZEL_CMD_UPLOAD_RESUME_BY_SYSTEM_RESTART, ZEL_CMD_DOWNLOAD_RESUME_BY_SYSTEM_RESTART,
    ZEL_CMD_SET_WIFI_ONLY_SETTING, ZEL_CMD_DOWNLOAD_THUMBNAIL, ZEL_CMD_GET_RECEIVED_TIME,
    ZEL_CMD_GET_CONTENT_TOKEN_LIST_BY_APP_TYPE, ZEL_CMD_DELTE_PUSH_INFO}));
static_assert(run(23, 1, {ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST, ZEL_CMD_GET_UPLOADED_FILE_INFO,
    ZEL_CMD_RESHARE_UPLOAD, ZEL_CMD_RECALL_UPLOAD, ZEL_CMD_GET_REQUEST_IDS_BY_APP_TYPE, ZEL_CMD_DELETE_UPLOAD_INFO,
    ZEL_CMD_GET_UPLOAD_INFO, ZEL_EVT_CMD_IS_JOINED, ZEL_EVT_CMD_START, ZEL_EVT_CMD_UPLOAD, ZEL_EVT_CMD_SYNC,
    ZEL_EVT_CMD_DOWNLOAD, ZEL_EVT_CMD_DELETE, ZEL_EVT_CMD_MEMBER_URL, ZEL_CMD_UNKNOWN}));
static_assert(run(0, 1, {APP_TYPE_NONE, QUILLO_APP_TYPE, PIKO_APP_TYPE, MOSAIC_EVENT_APP_TYPE}));
static_assert(run(0, 1, {QUILLO_EVENT_THUMBNAIL_NONE, QUILLO_EVENT_THUMBNAIL_200, QUILLO_EVENT_THUMBNAIL_480,
    QUILLO_EVENT_THUMBNAIL_1280}));
static_assert(run(0, 1, {QUILLO_UPLOAD_STATUS_NONE, QUILLO_UPLOAD_STATUS_STARTED, QUILLO_UPLOAD_STATUS_PROGRESSING,
    QUILLO_UPLOAD_STATUS_FINISHED, QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED,
    QUILLO_UPLOAD_STATUS_PAUSED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED, QUILLO_UPLOAD_STATUS_SHARE_RECALLED}));
static_assert(run(0, 1, {QUILLO_PUSH_STATUS_NONE, QUILLO_PUSH_STATUS_SHARE_FINISHED,
    QUILLO_PUSH_STATUS_SHARE_RECALLED}));
static_assert(run(0, 1, {ZEL_UNKNOWN, ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE}));
static_assert(run(0, 1, {ZEL_SYNC_TODO, ZEL_SYNC_ONGOING, ZEL_SYNC_FAILED, ZEL_SYNC_PAUSED, ZEL_SYNC_PAUSED_TODO,
    ZEL_SYNC_COMPLETE}));
static_assert(run(0, 1, {DLOG_UNKNOWN, DLOG_DEFAULT, DLOG_VERBOSE, DLOG_DEBUG, DLOG_INFO, DLOG_WARN, DLOG_ERROR,
    DLOG_FATAL, DLOG_SILENT, DLOG_PRIO_MAX}));

#define FIELD(member, width) {offsetof(RECORD, member), sizeof(RECORD::member), width}
#define F1(member) FIELD(member, 1)
#define F4(member) FIELD(member, 4)
#define F8(member) FIELD(member, 8)
#define FP(member) FIELD(member, sizeof(void *))
#define FS(member, type) FIELD(member, sizeof(type))
#define RECORD zel_request
static_assert(layout({F4(cmd), F4(req_id), F4(receiver_count), F4(url_count), F4(file_count), F4(cancel_id),
    F4(setting_status), F4(reconnecting_to_server), F4(type), F4(thumbnail_type), FP(description), FP(local_path),
    FP(url), FP(contents_token), F8(content_token_expired_time), FP(folder_token), F8(folder_token_expired_time),
    FP(group_id), FP(receiver_list), FP(url_list), FP(file_list), FP(server_file_list), F8(server_timestamp),
    F4(list_count), FP(list_next), FP(list_more), FS(response_mutex, GMutex), F4(send_push), FP(caller)}));
#undef RECORD
#define RECORD comm_param_s
static_assert(layout({FS(request, zel_request), F1(ongoing), F1(reconnecting), F1(pending_destroy), F1(is_pause),
    F1(is_started), FP(handle)}));
#undef RECORD
#define RECORD zel_trans_url_info
static_assert(layout({FP(url), FP(content_type)}));
#undef RECORD
#define RECORD zel_trans_url_ids_info
static_assert(layout({FP(id), FP(url), F8(expired_time)}));
#undef RECORD
#define RECORD zel_trans_content_info
static_assert(layout({FP(original), FP(thumbnail), FP(mid_thumbnail), FP(big_thumbnail), FP(name), FP(content_type),
    FP(contents_token), F4(download_count), F4(max_download_count), F4(size), F4(content_id)}));
#undef RECORD
#define RECORD zel_trans_share_content_info
static_assert(layout({FP(contents_token), FP(description), FP(type), FP(from_msisdn), FP(to_list), F8(expired_time),
    F4(content_info_list_length), FP(content_info_list), F4(push_status)}));
#undef RECORD
#define RECORD zel_trans_upload_info
static_assert(layout({F4(request_id), F8(total_size), F4(file_count), FP(file_path_list), F8(expired_time),
    F8(sent_time), FP(contents_token), FP(msisdn_count), FP(msisdn_list), F4(status)}));
#undef RECORD
#define RECORD quillo_msisdn_s
static_assert(layout({FP(ccc), FP(phone_number), F4(number_id), F4(group_id)}));
#undef RECORD
#define RECORD zel_content_sync_info
static_assert(layout({F4(sync_id), F4(type), F4(status), F4(content_id), F4(req_id), F4(wifi_only),
    F4(fail_retry_count), F4(percentage), F4(offset), F4(chunk_no), F8(sent_time), FP(contents_token), FP(original),
    FP(thumbnail), FP(name), FP(local_path), FP(mupload_key)}));
#undef RECORD
#define RECORD zel_upload_request_info
static_assert(layout({F4(unique_id), F4(req_id), F4(file_count), F4(status), F4(receiver_count), F8(expired_time),
    F8(total_size), FP(contents_token), F4(app_type), FP(from_ccc), FP(from_number), FP(description),
    F8(sent_time)}));
#undef RECORD
#define RECORD zel_hash_table
static_assert(layout({FS(mutex, pthread_mutex_t), FP(table)}));
#undef RECORD
#define RECORD zel_queue_s
static_assert(layout({FS(available_lock, pthread_mutex_t), FS(available_signal, pthread_cond_t),
    F1(queue_wait_status), FP(item_list)}));
#undef RECORD
#define RECORD zel_thread_s
static_assert(layout({FS(thread_id, pthread_t), F1(is_running), FS(available_lock, pthread_mutex_t),
    FS(available_signal, pthread_cond_t), F1(thread_wait_status), FP(data)}));
#undef RECORD
// clang-format on
