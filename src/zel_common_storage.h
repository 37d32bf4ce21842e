/*
 * The persistent store: received shares and their push notifications, the progress of every file transfer, upload
 * requests and their recipients, recently used recipient groups, folder tokens and a key-value table, in one SQLite
 * database.
 *
 * Terms. An upload request sends files to recipients; the server makes a share of them, named by a contents token. A
 * notification announces a share that others send to this device; the share consists of content items. A transfer moves
 * one file in either direction.
 *
 * These rules hold unless an operation documents otherwise.
 *
 * Opening. Call _common_storage_init first, and wait for ZEL_ERR_NONE before any other thread uses the store. The
 * connection serves the whole process and is never closed. A child of fork() must not use it.
 *
 * Threads. After a successful init any thread may call any operation. The library takes no lock of its own; it relies
 * on SQLite's serialized mode. No other thread may use a record while an operation writes into it. Without a successful
 * init, threads that call the store at the same time can each open a connection. Never cancel a thread inside a store
 * call: it keeps SQLite's mutex, and every later store call of the process hangs.
 *
 * Statements. Each statement takes effect as a whole or not at all. There are no transactions: other writers can write
 * between the statements of one operation, and between a query and a later update. A stored change survives the end of
 * the process. A power cut can undo the last successful statement: by default SQLite removes its journal without
 * syncing the folder (docs/durability.md).
 *
 * Other processes. One process should own the database file; others ask that process (docs/several-programs.md). A
 * write that meets another process's lock is tried ten times, for about a millisecond, then fails. A query that meets a
 * lock looks empty: a first row that cannot be fetched counts as absent. Operations that act on such an answer document
 * the effect.
 *
 * Arguments. Every pointer is required. Texts are NUL-terminated byte strings; the library quotes them, so any
 * character is allowed. The caller keeps texts and records that it passes in. Counts, statuses, kinds and percentages
 * are stored without a range check. Use 2^63 - 1 for "never": a time of 2^63 or more can be read back changed, or count
 * as expired.
 *
 * Empty texts. A token, URL, name or path that was not given is stored as "". So never look up, update or delete by "":
 * every row without the text matches. On reading, an empty text becomes NULL in a record or array. A single output
 * stays untouched, and the call returns ZEL_ERR_NONE: set the output to NULL before the call. Keys and folder records
 * are returned as stored.
 *
 * Request ids. Use 1 to INT_MAX. 0 can be stored; operations that accept 0 use it for the transfers without a request.
 * Above INT_MAX, operations that take an int reject the id or find nothing, and the completion tests return true.
 * _common_storage_update_url_info_by_reqid succeeds without a change, as does _common_storage_update_url_info for such
 * a sync_id. The store does not keep ids unique: of two requests with one id, reads use the first; updates, deletions
 * and lists use both. So never use an id twice, not even after a kill interrupted the storing of its upload: its
 * recipients are still stored.
 *
 * Result codes.
 *   ZEL_ERR_NONE                   success. Also when an update or deletion matches no row, or a read fails after its
 *                                  first row: the list is then shorter, the sum smaller.
 *   ZEL_ERR_INVALID_ARG            an argument was rejected, before the database was used or by a later step of the
 *                                  operation.
 *   ZEL_ERR_MEMORY                 the result could not be allocated. A list leaves out single records that cannot be
 *                                  allocated. GLib ends the process when it cannot copy a string.
 *   ZEL_ERR_STORAGE_FAILURE        the statement failed: the database is missing, damaged, full or locked. The code is
 *                                  the same for a full disk and a lock; the trace has err[13] for full, err[5] for
 *                                  locked.
 *   ZEL_ERR_STORAGE_NO_RECORDS,
 *   ZEL_ERR_RESOURCE_DOESNT_EXIST  no row matches, or the first row could not be fetched. Treat the two codes alike:
 *                                  the operation decides which one it returns.
 * Each operation lists the codes that it can return.
 *
 * Outputs. They are written on success and stay untouched on every failure.
 *
 * Ownership. Every output is new and belongs to the caller. Release strings and arrays with g_free, an array's elements
 * first. Release two arrays with free instead: those of _common_storage_get_contents_token_list and
 * _common_storage_get_recent_receiver_details.
 *
 * Trace. Every operation logs its steps and failures (docs/log.md).
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
 * @param stmt the statement, invalid afterwards; NULL is ignored
 */
void __db_finalize(sqlite3_stmt *stmt);

/* Database --------------------------------------------------------------------------------------------------- */

/**
 * Opens the database file ".quillo_service.db" in the service's data directory, which must exist. Creates the file if
 * it is missing, then the missing tables, and writes the schema version.
 *
 * No other call of the store may run at the same time. After a success a further call does nothing; after a failure it
 * tries again. Call it first: it creates no table if another operation has already opened the connection. A failure to
 * write a table or the version is only logged; later statements on that table fail. This can happen to two processes
 * that start on a new file at the same time; _common_storage_db_create reports and repairs it.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_INIT_FAILURE when the file cannot be opened
 */
zel_err_e _common_storage_init(void);

/**
 * Writes the current schema version, 104, to the database, over any other version. Tables are not changed.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE when the version cannot be read or written
 */
zel_err_e _common_storage_db_upgrade(void);

/**
 * Reads the schema version.
 *
 * @param version receives the version; 0 when none was ever written
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when version is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e __common_storage_get_db_version(int *version);

/**
 * Tests whether the schema has a table, index, view or trigger with this name.
 *
 * @param table_name the name, case-sensitive
 * @return true when it exists; false when it does not, when the name is NULL, and when the query failed
 */
