// The store's file, and a second, raw connection to it.
#ifndef ZEL_TESTS_STORE_FIXTURE_H
#define ZEL_TESTS_STORE_FIXTURE_H

#include "interpose.h"
#include "recording_platform.h"
#include "zel_common.h"
#include "zel_common_storage.h"
#include "zel_common_storage/patterns.h"

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

} // namespace zel_test

#endif
