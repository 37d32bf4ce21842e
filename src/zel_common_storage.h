/*
 * The persistent store: received shares and their push notifications, the progress of every file transfer, upload
 * requests and their recipients, recently used recipient groups, folder tokens and a key-value table, in one SQLite
 * database.
 *
 * Terms. An upload request sends files to recipients; the server makes a share of them, named by a contents token. A
 * share that others send to this device is announced by a notification and consists of content items. A transfer is one
 * file on its way in either direction.
 *
 * Rules that hold for every operation, unless it says otherwise
 *
 * Opening. Call _common_storage_init first, and let it return ZEL_ERR_NONE before any other thread touches the store.
 * The connection that it opens serves the whole process and is never closed; a child of fork() must not use it.
 *
 * Threads. From then on any thread may call any operation; the library takes no lock of its own and relies on SQLite's
 * serialized mode. A record that an operation writes into belongs to the calling thread meanwhile. Without a successful
 * init, threads that call the store at once can each open a connection.
 *
 * Statements. Each takes effect whole or not at all, by itself: there is no transaction. An operation of several
 * statements, or a question followed by an update, may see other writers in between. What a statement has stored
 * survives the end of the process. A power cut can undo the very last statement that was reported as done, since SQLite
 * by default removes its journal without syncing the folder (docs/durability.md).
 *
 * Other processes. One process should own the database file, and others ask it (docs/several-programs.md). While
 * another holds the file locked, be it for an instant, writes fail and questions find nothing: a first row that cannot
 * be fetched is taken for one that is not there. An operation that acts on such an answer says what can come of it.
 *
 * Arguments. Every pointer must be given. Texts are NUL-terminated byte strings; they are quoted on the way into the
 * database, so any character may stand in them. Texts and records passed in stay the caller's. A count, a status, a
 * kind or a percentage is stored as it is given, without a range check. A "never" of 2^63 or more is no time: it can
 * read back changed, or as long past.
 *
 * Empty texts. A token, URL, name or path that was not given is stored as "". So do not look up, update or delete by
 * "": all rows that lack the text match. Read back, an empty text is NULL in a record or array; as a single value it
 * leaves the output untouched, with ZEL_ERR_NONE: set that to NULL before the call. Keys and folder records are
 * handed out as they are stored.
 *
 * Request ids. Use 1 to INT_MAX. 0 can be stored; where it is taken at all, it stands for the transfers that belong to
 * no request. Above INT_MAX, operations that take an int reject the id or find nothing, the completion tests answer
 * true, and _common_storage_update_url_info_by_reqid succeeds without changing anything; so does
 * _common_storage_update_url_info with such a sync_id. Nothing makes an id unique: of two requests with one id, reads
 * answer from the first; updates, deletions and lists take both.
 *
 * Result codes.
 *   ZEL_ERR_NONE                   done. An update or deletion that matches no row is a success too, and so is a walk
 *                                  over rows that breaks off behind the first: a list is shorter, a sum smaller.
 *   ZEL_ERR_INVALID_ARG            an argument was rejected, before the database was asked or, in an operation of
 *                                  several steps, by a later one.
 *   ZEL_ERR_MEMORY                 the result could not be allocated; a list leaves out single records for which there
 *                                  is no memory. A string that cannot be copied ends the process, as GLib does it.
 *   ZEL_ERR_STORAGE_FAILURE        the database refused the statement, could not be opened, or stayed locked by another
 *                                  process for ten attempts (about a millisecond).
 *   ZEL_ERR_STORAGE_NO_RECORDS,
 *   ZEL_ERR_RESOURCE_DOESNT_EXIST  there is nothing to hand out, or its first row could not be fetched. Which of the
 *                                  two says it differs from operation to operation.
 * Each operation names the codes that it can return.
 *
 * Outputs. They are written on success and stay untouched on every failure.
 *
 * Ownership. Whatever is handed out is new and belongs to the caller. Strings and arrays are released with g_free (an
 * array's elements first), with two exceptions that need free for the array itself:
 * _common_storage_get_contents_token_list and _common_storage_get_recent_receiver_details.
 *
 * Trace. Every operation writes its steps and failures to the log (docs/log.md).
 */
#ifndef ZEL_COMMON_STORAGE_H
#define ZEL_COMMON_STORAGE_H

#include <glib.h>
#include <stdbool.h>

#include "zel_common.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** A prepared statement of SQLite. */
typedef struct sqlite3_stmt sqlite3_stmt;

/* Connection ------------------------------------------------------------------------------------------------- */

/**
 * Finalizes a prepared statement of the store.
 *
 * @param stmt the statement, not to be used afterwards; NULL is ignored
 */
void __db_finalize(sqlite3_stmt *stmt);

/* Database --------------------------------------------------------------------------------------------------- */

/**
 * Opens the database file ".quillo_service.db" in the service's data directory, creating it when it is missing (the
 * directory must exist), then creates the missing tables and stamps the schema version.
 *
 * Not safe against any other call of the store. After a success a further call does nothing; after a failure it tries
 * again. When another operation has opened the connection before, the tables are not created: call this one first. A
 * table or version that cannot be written is only logged, and statements that need it fail later. Two processes that
 * start on a new file at once can bring that about; _common_storage_db_create tells, and mends it.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_INIT_FAILURE when the file cannot be opened
 */
zel_err_e _common_storage_init(void);

/**
 * Stamps the current schema version, 104, on the database, whatever version it had. Tables are not changed.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE when the version cannot be read or written
 */
zel_err_e _common_storage_db_upgrade(void);

/**
 * Reads the schema version.
 *
 * @param version receives the version, 0 for a database that was never stamped
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when version is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e __common_storage_get_db_version(int *version);

/**
 * Tells whether the schema holds an object (table, index, view or trigger) of a name.
 *
 * @param table_name the name, case-sensitive
 * @return true when it exists; false when it does not, when the name is NULL, and when the question failed
 */
bool _common_storage_check_table_exist(const char *table_name);

/**
 * Creates those of the nine tables that are missing. A table that exists is left as it is, a table that fails does not
 * keep the others from being created.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE when at least one creation failed: call it again if another process was
 *         in the way
 */
zel_err_e _common_storage_db_create(void);

/* Key value -------------------------------------------------------------------------------------------------- */

/**
 * What _common_storage_upsert_and_involk_unique_data calls after the write; must not throw.
 *
 * @param key   the key, the very pointer that the operation was given; not to be changed or released
 * @param value the value, likewise
 */
