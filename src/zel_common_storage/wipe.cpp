/* The wipe. It empties the tables of several families and calls key_value, so it is above the families. */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

zel_err_e _common_storage_clear(void)
{
    static constexpr const char *USER_TABLES[] = {
        TABLE_PUSH_NOTI_INFO,          TABLE_CONTENT_INFO,
        TABLE_CONTENT_INFO_STATUS,     TABLE_RECENT_RECEIVER_GROUP,
        TABLE_RECENT_RECEIVER_DETAILS, TABLE_UPLOAD_REQUEST_DATA,
        TABLE_CONTACT_DETAILS,
    };
    static constexpr const char *USER_KEYS[] = {"evt_refresh_token", "evt_access_token", "evt_push_token"};

    ZEL_BEGIN();
    zel_err_e result = ZEL_ERR_NONE;
    for (const char *table : USER_TABLES) {
        if (run(sql("DELETE FROM %Q", table), "Failed to delete all content") != ZEL_ERR_NONE)
            result = ZEL_ERR_STORAGE_FAILURE;
    }
    for (const char *key : USER_KEYS)
        _common_storage_delete_unique_data(key);
    return finish(result);
}
