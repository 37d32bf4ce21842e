/*
 * The nine tables: their names, the limits of what they hold and, for the tables that are read by position, the
 * position of each column. schema.cpp holds the statements that create them.
 */
#ifndef ZEL_COMMON_STORAGE_SCHEMA_H
#define ZEL_COMMON_STORAGE_SCHEMA_H

namespace zel_storage
{

constexpr char TABLE_PUSH_NOTI_INFO[] = "push_noti_info";
constexpr char TABLE_CONTENT_INFO[] = "content_info";
constexpr char TABLE_CONTENT_INFO_STATUS[] = "content_info_status";
constexpr char TABLE_RECENT_RECEIVER_GROUP[] = "recent_receiver_group";
constexpr char TABLE_RECENT_RECEIVER_DETAILS[] = "recent_receiver_details";
constexpr char TABLE_UPLOAD_REQUEST_DATA[] = "upload_request_data";
constexpr char TABLE_CONTACT_DETAILS[] = "contact_details";
constexpr char TABLE_UNIQUE_DATA[] = "unique_data";
constexpr char TABLE_FOLDER_INFO[] = "folder_info";

struct table {
    const char *name;
    const char *create; /**< binding to the character: queries read the columns by position */
};

/** In the order of creation. */
extern const table TABLES[9];

constexpr int SCHEMA_VERSION = 104;
constexpr int BATCH_LIMIT = 10; /**< transfers at once */
constexpr int RETRY_CAP = 5;    /**< retries of a transfer */
constexpr int GROUP_LIMIT = 9;  /**< groups of recent receivers */

} // namespace zel_storage

enum : int { /* push_noti_info */
             COLUMN_PUSH_NOTI_INFO_ID = 0,
             COLUMN_PUSH_NOTI_INFO_COTENTS_TOKEN,
             COLUMN_PUSH_NOTI_INFO_TYPE,
             COLUMN_PUSH_NOTI_INFO_EXPIRED_TIME,
             COLUMN_PUSH_NOTI_INFO_READ_NOTI,
             COLUMN_PUSH_NOTI_INFO_RECEIVED_TIME,
};

enum : int { /* content_info */
             COLUMN_CONTENT_INFO_CONTENT_ID = 0,
             COLUMN_CONTENT_INFO_EXPIRED_TIME,
             COLUMN_CONTENT_INFO_DOWNLOAD_COUNT,
             COLUMN_CONTENT_INFO_SIZE,
             COLUMN_CONTENT_INFO_CONTENTS_TOKEN,
             COLUMN_CONTENT_INFO_DESCRIPTION,
             COLUMN_CONTENT_INFO_TYPE,
             COLUMN_CONTENT_INFO_FROM_MSISDN,
             COLUMN_CONTENT_INFO_TO_LIST,
             COLUMN_CONTENT_INFO_ORIGINAL,
             COLUMN_CONTENT_INFO_THUMBNAIL,
             COLUMN_CONTENT_INFO_NAME,
             COLUMN_CONTENT_INFO_CONTENT_TYPE,
             COLUMN_CONTENT_INFO_DOWNLOADED,
             COLUMN_CONTENT_INFO_BIG_THUMBNAIL,
             COLUMN_CONTENT_INFO_MID_THUMBNAIL,
             COLUMN_CONTENT_INFO_PUSH_STATUS,
};

enum : int { /* content_info_status */
             COLUMN_CONTENT_SYNC_INFO_SYNC_ID = 0,
             COLUMN_CONTENT_SYNC_INFO_TYPE,
             COLUMN_CONTENT_SYNC_INFO_STATUS,
             COLUMN_CONTENT_SYNC_INFO_CONTENT_ID,
             COLUMN_CONTENT_SYNC_INFO_REQ_ID,
             COLUMN_CONTENT_SYNC_INFO_WIFI_ONLY,
             COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT,
             COLUMN_CONTENT_SYNC_INFO_PERCENTAGE,
             COLUMN_CONTENT_SYNC_INFO_OFFSET,
             COLUMN_CONTENT_SYNC_INFO_CHUNK_NO,
             COLUMN_CONTENT_SYNC_INFO_SENT_TIME,
             COLUMN_CONTENT_SYNC_INFO_CONTENTS_TOKEN,
             COLUMN_CONTENT_SYNC_INFO_CONTENT_TYPE,
             COLUMN_CONTENT_SYNC_INFO_ORIGINAL,
             COLUMN_CONTENT_SYNC_INFO_THUMBNAIL,
             COLUMN_CONTENT_SYNC_INFO_NAME,
             COLUMN_CONTENT_SYNC_INFO_LOCAL_PATH,
             COLUMN_CONTENT_SYNC_INFO_MUPLOAD_KEY,
};

enum : int { /* recent_receiver_details */
             COLUMN_RECENT_RECEIVER_ID = 0,
             COLUMN_RECENT_RECEIVER_NUM_ID,
             COLUMN_RECENT_RECEIVER_PHONE_NO,
             COLUMN_RECENT_RECEIVER_CCC,
             COLUMN_RECENT_RECEIVER_GROUP_ID,
};

enum : int { /* upload_request_data */
             COLUMN_UPLOAD_INFO_UNIQUE_ID = 0,
             COLUMN_UPLOAD_INFO_REQ_ID,
             COLUMN_UPLOAD_INFO_FILE_COUNT,
             COLUMN_UPLOAD_INFO_STATUS,
             COLUMN_UPLOAD_INFO_RECIEVERS_COUNT,
             COLUMN_UPLOAD_INFO_EXPIRED_TIME,
             COLUMN_UPLOAD_INFO_TOTAL_SIZE,
             COLUMN_UPLOAD_INFO_CONTENTS_TOKEN,
             COLUMN_UPLOAD_INFO_APP_TYPE,
             COLUMN_UPLOAD_INFO_DESCRIPTION,
             COLUMN_UPLOAD_INFO_SENT_TIME,
};

enum : int { /* contact_details */
             COLUMN_CONTACT_DETAILS_UNIQUE_ID = 0,
             COLUMN_CONTACT_DETAILS_REQ_ID,
             COLUMN_CONTACT_DETAILS_RECEIVER_NUM_ID,
             COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO,
             COLUMN_CONTACT_DETAILS_RECEIVER_CCC,
};

enum : int { /* unique_data */
             COLUMN_UNIQUE_DATA_KEY = 0,
             COLUMN_UNIQUE_DATA_VALUE,
             COLUMN_UNIQUE_DATA_RESERV_0,
             COLUMN_UNIQUE_DATA_RESERV_1,
             COLUMN_UNIQUE_DATA_RESERV_2,
};

enum : int { /* folder_info */
             COLUMN_FOLDER_INFO_GROUP_ID = 0,
             COLUMN_FOLDER_INFO_CONTENT_TOKEN,
             COLUMN_FOLDER_INFO_CONTENT_TOKEN_EXPIRED_TIME,
             COLUMN_FOLDER_INFO_FOLDER_TOKEN,
             COLUMN_FOLDER_INFO_FOLDER_TOKEN_EXPIRED_TIME,
             COLUMN_FOLDER_INFO_FOLDER_SYNC_TIME,
};

#endif
