#include "store_expectations.h"
#include "zel_common_storage/received_shares.h"

using namespace zel_test;

namespace
{

struct StorageReceivedShares : store_test {
    /// The answers of the four lists: every type, every type but read, type a, type a but read.
    void expect_lists(const std::string (&expected)[4])
    {
        for (size_t i = 0; i < 4; ++i) {
            answers out;
            lists[i].call(out);
            EXPECT_EQ(out.take(), expected[i]) << lists[i].statement;
        }
    }
    static const store_calls lists;
};

const char notis[] = "push_noti_info", items[] = "content_info";
const refusal bad = {"Invalid parameter", FIRST}, bad_params = {"Invalid Params", POINTERS};
const refusal answers_no = {"Invalid Params", FIRST, false, false, false};
const question_kind read_kind = {"Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST, bad_params};
const question_kind count_kind = {"Failed to get receiver group count!!", ZEL_ERR_RESOURCE_DOESNT_EXIST, bad_params};

const store_calls StorageReceivedShares::lists = {
    {ZEL_CALL(get_contents_token_list, nullptr, false, &out.text_list, &out.counts[0]),
     "SELECT contents_token FROM 'push_noti_info' WHERE read_noti != 2 ORDER BY received_time DESC;"},
    {ZEL_CALL(get_contents_token_list, nullptr, true, &out.text_list, &out.counts[0]),
     "SELECT contents_token FROM 'push_noti_info' WHERE read_noti = 0 ORDER BY received_time DESC;"},
    {ZEL_CALL(get_contents_token_list, "a", false, &out.text_list, &out.counts[0]),
     "SELECT contents_token FROM 'push_noti_info' WHERE type = 'a' and read_noti != 2 ORDER BY received_time DESC;"},
    {ZEL_CALL(get_contents_token_list, "a", true, &out.text_list, &out.counts[0]),
     "SELECT contents_token FROM 'push_noti_info' WHERE type = 'a' and read_noti = 0 ORDER BY received_time DESC;"},
};

const store_call received_time = {ZEL_CALL(get_received_time_push_noti, "t'", &out.wides[0]),
                                  "SELECT * FROM 'push_noti_info' WHERE contents_token = 't''';", "wide 5000000000\n",
                                  debug("_common_storage_get_received_time_push_noti", "*received_time[5000000000]")};
const store_call not_downloaded = {ZEL_CALL(get_content_info_not_downloaded_count, "t", &out.numbers[0]),
                                   "SELECT COUNT(*) FROM 'content_info' WHERE contents_token = 't' and downloaded = 0",
                                   "number 2\n"};

store_calls by_url(const std::string &url, const std::string &name, const std::string &token)
{
    static const char *now;
    now = url.c_str();
    const std::string where = " FROM 'content_info' WHERE original = '" + url + "' or thumbnail = '" + url +
                              "' or big_thumbnail = '" + url + "' or mid_thumbnail = '" + url + "';";
    return {{ZEL_CALL(get_content_name, now, &out.texts[0]), "SELECT *" + where, name},
            {ZEL_CALL(get_contents_token_content_info, now, &out.texts[0]), "SELECT contents_token" + where, token}};
}

trace existence(const std::string &function, const std::string &table, bool found)
{
    return whole(function, {prepared("SELECT * FROM '" + table + "' WHERE contents_token = 't'''"),
                            found ? trace() : debug(function, "No records found"), finalized(function)});
}

const store_call data = {ZEL_CALL(get_notification_data, "t'", &out.share),
                         "SELECT * FROM 'content_info' WHERE contents_token = 't''';"};
const std::string reader = "_common_storage_get_contents";

} // namespace

TEST_F(StorageReceivedShares, a_notification_is_added_once)
{
    const std::string adder = "_common_storage_add_push_noti_info", test = "_common_storage_exist_push_noti";
    const std::string statement = "INSERT into 'push_noti_info' VALUES (NULL, 't''', NULL, 10000000000000000000, 0, "
                                  "5000000000)";
    const store_call add = {ZEL_CALL(add_push_noti_info, "t'", nullptr, 10000000000000000000ULL, 5000000000), ""};
    expect_outcome(add, ZEL_ERR_NONE, "", whole(adder, {existence(test, notis, false), inserted(statement, 1)}));
    expect_outcome(add, ZEL_ERR_NONE, "", whole(adder, {existence(test, notis, true)}));
    EXPECT_EQ(database.rows("SELECT type, expired_time, read_noti, received_time FROM push_noti_info"),
              "NULL|1.0e+19|0|5000000000\n");
    expect_questions(notis, {received_time}, read_kind);
    expect_refused({add}, bad);
    expect_refused({{ZEL_CALL(exist_push_noti, "t"), ""}}, answers_no);
    const missing_table gone(notis);
    expect_ended_failure(add, ZEL_ERR_STORAGE_FAILURE, "Failed to add file");
    EXPECT_FALSE(_common_storage_exist_push_noti("t'"));
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "ExecuteSelectQuery Failed "), 1);
}

