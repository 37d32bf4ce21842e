/*
 * What the sharing service and its clients share: result codes, the records that they exchange, the guarded hash
 * table, and small utilities for files, process and time.
 *
 * Strings are NUL-terminated byte strings of the GLib allocator, released with g_free, unless an operation names
 * another release. Lists are GLib lists. A record owns the strings, lists and arrays that it points to; its release
 * operation releases them all. An output stays untouched on failure.
 */
#ifndef ZEL_COMMON_H
#define ZEL_COMMON_H

#include <glib.h>
#include <pthread.h>
#include <stdbool.h>
#include <stddef.h>
#include <sys/types.h>

/* Version ---------------------------------------------------------------------------------------------------- */

/** First number of the version: raised when older programs no longer run with the library. */
#define ZEL_COMMON_VERSION_MAJOR 1
/** Second number: raised when something is added. */
#define ZEL_COMMON_VERSION_MINOR 1
/** Third number: raised when something is fixed. */
#define ZEL_COMMON_VERSION_PATCH 0
/** True when these headers are of this version or a later one. */
#define ZEL_COMMON_CHECK_VERSION(major, minor, patch)                                                                  \
    (ZEL_COMMON_VERSION_MAJOR > (major) ||                                                                             \
     (ZEL_COMMON_VERSION_MAJOR == (major) &&                                                                           \
      (ZEL_COMMON_VERSION_MINOR > (minor) ||                                                                           \
       (ZEL_COMMON_VERSION_MINOR == (minor) && ZEL_COMMON_VERSION_PATCH >= (patch)))))

/** In C++ gives an enumeration a signed 32-bit type: typedef enum ZEL_ENUM_INT { ... } name. Empty in C. */
#ifdef __cplusplus
#define ZEL_ENUM_INT : int
#else
#define ZEL_ENUM_INT
#endif

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Result codes ----------------------------------------------------------------------------------------------- */

/**
 * Result of an operation of the library or the service. A switch over it needs a default: C has one more enumerator,
 * and one operation of the store returns -1.
 */
