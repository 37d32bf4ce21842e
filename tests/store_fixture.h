// A store of the case's own, and a second, raw connection to its file.
#ifndef ZEL_TESTS_STORE_FIXTURE_H
#define ZEL_TESTS_STORE_FIXTURE_H

#include "interpose.h"
#include "recording_platform.h"
#include "zel_common.h"
#include "zel_common_storage.h"
#include "zel_common_storage/engine.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

namespace zel_test
{

inline const std::string database_folder = ZEL_APPS_ROOT "quillo.service/data";
inline const std::string database_file = database_folder + "/.quillo_service.db";

/// A connection that does not go through the library (nor through the stand-ins of interpose.h).
class raw_database
{
  public:
    raw_database()
    {
        std::filesystem::create_directories(database_folder);
        EXPECT_EQ(sqlite3_open(database_file.c_str(), &handle_), SQLITE_OK);
    }
    ~raw_database()
    {
        sqlite3_close(handle_);
    }
    raw_database(const raw_database &) = delete;
    raw_database &operator=(const raw_database &) = delete;

    void run(const std::string &text)
    {
        EXPECT_EQ(sqlite3_exec(handle_, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(handle_) << " in " << text;
    }

    /// All rows, one a line, columns parted by "|", NULL as NULL.
    std::string rows(const std::string &text)
    {
        std::string result;
        const auto append = [](void *rows, int count, char **values, char **) {
            std::string &all = *static_cast<std::string *>(rows);
            for (int i = 0; i < count; ++i)
                all += (i ? "|" : "") + std::string(values[i] ? values[i] : "NULL");
            all += "\n";
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(handle_, text.c_str(), append, &result, nullptr), SQLITE_OK)
            << sqlite3_errmsg(handle_) << " in " << text;
        return result;
    }

    /// The only value of a query, without a line end.
    std::string value(const std::string &text)
    {
        std::string result = rows(text);
        if (!result.empty())
            result.pop_back();
        return result;
    }

    /// The body of the line with which an executor reports that the database refuses this text.
    std::string refusal(const std::string &text, bool prepare)
    {
        // A connection that knows no schema yet reports other codes.
        sqlite3_exec(handle_, "SELECT * FROM sqlite_master", nullptr, nullptr, nullptr);
        const char *tail = nullptr;
        sqlite3_stmt *statement = nullptr;
        const int code = prepare ? sqlite3_prepare_v2(handle_, text.c_str(), -1, &statement, &tail)
                                 : sqlite3_exec(handle_, text.c_str(), nullptr, nullptr, nullptr);
        EXPECT_NE(code, SQLITE_OK) << text;
        return std::string("failed to execute [") + (prepare ? tail : sqlite3_errmsg(handle_)) + "], err[" +
               std::to_string(code) + "], SQLITE_BUSY [5]";
    }

    /// From here to unlock() every statement of the library finds the database busy.
    void lock()
    {
        run("BEGIN EXCLUSIVE");
    }
    void unlock()
    {
        run("ROLLBACK");
    }

  private:
    sqlite3 *handle_ = nullptr;
};

/* What the executors write, when all is well and when the database refuses the text. */

inline trace ran(const std::string &statement)
{
    return plain("__execute_query", "query [" + statement + "]");
}

inline trace ran_in_vain(const std::string &statement)
{
    return join({ran(statement), debug("__execute_query", raw_database().refusal(statement, false))});
}

inline trace prepared(const std::string &statement)
{
    return join({begin("__execute_select_query"), plain("__execute_select_query", "query[" + statement + "]")});
}

inline trace prepared_in_vain(const std::string &statement)
{
    return join({prepared(statement), debug("__execute_select_query", raw_database().refusal(statement, true))});
}

inline trace inserting(const std::string &statement)
{
    return plain("__execute_insert_query", "query [" + statement + "; SELECT last_insert_rowid();]");
}

inline trace inserted(const std::string &statement, int row_id)
{
    return join(
        {inserting(statement),
         whole("__insert_callback", {debug("__insert_callback", "Assigning value " + std::to_string(row_id))})});
}

inline trace inserted_in_vain(const std::string &statement)
{
    return join({inserting(statement), critical("__execute_insert_query", raw_database().refusal(statement, false))});
}

inline trace finalized(const std::string &function, int code = SQLITE_OK)
{
    return debug(function, "sqlite3_finalize = [" + std::to_string(code) + "]");
}

/// The call gives this result and writes these lines.
#define EXPECT_LOGGED(call, result, ...)                                                                               \
    do {                                                                                                               \
        EXPECT_EQ(call, result);                                                                                       \
        EXPECT_TRACE(__VA_ARGS__);                                                                                     \
    } while (false)

inline char nowhere[16];
/// What an output holds before a call: nothing that any operation would put there.
template <typename T> T untouched()
{
    return reinterpret_cast<T>(nowhere);
}

/// While it lives, a table goes by another name. Through the store's own connection, which notices another one's
/// changes of the schema only when a statement is stepped.
struct missing_table {
    explicit missing_table(const std::string &table) : name(table)
    {
        rename(name, "hidden");
    }
    ~missing_table()
    {
        rename("hidden", name);
    }
    static void rename(const std::string &from, const std::string &to)
    {
        const std::string text = "ALTER TABLE " + from + " RENAME TO " + to;
        EXPECT_EQ(sqlite3_exec(_g_sqlite_handle, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << text;
    }
    const std::string name;
};

/// The folder exists and the store is open, with an empty trace.
class store_test : public testing::Test
{
  protected:
    store_test()
    {
        EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
        take_trace();
    }

    raw_database database;
};

} // namespace zel_test

#endif
