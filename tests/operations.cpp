#include "operations.h"

#include "zel_common_storage/received_shares.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace zel_test
{

const char *word = "word";

namespace
{

char *text()
{
    return const_cast<char *>(word);
}

std::string shown(const char *value)
{
    return value ? value : "NULL";
}

std::string shown(const zel_content_sync_info &it)
{
    std::ostringstream out;
    out << it.sync_id << ' ' << it.type << ' ' << it.status << ' ' << it.content_id << ' ' << it.req_id << ' '
        << it.wifi_only << ' ' << it.fail_retry_count << ' ' << it.percentage << ' ' << it.offset << ' ' << it.chunk_no
        << ' ' << it.sent_time << ' ' << shown(it.contents_token) << ' ' << shown(it.original) << ' '
        << shown(it.thumbnail) << ' ' << shown(it.name) << ' ' << shown(it.local_path) << ' ' << shown(it.mupload_key);
    return out.str();
}

std::string shown(const quillo_msisdn_s *it)
{
    if (!it)
        return "NULL";
    return shown(it->ccc) + ' ' + shown(it->phone_number) + ' ' + std::to_string(it->number_id) + ' ' +
           std::to_string(it->group_id);
}

std::string shown(const zel_trans_content_info &it)
{
    std::ostringstream out;
    out << it.content_id << ' ' << it.size << ' ' << it.download_count << ' ' << shown(it.contents_token) << ' '
        << shown(it.original) << ' ' << shown(it.thumbnail) << ' ' << shown(it.mid_thumbnail) << ' '
        << shown(it.big_thumbnail) << ' ' << shown(it.name) << ' ' << shown(it.content_type);
    return out.str();
}

zel_content_sync_info transfer(zel_file_sync_type type, zel_file_sync_status status, unsigned int req_id,
                               unsigned int retries, unsigned int content_id)
{
    return {77, type, status, content_id, req_id, 0,      retries, 0,     0,
            -1, 50,   text(), text(),     text(), text(), text(),  text()};
}

zel_upload_request_info request(unsigned int req_id, quillo_upload_status_e status)
{
    return {77, req_id, 2, status, 2, 1000000000000, 5000, text(), QUILLO_APP_TYPE, nullptr, nullptr, text(), 0};
}

zel_err_e add_share(const char *token, unsigned int &first_id)
{
    zel_trans_content_info items[2] = {};
    for (zel_trans_content_info &item : items)
        item = {text(), text(), text(), text(), text(), text(), text(), 1, 0, 5, first_id};
    GList *list = g_list_append(g_list_append(nullptr, &items[0]), &items[1]);
    zel_trans_share_content_info share = {const_cast<char *>(token), text(), text(), text(), text(), 100, 2, list, 0};
    const zel_err_e result = _common_storage_add_notification(&share);
    g_list_free(list);
    first_id = items[0].content_id;
    return result;
}

void ignore(void *, void *) {}

constexpr unsigned long long bit(int code)
{
    return 1ULL << code;
}
constexpr unsigned long long S = bit(ZEL_ERR_STORAGE_FAILURE);
constexpr unsigned long long GONE = S | bit(ZEL_ERR_RESOURCE_DOESNT_EXIST);
constexpr unsigned long long NONE = S | bit(ZEL_ERR_STORAGE_NO_RECORDS);
constexpr unsigned long long MEMORY = bit(ZEL_ERR_MEMORY);
constexpr bool ASKS = false;
constexpr bool WRITES = true;

// clang-format off
#define OP(function, ...) #function, [](answers &out) -> int {                                                         \
    static_cast<void>(out);                                                                                            \
    return function(__VA_ARGS__);                                                                                      \
}
#define PREDICATE(function, ...) #function, [](answers &out) -> int {                                                  \
    out.flag = function(__VA_ARGS__);                                                                                  \
    return ZEL_ERR_NONE;                                                                                               \
}
// clang-format on

