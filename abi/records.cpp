/*
 * The parts of the public headers that programs have compiled in: the size of every record and the types and offsets of
 * its fields, on 32 and on 64 bits, the value of every enumerator, and the callbacks. A change that breaks an old
 * program does not compile here. Additions enter with the release that promises them.
 */
#include "zel_common.h"
#include "zel_common_queue.h"
#include "zel_common_request.h"
#include "zel_common_storage.h"
#include "zel_common_thread.h"
#include "zel_platform.h"

#include <cstddef>
#include <initializer_list>
#include <type_traits>

namespace
{

/** The number for this target. */
constexpr size_t on(size_t bits_32, size_t bits_64)
{
    return sizeof(void *) == 4 ? bits_32 : bits_64;
}

constexpr bool all(std::initializer_list<bool> fields)
{
    for (const bool field : fields)
        if (!field)
            return false;
    return true;
}

/** Whether the values are `first` and those that follow it, up or down. */
template <typename... Values> constexpr bool count_up(int first, Values... values)
{
    return ((values == first++) && ...);
}
template <typename... Values> constexpr bool count_down(int first, Values... values)
{
    return ((values == first--) && ...);
}

#define RECORD(name, size_32, size_64, ...)                                                                            \
    static_assert([] {                                                                                                 \
        using record = name;                                                                                           \
        return sizeof(record) == on(size_32, size_64) && all({__VA_ARGS__});                                           \
    }())
#define FIELD(type, name, offset_32, offset_64)                                                                        \
    (std::is_same_v<decltype(record::name), type> && offsetof(record, name) == on(offset_32, offset_64))
#define ENUMERATION(name, ...) static_assert(sizeof(name) == sizeof(int) && all({__VA_ARGS__}))

RECORD(quillo_msisdn_s, 16, 24, FIELD(char *, ccc, 0, 0), FIELD(char *, phone_number, 4, 8),
       FIELD(int, number_id, 8, 16), FIELD(int, group_id, 12, 20));
RECORD(zel_trans_url_info, 8, 16, FIELD(char *, url, 0, 0), FIELD(char *, content_type, 4, 8));
RECORD(zel_trans_url_ids_info, 16, 24, FIELD(char *, id, 0, 0), FIELD(char *, url, 4, 8),
       FIELD(unsigned long long, expired_time, 8, 16));
RECORD(zel_trans_content_info, 44, 72, FIELD(char *, original, 0, 0), FIELD(char *, thumbnail, 4, 8),
       FIELD(char *, mid_thumbnail, 8, 16), FIELD(char *, big_thumbnail, 12, 24), FIELD(char *, name, 16, 32),
       FIELD(char *, content_type, 20, 40), FIELD(char *, contents_token, 24, 48),
       FIELD(unsigned int, download_count, 28, 56), FIELD(unsigned int, max_download_count, 32, 60),
       FIELD(unsigned int, size, 36, 64), FIELD(unsigned int, content_id, 40, 68));
RECORD(zel_trans_share_content_info, 48, 72, FIELD(char *, contents_token, 0, 0), FIELD(char *, description, 4, 8),
       FIELD(char *, type, 8, 16), FIELD(char *, from_msisdn, 12, 24), FIELD(char *, to_list, 16, 32),
       FIELD(unsigned long long, expired_time, 24, 40), FIELD(unsigned int, content_info_list_length, 32, 48),
       FIELD(GList *, content_info_list, 36, 56), FIELD(unsigned int, push_status, 40, 64));
RECORD(zel_trans_upload_info, 56, 80, FIELD(unsigned int, request_id, 0, 0),
       FIELD(unsigned long long, total_size, 8, 8), FIELD(unsigned int, file_count, 16, 16),
       FIELD(GList *, file_path_list, 20, 24), FIELD(unsigned long long, expired_time, 24, 32),
       FIELD(unsigned long long, sent_time, 32, 40), FIELD(const char *, contents_token, 40, 48),
       FIELD(size_t, msisdn_count, 44, 56), FIELD(quillo_msisdn_s **, msisdn_list, 48, 64),
       FIELD(quillo_upload_status_e, status, 52, 72));
RECORD(zel_hash_table, 28, 48, FIELD(pthread_mutex_t, mutex, 0, 0), FIELD(GHashTable *, table, 24, 40));
RECORD(zel_queue_s, 80, 104, FIELD(pthread_mutex_t, available_lock, 0, 0),
       FIELD(pthread_cond_t, available_signal, 24, 40), FIELD(bool, queue_wait_status, 72, 88),
       FIELD(GList *, item_list, 76, 96));
RECORD(zel_request, 144, 192, FIELD(zel_cmd, cmd, 0, 0), FIELD(unsigned int, req_id, 4, 4),
       FIELD(unsigned int, receiver_count, 8, 8), FIELD(unsigned int, url_count, 12, 12),
       FIELD(unsigned int, file_count, 16, 16), FIELD(unsigned int, cancel_id, 20, 20),
       FIELD(unsigned int, setting_status, 24, 24), FIELD(unsigned int, reconnecting_to_server, 28, 28),
       FIELD(quillo_app_type_e, type, 32, 32), FIELD(quillo_event_thumbnail_type_e, thumbnail_type, 36, 36),
       FIELD(char *, description, 40, 40), FIELD(char *, local_path, 44, 48), FIELD(char *, url, 48, 56),
       FIELD(char *, contents_token, 52, 64), FIELD(unsigned long long, content_token_expired_time, 56, 72),
       FIELD(char *, folder_token, 64, 80), FIELD(unsigned long long, folder_token_expired_time, 72, 88),
       FIELD(char *, group_id, 80, 96), FIELD(GList *, receiver_list, 84, 104), FIELD(GList *, url_list, 88, 112),
       FIELD(GList *, file_list, 92, 120), FIELD(GList *, server_file_list, 96, 128),
       FIELD(unsigned long long, server_timestamp, 104, 136), FIELD(int, list_count, 112, 144),
       FIELD(char *, list_next, 116, 152), FIELD(char *, list_more, 120, 160), FIELD(GMutex, response_mutex, 124, 168),
       FIELD(unsigned int, send_push, 132, 176), FIELD(app_control_h, caller, 136, 184));
RECORD(comm_param_s, 160, 208, FIELD(zel_request, request, 0, 0), FIELD(bool, ongoing, 144, 192),
       FIELD(bool, reconnecting, 145, 193), FIELD(bool, pending_destroy, 146, 194), FIELD(bool, is_pause, 147, 195),
       FIELD(bool, is_started, 148, 196), FIELD(void *, handle, 152, 200));
RECORD(zel_content_sync_info, 72, 96, FIELD(unsigned int, sync_id, 0, 0), FIELD(zel_file_sync_type, type, 4, 4),
       FIELD(zel_file_sync_status, status, 8, 8), FIELD(unsigned int, content_id, 12, 12),
       FIELD(unsigned int, req_id, 16, 16), FIELD(unsigned int, wifi_only, 20, 20),
       FIELD(unsigned int, fail_retry_count, 24, 24), FIELD(unsigned int, percentage, 28, 28),
       FIELD(unsigned int, offset, 32, 32), FIELD(int, chunk_no, 36, 36), FIELD(unsigned long long, sent_time, 40, 40),
       FIELD(char *, contents_token, 48, 48), FIELD(char *, original, 52, 56), FIELD(char *, thumbnail, 56, 64),
       FIELD(char *, name, 60, 72), FIELD(char *, local_path, 64, 80), FIELD(char *, mupload_key, 68, 88));
RECORD(zel_upload_request_info, 72, 88, FIELD(unsigned int, unique_id, 0, 0), FIELD(unsigned int, req_id, 4, 4),
       FIELD(unsigned int, file_count, 8, 8), FIELD(quillo_upload_status_e, status, 12, 12),
       FIELD(unsigned int, receiver_count, 16, 16), FIELD(unsigned long long, expired_time, 24, 24),
       FIELD(unsigned long long, total_size, 32, 32), FIELD(char *, contents_token, 40, 40),
       FIELD(quillo_app_type_e, app_type, 44, 48), FIELD(char *, from_ccc, 48, 56), FIELD(char *, from_number, 52, 64),
       FIELD(char *, description, 56, 72), FIELD(unsigned long long, sent_time, 64, 80));
RECORD(zel_thread_s, 88, 120, FIELD(pthread_t, thread_id, 0, 0), FIELD(bool, is_running, 4, 8),
       FIELD(pthread_mutex_t, available_lock, 8, 16), FIELD(pthread_cond_t, available_signal, 32, 56),
       FIELD(bool, thread_wait_status, 80, 104), FIELD(void *, data, 84, 112));

ENUMERATION(zel_err_e,
            count_up(0, ZEL_ERR_NONE, ZEL_ERR_INVALID_ARG, ZEL_ERR_MEMORY, ZEL_ERR_SOCKET_FAILURE,
                     ZEL_ERR_SERVER_NOT_RUNNING, ZEL_ERR_THREAD, ZEL_ERR_REQUEST_FAILED, ZEL_ERR_CANCELLED,
                     ZEL_ERR_NETWORK_FAILURE, ZEL_ERR_TIMEOUT_ERR, ZEL_ERR_RESOURCE_DOESNT_EXIST,
                     ZEL_ERR_MAX_FILE_SIZE_EXCEEDED, ZEL_ERR_NOT_AUTHENTICATED, ZEL_ERR_BROKEN_PIPE, ZEL_ERR_TELEPHONY,
                     ZEL_ERR_STORAGE_FAILURE, ZEL_ERR_INVALID_REQ_ID, ZEL_ERR_SHARE_FILE_DOESNT_EXITS,
                     ZEL_ERR_AUTHENTICATION_FAILED, ZEL_ERR_BAD_JSON_FORMAT, ZEL_ERR_BAD_ACCESS_TOKEN,
                     ZEL_ERR_BAD_DEVICE_ID, ZEL_ERR_BAD_CLIENT_ID, ZEL_ERR_INVALID_UID, ZEL_ERR_JSON_FAILURE,
                     ZEL_ERR_LIMIT_EXCEED, ZEL_ERR_STORAGE_NO_RECORDS, ZEL_ERR_STORAGE_INIT_FAILURE,
                     ZEL_ERR_INVALID_FILE, ZEL_ERR_FILE_DOESNT_EXIST, ZEL_ERR_NOT_A_FILE, ZEL_ERR_TRANSPORT_FAILURE,
                     ZEL_ERR_SHARE_THUMBNAIL_ERR, ZEL_ERR_REQ_PAUSED, ZEL_ERR_UNKNOWN, ZEL_ERR_RESOURCE_ALREADY_EXIST,
                     ZEL_ERR_MAX_REQ_REACHED, ZEL_ERR_SERVICE_ADAPTER_CONNECTION_FAILURE, ZEL_ERR_NO_PAUSABLE_REQ_ID,
                     ZEL_ERR_NO_RESUMABLE_REQ_ID, ZEL_ERR_NO_CANCELLABLE_REQ_ID, ZEL_ERR_LAST_CHUNK_ALREADY_SENT,
                     ZEL_ERR_INVALID_ACCESS_TOKEN, ZEL_ERR_ALREADY_COMPLETED_MULTI_CHANNEL,
                     ZEL_ERR_SERVICE_INITIALIZING, ZEL_ERR_PERMISSION_DENIED, ZEL_ERR_NOT_SUPPORTED_CONTENT_TYPE,
                     ZEL_ERR_PUSH, ZEL_ERR_INTERNAL_ERROR));
ENUMERATION(quillo_error_e,
            count_down(0, QUILLO_ERROR_NONE, QUILLO_ERROR_INVALID_PARAMETER, QUILLO_ERROR_OUT_OF_MEMORY,
                       QUILLO_ERROR_SOCKET, QUILLO_ERROR_SERVICE_NOT_RUNNING, QUILLO_ERROR_THREAD,
                       QUILLO_ERROR_REQUEST_FAILED, QUILLO_ERROR_NETWORK_FAILED, QUILLO_ERROR_TIMEOUT,
                       QUILLO_ERROR_RESOURCE_DOESNT_EXIST, QUILLO_ERROR_MAX_FILE_SIZE_EXCEEDED,
                       QUILLO_ERROR_NOT_AUTHENTICATED, QUILLO_ERROR_STORAGE_FAILURE, QUILLO_ERROR_INVALID_REQ_ID,
                       QUILLO_ERROR_NO_CONTENT, QUILLO_ERROR_INVALID_INDEX, QUILLO_ERROR_TRANSPORT,
                       QUILLO_ERROR_PERMISSION_DENIED_ERROR, QUILLO_ERROR_SERVICE_INITIALIZING,
                       QUILLO_ERROR_FEATURE_NOT_SUPPORTED, QUILLO_ERROR_LUM_NOT_JOINED,
                       QUILLO_ERROR_NOT_SUPPORTED_CONTENT_TYPE, QUILLO_ERROR_INVALID_ACCESS_TOKEN),
            count_up(-100, QUILLO_ERROR_UNKNOWN));
ENUMERATION(quillo_app_type_e, count_up(0, APP_TYPE_NONE, QUILLO_APP_TYPE, PIKO_APP_TYPE, MOSAIC_EVENT_APP_TYPE));
ENUMERATION(quillo_upload_status_e,
            count_up(0, QUILLO_UPLOAD_STATUS_NONE, QUILLO_UPLOAD_STATUS_STARTED, QUILLO_UPLOAD_STATUS_PROGRESSING,
                     QUILLO_UPLOAD_STATUS_FINISHED, QUILLO_UPLOAD_STATUS_FAILED, QUILLO_UPLOAD_STATUS_CANCELLED,
                     QUILLO_UPLOAD_STATUS_PAUSED, QUILLO_UPLOAD_STATUS_SHARE_FINISHED,
                     QUILLO_UPLOAD_STATUS_SHARE_RECALLED));
ENUMERATION(quillo_push_status_e,
            count_up(0, QUILLO_PUSH_STATUS_NONE, QUILLO_PUSH_STATUS_SHARE_FINISHED, QUILLO_PUSH_STATUS_SHARE_RECALLED));
ENUMERATION(zel_cmd,
            count_up(0, ZEL_CMD_DOWNLOAD, ZEL_CMD_UPLOAD, ZEL_CMD_GET_SHARE_CONTENT_LIST,
                     ZEL_CMD_GET_SHARE_CONTENT_INFO_FOR_APP, ZEL_CMD_DELETE_SHARE_CONTENTS_INFO, ZEL_CMD_DEACTIVATE,
                     ZEL_CMD_UPLOAD_CANCEL, ZEL_CMD_UPLOAD_PAUSE, ZEL_CMD_UPLOAD_RESUME, ZEL_CMD_DOWNLOAD_CANCEL,
                     ZEL_CMD_DOWNLOAD_PAUSE, ZEL_CMD_DOWNLOAD_RESUME, ZEL_CMD_GET_UPLOAD_LIST,
                     ZEL_CMD_GET_LOGIN_STATUS),
            count_up(15, ZEL_CMD_UPLOAD_RESUME_BY_SYSTEM_RESTART, ZEL_CMD_DOWNLOAD_RESUME_BY_SYSTEM_RESTART,
                     ZEL_CMD_SET_WIFI_ONLY_SETTING, ZEL_CMD_DOWNLOAD_THUMBNAIL, ZEL_CMD_GET_RECEIVED_TIME,
                     ZEL_CMD_GET_CONTENT_TOKEN_LIST_BY_APP_TYPE, ZEL_CMD_DELTE_PUSH_INFO),
            count_up(23, ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST, ZEL_CMD_GET_UPLOADED_FILE_INFO,
                     ZEL_CMD_RESHARE_UPLOAD, ZEL_CMD_RECALL_UPLOAD, ZEL_CMD_GET_REQUEST_IDS_BY_APP_TYPE,
                     ZEL_CMD_DELETE_UPLOAD_INFO, ZEL_CMD_GET_UPLOAD_INFO, ZEL_EVT_CMD_IS_JOINED, ZEL_EVT_CMD_START,
                     ZEL_EVT_CMD_UPLOAD, ZEL_EVT_CMD_SYNC, ZEL_EVT_CMD_DOWNLOAD, ZEL_EVT_CMD_DELETE,
                     ZEL_EVT_CMD_MEMBER_URL, ZEL_CMD_UNKNOWN));
ENUMERATION(quillo_event_thumbnail_type_e, count_up(0, QUILLO_EVENT_THUMBNAIL_NONE, QUILLO_EVENT_THUMBNAIL_200,
                                                    QUILLO_EVENT_THUMBNAIL_480, QUILLO_EVENT_THUMBNAIL_1280));
ENUMERATION(zel_file_sync_type, count_up(0, ZEL_UNKNOWN, ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE));
ENUMERATION(zel_file_sync_status, count_up(0, ZEL_SYNC_TODO, ZEL_SYNC_ONGOING, ZEL_SYNC_FAILED, ZEL_SYNC_PAUSED,
                                           ZEL_SYNC_PAUSED_TODO, ZEL_SYNC_COMPLETE));
ENUMERATION(log_priority, count_up(0, DLOG_UNKNOWN, DLOG_DEFAULT, DLOG_VERBOSE, DLOG_DEBUG, DLOG_INFO, DLOG_WARN,
                                   DLOG_ERROR, DLOG_FATAL, DLOG_SILENT, DLOG_PRIO_MAX));

static_assert(std::is_same_v<_common_hash_table_addon_cb, void (*)(void *)>);
static_assert(std::is_same_v<free_queue_member, void (*)(void *)>);
static_assert(std::is_same_v<_common_queue_find_func, int (*)(void *, void *)>);
static_assert(std::is_same_v<quillo_storage_unique_data_involk_cb, void (*)(void *, void *)>);

} // namespace
