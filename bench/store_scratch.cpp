#include "store_scratch.h"

#include "harness.h"
#include "samples.h"
#include "zel_common_storage.h"
#include "zel_common_storage/patterns.h"

#include <filesystem>

namespace bench
{

namespace
{

std::string quoted(const char *text)
{
    return "'" + std::string(text) + "'";
}

/** The statements that create what a database holds. */
std::string schema_of(sqlite3 *database)
{
    std::string statements;
    sqlite3_stmt *row = nullptr;
    sqlite3_prepare_v2(database, "SELECT sql FROM sqlite_master WHERE sql IS NOT NULL AND name NOT LIKE 'sqlite_%'", -1,
                       &row, nullptr);
    while (sqlite3_step(row) == SQLITE_ROW)
        statements += reinterpret_cast<const char *>(sqlite3_column_text(row, 0)) + std::string(";");
    sqlite3_finalize(row);
    return statements;
}

} // namespace

scratch_store::scratch_store(const std::string &folder, const std::string &rows)
{
    static int number;
    const std::filesystem::path before = std::filesystem::current_path();
    place = std::filesystem::absolute(folder + "/store-" + std::to_string(number++));
    std::filesystem::create_directories(place + "/" ZEL_APPS_ROOT "quillo.service/data");
    // The database's path is relative; SQLite makes it absolute when it opens the file.
    std::filesystem::current_path(place);
    _g_sqlite_handle = nullptr;
    require(_common_storage_init() == ZEL_ERR_NONE, "the store cannot be opened");
    own = _g_sqlite_handle;
    std::filesystem::current_path(before);

    const std::string path = place + "/peer.db";
    require(sqlite3_open_v2(path.c_str(), &peer, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) == SQLITE_OK,
            "the peer's database cannot be opened");
    execute(peer, schema_of(own));
    for (sqlite3 *database : {own, peer})
        execute(database, "BEGIN;" + rows + ";COMMIT;");
}

scratch_store::~scratch_store()
{
    if (_g_sqlite_handle == own)
        _g_sqlite_handle = nullptr;
    sqlite3_close(own);
    sqlite3_close(peer);
    std::filesystem::remove_all(place);
}

void scratch_store::use() const
{
    _g_sqlite_handle = own;
}

void execute(sqlite3 *database, const std::string &statements)
{
    require(sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK,
            sqlite3_errmsg(database));
}

std::string rows(const std::string &table, size_t n, const std::string &values)
{
    return "WITH RECURSIVE number(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM number LIMIT " + std::to_string(n) +
           ") INSERT INTO " + table + " SELECT " + values + " FROM number;";
}

std::string transfers(size_t n, unsigned int req_id)
{
    return rows("content_info_status", n,
                "NULL, 1, 0, x, " + std::to_string(req_id) + ", 1, 0, 50, 1048576, 4, 1795550000, " + quoted(TOKEN) +
                    ", " + quoted(CONTENT_TYPE) + ", " + quoted(URL) + ", " + quoted(THUMBNAIL_PATH) + ", " +
                    quoted(FILE_NAME) + ", " + quoted(LOCAL_PATH) + ", " + quoted(TOKEN));
}

std::string requests(size_t n, unsigned int files, unsigned int receivers)
{
    return rows("upload_request_data", n,
                "NULL, x, " + std::to_string(files) + ", 2, " + std::to_string(receivers) +
                    ", 1895550000000, 123456789, " + quoted(TOKEN) + ", 1, " + quoted(DESCRIPTION) + ", 1795550000");
}

std::string recipients(size_t n, unsigned int req_id)
{
    return rows("contact_details", n, "NULL, " + std::to_string(req_id) + ", x, printf('555%07d', x), '1'");
}

} // namespace bench
