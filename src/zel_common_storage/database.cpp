/* The database file: opening, its tables and their version. */

#include "zel_common_storage/patterns.h"
#include "zel_common_storage/schema.h"

using namespace zel_storage;

zel_err_e _common_storage_init(void)
{
    ZEL_BEGIN();
    if (_g_sqlite_handle) {
        ZEL_DEBUG("DB Already Opened");
        return finish(ZEL_ERR_NONE);
    }
    ZEL_DEBUG("Opening DB.....\n");
    sqlite3 *handle = nullptr;
    const int code = sqlite3_open_v2(DATABASE_PATH, &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (code != SQLITE_OK) {
        ZEL_CRITICAL("sqlite3_open error - %d", code);
        sqlite3_close(handle);
        return ZEL_ERR_STORAGE_INIT_FAILURE;
    }
    ZEL_DEBUG("DB open Success");
    _g_sqlite_handle = handle;
    _common_storage_db_create();
    _common_storage_db_upgrade();
    return finish(ZEL_ERR_NONE);
}

zel_err_e __common_storage_get_db_version(int *version)
{
    ZEL_BEGIN();
    if (!version)
        return reject("Invalid Params");
    query row(sql("PRAGMA user_version;"));
    zel_err_e result = check_prepared(row, "ExecuteSelectQuery Failed");
    if (result == ZEL_ERR_NONE) {
        if (row.next())
            *version = int_column(row, 0);
        else
            result = fail(ZEL_ERR_STORAGE_FAILURE, "Failed to get DB version");
    }
    return finish(row, result);
}

zel_err_e _common_storage_db_upgrade(void)
{
    ZEL_BEGIN();
    int version = 0;
    const zel_err_e result = __common_storage_get_db_version(&version);
    if (result != ZEL_ERR_NONE)
        return fail(result, "DB version get failed!");
    ZEL_INFO("DB version is %d", version);
    if (version == SCHEMA_VERSION)
        return ZEL_ERR_NONE;
    return finish(run(sql("PRAGMA user_version = %d", SCHEMA_VERSION), "Failed to version up"));
}

zel_err_e _common_storage_db_create(void)
{
    ZEL_BEGIN();
    zel_err_e result = ZEL_ERR_NONE;
    for (const table &entry : TABLES) {
        if (_common_storage_check_table_exist(entry.name))
            continue;
        if (__execute_query(sql(entry.create).get())) {
            ZEL_INFO("Success : create [%s]", entry.name);
        } else {
            ZEL_CRITICAL("FAIL : create [%s]", entry.name);
            result = ZEL_ERR_STORAGE_FAILURE;
        }
    }
    return finish(result);
}

bool _common_storage_check_table_exist(const char *table_name)
{
    ZEL_BEGIN();
    if (!table_name) {
        ZEL_CRITICAL("Invalid Params");
        return false;
    }
    const sql_text text = sql("select count(name) from sqlite_master where name=%Q", table_name);
    ZEL_DEBUG("check query [%s]", log_text(text.get()));
    query row(text);
    bool exists = false;
    if (check_prepared(row, "ExecuteSelectQuery Failed ") == ZEL_ERR_NONE) {
        if (!row.next()) {
            ZEL_DEBUG("No records found");
        } else if (const int count = int_column(row, 0); count >= 1) {
            ZEL_DEBUG("records found [%d]", count);
            exists = true;
        } else {
            ZEL_DEBUG("no records [%d]", count);
        }
    }
    row.close();
    ZEL_END();
    return exists;
}