TEST_F(StorageReceivedShares, lists_follow_type_state_and_arrival)
{
    expect_nothing_found(lists, read_kind);
    database.run("INSERT INTO push_noti_info VALUES (NULL, 'one', 'a', 0, 0, 10), (NULL, 'three', 'a', 0, 0, 30), "
                 "(NULL, 'two', 'a', 0, 0, 20), (NULL, 'b', 'b', 0, 0, 25), (NULL, '', 'a', 0, 0, 40)");
    const std::string both = "count 4\ntext three\ntext b\ntext two\ntext one\n";
    const std::string only_a = "count 3\ntext three\ntext two\ntext one\n", only_b = "count 1\ntext b\n";
    expect_lists({both, both, only_a, only_a});
    EXPECT_EQ(_common_storage_update_read_push_noti("a"), ZEL_ERR_NONE);
    expect_lists({both, only_b, only_a, ""});
    EXPECT_EQ(_common_storage_update_check_delete_push_noti("three"), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_update_read_push_noti("a"), ZEL_ERR_NONE);
    expect_lists({"count 3\ntext b\ntext two\ntext one\n", only_b, "count 2\ntext two\ntext one\n", ""});
    EXPECT_TRUE(_common_storage_exist_push_noti("three"));
    question_kind kind = read_kind;
    kind.refused.needed = 0; // the type may be missing
    expect_failures(notis, lists, kind);
    expect_refused({lists[0]}, bad_params);
}