const operation table[] = {
    /* Engine and schema. */
    {OP(__common_storage_get_db_version, &out.numbers[0]), ASKS, S},
    {OP(_common_storage_db_upgrade), WRITES, S},
    {PREDICATE(_common_storage_check_table_exist, "folder_info"), ASKS, 0, {}, {"flag 0\n"}},

    /* Key-value data and folder records. */
    {OP(_common_storage_upsert_unique_data, word, "new", word, word, word), WRITES, S},
    {OP(_common_storage_upsert_and_involk_unique_data, word, "new", word, word, word, ignore), WRITES, S},
    {OP(_common_storage_get_unique_data, word, &out.texts[0], &out.texts[1], &out.texts[2], &out.texts[3]), ASKS, GONE},
    {OP(_common_storage_delete_unique_data, word), WRITES, S},
    // The row it merges with, when that cannot be read, counts as absent.
    {OP(_common_storage_upsert_folder_info, word, "new", 0, nullptr, 0, 99), WRITES, S, {}, {""}, {""},
     "folder_info|word|new|0|NULL|0|99\n"},
    {OP(_common_storage_get_folder_info, word, &out.texts[0], &out.wides[0], &out.texts[1], &out.wides[1],
        &out.wides[2]),
     ASKS, GONE},
    {OP(_common_storage_exist_folder_token, word, &out.flag), ASKS, GONE, {}, {}, {"flag 0\n"}},
    {OP(_common_storage_delete_folder_info, word), WRITES, S},

    /* Received shares. */
    {PREDICATE(_common_storage_exist_push_noti, word), ASKS, 0, {}, {"flag 0\n"}},
    {OP(_common_storage_add_push_noti_info, "new", word, 1, 2), WRITES, S},
    {OP(_common_storage_delete_push_noti, word), WRITES, S, {}, {""}, {""}, ""},
    {OP(_common_storage_delete_expired_push_noti, 101), WRITES, S, {}, {""}, {""}, ""},
    {OP(_common_storage_delete_expired_content_info, 101), WRITES, S},
    {OP(_common_storage_update_read_push_noti, word), WRITES, S},
    {OP(_common_storage_update_check_delete_push_noti, word), WRITES, S},
    {OP(_common_storage_get_received_time_push_noti, word, &out.wides[0]), ASKS, GONE},
    {OP(_common_storage_get_contents_token_list, nullptr, false, &out.text_list, &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_contents_token_list, nullptr, true, &out.text_list, &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_contents_token_list, word, false, &out.text_list, &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_contents_token_list, word, true, &out.text_list, &out.counts[0]), ASKS, GONE},
    {OP(add_share, "new", out.counts[0]), WRITES, 0, {}, {"", "count 3\n"}, {""}, ""},
    {OP(_common_storage_get_content_name, word, &out.texts[0]), ASKS, GONE},
    {OP(_common_storage_get_notification_data, word, &out.share), ASKS, GONE | MEMORY, {"Failed to get file"}},
    {OP(_common_storage_update_downloaded_content_info, word), WRITES, S},
    {OP(_common_storage_get_contents_token_content_info, word, &out.texts[0]), ASKS, GONE},
    {OP(_common_storage_get_content_info_not_downloaded_count, word, &out.numbers[0]), ASKS, GONE},
    {OP(_common_storage_update_status_content_info, word, QUILLO_PUSH_STATUS_SHARE_RECALLED), WRITES, S},

    /* Transfers. */
    {"_common_storage_add_sync_content_info",
     [](answers &out) -> int {
         zel_content_sync_info info = transfer(ZEL_DOWNLOAD_FILE, ZEL_SYNC_TODO, 9, 0, 5);
         const int result = _common_storage_add_sync_content_info(&info);
         out.counts[0] = info.sync_id;
         return result;
     },
     WRITES, S},
    {"_common_storage_update_sync_content_info",
     [](answers &) -> int {
         zel_content_sync_info info = transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_ONGOING, 7, 1, 1);
         info.sync_id = 1;
         return _common_storage_update_sync_content_info(&info);
     },
     WRITES, S},
    {OP(_common_storage_set_failed_status_sync_content_info, 1), WRITES, S},
    {OP(_common_storage_update_status_sync_content_info, 1, ZEL_SYNC_ONGOING), WRITES, S},
    {OP(_common_storage_update_status_sync_content_info_by_sync_id, 1, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO), WRITES, S},
    {OP(_common_storage_update_status_sync_content_info_by_reqid, 7, ZEL_SYNC_COMPLETE), WRITES, S},
    {OP(_common_storage_update_status_sync_content_info_by_req_id, 7, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO), WRITES, S},
    {OP(_common_storage_set_all_status_sync_content_info, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED), WRITES, S},
    {OP(_common_storage_update_percentage_sync_content_info, 1, 50), WRITES, S},
    {OP(_common_storage_update_upload_info, 1, 4096, 3), WRITES, S},
    {OP(_common_storage_update_url_info, 2, word, word), WRITES, S},
    {OP(_common_storage_update_url_info_by_reqid, 7, word, word), WRITES, S},
    {OP(_common_storage_update_wifi_only_by_req_id, 7, 1), WRITES, S},
    {OP(_common_storage_update_mupload_key_sync_content_info, 1, "new"), WRITES, S},
    {OP(_common_storage_delete_sync_content_info, 1), WRITES, S},
    {OP(_common_storage_delete_sync_content_info_by_req_id, 7), WRITES, S},
    {OP(_common_storage_delete_sync_content_info_based_on_sync_type, ZEL_UPLOAD_FILE), WRITES, S},
    {OP(_common_storage_delete_sync_content_info_based_on_param, 7, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO), WRITES, S},

    /* Questions about transfers. */
    {OP(_common_storage_get_sync_content_info_count, ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, 1, &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_count, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, 0, &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_count, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, -1, &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_count_for_req_id, ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, 1, &out.numbers[0],
        7),
     ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_count_for_req_id, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, 0, &out.numbers[0], 7),
     ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_count_for_req_id, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, -1, &out.numbers[0], 7),
     ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_remaining_syncable_count_for_req_id, ZEL_UPLOAD_FILE, &out.numbers[0], 7),
     ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_remaining_thumbnail_count_for_req_id, ZEL_UPLOAD_FILE, &out.numbers[0],
        7),
     ASKS, NONE},
    {OP(_common_storage_get_pausable_cnt_by_sync_type, ZEL_UPLOAD_FILE, &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_resumable_and_cancellable_cnt_by_sync_type, ZEL_UPLOAD_FILE, &out.counts[0]), ASKS, GONE},
    {"_common_storage_get_batch_count",
     [](answers &out) -> int {
         out.numbers[0] = _common_storage_get_batch_count(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, false);
         return ZEL_ERR_NONE;
     },
     ASKS, 0, {}, {"number 10\n"}},
    {OP(_common_storage_get_sync_content_info_list, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &out.records, 10), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_list, ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, &out.records, 10), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_list, ZEL_UNKNOWN, ZEL_SYNC_TODO, &out.records, 10), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_list, ZEL_UNKNOWN, ZEL_SYNC_FAILED, &out.records, 10), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_list_by_req_id, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &out.records, 7), ASKS,
     NONE},
    {OP(_common_storage_get_sync_content_info_list_by_req_id, ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, &out.records, 7), ASKS,
     NONE},
    {OP(_common_storage_get_sync_content_info_list_by_req_id, ZEL_UNKNOWN, ZEL_SYNC_TODO, &out.records, 7), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info_list_by_req_id, ZEL_UNKNOWN, ZEL_SYNC_FAILED, &out.records, 7), ASKS,
     NONE},
    {OP(_common_storage_get_sync_content_info_list_only_by_req_id, ZEL_UPLOAD_FILE, &out.records, 7), ASKS, NONE},
    {OP(_common_storage_get_sync_content_info, 1, ZEL_UPLOAD_FILE, &out.record), ASKS, NONE | MEMORY,
     {"Memory Allocation Failure"}},
    {OP(_common_storage_get_sync_content_info_by_sync_id, 1, &out.record), ASKS, NONE | MEMORY,
     {"Memory Allocation Failure"}},
    {OP(_common_storage_get_req_id_by_sync_type_and_status, ZEL_UPLOAD_FILE, &out.count_list, &out.counts[0], true),
     ASKS, GONE},
    {OP(_common_storage_get_req_id_by_sync_type_and_status, ZEL_UPLOAD_FILE, &out.count_list, &out.counts[0], false),
     ASKS, GONE},
    {OP(_common_storage_get_resumable_and_cancellable_req_id_by_sync_type, ZEL_UPLOAD_FILE, &out.count_list,
        &out.counts[0]),
     ASKS, GONE},
    {OP(_common_storage_check_all_file_completed_by_req_id, 10, &out.flag), ASKS, GONE, {}, {"flag 0\n"}},
    {OP(_common_storage_check_all_file_failed_by_req_id, 10, &out.flag), ASKS, GONE, {}, {"flag 0\n"}},
    {OP(_common_storage_get_sync_content_info_url_list, 7, &out.urls), ASKS, NONE},
    {OP(_common_storage_get_original_by_sync_id, 1, &out.texts[0]), ASKS, NONE},
    {OP(_common_storage_get_mupload_key_by_sync_id, 1, &out.texts[0]), ASKS, NONE},
    {OP(_common_storage_get_local_path_by_sync_id, 1, &out.texts[0]), ASKS, NONE},
    {OP(_common_storage_get_percentage_by_sync_id, 1, &out.counts[0]), ASKS, NONE},
    {OP(_common_storage_get_upload_info, 1, &out.counts[0], &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_get_wifi_only_by_sync_id, 1, &out.flag), ASKS, NONE},
    {OP(_common_storage_get_wifi_only_by_req_id, 7, &out.flag), ASKS, NONE},
    {OP(_common_storage_get_sync_type_by_req_id, 7, &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_get_sent_time_by_req_id, 7, &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_get_sent_time_local_path_by_req_id, 7, &out.numbers[1], &out.text_list, &out.numbers[0]), ASKS,
     NONE | MEMORY, {"Memory Allocation Failed!!"}},

    /* Upload requests and recipients. */
    {"_common_storage_add_upload_request_info",
     [](answers &out) -> int {
         zel_upload_request_info info = request(9, QUILLO_UPLOAD_STATUS_STARTED);
         const int result = _common_storage_add_upload_request_info(&info);
         out.counts[0] = info.unique_id;
         return result;
     },
     WRITES, S},
    {OP(_common_storage_update_contents_token_info, 7, "new", 5), WRITES, S},
    {OP(_common_storage_update_upload_status, 7, QUILLO_UPLOAD_STATUS_FINISHED), WRITES, S},
    {OP(_common_storage_update_expiry_time, 7, 6), WRITES, S},
    {OP(_common_storage_add_upload_receiver_details, 9, word, word, 3), WRITES, S},
    {OP(_common_storage_delete_upload_info, 7), WRITES, S, {}, {}, {""}, ""},
    {OP(_common_storage_delete_recalled_contents, word), WRITES, NONE},
    {OP(_common_storage_get_upload_content_count, 7, &out.numbers[0]), ASKS, NONE, {}, {}, {"number 0\n"}},
    {OP(_common_storage_get_upload_total_size, 7, &out.wides[0]), ASKS, NONE},
    {OP(_common_storage_get_upload_expire_time, 7, &out.wides[0]), ASKS, NONE},
    {OP(_common_storage_get_upload_contents_token, 7, &out.texts[0]), ASKS, NONE},
    {OP(_common_storage_get_upload_status, 7, &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_get_upload_app_info, 7, &out.counts[0], &out.texts[0]), ASKS, NONE},
    {OP(_common_storage_get_reqid_from_contents_token, word, &out.counts[0]), ASKS, NONE, {}, {}, {"count 0\n"}},
    {OP(_common_storage_get_request_id_list, APP_TYPE_NONE, &out.count_list, &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_request_id_list, QUILLO_APP_TYPE, &out.count_list, &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_upload_list_details, &out.count_list, &out.counts[0]), ASKS, GONE | MEMORY,
     {"Memory Allocation Failure"}},
    {OP(_common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt, 3, &out.count_list, &out.counts[0]), ASKS,
     GONE | MEMORY, {"Memory Allocation Failure"}},
    {OP(_common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt, 1, &out.count_list, &out.counts[0]), ASKS,
     GONE | MEMORY, {"Memory Allocation Failure"}},
    {OP(_common_storage_get_failed_and_cancelled_upload_req_id_and_cnt, 3, &out.count_list, &out.counts[0]), ASKS,
     GONE | MEMORY, {"Memory Allocation Failure"}},
    {OP(_common_storage_get_failed_and_cancelled_upload_req_id_and_cnt, 1, &out.count_list, &out.counts[0]), ASKS,
     GONE | MEMORY, {"Memory Allocation Failure"}},
    {OP(_common_storage_get_resumable_and_cancellable_upload_cnt, &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_upload_data, 7, &out.report), ASKS, GONE | NONE | MEMORY,
     {"Failed to malloc", "Memory Allocation Failure"}, {}, {"", "report 7 5000 2 1000000000000 1000 word 1\nperson word word 1 0\nperson word word 2 0\n"}},
    {OP(_common_storage_get_upload_recievers_details, 7, &out.people, &out.counts[0]), ASKS, GONE | MEMORY,
     {"Memory Allocation Failure"}},
    {"_common_storage_get_sync_content_info_file_path_list",
     [](answers &out) -> int {
         auto *const report = g_new0(zel_trans_upload_info, 1);
         const int result = _common_storage_get_sync_content_info_file_path_list(7, report);
         if (result == ZEL_ERR_NONE || report->file_path_list)
             out.report = report;
         else
             _common_free_upload_info(report);
         return result;
     },
     ASKS, NONE},
    {"_common_storage_get_upload_receipients_details",
     [](answers &out) -> int {
         const int result = _common_storage_get_upload_receipients_details(7, 2, &out.text_list);
         if (result == ZEL_ERR_NONE)
             out.counts[0] = 2;
         return result;
     },
     ASKS, GONE | MEMORY, {"Memory Allocation Failure"}},
    {OP(_common_storage_get_upload_content_path_list, 7, &out.text_list, &out.counts[0]), ASKS, GONE | MEMORY,
     {"Memory Allocation Failure"}},
    {OP(_common_storage_get_time_upload_total_file_static_hr, 1, &out.wides[0], &out.counts[0]), ASKS, GONE},
    {OP(_common_storage_get_matched_count_by_sent_time, 50, &out.numbers[0]), ASKS, NONE},
    {OP(_common_storage_does_reshare_exist, 7, 50, &out.flag), ASKS, NONE, {}, {}, {"flag 0\n"}},

    /* Recent receivers. */
    {"_common_storage_is_recent_receiver_list_exist",
     [](answers &out) -> int {
         quillo_msisdn_s one = {text(), text(), 2, 0};
         quillo_msisdn_s *list[] = {&one};
         return _common_storage_is_recent_receiver_list_exist(list, 1, &out.numbers[0], &out.flag);
     },
     ASKS, 0, {}, {"flag 0\nnumber 1\n", "flag 0\nnumber 3\n"}},
    // A number of groups that cannot be read counts as 0.
    {OP(_common_storage_update_timestamp_recent_receiver_group, 1), WRITES, S, {}, {""}, {""},
     "recent_receiver_group|3|1|1970-01-01 00:00:00\n"},
    {OP(_common_storage_update_timestamp_recent_receiver_group, 3), WRITES, S},
    {OP(_common_storage_add_recent_receiver, word, word, 3, 2), WRITES, S},
    {OP(_common_storage_delete_recent_receiver_by_group, 1), WRITES, S},
    {OP(_common_storage_clear_recent_receiver), WRITES, S},
    {OP(_common_storage_get_recent_receiver_details, &out.people, &out.counts[0]), ASKS, GONE | MEMORY,
     {"Memory Allocation Failure"}, {"count 0\n", "count 1\nperson word word 1 1\n", "count 1\nperson word word 2 2\n"}},
    {OP(_common_storage_get_recent_receiver_group_list, &out.number_list, &out.numbers[0]), ASKS, GONE | MEMORY,
     {"Memory Allocation Failure"}, {"number 0\n"}},
    {OP(_common_storage_get_recent_receiver_group_count, &out.numbers[0]), ASKS, GONE},
    {OP(_common_storage_get_recent_receiver_count, &out.numbers[0]), ASKS, GONE},

    {OP(_common_storage_clear), WRITES, S, {}, {""}, {""}, ""},
};

