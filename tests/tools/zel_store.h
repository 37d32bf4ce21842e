// What the tests of zel-store share: a store of the library with the rows of the operations' world, and the tool.
#ifndef ZEL_TESTS_TOOLS_ZEL_STORE_H
#define ZEL_TESTS_TOOLS_ZEL_STORE_H

#include "zel_common_storage.h"
#include "zel_common_storage/connection.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

/// Runs a line of shell, and looks for parts of its output and errors. "tool" is the tool, $store its file.
/// The document of a line with json is compared without blanks, its names in their order.
inline std::string expect(const std::string &line, int status, const std::vector<std::string> &parts = {})
{
    const std::string words = "export LC_ALL=C; tool() { " ZEL_TEST_TOOL " \"$@\"; }; store=" ZEL_DATABASE "; ";
    EXPECT_EQ(WEXITSTATUS(std::system((words + "{ " + line + "\n} >said 2>&1").c_str())), status) << line;
    std::string text(std::istreambuf_iterator<char>(std::ifstream("said").rdbuf()), {});
    if (line.find("json") != std::string::npos)
        text = nlohmann::json::parse(text, nullptr, false).dump();
    for (const std::string &part : parts)
        EXPECT_NE(text.find(part), std::string::npos) << part << " in " << line << ": " << text;
    return text;
}

/// A connection that does not go through the library, with what it is to do first.
inline std::shared_ptr<sqlite3> raw(const std::string &statements)
{
    sqlite3 *handle = nullptr;
    sqlite3_open(ZEL_DATABASE, &handle);
    EXPECT_EQ(sqlite3_exec(handle, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << statements;
    return {handle, sqlite3_close};
}

/// Each case has a folder of its own with a store in it.
class ZelStore : public testing::Test
{
  protected:
    void SetUp() override
    {
        const auto &test = *testing::UnitTest::GetInstance()->current_test_info();
        const std::filesystem::path folder(std::string(ZEL_TEST_SCRATCH "/") + test.name());
        remove_all(folder);
        create_directories(folder);
        current_path(folder);
        expect("tool init && tool check && stat -c %A ${store%/*}", 0, {"0700", "all 9 tables", "Sound", "drwx------"});
        raw(expect("cat " ZEL_TEST_WORLD, 0) + "PRAGMA user_version = 104");
    }
};

#endif