typedef void (*quillo_storage_unique_data_involk_cb)(void *key, void *value);

/**
 * Stores a value under a key, replacing all that was stored under it.
 *
 * @param key   the key
 * @param val   the value, may be empty
 * @param resv0 first extra value; NULL is stored as the empty string
 * @param resv1 second extra value, likewise
 * @param resv2 third extra value, likewise
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when key or val is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_upsert_unique_data(const char *key, const char *val, const char *resv0, const char *resv1,
                                             const char *resv2);

/**
 * Stores a value as _common_storage_upsert_unique_data does, then calls a function on the caller's thread.
 *
 * @param key     the key
 * @param val     the value
 * @param resv0   first extra value, may be NULL
 * @param resv1   second extra value, may be NULL
 * @param resv2   third extra value, may be NULL
 * @param pointer called once with key and val, also when the write failed; not called after a rejected argument
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when key, val or pointer is NULL (nothing is written);
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_upsert_and_involk_unique_data(const char *key, const char *val, const char *resv0,
                                                        const char *resv1, const char *resv2,
                                                        quillo_storage_unique_data_involk_cb pointer);

/**
 * Reads what is stored under a key. A counter is safe in a key only while no other process uses the file: one that
 * finds the key absent while the file is locked would start again at zero.
 *
 * @param key   the key
 * @param val   receives the value, an empty one as an empty string
 * @param resv0 receives the first extra value, empty when none was given; may be NULL
 * @param resv1 receives the second extra value, likewise
 * @param resv2 receives the third extra value, likewise
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when key or val is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the key is
 *         absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_unique_data(const char *key, char **val, char **resv0, char **resv1, char **resv2);

/**
 * Removes a key.
 *
 * @param key the key
 * @return ZEL_ERR_NONE, also when the key is absent; ZEL_ERR_INVALID_ARG when key is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_unique_data(const char *key);

/**
 * Merges values into the record of a group's folder. A NULL token or a zero time keeps what is stored, so that nothing
 * can be cleared this way; use _common_storage_delete_folder_info for that. Reading and writing back are two
 * statements: of two concurrent merges of one group the later write wins whole, and a merge whose reading meets another
 * process's lock erases what it should keep.
 *
 * @param group_id                   the group
 * @param content_token              the group's contents token, or NULL
 * @param content_token_expired_time when it expires, or 0; the unit is the caller's
 * @param folder_token               the folder token, or NULL
 * @param folder_token_expired_time  when it expires, or 0
 * @param folder_sync_time           when the folder was last synchronised, or 0
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when group_id is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_upsert_folder_info(const char *group_id, const char *content_token,
                                             unsigned long long content_token_expired_time, const char *folder_token,
                                             unsigned long long folder_token_expired_time,
                                             unsigned long long folder_sync_time);

/**
 * Reads the record of a group's folder. Any output may be NULL when it is not wanted.
 *
 * @param group_id                   the group
 * @param content_token              receives the contents token, which may be empty; set to NULL when none is stored
 * @param content_token_expired_time receives its expiry, 0 when none was given
 * @param folder_token               receives the folder token, likewise
 * @param folder_token_expired_time  receives its expiry, 0 when none was given
 * @param folder_sync_time           receives the time of the last synchronisation, 0 when none was given
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when group_id is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the group has no
 *         record; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_folder_info(const char *group_id, char **content_token,
                                          unsigned long long *content_token_expired_time, char **folder_token,
                                          unsigned long long *folder_token_expired_time,
                                          unsigned long long *folder_sync_time);

/**
 * Tells whether a group has a folder token that is not empty.
 *
 * @param group_id the group
 * @param is_exist receives the answer; false on every failure but a rejected argument
 * @return ZEL_ERR_NONE when the group has a record, whether or not with a token; ZEL_ERR_INVALID_ARG when an argument
 *         is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when it has none; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_exist_folder_token(const char *group_id, bool *is_exist);

/**
 * Removes the record of a group's folder.
 *
 * @param group_id the group
 * @return ZEL_ERR_NONE, also when the group has no record; ZEL_ERR_INVALID_ARG when group_id is NULL;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_folder_info(const char *group_id);

/* Received shares -------------------------------------------------------------------------------------------- */

/*
 * A received share has one notification (unread, read or marked for deletion) and one row for each of its content
 * items; its contents token joins them. Times are compared as they are given: pass the bound of a deletion in the unit
 * in which the times were stored. Of a share whose expiry is 2^63 or more, a deletion of what has expired takes the
 * items and leaves the notification.
 *
 * Storing a notification, or the items of a share, asks first whether the token is there already. Two writers at once
 * can both find it missing, and so does one that meets another process's lock: then it is stored twice.
 */

/**
 * Tells whether a share's notification is stored, in whatever state.
 *
 * @param contents_token the share
 * @return true when it is; false when it is not, when the token is NULL, and when the question failed
 */
bool _common_storage_exist_push_noti(const char *contents_token);

/**
 * Stores the notification of a share as unread. One that is stored already is left as it is, even if it is marked for
 * deletion.
 *
 * @param contents_token the share
 * @param type           the share's type, by which notifications are grouped; may be NULL
 * @param expired_time   when the share expires
 * @param received_time  when the notification arrived
 * @return ZEL_ERR_NONE, also for one stored already; ZEL_ERR_INVALID_ARG when contents_token is NULL;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_push_noti_info(const char *contents_token, const char *type,
                                             unsigned long long expired_time, unsigned long long received_time);

/**
 * Removes every notification that expires before a time (one that expires at that very time stays), then does the same
 * with _common_storage_delete_expired_content_info, whose result is not looked at.
 *
 * @param current_time the bound
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE when the notifications could not be removed; then items stay too
 */
zel_err_e _common_storage_delete_expired_push_noti(unsigned long long current_time);

