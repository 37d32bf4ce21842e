#include "store_expectations.h"

using namespace zel_test;

namespace
{

const question_kind field_kind = {"Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS};
const question_kind list_kind = {"Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST, false};
const std::string clock_name = "_common_util_get_current_timestamp";
const trace now = whole(clock_name, {debug(clock_name, " timestamp:1700000000")});
constexpr unsigned int R = 3000000005;
const char requests[] = "upload_request_data", transfers[] = "content_info_status", contacts[] = "contact_details";
#define OF_REQUEST " FROM 'upload_request_data' WHERE req_id = 3000000005;"

struct StorageUploads : store_test {
    void
    add_request(const std::string &values = "3000000005, 3, 2, 3, 5000000000, 6000000000, 't''', 2, 'd', 7000000000")
    {
        database.run("INSERT INTO upload_request_data VALUES (NULL, " + values + ")");
    }
    void add_recipients(const std::string &rows)
    {
        database.run("INSERT INTO contact_details(req_id, number_id, phone_no, ccc) VALUES " + rows);
    }
    void add_transfers(const std::string &rows)
    {
        database.run("WITH given(req_id, sent_time, path) AS (VALUES " + rows +
                     ") INSERT INTO content_info_status SELECT NULL, 1, 0, 0, req_id, 0, 0, 0, 0, 0, sent_time, '', "
                     "'', '', '', '', path, '' FROM given");
    }
    void update(const std::string &what)
    {
        database.run("UPDATE upload_request_data SET " + what);
    }
};

const store_calls request_changes = {
    {ZEL_CALL(update_upload_status, 5, QUILLO_UPLOAD_STATUS_SHARE_RECALLED),
     "UPDATE 'upload_request_data' SET status = 8 WHERE req_id = 5"},
    {ZEL_CALL(update_expiry_time, 5, 5000000000), "UPDATE 'upload_request_data' SET expired_time = 5000000000 WHERE "
                                                  "req_id = 5"},
};
const store_call token_change = {
    ZEL_CALL(update_contents_token_info, 5, "t'", 5000000000),
    "UPDATE 'upload_request_data' SET contents_token = 't''',expired_time = 5000000000 WHERE req_id = 5"};
const store_call new_recipient = {ZEL_CALL(add_upload_receiver_details, R, "77'", "44", -3),
                                  "INSERT into 'contact_details' VALUES (NULL, 3000000005, -3, '77''', '44')"};

const store_calls fields = {
    {ZEL_CALL(get_upload_total_size, R, &out.wides[0]), "SELECT total_size" OF_REQUEST, "wide 6000000000\n"},
    {ZEL_CALL(get_upload_expire_time, R, &out.wides[0]), "SELECT expired_time" OF_REQUEST, "wide 5000000000\n"},
    {ZEL_CALL(get_upload_contents_token, R, &out.texts[0]), "SELECT contents_token" OF_REQUEST, "text t'\n"},
    {ZEL_CALL(get_upload_status, R, &out.numbers[0]), "SELECT status" OF_REQUEST, "number 2\n"},
    {ZEL_CALL(get_upload_app_info, R, &out.counts[0], &out.texts[0]), "SELECT *" OF_REQUEST, "count 2\ntext d\n"},
};
const store_call file_count = {ZEL_CALL(get_upload_content_count, R, &out.numbers[0]), "SELECT file_count" OF_REQUEST,
                               "number 3\n"};
const store_call by_token = {ZEL_CALL(get_reqid_from_contents_token, "t'", &out.counts[0]),
                             "SELECT req_id FROM 'upload_request_data' WHERE contents_token = 't''';",
                             "count 3000000005\n"};

/// Lists of request ids: their condition, and the last digits of the ids from 10 to 18 that each hands out.
const store_calls counted_lists = {
    {ZEL_CALL(get_resumable_and_cancellable_upload_req_id_and_cnt, 3, &out.count_list, &out.counts[0]),
     " WHERE status != 4 and status != 5 and status != 7", "012368"},
    {ZEL_CALL(get_resumable_and_cancellable_upload_req_id_and_cnt, 2, &out.count_list, &out.counts[0]),
     " WHERE status != 4 and status != 5 and status != 7 and app_type = 2", "28"},
    {ZEL_CALL(get_resumable_and_cancellable_upload_req_id_and_cnt, 0, &out.count_list, &out.counts[0]),
     " WHERE status != 4 and status != 5 and status != 7 and app_type = 0", "036"},
    {ZEL_CALL(get_failed_and_cancelled_upload_req_id_and_cnt, 7, &out.count_list, &out.counts[0]),
     " WHERE status = 4 or status = 5", "45"},
    {ZEL_CALL(get_failed_and_cancelled_upload_req_id_and_cnt, 1, &out.count_list, &out.counts[0]),
     " WHERE (status = 4 or status = 5) and app_type = 1", "4"},
    {ZEL_CALL(get_upload_list_details, &out.count_list, &out.counts[0]), "", "012345678"},
};
const store_calls lists = {
    {ZEL_CALL(get_request_id_list, APP_TYPE_NONE, &out.count_list, &out.counts[0]),
     "SELECT req_id FROM 'upload_request_data' ORDER BY sent_time DESC;", "501234678"},
    {ZEL_CALL(get_request_id_list, PIKO_APP_TYPE, &out.count_list, &out.counts[0]),
     "SELECT req_id FROM 'upload_request_data' WHERE app_type = 2 ORDER BY sent_time DESC;", "528"},
};
const store_call resumable_count = {
    ZEL_CALL(get_resumable_and_cancellable_upload_cnt, &out.counts[0]),
    "SELECT count(*) FROM 'upload_request_data' WHERE status != 4 and status != 5 and status != 7;", "count 6\n"};

std::string ids_of(const std::string &digits)
{
    std::string all = "count " + std::to_string(digits.size()) + "\n";
    for (const char digit : digits)
        all += std::string("entry 1") + digit + "\n";
    return all;
}

/// Lists of the size that a request says.
const store_call people = {ZEL_CALL(get_upload_recievers_details, R, &out.people, &out.counts[0]),
                           "SELECT receiver_count" OF_REQUEST};
const store_call paths = {ZEL_CALL(get_upload_content_path_list, R, &out.text_list, &out.counts[0]),
                          "SELECT file_count" OF_REQUEST};
const store_call texts = {"_common_storage_get_upload_receipients_details",
                          [](answers &out) -> int {
                              const int code = _common_storage_get_upload_receipients_details(R, 2, &out.text_list);
                              out.counts[0] = code == ZEL_ERR_NONE ? 2 : 77;
                              return code;
                          },
                          "SELECT * FROM 'contact_details' WHERE req_id = 3000000005;"};
const trace filled = whole("__fill_upload_receiver_info");

} // namespace

TEST_F(StorageUploads, a_request_is_added_with_each_field_in_its_column)
{
    const scripted_clock clock(1700000000, 0);
    const auto text = [](const char *constant) { return const_cast<char *>(constant); };
    zel_upload_request_info info = {77,
                                    R,
                                    3000000001,
                                    QUILLO_UPLOAD_STATUS_STARTED,
                                    3000000002,
                                    6000000000,
                                    5000000000,
                                    nullptr,
                                    PIKO_APP_TYPE,
                                    text("not"),
                                    text("stored"),
                                    nullptr,
                                    1};
    const std::string adder = "_common_storage_add_upload_request_info";
    const std::string head = "INSERT into 'upload_request_data' VALUES (NULL,3000000005,3000000001,1,3000000002,"
                             "6000000000,5000000000, ";
    EXPECT_EQ(_common_storage_add_upload_request_info(&info), ZEL_ERR_NONE);
    EXPECT_TRACE(whole(adder, {now, inserted(head + "'',2,NULL,1700000000)", 1)}));
    EXPECT_EQ(info.unique_id, 1u);
    info.contents_token = text("t'");
    info.description = text("d'");
    drop_table(requests);
    EXPECT_EQ(_common_storage_add_upload_request_info(&info), ZEL_ERR_STORAGE_FAILURE);
    EXPECT_TRACE(whole(
        adder, {now, inserted_in_vain(head + "'t''',2,'d''',1700000000)"), critical(adder, "Failed to add file")}));
    EXPECT_EQ(info.unique_id, 1u);
    EXPECT_EQ(info.sent_time, 1700000000u);
}

TEST_F(StorageUploads, deletions)
{
    const store_call remove = {ZEL_CALL(delete_upload_info, R), ""},
                     recall = {ZEL_CALL(delete_recalled_contents, "t'"), ""};
    const std::string finder = by_token.function, remover = "_common_storage_delete_sync_content_info_by_req_id";
    const std::string of_transfers = "DELETE FROM 'content_info_status' WHERE req_id = 3000000005";
    const std::string of_request = "DELETE FROM 'upload_request_data' WHERE req_id = 3000000005";
    const trace failed = critical(remove.function, "Failed to delete upload info ");
    const trace found = whole(finder, {prepared(by_token.statement), finalized(finder)});
    const trace not_found = critical(recall.function, "Error: " + finder + "() failed!");
    expect_outcome(recall, ZEL_ERR_STORAGE_NO_RECORDS, "",
                   join({begin(recall.function), begin(finder), prepared(by_token.statement),
                         critical(finder, "No records found for contents_token [t']"), finalized(finder), not_found}));
    add_request();
    add_recipients("(3000000005, 1, '2', '3')");
    add_transfers("(3000000005, 1, ''), (6, 1, '')");
    expect_outcome(recall, ZEL_ERR_NONE, "", whole(recall.function, {found, whole(remover, {ran(of_transfers)})}));
    EXPECT_EQ(database.value("SELECT req_id FROM content_info_status"), "6");
    expect_outcome(remove, ZEL_ERR_NONE, "", whole(remove.function, {ran(of_transfers), ran(of_request)}));
    EXPECT_EQ(database.value("SELECT count(*) FROM contact_details"), "1");

    add_request();
    drop_table(transfers);
    expect_outcome(
        recall, ZEL_ERR_STORAGE_FAILURE, "",
        join({begin(recall.function), found,
              whole(remover, {ran_in_vain(of_transfers), critical(remover, "Failed to delete sync file info ")}),
              critical(recall.function, "Error: " + remover + "() failed!")}));
    expect_outcome(remove, ZEL_ERR_STORAGE_FAILURE, "",
                   join({begin(remove.function), ran_in_vain(of_transfers), failed, ran(of_request)}));
    drop_table(requests);
    expect_outcome(recall, ZEL_ERR_STORAGE_FAILURE, "",
                   join({begin(recall.function), begin(finder), prepared_in_vain(by_token.statement),
                         critical(finder, "Failed to get req_id for contents_token [t']"), not_found}));
}

TEST_F(StorageUploads, single_fields)
{
    expect_nothing_found(fields, field_kind);
    answers out;
    EXPECT_EQ(file_count.call(out), ZEL_ERR_STORAGE_NO_RECORDS);
    EXPECT_EQ(by_token.call(out), ZEL_ERR_STORAGE_NO_RECORDS);
    EXPECT_EQ(out.take(), "number 0\ncount 0\n");
    add_request();
    expect_answers(fields);
    expect_answers({file_count, by_token});
    EXPECT_EQ(_common_storage_get_upload_app_info(R, &out.counts[0], nullptr), ZEL_ERR_NONE);
    update("contents_token = '', description = NULL");
    EXPECT_EQ(fields[2].call(out), ZEL_ERR_NONE);
    EXPECT_EQ(fields[4].call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "count 2\n") << "an empty text was handed out";
    drop_table(requests);
    expect_failing_questions(fields, field_kind);
}

TEST_F(StorageUploads, lists_of_request_ids)
{
    expect_nothing_found(lists, list_kind);
    expect_nothing_found({resumable_count}, list_kind);
    const auto expect_lists = [](int code) {
        for (const store_call &list : counted_lists) {
            const bool begins = !list.statement.empty(), found = code == ZEL_ERR_NONE;
            const std::string from = " FROM 'upload_request_data'" + list.statement + ";", name = list.function;
            const trace listing = join({finalized(name), prepared("SELECT req_id" + from), finalized(name), end(name)});
            expect_outcome(list, code, found ? ids_of(list.answer) : "",
                           join({begins ? begin(name) : trace(), prepared("SELECT count(*)" + from),
                                 found ? listing : join({critical(name, "No records found"), finalized(name)})}));
        }
    };
    expect_lists(ZEL_ERR_RESOURCE_DOESNT_EXIST);
    for (int status = 0; status <= 8; ++status) // the sixth is the latest
        add_request("1" + std::to_string(status) + ", 1, " + std::to_string(status) + ", 1, 1, 1, '', " +
                    std::to_string(status == 5 ? 2 : status % 3) + ", '', " +
                    std::to_string(status == 5 ? 9 : -status));
    expect_lists(ZEL_ERR_NONE);
    for (store_call list : lists) {
        list.answer = ids_of(list.answer);
        expect_answers({list});
    }
    expect_answers({resumable_count});
    drop_table(requests);
    expect_failing_questions(lists, list_kind);
    expect_failing_questions({resumable_count, people, paths}, list_kind);
    answers out;
    for (const store_call &list : counted_lists)
        EXPECT_EQ(list.call(out), ZEL_ERR_STORAGE_FAILURE);
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", list_kind.failure), 6);
}

TEST_F(StorageUploads, recipients_and_paths_have_as_many_places_as_asked)
{
    const std::string filler = "__fill_upload_receipient_info", lister = texts.function;
    const auto answer = [](const store_call &call, const std::string &expected, const trace &inside) {
        expect_answers({{call.function, call.call, call.statement, expected, inside}});
    };
    const auto second = [](const store_call &call, const std::string &statement) {
        return join({finalized(call.function), prepared(statement)});
    };
    expect_nothing_found({people, paths, texts}, list_kind);
    add_request();
    for (const store_call &call : {people, paths}) // the request is there, what it owns is not
        expect_outcome(
            call, ZEL_ERR_RESOURCE_DOESNT_EXIST, "",
            join({begin(call.function), prepared(call.statement),
                  second(call, call.function == people.function
                                   ? texts.statement
                                   : "SELECT local_path FROM 'content_info_status' WHERE req_id = 3000000005;"),
                  critical(call.function, "No records found"), finalized(call.function)}));
    add_recipients("(3000000005, -1, '7700900123', '44'), (3000000005, 2, '5', ''), (6, 0, '', '')");
    answer(people, "count 3\nperson 44 7700900123 -1 0\nperson NULL 5 2 0\nperson NULL\n",
           join({second(people, texts.statement), filled, filled}));
    answer(texts, "count 2\ntext +447700900123\ntext 5\n",
           join({info(lister, "rcp count [2]"), whole(filler, {info(filler, "*receipient: [+447700900123]")}),
                 info(lister, "===== rcp[0]: +447700900123"), whole(filler, {info(filler, "*receipient: [5]")}),
                 info(lister, "===== rcp[1]: 5")}));
    add_recipients("(3000000005, 3, '', '44'), (3000000005, 4, NULL, '1'), (3000000005, 5, '6', NULL)");
    answer(people, "count 3\nperson 44 7700900123 -1 0\nperson NULL 5 2 0\nperson 44 NULL 3 0\n",
           join({second(people, texts.statement), filled, filled, filled}));
    answers out;
    EXPECT_EQ(_common_storage_get_upload_receipients_details(R, 6, &out.text_list), ZEL_ERR_NONE);
    out.counts[0] = 6;
    EXPECT_EQ(out.take(), "count 6\ntext +447700900123\ntext 5\ntext NULL\ntext NULL\ntext 6\ntext NULL\n");

    add_transfers("(3000000005, 1, 'p1'), (3000000005, 1, ''), (3000000005, 1, NULL), (3000000005, 1, 'p2'), "
                  "(5, 1, 'q1'), (5, 1, NULL), (5, 1, '')");
    const trace listing = second(paths, "SELECT local_path FROM 'content_info_status' WHERE req_id = 3000000005;");
    answer(paths, "count 3\ntext p1\ntext p2\ntext NULL\n", listing);
    update("file_count = 1");
    answer(paths, "count 1\ntext p1\n", listing);
    update("file_count = 0, receiver_count = 0");
    expect_nothing_found({people, paths}, list_kind);
    const std::string path_lister = "_common_storage_get_sync_content_info_file_path_list";
    zel_trans_upload_info report = {};
    EXPECT_EQ(_common_storage_get_sync_content_info_file_path_list(5, &report), ZEL_ERR_NONE);
    EXPECT_TRACE(whole(path_lister, {prepared("SELECT * FROM 'content_info_status' WHERE req_id = 5;"),
                                     plain(path_lister, "[Filepath] q1"), plain(path_lister, "[Filepath] "),
                                     finalized(path_lister)}));
    EXPECT_EQ(g_list_length(report.file_path_list), 2u);
    g_list_free_full(report.file_path_list, g_free);
}

TEST_F(StorageUploads, the_report_of_a_request)
{
    const store_call report = {ZEL_CALL(get_upload_data, R, &out.report), ""},
                     other = {ZEL_CALL(get_upload_data, 5, &out.report), ""};
    const std::string name = report.function, lister = "_common_storage_get_sync_content_info_file_path_list";
    const trace asked = join({begin(name), prepared("SELECT *" OF_REQUEST)}),
                given_up = whole("_common_free_upload_info");
    const auto read = [&](const std::string &token) {
        return join({asked, info(name, "Reqid [3000000005]: total_size: [6000000000] file_count: [3] exp.time: "
                                       "[5000000000] receipient_count: [3] upload_status: [2] sent_time: [7000000000] "
                                       "contents_token: [" +
                                           token + "]\n")});
    };
    expect_outcome(report, ZEL_ERR_RESOURCE_DOESNT_EXIST, "",
                   join({asked, critical(name, "No records found"), finalized(name), given_up}));
    add_request();
    const trace of_people = join(
        {begin(people.function), prepared(people.statement), finalized(people.function), prepared(texts.statement)});
    expect_outcome(
        report, ZEL_ERR_RESOURCE_DOESNT_EXIST, "",
        join({read("t'"), of_people, critical(people.function, "No records found"), finalized(people.function),
              critical(name, "_common_storage_get_upload_recievers_details() failed [10]"), finalized(name),
              given_up}));
    update("contents_token = NULL");
    expect_outcome(report, ZEL_ERR_STORAGE_NO_RECORDS, "",
                   join({read("(null)"), critical(name, "Contents token is NULL for req_id 3000000005"),
                         finalized(name), given_up}));
    // Without its files the report is handed out all the same; an id above INT_MAX never has any.
    update("contents_token = ''");
    add_recipients("(3000000005, 1, '2', '3')");
    expect_outcome(
        report, ZEL_ERR_INVALID_ARG,
        "report 3000000005 6000000000 3 5000000000 7000000000  2\nperson 3 2 1 0\nperson NULL\nperson NULL\n",
        join({read(""), of_people, filled, finalized(people.function), end(people.function), begin(lister),
              critical(lister, "Invalid parameter"), critical(name, lister + "() failed [1]"), finalized(name),
              end(name)}));
    update("req_id = 5, receiver_count = 1");
    database.run("UPDATE contact_details SET req_id = 5");
    const auto expect_report = [&other](int code, const std::string &rest) {
        answers out;
        EXPECT_EQ(other.call(out), code);
        EXPECT_EQ(out.take(), "report 5 6000000000 3 5000000000 7000000000  " + rest + "person 3 2 1 0\n");
    };
    expect_report(ZEL_ERR_STORAGE_NO_RECORDS, "2\n");
    add_transfers("(5, 1, 'p1'), (5, 1, 'p2')");
    expect_report(ZEL_ERR_NONE, "2\npath p1\npath p2\n");
    update("status = 8"); // a recalled share has no files
    expect_report(ZEL_ERR_NONE, "8\n");
}

TEST_F(StorageUploads, statistics_count_what_expires_late_enough)
{
    const scripted_clock clock(1700000000, 0);
    const store_call ask = {ZEL_CALL(get_time_upload_total_file_static_hr, 24, &out.wides[0], &out.counts[0]), ""};
    const std::string name = ask.function;
    const auto asked = [&name](const std::string &check) {
        return join({begin(name), now, info(name, "now_time is 1700000000, chk_time is " + check),
                     info(name, "chk_time is " + check + "000"),
                     prepared("SELECT file_count, total_size FROM 'upload_request_data' WHERE expired_time >= " +
                              check + "000;")});
    };
    const trace none = join({critical(name, "No records found"), finalized(name), end(name)});
    expect_outcome(ask, ZEL_ERR_RESOURCE_DOESNT_EXIST, "", join({asked("1700086400"), none}));
    add_request("1, 2, 0, 1, 1700086400000, 5000000000, '', 0, '', 0");
    add_request("2, 3, 0, 1, 1700086399999, 1, '', 0, '', 0");
    add_request("3, 4, 0, 1, 1700086400001, 6000000000, '', 0, '', 0");
    const auto walked = [&name](const std::string &first, const std::string &second, const std::string &total) {
        return join({info(name, "checked file num is 2"), info(name, "checked size is " + first),
                     info(name, "checked file num is 4"), info(name, "checked size is " + second),
                     debug(name, "total file num is : 6"), debug(name, "total file size is : " + total)});
    };
    expect_outcome(
        ask, ZEL_ERR_NONE, "count 6\nwide 11000000000\n",
        join({asked("1700086400"), walked("5000000000", "6000000000", "11000000000"), finalized(name), end(name)}));
    update("total_size = 0");
    expect_outcome(ask, ZEL_ERR_RESOURCE_DOESNT_EXIST, "", join({asked("1700086400"), walked("0", "0", "0"), none}));
    expect_outcome({ZEL_CALL(get_time_upload_total_file_static_hr, 1193047, &out.wides[0], &out.counts[0]),
                    "the seconds wrap at 32 bits"},
                   ZEL_ERR_RESOURCE_DOESNT_EXIST, "", join({asked("1700170896"), none}));
}

TEST_F(StorageUploads, a_share_sent_again_has_more_transfers_than_files)
{
    const store_call ask = {ZEL_CALL(does_reshare_exist, R, 1700000000, &out.flag), ""};
    const std::string name = ask.function, counter = file_count.function, head = "Error: [ZEL] Req_id[3000000005]: ";
    const std::string matcher = "_common_storage_get_matched_count_by_sent_time";
    const std::string matching = "SELECT COUNT(sent_time) FROM 'content_info_status' WHERE sent_time = 1700000000;";
    expect_outcome(ask, ZEL_ERR_STORAGE_NO_RECORDS, "flag 0\n",
                   join({begin(name),
                         whole(counter, {prepared(file_count.statement), critical(counter, "No records found"),
                                         finalized(counter)}),
                         critical(name, head + "Failed to get upload info()!! err_code[26]")}));
    add_request();
    const trace counted = join({begin(name), whole(counter, {prepared(file_count.statement), finalized(counter)})});
    add_transfers("(1, 1700000000, ''), (2, 1700000000, ''), (3, 1, '')");
    for (const std::string matched : {"2", "3", "4"}) {
        const bool too_few = matched == "2";
        expect_outcome(
            ask, too_few ? ZEL_ERR_STORAGE_NO_RECORDS : ZEL_ERR_NONE, matched == "4" ? "" : "flag 0\n",
            join({counted, whole(matcher, {prepared(matching), finalized(matcher)}),
                  info(name, "[ZEL] Req_id [3000000005]: matched_count [" + matched + "] file_count [3]"),
                  too_few ? critical(name, head + "Fatal error in DB!! There are fewer entries than expected")
                          : end(name)}));
        add_transfers("(4, 1700000000, '')");
    }
    drop_table(transfers);
    expect_outcome(
        ask, ZEL_ERR_STORAGE_FAILURE, "flag 0\n",
        join({counted, begin(matcher), prepared_in_vain(matching), critical(matcher, "Failed to get matched count!"),
              critical(name, head + "Not entries matching sent_time(1700000000)!! err_code[15]")}));
    expect_outcome(
        {ZEL_CALL(does_reshare_exist, 5, 6, nullptr), ""}, ZEL_ERR_INVALID_ARG, "",
        join({begin(name), critical(name, "Invalid Params: req_id[5] sent_time[6] does_reshare_exist[(nil)]")}));
    expect_outcome({ZEL_CALL(get_matched_count_by_sent_time, 6, nullptr), ""}, ZEL_ERR_INVALID_ARG, "",
                   join({begin(matcher), critical(matcher, "Invalid params: sent_time[6] matched_count[(nil)]")}));
    EXPECT_NEEDED(refusal{"Invalid Params"}, get_matched_count_by_sent_time, 6, nullptr);
    answers out;
    EXPECT_EQ(_common_storage_does_reshare_exist(0, 6, &out.flag), ZEL_ERR_INVALID_ARG);
    EXPECT_EQ(_common_storage_does_reshare_exist(5, 0, &out.flag), ZEL_ERR_INVALID_ARG);
    EXPECT_EQ(out.take(), "");
}

TEST_F(StorageUploads, changes_rejections_and_failures)
{
    const refusal bad = {"Invalid parameter"}, not_positive = {"Invalid parameter", true},
                  bad_params = {"Invalid Params"};
    EXPECT_NEEDED(not_positive, update_contents_token_info, 5, "t", 0);
    EXPECT_NEEDED(not_positive, update_upload_status, 5, QUILLO_UPLOAD_STATUS_NONE);
    EXPECT_NEEDED(not_positive, update_expiry_time, 5, 0);
    EXPECT_NEEDED(bad, add_upload_receiver_details, 5, "", "", 0);
    EXPECT_NEEDED(bad, delete_upload_info, 5);
    EXPECT_NEEDED(bad, delete_recalled_contents, "t");
    EXPECT_NEEDED(bad, get_upload_content_count, 5, &out.numbers[0]);
    EXPECT_NEEDED(bad, get_upload_total_size, 5, &out.wides[0]);
    EXPECT_NEEDED(bad, get_upload_expire_time, 5, &out.wides[0]);
    EXPECT_NEEDED(bad, get_upload_contents_token, 5, &out.texts[0]);
    EXPECT_NEEDED(bad, get_upload_status, 5, &out.numbers[0]);
    EXPECT_NEEDED(bad, get_upload_app_info, 5, &out.counts[0], nullptr);
    EXPECT_NEEDED(bad_params, get_resumable_and_cancellable_upload_req_id_and_cnt, 0, &out.count_list, &out.counts[0]);
    EXPECT_NEEDED(bad_params, get_failed_and_cancelled_upload_req_id_and_cnt, 0, &out.count_list, &out.counts[0]);
    EXPECT_NEEDED(bad_params, get_resumable_and_cancellable_upload_cnt, &out.counts[0]);
    EXPECT_NEEDED(refusal{"Invalid params"}, get_upload_data, 5, &out.report);
    EXPECT_NEEDED(bad_params, get_upload_recievers_details, 5, &out.people, &out.counts[0]);
    EXPECT_NEEDED(bad_params, get_upload_receipients_details, 5, 1, &out.text_list);
    EXPECT_NEEDED(bad_params, get_upload_content_path_list, 5, &out.text_list, &out.counts[0]);
    EXPECT_NEEDED(bad_params, get_time_upload_total_file_static_hr, 0, &out.wides[0], &out.counts[0]);
    const refusal minus_one = {"Invalid param", false, false, -1};
    EXPECT_NEEDED(minus_one, get_request_id_list, APP_TYPE_NONE, &out.count_list, &out.counts[0]);
    zel_trans_upload_info report = {};
    EXPECT_NEEDED(not_positive, get_sync_content_info_file_path_list, 5, &report);
    answers out;
    EXPECT_EQ(_common_storage_add_upload_request_info(nullptr), ZEL_ERR_INVALID_ARG);
    EXPECT_EQ(_common_storage_get_reqid_from_contents_token("t", nullptr), ZEL_ERR_INVALID_ARG);
    EXPECT_EQ(_common_storage_get_reqid_from_contents_token(nullptr, &out.counts[0]), ZEL_ERR_INVALID_ARG);
    EXPECT_EQ(out.take(), "count 0\n");
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", "Invalid parameter"), 3);
    EXPECT_EQ(_common_storage_get_upload_list_details(nullptr, &out.counts[0]), ZEL_ERR_INVALID_ARG);
    EXPECT_TRACE(critical("_common_storage_get_upload_list_details", "Invalid Params"));

    expect_changes(request_changes);
    expect_changes({token_change, new_recipient});
    drop_table(requests);
    drop_table(contacts);
    expect_failing_changes(request_changes, "Failed to update status");
    expect_failing_changes({token_change}, "Failed to update contetns token ");
    expect_failing_changes({new_recipient}, "Failed to add file");
    expect_failing_questions({texts}, list_kind);
}