template <typename T> bool touched(T *value)
{
    return value != untouched<T *>();
}

std::set<std::string> lines(const std::string &all)
{
    std::istringstream in(all);
    std::set<std::string> result;
    for (std::string line; std::getline(in, line);)
        result.insert(line);
    return result;
}

} // namespace

std::span<const operation> operations()
{
    return table;
}

std::string answers::take()
{
    std::ostringstream out;
    const answers clean;
    if (flag != clean.flag)
        out << "flag " << flag << '\n';
    for (const int number : numbers)
        if (number != clean.numbers[0])
            out << "number " << number << '\n';
    for (const unsigned int count : counts)
        if (count != clean.counts[0])
            out << "count " << count << '\n';
    for (const unsigned long long wide : wides)
        if (wide != clean.wides[0])
            out << "wide " << wide << '\n';
    for (char *const one : texts) {
        if (!touched(one))
            continue;
        out << "text " << shown(one) << '\n';
        g_free(one);
    }
    const size_t length = numbers[0] != clean.numbers[0] ? static_cast<size_t>(numbers[0]) : counts[0];
    if (touched(text_list)) {
        for (size_t i = 0; i < length; ++i) {
            out << "text " << shown(text_list[i]) << '\n';
            g_free(text_list[i]);
        }
        free(text_list);
    }
    if (touched(number_list)) {
        for (size_t i = 0; i < length; ++i)
            out << "entry " << number_list[i] << '\n';
        g_free(number_list);
    }
    if (touched(count_list)) {
        for (size_t i = 0; i < length; ++i)
            out << "entry " << count_list[i] << '\n';
        g_free(count_list);
    }
    if (touched(records)) {
        for (const GList *node = records; node; node = node->next)
            out << "record " << shown(*static_cast<zel_content_sync_info *>(node->data)) << '\n';
        g_list_free_full(records, _common_storage_free_sync_content_info);
    }
    if (touched(urls)) {
        for (const GList *node = urls; node; node = node->next) {
            const auto *const url = static_cast<zel_trans_url_info *>(node->data);
            out << "url " << shown(url->url) << ' ' << shown(url->content_type) << '\n';
        }
        g_list_free_full(urls, _common_free_url_info);
    }
    if (touched(record)) {
        out << "record " << shown(*record) << '\n';
        _common_storage_free_sync_content_info(record);
    }
    if (touched(people)) {
        for (size_t i = 0; i < length; ++i) {
            out << "person " << shown(people[i]) << '\n';
            if (people[i]) {
                g_free(people[i]->ccc);
                g_free(people[i]->phone_number);
                g_free(people[i]);
            }
        }
        free(people);
    }
    if (touched(report)) {
        out << "report " << report->request_id << ' ' << report->total_size << ' ' << report->file_count << ' '
            << report->expired_time << ' ' << report->sent_time << ' ' << shown(report->contents_token) << ' '
            << report->status << '\n';
        for (const GList *node = report->file_path_list; node; node = node->next)
            out << "path " << shown(static_cast<char *>(node->data)) << '\n';
        for (size_t i = 0; i < report->msisdn_count; ++i)
            out << "person " << shown(report->msisdn_list[i]) << '\n';
        _common_free_upload_info(report);
    }
    if (touched(share)) {
        out << "share " << shown(share->contents_token) << ' ' << shown(share->description) << ' ' << shown(share->type)
            << ' ' << shown(share->from_msisdn) << ' ' << shown(share->to_list) << ' ' << share->expired_time << ' '
            << share->push_status << '\n';
        EXPECT_EQ(g_list_length(share->content_info_list), share->content_info_list_length);
        for (const GList *node = share->content_info_list; node; node = node->next)
            out << "item " << shown(*static_cast<zel_trans_content_info *>(node->data)) << '\n';
        _common_free_share_content_info(share);
    }
    *this = answers();
    return out.str();
}