bool _common_storage_check_table_exist(const char *table_name);

/**
 * Creates the missing tables, out of nine. Existing tables are not changed. After a failed creation it still creates
 * the others.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE when at least one creation failed, for example because of another
 *         process's lock: then call it again
 */
zel_err_e _common_storage_db_create(void);

/* Key value -------------------------------------------------------------------------------------------------- */

/**
 * Called by _common_storage_upsert_and_involk_unique_data after the write; must not throw.
 *
 * @param key   the key, the same pointer as the operation's argument; must not be changed or released
 * @param value the value; the same rules
 */
typedef void (*quillo_storage_unique_data_involk_cb)(void *key, void *value);

/**
 * Stores a value and three extra values under a key, in place of the old ones.
 *
 * @param key   the key
 * @param val   the value; may be empty
 * @param resv0 first extra value; NULL is stored as the empty string
 * @param resv1 second extra value; NULL is stored as the empty string
 * @param resv2 third extra value; NULL is stored as the empty string
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
 * @param pointer called once with key and val, also after a failed write; not called after a rejected argument
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when key, val or pointer is NULL (nothing is written);
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_upsert_and_involk_unique_data(const char *key, const char *val, const char *resv0,
                                                        const char *resv1, const char *resv2,
                                                        quillo_storage_unique_data_involk_cb pointer);

/**
 * Reads the values of a key. Do not keep a counter in a key if another process uses the file: its lock makes the key
 * look absent, and the counter restarts at zero.
 *
 * @param key   the key
 * @param val   receives the value; an empty value as an empty string
 * @param resv0 receives the first extra value, empty when none was given; may be NULL
 * @param resv1 receives the second extra value, empty when none was given; may be NULL
 * @param resv2 receives the third extra value, empty when none was given; may be NULL
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
 * Merges values into a group's folder record. A NULL token or a zero time keeps the stored value. An empty token clears
 * the stored token; times cannot be cleared.
 *
 * The merge reads and writes in two statements. When two merges of one group overlap, the later write replaces the
 * whole record. A merge whose read meets another process's lock erases the values that it should keep.
 *
 * @param group_id                   the group
 * @param content_token              the group's contents token, or NULL
 * @param content_token_expired_time expiry of content_token in the caller's unit, or 0
 * @param folder_token               the folder token, or NULL
 * @param folder_token_expired_time  expiry of folder_token in the caller's unit, or 0
 * @param folder_sync_time           time of the last synchronisation in the caller's unit, or 0
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when group_id is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_upsert_folder_info(const char *group_id, const char *content_token,
                                             unsigned long long content_token_expired_time, const char *folder_token,
                                             unsigned long long folder_token_expired_time,
                                             unsigned long long folder_sync_time);

/**
 * Reads a group's folder record. Any output may be NULL.
 *
 * @param group_id                   the group
 * @param content_token              receives the contents token, which may be empty; NULL when none is stored
 * @param content_token_expired_time receives its expiry; 0 when none was given
 * @param folder_token               receives the folder token, which may be empty; NULL when none is stored
 * @param folder_token_expired_time  receives its expiry; 0 when none was given
 * @param folder_sync_time           receives the time of the last synchronisation; 0 when none was given
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when group_id is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the group has no
 *         record; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_folder_info(const char *group_id, char **content_token,
                                          unsigned long long *content_token_expired_time, char **folder_token,
                                          unsigned long long *folder_token_expired_time,
                                          unsigned long long *folder_sync_time);

/**
 * Tests whether a group has a folder token that is not empty.
 *
 * @param group_id the group
 * @param is_exist receives the answer; false on every failure except a rejected argument
 * @return ZEL_ERR_NONE when the group has a record, with or without a token; ZEL_ERR_INVALID_ARG when an argument is
 *         NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the group has no record; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_exist_folder_token(const char *group_id, bool *is_exist);

/**
 * Removes a group's folder record.
 *
 * @param group_id the group
 * @return ZEL_ERR_NONE, also when the group has no record; ZEL_ERR_INVALID_ARG when group_id is NULL;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_folder_info(const char *group_id);

/* Received shares -------------------------------------------------------------------------------------------- */

/*
 * A received share has one notification (unread, read or marked for deletion) and one row for each content item. Its
 * contents token joins them. Times have no fixed unit: pass a deletion's bound in the unit of the stored times. If a
 * share's expiry is 2^63 or more, a deletion of expired shares removes its items but not its notification.
 *
 * An operation that stores a notification, or the items of a share, first tests whether the token is stored. Two
 * writers at the same time, or a writer that meets another process's lock, can miss a stored token: then the share is
 * stored twice.
 *
 * No operation returns the type or the read state of one share. Instead test whether
 * _common_storage_get_contents_token_list lists the token for a type, or as unread.
 *
 * To delete expired shares as a whole: first delete the transfers of their thumbnails and files, which no other
 * deletion removes, then call _common_storage_delete_expired_push_noti. It deletes every share that expires before the
 * bound. No operation deletes one share; _common_storage_update_check_delete_push_noti hides it.
 */

/**
 * Tests whether a share's notification is stored, in any state.
 *
 * @param contents_token the share
 * @return true when it is; false when it is not, when the token is NULL, and when the query failed
 */
bool _common_storage_exist_push_noti(const char *contents_token);