typedef enum ZEL_ENUM_INT {
#ifndef __cplusplus
    ZEL_ERR_FORCE_SIGNED = -1, /**< not a code: makes the type signed in C, so that -1 compares below 0 */
#endif
    ZEL_ERR_NONE = 0,                                /**< success */
    ZEL_ERR_INVALID_ARG = 1,                         /**< an argument is missing or out of range */
    ZEL_ERR_MEMORY = 2,                              /**< an allocation failed, or a message ends too early */
    ZEL_ERR_SOCKET_FAILURE = 3,                      /**< a socket between client and service failed */
    ZEL_ERR_SERVER_NOT_RUNNING = 4,                  /**< the sharing service is not running */
    ZEL_ERR_THREAD = 5,                              /**< a thread could not be started or used */
    ZEL_ERR_REQUEST_FAILED = 6,                      /**< the request was carried out and failed */
    ZEL_ERR_CANCELLED = 7,                           /**< the request was cancelled; a success for the client */
    ZEL_ERR_NETWORK_FAILURE = 8,                     /**< the network failed */
    ZEL_ERR_TIMEOUT_ERR = 9,                         /**< no answer arrived in time */
    ZEL_ERR_RESOURCE_DOESNT_EXIST = 10,              /**< the resource does not exist */
    ZEL_ERR_MAX_FILE_SIZE_EXCEEDED = 11,             /**< a file exceeds the size that the server accepts */
    ZEL_ERR_NOT_AUTHENTICATED = 12,                  /**< the user is not signed in */
    ZEL_ERR_BROKEN_PIPE = 13,                        /**< the peer closed the socket */
    ZEL_ERR_TELEPHONY = 14,                          /**< the telephony service failed */
    ZEL_ERR_STORAGE_FAILURE = 15,                    /**< a statement of the store failed */
    ZEL_ERR_INVALID_REQ_ID = 16,                     /**< no request has this id */
    ZEL_ERR_SHARE_FILE_DOESNT_EXITS = 17,            /**< the shared file does not exist */
    ZEL_ERR_AUTHENTICATION_FAILED = 18,              /**< signing in failed */
    ZEL_ERR_BAD_JSON_FORMAT = 19,                    /**< the server's answer is malformed */
    ZEL_ERR_BAD_ACCESS_TOKEN = 20,                   /**< the server refused the access token */
    ZEL_ERR_BAD_DEVICE_ID = 21,                      /**< the server refused the device id */
    ZEL_ERR_BAD_CLIENT_ID = 22,                      /**< the server refused the client id */
    ZEL_ERR_INVALID_UID = 23,                        /**< the server refused the user id */
    ZEL_ERR_JSON_FAILURE = 24,                       /**< a message could not be composed or parsed */
    ZEL_ERR_LIMIT_EXCEED = 25,                       /**< a limit of the server is exceeded */
    ZEL_ERR_STORAGE_NO_RECORDS = 26,                 /**< the store holds no matching record */
    ZEL_ERR_STORAGE_INIT_FAILURE = 27,               /**< the store could not be opened */
    ZEL_ERR_INVALID_FILE = 28,                       /**< a file cannot be examined */
    ZEL_ERR_FILE_DOESNT_EXIST = 29,                  /**< a file does not exist */
    ZEL_ERR_NOT_A_FILE = 30,                         /**< a path does not name a regular file */
    ZEL_ERR_TRANSPORT_FAILURE = 31,                  /**< the transfer layer failed */
    ZEL_ERR_SHARE_THUMBNAIL_ERR = 32,                /**< a thumbnail could not be shared */
    ZEL_ERR_REQ_PAUSED = 33,                         /**< the request is paused; a success for the client */
    ZEL_ERR_UNKNOWN = 34,                            /**< a failure without a code of its own */
    ZEL_ERR_RESOURCE_ALREADY_EXIST = 35,             /**< the resource to create exists already */
    ZEL_ERR_MAX_REQ_REACHED = 36,                    /**< no further request is accepted for now */
    ZEL_ERR_SERVICE_ADAPTER_CONNECTION_FAILURE = 37, /**< the service adapter cannot be reached */
    ZEL_ERR_NO_PAUSABLE_REQ_ID = 38,                 /**< the request cannot be paused */
    ZEL_ERR_NO_RESUMABLE_REQ_ID = 39,                /**< the request cannot be resumed */
    ZEL_ERR_NO_CANCELLABLE_REQ_ID = 40,              /**< the request cannot be cancelled */
    ZEL_ERR_LAST_CHUNK_ALREADY_SENT = 41,            /**< the last chunk of a file has already been sent */
    ZEL_ERR_INVALID_ACCESS_TOKEN = 42,               /**< the access token is invalid or expired */
    ZEL_ERR_ALREADY_COMPLETED_MULTI_CHANNEL = 43,    /**< another channel has completed the transfer */
    ZEL_ERR_SERVICE_INITIALIZING = 44,               /**< the service is still starting */
    ZEL_ERR_PERMISSION_DENIED = 45,                  /**< the caller may not do this */
    ZEL_ERR_NOT_SUPPORTED_CONTENT_TYPE = 46,         /**< content of this type cannot be shared */
    ZEL_ERR_PUSH = 47,                               /**< the push service failed */
    ZEL_ERR_INTERNAL_ERROR = 48                      /**< an internal inconsistency */
} zel_err_e;

/** Result reported to a client application; only converted from a zel_err_e. */
typedef enum ZEL_ENUM_INT {
    QUILLO_ERROR_NONE = 0,                         /**< success; also a cancelled or a paused request */
    QUILLO_ERROR_INVALID_PARAMETER = -1,           /**< an argument is missing or out of range */
    QUILLO_ERROR_OUT_OF_MEMORY = -2,               /**< an allocation failed */
    QUILLO_ERROR_SOCKET = -3,                      /**< the connection to the service failed */
    QUILLO_ERROR_SERVICE_NOT_RUNNING = -4,         /**< the sharing service is not running */
    QUILLO_ERROR_THREAD = -5,                      /**< a thread could not be started or used */
    QUILLO_ERROR_REQUEST_FAILED = -6,              /**< the request was carried out and failed */
    QUILLO_ERROR_NETWORK_FAILED = -7,              /**< the network failed */
    QUILLO_ERROR_TIMEOUT = -8,                     /**< no answer arrived in time */
    QUILLO_ERROR_RESOURCE_DOESNT_EXIST = -9,       /**< a file or resource does not exist */
    QUILLO_ERROR_MAX_FILE_SIZE_EXCEEDED = -10,     /**< a file exceeds the size that the server accepts */
    QUILLO_ERROR_NOT_AUTHENTICATED = -11,          /**< the user is not signed in */
    QUILLO_ERROR_STORAGE_FAILURE = -12,            /**< the store failed; the conversion never yields it */
    QUILLO_ERROR_INVALID_REQ_ID = -13,             /**< no request has this id */
    QUILLO_ERROR_NO_CONTENT = -14,                 /**< there is nothing to hand out */
    QUILLO_ERROR_INVALID_INDEX = -15,              /**< an index is out of range; the conversion never yields it */
    QUILLO_ERROR_TRANSPORT = -16,                  /**< the transfer layer failed */
    QUILLO_ERROR_PERMISSION_DENIED_ERROR = -17,    /**< the caller may not do this */
    QUILLO_ERROR_SERVICE_INITIALIZING = -18,       /**< the service is still starting */
    QUILLO_ERROR_FEATURE_NOT_SUPPORTED = -19,      /**< the device lacks the feature; the conversion never yields it */
    QUILLO_ERROR_LUM_NOT_JOINED = -20,             /**< the user has not joined; the conversion never yields it */
    QUILLO_ERROR_NOT_SUPPORTED_CONTENT_TYPE = -21, /**< content of this type cannot be shared */
    QUILLO_ERROR_INVALID_ACCESS_TOKEN = -22,       /**< the access token is refused or expired */
    QUILLO_ERROR_UNKNOWN = -100                    /**< every other failure */
} quillo_error_e;

