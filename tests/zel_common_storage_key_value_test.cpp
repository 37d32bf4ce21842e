#include "store_expectations.h"

using namespace zel_test;

namespace
{

struct StorageKeyValue : store_test {
};

const char key[] = "k", value[] = "v", group[] = "g";
const question_kind kind = {"__execute_query error", ZEL_ERR_RESOURCE_DOESNT_EXIST, true, critical, "__db_finalize"};

const store_call put_key = {ZEL_CALL(upsert_unique_data, "k", "it's", nullptr, "1", nullptr),
                            "INSERT OR REPLACE INTO 'unique_data' VALUES ('k', 'it''s', '', '1', '')"};
const store_call drop_key = {ZEL_CALL(delete_unique_data, "k"), "DELETE FROM 'unique_data' WHERE key = 'k'"};
const store_call drop_group = {ZEL_CALL(delete_folder_info, "g"), "DELETE FROM 'folder_info' WHERE group_id = 'g'"};
const store_call get_key = {ZEL_CALL(get_unique_data, "k", &out.texts[0], &out.texts[1], &out.texts[2], &out.texts[3]),
                            "SELECT * FROM 'unique_data' WHERE key = 'k';"};
const store_call get_group = {
    ZEL_CALL(get_folder_info, "g", &out.texts[0], &out.wides[0], &out.texts[1], &out.wides[1], &out.wides[2]),
    "SELECT * FROM 'folder_info' WHERE group_id = 'g';"};

void expect_found(const store_call &made, const std::string &answer)
{
    expect_outcome(made, ZEL_ERR_NONE, answer,
                   whole(made.function, {prepared(made.statement), finalized(kind.finalizer)}));
}

const void *called_with[2];
trace before_callback;

void on_involk(void *written_key, void *written_value)
{
    called_with[0] = written_key;
    called_with[1] = written_value;
    before_callback = take_trace();
}

const std::string merger = "_common_storage_upsert_folder_info";

/// A merge up to its write, given what reading the stored row writes.
trace merging(const char *content, const char *folder, long long sync_time, const trace &reading)
{
    char body[300];
    snprintf(body, sizeof body,
             "before group_id[%p], contents_token[%p], content_token_expired_time[0], folder_token[%p], "
             "folder_token_expired_time[0], folder_sync_time[%lld]",
             static_cast<const void *>(group), static_cast<const void *>(content), static_cast<const void *>(folder),
             sync_time);
    return join({begin(merger), plain(merger, body), whole(get_group.function, {reading}), debug(merger, "after")});
}

} // namespace

TEST_F(StorageKeyValue, a_write_replaces_all_that_the_key_held)
{
    expect_changes({put_key});
    expect_found(get_key, "text it's\ntext \ntext 1\ntext \n");
    EXPECT_EQ(_common_storage_upsert_unique_data("k", "", "0", nullptr, "2"), ZEL_ERR_NONE);
    EXPECT_EQ(database.rows("SELECT * FROM unique_data"), "k||0||2\n");
    answers out;
    EXPECT_EQ(_common_storage_get_unique_data("k", &out.texts[0], nullptr, nullptr, nullptr), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "text \n");
    expect_changes({drop_key, drop_key});
    database.run("INSERT INTO unique_data(key) VALUES ('k')");
    expect_found(get_key, "text NULL\ntext NULL\ntext NULL\ntext NULL\n");
}

TEST_F(StorageKeyValue, the_callback_follows_the_write_even_if_that_failed)
{
    const std::string function = "_common_storage_upsert_and_involk_unique_data";
    const std::string statement = "INSERT OR REPLACE INTO 'unique_data' VALUES ('k', 'v', '', '', '2')";
    for (const bool fails : {false, true}) {
        if (fails)
            drop_table("unique_data");
        called_with[0] = called_with[1] = nullptr;
        EXPECT_EQ(_common_storage_upsert_and_involk_unique_data(key, value, nullptr, nullptr, "2", on_involk),
                  fails ? ZEL_ERR_STORAGE_FAILURE : ZEL_ERR_NONE);
        EXPECT_EQ(called_with[0], key);
        EXPECT_EQ(called_with[1], value);
        const trace failed = critical(function, kind.failure);
        EXPECT_EQ(before_callback.text,
                  join({begin(function), fails ? join({ran_in_vain(statement), failed}) : ran(statement)}).text);
        EXPECT_TRACE(end(function));
    }
    called_with[0] = nullptr;
    for (const char *message : {"[key] is NULL_PARAM", "[val] is NULL_PARAM", "[pointer] is NULL_PARAM"}) {
        EXPECT_EQ(_common_storage_upsert_and_involk_unique_data(message[1] == 'k' ? nullptr : key,
                                                                message[1] == 'p' ? value : nullptr, "", "", "",
                                                                message[1] == 'p' ? nullptr : on_involk),
                  ZEL_ERR_INVALID_ARG);
        EXPECT_TRACE(whole(function, {critical(function, message)}));
    }
    EXPECT_EQ(called_with[0], nullptr) << "called after a rejection";
}