/**
 * Stores the notification of a share as unread. A stored notification is not changed, even if it is marked for
 * deletion.
 *
 * @param contents_token the share
 * @param type           the share's type, which groups notifications; may be NULL
 * @param expired_time   expiry of the share
 * @param received_time  time of arrival
 * @return ZEL_ERR_NONE, also for a stored notification; ZEL_ERR_INVALID_ARG when contents_token is NULL;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_push_noti_info(const char *contents_token, const char *type,
                                             unsigned long long expired_time, unsigned long long received_time);

/**
 * Removes every notification that expires before a time, but not at that time. Then calls
 * _common_storage_delete_expired_content_info and ignores its result.
 *
 * @param current_time the bound
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE when the notifications could not be removed; then the items stay too
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
 * Marks every unread notification of a type as read. A notification without a type can never be marked as read.
 *
 * @param type the type
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when type is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_read_push_noti(const char *type);

/**
 * Marks a share's notification for deletion: it stays stored, but no list returns it any more. Delete its
 * transfers first. The items stay until they expire.
 *
 * @param contents_token the share
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when contents_token is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_check_delete_push_noti(const char *contents_token);

/**
 * Reads the time of arrival of a share's notification.
 *
 * @param contents_token the share
 * @param received_time  receives the time as stored
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the share has
 *         no notification; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_received_time_push_noti(const char *contents_token, unsigned long long *received_time);

/**
 * Lists the contents tokens of received shares, latest arrival first; arrivals of the same time in the order of
 * storing. Notifications marked for deletion and empty tokens are not listed.
 *
 * @param type                only notifications of this type; NULL for every type
 * @param except_read         true: only unread ones; false: read ones too
 * @param contents_token_list receives an array of tokens; release each with g_free and the array with free
 * @param length              receives the number of tokens
 * @return ZEL_ERR_NONE, also (with a NULL array and length 0) when memory ran out or all tokens are empty;
 *         ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is none;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_contents_token_list(const char *type, bool except_read, char ***contents_token_list,
                                                  unsigned int *length);

/**
 * Stores the content items of a received share, as not downloaded. Call it before _common_storage_add_push_noti_info:
 * a kill in between then leaves no notification without items.
 *
 * @param noti_info the share. Each stored item receives its row id in content_id; an item that could not be stored is
 *                  skipped and unchanged. The operation stores content_info_list; it ignores content_info_list_length
 *                  and the items' contents_token. push_status and max_download_count are not stored; type is stored,
 *                  but no operation returns it
 * @return ZEL_ERR_NONE, even if no item could be stored; ZEL_ERR_INVALID_ARG when noti_info is NULL, or when items of
 *         its contents token are stored already (nothing is added)
 */
zel_err_e _common_storage_add_notification(zel_trans_share_content_info *noti_info);

/**
 * Finds the name of a content item.
 *
 * @param url  the URL of the item's file or of one of its three thumbnails; the first match is used
 * @param name receives the name; stays untouched when the item has none
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when no item has
 *         the URL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_content_name(const char *url, char **name);

/**
 * Reads a share with its items. A share without items cannot be read.
 *
 * @param contents_token the share
 * @param noti_info      receives a new share, released with _common_free_share_content_info. Its type is always NULL,
 *                       the items' max_download_count 0: a service that passes the share on loses both
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
 * Finds the share of a URL.
 *
 * @param url            the URL of an item's file or of one of its three thumbnails; the first match is used
 * @param contents_token receives the share's contents token; stays untouched when it is empty
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when no item has
 *         the URL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_contents_token_content_info(const char *url, char **contents_token);

/**
 * Counts the items of a share that are not downloaded. Zero is a success, also for an unknown share.
 *
 * @param contents_token the share
 * @param count          receives the number of items
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the query
 *         returned no row; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_content_info_not_downloaded_count(const char *contents_token, int *count);

/**
 * Stores the sender's report on a share in each of its items.
 *
 * @param contents_token the share
 * @param status         the reported state
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when contents_token is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_content_info(const char *contents_token, quillo_push_status_e status);

/* Transfers -------------------------------------------------------------------------------------------------- */

/*
 * A transfer starts in the status of its record. Only the service changes the status; the store allows every change.
 *
 * Failure. Mark an upload as failed with _common_storage_update_status_sync_content_info, so that it stays with its
 * request. _common_storage_set_failed_status_sync_content_info also detaches the transfer from its request for ever. A
 * request of two files then counts as finished with the other file, and no query by request finds the failed one. If
 * you need that link later, store it under a key of your own.
 *
 * Retry. Read the record, increase fail_retry_count, set the new status and write it with
 * _common_storage_update_sync_content_info. The read returned empty texts as NULL: set these to "" first, or the
 * statement fails.
 */

/** Kind of a transfer. */
typedef enum ZEL_ENUM_INT {
    ZEL_UNKNOWN = 0,            /**< no kind. _common_storage_get_sync_content_info_list and its _by_req_id form take
                                     it as every kind, all other operations literally */
    ZEL_UPLOAD_FILE = 1,        /**< a file of an upload request, sent to the server in chunks */
    ZEL_DOWNLOAD_THUMBNAIL = 2, /**< a thumbnail of a received share */
    ZEL_DOWNLOAD_FILE = 3       /**< a file of a received share */
} zel_file_sync_type;

