#include "store_expectations.h"

using namespace zel_test;

namespace
{

const std::string no_file = "Failed to get file";
const refusal bad = {"Invalid parameter", FIRST | POINTERS}, bad_params = {"Invalid Params", FIRST | POINTERS};
const refusal bad_outputs = {"Invalid Params", POINTERS};
const question_kind field_kind = {no_file.c_str(), ZEL_ERR_STORAGE_NO_RECORDS, bad};
const question_kind list_kind = {no_file.c_str(), ZEL_ERR_RESOURCE_DOESNT_EXIST, bad_outputs, false};
const std::string clock_name = "_common_util_get_current_timestamp";
const trace now = whole(clock_name, {debug(clock_name, " timestamp:1700000000")});
constexpr unsigned int R = 3000000005;
constexpr auto STARTED = QUILLO_UPLOAD_STATUS_STARTED;
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

const store_calls fields = {
    {ZEL_CALL(get_upload_total_size, R, &out.wides[0]), "SELECT total_size" OF_REQUEST, "wide 6000000000\n"},
    {ZEL_CALL(get_upload_expire_time, R, &out.wides[0]), "SELECT expired_time" OF_REQUEST, "wide 5000000000\n"},
    {ZEL_CALL(get_upload_contents_token, R, &out.texts[0]), "SELECT contents_token" OF_REQUEST, "text t'\n"},
    {ZEL_CALL(get_upload_status, R, &out.numbers[0]), "SELECT status" OF_REQUEST, "number 2\n"},
    {ZEL_CALL(get_upload_app_info, R, &out.counts[0], nullptr), "SELECT *" OF_REQUEST, "count 2\n"},
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

/// Lists of the size that a request says, or the caller.
const store_call people = {ZEL_CALL(get_upload_recievers_details, R, &out.people, &out.counts[0]),
                           "SELECT receiver_count" OF_REQUEST};
const store_call paths = {ZEL_CALL(get_upload_content_path_list, R, &out.text_list, &out.counts[0]),
                          "SELECT file_count" OF_REQUEST};
const store_call texts = {ZEL_CALL(get_upload_receipients_details, R, out.counts[0], &out.text_list),
                          "SELECT * FROM 'contact_details' WHERE req_id = 3000000005;"};
const std::string path_lister = "_common_storage_get_sync_content_info_file_path_list";
const trace filled = whole("__fill_upload_receiver_info");

} // namespace

TEST_F(StorageUploads, a_request_is_added_with_each_field_in_its_column)
{
    const scripted_clock clock(1700000000, 0);
    char text[] = "t'";
    zel_upload_request_info info = {
        77, R, 3000000001, STARTED, 3000000002, 6000000000, 5000000000, nullptr, PIKO_APP_TYPE, text, text, nullptr, 1};
    const std::string adder = "_common_storage_add_upload_request_info";
    const std::string head = "INSERT into 'upload_request_data' VALUES (NULL,3000000005,3000000001,1,3000000002,"
                             "6000000000,5000000000, ";
    EXPECT_LOGGED(_common_storage_add_upload_request_info(&info), ZEL_ERR_NONE,
                  whole(adder, {now, inserted(head + "'',2,NULL,1700000000)", 1)}));
    EXPECT_EQ(info.unique_id, 1u);
    info.contents_token = info.description = text;
    const missing_table gone(requests);
    EXPECT_LOGGED(_common_storage_add_upload_request_info(&info), ZEL_ERR_STORAGE_FAILURE,
                  whole(adder, {now, inserted_in_vain(head + "'t''',2,'t''',1700000000)"),
                                critical(adder, "Failed to add file")}));
    EXPECT_EQ(info.unique_id, 1u);
    EXPECT_EQ(info.sent_time, 1700000000u);
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, bad.message, _common_storage_add_upload_request_info, nullptr);
}

