// Texts and files that nobody would hand to the store on purpose.
#include "faulty_disk.h"
#include "operations.h"

#include <fstream>
#include <iterator>
#include <random>

using namespace zel_test;

namespace
{

std::string with_word(std::string text, const std::string &value)
{
    for (size_t at = 0; (at = text.find("word", at)) != std::string::npos; at += value.size())
        text.replace(at, 4, value);
    return text;
}

std::string long_text()
{
    std::string text;
    while (text.size() < 100 * 1024)
        text += "a hundred kilobytes of it's \"100 %s\" \xff\n";
    return text;
}

std::string file_content()
{
    std::ifstream in(database_file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void put_file(const std::string &content)
{
    std::filesystem::create_directories(database_folder);
    std::filesystem::remove(database_file + "-journal");
    std::ofstream(database_file, std::ios::binary) << content;
}

/// Calls the operation: it reports what its contract knows, and a failure leaves its line. Whether it succeeded.
bool succeeds(const operation &tried)
{
    SCOPED_TRACE(tried.name);
    take_trace();
    answers out;
    const int code = tried.call(out);
    EXPECT_TRUE(code == ZEL_ERR_NONE || tried.may_fail_with(code)) << code;
    EXPECT_TRUE(code != ZEL_ERR_STORAGE_FAILURE || take_trace().text.find("CRITICAL") != std::string::npos);
    return !is_among(out.take(), tried.unseen) && code == ZEL_ERR_NONE;
}

/// Opens the store and calls every operation. Gives the number of successes.
int call_every_operation()
{
    _common_storage_init();
    const auto successes = std::count_if(operations().begin(), operations().end(), succeeds);
    if (_g_sqlite_handle)
        world::end();
    return static_cast<int>(successes);
}

} // namespace

TEST(StorageHostile, texts_are_stored_and_returned_unchanged)
{
    use_faulty_disk();
    struct outcome {
        int code;
        std::string answer, rows;
    };
    const auto outcomes = [](const char *text) {
        word = text;
        std::vector<outcome> all;
        const world rows;
        for (const operation &tried : operations()) {
            rows.begin();
            answers out;
            const int code = tried.call(out);
            const std::string answer = out.take();
            all.push_back({code, answer, tried.writes ? stored_rows() : ""});
            world::end();
        }
        return all;
    };
    const std::vector<outcome> usual = outcomes("word");
    for (const std::string &text :
         {std::string("it's '' \"quoted\" [so] `or` so\\"), std::string("%s%d%n%Q%%%"),
          std::string("x'; DROP TABLE content_info; --"), std::string("\x01\x02\t\r\x1b[0m\x7f"),
          std::string("\xff\xc0\xaf\xed\xa0\x80\xf5 cut \xe2\x82"), long_text(), std::string()}) {
        SCOPED_TRACE(text.substr(0, 40));
        const std::vector<outcome> now = outcomes(text.c_str());
        for (size_t i = 0; i < now.size(); ++i) {
            SCOPED_TRACE(operations()[i].name);
            EXPECT_TRUE(now[i].rows == with_word(usual[i].rows, text));
            if (text.empty()) // stands for an absent one in what is read
                continue;
            EXPECT_EQ(now[i].code, ZEL_ERR_NONE);
            EXPECT_TRUE(now[i].answer == with_word(usual[i].answer, text));
        }
    }
    word = "word";
}

// A share without a token belongs to nobody: its items are skipped. A row with no number is nobody's either.
TEST(StorageHostile, what_lacks_its_key_matches_nothing)
{
    const world rows;
    rows.begin();
    raw_database raw;
    raw.run("UPDATE recent_receiver_details SET phone_no = NULL; UPDATE upload_request_data SET total_size = 0");
    const auto find = [](const char *name) {
        const auto is_it = [&](const operation &one) { return std::string(one.name) == name; };
        return std::find_if(operations().begin(), operations().end(), is_it);
    };
    answers out;
    EXPECT_EQ(find("_common_storage_is_recent_receiver_list_exist")->call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "flag 0\nnumber 3\n");
    EXPECT_EQ(find("_common_storage_get_time_upload_total_file_static_hr")->call(out), ZEL_ERR_RESOURCE_DOESNT_EXIST);

    const std::string before = raw.rows("SELECT * FROM content_info");
    zel_trans_content_info item = {};
    zel_trans_share_content_info share = {};
    share.content_info_list = g_list_append(nullptr, &item);
    EXPECT_EQ(_common_storage_add_notification(&share), ZEL_ERR_NONE);
    EXPECT_EQ(raw.rows("SELECT * FROM content_info"), before);
    g_list_free(share.content_info_list);
    world::end();
}

TEST(StorageFiles, what_is_missing_is_made_anew_but_for_the_folder)
{
    std::filesystem::remove_all(ZEL_APPS_ROOT);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_STORAGE_INIT_FAILURE);
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "sqlite3_open error - 14"), 1);
    EXPECT_EQ(call_every_operation(), 0);
    EXPECT_FALSE(_g_sqlite_handle || std::filesystem::exists(ZEL_APPS_ROOT));
    const world rows;
    std::filesystem::remove(database_file);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    EXPECT_EQ(raw_database().value("SELECT count(*) FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"), "9");
    world::end();
}

TEST(StorageFiles, a_read_only_file_answers_and_stays_as_it_is)
{
    use_faulty_disk();
    const world rows;
    make_disk_read_only(true);
    for (const operation &tried : operations()) {
        rows.begin();
        EXPECT_EQ(succeeds(tried), !tried.writes) << tried.name;
        EXPECT_TRUE(rows.is_untouched());
        world::end();
    }
    make_disk_read_only(false);
}

TEST(StorageFiles, a_foreign_file_keeps_what_it_holds)
{
    for (const std::string &content :
         {std::string("plain text, and not even long\n"), long_text(), std::string("SQLite format 3")}) {
        put_file(content);
        EXPECT_EQ(call_every_operation(), 0);
        EXPECT_EQ(file_content(), content);
    }
    put_file("");
    raw_database().run("CREATE TABLE notes (text); INSERT INTO notes VALUES ('precious');"
                       "CREATE TABLE content_info (text); INSERT INTO content_info VALUES ('also precious')");
    const int successes = call_every_operation();
    EXPECT_TRUE(successes > 0 && successes < static_cast<int>(operations().size()));
    raw_database raw;
    EXPECT_EQ(raw.value("SELECT text FROM notes"), "precious");
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
}

TEST(StorageFiles, a_damaged_file_gives_codes_and_no_crash)
{
    use_faulty_disk();
    const world rows;
    const std::string whole = file_content();
    for (size_t size = 0; size < whole.size(); size += size < 128 ? 16 : 1500) {
        SCOPED_TRACE("cut to " + std::to_string(size));
        put_file(whole.substr(0, size));
        call_every_operation();
    }
    for (unsigned int seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("damage " + std::to_string(seed));
        std::mt19937 random(seed);
        std::string damaged = whole;
        for (int i = 0; i < 40; ++i)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        put_file(damaged);
        call_every_operation();
    }
}