/**
 * Status of a transfer. A waiting or ongoing transfer can be paused, a paused one resumed, and each of these cancelled.
 * A complete transfer is final. A failed one counts as finished, but can be retried while its fail_retry_count is 5 or
 * less.
 */
typedef enum ZEL_ENUM_INT {
    ZEL_SYNC_TODO = 0,        /**< waiting */
    ZEL_SYNC_ONGOING = 1,     /**< in progress */
    ZEL_SYNC_FAILED = 2,      /**< failed */
    ZEL_SYNC_PAUSED = 3,      /**< paused while in progress */
    ZEL_SYNC_PAUSED_TODO = 4, /**< paused while waiting */
    ZEL_SYNC_COMPLETE = 5     /**< transferred */
} zel_file_sync_status;

/** The transfer of one file; the file's size is not stored. A record from the store owns its strings. */
typedef struct zel_content_sync_info {
    unsigned int sync_id;          /**< the transfer's id, given by the store */
    zel_file_sync_type type;       /**< kind of the transfer */
    zel_file_sync_status status;   /**< status */
    unsigned int content_id;       /**< content item of a download */
    unsigned int req_id;           /**< request of the transfer; 0 after a failure has detached it */
    unsigned int wifi_only;        /**< 1: only over Wi-Fi; 0: over any network */
    unsigned int fail_retry_count; /**< number of retries so far */
    unsigned int percentage;       /**< progress in percent */
    unsigned int offset;           /**< offset at which a chunked upload resumes, in bytes */
    int chunk_no;                  /**< chunk number of a chunked upload */
    unsigned long long sent_time;  /**< time of the last start, in seconds since the epoch */
    char *contents_token;          /**< token of the file's share */
    char *original;                /**< download: source URL; upload: public URL, after the upload */
    char *thumbnail;               /**< location of the thumbnail */
    char *name;                    /**< file name */
    char *local_path;              /**< path of the file on the device */
    char *mupload_key;             /**< opaque key of a chunked upload */
} zel_content_sync_info;

/**
 * Stores a new transfer.
 *
 * @param content_sync_info the transfer; a NULL string is stored as the empty string. On success it receives its id in
 *                          sync_id. If sent_time is 0 it receives the current time, also when the insert fails
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when the record is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_sync_content_info(zel_content_sync_info *content_sync_info);

/**
 * Updates the transfer with the record's sync_id, except its percentage, local_path, mupload_key and content type. A
 * service uses it to count a retry.
 *
 * @param sync_info the record; contents_token, original, thumbnail and name must not be NULL ("" is valid), or the
 *                  statement fails. sent_time receives the current time, also when the statement fails
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when the record is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_sync_content_info(zel_content_sync_info *sync_info);

/**
 * Marks a transfer as failed and detaches it from its request (not for uploads: see above). Its req_id and sent_time
 * become 0: queries by request no longer find it, the lists of failed transfers do.
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
 * Sets the status of a transfer if it has the expected one, in one statement.
 *
 * @param sync_id         the transfer
 * @param status          its new status
 * @param previous_status the expected status
 * @return ZEL_ERR_NONE, also when it has another status; ZEL_ERR_INVALID_ARG when sync_id is not above 0;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_sync_content_info_by_sync_id(int sync_id, zel_file_sync_status status,
                                                                     zel_file_sync_status previous_status);

/**
 * Sets the status of every transfer of a request. (The _by_req_id form changes only transfers in an expected status.)
 *
 * @param req_id the request
 * @param status the new status
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_sync_content_info_by_reqid(unsigned int req_id, zel_file_sync_status status);

/**
 * Sets the status of a request's transfers that have the expected status.
 *
 * @param req_id          the request
 * @param status          the new status
 * @param previous_status the expected status
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_status_sync_content_info_by_req_id(int req_id, zel_file_sync_status status,
                                                                    zel_file_sync_status previous_status);

/**
 * Moves all transfers of a kind, of every request, from one status to another.
 *
 * @param type           the kind
 * @param current_status the expected status
 * @param set_status     the new status
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_set_all_status_sync_content_info(zel_file_sync_type type, zel_file_sync_status current_status,
                                                           zel_file_sync_status set_status);

/**
 * Stores the progress of a transfer.
 *
 * @param sync_id    the transfer
 * @param percentage progress in percent
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_percentage_sync_content_info(int sync_id, unsigned int percentage);

/**
 * Stores the offset and chunk at which a chunked upload resumes.
 *
 * @param sync_id  the transfer
 * @param offset   offset in bytes
 * @param chunk_no chunk number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_upload_info(int sync_id, unsigned int offset, int chunk_no);

/**
 * Stores the public URL and content type of an uploaded file.
 *
 * @param sync_id      the transfer
 * @param public_url   the URL; NULL is stored as the empty string
 * @param content_type the content type; with NULL, _common_storage_get_sync_content_info_url_list leaves the file out
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sync_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_url_info(unsigned int sync_id, const char *public_url, const char *content_type);

/**
 * Stores one public URL and content type in every transfer of a request.
 *
 * @param req_id       the request
 * @param public_url   as for _common_storage_update_url_info
 * @param content_type as for _common_storage_update_url_info
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_url_info_by_reqid(unsigned int req_id, const char *public_url,
                                                   const char *content_type);

/**
 * Sets the networks that the transfers of a request may use.
 *
 * @param req_id    the request
 * @param wifi_only 1: only over Wi-Fi; 0: over any network
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_wifi_only_by_req_id(int req_id, unsigned int wifi_only);

/**
 * Stores the key of a chunked upload.
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
 * @param req_id the request; 0 for the transfers without one
 * @param type   the kind
 * @param status the status
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_sync_content_info_based_on_param(unsigned int req_id, zel_file_sync_type type,
                                                                  zel_file_sync_status status);

/**
 * Releases a transfer record of the store with its strings; g_list_free_full can call it.
 *
 * @param data the zel_content_sync_info; NULL is only logged
 */