/**
 * Removes every content item whose share expires before a time; the notifications stay.
 *
 * @param current_time the bound
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_expired_content_info(unsigned long long current_time);

/**
 * Marks every unread notification of a type as read. This reaches none that was stored without a type.
 *
 * @param type the type
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when type is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_read_push_noti(const char *type);

/**
 * Marks a share's notification for deletion: no list shows it from then on, though it stays stored.
 *
 * @param contents_token the share
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when contents_token is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_check_delete_push_noti(const char *contents_token);

/**
 * Reads when a share's notification arrived.
 *
 * @param contents_token the share
 * @param received_time  receives the time as it was stored
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the share has
 *         no notification; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_received_time_push_noti(const char *contents_token, unsigned long long *received_time);

/**
 * Lists the contents tokens of received shares, the latest arrival first. Notifications marked for deletion are never
 * listed, nor are empty tokens.
 *
 * @param type                only notifications of this type; NULL for every type
 * @param except_read         true: only unread ones; false: read ones too
 * @param contents_token_list receives an array of tokens; release each with g_free and the array with free
 * @param length              receives the number of tokens
 * @return ZEL_ERR_NONE, also (with a NULL array and length 0) when memory ran out on the way or all tokens are empty;
 *         ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is none;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_contents_token_list(const char *type, bool except_read, char ***contents_token_list,
                                                  unsigned int *length);

/**
 * Stores the content items of a received share, none of them downloaded yet. The notification is a matter of its own:
 * _common_storage_add_push_noti_info.
 *
 * @param noti_info the share. Each item receives its row id in content_id; an item that could not be stored is skipped
 *                  and keeps what it had there. push_status and max_download_count are not stored
 * @return ZEL_ERR_NONE, whatever became of the items; ZEL_ERR_INVALID_ARG when noti_info is NULL or when items of its
 *         contents token are stored already (nothing is added)
 */
zel_err_e _common_storage_add_notification(zel_trans_share_content_info *noti_info);

/**
 * Finds the name of a content item.
 *
 * @param url  the URL of the item's file or of any of its three thumbnails; the first match counts
 * @param name receives the name; stays untouched when the item has none
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when no item has
 *         the URL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_content_name(const char *url, char **name);

/**
 * Reads a share back with its items.
 *
 * @param contents_token the share
 * @param noti_info      receives a new share, released with _common_free_share_content_info. type is always NULL, and
 *                       max_download_count of the items 0
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the share has
 *         no item; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_notification_data(const char *contents_token, zel_trans_share_content_info **noti_info);

/**
 * Marks content items as downloaded.
 *
 * @param original the URL of the items' file (not of a thumbnail)
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when original is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_downloaded_content_info(const char *original);

/**
 * Finds the share that a URL belongs to.
 *
 * @param url            the URL of an item's file or of any of its three thumbnails; the first match counts
 * @param contents_token receives the share's contents token; stays untouched when it is empty
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when no item has
 *         the URL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_contents_token_content_info(const char *url, char **contents_token);

/**
 * Counts the items of a share that are not downloaded yet. Here a count of zero, also for an unknown share, is a
 * success.
 *
 * @param contents_token the share
 * @param count          receives the number of items
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the database
 *         gave no answer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_content_info_not_downloaded_count(const char *contents_token, int *count);

/**
 * Records on every item of a share what the sender has reported of it.
 *
 * @param contents_token the share
 * @param status         the report
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when contents_token is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_content_info(const char *contents_token, quillo_push_status_e status);

/* Transfers -------------------------------------------------------------------------------------------------- */

/*
 * A transfer is born in the status that its record carries and moves only when the service says so; the store refuses
 * no move.
 *
 * Failure. An upload is marked as failed with _common_storage_update_status_sync_content_info, so that it stays with
 * its request. _common_storage_set_failed_status_sync_content_info also detaches it, for good: a request of two files
 * then counts as finished when the other one is, and a retry does not come back to it.
 *
 * Retry. Read the record, raise fail_retry_count, set the new status and write it back with
 * _common_storage_update_sync_content_info. A text that was empty was read as NULL: make it "" again, or the statement
 * fails.
 */

/** Kind of a transfer: what it moves. */
typedef enum ZEL_ENUM_INT {
    ZEL_UNKNOWN = 0,            /**< no kind. It stands for every kind in _common_storage_get_sync_content_info_list and
                                     its _by_req_id form; all other operations take it literally */
    ZEL_UPLOAD_FILE = 1,        /**< a file of an upload request, sent to the server in chunks */
    ZEL_DOWNLOAD_THUMBNAIL = 2, /**< a thumbnail of a received share */
    ZEL_DOWNLOAD_FILE = 3       /**< a file of a received share */
} zel_file_sync_type;

/**
 * Where a transfer stands. What waits or goes on can be paused, what is paused in either way can be resumed, and all
 * four can be cancelled. The other two are finished; a failed one is retried until its fail_retry_count passes 5.
 */
typedef enum ZEL_ENUM_INT {
    ZEL_SYNC_TODO = 0,        /**< waiting */
    ZEL_SYNC_ONGOING = 1,     /**< being transferred */
    ZEL_SYNC_FAILED = 2,      /**< failed */
    ZEL_SYNC_PAUSED = 3,      /**< paused while it was being transferred */
    ZEL_SYNC_PAUSED_TODO = 4, /**< paused before it had started */
    ZEL_SYNC_COMPLETE = 5     /**< transferred */
} zel_file_sync_status;

/** The transfer of one file, whose size is not kept. A record that the store hands out owns its strings. */
typedef struct zel_content_sync_info {
    unsigned int sync_id;          /**< the transfer's id, given by the store */
    zel_file_sync_type type;       /**< what is moved */
    zel_file_sync_status status;   /**< where it stands */
    unsigned int content_id;       /**< the received content item that a download belongs to */
    unsigned int req_id;           /**< the request that owns the transfer; 0 once a failure has detached it */
    unsigned int wifi_only;        /**< 1: only over Wi-Fi; 0: over any network */
    unsigned int fail_retry_count; /**< retries after a failure so far */
    unsigned int percentage;       /**< progress in percent */
    unsigned int offset;           /**< where a chunked upload resumes, in bytes */
    int chunk_no;                  /**< chunk number of a chunked upload */
    unsigned long long sent_time;  /**< when the transfer was last started, in seconds since the epoch */
    char *contents_token;          /**< token of the share that the file belongs to */
    char *original;                /**< download: where the file is fetched from; upload: its public URL once known */
    char *thumbnail;               /**< location of the thumbnail */
    char *name;                    /**< file name */
    char *local_path;              /**< path of the file on the device */
    char *mupload_key;             /**< opaque key of a chunked upload */
} zel_content_sync_info;