/**
 * Converts an internal result to the result reported to a client. Any thread may call it.
 *
 * @param err the internal result; any value
 * @return the client's code; QUILLO_ERROR_UNKNOWN for a result without a client code and for a value outside zel_err_e
 */
quillo_error_e _common_util_convert_service_error_to_client_error(zel_err_e err);

/**
 * Logs a result with its name, as an error. Any thread may call it.
 *
 * @param err_code the result; values outside ZEL_ERR_NONE (0) to ZEL_ERR_MAX_REQ_REACHED (36) write nothing
 */
void _common_print_error_info(int err_code);

/* Records that travel between client, service and store ------------------------------------------------------ */

/** Kind of client application. */
typedef enum ZEL_ENUM_INT {
    APP_TYPE_NONE = 0,        /**< not known */
    QUILLO_APP_TYPE = 1,      /**< the sharing client itself */
    PIKO_APP_TYPE = 2,        /**< the second client application */
    MOSAIC_EVENT_APP_TYPE = 3 /**< the event application; in the two status lists of the store 3 means all */
} quillo_app_type_e;

/** State of an upload, as reported to the client. */
typedef enum ZEL_ENUM_INT {
    QUILLO_UPLOAD_STATUS_NONE = 0,           /**< not known */
    QUILLO_UPLOAD_STATUS_STARTED = 1,        /**< accepted */
    QUILLO_UPLOAD_STATUS_PROGRESSING = 2,    /**< files are being sent */
    QUILLO_UPLOAD_STATUS_FINISHED = 3,       /**< all files are done */
    QUILLO_UPLOAD_STATUS_FAILED = 4,         /**< given up */
    QUILLO_UPLOAD_STATUS_CANCELLED = 5,      /**< cancelled by the user */
    QUILLO_UPLOAD_STATUS_PAUSED = 6,         /**< paused by the user */
    QUILLO_UPLOAD_STATUS_SHARE_FINISHED = 7, /**< the recipients have been notified */
    QUILLO_UPLOAD_STATUS_SHARE_RECALLED = 8  /**< the share was taken back */
} quillo_upload_status_e;

/** State of a received share, as reported by the sender's later push notifications. */
typedef enum ZEL_ENUM_INT {
    QUILLO_PUSH_STATUS_NONE = 0,           /**< nothing reported */
    QUILLO_PUSH_STATUS_SHARE_FINISHED = 1, /**< the sender's upload is complete */
    QUILLO_PUSH_STATUS_SHARE_RECALLED = 2  /**< the sender took the share back */
} quillo_push_status_e;

/**
 * A recipient. Sets of recipients are arrays of pointers to these records with a separate count. A record on its own
 * has no release operation: g_free for ccc, phone_number and then the record.
 */
typedef struct quillo_msisdn_s {
    char *ccc;          /**< country calling code; owned */
    char *phone_number; /**< phone number without the calling code; owned */
    int number_id;      /**< id of the number in the recipient tables */
    int group_id;       /**< recent-receiver group that the number belongs to */
} quillo_msisdn_s;

/** URL and content type of a file on the server. */
typedef struct zel_trans_url_info {
    char *url;          /**< the file's URL; owned */
    char *content_type; /**< the file's content type; owned */
} zel_trans_url_info;