void _common_storage_free_sync_content_info(void *data);

/* Transfer counts -------------------------------------------------------------------------------------------- */

/* A count of zero is a failure code, with the output untouched. */

/**
 * Counts the transfers that have a kind and a status.
 *
 * @param type          the kind
 * @param status        the status
 * @param consider_fail 1: only transfers retried 1 to 5 times; 0: only transfers never retried; -1: any number of
 *                      retries
 * @param count         receives the number, at least 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_STORAGE_NO_RECORDS when the number is 0;
 *         ZEL_ERR_STORAGE_FAILURE, also for any other consider_fail
 */
zel_err_e _common_storage_get_sync_content_info_count(zel_file_sync_type type, zel_file_sync_status status,
                                                      int consider_fail, int *count);

/**
 * Counts the transfers of one request that have a kind and a status.
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
 * Counts the unfinished transfers of a request: waiting, ongoing or paused.
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
 * Counts the transfers of a kind that can be paused: waiting or ongoing, retried or not.
 *
 * @param type  the kind
 * @param count receives the number, at least 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the number is 0;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_pausable_cnt_by_sync_type(zel_file_sync_type type, unsigned int *count);

/**
 * Counts the transfers of a kind that can be resumed or cancelled: waiting, ongoing or paused, retried or not.
 *
 * @param type  the kind
 * @param count receives the number, at least 1
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the number is 0;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_resumable_and_cancellable_cnt_by_sync_type(zel_file_sync_type type, unsigned int *count);

/**
 * Returns the number of free places in a batch of 10 transfers of one kind.
 *
 * The limit is only advice. First attempts and retries have 10 places each, and a transfer with more than 5 retries
 * takes no place: more than 20 transfers of a kind can be ongoing at the same time.
 *
 * @param type       the kind of transfer
 * @param status     the status that takes a place
 * @param fail_retry true: transfers retried 1 to 5 times take a place; false: transfers never retried do
 * @return the number of free places, 0 to 10: a number, not a result code. Also 10 when the query failed
 */
zel_err_e _common_storage_get_batch_count(zel_file_sync_type type, zel_file_sync_status status, bool fail_retry);

/**
 * Tests whether every transfer of a request is complete or failed. True for a request without transfers, stored or not.
 * The operation compares two counts; the answer is false when it cannot read the second.
 *
 * @param req_id        the request
 * @param all_completed receives the answer
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or all_completed NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when
 *         the query returned no row; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_check_all_file_completed_by_req_id(int req_id, bool *all_completed);

/**
 * Tests whether every transfer of a request has failed; for a request without transfers and for failures, see
 * _common_storage_check_all_file_completed_by_req_id.
 *
 * @param req_id     the request
 * @param all_failed receives the answer
 * @return as _common_storage_check_all_file_completed_by_req_id
 */
zel_err_e _common_storage_check_all_file_failed_by_req_id(int req_id, bool *all_failed);

/* Transfer queries ------------------------------------------------------------------------------------------- */

/*
 * Lists hold zel_content_sync_info records; release them with
 * g_list_free_full(list, _common_storage_free_sync_content_info). A record that cannot be allocated is left out; if
 * none can be allocated, the list is NULL and the code ZEL_ERR_NONE.
 */