/**
 * Stores a new transfer.
 *
 * @param content_sync_info the transfer; a NULL string is stored as the empty string. Receives its id in sync_id (on
 *                          success only), and the current time in sent_time if that is 0 (also when the insert fails)
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when the record is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_sync_content_info(zel_content_sync_info *content_sync_info);

/**
 * Rewrites the transfer with the record's sync_id: everything but percentage, local_path, mupload_key and the content
 * type, which keep what is stored. This is how a retry is counted.
 *
 * @param sync_info the record; contents_token, original, thumbnail and name must be there ("" is enough), or the
 *                  statement fails. Receives the current time in sent_time, also when the statement fails
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when the record is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_sync_content_info(zel_content_sync_info *sync_info);

/**
 * Marks a transfer as failed and detaches it from its request (not for uploads: see above). Its req_id and sent_time
 * become 0: questions about the request no longer see it, the lists of failed transfers do.
 *
 * @param sync_id the transfer
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_set_failed_status_sync_content_info(int sync_id);

/**
 * Sets the status of a transfer.
 *
 * @param sync_id the transfer
 * @param status  its new status
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_sync_content_info(int sync_id, zel_file_sync_status status);

/**
 * Sets the status of a transfer if it is in the expected one; the test and the change are one step.
 *
 * @param sync_id         the transfer
 * @param status          its new status
 * @param previous_status the status it must have
 * @return ZEL_ERR_NONE, also when it was in another status; ZEL_ERR_INVALID_ARG when sync_id is not above 0;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_sync_content_info_by_sync_id(int sync_id, zel_file_sync_status status,
                                                                     zel_file_sync_status previous_status);

/**
 * Sets the status of every transfer of a request, whatever it was. (The _by_req_id form asks for the status it was in.)
 *
 * @param req_id the request
 * @param status the new status
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_sync_content_info_by_reqid(unsigned int req_id, zel_file_sync_status status);

/**
 * Sets the status of those transfers of a request that are in the expected one.
 *
 * @param req_id          the request
 * @param status          the new status
 * @param previous_status the status that is left
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_sync_content_info_by_req_id(int req_id, zel_file_sync_status status,
                                                                    zel_file_sync_status previous_status);

/**
 * Moves all transfers of a kind from one status to another, whatever their request.
 *
 * @param type           the kind
 * @param current_status the status that is left
 * @param set_status     the new status
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_set_all_status_sync_content_info(zel_file_sync_type type, zel_file_sync_status current_status,
                                                           zel_file_sync_status set_status);

/**
 * Records the progress of a transfer.
 *
 * @param sync_id    the transfer
 * @param percentage progress in percent
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_percentage_sync_content_info(int sync_id, unsigned int percentage);

/**
 * Records where a chunked upload resumes.
 *
 * @param sync_id  the transfer
 * @param offset   offset in bytes
 * @param chunk_no chunk number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_upload_info(int sync_id, unsigned int offset, int chunk_no);

/**
 * Records the public URL and content type of an uploaded file.
 *
 * @param sync_id      the transfer
 * @param public_url   the URL; NULL is stored as the empty string
 * @param content_type the content type; NULL is stored as no value, which keeps the file out of
 *                     _common_storage_get_sync_content_info_url_list
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_url_info(unsigned int sync_id, const char *public_url, const char *content_type);

/**
 * Records one public URL and content type on every transfer of a request.
 *
 * @param req_id       the request
 * @param public_url   as for _common_storage_update_url_info
 * @param content_type as for _common_storage_update_url_info
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_url_info_by_reqid(unsigned int req_id, const char *public_url,
                                                   const char *content_type);

/**
 * Says over which network the transfers of a request may run.
 *
 * @param req_id    the request
 * @param wifi_only 1: only over Wi-Fi; 0: over any network
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_wifi_only_by_req_id(int req_id, unsigned int wifi_only);

/**
 * Records the key of a chunked upload.
 *
 * @param sync_id     the transfer
 * @param mupload_key the key; NULL removes it
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_mupload_key_sync_content_info(int sync_id, const char *mupload_key);

/**
 * Removes a transfer.
 *
 * @param sync_id the transfer
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_sync_content_info(unsigned int sync_id);

/**
 * Removes every transfer of a request.
 *
 * @param req_id the request
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_sync_content_info_by_req_id(unsigned int req_id);

/**
 * Removes every transfer of a kind.
 *
 * @param type the kind
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_sync_content_info_based_on_sync_type(zel_file_sync_type type);

/**
 * Removes the transfers of a request that have a kind and a status.
 *
 * @param req_id the request; 0 means the transfers that belong to none
 * @param type   the kind
 * @param status the status
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_sync_content_info_based_on_param(unsigned int req_id, zel_file_sync_type type,
                                                                  zel_file_sync_status status);

/**
 * Releases a transfer record that the store handed out, with its strings; also as the element release of a list.
 *
 * @param data the zel_content_sync_info; NULL is only logged
 */
void _common_storage_free_sync_content_info(void *data);

/* Transfer counts -------------------------------------------------------------------------------------------- */

/* A count of zero is reported as a failure code with the output untouched, never as a zero. */

/**
 * Counts the transfers of a kind in a status.
 *
 * @param type          the kind
 * @param status        the status
 * @param consider_fail 1: only those retried 1 to 5 times; 0: only those never retried; -1: retried or not
 * @param count         receives the number, at least 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_STORAGE_NO_RECORDS when the number is 0;
 *         ZEL_ERR_STORAGE_FAILURE, also for any other consider_fail
 */
zel_err_e _common_storage_get_sync_content_info_count(zel_file_sync_type type, zel_file_sync_status status,
                                                      int consider_fail, int *count);

/**
 * Counts the transfers of a kind in a status that belong to one request.
 *
 * @param type          the kind
 * @param status        the status
 * @param consider_fail as for _common_storage_get_sync_content_info_count
 * @param count         receives the number, at least 1
 * @param req_id        the request
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL or req_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the number
 *         is 0; ZEL_ERR_STORAGE_FAILURE, also for any other consider_fail
 */
zel_err_e _common_storage_get_sync_content_info_count_for_req_id(zel_file_sync_type type, zel_file_sync_status status,
                                                                 int consider_fail, int *count, unsigned int req_id);

