/*
 * The request that a client sends to the sharing service: its record, its copy and its release.
 *
 * No operation takes a lock: one thread at a time may use a request.
 */
#ifndef ZEL_COMMON_REQUEST_H
#define ZEL_COMMON_REQUEST_H

#include "zel_common.h"
#include "zel_platform.h"
#include <glib.h>
#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Command of a request; 14 and 22 are not used. */
typedef enum ZEL_ENUM_INT {
    ZEL_CMD_DOWNLOAD = 0,                            /**< download files of a share */
    ZEL_CMD_UPLOAD = 1,                              /**< send files to recipients */
    ZEL_CMD_GET_SHARE_CONTENT_LIST = 2,              /**< list the received shares */
    ZEL_CMD_GET_SHARE_CONTENT_INFO_FOR_APP = 3,      /**< describe one received share */
    ZEL_CMD_DELETE_SHARE_CONTENTS_INFO = 4,          /**< delete a received share */
    ZEL_CMD_DEACTIVATE = 5,                          /**< sign the user off */
    ZEL_CMD_UPLOAD_CANCEL = 6,                       /**< cancel an upload */
    ZEL_CMD_UPLOAD_PAUSE = 7,                        /**< pause an upload */
    ZEL_CMD_UPLOAD_RESUME = 8,                       /**< resume a paused upload */
    ZEL_CMD_DOWNLOAD_CANCEL = 9,                     /**< cancel a download */
    ZEL_CMD_DOWNLOAD_PAUSE = 10,                     /**< pause a download */
    ZEL_CMD_DOWNLOAD_RESUME = 11,                    /**< resume a paused download */
    ZEL_CMD_GET_UPLOAD_LIST = 12,                    /**< list the uploads */
    ZEL_CMD_GET_LOGIN_STATUS = 13,                   /**< return whether the user is signed in */
    ZEL_CMD_UPLOAD_RESUME_BY_SYSTEM_RESTART = 15,    /**< resume an upload after a restart of the system */
    ZEL_CMD_DOWNLOAD_RESUME_BY_SYSTEM_RESTART = 16,  /**< resume a download after a restart of the system */
    ZEL_CMD_SET_WIFI_ONLY_SETTING = 17,              /**< set whether transfers use Wi-Fi only */
    ZEL_CMD_DOWNLOAD_THUMBNAIL = 18,                 /**< download thumbnails of a share */
    ZEL_CMD_GET_RECEIVED_TIME = 19,                  /**< return when a share was received */
    ZEL_CMD_GET_CONTENT_TOKEN_LIST_BY_APP_TYPE = 20, /**< list the share tokens of one kind of client */
    ZEL_CMD_DELTE_PUSH_INFO = 21,                    /**< delete a push notification */
    ZEL_CMD_GET_RECENT_RECIPIENT_MSISDN_LIST = 23,   /**< list the recently used recipients */
    ZEL_CMD_GET_UPLOADED_FILE_INFO = 24,             /**< describe the files of an upload */
    ZEL_CMD_RESHARE_UPLOAD = 25,                     /**< share an upload with further recipients */
    ZEL_CMD_RECALL_UPLOAD = 26,                      /**< recall a share */
    ZEL_CMD_GET_REQUEST_IDS_BY_APP_TYPE = 27,        /**< list the request ids of one kind of client */
    ZEL_CMD_DELETE_UPLOAD_INFO = 28,                 /**< delete an upload */
    ZEL_CMD_GET_UPLOAD_INFO = 29,                    /**< report an upload */
    ZEL_EVT_CMD_IS_JOINED = 30,                      /**< event: return whether the user has joined */
    ZEL_EVT_CMD_START = 31,                          /**< event: start */
    ZEL_EVT_CMD_UPLOAD = 32,                         /**< event: upload */
    ZEL_EVT_CMD_SYNC = 33,                           /**< event: list the files on the server */
    ZEL_EVT_CMD_DOWNLOAD = 34,                       /**< event: download */
    ZEL_EVT_CMD_DELETE = 35,                         /**< event: delete */
    ZEL_EVT_CMD_MEMBER_URL = 36,                     /**< event: URL of a member */
    ZEL_CMD_UNKNOWN = 37                             /**< no command; the last value */
} zel_cmd;

/** Size of an event thumbnail; the values are 0 to 3, not the sizes. */
typedef enum ZEL_ENUM_INT {
    QUILLO_EVENT_THUMBNAIL_NONE = 0, /**< no thumbnail */
    QUILLO_EVENT_THUMBNAIL_200 = 1,  /**< size 200 */
    QUILLO_EVENT_THUMBNAIL_480 = 2,  /**< size 480 */
    QUILLO_EVENT_THUMBNAIL_1280 = 3  /**< size 1280 */
} quillo_event_thumbnail_type_e;

