// Hostile texts, rows of other shapes, and files that are damaged, foreign or missing.
#include "diff.h"
#include "operations.h"

#include <random>

using namespace zel_test;

namespace
{

/// Opens the store, if it can be opened, and calls every operation: each returns one of the codes of the store's
/// operations. Returns the number of successes.
int successes()
{
    _common_storage_init();
    int successes = 0;
    for (const call &made : first_calls()) {
        const int code = attempt(made).code;
        EXPECT_TRUE(code == ZEL_ERR_NONE || code == ZEL_ERR_INVALID_ARG || code == ZEL_ERR_RESOURCE_DOESNT_EXIST ||
                    code == ZEL_ERR_STORAGE_FAILURE || code == ZEL_ERR_STORAGE_NO_RECORDS ||
                    code == ZEL_ERR_STORAGE_INIT_FAILURE || made.name == "get_batch_count") // whose code is a count
            << code << " from " << made.text;
        successes += code == ZEL_ERR_NONE;
    }
    world::end();
    return successes;
}

/// What every operation does in this world.
std::vector<outcome> effects(const world &rows)
{
    std::vector<outcome> all;
    for (const call &made : first_calls())
        all.push_back(run_in(rows, made));
    return all;
}

const std::string long_text = "long" + std::string(100 * 1024, '\'');

} // namespace

/// Every text of the rows and the calls begins with a hostile one; outputs and rows are the same after it.
TEST(StorageHostile, texts_are_stored_and_returned_unchanged)
{
    const auto usual = effects(world(FIRST_ROWS));
    const std::string texts[] = {"it's '' \"quoted\" [so] `or` so\\",         "%s%d%n%Q%%%",
                                 "x'; DROP TABLE content_info; --",           "\x01\x02\t\r\n\x1b[0m\x7f",
                                 "\xff\xc0\xaf\xed\xa0\x80\xf5 cut \xe2\x82", long_text};
    for (const std::string &text : texts) {
        const auto now = effects(world(FIRST_ROWS, text));
        for (size_t i = 0; i < now.size(); ++i)
            EXPECT_TRUE((now[i].brief == usual[i].brief && *now[i].rows == *usual[i].rows) ||
                        first_calls()[i].name == "check_table_exist") // of a name that no text is put in front of
                << first_calls()[i].text << " with " << text.substr(0, 40) << "\n"
                << unified_diff(usual[i].brief, now[i].brief) << changes(*usual[i].rows, *now[i].rows);
    }
}

/// Tables as other programs may leave them, one at a time, whatever the outputs are.
TEST(StorageHostile, rows_and_tables_of_other_shapes_do_no_harm)
{
    const world rows(ROWS);
    rows.begin();
    const auto changes = raw_database().rows(R"(
        SELECT group_concat(replace(replace(shapes.column1, '{table}', tables.name), '{column}', columns.name), ';')
        FROM sqlite_master AS tables, pragma_table_info(tables.name) AS columns, (VALUES
            ('ALTER TABLE {table} DROP COLUMN {column}'),
            ('ALTER TABLE {table} RENAME TO hidden; CREATE VIEW {table} AS SELECT * FROM hidden'),
            ('CREATE TRIGGER no AFTER INSERT ON {table} BEGIN SELECT RAISE(FAIL, ''no''); END'),
            ('CREATE TRIGGER no AFTER UPDATE ON {table} BEGIN SELECT RAISE(FAIL, ''no''); END'),
            ('CREATE TRIGGER no AFTER DELETE ON {table} BEGIN SELECT RAISE(FAIL, ''no''); END'),
            ('UPDATE OR IGNORE {table} SET {column} = NULL'),
            ('UPDATE OR IGNORE {table} SET {column} = x''00ff00'''),
            ('UPDATE OR IGNORE {table} SET {column} = ''a'' || char(0) || ''b'''),
            ('UPDATE OR IGNORE {table} SET {column} = -9223372036854775807 - 1'),
            ('UPDATE OR IGNORE {table} SET {column} = 1e300')) AS shapes
        WHERE tables.name NOT LIKE 'sqlite%' AND columns.cid >= 1 AND
            (columns.cid = 2 OR shapes.column1 LIKE 'UPDATE%') GROUP BY tables.name, shapes.column1)");
    world::end();
    EXPECT_EQ(changes.size(), 9 * 10u);
    for (const auto &change : changes) {
        SCOPED_TRACE(change[0]);
        rows.begin(change[0]);
        EXPECT_GT(successes(), 0);
    }
}

TEST(StorageFiles, a_missing_file_is_created_and_a_missing_folder_is_not)
{
    put_file("");
    std::filesystem::remove_all(ZEL_APPS_ROOT);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_STORAGE_INIT_FAILURE);
    EXPECT_EQ(count(take_trace(), "sqlite3_open error - 14"), 1);
    for (const call &made : first_calls())
        EXPECT_EQ(count(attempt(made).lines, ":  query"), 0) << made.text << " runs a statement";
    EXPECT_FALSE(_g_sqlite_handle || std::filesystem::exists(ZEL_APPS_ROOT));
    std::filesystem::create_directories(database_folder);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    EXPECT_EQ(raw_database().value("SELECT count(*) FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"), "9");
    world::end();
}

TEST(StorageFiles, a_read_only_file_answers_and_stays_as_it_is)
{
    const world rows(ROWS);
    const auto usual = effects(rows);
    disk_is_read_only = true;
    for (size_t i = 0; const outcome &now : effects(rows)) {
        SCOPED_TRACE(first_calls()[i].text);
        const bool writes = count(usual[i].lines, ":  query [") > 0;
        EXPECT_EQ(now.brief == usual[i++].brief, !writes) << now.lines;
        EXPECT_EQ(now.changed, "");
    }
    disk_is_read_only = false;
}

TEST(StorageFiles, a_foreign_file_keeps_what_it_holds)
{
    for (const std::string content : {"plain text", long_text.c_str(), "SQLite format 3"}) {
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
    const world rows(ROWS);
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
