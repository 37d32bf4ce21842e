// Texts and files that nobody would hand to the store on purpose.
#include "breaking.h"

#include <random>
#include <sstream>

using namespace zel_test;

namespace
{

std::string with_word(std::string text, const std::string &value)
{
    for (size_t at = 0; (at = text.find("word", at)) != std::string::npos; at += value.size())
        text.replace(at, 4, value);
    return text;
}

const std::string long_text(100 * 1024, '\'');

std::string file_content()
{
    std::ifstream in(database_file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Opens the store, if it lets itself be opened, and calls every operation. Gives the number of successes.
int successes()
{
    const scripted_clock clock(1000, 0); // as everywhere in the table
    _common_storage_init();
    int count = 0;
    for (const operation &tried : operations()) {
        SCOPED_TRACE(tried.name);
        count += attempt(tried).is_complete;
    }
    world::end();
    return count;
}

} // namespace

TEST(StorageHostile, texts_are_stored_and_returned_unchanged)
{
    use_faulty_disk();
    const auto effects_with = [](const std::string &text) {
        word = text.c_str();
        std::vector<std::pair<outcome, std::string>> all;
        const world rows;
        for (const operation &tried : operations()) {
            rows.begin();
            const outcome now = attempt(tried);
            all.emplace_back(now, tried.writes ? stored_rows() : "");
            world::end();
        }
        word = "word";
        return all;
    };
    const auto usual = effects_with("word");
    for (const std::string &text :
         {std::string("it's '' \"quoted\" [so] `or` so\\"), std::string("%s%d%n%Q%%%"),
          std::string("x'; DROP TABLE content_info; --"), std::string("\x01\x02\t\r\n\x1b[0m\x7f"),
          std::string("\xff\xc0\xaf\xed\xa0\x80\xf5 cut \xe2\x82"), long_text, std::string()}) {
        SCOPED_TRACE(text.substr(0, 40));
        const auto effects = effects_with(text);
        for (size_t i = 0; i < effects.size(); ++i) {
            SCOPED_TRACE(operations()[i].name);
            const auto &[now, rows] = effects[i];
            EXPECT_TRUE(rows == with_word(usual[i].second, text));
            // An empty text stands for an absent one in what is read.
            EXPECT_TRUE(text.empty() || now.code == ZEL_ERR_NONE) << now.code;
            EXPECT_TRUE(text.empty() || now.answer == with_word(usual[i].first.answer, text));
        }
    }
}

// As other programs may write them; no matter which answers they get.
TEST(StorageHostile, columns_without_a_value_do_no_harm)
{
    use_faulty_disk();
    const world rows;
    std::istringstream columns(
        raw_database().rows("SELECT tables.name || ' SET ' || columns.name FROM sqlite_master AS tables, "
                            "pragma_table_info(tables.name) AS columns WHERE columns.type = 'TEXT' "
                            "AND NOT columns.pk AND NOT columns.\"notnull\""));
    for (std::string column; std::getline(columns, column);) {
        SCOPED_TRACE(column);
        rows.begin();
        raw_database().run("UPDATE " + column + " = NULL");
        EXPECT_GT(successes(), 0);
    }
}

TEST(StorageFiles, what_is_missing_is_made_anew_but_for_the_folder)
{
    std::filesystem::remove_all(ZEL_APPS_ROOT);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_STORAGE_INIT_FAILURE);
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "sqlite3_open error - 14"), 1);
    EXPECT_EQ(successes(), 0);
    EXPECT_FALSE(_g_sqlite_handle || std::filesystem::exists(ZEL_APPS_ROOT));
    std::filesystem::create_directories(database_folder);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    EXPECT_EQ(raw_database().value("SELECT count(*) FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"), "9");
    world::end();
}

TEST(StorageFiles, a_read_only_file_answers_and_stays_as_it_is)
{
    use_faulty_disk();
    const world rows;
    disk_is_read_only = true;
    for (const operation &tried : operations()) {
        SCOPED_TRACE(tried.name);
        rows.begin();
        EXPECT_EQ(attempt(tried).is_complete, !tried.writes);
        EXPECT_TRUE(rows.is_untouched());
        world::end();
    }
    disk_is_read_only = false;
}

TEST(StorageFiles, a_foreign_file_keeps_what_it_holds)
{
    for (const std::string &content : {std::string("plain text"), long_text, std::string("SQLite format 3")}) {
        put_file(content);
        EXPECT_EQ(successes(), 0);
        EXPECT_EQ(file_content(), content);
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
    const world rows;
    const std::string whole = file_content();
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