/**
 * Counts the transfers of a request that are still to be done: waiting, running or paused.
 *
 * @param type   the kind
 * @param count  receives the number, at least 1
 * @param req_id the request
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL or req_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the number
 *         is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_remaining_syncable_count_for_req_id(zel_file_sync_type type, int *count,
                                                                                    unsigned int req_id);

/**
 * Counts the transfers of a request that have not failed. Completed ones count too.
 *
 * @param type   the kind
 * @param count  receives the number, at least 1
 * @param req_id the request
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL or req_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the number
 *         is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_remaining_thumbnail_count_for_req_id(zel_file_sync_type type,
                                                                                     int *count, unsigned int req_id);

/**
 * Counts the transfers of a kind that a pause can touch: waiting or running, retried or not.
 *
 * @param type  the kind
 * @param count receives the number, at least 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the number is 0;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_pausable_cnt_by_sync_type(zel_file_sync_type type, unsigned int *count);

/**
 * Counts the transfers of a kind that a resume or a cancel can touch: waiting, running or paused, retried or not.
 *
 * @param type  the kind
 * @param count receives the number, at least 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the number is 0;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_resumable_and_cancellable_cnt_by_sync_type(zel_file_sync_type type, unsigned int *count);

/**
 * Tells how many of the 10 places of a batch, the transfers of a kind that go on at once, are free.
 *
 * @param type       the kind of transfer
 * @param status     the status that takes up a place
 * @param fail_retry true: places are taken by transfers retried 1 to 5 times; false: by those never retried
 * @return the number of free places, 0 to 10: a number, not a result code, in spite of its type. It is 10 also when the
 *         store could not be asked
 */
zel_err_e _common_storage_get_batch_count(zel_file_sync_type type, zel_file_sync_status status, bool fail_retry);

/**
 * Tells whether every transfer of a request is finished: complete or failed. True for a request without transfers,
 * stored or not. Two counts are compared: if the second cannot be read, the answer is false.
 *
 * @param req_id        the request
 * @param all_completed receives the answer
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or all_completed NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when
 *         the database gave no answer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_check_all_file_completed_by_req_id(int req_id, bool *all_completed);

/**
 * Tells whether every transfer of a request has failed; otherwise like
 * _common_storage_check_all_file_completed_by_req_id, also for a request without transfers.
 *
 * @param req_id     the request
 * @param all_failed receives the answer
 * @return as _common_storage_check_all_file_completed_by_req_id
 */
zel_err_e _common_storage_check_all_file_failed_by_req_id(int req_id, bool *all_failed);

/* Transfer queries ------------------------------------------------------------------------------------------- */

/*
 * Lists of records hold zel_content_sync_info; release them with
 * g_list_free_full(list, _common_storage_free_sync_content_info). A record that cannot be allocated is left out; a list
 * without any is NULL, with ZEL_ERR_NONE.
 */

/**
 * Lists transfers in a status. Asked for ZEL_SYNC_FAILED it gives the candidates for a retry: those retried at most 5
 * times, least retried first.
 *
 * @param type              the kind, or ZEL_UNKNOWN for every kind
 * @param status            the status
 * @param content_info_list receives the list
 * @param limit             the most transfers to list; negative for all
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when content_info_list is NULL; ZEL_ERR_STORAGE_NO_RECORDS when there is
 *         none; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_list(zel_file_sync_type type, zel_file_sync_status status,
                                                     GList **content_info_list, int limit);

/**
 * Lists the transfers of one request in a status; ZEL_SYNC_FAILED as in _common_storage_get_sync_content_info_list.
 *
 * @param type              the kind, or ZEL_UNKNOWN for every kind
 * @param status            the status
 * @param content_info_list receives the list
 * @param req_id            the request; 0 means the transfers that belong to none, among them those detached by
 *                          _common_storage_set_failed_status_sync_content_info
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when content_info_list is NULL; ZEL_ERR_STORAGE_NO_RECORDS when there is
 *         none; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_list_by_req_id(zel_file_sync_type type, zel_file_sync_status status,
                                                               GList **content_info_list, int req_id);

/**
 * Lists the transfers of one request and kind, whatever their status.
 *
 * @param type              the kind
 * @param content_info_list receives the list
 * @param req_id            the request
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when content_info_list is NULL; ZEL_ERR_STORAGE_NO_RECORDS when there is
 *         none; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_list_only_by_req_id(zel_file_sync_type type, GList **content_info_list,
                                                                    int req_id);

/**
 * Reads the transfer of a received content item; the last one when there are several.
 *
 * @param content_id the item
 * @param type       the kind of transfer
 * @param sync_info  receives a new record, released with _common_storage_free_sync_content_info
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_info is NULL; ZEL_ERR_STORAGE_NO_RECORDS when there is none;
 *         ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info(int content_id, zel_file_sync_type type,
                                                zel_content_sync_info **sync_info);

/**
 * Reads a transfer.
 *
 * @param sync_id   the transfer
 * @param sync_info receives a new record, released with _common_storage_free_sync_content_info
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_info is NULL; ZEL_ERR_STORAGE_NO_RECORDS when it is absent;
 *         ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_by_sync_id(int sync_id, zel_content_sync_info **sync_info);

/**
 * Lists the requests that a pause or a resume can touch, in the order of their transfers. Only transfers never retried
 * count; neighbours of one request give one entry, but a request can appear again further on.
 *
 * @param type        the kind of transfer
 * @param req_id_list receives an array of request ids
 * @param count       receives the number of ids
 * @param is_pause    true: waiting or running transfers; false: paused ones
 * @return ZEL_ERR_NONE, also (with a NULL array and count 0) when memory ran out on the way or only the request 0 was
 *         found; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is no such
 *         transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_req_id_by_sync_type_and_status(zel_file_sync_type type, unsigned int **req_id_list,
                                                             unsigned int *count, bool is_pause);

/**
 * Lists the requests that a resume or a cancel can touch, with waiting, running or paused transfers; otherwise like
 * _common_storage_get_req_id_by_sync_type_and_status.
 *
 * @param type        the kind of transfer
 * @param req_id_list receives an array of request ids
 * @param count       receives the number of ids
 * @return as _common_storage_get_req_id_by_sync_type_and_status
 */
zel_err_e _common_storage_get_resumable_and_cancellable_req_id_by_sync_type(zel_file_sync_type type,
                                                                            unsigned int **req_id_list,
                                                                            unsigned int *count);