TEST_F(StorageReceivedShares, a_share_is_stored_and_read_back)
{
    expect_outcome(data, ZEL_ERR_RESOURCE_DOESNT_EXIST, "",
                   join({begin(data.function),
                         whole(reader, {debug(reader, "contents_token[t']"), prepared(data.statement),
                                        critical(reader, "No records found"), finalized(reader),
                                        whole("_common_free_share_content_info")}),
                         critical(data.function, reader + " Failed")}));
    const auto text = [](const char *constant) { return const_cast<char *>(constant); };
    const std::string long_text(9000, 'd'), adder = "_common_storage_add_notification";
    zel_trans_content_info first = {text("o1"), text("t1"), text("m1"), text("b1"), text("n'1"), text("c1"),
                                    text("x"),  4000000000, 99,         3000000000, 77};
    zel_trans_content_info second = {text("o2"), nullptr, text(""), nullptr, nullptr, nullptr, nullptr, 2, 99, 3, 77};
    zel_trans_share_content_info share = {
        text("t'"), text(long_text.c_str()), text("a"), text("from"), nullptr, 5000000000, 0, nullptr, 2};
    share.content_info_list = g_list_append(g_list_append(g_list_append(nullptr, &first), nullptr), &second);
    EXPECT_EQ(_common_storage_add_notification(&share), ZEL_ERR_NONE);
    const std::string item_adder = "_common_storage_add_content_info", test = "_common_storage_exist_content_info";
    const auto added = [&](int id, const std::string &numbers, const std::string &rest) {
        const std::string statement = "INSERT into 'content_info' VALUES (NULL, 5000000000, " + numbers + ", 't''', '" +
                                      long_text + "', 'a', 'from', NULL, " + rest + ", NULL)";
        return whole(item_adder,
                     {inserted(statement, id), info(item_adder, "[ZEL] err_code: [0] Query: " + statement)});
    };
    EXPECT_TRACE(
        whole(adder, {existence(test, items, false),
                      added(1, "4000000000, 3000000000", "'o1', 't1', 'n''1', 'c1', 0, 'b1', 'm1'"), begin(item_adder),
                      critical(item_adder, "Invalid parameter"), added(2, "2, 3", "'o2', '', '', '', 0, '', ''")}));
    EXPECT_EQ(first.content_id, 1u);
    EXPECT_EQ(second.content_id, 2u);
    EXPECT_LOGGED(_common_storage_add_notification(&share), ZEL_ERR_INVALID_ARG, begin(adder),
                  existence(test, items, true), critical(adder, "already exist contents token t'"));
    g_list_free(share.content_info_list);

    EXPECT_EQ(_common_storage_update_status_content_info("t'", QUILLO_PUSH_STATUS_SHARE_RECALLED), ZEL_ERR_NONE);
    const trace fill = whole("__fill_content_info");
    expect_outcome(
        data, ZEL_ERR_NONE,
        "share t' " + long_text +
            " NULL from NULL 5000000000 2\n"
            "item 1 3000000000 4000000000 t' o1 t1 m1 b1 n'1 c1\nitem 2 3 2 t' o2 NULL NULL NULL NULL NULL\n",
        whole(data.function, {whole(reader, {debug(reader, "contents_token[t']"), prepared(data.statement), fill, fill,
                                             finalized(reader)})}));
    // Missing texts are stored empty, but for the recipients.
    zel_trans_content_info bare = {};
    const std::string statement =
        "INSERT into 'content_info' VALUES (NULL, 1, 0, 0, 't', '', '', '', NULL, '', '', '', "
        "'', 0, '', '', NULL)";
    EXPECT_LOGGED(
        _common_storage_add_content_info(&bare, "t", nullptr, nullptr, nullptr, nullptr, 1), ZEL_ERR_NONE,
        whole(item_adder, {inserted(statement, 3), info(item_adder, "[ZEL] err_code: [0] Query: " + statement)}));
    expect_refused({data, {ZEL_CALL(get_contents, "t", &out.share), ""}}, bad_params);
    expect_refused({{ZEL_CALL(exist_content_info, "t"), ""}}, answers_no);
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, bad.message, _common_storage_add_notification, nullptr);
    const missing_table gone(items);
    expect_failure(data, ZEL_ERR_STORAGE_FAILURE, reader + " Failed");
    expect_ended_failure({ZEL_CALL(get_contents, "t'", &out.share), ""}, ZEL_ERR_STORAGE_FAILURE, "Failed to get file");
    bare.content_id = 77;
    EXPECT_LOGGED(_common_storage_add_content_info(&bare, "t", "", "", "", nullptr, 1), ZEL_ERR_STORAGE_FAILURE,
                  whole(item_adder, {inserted_in_vain(statement), critical(item_adder, "Failed to add content"),
                                     info(item_adder, "[ZEL] err_code: [15] Query: " + statement)}));
    EXPECT_EQ(bare.content_id, 77u);
}