/** An id and the URL that it identifies. */
typedef struct zel_trans_url_ids_info {
    char *id;                        /**< the id; owned */
    char *url;                       /**< the URL; owned */
    unsigned long long expired_time; /**< when the URL expires, in the unit of the party that filled it */
} zel_trans_url_ids_info;

/** One content item of a received share. The share releases it; a single item: g_free each string, then the record. */
typedef struct zel_trans_content_info {
    char *original;                  /**< URL of the full file; owned */
    char *thumbnail;                 /**< URL of the small thumbnail; owned */
    char *mid_thumbnail;             /**< URL of the middle thumbnail; owned */
    char *big_thumbnail;             /**< URL of the large thumbnail; owned */
    char *name;                      /**< name of the content; owned */
    char *content_type;              /**< content type; owned */
    char *contents_token;            /**< the share that the item belongs to; owned */
    unsigned int download_count;     /**< number of downloads so far */
    unsigned int max_download_count; /**< number of downloads allowed */
    unsigned int size;               /**< size of the content in bytes */
    unsigned int content_id;         /**< row id of the item in the store */
} zel_trans_content_info;

/** A received share with its content items. */
typedef struct zel_trans_share_content_info {
    char *contents_token;                  /**< token that names the share on the server; owned */
    char *description;                     /**< description text; owned */
    char *type;                            /**< type of the share; owned */
    char *from_msisdn;                     /**< the sender's number; owned */
    char *to_list;                         /**< the recipients as one text; owned */
    unsigned long long expired_time;       /**< when the share expires, in the unit of the party that filled it */
    unsigned int content_info_list_length; /**< number of items */
    GList *content_info_list;              /**< the items, zel_trans_content_info records; owned with its items */
    unsigned int push_status;              /**< a quillo_push_status_e */
} zel_trans_share_content_info;

/** An upload, as reported to the client that requested it. */
typedef struct zel_trans_upload_info {
    unsigned int request_id;         /**< id of the upload request */
    unsigned long long total_size;   /**< size of all files together, in bytes */
    unsigned int file_count;         /**< number of files */
    GList *file_path_list;           /**< local paths of the files, strings; owned with its elements */
    unsigned long long expired_time; /**< when the share expires, in milliseconds since the epoch */
    unsigned long long sent_time;    /**< when it was sent, in seconds since the epoch */
    const char *contents_token;      /**< token that names the share on the server; owned, not to be written through */
    size_t msisdn_count;             /**< number of recipients */
    quillo_msisdn_s **msisdn_list;   /**< msisdn_count recipients; owned with each record */
    quillo_upload_status_e status;   /**< state of the upload */
} zel_trans_upload_info;

/**
 * Releases a zel_trans_url_info and its strings. All these releases take an untyped pointer, so that
 * g_list_free_full can call them. One thread at a time may use a record.
 *
 * @param data the record; NULL is ignored
 */
void _common_free_url_info(void *data);

/**
 * Releases a zel_trans_url_ids_info and its strings. One thread at a time may use a record.
 *
 * @param data the record; NULL is ignored
 */
void _common_free_url_ids_info(void *data);

/**
 * Releases a zel_trans_share_content_info with its items and all their strings. One thread at a time may use a record.
 *
 * @param data the record; NULL is ignored
 */
void _common_free_share_content_info(void *data);

/**
 * Releases a zel_trans_upload_info with its recipients and paths. One thread at a time may use a record.
 *
 * @param data the record; NULL is ignored
 */
void _common_free_upload_info(void *data);

/* Guarded hash table ----------------------------------------------------------------------------------------- */

/**
 * A hash map that threads share. Every operation except _common_foreach_read_from_hash_table holds the mutex while it
 * uses the table, and releases it before it returns. So another thread can remove and release a returned value at any
 * time; use _common_read_from_hash_table_addon to work on a value under the mutex. The caller's functions and the two
 * release functions run under the mutex: they must not call an operation of the same table, and must not throw.
 */
typedef struct zel_hash_table {
    pthread_mutex_t mutex; /**< locked by every operation except _common_foreach_read_from_hash_table; not recursive */
    GHashTable *table;     /**< the map */
} zel_hash_table;

/**
 * Called with a stored value under the table's mutex, so that no other thread can remove the value.
 *
 * @param value the value
 */
typedef void (*_common_hash_table_addon_cb)(void *value);