/**
 * Lists the public URL and content type of each file of a request. A file without a content type (see
 * _common_storage_update_url_info) is left out, an empty one is listed as an empty string.
 *
 * @param req_id   the request
 * @param url_list receives a list of zel_trans_url_info, released with
 *                 g_list_free_full(list, _common_free_url_info); NULL when every file was left out
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0 or url_list is NULL; ZEL_ERR_STORAGE_NO_RECORDS
 *         when the request has no transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_url_list(int req_id, GList **url_list);

/**
 * Reads the original of a transfer: where a download comes from, or the public URL of an upload.
 *
 * @param sync_id  the transfer
 * @param original receives the text
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when original is NULL; ZEL_ERR_STORAGE_NO_RECORDS when the transfer is
 *         absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_original_by_sync_id(int sync_id, char **original);

/**
 * Reads the key of a chunked upload.
 *
 * @param sync_id     the transfer
 * @param mupload_key receives the key
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when mupload_key is NULL or sync_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         transfer is absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_mupload_key_by_sync_id(unsigned int sync_id, char **mupload_key);

/**
 * Reads the thumbnail location of a transfer, not its local_path, in spite of the name. The local path is in the
 * record of _common_storage_get_sync_content_info_by_sync_id.
 *
 * @param sync_id    the transfer
 * @param local_path receives the thumbnail's location
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when local_path is NULL or sync_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         transfer is absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_local_path_by_sync_id(unsigned int sync_id, char **local_path);

/**
 * Reads the progress of a transfer.
 *
 * @param sync_id    the transfer
 * @param percentage receives the progress in percent
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when percentage is NULL or sync_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         transfer is absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_percentage_by_sync_id(unsigned int sync_id, unsigned int *percentage);

/**
 * Reads where a chunked upload resumes.
 *
 * @param sync_id  the transfer
 * @param offset   receives the offset in bytes
 * @param chunk_no receives the chunk number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL or sync_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         transfer is absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_info(int sync_id, unsigned int *offset, int *chunk_no);

/**
 * Tells whether a transfer may run only over Wi-Fi.
 *
 * @param sync_id   the transfer
 * @param wifi_only receives true exactly when the stored value is 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when wifi_only is NULL; ZEL_ERR_STORAGE_NO_RECORDS when the transfer is
 *         absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_wifi_only_by_sync_id(int sync_id, bool *wifi_only);

/**
 * Tells whether a request's first transfer may run only over Wi-Fi.
 *
 * @param req_id    the request
 * @param wifi_only receives true exactly when the stored value is 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when wifi_only is NULL; ZEL_ERR_STORAGE_NO_RECORDS when the request has no
 *         transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_wifi_only_by_req_id(int req_id, bool *wifi_only);

/**
 * Reads the kind of a request's first transfer.
 *
 * @param req_id    the request
 * @param sync_type receives a zel_file_sync_type value
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_type is NULL; ZEL_ERR_STORAGE_NO_RECORDS when the request has no
 *         transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_type_by_req_id(int req_id, int *sync_type);

/**
 * Reads when a request's first transfer was started.
 *
 * @param req_id    the request
 * @param sent_time receives the time in seconds since the epoch, cut to 32 bits
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or sent_time NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request has no transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sent_time_by_req_id(int req_id, int *sent_time);

/**
 * Reads what is needed to send a request's files once more: when its first transfer was started, and the local path of
 * every file that has one.
 *
 * @param req_id      the request
 * @param sent_time   receives the time in seconds since the epoch, cut to 32 bits
 * @param local_paths receives an array of paths; NULL when no file has one
 * @param count       receives the number of paths
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or an output NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request has no transfer; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sent_time_local_path_by_req_id(int req_id, int *sent_time, char ***local_paths,
                                                             int *count);

/* Uploads ---------------------------------------------------------------------------------------------------- */

/*
 * An upload is a request with its recipients and one transfer for each file, stored one by one under the same id. Store
 * the transfers and recipients first and the request last: a request whose transfers are missing counts as completed,
 * whereas transfers whose request is missing (_common_storage_get_upload_status says so) show that a kill came between.
 */

/** An upload request as it is stored. The record and its strings are the caller's. */
typedef struct zel_upload_request_info {
    unsigned int unique_id;          /**< the stored request's row id, given by the store */
    unsigned int req_id;             /**< the request's id, by which every operation finds it */
    unsigned int file_count;         /**< number of files */
    quillo_upload_status_e status;   /**< upload status */
    unsigned int receiver_count;     /**< number of recipients */
    unsigned long long expired_time; /**< expiry of the share, in milliseconds since the epoch */
    unsigned long long total_size;   /**< size of all files together, in bytes */
    char *contents_token;            /**< token of the share; NULL until the server has issued it */
    quillo_app_type_e app_type;      /**< which client application made the request */
    char *from_ccc;                  /**< sender's country calling code; not stored */
    char *from_number;               /**< sender's number; not stored */
    char *description;               /**< the share's description; may be NULL */
    unsigned long long sent_time;    /**< when the request was stored, in seconds since the epoch */
} zel_upload_request_info;

/**
 * Stores a new upload request.
 *
 * @param upload_request_info the request. Receives its row id in unique_id (on success only) and the current time in
 *                            sent_time (also when the insert fails)
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when the record is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_upload_request_info(zel_upload_request_info *upload_request_info);

/**
 * Records the token and expiry that the server has issued for a request.
 *
 * @param req_id         the request
 * @param contents_token the share's token
 * @param expired_time   its expiry, in milliseconds since the epoch
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0 or contents_token is NULL;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_contents_token_info(int req_id, const char *contents_token,
                                                     unsigned long long expired_time);

/**
 * Sets the status of a request.
 *
 * @param req_id the request
 * @param status its new status
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_upload_status(int req_id, quillo_upload_status_e status);

/**
 * Sets the expiry of a request.
 *
 * @param req_id      the request
 * @param expiry_time its expiry, in milliseconds since the epoch
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_expiry_time(int req_id, unsigned long long expiry_time);

/**
 * Stores one recipient of a request. The request need not be stored yet, and its receiver_count is not changed.
 *
 * @param req_id    the request
 * @param phone_no  the recipient's number
 * @param ccc       the country calling code, without a plus sign; may be empty
 * @param number_id the number's id
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or a text NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_upload_receiver_details(unsigned int req_id, const char *phone_no, const char *ccc,
                                                      int number_id);

/**
 * Reads the number of files of a request.
 *
 * @param req_id the request
 * @param count  receives the number; set to 0 on every failure but a rejected argument
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or count NULL; ZEL_ERR_STORAGE_NO_RECORDS when the request
 *         is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_content_count(unsigned int req_id, int *count);

/**
 * Reads the size of a request's files together.
 *
 * @param req_id the request
 * @param size   receives the size in bytes
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or size NULL; ZEL_ERR_STORAGE_NO_RECORDS when the request
 *         is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_total_size(unsigned int req_id, unsigned long long *size);

/**
 * Reads the expiry of a request.
 *
 * @param req_id      the request
 * @param expire_time receives the expiry, in milliseconds since the epoch
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or expire_time NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_expire_time(unsigned int req_id, unsigned long long *expire_time);

/**
 * Reads the token of a request's share.
 *
 * @param req_id         the request
 * @param contents_token receives the token; stays untouched while there is none
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or contents_token NULL; ZEL_ERR_STORAGE_NO_RECORDS when
 *         the request is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_contents_token(unsigned int req_id, char **contents_token);

/**
 * Reads the status of a request.
 *
 * @param req_id the request
 * @param status receives a quillo_upload_status_e value
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or status NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_status(unsigned int req_id, int *status);

/**
 * Reads which application made a request, and the share's description.
 *
 * @param req_id      the request
 * @param app_type    receives a quillo_app_type_e value
 * @param description receives the description, and stays untouched when there is none; may be NULL
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or app_type NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_app_info(unsigned int req_id, unsigned int *app_type, char **description);

/**
 * Finds the request of a share.
 *
 * @param contents_token the share; the first request with it counts
 * @param req_id         receives the request's id; set to 0 on every failure
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_STORAGE_NO_RECORDS when no request has
 *         the token; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_reqid_from_contents_token(const char *contents_token, unsigned int *req_id);

/**
 * Lists the requests of an application, the latest first.
 *
 * @param app_type         the application; APP_TYPE_NONE (0) for all
 * @param request_id_list  receives an array of request ids
 * @param request_id_count receives the number of ids
 * @return ZEL_ERR_NONE, also (with a NULL array and a count of 0) when memory ran out on the way; -1, which is no
 *         enumerator, when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is none;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_request_id_list(quillo_app_type_e app_type, unsigned int **request_id_list,
                                              unsigned int *request_id_count);

/*
 * The three lists below count first and list then. Their array has exactly as many places as were counted: rows added
 * in between are not listed, and places of rows removed in between hold 0.
 */