TEST_F(StorageKeyValue, a_folder_write_merges)
{
    const char token[] = "f'";
    EXPECT_EQ(_common_storage_upsert_folder_info(group, nullptr, 0, token, 0, 0), ZEL_ERR_NONE);
    const trace read = finalized("__db_finalize");
    EXPECT_TRACE(merging(nullptr, token, 0,
                         join({prepared(get_group.statement), critical(get_group.function, "No records found"), read})),
                 ran("INSERT OR REPLACE INTO 'folder_info' VALUES ('g', NULL, 0, 'f''', 0, 0)"), end(merger));
    EXPECT_EQ(_common_storage_upsert_folder_info(group, nullptr, 0, nullptr, 0, 9), ZEL_ERR_NONE);
    EXPECT_TRACE(merging(nullptr, nullptr, 9, join({prepared(get_group.statement), read})),
                 ran("INSERT OR REPLACE INTO 'folder_info' VALUES ('g', NULL, 0, 'f''', 0, 9)"), end(merger));
    expect_found(get_group, "wide 0\nwide 0\nwide 9\ntext NULL\ntext f'\n");
    EXPECT_EQ(_common_storage_upsert_folder_info(group, "c", 5000000000, nullptr, 0x8000000000000005, 0), ZEL_ERR_NONE);
    expect_found(get_group, "wide 5000000000\nwide 9223372036854775813\nwide 9\ntext c\ntext f'\n");
    EXPECT_EQ(_common_storage_upsert_folder_info(group, "", 0, nullptr, 1, 0), ZEL_ERR_NONE);
    EXPECT_EQ(database.rows("SELECT * FROM folder_info"), "g||5000000000|f'|1|9\n");
    EXPECT_EQ(_common_storage_get_folder_info(group, nullptr, nullptr, nullptr, nullptr, nullptr), ZEL_ERR_NONE);
    take_trace();
    expect_changes({drop_group, drop_group});
}

TEST_F(StorageKeyValue, a_folder_token_exists_when_it_is_not_empty)
{
    const std::string function = "_common_storage_exist_folder_token";
    database.run("INSERT INTO folder_info(group_id, folder_token) VALUES ('null', NULL), ('empty', ''), ('some', 'f')");
    const auto ask = [&function](const std::string &of, int code, bool expected, const trace &asking,
                                 const trace &rest) {
        bool exists = !expected;
        EXPECT_EQ(_common_storage_exist_folder_token(of.c_str(), &exists), code);
        EXPECT_EQ(exists, expected) << of;
        EXPECT_TRACE(whole(function, {asking, rest}));
    };
    const std::string where = "SELECT folder_token FROM 'folder_info' WHERE group_id = ";
    const trace closed = finalized(function);
    ask("null", ZEL_ERR_NONE, false, prepared(where + "'null';"), closed);
    ask("empty", ZEL_ERR_NONE, false, prepared(where + "'empty';"), closed);
    ask("some", ZEL_ERR_NONE, true, prepared(where + "'some';"),
        join({debug(function, "get folder token [f]"), closed}));
    ask("x", ZEL_ERR_RESOURCE_DOESNT_EXIST, false, prepared(where + "'x';"),
        join({critical(function, "No records found"), closed}));
    drop_table("folder_info");
    ask("x", ZEL_ERR_STORAGE_FAILURE, false, prepared_in_vain(where + "'x';"),
        critical(function, "Failed to get file"));
    EXPECT_NEEDED(refusal{"Invalid Params"}, exist_folder_token, "g", &out.flag);
}

TEST_F(StorageKeyValue, rejections_and_failures)
{
    const refusal no_key = {"[key] is NULL_PARAM", false, true}, no_val = {"[val] is NULL_PARAM", false, true};
    const refusal no_group = {"[group_id] is NULL_PARAM", false, true};
    EXPECT_NEEDED(no_key, upsert_unique_data, "k", nullptr, nullptr, nullptr, nullptr);
    EXPECT_NEEDED(no_key, get_unique_data, "k", nullptr, nullptr, nullptr, nullptr);
    EXPECT_NEEDED(no_key, delete_unique_data, "k");
    EXPECT_NEEDED(no_group, upsert_folder_info, "g", nullptr, 0, nullptr, 0, 0);
    EXPECT_NEEDED(no_group, get_folder_info, "g", nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_NEEDED(no_group, delete_folder_info, "g");
    expect_outcome({ZEL_CALL(upsert_unique_data, "k", nullptr, "", "", ""), ""}, ZEL_ERR_INVALID_ARG, "",
                   whole(put_key.function, {critical(put_key.function, no_val.message)}));
    expect_outcome({ZEL_CALL(get_unique_data, "k", nullptr, &out.texts[1], nullptr, nullptr), ""}, ZEL_ERR_INVALID_ARG,
                   "", whole(get_key.function, {critical(get_key.function, no_val.message)}));

    expect_nothing_found({get_key, get_group}, kind);
    expect_changes({put_key});
    database.lock(); // a row that cannot be read is not found
    expect_nothing_found({get_key}, kind);
    database.unlock();
    drop_table("unique_data");
    drop_table("folder_info");
    expect_failing_changes({put_key, drop_key, drop_group}, kind.failure);
    expect_failing_questions({get_key, get_group}, kind);
    EXPECT_EQ(_common_storage_upsert_folder_info(group, value, 0, nullptr, 0, 0), ZEL_ERR_STORAGE_FAILURE);
    EXPECT_TRACE(merging(value, nullptr, 0,
                         join({prepared_in_vain(get_group.statement), critical(get_group.function, kind.failure)})),
                 ran_in_vain("INSERT OR REPLACE INTO 'folder_info' VALUES ('g', 'v', 0, NULL, 0, 0)"),
                 critical(merger, kind.failure), end(merger));
}