void furnish()
{
    EXPECT_EQ(_common_storage_upsert_unique_data(word, word, word, word, word), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_upsert_unique_data("evt_push_token", "token", nullptr, nullptr, nullptr), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_upsert_folder_info(word, word, 11, word, 12, 13), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_add_push_noti_info(word, word, 100, 200), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_add_push_noti_info("other", word, 100, 201), ZEL_ERR_NONE);
    unsigned int ignored = 0;
    EXPECT_EQ(add_share(word, ignored), ZEL_ERR_NONE);
    for (zel_content_sync_info info :
         {transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, 7, 0, 1), transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, 7, 0, 2),
          transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, 7, 2, 3), transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_PAUSED, 8, 0, 4)})
        EXPECT_EQ(_common_storage_add_sync_content_info(&info), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_update_url_info(1, word, word), ZEL_ERR_NONE);
    for (zel_upload_request_info info :
         {request(7, QUILLO_UPLOAD_STATUS_STARTED), request(8, QUILLO_UPLOAD_STATUS_FAILED)})
        EXPECT_EQ(_common_storage_add_upload_request_info(&info), ZEL_ERR_NONE);
    for (int number = 1; number <= 2; ++number) {
        EXPECT_EQ(_common_storage_add_upload_receiver_details(7, word, word, number), ZEL_ERR_NONE);
        EXPECT_EQ(_common_storage_update_timestamp_recent_receiver_group(number), ZEL_ERR_NONE);
        EXPECT_EQ(_common_storage_add_recent_receiver(word, word, number, number), ZEL_ERR_NONE);
    }
    // So that stamping has something to do, the version and the groups.
    raw_database raw;
    raw.run("PRAGMA user_version = 7; UPDATE recent_receiver_group SET time_stamp = '1969-01-01 00:00:00'");
}