TEST_F(StorageReceivedShares, any_url_of_an_item_finds_it)
{
    expect_nothing_found(by_url("o", "", ""), read_kind);
    database.run("INSERT INTO content_info(contents_token, from_msisdn, original, thumbnail, big_thumbnail, "
                 "mid_thumbnail, name, downloaded) VALUES ('t', '', 'o', 's', 'b', 'm', 'n', 0), "
                 "('', '', 'o2', '', '', '', '', 0), ('t', '', 'o', '', '', '', NULL, 0)");
    for (const char *url : {"o", "s", "b", "m"})
        expect_answers(by_url(url, "text n\n", "text t\n"));
    expect_answers(by_url("o2", "", "")); // an empty text is not handed out
    expect_failures(items, by_url("o", "", ""), read_kind);
    expect_questions(items, {not_downloaded}, count_kind);
    EXPECT_EQ(_common_storage_update_downloaded_content_info("o"), ZEL_ERR_NONE);
    answers out;
    EXPECT_EQ(not_downloaded.call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "number 0\n");
    database.lock();
    EXPECT_FALSE(_common_storage_exist_content_info("t"));
    database.unlock();
}

TEST_F(StorageReceivedShares, deletions_reach_the_items)
{
    const store_call by_token = {ZEL_CALL(delete_push_noti, "t"),
                                 "DELETE FROM 'push_noti_info' WHERE contents_token = 't'"};
    const store_call expired = {ZEL_CALL(delete_expired_push_noti, 100),
                                "DELETE FROM 'push_noti_info' WHERE expired_time < 100"};
    for (const store_call &made : {by_token, expired}) {
        database.run(
            "DELETE FROM push_noti_info; DELETE FROM content_info; INSERT INTO push_noti_info(contents_token, "
            "expired_time) VALUES ('t', 99), ('u', 100); INSERT INTO content_info(contents_token, expired_time, "
            "from_msisdn, original, thumbnail, big_thumbnail, mid_thumbnail) VALUES ('t', 99, '', '', '', '', "
            "''), ('u', 100, '', '', '', '', '')");
        std::string deleter = made.function, statement = made.statement;
        deleter.replace(deleter.find("push_noti"), 9, "content_info");
        statement.replace(statement.find("push_noti"), 9, "content");
        expect_outcome(made, ZEL_ERR_NONE, "",
                       whole(made.function, {ran(made.statement), whole(deleter, {ran(statement)})}));
        EXPECT_EQ(database.value("SELECT contents_token FROM push_noti_info"), "u");
        EXPECT_EQ(database.value("SELECT contents_token FROM content_info"), "u");
    }
    const missing_table gone(notis);
    expect_ended_failure(by_token, ZEL_ERR_STORAGE_FAILURE, "Failed to delete push noti ");
    expect_ended_failure(expired, ZEL_ERR_STORAGE_FAILURE, "Failed to delete expired push noti ");
}

TEST_F(StorageReceivedShares, changes)
{
    expect_changes(items,
                   {{ZEL_CALL(delete_content_info, "t'"), "DELETE FROM 'content_info' WHERE contents_token = 't'''"},
                    {ZEL_CALL(delete_content_info, nullptr), "DELETE FROM 'content_info' WHERE contents_token = NULL"},
                    {ZEL_CALL(delete_expired_content_info, 10000000000000000000ULL),
                     "DELETE FROM 'content_info' WHERE expired_time < 10000000000000000000"}},
                   "Failed to delete content info ", {"", 0});
    expect_changes(items,
                   {{ZEL_CALL(update_downloaded_content_info, "u'"),
                     "UPDATE 'content_info' SET downloaded = 1 WHERE original = 'u'''"}},
                   "Failed to update downloaded content info ", bad);
    expect_changes(items,
                   {{ZEL_CALL(update_status_content_info, "t'", QUILLO_PUSH_STATUS_SHARE_RECALLED),
                     "UPDATE 'content_info' SET push_status = 2 WHERE contents_token = 't'''"}},
                   "Failed to update push status", bad);
    expect_changes(notis,
                   {{ZEL_CALL(update_read_push_noti, "a"),
                     "UPDATE 'push_noti_info' SET read_noti = 1 WHERE type = 'a' and read_noti = 0"},
                    {ZEL_CALL(update_check_delete_push_noti, "t"),
                     "UPDATE 'push_noti_info' SET read_noti = 2 WHERE contents_token = 't'"}},
                   "Failed to update read_noti value of push noti ", bad);
}