/**
 * Lists every request.
 *
 * @param upload_list receives an array of request ids
 * @param count       receives the number of its places
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is none;
 *         ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_list_details(unsigned int **upload_list, unsigned int *count);

/**
 * Lists the requests that can be resumed or cancelled: all but the failed, the cancelled and those whose share is
 * finished (QUILLO_UPLOAD_STATUS_SHARE_FINISHED). A request whose files are done (QUILLO_UPLOAD_STATUS_FINISHED) is
 * listed, and so is a recalled one.
 *
 * @param app_type    a bit set: with both of its lowest bits, as in 3, requests of every application; any other value
 *                    selects the requests stored with just that value. So 0 does not mean all, and
 *                    MOSAIC_EVENT_APP_TYPE, which is 3, does
 * @param upload_list receives an array of request ids
 * @param count       receives the number of its places
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is none;
 *         ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt(unsigned int app_type,
                                                                              unsigned int **upload_list,
                                                                              unsigned int *count);

/**
 * Lists the requests that failed or were cancelled.
 *
 * @param app_type    as for _common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt
 * @param upload_list receives an array of request ids
 * @param count       receives the number of its places
 * @return as _common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt
 */
zel_err_e _common_storage_get_failed_and_cancelled_upload_req_id_and_cnt(unsigned int app_type,
                                                                         unsigned int **upload_list,
                                                                         unsigned int *count);

/**
 * Counts the requests, of every application, that can be resumed or cancelled.
 *
 * @param count receives the number, at least 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the number is 0;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_resumable_and_cancellable_upload_cnt(unsigned int *count);

/**
 * Adds up files and bytes of recent requests: those whose share expires no earlier than 48 hours from now less the
 * given hours. With 48 hours these are the requests whose share has not expired yet.
 *
 * @param time_duration_hr    the hours; as seconds they must fit in 32 bits
 * @param get_total_file_size receives the number of bytes
 * @param get_total_file_num  receives the number of files
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is no such
 *         request, or either total is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_time_upload_total_file_static_hr(unsigned int time_duration_hr,
                                                               unsigned long long *get_total_file_size,
                                                               unsigned int *get_total_file_num);

/* Upload report ---------------------------------------------------------------------------------------------- */

/**
 * Removes a request and its transfers; its recipients stay stored.
 *
 * @param req_id the request
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0; ZEL_ERR_STORAGE_FAILURE when either deletion failed, the
 *         other one being done all the same
 */
zel_err_e _common_storage_delete_upload_info(unsigned int req_id);

/**
 * Removes the transfers of a recalled share; the request and its recipients stay stored.
 *
 * @param contents_token the share, never "": that names the first request without a token. Of several requests with one
 *                       token, too, only the first is found
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when contents_token is NULL, or when the request found has the id 0;
 *         ZEL_ERR_STORAGE_NO_RECORDS when no request has the token; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_recalled_contents(const char *contents_token);

/**
 * Puts together the report of a request: its own data, its recipients and the local paths of its files (none for a
 * recalled share, an empty text for a file without a path).
 *
 * The report is handed out, with an empty file list, even when the code is that of a failed read of the files. So set
 * the output to NULL before the call, and test it rather than the code.
 *
 * @param request_id  the request
 * @param upload_info receives a new report, released with _common_free_upload_info. A place of msisdn_list is NULL when
 *                    fewer recipients are stored than the request has; contents_token is "" while there is none
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when request_id is 0 or upload_info NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST
 *         when the request or its recipients are not stored, or its receiver_count is 0; ZEL_ERR_STORAGE_NO_RECORDS
 *         when the stored token is NULL, which this library never writes; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE. With
 *         the report handed out: the code of _common_storage_get_sync_content_info_file_path_list, which is
 *         ZEL_ERR_STORAGE_NO_RECORDS for a request without transfers and ZEL_ERR_INVALID_ARG for an id above INT_MAX
 */
zel_err_e _common_storage_get_upload_data(unsigned int request_id, zel_trans_upload_info **upload_info);