/**
 * Lists transfers in a status. For ZEL_SYNC_FAILED it lists the candidates for a retry: transfers retried at most 5
 * times, least retried first.
 *
 * @param type              the kind, or ZEL_UNKNOWN for every kind
 * @param status            the status
 * @param content_info_list receives the list
 * @param limit             maximum number of transfers; negative for all
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when content_info_list is NULL; ZEL_ERR_STORAGE_NO_RECORDS when there is
 *         none; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_list(zel_file_sync_type type, zel_file_sync_status status,
                                                     GList **content_info_list, int limit);

/**
 * Lists the transfers of one request in a status; for ZEL_SYNC_FAILED see _common_storage_get_sync_content_info_list.
 *
 * @param type              the kind, or ZEL_UNKNOWN for every kind
 * @param status            the status
 * @param content_info_list receives the list
 * @param req_id            the request; 0 for the transfers without one, which include those that
 *                          _common_storage_set_failed_status_sync_content_info detached
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when content_info_list is NULL; ZEL_ERR_STORAGE_NO_RECORDS when there is
 *         none; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_list_by_req_id(zel_file_sync_type type, zel_file_sync_status status,
                                                               GList **content_info_list, int req_id);

/**
 * Lists the transfers of one request and kind, in any status. To report which files failed, look for ZEL_SYNC_FAILED in
 * this list: it includes the transfers that no retry list offers any more.
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
 * Reads the transfer of a received content item, the last one if there are several.
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
 * Lists the requests that can be paused or resumed, in the order of their transfers. Only transfers never retried
 * count. Adjacent transfers of one request give one entry, but a request can appear again later.
 *
 * @param type        the kind of transfer
 * @param req_id_list receives an array of request ids
 * @param count       receives the number of ids
 * @param is_pause    true: waiting or ongoing transfers; false: paused transfers
 * @return ZEL_ERR_NONE, also (with a NULL array and count 0) when memory ran out or only the request 0 was found;
 *         ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is no such
 *         transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_req_id_by_sync_type_and_status(zel_file_sync_type type, unsigned int **req_id_list,
                                                             unsigned int *count, bool is_pause);

/**
 * Lists the requests that can be resumed or cancelled: with waiting, ongoing or paused transfers. Here too only
 * transfers never retried count; order and entries are as in _common_storage_get_req_id_by_sync_type_and_status.
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
 * _common_storage_update_url_info) is left out; an empty content type is listed as an empty string.
 *
 * @param req_id   the request
 * @param url_list receives a list of zel_trans_url_info, released with
 *                 g_list_free_full(list, _common_free_url_info); NULL when every file was left out
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0 or url_list is NULL; ZEL_ERR_STORAGE_NO_RECORDS
 *         when the request has no transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_url_list(int req_id, GList **url_list);

/**
 * Reads the original of a transfer: the source URL of a download, or the public URL of an upload.
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
 * Reads the thumbnail location of a transfer. Despite its name it does not read local_path, which is in the record of
 * _common_storage_get_sync_content_info_by_sync_id.
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
 * Reads the offset and chunk at which a chunked upload resumes.
 *
 * @param sync_id  the transfer
 * @param offset   receives the offset in bytes
 * @param chunk_no receives the chunk number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL or sync_id 0; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         transfer is absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_info(int sync_id, unsigned int *offset, int *chunk_no);

/**
 * Tests whether a transfer may use only Wi-Fi.
 *
 * @param sync_id   the transfer
 * @param wifi_only receives true if the stored value is 1, else false
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when wifi_only is NULL; ZEL_ERR_STORAGE_NO_RECORDS when the transfer is
 *         absent; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_wifi_only_by_sync_id(int sync_id, bool *wifi_only);

/**
 * Tests whether a request's first transfer may use only Wi-Fi.
 *
 * @param req_id    the request
 * @param wifi_only receives true if the stored value is 1, else false
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
 * Reads the start time of a request's first transfer.
 *
 * @param req_id    the request
 * @param sent_time receives the time in seconds since the epoch, cut to 32 bits
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or sent_time NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request has no transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sent_time_by_req_id(int req_id, int *sent_time);

/**
 * Reads the data for sending a request's files again: the start time of its first transfer, and the local path of every
 * file that has one.
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
 * the transfers and recipients first and the request last: a request without transfers counts as completed. A kill
 * between the steps leaves transfers whose request _common_storage_get_upload_status does not find; delete them with
 * _common_storage_delete_upload_info. No operation deletes the recipients of one request; only the wipe does.
 */

/** An upload request, as stored. The caller owns the record and its strings. */
typedef struct zel_upload_request_info {
    unsigned int unique_id;          /**< the stored request's row id, given by the store */
    unsigned int req_id;             /**< id of the request, used by every operation */
    unsigned int file_count;         /**< number of files */
    quillo_upload_status_e status;   /**< upload status */
    unsigned int receiver_count;     /**< number of recipients */
    unsigned long long expired_time; /**< expiry of the share, in milliseconds since the epoch */
    unsigned long long total_size;   /**< size of all files together, in bytes */
    char *contents_token;            /**< token of the share; NULL until the server issues it */
    quillo_app_type_e app_type;      /**< client application that made the request */
    char *from_ccc;                  /**< sender's country calling code; not stored */
    char *from_number;               /**< sender's number; not stored */
    char *description;               /**< the share's description; may be NULL */
    unsigned long long sent_time;    /**< time of storing, in seconds since the epoch */
} zel_upload_request_info;