/**
 * A client's request. Client and service agree on the fields that a command uses, and on the units of times.
 *
 * Allocate it zero-filled with g_new0, and its strings and lists with GLib (g_strdup, g_list_append). The user of
 * response_mutex initialises it with g_mutex_init and clears it with g_mutex_clear before the release, in each copy
 * separately.
 */
typedef struct _zel_request {
    zel_cmd cmd;                                   /**< the command */
    unsigned int req_id;                           /**< the request's id */
    unsigned int receiver_count;                   /**< number of recipients in receiver_list */
    unsigned int url_count;                        /**< number of entries in url_list */
    unsigned int file_count;                       /**< number of entries in file_list */
    unsigned int cancel_id;                        /**< id of the request to be cancelled */
    unsigned int setting_status;                   /**< the value of a setting command */
    unsigned int reconnecting_to_server;           /**< non-zero while it is sent again after a reconnect */
    quillo_app_type_e type;                        /**< kind of the client application that makes the request */
    quillo_event_thumbnail_type_e thumbnail_type;  /**< requested thumbnail size */
    char *description;                             /**< description text of a share; owned */
    char *local_path;                              /**< a local file path; owned */
    char *url;                                     /**< a content URL; owned */
    char *contents_token;                          /**< token of a share on the server; owned */
    unsigned long long content_token_expired_time; /**< when contents_token expires */
    char *folder_token;                            /**< token of a shared folder; owned */
    unsigned long long folder_token_expired_time;  /**< when folder_token expires */
    char *group_id;                                /**< id of the folder group, the key of its stored tokens; owned */
    GList *receiver_list;                          /**< recipients, strings; owned with its elements */
    GList *url_list;                               /**< URLs, strings; owned with its elements */
    GList *file_list;                              /**< file paths, strings; owned with its elements */
    GList *server_file_list;             /**< the server's file entries, one allocation each; owned with its elements */
    unsigned long long server_timestamp; /**< a time given by the server */
    int list_count;                      /**< number of entries of a server listing */
    char *list_next;                     /**< next-page mark of a server listing; owned */
    char *list_more;                     /**< more-entries mark of a server listing; owned */
    GMutex response_mutex;               /**< guards the response; the library never uses it */
    unsigned int send_push;              /**< non-zero: notify the recipients by push */
    app_control_h caller;                /**< launch-request handle of the calling application; owned */
} zel_request;

/** A request in progress, with the state of its connection. The service sets and reads the flags. */
typedef struct comm_param_s {
    zel_request request;  /**< the request itself */
    bool ongoing;         /**< in progress */
    bool reconnecting;    /**< reconnecting to the server */
    bool pending_destroy; /**< released when its work ends */
    bool is_pause;        /**< paused */
    bool is_started;      /**< started */
    void *handle;         /**< owned by the service; never released by the library */
} comm_param_s;

/**
 * Copies a request. Strings, string lists and the caller's handle are duplicated. The copy of a string list ends at the
 * first NULL element. A handle that cannot be cloned is NULL in the copy.
 *
 * Source and copy share server_file_list, list_next and list_more: set the three to NULL in one of them before both are
 * released. response_mutex is copied byte by byte and must not be locked.
 *
 * @param src_request the request to copy; unchanged
 * @param dst_request storage for the copy; its old content is overwritten, not released
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when either is NULL
 */
zel_err_e _common_copy_zel_request_members(const zel_request *src_request, zel_request *dst_request);

/**
 * Releases the members of a request, but not the record. Lists and handle keep their old pointers: afterwards only free
 * the record or overwrite it as a whole.
 *
 * @param request the request; NULL is rejected
 */
void _common_free_zel_request_members(zel_request *request);

/**
 * Releases a request of the GLib allocator with its members.
 *
 * @param request the request; NULL is rejected
 */
void _common_free_zel_request(zel_request *request);

/**
 * Releases a comm_param_s of the GLib allocator with the members of its request. Its handle is not released.
 *
 * @param param the record; NULL is ignored
 */
void _common_free_zel_param_members(comm_param_s *param);

/**
 * Logs the main fields of a request and its file list. The log lines name the caller.
 *
 * @param request the request; must not be NULL
 * @param from    name of the calling function
 * @param line    source line of the call
 */
void __print_zel_request(const zel_request *request, const char *from, int line);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