world::world()
{
    std::filesystem::remove_all(database_folder);
    std::filesystem::create_directories(database_folder);
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    furnish();
    end();
    std::ifstream in(database_file, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(in), {});
}

void world::begin(bool warm) const
{
    std::filesystem::remove(database_file + "-journal");
    std::ofstream(database_file, std::ios::binary) << bytes_;
    EXPECT_EQ(sqlite3_open(database_file.c_str(), &_g_sqlite_handle), SQLITE_OK);
    if (warm)
        sqlite3_exec(_g_sqlite_handle, "SELECT * FROM sqlite_master", nullptr, nullptr, nullptr);
}

bool world::is_untouched() const
{
    std::ifstream in(database_file, std::ios::binary);
    return !std::filesystem::exists(database_file + "-journal") &&
           bytes_ == std::string(std::istreambuf_iterator<char>(in), {});
}

void world::end()
{
    EXPECT_EQ(sqlite3_close(_g_sqlite_handle), SQLITE_OK) << "a statement was not finalized";
    _g_sqlite_handle = nullptr;
    take_trace();
}

std::string stored_rows()
{
    raw_database raw;
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    std::istringstream names(
        raw.rows("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%' ORDER BY name"));
    std::string all = "version|" + raw.rows("PRAGMA user_version");
    for (std::string name; std::getline(names, name);)
        all += name + "\n" + raw.rows("SELECT '" + name + "', * FROM " + name);
    return all;
}

bool lies_between(const std::string &now, const std::string &before, const std::string &after)
{
    const std::set<std::string> here = lines(now), first = lines(before), last = lines(after);
    const auto known = [&](const std::string &row) { return first.count(row) != 0 || last.count(row) != 0; };
    const auto kept = [&](const std::string &row) { return last.count(row) == 0 || here.count(row) != 0; };
    return std::all_of(here.begin(), here.end(), known) && std::all_of(first.begin(), first.end(), kept);
}

} // namespace zel_test