/**
 * Lists the recipients of a request.
 *
 * @param req_id                       the request
 * @param upload_receiver_list_details receives an array of records; release each place that is not NULL (ccc,
 *                                     phone_number, record) and the array with g_free. group_id is 0
 * @param count                        receives the number of places: the receiver_count of the request, not the number
 *                                     of recipients stored. Places without a recipient are NULL, recipients without a
 *                                     place are not listed
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or an output NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the
 *         request is not stored, has a receiver_count of 0, or no recipient is stored; ZEL_ERR_MEMORY;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_recievers_details(unsigned int req_id,
                                                       quillo_msisdn_s ***upload_receiver_list_details,
                                                       unsigned int *count);

/**
 * Fills in the file_path_list of a report with the local paths of a request's files.
 *
 * @param req_id      the request
 * @param upload_info the report; what its file_path_list held is overwritten, not released. The list becomes the
 *                    report's and holds one text for each file, an empty one for a file without a path
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0 or upload_info is NULL;
 *         ZEL_ERR_STORAGE_NO_RECORDS when the request has no transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_file_path_list(int req_id, zel_trans_upload_info *upload_info);

/**
 * Lists the recipients of a request as texts: a plus sign, the country calling code and the number, or the number alone
 * when there is no calling code.
 *
 * @param req_id           the request
 * @param receipients_count number of places wanted, at least 1; further recipients are not listed
 * @param receipients      receives an array of that many texts; a place is NULL when its recipient has no number or
 *                         there are fewer recipients
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when a number is 0 or the output NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when
 *         no recipient is stored; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_receipients_details(unsigned int req_id, unsigned int receipients_count,
                                                         char ***receipients);

/**
 * Lists the local paths of a request's files, of those that have one.
 *
 * @param req_id            the request
 * @param content_path_list receives an array of paths; places left over are NULL
 * @param length            receives the number of places: the file_count of the request, not the number of paths
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or an output NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the
 *         request is not stored, has a file_count of 0, or has no transfer; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_content_path_list(unsigned int req_id, char ***content_path_list,
                                                       unsigned int *length);

/**
 * Counts the transfers that were started at a time. Here a count of zero is a success.
 *
 * @param sent_time     the time, in seconds since the epoch
 * @param matched_count receives the number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sent_time is 0 or matched_count NULL; ZEL_ERR_STORAGE_NO_RECORDS when
 *         the database gave no answer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_matched_count_by_sent_time(int sent_time, int *matched_count);

/**
 * Tells whether a request's share has been sent again: whether more transfers, of any request, carry its start time
 * than it has files.
 *
 * @param req_id             the request
 * @param sent_time          its start time, in seconds since the epoch
 * @param does_reshare_exist receives the answer; false on every failure but a rejected argument
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when a number is 0 or the output NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request is not stored or has fewer transfers than files; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_does_reshare_exist(unsigned int req_id, int sent_time, bool *does_reshare_exist);

/* Recent receivers ------------------------------------------------------------------------------------------- */

/*
 * The recipient lists that were last shared to, as groups numbered from 1 to at most 9. To record the use of a list, on
 * one thread at a time:
 *
 *   1. _common_storage_is_recent_receiver_list_exist tells whether it is stored, and its number.
 *   2. If it is not: _common_storage_delete_recent_receiver_by_group for that number, since at nine groups the least
 *      recently used one is given away, then _common_storage_add_recent_receiver for each recipient.
 *   3. _common_storage_update_timestamp_recent_receiver_group, in either case.
 *
 * A lock that another process holds for an instant does harm: step 1 can take a stored list for a new one, even give it
 * the number of a group in use, whose members step 2 then removes; step 3 can store a group twice.
 *
 * Recency has a resolution of one second; of groups used within the same second, the one created later counts as the
 * more recent.
 */

/**
 * Looks up a recipient list among the stored groups, or finds the number to store it under.
 *
 * A group matches when it has as many members as the list and each member equals (number_id, phone_number and ccc) some
 * entry of the list, in any order: the members {A, A} match the list {A, B}. An empty list matches no group.
 *
 * @param to_msisdn_list        the recipients; not tested for NULL. An entry whose phone_number or ccc is NULL equals
 *                              no member: a calling code that was read as NULL must be "" again
 * @param to_msisdn_list_length their number
 * @param group_id              receives the number of the matching group, or the number to use: the next one, or, with
 *                              nine groups, that of the least recently used; not tested for NULL
 * @param exist                 receives true when a group matches; not tested for NULL
 * @return ZEL_ERR_NONE always; group 1, not existing, when the groups could not be read
 */
zel_err_e _common_storage_is_recent_receiver_list_exist(quillo_msisdn_s **to_msisdn_list,
                                                        unsigned int to_msisdn_list_length, int *group_id, bool *exist);

/**
 * Marks a group as used now, creating it when its number is above the number of groups.
 *
 * @param group_id the group's number, at most one above the number of groups; not tested
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_timestamp_recent_receiver_group(int group_id);

/**
 * Adds a member to a group.
 *
 * @param phone_no  the recipient's number
 * @param ccc       the country calling code
 * @param number_id the number's id
 * @param group_id  the group's number; not tested
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when a text is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_recent_receiver(const char *phone_no, const char *ccc, int number_id, int group_id);

/**
 * Removes the members of a group; the group itself stays.
 *
 * @param group_id the group's number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when the number is not 1 to 9; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_recent_receiver_by_group(int group_id);

/**
 * Removes the members of all groups; the groups stay, and numbers go on from them.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_clear_recent_receiver(void);

/**
 * Lists the members of all groups, the most recently used group first. A group that cannot be read is left out.
 *
 * @param recent_receiver_list_details receives an array of records; release ccc, phone_number and each record with
 *                                     g_free and the array with free. NULL when no group has members; a calling code
 *                                     that is empty is NULL
 * @param count                        receives the number of records
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is no
 *         group or the groups could not be counted; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_recent_receiver_details(quillo_msisdn_s ***recent_receiver_list_details,
                                                      unsigned int *count);

/**
 * Lists the numbers of the groups, the most recently used first.
 *
 * @param group_list receives an array of numbers; stays untouched when count is set to 0
 * @param count      receives the number of places: groups that vanish between the count and the list leave zeros. It is
 *                   0 when they were counted but their first row could not be read
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is no
 *         group or the groups could not be counted; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_recent_receiver_group_list(int **group_list, int *count);

/**
 * Counts the groups. Here a count of zero is a success.
 *
 * @param count receives the number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the database gave no
 *         answer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_recent_receiver_group_count(int *count);

/**
 * Counts the members of all groups together. Here a count of zero is a success.
 *
 * @param count receives the number
 * @return as _common_storage_get_recent_receiver_group_count
 */
zel_err_e _common_storage_get_recent_receiver_count(int *count);

/* Wipe ------------------------------------------------------------------------------------------------------- */

/**
 * Forgets the user's data: every notification, content item, transfer, upload request, recipient and recent receiver
 * group, and the values stored under "evt_refresh_token", "evt_access_token" and "evt_push_token". Folder records, all
 * other values and the tables themselves stay, and row ids go on from where they were.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE when at least one table could not be emptied, the others being emptied
 *         all the same; what became of the three values does not count
 */
zel_err_e _common_storage_clear(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
