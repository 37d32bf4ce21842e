// Texts, rows and files that nobody would hand to the store on purpose.
#include "operations.h"

#include <algorithm>
#include <random>

using namespace zel_test;

namespace
{

struct StorageHostile : testing::Test {
    StorageHostile()
    {
        use_faulty_disk();
    }
    ~StorageHostile() override
    {
        prefix.clear();
        disk_is_read_only = false;
    }
};
using StorageFiles = StorageHostile;

/// Opens the store, if it lets itself be opened, and calls every operation: each reports one of the codes that the
/// store's operations know. Gives the number of successes.
int successes()
{
    _common_storage_init();
    std::map<int, int> codes;
    for (const call &made : operations()) {
        SCOPED_TRACE(made.text);
        const int code = attempt(made).answer.code;
        if (made.name != "get_batch_count") // whose code is a count
            ++codes[code];
    }
    world::end();
    const int successes = codes[ZEL_ERR_NONE];
    for (const int known : {ZEL_ERR_NONE, ZEL_ERR_INVALID_ARG, ZEL_ERR_RESOURCE_DOESNT_EXIST, ZEL_ERR_STORAGE_FAILURE,
                            ZEL_ERR_STORAGE_NO_RECORDS, ZEL_ERR_STORAGE_INIT_FAILURE})
        codes.erase(known);
    EXPECT_TRUE(codes.empty()) << codes.begin()->first;
    return successes;
}

/// What every operation does in this world, while all of the planned calls fail.
std::vector<outcome> effects(const world &rows, const fault_plan &plan = {})
{
    std::vector<outcome> all;
    for (const call &made : operations()) {
        rows.begin();
        {
            const fault planned(plan, 1);
            all.push_back(attempt(made));
        }
        all.back().rows = std::make_shared<rows_of_tables>(rows.is_untouched() ? rows_of_tables() : stored_rows());
        all.back().changed = " in " + made.text;
        world::end();
    }
    return all;
}

/// What is told of it without the lines.
constexpr auto summary = [](const outcome &it) { return it.brief + it.shown(); };

const std::string long_text = "long" + std::string(100 * 1024, '\'');

} // namespace

/// All texts of the rows and the calls begin with a hostile one: answers and rows are the same behind it.
TEST_F(StorageHostile, texts_are_stored_and_returned_unchanged)
{
    const auto usual = effects(world(FIRST_ROWS));
    for (const std::string &text :
         {std::string("it's '' \"quoted\" [so] `or` so\\"), std::string("%s%d%n%Q%%%"),
          std::string("x'; DROP TABLE content_info; --"), std::string("\x01\x02\t\r\n\x1b[0m\x7f"),
          std::string("\xff\xc0\xaf\xed\xa0\x80\xf5 cut \xe2\x82"), long_text}) {
        prefix = text;
        const auto now = effects(world(FIRST_ROWS));
        for (size_t i = 0; i < now.size(); ++i)
            EXPECT_TRUE((summary(now[i]) == summary(usual[i]) && *now[i].rows == *usual[i].rows) ||
                        operations()[i].name == "check_table_exist") // of a name that no text is put in front of
                << summary(now[i]) << " with " << text.substr(0, 40);
    }
}

