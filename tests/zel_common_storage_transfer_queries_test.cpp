#include "store_expectations.h"

using namespace zel_test;

namespace
{

struct StorageTransferQueries : store_test {
    /// Adds transfers given as "(sync_id, type, status, req_id, retries)", with distinct values elsewhere.
    void add(const std::string &rows)
    {
        database.run(
            "WITH given(sync_id, type, status, req_id, retries) AS (VALUES " + rows +
            ") INSERT INTO content_info_status SELECT sync_id, type, status, 60 + sync_id, req_id, 1, retries, "
            "3000000000 + sync_id, 3100000000 + sync_id, -10 - sync_id, 1700000000 + sync_id, 't', 'type' || "
            "sync_id, 'original' || sync_id, 'thumbnail' || sync_id, 'n', 'path' || sync_id, 'key' || sync_id "
            "FROM given");
    }
};

const char table[] = "content_info_status";
#define FROM "FROM 'content_info_status' WHERE "
const refusal bad = {"Invalid parameters", POINTERS}, bad_params = {"Invalid Params", POINTERS},
              bad_request = {"Invalid Params", FIRST | POINTERS};
const question_kind count_kind = {"Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS, bad, true, debug};
const question_kind list_kind = {"Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS, bad_params, true, nullptr};
const question_kind field_kind = {"Failed to get file", ZEL_ERR_STORAGE_NO_RECORDS, bad_params};
const question_kind id_kind = {"Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST, bad};
const question_kind kind_count_kind = {"Failed to get file", ZEL_ERR_RESOURCE_DOESNT_EXIST, bad_params};
constexpr auto UP = ZEL_UPLOAD_FILE, DOWN = ZEL_DOWNLOAD_FILE;
constexpr auto TODO = ZEL_SYNC_TODO, FAILED = ZEL_SYNC_FAILED;
constexpr unsigned int R8 = 3000000008, R9 = 3000000009;

const store_calls counts = {
    {ZEL_CALL(get_sync_content_info_count, UP, FAILED, 1, &out.numbers[0]),
     "SELECT COUNT(*) " FROM "status = 2 and sync_type = 1 and fail_retry_count >= 1 and fail_retry_count <= 5",
     "number 3\n"},
    {ZEL_CALL(get_sync_content_info_count, UP, FAILED, 0, &out.numbers[0]),
     "SELECT COUNT(*) " FROM "status = 2 and sync_type = 1 and fail_retry_count = 0", "number 1\n"},
    {ZEL_CALL(get_sync_content_info_count, UP, FAILED, -1, &out.numbers[0]),
     "SELECT COUNT(*) " FROM "status = 2 and sync_type = 1", "number 5\n"},
    {ZEL_CALL(get_sync_content_info_count_for_req_id, UP, FAILED, 1, &out.numbers[0], R9),
     "SELECT COUNT(*) " FROM "status = 2 and sync_type = 1 and fail_retry_count >= 1 and fail_retry_count <= 5 and "
     "req_id = 3000000009",
     "number 2\n"},
    {ZEL_CALL(get_sync_content_info_count_for_req_id, UP, FAILED, 0, &out.numbers[0], R9),
     "SELECT COUNT(*) " FROM "status = 2 and sync_type = 1 and fail_retry_count = 0 and req_id = 3000000009",
     "number 1\n"},
    {ZEL_CALL(get_sync_content_info_count_for_req_id, UP, FAILED, -1, &out.numbers[0], R9),
     "SELECT COUNT(*) " FROM "status = 2 and sync_type = 1 and req_id = 3000000009", "number 4\n"},
    {ZEL_CALL(get_sync_content_info_remaining_syncable_count_for_req_id, DOWN, &out.numbers[0], R8),
     "SELECT COUNT(*) " FROM "(status = 0 or status = 1 or status = 3 or status = 4) and sync_type = 3 and req_id = "
     "3000000008",
     "number 4\n"},
    {ZEL_CALL(get_sync_content_info_remaining_thumbnail_count_for_req_id, DOWN, &out.numbers[0], R8),
     "SELECT COUNT(*) " FROM "status != 2 and sync_type = 3 and req_id = 3000000008", "number 5\n"},
};
const store_calls counts_by_kind = {
    {ZEL_CALL(get_pausable_cnt_by_sync_type, DOWN, &out.counts[0]),
     "SELECT count(*) " FROM "(status = 0 or status = 1) and sync_type = 3", "count 2\n"},
    {ZEL_CALL(get_resumable_and_cancellable_cnt_by_sync_type, DOWN, &out.counts[0]),
     "SELECT count(*) " FROM "(status = 0 or status = 1 or status = 3 or status = 4) and sync_type = 3", "count 4\n"},
};

/// With the ids of the transfers that each lists, all of one digit.
const store_calls lists = {
    {ZEL_CALL(get_sync_content_info_list, UP, TODO, &out.records, 2),
     "SELECT * " FROM "status = 0 and sync_type = 1  LIMIT 0,2", "12"},
    {ZEL_CALL(get_sync_content_info_list, UP, FAILED, &out.records, -1),
     "SELECT * " FROM "status = 2 \t\t\t\tand sync_type = 1 and fail_retry_count <= 5 order by fail_retry_count  LIMIT "
     "0,-1",
     "786"},
    {ZEL_CALL(get_sync_content_info_list, ZEL_UNKNOWN, TODO, &out.records, 3), "SELECT * " FROM "status = 0  LIMIT 0,3",
     "123"},
    {ZEL_CALL(get_sync_content_info_list, ZEL_UNKNOWN, FAILED, &out.records, 3),
     "SELECT * " FROM "status = 2 and \t\t\t\tfail_retry_count <= 5 order by fail_retry_count  LIMIT 0,3", "789"},
    {ZEL_CALL(get_sync_content_info_list_by_req_id, UP, TODO, &out.records, 5),
     "SELECT * " FROM "status = 0 and sync_type = 1 and req_id = 5", "14"},
    {ZEL_CALL(get_sync_content_info_list_by_req_id, UP, FAILED, &out.records, 9),
     "SELECT * " FROM "status = 2 and sync_type = 1 and fail_retry_count <= 5 and req_id = 9 order by fail_retry_count",
     "86"},
    {ZEL_CALL(get_sync_content_info_list_by_req_id, ZEL_UNKNOWN, TODO, &out.records, 5),
     "SELECT * " FROM "status = 0 and req_id = 5", "134"},
    {ZEL_CALL(get_sync_content_info_list_by_req_id, ZEL_UNKNOWN, FAILED, &out.records, 9),
     "SELECT * " FROM "status = 2 and fail_retry_count <= 5 and req_id = 9 order by fail_retry_count", "896"},
    {ZEL_CALL(get_sync_content_info_list_only_by_req_id, UP, &out.records, 9),
     "SELECT * " FROM "sync_type = 1 and req_id = 9", "568"},
};

const store_calls request_ids = {
    {ZEL_CALL(get_req_id_by_sync_type_and_status, DOWN, &out.count_list, &out.counts[0], true),
     "SELECT req_id " FROM "(status = 0 or status = 1) and sync_type = 3 and fail_retry_count = 0",
     "count 3\nentry 5\nentry 3000000006\nentry 5\n"},
    {ZEL_CALL(get_req_id_by_sync_type_and_status, DOWN, &out.count_list, &out.counts[0], false),
     "SELECT req_id " FROM "(status = 3 or status = 4) and sync_type = 3 and fail_retry_count = 0",
     "count 2\nentry 7\nentry 8\n"},
    {ZEL_CALL(get_resumable_and_cancellable_req_id_by_sync_type, DOWN, &out.count_list, &out.counts[0]),
     "SELECT req_id " FROM "(status = 0 or status = 1 or status = 3 or status = 4) and sync_type = 3 and "
     "fail_retry_count = 0",
     "count 5\nentry 5\nentry 3000000006\nentry 5\nentry 7\nentry 8\n"},
};

const store_calls fields = {
    {ZEL_CALL(get_original_by_sync_id, 1, &out.texts[0]), "SELECT * " FROM "sync_id = 1;", "text original1\n"},
    {ZEL_CALL(get_mupload_key_by_sync_id, 1, &out.texts[0]), "SELECT * " FROM "sync_id = 1;", "text key1\n"},
    {ZEL_CALL(get_local_path_by_sync_id, 1, &out.texts[0]), "SELECT * " FROM "sync_id = 1;", "text thumbnail1\n"},
    {ZEL_CALL(get_percentage_by_sync_id, 1, &out.counts[0]), "SELECT * " FROM "sync_id = 1;", "count 3000000001\n"},
    {ZEL_CALL(get_upload_info, 1, &out.counts[0], &out.numbers[0]), "SELECT * " FROM "sync_id = 1;",
     "number -11\ncount 3100000001\n"},
    {ZEL_CALL(get_sync_type_by_req_id, 5, &out.numbers[0]), "SELECT sync_type " FROM "req_id = 5;", "number 3\n"},
};
const store_call sent_time = {ZEL_CALL(get_sent_time_by_req_id, 5, &out.numbers[0]),
                              "SELECT sent_time " FROM "req_id = 5;", "number 1700000001\n",
                              info("_common_storage_get_sent_time_by_req_id", "sent_time[1700000001] reqid[5]")};
const store_calls wifi_only = {
    {ZEL_CALL(get_wifi_only_by_sync_id, 1, &out.flag), "SELECT wifi_only " FROM "sync_id = 1;", "flag 0\n"},
    {ZEL_CALL(get_wifi_only_by_req_id, 5, &out.flag), "SELECT wifi_only " FROM "req_id = 5;", "flag 0\n"},
};
const store_call urls = {ZEL_CALL(get_sync_content_info_url_list, 5, &out.urls), "SELECT * " FROM "req_id = 5;"};
const store_call last_of_item = {ZEL_CALL(get_sync_content_info, 61, DOWN, &out.record),
                                 "SELECT * " FROM "content_id = 61 and sync_type = 3"};
const store_call paths = {
    ZEL_CALL(get_sent_time_local_path_by_req_id, 5, &out.numbers[1], &out.text_list, &out.numbers[0]), ""};

const store_calls totals = {
    {ZEL_CALL(check_all_file_completed_by_req_id, 5, &out.flag), "SELECT COUNT(*) " FROM "req_id = 5"},
    {ZEL_CALL(check_all_file_failed_by_req_id, 5, &out.flag), "SELECT COUNT(*) " FROM "req_id = 5"},
};

} // namespace

TEST_F(StorageTransferQueries, counts_and_their_conditions)
{
    add("(1,1,2,3000000009,0), (2,1,2,3000000009,1), (3,1,2,3000000009,5), (4,1,2,3000000009,6), (5,1,2,8,3), "
        "(6,2,2,3000000009,1), (7,1,0,3000000009,1), (10,3,0,3000000008,0), (11,3,1,3000000008,0), "
        "(12,3,2,3000000008,0), (13,3,3,3000000008,9), (14,3,4,3000000008,0), (15,3,5,3000000008,0)");
    expect_questions(table, counts, count_kind);
    expect_questions(table, counts_by_kind, kind_count_kind);
    for (const store_call &unknown :
         store_calls{{ZEL_CALL(get_sync_content_info_count, UP, FAILED, 2, &out.numbers[0]), ""},
                     {ZEL_CALL(get_sync_content_info_count_for_req_id, UP, FAILED, -2, &out.numbers[0], R9), ""}})
        expect_ended_failure(unknown, ZEL_ERR_STORAGE_FAILURE, count_kind.failure);
    database.run("DELETE FROM content_info_status");
    expect_nothing_found(counts, count_kind);
    expect_nothing_found(counts_by_kind, kind_count_kind);
    const missing_table gone(table);
    EXPECT_EQ(_common_storage_get_batch_count(UP, FAILED, false), 10);
}

TEST_F(StorageTransferQueries, free_places_of_a_batch)
{
    add("(1,1,2,9,0), (2,1,2,9,0), (3,1,2,9,0), (4,1,2,9,1)");
    EXPECT_EQ(_common_storage_get_batch_count(UP, FAILED, false), 7);
    const std::string function = "_common_storage_get_batch_count", counter = counts[1].function;
    EXPECT_TRACE(whole(function, {whole(counter, {prepared(counts[1].statement), finalized(counter)}),
                                  info(function, "left_req_count [7]")}));
    EXPECT_EQ(_common_storage_get_batch_count(UP, FAILED, true), 9);
    add("(5,1,2,9,0), (6,1,2,9,0), (7,1,2,9,0), (8,1,2,9,0), (9,1,2,9,0), (10,1,2,9,0)");
    EXPECT_EQ(_common_storage_get_batch_count(UP, FAILED, false), 1);
    for (const char *one_more : {"(11,1,2,9,0)", "(12,1,2,9,0)"}) {
        add(one_more);
        take_trace();
        EXPECT_EQ(_common_storage_get_batch_count(UP, FAILED, false), 0);
        EXPECT_EQ(take_trace().text.find("left_req_count"), std::string::npos);
    }
}

TEST_F(StorageTransferQueries, lists_and_records)
{
    expect_nothing_found(lists, list_kind);
    expect_nothing_found({last_of_item}, field_kind);
    add("(1,1,0,5,9), (2,1,0,6,0), (3,3,0,5,0), (4,1,0,5,0), (5,1,2,9,6), (6,1,2,9,5), (7,1,2,0,0), (8,1,2,9,1), "
        "(9,2,2,9,4)");
    for (const store_call &list : lists) {
        answers out;
        EXPECT_EQ(list.call(out), ZEL_ERR_NONE);
        std::string ids;
        trace filled;
        for (const GList *node = out.records; node; node = node->next) {
            ids += std::to_string(static_cast<zel_content_sync_info *>(node->data)->sync_id);
            filled = join({filled, whole("__fill_content_sync_info")});
        }
        EXPECT_EQ(ids, list.answer) << list.statement;
        EXPECT_TRACE(whole(list.function, {prepared(list.statement), filled, finalized(list.function)}));
        out.take();
        take_trace();
    }
    expect_failures(table, lists, list_kind);
    expect_failures(table, {last_of_item}, field_kind);
    database.run("UPDATE content_info_status SET content_id = 61, sync_type = 3 WHERE sync_id IN (1, 2, 4)");
    answers out;
    EXPECT_EQ(last_of_item.call(out), ZEL_ERR_NONE);
    EXPECT_TRUE(out.take().starts_with("record 4 "));
    expect_refused({{ZEL_CALL(get_sync_content_info_by_sync_id, 1, &out.record), ""}}, bad_params);
}

TEST_F(StorageTransferQueries, request_ids_of_neighbouring_rows)
{
    expect_nothing_found(request_ids, id_kind);
    add("(1,3,0,0,0), (2,3,0,5,0), (3,3,1,5,0), (4,3,1,3000000006,0), (5,3,0,5,0), (6,3,3,7,0), (7,3,4,8,0), "
        "(8,3,0,9,1), (9,3,5,10,0), (10,1,0,11,0)");
    expect_questions(table, request_ids, id_kind);
}

TEST_F(StorageTransferQueries, a_request_is_finished_when_all_its_rows_are)
{
    const auto expect_finished = [](const std::string &completed, const std::string &failed) {
        for (store_call total : totals) {
            const bool asks_completed = total.function == totals[0].function;
            total.answer = asks_completed ? completed : failed;
            total.inside = join(
                {finalized(total.function),
                 prepared(total.statement + (asks_completed ? " and (status = 5 or status = 2)" : " and status = 2"))});
            expect_answers({total});
        }
    };
    const std::string yes, no = "flag 0\n";
    add("(9,1,0,6,0)"); // of another request
    expect_finished(yes, yes);
    add("(1,1,2,5,0)");
    expect_finished(yes, yes);
    add("(2,1,5,5,0), (3,1,5,5,0)");
    expect_finished(yes, no);
    add("(4,1,3,5,0)");
    expect_finished(no, no);
    expect_failures(table, totals, {"Failed to get file count!!", ZEL_ERR_RESOURCE_DOESNT_EXIST, bad_request, false});
    for (const store_call &total : totals) {
        calls::sqlite_format.answer(0); // the text of the second count, which is put together first
        expect_failure(total, ZEL_ERR_STORAGE_FAILURE,
                       total.function == totals[0].function ? "Failed to get completed file count!!"
                                                            : "Failed to get file count!!");
    }
}

TEST_F(StorageTransferQueries, single_fields)
{
    expect_nothing_found(fields, field_kind);
    add("(1,3,0,5,0), (2,2,0,5,0)");
    expect_questions(table, fields, field_kind);
    question_kind kind = field_kind;
    kind.refused = bad_request;
    expect_questions(table, {sent_time}, kind);
    for (const int stored : {0, 1, 2}) {
        database.run("UPDATE content_info_status SET wifi_only = " + std::to_string(stored));
        for (const store_call &question : wifi_only) {
            answers out;
            out.flag = stored != 1;
            EXPECT_EQ(question.call(out), ZEL_ERR_NONE);
            EXPECT_EQ(out.flag, stored == 1) << stored;
        }
    }
    expect_questions(table, wifi_only, field_kind);
    database.run("UPDATE content_info_status SET sent_time = 4294967296 + 5, original = '', mupload_key = NULL, "
                 "thumbnail = ''");
    answers out;
    EXPECT_EQ(sent_time.call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "number 5\n") << "the low 32 bits";
    for (const size_t text : {0u, 1u, 2u})
        EXPECT_EQ(fields[text].call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.take(), "") << "an empty text was handed out";
    // The output is looked at before the id.
    for (const store_call &made : store_calls{{ZEL_CALL(get_mupload_key_by_sync_id, 0, &out.texts[0]), ""},
                                              {ZEL_CALL(get_local_path_by_sync_id, 0, &out.texts[0]), ""},
                                              {ZEL_CALL(get_percentage_by_sync_id, 0, &out.counts[0]), ""},
                                              {ZEL_CALL(get_upload_info, 0, &out.counts[0], &out.numbers[0]), ""}})
        expect_failure(made, ZEL_ERR_INVALID_ARG, "Invalid parameter");
}

TEST_F(StorageTransferQueries, urls_and_paths_of_a_request)
{
    const std::string reader = paths.function;
    const std::string statement = "SELECT sent_time, local_path " FROM "req_id = 5;";
    const trace head = join({begin(reader), info(reader, "[Reshare] req_id [5]")});
    expect_ended_failure(paths, ZEL_ERR_STORAGE_NO_RECORDS, "No records found");
    add("(1,1,0,5,0), (2,1,0,5,0), (3,1,0,5,0), (4,1,0,6,0)");
    database.run("UPDATE content_info_status SET content_type = NULL, local_path = '' WHERE sync_id = 2; "
                 "UPDATE content_info_status SET content_type = '' WHERE sync_id = 3");
    const auto restored = [](const std::string &what) { return info(urls.function, "restore url_info " + what); };
    expect_outcome(
        urls, ZEL_ERR_NONE, "url original1 type1\nurl original3 \n",
        whole(urls.function, {prepared(urls.statement), restored("url = original1"), restored("content_type = type1"),
                              restored("url = original3"), restored("content_type = "), finalized(urls.function)}));
    expect_outcome(paths, ZEL_ERR_NONE, "number 2\nnumber 1700000001\ntext path1\ntext path3\n",
                   join({head, prepared(statement), info(reader, "[Reshare] sent_time [1700000001]"),
                         plain(reader, "local_path[path1]"), plain(reader, "local_path[path1]"),
                         plain(reader, "local_path[path3]"), info(reader, "[Reshare] count [2]"), finalized(reader),
                         end(reader)}));
    database.run("UPDATE content_info_status SET content_type = NULL, local_path = NULL");
    answers out;
    EXPECT_EQ(urls.call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.urls, nullptr);
    EXPECT_EQ(paths.call(out), ZEL_ERR_NONE);
    EXPECT_EQ(out.text_list, nullptr);
    EXPECT_EQ(out.numbers[0], 0);
    question_kind kind = field_kind;
    kind.refused = {"Invalid parameter", EVERYTHING, true};
    expect_failures(table, {urls}, kind);
    const missing_table gone(table);
    expect_ended_failure(paths, ZEL_ERR_STORAGE_FAILURE, "Failed to get file");
    for (const store_call &bad : store_calls{
             {ZEL_CALL(get_sent_time_local_path_by_req_id, 0, &out.numbers[0], &out.text_list, &out.numbers[0]), ""},
             {ZEL_CALL(get_sent_time_local_path_by_req_id, 5, nullptr, &out.text_list, &out.numbers[0]), ""},
             {ZEL_CALL(get_sent_time_local_path_by_req_id, 5, &out.numbers[0], nullptr, &out.numbers[0]), ""},
             {ZEL_CALL(get_sent_time_local_path_by_req_id, 5, &out.numbers[0], &out.text_list, nullptr), ""}})
        expect_failure(bad, ZEL_ERR_INVALID_ARG, "Invalid Params");
}