TEST_F(StorageUploads, changes)
{
    expect_changes(requests,
                   {{ZEL_CALL(update_upload_status, 5, QUILLO_UPLOAD_STATUS_SHARE_RECALLED),
                     "UPDATE 'upload_request_data' SET status = 8 WHERE req_id = 5"},
                    {ZEL_CALL(update_expiry_time, 5, 5000000000),
                     "UPDATE 'upload_request_data' SET expired_time = 5000000000 WHERE req_id = 5"}},
                   "Failed to update status", {bad.message, FIRST, true});
    expect_changes(
        requests,
        {{ZEL_CALL(update_contents_token_info, 1, "t'", 5000000000),
          "UPDATE 'upload_request_data' SET contents_token = 't''',expired_time = 5000000000 WHERE req_id = 1"}},
        "Failed to update contetns token ", {bad.message, FIRST | POINTERS, true});
    expect_changes(contacts,
                   {{ZEL_CALL(add_upload_receiver_details, R, "77'", "44", -3),
                     "INSERT into 'contact_details' VALUES (NULL, 3000000005, -3, '77''', '44')"}},
                   "Failed to add file", bad);
}

TEST_F(StorageUploads, deletions)
{
    const store_call remove = {ZEL_CALL(delete_upload_info, R), ""},
                     recall = {ZEL_CALL(delete_recalled_contents, "t'"), ""};
    expect_refused({remove, recall}, bad);
    const std::string finder = by_token.function, remover = "_common_storage_delete_sync_content_info_by_req_id";
    const std::string of_transfers = "DELETE FROM 'content_info_status' WHERE req_id = 3000000005";
    const std::string of_request = "DELETE FROM 'upload_request_data' WHERE req_id = 3000000005";
    expect_failure(by_token, ZEL_ERR_STORAGE_NO_RECORDS, "No records found for contents_token [t']", "count 0\n");
    expect_failure(recall, ZEL_ERR_STORAGE_NO_RECORDS, "Error: " + finder + "() failed!");
    add_request();
    add_recipients("(3000000005, 1, '2', '3')");
    add_transfers("(3000000005, 1, ''), (6, 1, '')");
    {
        const missing_table gone(transfers);
        expect_failure(recall, ZEL_ERR_STORAGE_FAILURE, "Error: " + remover + "() failed!");
        expect_failure(remove, ZEL_ERR_STORAGE_FAILURE, "Failed to delete upload info ");
        EXPECT_EQ(database.value("SELECT count(*) FROM upload_request_data"), "0") << "deleted all the same";
    }
    add_request();
    expect_outcome(recall, ZEL_ERR_NONE, "",
                   whole(recall.function, {whole(finder, {prepared(by_token.statement), finalized(finder)}),
                                           whole(remover, {ran(of_transfers)})}));
    EXPECT_EQ(database.value("SELECT req_id FROM content_info_status"), "6");
    expect_outcome(remove, ZEL_ERR_NONE, "", whole(remove.function, {ran(of_transfers), ran(of_request)}));
    EXPECT_EQ(database.value("SELECT count(*) FROM contact_details"), "1");
    const missing_table gone(requests);
    expect_failure(by_token, ZEL_ERR_STORAGE_FAILURE, "Failed to get req_id for contents_token [t']", "count 0\n");
}

TEST_F(StorageUploads, single_fields)
{
    expect_nothing_found(fields, field_kind);
    expect_ended_failure(file_count, ZEL_ERR_STORAGE_NO_RECORDS, "No records found", "number 0\n");
    add_request();
    expect_questions(requests, fields, field_kind);
    expect_answers({file_count, by_token});
    expect_refused({file_count}, bad);
    answers out;
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, bad.message, _common_storage_get_reqid_from_contents_token, "t", nullptr);
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, bad.message, _common_storage_get_reqid_from_contents_token, nullptr,
                    &out.counts[0]);
    EXPECT_EQ(out.take(), "count 0\n");
    for (const char *text : {"text d\n", ""}) { // nothing is handed out for an empty text
        EXPECT_EQ(_common_storage_get_upload_app_info(R, &out.counts[0], &out.texts[0]), ZEL_ERR_NONE);
        EXPECT_EQ(out.take(), std::string("count 2\n") + text);
        update("contents_token = '', description = NULL");
    }
    EXPECT_EQ(fields[2].call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "");
}