/**
 * Creates a table. With a key release the keys are strings, compared by content, and the table owns the keys that it
 * stores. Without one the keys are plain pointers or integers, compared by identity and never released. Neither a key
 * nor a value can be 0.
 *
 * @param hash_table receives the new table, which _common_deinit_hash_table releases; NULL when the allocation fails.
 *                   A NULL argument is rejected
 * @param free_key   releases a key; may be NULL
 * @param free_value releases a value, which the table then owns; may be NULL
 */
void _common_init_hash_table(zel_hash_table **hash_table, GDestroyNotify free_key, GDestroyNotify free_value);

/**
 * Releases a table and, through its release functions, every key and value in it. It must be the last operation on the
 * table: no other thread may use the table any more. The caller's variable is not cleared.
 *
 * @param hash_table the table; NULL is rejected
 */
void _common_deinit_hash_table(zel_hash_table *hash_table);

/**
 * Stores a value. If the table holds the key already, the stored key stays; the old value and the key passed in are
 * released. So never pass a key or value that the table already holds: the table would release it and still use it.
 * Any thread may call it.
 *
 * @param hash_table the table
 * @param key        the key; the table takes it over if it has a key release
 * @param value      the value; the table takes it over if it has a value release. When one of the three arguments is
 *                   NULL, nothing is stored and the caller keeps both
 */
void _common_write_to_hash_table(zel_hash_table *hash_table, void *key, void *value);

/**
 * Looks up a value. Any thread may call it.
 *
 * @param hash_table the table
 * @param key        the key; NULL is always absent
 * @return the value, still owned by the table; NULL when the key is absent or the table is NULL
 */
void *_common_read_from_hash_table(zel_hash_table *hash_table, const void *key);

/**
 * Looks up a value and passes it to a callback under the mutex. Any thread may call it.
 *
 * @param hash_table the table
 * @param key        the key; NULL is always absent
 * @param cb         called once with the value; not called when the key is absent
 * @return the value, still owned by the table; NULL when the key is absent or the table or the callback is NULL
 */
void *_common_read_from_hash_table_addon(zel_hash_table *hash_table, const void *key, _common_hash_table_addon_cb cb);

/**
 * Removes an entry and releases its key and value through the release functions. Any thread may call it.
 *
 * @param hash_table the table; NULL is rejected
 * @param key        the key; NULL and an absent key are ignored
 */
void _common_remove_from_hash_table(zel_hash_table *hash_table, const void *key);

/**
 * Finds the first entry, in the table's own order, that a predicate accepts. Any thread may call it.
 *
 * @param hash_table     the table
 * @param predicate_func called under the mutex with key, value and user_data; true accepts the entry
 * @param user_data      passed to predicate_func
 * @return the value, still owned by the table; NULL when no entry is accepted, or the table or the predicate is NULL
 */
void *_common_find_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data);

/**
 * Removes the entry of a key if a predicate accepts it, and releases key and value through the release functions. Any
 * thread may call it.
 *
 * @param hash_table     the table; NULL is rejected
 * @param predicate_func called under the mutex with key, value and, as user data, the key again; exactly 1 (TRUE)
 *                       removes the entry. Not called when the key is absent; NULL is rejected
 * @param key            the key; NULL is always absent
 */
void _common_find_and_remove_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *key);

/**
 * Removes every entry that a predicate accepts, and releases keys and values through the release functions. Any thread
 * may call it.
 *
 * @param hash_table     the table; NULL is rejected
 * @param predicate_func called under the mutex with key, value and user_data; true removes the entry. NULL is rejected
 * @param user_data      passed to predicate_func
 */
void _common_foreach_remove_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data);

/**
 * Visits every entry without locking the mutex. The caller prevents changes by other threads, for example by holding
 * the mutex itself.
 *
 * @param hash_table     the table
 * @param predicate_func called with key, value and user_data; its result is ignored. It must not add or remove entries
 * @param user_data      passed to predicate_func
 * @return the number of entries visited, all of them; -1 when the table or the predicate is NULL
 */
int _common_foreach_read_from_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data);

/**
 * Counts the entries. Any thread may call it.
 *
 * @param hash_table the table
 * @return the number of entries; 0 when the table is NULL
 */
int _common_get_hash_table_size(zel_hash_table *hash_table);

/**
 * Counts the entries, as _common_get_hash_table_size does. Any thread may call it.
 *
 * @param hash_table the table
 * @return the number of entries; 0 when the table is NULL
 */