/**
 * Stores a new upload request.
 *
 * @param upload_request_info the request. On success unique_id receives its row id. sent_time receives the current
 *                            time, also when the insert fails
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when the record is NULL; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_add_upload_request_info(zel_upload_request_info *upload_request_info);

/**
 * Stores the token and expiry that the server issued for a request.
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
 * Stores one recipient of a request; the request may be stored later. Does not change the request's receiver_count.
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
 * @param count  receives the number; 0 on every failure except a rejected argument
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or count NULL; ZEL_ERR_STORAGE_NO_RECORDS when the request
 *         is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_content_count(unsigned int req_id, int *count);

/**
 * Reads the total size of a request's files.
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
 * @param contents_token receives the token; stays untouched before the server has issued one
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
 * Reads the application of a request, and the share's description.
 *
 * @param req_id      the request
 * @param app_type    receives a quillo_app_type_e value
 * @param description receives the description; stays untouched when there is none; may be NULL
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or app_type NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request is not stored; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_app_info(unsigned int req_id, unsigned int *app_type, char **description);

/**
 * Finds the request of a share.
 *
 * @param contents_token the share; of several requests with it, the first is used
 * @param req_id         receives the request's id; 0 on every failure
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an argument is NULL; ZEL_ERR_STORAGE_NO_RECORDS when no request has
 *         the token; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_reqid_from_contents_token(const char *contents_token, unsigned int *req_id);

/**
 * Lists the requests of an application, latest first; requests of the same second in the order of storing.
 *
 * @param app_type         the application; APP_TYPE_NONE (0) for all
 * @param request_id_list  receives an array of request ids
 * @param request_id_count receives the number of ids
 * @return ZEL_ERR_NONE, also (with a NULL array and a count of 0) when memory ran out; -1, not an enumerator, when an
 *         output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is none;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_request_id_list(quillo_app_type_e app_type, unsigned int **request_id_list,
                                              unsigned int *request_id_count);

/*
 * The next three operations count the rows first, then list them. The array has one place for each counted row. Rows
 * added in between are not listed; places of rows removed in between hold 0.
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
 * Lists the requests that can be resumed or cancelled: all except failed and cancelled requests and those in
 * QUILLO_UPLOAD_STATUS_SHARE_FINISHED. QUILLO_UPLOAD_STATUS_FINISHED and recalled requests are listed.
 *
 * @param app_type    a value with both lowest bits set, like 3, selects the requests of every application. Any other
 *                    value, 0 included, selects the requests stored with exactly that value. So MOSAIC_EVENT_APP_TYPE
 *                    (3) selects all
 * @param upload_list receives an array of request ids
 * @param count       receives the number of its places
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is none;
 *         ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt(unsigned int app_type,
                                                                              unsigned int **upload_list,
                                                                              unsigned int *count);

/**
 * Lists the failed and cancelled requests.
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
 * Adds up the files and bytes of recent requests: those whose share expires at now + 48 hours - time_duration_hr or
 * later. With 48 hours these are the requests whose share has not expired.
 *
 * @param time_duration_hr    the hours; the bound must not be before 1970. Above now + 48 hours (about 498,000) the
 *                            time wraps and no request qualifies; from 1,193,047 the hours wrap too
 * @param get_total_file_size receives the number of bytes
 * @param get_total_file_num  receives the number of files
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when no request
 *         qualifies or either total is 0; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_time_upload_total_file_static_hr(unsigned int time_duration_hr,
                                                               unsigned long long *get_total_file_size,
                                                               unsigned int *get_total_file_num);

/* Upload report ---------------------------------------------------------------------------------------------- */

/**
 * Removes a request and its transfers. Its recipients stay stored until the wipe.
 *
 * @param req_id the request
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0; ZEL_ERR_STORAGE_FAILURE when one of the two deletions
 *         failed; the other still runs
 */
zel_err_e _common_storage_delete_upload_info(unsigned int req_id);

/**
 * Removes the transfers of a recalled share. The request and its recipients stay stored.
 *
 * @param contents_token the share; never "", which finds the first request without a token. If several requests have
 *                       the token, only the first is used
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when contents_token is NULL, or when the id of the request is 0;
 *         ZEL_ERR_STORAGE_NO_RECORDS when no request has the token; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_delete_recalled_contents(const char *contents_token);

/**
 * Reads the report of a request: its own data, its recipients and the local paths of its files. A recalled share has no
 * paths; a file without a path has an empty text.
 *
 * If only the paths cannot be read, the operation returns the report without them, and that step's failure code. So set
 * the output to NULL before the call, and test the output instead of the code. The report does not show which files
 * failed; _common_storage_get_sync_content_info_list_only_by_req_id does.
 *
 * @param request_id  the request
 * @param upload_info receives a new report, released with _common_free_upload_info. A place of msisdn_list is NULL when
 *                    fewer recipients are stored than the request has; contents_token is "" until the server issues it
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when request_id is 0 or upload_info NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST
 *         when the request or its recipients are not stored, or its receiver_count is 0; ZEL_ERR_STORAGE_NO_RECORDS
 *         when the stored token is NULL, which this library never writes; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE. With
 *         a report: the code of _common_storage_get_sync_content_info_file_path_list, which is
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
 *                                     of stored recipients. A place without a recipient is NULL; a recipient without a
 *                                     place is not listed
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or an output NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the
 *         request is not stored, has a receiver_count of 0, or no recipient is stored; ZEL_ERR_MEMORY;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_recievers_details(unsigned int req_id,
                                                       quillo_msisdn_s ***upload_receiver_list_details,
                                                       unsigned int *count);

/**
 * Sets the file_path_list of a report to the local paths of a request's files.
 *
 * @param req_id      the request
 * @param upload_info the report, which owns the new list. The old file_path_list is overwritten, not released. The list
 *                    holds one text for each file; an empty text for a file without a path
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is not above 0 or upload_info is NULL;
 *         ZEL_ERR_STORAGE_NO_RECORDS when the request has no transfer; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_sync_content_info_file_path_list(int req_id, zel_trans_upload_info *upload_info);

/**
 * Lists the recipients of a request as texts: a plus sign, the country calling code and the number. Without a calling
 * code the text is the number.
 *
 * @param req_id           the request
 * @param receipients_count number of places, at least 1; further recipients are not listed
 * @param receipients      receives an array of that many texts; a place is NULL when its recipient has no number or
 *                         there are fewer recipients
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when a number is 0 or the output NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when
 *         no recipient is stored; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_receipients_details(unsigned int req_id, unsigned int receipients_count,
                                                         char ***receipients);

/**
 * Lists the local paths of a request's files. A file without a path is left out.
 *
 * @param req_id            the request
 * @param content_path_list receives an array of paths; unused places are NULL
 * @param length            receives the number of places: the file_count of the request, not the number of paths
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_id is 0 or an output NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the
 *         request is not stored, has a file_count of 0, or has no transfer; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_upload_content_path_list(unsigned int req_id, char ***content_path_list,
                                                       unsigned int *length);

/**
 * Counts the transfers that started at a given time. Zero is a success.
 *
 * @param sent_time     the time, in seconds since the epoch
 * @param matched_count receives the number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when sent_time is 0 or matched_count NULL; ZEL_ERR_STORAGE_NO_RECORDS when
 *         the query returned no row; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_matched_count_by_sent_time(int sent_time, int *matched_count);

/**
 * Tests whether a request's share has been sent again: whether more transfers have this start time than the request has
 * files.
 *
 * It counts all transfers with that start time, whatever their request: another request of the same second makes the
 * answer true. _common_storage_update_sync_content_info changes the start time of a transfer; after that a complete
 * request has too few transfers with the old time.
 *
 * @param req_id             the request
 * @param sent_time          its start time, in seconds since the epoch
 * @param does_reshare_exist receives the answer; false on every failure except a rejected argument
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when a number is 0 or the output NULL; ZEL_ERR_STORAGE_NO_RECORDS when the
 *         request is not stored, or fewer transfers have the start time than the request has files;
 *         ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_does_reshare_exist(unsigned int req_id, int sent_time, bool *does_reshare_exist);

/* Recent receivers ------------------------------------------------------------------------------------------- */