TEST_F(StorageUploads, lists_of_request_ids)
{
    expect_nothing_found(lists, list_kind);
    for (const store_call &list : counted_lists)
        expect_failure(list, ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found");
    for (int status = 0; status <= 8; ++status) // the sixth is the latest
        add_request("1" + std::to_string(status) + ", 1, " + std::to_string(status) + ", 1, 1, 1, '', " +
                    std::to_string(status == 5 ? 2 : status % 3) + ", '', " +
                    std::to_string(status == 5 ? 9 : -status));
    for (const store_call &list : counted_lists) {
        const std::string from = " FROM 'upload_request_data'" + list.statement + ";", name = list.function;
        expect_outcome(list, ZEL_ERR_NONE, ids_of(list.answer),
                       join({list.statement.empty() ? trace() : begin(name), prepared("SELECT count(*)" + from),
                             finalized(name), prepared("SELECT req_id" + from), finalized(name), end(name)}));
        if (!list.statement.empty())
            expect_refused({list}, bad_outputs);
    }
    question_kind kind = list_kind;
    kind.refused = {"Invalid param", POINTERS, false, false, -1};
    for (store_call list : lists) {
        list.answer = ids_of(list.answer);
        expect_questions(requests, {list}, kind);
    }
    expect_questions(requests, {resumable_count}, list_kind);
    const missing_table gone(requests);
    for (const store_call &list : counted_lists)
        expect_failure(list, ZEL_ERR_STORAGE_FAILURE, no_file);
    unsigned int count = 0;
    EXPECT_LOGGED(_common_storage_get_upload_list_details(nullptr, &count), ZEL_ERR_INVALID_ARG,
                  critical("_common_storage_get_upload_list_details", bad_outputs.message));
}

TEST_F(StorageUploads, recipients_and_paths_have_as_many_places_as_asked)
{
    question_kind kind = list_kind;
    kind.refused = bad_params;
    expect_failures(requests, {people, paths}, kind);
    kind.refused.needed = EVERYTHING;
    expect_failures(contacts, {{ZEL_CALL(get_upload_receipients_details, R, 2, &out.text_list), texts.statement}},
                    kind);
    add_request();
    for (const store_call &call : {people, paths}) // the request is there, what it owns is not
        expect_failure(call, ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found");
    const auto expect = [](store_call call, const std::string &second, const trace &rows, const std::string &answer) {
        call.answer = answer;
        call.inside = join({finalized(call.function), prepared(second), rows});
        expect_answers({call});
    };
    const auto expect_texts = [](unsigned int places, const std::string &answer) {
        answers out;
        out.counts[0] = places;
        take_trace();
        EXPECT_EQ(texts.call(out), ZEL_ERR_NONE);
        EXPECT_EQ(out.take(), "count " + std::to_string(places) + "\n" + answer);
    };
    add_recipients("(3000000005, -1, '7700900123', '44'), (3000000005, 2, '5', ''), (6, 0, '', '')");
    expect(people, texts.statement, join({filled, filled}),
           "count 3\nperson 44 7700900123 -1 0\nperson NULL 5 2 0\nperson NULL\n");
    expect_texts(1, "text +447700900123\n");
    const std::string filler = "__fill_upload_receipient_info", lister = texts.function;
    EXPECT_TRACE(whole(lister, {prepared(texts.statement), info(lister, "rcp count [1]"),
                                whole(filler, {info(filler, "*receipient: [+447700900123]")}),
                                info(lister, "===== rcp[0]: +447700900123"), finalized(lister)}));
    add_recipients("(3000000005, 3, '', '44'), (3000000005, 4, NULL, '1'), (3000000005, 5, '6', NULL)");
    expect(people, texts.statement, join({filled, filled, filled}),
           "count 3\nperson 44 7700900123 -1 0\nperson NULL 5 2 0\nperson 44 NULL 3 0\n");
    expect_texts(6, "text +447700900123\ntext 5\ntext NULL\ntext NULL\ntext 6\ntext NULL\n");

    add_transfers("(3000000005, 1, 'p1'), (3000000005, 1, ''), (3000000005, 1, NULL), (3000000005, 1, 'p2')");
    const std::string listing = "SELECT local_path FROM 'content_info_status' WHERE req_id = 3000000005;";
    expect(paths, listing, {}, "count 3\ntext p1\ntext p2\ntext NULL\n");
    update("file_count = 1");
    expect(paths, listing, {}, "count 1\ntext p1\n");
    update("file_count = 0, receiver_count = 0");
    expect_nothing_found({people, paths}, list_kind);
}

TEST_F(StorageUploads, the_report_of_a_request)
{
    const store_call report = {ZEL_CALL(get_upload_data, R, &out.report), ""},
                     other = {ZEL_CALL(get_upload_data, 5, &out.report), ""};
    const std::string name = report.function, lister = people.function;
    const auto reading = [&name](const std::string &token) {
        return info(name, "Reqid [3000000005]: total_size: [6000000000] file_count: [3] exp.time: [5000000000] "
                          "receipient_count: [3] upload_status: [2] sent_time: [7000000000] contents_token: [" +
                              token + "]\n");
    };
    expect_refused({report}, {"Invalid params", FIRST | POINTERS});
    expect_failure(report, ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found");
    add_request();
    expect_failure(report, ZEL_ERR_RESOURCE_DOESNT_EXIST, lister + "() failed [10]");
    update("contents_token = NULL");
    expect_outcome(report, ZEL_ERR_STORAGE_NO_RECORDS, "",
                   join({begin(name), prepared("SELECT *" OF_REQUEST), reading("(null)"),
                         critical(name, "Contents token is NULL for req_id 3000000005"), finalized(name),
                         whole("_common_free_upload_info")}));
    // Without its files the report is handed out all the same; an id above INT_MAX never has any.
    update("contents_token = ''");
    add_recipients("(3000000005, 1, '2', '3')");
    expect_outcome(
        report, ZEL_ERR_INVALID_ARG,
        "report 3000000005 6000000000 3 5000000000 7000000000  2\nperson 3 2 1 0\nperson NULL\nperson NULL\n",
        whole(name, {prepared("SELECT *" OF_REQUEST), reading(""),
                     whole(lister, {prepared(people.statement), finalized(lister), prepared(texts.statement), filled,
                                    finalized(lister)}),
                     begin(path_lister), critical(path_lister, bad.message),
                     critical(name, path_lister + "() failed [1]"), finalized(name)}));
    update("req_id = 5, receiver_count = 1");
    database.run("UPDATE contact_details SET req_id = 5");
    const std::string head = "report 5 6000000000 3 5000000000 7000000000  ", tail = "person 3 2 1 0\n";
    expect_ended_failure(other, ZEL_ERR_STORAGE_NO_RECORDS, path_lister + "() failed [26]", head + "2\n" + tail);
    add_transfers("(5, 1, 'p1'), (5, 1, NULL), (5, 1, '')");
    answers out;
    EXPECT_EQ(other.call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), head + "2\npath p1\npath \n" + tail);
    update("status = 8"); // a recalled share has no files
    EXPECT_EQ(other.call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), head + "8\n" + tail);

    take_trace();
    zel_trans_upload_info files = {};
    EXPECT_LOGGED(_common_storage_get_sync_content_info_file_path_list(5, &files), ZEL_ERR_NONE,
                  whole(path_lister, {prepared("SELECT * FROM 'content_info_status' WHERE req_id = 5;"),
                                      plain(path_lister, "[Filepath] p1"), plain(path_lister, "[Filepath] "),
                                      finalized(path_lister)}));
    g_list_free_full(files.file_path_list, g_free);
    expect_refusals(path_lister, {bad.message, EVERYTHING, true}, _common_storage_get_sync_content_info_file_path_list,
                    5, &files);
}

TEST_F(StorageUploads, statistics_count_what_expires_late_enough)
{
    const scripted_clock clock(1700000000, 0);
    const store_call ask = {ZEL_CALL(get_time_upload_total_file_static_hr, 24, &out.wides[0], &out.counts[0]), ""};
    const std::string name = ask.function;
    expect_refused({ask}, bad_outputs);
    expect_ended_failure(ask, ZEL_ERR_RESOURCE_DOESNT_EXIST, "No records found");
    add_request("1, 2, 0, 1, 1700086400000, 5000000000, '', 0, '', 0");
    add_request("2, 3, 0, 1, 1700086399999, 1, '', 0, '', 0");
    add_request("3, 4, 0, 1, 1700086400001, 6000000000, '', 0, '', 0");
    expect_outcome(
        ask, ZEL_ERR_NONE, "count 6\nwide 11000000000\n",
        whole(name, {now, info(name, "now_time is 1700000000, chk_time is 1700086400"),
                     info(name, "chk_time is 1700086400000"),
                     prepared("SELECT file_count, total_size FROM 'upload_request_data' WHERE expired_time >= "
                              "1700086400000;"),
                     info(name, "checked file num is 2"), info(name, "checked size is 5000000000"),
                     info(name, "checked file num is 4"), info(name, "checked size is 6000000000"),
                     debug(name, "total file num is : 6"), debug(name, "total file size is : 11000000000"),
                     finalized(name)}));
    unsigned long long size = 0;
    unsigned int number = 0;
    _common_storage_get_time_upload_total_file_static_hr(1193047, &size, &number);
    EXPECT_EQ(count_lines(take_trace(), "INFO", "chk_time is 1700170896000"), 1) << "the seconds wrap at 32 bits";
    const missing_table gone(requests);
    expect_ended_failure(ask, ZEL_ERR_STORAGE_FAILURE, no_file);
}

TEST_F(StorageUploads, a_share_sent_again_has_more_transfers_than_files)
{
    const store_call ask = {ZEL_CALL(does_reshare_exist, R, 1700000000, &out.flag), ""};
    const std::string name = ask.function, counter = file_count.function, head = "Error: [ZEL] Req_id[3000000005]: ";
    const std::string matcher = "_common_storage_get_matched_count_by_sent_time";
    const std::string matching = "SELECT COUNT(sent_time) FROM 'content_info_status' WHERE sent_time = 1700000000;";
    expect_failure(ask, ZEL_ERR_STORAGE_NO_RECORDS, head + "Failed to get upload info()!! err_code[26]", "flag 0\n");
    add_request();
    add_transfers("(1, 1700000000, ''), (2, 1700000000, ''), (3, 1, '')");
    expect_failure(ask, ZEL_ERR_STORAGE_NO_RECORDS, head + "Fatal error in DB!! There are fewer entries than expected",
                   "flag 0\n");
    for (const std::string matched : {"3", "4"}) {
        add_transfers("(4, 1700000000, '')");
        expect_outcome(
            ask, ZEL_ERR_NONE, matched == "4" ? "" : "flag 0\n",
            whole(name, {whole(counter, {prepared(file_count.statement), finalized(counter)}),
                         whole(matcher, {prepared(matching), finalized(matcher)}),
                         info(name, "[ZEL] Req_id [3000000005]: matched_count [" + matched + "] file_count [3]")}));
    }
    const missing_table gone(transfers);
    expect_failure(ask, ZEL_ERR_STORAGE_FAILURE, head + "Not entries matching sent_time(1700000000)!! err_code[15]",
                   "flag 0\n");
    expect_failure({ZEL_CALL(get_matched_count_by_sent_time, 6, &out.numbers[0]), ""}, ZEL_ERR_STORAGE_FAILURE,
                   "Failed to get matched count!");
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, "Invalid Params: req_id[5] sent_time[6] does_reshare_exist[(nil)]",
                    _common_storage_does_reshare_exist, 5, 6, nullptr);
    EXPECT_REJECTED(ZEL_ERR_INVALID_ARG, "Invalid params: sent_time[6] matched_count[(nil)]",
                    _common_storage_get_matched_count_by_sent_time, 6, nullptr);
    expect_refused({{ZEL_CALL(get_matched_count_by_sent_time, 6, &out.numbers[0]), ""}}, {bad_outputs.message, FIRST});
    bool exists = true;
    EXPECT_EQ(_common_storage_does_reshare_exist(0, 6, &exists), ZEL_ERR_INVALID_ARG);
    EXPECT_EQ(_common_storage_does_reshare_exist(5, 0, &exists), ZEL_ERR_INVALID_ARG);
    EXPECT_TRUE(exists);
}
