#include "store_expectations.h"

#include <optional>

using namespace zel_test;

namespace
{

struct StorageKeyValue : store_test {
};

const char key[] = "k", value[] = "v", group[] = "g";
const refusal no_key = {"[key] is NULL_PARAM", FIRST, false, true},
              no_group = {"[group_id] is NULL_PARAM", FIRST, false, true};
const char no_val[] = "[val] is NULL_PARAM";
const question_kind kind = {"__execute_query error", ZEL_ERR_RESOURCE_DOESNT_EXIST, no_key, true, critical,
                            "__db_finalize"};

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
    expect_changes("unique_data", {drop_key, put_key}, kind.failure, no_key);
    expect_found(get_key, "text it's\ntext \ntext 1\ntext \n");
    EXPECT_EQ(_common_storage_upsert_unique_data("k", "", "0", nullptr, "2"), ZEL_ERR_NONE);
    EXPECT_EQ(database.rows("SELECT * FROM unique_data"), "k||0||2\n");
    answers out;
    EXPECT_EQ(_common_storage_get_unique_data("k", &out.texts[0], nullptr, nullptr, nullptr), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "text \n");
    database.run("UPDATE unique_data SET value = NULL, reserv_0 = NULL, reserv_1 = NULL, reserv_2 = NULL");
    expect_found(get_key, "text NULL\ntext NULL\ntext NULL\ntext NULL\n");
    expect_failures("unique_data", {get_key}, kind);
    EXPECT_EQ(_common_storage_delete_unique_data("k"), ZEL_ERR_NONE);
    expect_nothing_found({get_key}, kind);
    expect_outcome({ZEL_CALL(upsert_unique_data, "k", nullptr, "", "", ""), ""}, ZEL_ERR_INVALID_ARG, "",
                   whole(put_key.function, {critical(put_key.function, no_val)}));
    expect_outcome({ZEL_CALL(get_unique_data, "k", nullptr, &out.texts[1], nullptr, nullptr), ""}, ZEL_ERR_INVALID_ARG,
                   "", whole(get_key.function, {critical(get_key.function, no_val)}));
}

TEST_F(StorageKeyValue, the_callback_follows_the_write_even_if_that_failed)
{
    const std::string function = "_common_storage_upsert_and_involk_unique_data";
    const std::string statement = "INSERT OR REPLACE INTO 'unique_data' VALUES ('k', 'v', '', '', '2')";
    for (const bool fails : {false, true}) {
        std::optional<missing_table> gone;
        if (fails)
            gone.emplace("unique_data");
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
        EXPECT_LOGGED(_common_storage_upsert_and_involk_unique_data(message[1] == 'k' ? nullptr : key,
                                                                    message[1] == 'p' ? value : nullptr, "", "", "",
                                                                    message[1] == 'p' ? nullptr : on_involk),
                      ZEL_ERR_INVALID_ARG, whole(function, {critical(function, message)}));
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
    EXPECT_LOGGED(_common_storage_upsert_folder_info(group, nullptr, 0, nullptr, 0, 9), ZEL_ERR_NONE,
                  merging(nullptr, nullptr, 9, join({prepared(get_group.statement), read})),
                  ran("INSERT OR REPLACE INTO 'folder_info' VALUES ('g', NULL, 0, 'f''', 0, 9)"), end(merger));
    expect_found(get_group, "wide 0\nwide 0\nwide 9\ntext NULL\ntext f'\n");
    EXPECT_EQ(_common_storage_upsert_folder_info(group, "c", 5000000000, nullptr, 0x8000000000000005, 0), ZEL_ERR_NONE);
    expect_found(get_group, "wide 5000000000\nwide 9223372036854775813\nwide 9\ntext c\ntext f'\n");
    EXPECT_EQ(_common_storage_upsert_folder_info(group, "", 0, nullptr, 1, 0), ZEL_ERR_NONE);
    EXPECT_EQ(database.rows("SELECT * FROM folder_info"), "g||5000000000|f'|1|9\n");
    EXPECT_EQ(_common_storage_get_folder_info(group, nullptr, nullptr, nullptr, nullptr, nullptr), ZEL_ERR_NONE);
    expect_failures("folder_info", {get_group},
                    {kind.failure, kind.nothing_found, no_group, true, critical, "__db_finalize"});
    expect_changes("folder_info", {drop_group}, kind.failure, no_group);
    expect_refused({{ZEL_CALL(upsert_folder_info, "g", nullptr, 0, nullptr, 0, 0), ""}}, no_group);
    const missing_table gone("folder_info");
    take_trace();
    EXPECT_LOGGED(_common_storage_upsert_folder_info(group, value, 0, nullptr, 0, 0), ZEL_ERR_STORAGE_FAILURE,
                  merging(value, nullptr, 0,
                          join({prepared_in_vain(get_group.statement), critical(get_group.function, kind.failure)})),
                  ran_in_vain("INSERT OR REPLACE INTO 'folder_info' VALUES ('g', 'v', 0, NULL, 0, 0)"),
                  critical(merger, kind.failure), end(merger));
}

TEST_F(StorageKeyValue, a_folder_token_exists_when_it_is_not_empty)
{
    const std::string function = "_common_storage_exist_folder_token";
    database.run("INSERT INTO folder_info(group_id, folder_token) VALUES ('null', NULL), ('empty', ''), ('some', 'f')");
    const std::string where = "SELECT folder_token FROM 'folder_info' WHERE group_id = ";
    expect_outcome({ZEL_CALL(exist_folder_token, "null", &out.flag), ""}, ZEL_ERR_NONE, "flag 0\n",
                   whole(function, {prepared(where + "'null';"), finalized(function)}));
    expect_outcome({ZEL_CALL(exist_folder_token, "empty", &out.flag), ""}, ZEL_ERR_NONE, "flag 0\n",
                   whole(function, {prepared(where + "'empty';"), finalized(function)}));
    bool exists = false;
    EXPECT_LOGGED(
        _common_storage_exist_folder_token("some", &exists), ZEL_ERR_NONE,
        whole(function, {prepared(where + "'some';"), debug(function, "get folder token [f]"), finalized(function)}));
    EXPECT_TRUE(exists);
    const store_call missing = {ZEL_CALL(exist_folder_token, "x", &out.flag), ""};
    expect_ended_failure(missing, ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found", "flag 0\n");
    expect_refused({missing}, {"Invalid Params", FIRST | POINTERS});
    const missing_table gone("folder_info");
    expect_ended_failure(missing, ZEL_ERR_STORAGE_FAILURE, "Failed to get file", "flag 0\n");
}