/*
 * The recently used recipient lists, as at most nine groups, numbered from 1. To store the use of a list, on one thread
 * at a time:
 *
 *   1. _common_storage_is_recent_receiver_list_exist returns whether the list is stored, and its number.
 *   2. If it is not stored: call _common_storage_delete_recent_receiver_by_group for that number, because a tenth list
 *      reuses the least recently used group. Then _common_storage_add_recent_receiver for each recipient.
 *   3. In both cases: _common_storage_update_timestamp_recent_receiver_group.
 *
 * While another process holds a lock, step 1 can miss a stored list, or return the number of another group. Step 2 then
 * removes the members of that group. Step 3 can store a group twice.
 *
 * Recency has a resolution of one second. Of groups used in the same second, the group created later counts as more
 * recent.
 */

/**
 * Looks up a recipient list among the stored groups, or returns the number for a new group.
 *
 * A group matches when it has as many members as the list, and each member equals some entry of the list. The
 * comparison uses number_id, phone_number and ccc. So a group that holds A twice matches the list of A and B. An empty
 * list matches no group.
 *
 * @param to_msisdn_list        the recipients; must not be NULL. An entry whose phone_number or ccc is NULL equals no
 *                              member: set a calling code that was read as NULL to ""
 * @param to_msisdn_list_length their number
 * @param group_id              receives the number of the matching group; without a match the next number, or,
 *                              with nine groups, that of the least recently used one; must not be NULL
 * @param exist                 receives true when a group matches; must not be NULL
 * @return ZEL_ERR_NONE always; when the groups could not be read, group 1 with exist false
 */
zel_err_e _common_storage_is_recent_receiver_list_exist(quillo_msisdn_s **to_msisdn_list,
                                                        unsigned int to_msisdn_list_length, int *group_id, bool *exist);

/**
 * Marks a group as used now. Creates the group when its number is above the number of groups.
 *
 * @param group_id the group's number, at most one above the number of groups; not checked
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_update_timestamp_recent_receiver_group(int group_id);

/**
 * Adds a member to a group.
 *
 * @param phone_no  the recipient's number
 * @param ccc       the country calling code
 * @param number_id the number's id
 * @param group_id  the group's number; not checked
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
 * Removes the members of all groups. The groups stay and keep their numbers.
 *
 * @return ZEL_ERR_NONE; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_clear_recent_receiver(void);

/**
 * Lists the members of all groups, most recently used group first. A group that cannot be read is left out.
 *
 * @param recent_receiver_list_details receives an array of records; release ccc, phone_number and each record with
 *                                     g_free, and the array with free. NULL when no group has members. An empty calling
 *                                     code is NULL
 * @param count                        receives the number of records
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is no
 *         group or the groups could not be counted; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_recent_receiver_details(quillo_msisdn_s ***recent_receiver_list_details,
                                                      unsigned int *count);

/**
 * Lists the numbers of the groups, most recently used first.
 *
 * @param group_list receives an array of numbers; stays untouched when count receives 0
 * @param count      receives the number of places. Groups removed between counting and listing leave zeros. 0 when the
 *                   first row of the list could not be read
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when an output is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when there is no
 *         group or the groups could not be counted; ZEL_ERR_MEMORY; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_recent_receiver_group_list(int **group_list, int *count);

/**
 * Counts the groups. Zero is a success.
 *
 * @param count receives the number
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when count is NULL; ZEL_ERR_RESOURCE_DOESNT_EXIST when the query returned
 *         no row; ZEL_ERR_STORAGE_FAILURE
 */
zel_err_e _common_storage_get_recent_receiver_group_count(int *count);

/**
 * Counts the members of all groups. Zero is a success.
 *
 * @param count receives the number
 * @return as _common_storage_get_recent_receiver_group_count
 */
zel_err_e _common_storage_get_recent_receiver_count(int *count);

/* Wipe ------------------------------------------------------------------------------------------------------- */

/**
 * Deletes the user's data: every notification, content item, transfer, upload request, recipient and recent receiver
 * group, and the keys "evt_refresh_token", "evt_access_token" and "evt_push_token". Folder records, all other keys and
 * the tables stay. Row ids continue from their last value.
 *
 * @return ZEL_ERR_NONE, even if a key could not be deleted; ZEL_ERR_STORAGE_FAILURE when at least one table could not
 *         be emptied; the others are still emptied
 */
zel_err_e _common_storage_clear(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
