// Texts, rows and files that nobody would hand to the store on purpose.
#include "disk.h"
#include "operations.h"

#include <climits>
#include <random>

using namespace zel_test;

namespace
{

/// Opens the store, if it lets itself be opened, and calls every operation: each reports one of the codes that the
/// store's operations know. Gives the number of successes.
int successes()
{
    const scripted_clock clock(6000000000, 0);
    _common_storage_init();
    int count = 0;
    for (const call &made : operations()) {
        SCOPED_TRACE(made.text());
        const int code = attempt(made).answer.code;
        count += code == ZEL_ERR_NONE;
        const int known[] = {ZEL_ERR_NONE,
                             ZEL_ERR_INVALID_ARG,
                             ZEL_ERR_RESOURCE_DOESNT_EXIST,
                             ZEL_ERR_STORAGE_FAILURE,
                             ZEL_ERR_STORAGE_NO_RECORDS,
                             ZEL_ERR_STORAGE_INIT_FAILURE};
        EXPECT_NE(std::find(std::begin(known), std::end(known), code), std::end(known)) << code;
    }
    world::end();
    return count;
}

const std::string long_text = "long" + std::string(100 * 1024, '\'');

} // namespace

/// All texts of the rows and the calls begin with a hostile one: answers and rows are the same behind it.
TEST(StorageHostile, texts_are_stored_and_returned_unchanged)
{
    use_faulty_disk();
    const auto effects = [](const std::string &text) {
        prefix = text;
        std::vector<std::pair<told, rows_of_tables>> all;
        const world rows(FIRST_ROWS);
        for (const call &made : operations()) {
            if (made.name() == "check_table_exist") // of a name that no text is put in front of
                continue;
            rows.begin();
            const told answer = made();
            all.emplace_back(answer, rows.is_untouched() ? rows_of_tables() : stored_rows());
            world::end();
        }
        prefix.clear();
        return all;
    };
    const auto usual = effects("");
    for (const std::string &text :
         {std::string("it's '' \"quoted\" [so] `or` so\\"), std::string("%s%d%n%Q%%%"),
          std::string("x'; DROP TABLE content_info; --"), std::string("\x01\x02\t\r\n\x1b[0m\x7f"),
          std::string("\xff\xc0\xaf\xed\xa0\x80\xf5 cut \xe2\x82"), long_text}) {
        SCOPED_TRACE(text.substr(0, 40));
        const auto now = effects(text);
        for (size_t i = 0; i < now.size(); ++i) {
            SCOPED_TRACE(i);
            EXPECT_EQ(now[i].first.code, usual[i].first.code);
            EXPECT_EQ(now[i].first.outputs, usual[i].first.outputs);
            EXPECT_EQ(changes(usual[i].second, now[i].second), "");
        }
    }
}

/// As other programs may leave it; no matter which answers they get.
TEST(StorageHostile, rows_and_tables_of_other_shapes_do_no_harm)
{
    use_faulty_disk();
    const world rows(ROWS);
    rows.begin();
    const rows_of_tables tables = stored_rows();
    world::end();
    for (const auto &[table, content] : tables)
        for (const std::string change : {"NULL", "x'00ff00'", "'a' || char(0) || 'b'", "-9223372036854775807 - 1",
                                         "1e300", "'text'", "lack", "refuse", "view"}) {
            std::string given;
            const std::vector<std::string> &columns = content.at("");
            if (table == "version")
                continue;
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

TEST(StorageFiles, what_is_missing_is_made_anew_but_for_the_folder)
{
    std::filesystem::remove_all(ZEL_APPS_ROOT);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_STORAGE_INIT_FAILURE);
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "sqlite3_open error - 14"), 1);
    for (const call &made : operations()) // one that reads is told of no file, or finds that nothing is there
        EXPECT_TRUE(made().code != ZEL_ERR_NONE || count_lines(take_trace(), "CRITICAL", "") > 0) << made.text();
    EXPECT_FALSE(_g_sqlite_handle || std::filesystem::exists(ZEL_APPS_ROOT));
    std::filesystem::create_directories(database_folder);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    EXPECT_EQ(raw_database().value("SELECT count(*) FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"), "9");
    world::end();
}

TEST(StorageFiles, a_read_only_file_answers_and_stays_as_it_is)
{
    use_faulty_disk();
    const world rows(ROWS);
    for (const call &made : operations()) {
        SCOPED_TRACE(made.text());
        rows.begin();
        const outcome usual = attempt(made);
        const bool writes = count_lines(usual.lines, "PLAIN", "query [") > 0;
        world::end();
        disk_is_read_only = true;
        rows.begin();
        const outcome now = attempt(made);
        EXPECT_EQ(now.brief == usual.brief && now.answer.outputs == usual.answer.outputs, !writes) << now.lines.text;
        EXPECT_TRUE(rows.is_untouched());
        world::end();
        disk_is_read_only = false;
    }
}

TEST(StorageFiles, a_foreign_file_keeps_what_it_holds)
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

TEST(StorageFiles, a_damaged_file_gives_codes_and_no_crash)
{
    use_faulty_disk();
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