/// As other programs may leave it; no matter which answers they get.
TEST_F(StorageHostile, rows_and_tables_of_other_shapes_do_no_harm)
{
    const world rows(ROWS);
    rows.begin();
    const rows_of_tables tables = stored_rows();
    world::end();
    for (const auto &[key, columns] : tables)
        for (const std::string change : {"NULL", "x'00ff00'", "'a' || char(0) || 'b'", "-9223372036854775807 - 1",
                                         "1e300", "'text'", "lack", "refuse", "view"}) {
            const std::string &table = std::get<0>(key);
            if (table == "version" || std::get<1>(key) > 0)
                continue;
            std::string given;
            if (change == "lack")
                given = "ALTER TABLE " + table + " DROP COLUMN " + columns.back();
            else if (change == "refuse")
                for (const std::string event : {"INSERT", "UPDATE", "DELETE"})
                    given += "CREATE TRIGGER no_" + event + " AFTER " + event + " ON " + table +
                             " BEGIN SELECT RAISE(FAIL, 'no'); END;";
            else if (change == "view")
                given = "ALTER TABLE " + table + " RENAME TO hidden; CREATE VIEW " + table + " AS SELECT * FROM hidden";
            else
                for (size_t i = 1; i < columns.size(); ++i)
                    given += "UPDATE OR IGNORE " + table + " SET " + columns[i] + " = " + change + ";";
            SCOPED_TRACE(given);
            rows.begin(given);
            EXPECT_GT(successes(), 0);
        }
}

/// Without the folder every operation tells what it tells when each of its statements fails.
TEST_F(StorageFiles, what_is_missing_is_made_anew_but_for_the_folder)
{
    const world rows(ROWS);
    const auto failed = effects(rows, {STATEMENT_TEXT, true});
    std::filesystem::remove_all(ZEL_APPS_ROOT);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_STORAGE_INIT_FAILURE);
    EXPECT_EQ(count(take_trace(), "sqlite3_open error - 14"), 1);
    for (size_t i = 0; const call &made : operations()) {
        outcome now = attempt(made);
        now.changed = " in " + made.text;
        EXPECT_EQ(summary(now), summary(failed[i++]));
        EXPECT_EQ(count(now.lines, ":  query"), 0) << "nothing is asked of no database";
        EXPECT_GT(count(now.lines, "sqlite3_open error(14)") + // an insert opens nothing
                      count(now.lines, "Invalid Param or sqlite handle is NULL"),
                  0)
            << now.lines;
    }
    EXPECT_FALSE(_g_sqlite_handle || std::filesystem::exists(ZEL_APPS_ROOT));
    std::filesystem::create_directories(database_folder);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    EXPECT_EQ(raw_database().value("SELECT count(*) FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"), "9");
    world::end();
}

TEST_F(StorageFiles, a_read_only_file_answers_and_stays_as_it_is)
{
    const world rows(ROWS);
    const auto usual = effects(rows);
    disk_is_read_only = true;
    const auto now = effects(rows);
    for (size_t i = 0; i < now.size(); ++i) {
        const bool writes = count(usual[i].lines, ":  query [") > 0;
        EXPECT_EQ(summary(now[i]) == summary(usual[i]), !writes) << summary(now[i]);
        EXPECT_TRUE(now[i].rows->empty());
    }
}

TEST_F(StorageFiles, a_foreign_file_keeps_what_it_holds)
{
    for (const std::string &content : {std::string("plain text"), long_text, std::string("SQLite format 3")}) {
        put_file(content);
        successes();
        EXPECT_EQ(content_of(database_file), content);
    }
    put_file("");
    raw_database().run(
        "CREATE TABLE notes (text); INSERT INTO notes VALUES ('precious'); CREATE TABLE content_info (text)");
    EXPECT_GT(successes(), 0);
    EXPECT_EQ(raw_database().value("SELECT text FROM notes"), "precious");
    EXPECT_EQ(raw_database().value("PRAGMA integrity_check"), "ok");
}

TEST_F(StorageFiles, a_damaged_file_gives_codes_and_no_crash)
{
    const world rows(ROWS);
    rows.begin();
    world::end();
    const std::string whole = content_of(database_file);
    for (size_t size = 0; size < whole.size(); size += size < 128 ? 16 : 1500) {
        SCOPED_TRACE("cut to " + std::to_string(size));
        put_file(whole.substr(0, size));
        successes();
    }
    for (unsigned int seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("damage " + std::to_string(seed));
        std::mt19937 random(seed);
        std::string damaged = whole;
        for (int i = 0; i < 40; ++i)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        put_file(damaged);
        successes();
    }
}