unsigned int _common_get_hash_table_count(zel_hash_table *hash_table);

/**
 * Lists the keys in the table's own order. Any thread may call it.
 *
 * @param hash_table the table
 * @return a new list; the caller releases it with g_list_free. The table still owns the keys; each is valid while its
 *         entry remains. NULL when the table is empty or NULL
 */
GList *_common_get_keys_from_hash_table(zel_hash_table *hash_table);

/* Files and paths -------------------------------------------------------------------------------------------- */

/** Size in bytes, with the terminator, of the buffer that receives a numbered path. */
#define ZEL_NEW_PATH_SIZE 4096

/**
 * Returns the size of a file. Follows symbolic links. Any thread may call it.
 *
 * @param file_path path of the file
 * @param file_size receives the size in bytes, 0 for an empty file
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_INVALID_FILE when the file cannot be
 *         examined, or holds 2^31 bytes or more
 */
int _common_util_file_size(const char *file_path, unsigned int *file_size);

/**
 * Tests whether a path exists, of any file type. Follows symbolic links. Any thread may call it.
 *
 * @param file_path the path; must not be NULL
 * @return true when it exists, and always for "/"; false for a dangling link and for a path that cannot be examined
 */
bool _common_util_file_exist(const char *file_path);

/**
 * Cuts a path at its last dot, even if the dot belongs to a folder. Any thread may call it.
 *
 * @param file_path the path
 * @return the path up to its last dot, or the whole path without a dot: a new string of the C allocator, which the
 *         caller releases with free. NULL when the path is NULL, when its last dot is its first character, or when
 *         memory runs out
 */
char *_common_util_get_filename_without_ext(const char *file_path);

/**
 * Returns the extension of a path: the text after the last dot of its last element. Any thread may call it.
 *
 * @param file_path the path; must not be NULL
 * @return the extension without its dot, empty when the path ends in the dot; a new string that the caller releases
 *         with g_free. NULL when the last element has no dot
 */
char *_common_util_get_ext(const char *file_path);

/**
 * Finds a free path for a new file by numbering its name: a.jpg gives a_1.jpg, or a_2.jpg if a_1.jpg exists, and so on.
 * The number is added even if the path itself is free. A path without an extension, or whose only dot is its first
 * character, is returned unchanged; /data/.profile gives /data/_1.profile. A path is free when _common_util_file_exist
 * returns false. Nothing is reserved: two threads or processes can get the same path.
 *
 * @param file_path     the path; NULL gives an empty one
 * @param file_new_path receives the free path: the caller's buffer of ZEL_NEW_PATH_SIZE bytes, not NULL, that does not
 *                      overlap file_path. A longer path is cut off; a path that loses its number by the cut may exist.
 *                      When memory runs out, it receives the path itself
 */
void _common_util_get_file_valid_path(const char *file_path, char *file_new_path);

/* Process, time and feature ---------------------------------------------------------------------------------- */

/**
 * Seeds the C library's generator from the clock and returns its next value. The whole process shares the generator:
 * the seed changes the values that other threads get.
 *
 * @param num added to the seed; it does not limit the result
 * @return 0 to RAND_MAX; two calls with the same seed return the same value
 */
unsigned int _common_get_random_no(int num);

/**
 * Returns the current time. Any thread may call it.
 *
 * @return whole seconds since the epoch, of the real-time clock
 */
unsigned long long _common_util_get_current_timestamp(void);

/**
 * Returns the current time. Any thread may call it.
 *
 * @return milliseconds since the epoch, of the real-time clock
 */
unsigned long long _common_util_get_current_unix_time(void);

/**
 * Writes the calling thread's kernel id (in the main thread: the process id) to "/tmp/quillo.pid", as four bytes in
 * host order. A file that cannot be opened is only logged. Calls must not overlap each other or a read.
 */
void _common_util_set_pid_to_file(void);

/**
 * Reads the id that _common_util_set_pid_to_file wrote. Any thread may call it.
 *
 * @param pid receives the id; must not be NULL
 * @return true on success; false when the file cannot be opened or is shorter than an id
 */
bool _common_util_get_pid_from_file(pid_t *pid);

/**
 * Tests whether the device has the enhanced features. The platform's feature registry is asked until it answers or does
 * not know the feature. That answer is kept for the life of the process. Any thread may call it.
 *
 * @return true when the device has them; false when it has not, or the registry could not be asked
 */
bool _common_util_check_enhanced_feature(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
