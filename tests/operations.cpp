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

template <typename T>
requires std::is_arithmetic_v<T> || std::is_enum_v<T> std::string shown(T value)
{
    return std::to_string(+value); // an enumeration counts as its number
}

/// A line of these values.
template <typename... Values> std::string entry(const char *what, const Values &...values)
{
    return what + ((" " + shown(values)) + ...) + "\n";
}

std::string shown(const zel_content_sync_info &it)
{
    return entry("record", it.sync_id, it.type, it.status, it.content_id, it.req_id, it.wifi_only, it.fail_retry_count,
                 it.percentage, it.offset, it.chunk_no, it.sent_time, it.contents_token, it.original, it.thumbnail,
                 it.name, it.local_path, it.mupload_key);
}

std::string shown(const zel_trans_content_info &it)
{
    return entry("item", it.content_id, it.size, it.download_count, it.contents_token, it.original, it.thumbnail,
                 it.mid_thumbnail, it.big_thumbnail, it.name, it.content_type);
}

std::string shown(const zel_trans_url_info &it)
{
    return entry("url", it.url, it.content_type);
}

std::string shown(const quillo_msisdn_s *it)
{
    return it ? entry("person", it->ccc, it->phone_number, it->number_id, it->group_id) : "person NULL\n";
}

template <typename T> std::string shown_all(const GList *node)
{
    std::string all;
    for (; node; node = node->next)
        all += shown(*static_cast<T *>(node->data));
    return all;
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

int add(zel_content_sync_info info, unsigned int &id)
{
    const int result = _common_storage_add_sync_content_info(&info);
    id = info.sync_id;
    return result;
}

int add(zel_upload_request_info info, unsigned int &id)
{
    const int result = _common_storage_add_upload_request_info(&info);
    id = info.unique_id;
    return result;
}

int rewrite(unsigned int id, zel_content_sync_info info)
{
    info.sync_id = id;
    return _common_storage_update_sync_content_info(&info);
}

int list_paths(answers &out)
{
    auto *const report = g_new0(zel_trans_upload_info, 1);
    const int result = _common_storage_get_sync_content_info_file_path_list(7, report);
    if (result == ZEL_ERR_NONE || report->file_path_list)
        out.report = report;
    else
        _common_free_upload_info(report);
    return result;
}

int list_recipients(answers &out)
{
    const int result = _common_storage_get_upload_receipients_details(7, 2, &out.text_list);
    out.counts[0] = result == ZEL_ERR_NONE ? 2 : out.counts[0];
    return result;
}

int find_group(answers &out)
{
    quillo_msisdn_s one = {text(), text(), 2, 0};
    quillo_msisdn_s *list[] = {&one};
    return _common_storage_is_recent_receiver_list_exist(list, 1, &out.numbers[0], &out.flag);
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

using texts = std::vector<const char *>;
const texts NEVER = {};
const texts NOTHING = {""};
const texts FALSEHOOD = {"flag 0\n"};
const texts FAILED = {"Memory Allocation Failed!!"};
const texts NO_MEMORY = {"Memory Allocation Failure"};
const texts NO_REPORT = {"Failed to malloc", "Memory Allocation Failure"};
const texts NO_GROUPS = {"number 0\n"};
const texts NO_ITEMS = {"", "count 3\n"};
const texts NO_PATHS = {"", "report 7 5000 2 1000000000000 1000 word 1\nperson word word 1 0\nperson word word 2 0\n"};
const texts FULL_BATCH = {"number 10\n"};
const texts FEWER_PEOPLE = {"count 0\n", "count 1\nperson word word 1 1\n", "count 1\nperson word word 2 2\n"};
const texts OTHER_GROUPS = {"flag 0\nnumber 1\n", "flag 0\nnumber 3\n"};

// clang-format off
#define CALL(name, ...) #name, [](answers &out) -> int { static_cast<void>(out); __VA_ARGS__; }
#define OP(name, ...) CALL(_common_storage_##name, return _common_storage_##name(__VA_ARGS__))
#define RESULT(output, name, ...) CALL(_common_storage_##name, output = _common_storage_##name(__VA_ARGS__); return 0)
// clang-format on

const operation table[] = {
    /* Engine and schema. */
    {CALL(__common_storage_get_db_version, return __common_storage_get_db_version(&out.numbers[0])), ASKS, S},
    {OP(db_upgrade), WRITES, S},
    {RESULT(out.flag, check_table_exist, "folder_info"), ASKS, 0, NEVER, FALSEHOOD},

    /* Key-value data and folder records. */
    {OP(upsert_unique_data, word, "new", word, word, word), WRITES, S},
    {OP(upsert_and_involk_unique_data, word, "new", word, word, word, ignore), WRITES, S},
    {OP(get_unique_data, word, &out.texts[0], &out.texts[1], &out.texts[2], &out.texts[3]), ASKS, GONE},
    {OP(delete_unique_data, word), WRITES, S},
    // The row it merges with, when that cannot be read, counts as absent.
    {OP(upsert_folder_info, word, "new", 0, nullptr, 0, 99), WRITES, S, NEVER, NOTHING, NOTHING,
     "folder_info|word|new|0|NULL|0|99\n"},
    {OP(get_folder_info, word, &out.texts[0], &out.wides[0], &out.texts[1], &out.wides[1], &out.wides[2]), ASKS, GONE},
    {OP(exist_folder_token, word, &out.flag), ASKS, GONE, NEVER, NEVER, FALSEHOOD},
    {OP(delete_folder_info, word), WRITES, S},

    /* Received shares. */
    {RESULT(out.flag, exist_push_noti, word), ASKS, 0, NEVER, FALSEHOOD},
    {OP(add_push_noti_info, "new", word, 1, 2), WRITES, S},
    {OP(delete_push_noti, word), WRITES, S, NEVER, NOTHING, NOTHING, ""},
    {OP(delete_expired_push_noti, 101), WRITES, S, NEVER, NOTHING, NOTHING, ""},
    {OP(delete_expired_content_info, 101), WRITES, S},
    {OP(update_read_push_noti, word), WRITES, S},
    {OP(update_check_delete_push_noti, word), WRITES, S},
    {OP(get_received_time_push_noti, word, &out.wides[0]), ASKS, GONE},
    {OP(get_contents_token_list, word, false, &out.text_list, &out.counts[0]), ASKS, GONE},
    {CALL(_common_storage_add_notification, return add_share("new", out.counts[0])), WRITES, 0, NEVER, NO_ITEMS,
     NOTHING, ""},
    {OP(get_content_name, word, &out.texts[0]), ASKS, GONE},
    {OP(get_notification_data, word, &out.share), ASKS, GONE | MEMORY, {"Failed to get file"}},
    {OP(update_downloaded_content_info, word), WRITES, S},
    {OP(get_contents_token_content_info, word, &out.texts[0]), ASKS, GONE},
    {OP(get_content_info_not_downloaded_count, word, &out.numbers[0]), ASKS, GONE},
    {OP(update_status_content_info, word, QUILLO_PUSH_STATUS_SHARE_RECALLED), WRITES, S},

    /* Transfers. */
    {CALL(_common_storage_add_sync_content_info,
          return add(transfer(ZEL_DOWNLOAD_FILE, ZEL_SYNC_TODO, 9, 0, 5), out.counts[0])),
     WRITES, S},
    {CALL(_common_storage_update_sync_content_info,
          return rewrite(1, transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_ONGOING, 7, 1, 1))),
     WRITES, S},
    {OP(set_failed_status_sync_content_info, 1), WRITES, S},
    {OP(update_status_sync_content_info, 1, ZEL_SYNC_ONGOING), WRITES, S},
    {OP(update_status_sync_content_info_by_sync_id, 1, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO), WRITES, S},
    {OP(update_status_sync_content_info_by_reqid, 7, ZEL_SYNC_COMPLETE), WRITES, S},
    {OP(update_status_sync_content_info_by_req_id, 7, ZEL_SYNC_ONGOING, ZEL_SYNC_TODO), WRITES, S},
    {OP(set_all_status_sync_content_info, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, ZEL_SYNC_PAUSED), WRITES, S},
    {OP(update_percentage_sync_content_info, 1, 50), WRITES, S},
    {OP(update_upload_info, 1, 4096, 3), WRITES, S},
    {OP(update_url_info, 2, word, word), WRITES, S},
    {OP(update_url_info_by_reqid, 7, word, word), WRITES, S},
    {OP(update_wifi_only_by_req_id, 7, 1), WRITES, S},
    {OP(update_mupload_key_sync_content_info, 1, "new"), WRITES, S},
    {OP(delete_sync_content_info, 1), WRITES, S},
    {OP(delete_sync_content_info_by_req_id, 7), WRITES, S},
    {OP(delete_sync_content_info_based_on_sync_type, ZEL_UPLOAD_FILE), WRITES, S},
    {OP(delete_sync_content_info_based_on_param, 7, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO), WRITES, S},

    /* Questions about transfers. */
    {OP(get_sync_content_info_count, ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, 1, &out.numbers[0]), ASKS, NONE},
    {OP(get_sync_content_info_count_for_req_id, ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, 1, &out.numbers[0], 7), ASKS, NONE},
    {OP(get_sync_content_info_remaining_syncable_count_for_req_id, ZEL_UPLOAD_FILE, &out.numbers[0], 7), ASKS, NONE},
    {OP(get_sync_content_info_remaining_thumbnail_count_for_req_id, ZEL_UPLOAD_FILE, &out.numbers[0], 7), ASKS, NONE},
    {OP(get_pausable_cnt_by_sync_type, ZEL_UPLOAD_FILE, &out.counts[0]), ASKS, GONE},
    {OP(get_resumable_and_cancellable_cnt_by_sync_type, ZEL_UPLOAD_FILE, &out.counts[0]), ASKS, GONE},
    {RESULT(out.numbers[0], get_batch_count, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, false), ASKS, 0, NEVER, FULL_BATCH},
    {OP(get_sync_content_info_list, ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, &out.records, 10), ASKS, NONE},
    {OP(get_sync_content_info_list_by_req_id, ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &out.records, 7), ASKS, NONE},
    {OP(get_sync_content_info_list_only_by_req_id, ZEL_UPLOAD_FILE, &out.records, 7), ASKS, NONE},
    {OP(get_sync_content_info, 1, ZEL_UPLOAD_FILE, &out.record), ASKS, NONE | MEMORY, NO_MEMORY},
    {OP(get_sync_content_info_by_sync_id, 1, &out.record), ASKS, NONE | MEMORY, NO_MEMORY},
    {OP(get_req_id_by_sync_type_and_status, ZEL_UPLOAD_FILE, &out.count_list, &out.counts[0], true), ASKS, GONE},
    {OP(get_resumable_and_cancellable_req_id_by_sync_type, ZEL_UPLOAD_FILE, &out.count_list, &out.counts[0]), ASKS,
     GONE},
    {OP(check_all_file_completed_by_req_id, 10, &out.flag), ASKS, GONE, NEVER, FALSEHOOD},
    {OP(check_all_file_failed_by_req_id, 10, &out.flag), ASKS, GONE, NEVER, FALSEHOOD},
    {OP(get_sync_content_info_url_list, 7, &out.urls), ASKS, NONE},
    {OP(get_original_by_sync_id, 1, &out.texts[0]), ASKS, NONE},
    {OP(get_mupload_key_by_sync_id, 1, &out.texts[0]), ASKS, NONE},
    {OP(get_local_path_by_sync_id, 1, &out.texts[0]), ASKS, NONE},
    {OP(get_percentage_by_sync_id, 1, &out.counts[0]), ASKS, NONE},
    {OP(get_upload_info, 1, &out.counts[0], &out.numbers[0]), ASKS, NONE},
    {OP(get_wifi_only_by_sync_id, 1, &out.flag), ASKS, NONE},
    {OP(get_wifi_only_by_req_id, 7, &out.flag), ASKS, NONE},
    {OP(get_sync_type_by_req_id, 7, &out.numbers[0]), ASKS, NONE},
    {OP(get_sent_time_by_req_id, 7, &out.numbers[0]), ASKS, NONE},
    {OP(get_sent_time_local_path_by_req_id, 7, &out.numbers[1], &out.text_list, &out.numbers[0]), ASKS, NONE | MEMORY,
     FAILED},

    /* Upload requests and recipients. */
    {CALL(_common_storage_add_upload_request_info, return add(request(9, QUILLO_UPLOAD_STATUS_STARTED), out.counts[0])),
     WRITES, S},
    {OP(update_contents_token_info, 7, "new", 5), WRITES, S},
    {OP(update_upload_status, 7, QUILLO_UPLOAD_STATUS_FINISHED), WRITES, S},
    {OP(update_expiry_time, 7, 6), WRITES, S},
    {OP(add_upload_receiver_details, 9, word, word, 3), WRITES, S},
    {OP(delete_upload_info, 7), WRITES, S, NEVER, NEVER, NOTHING, ""},
    {OP(delete_recalled_contents, word), WRITES, NONE},
    {OP(get_upload_content_count, 7, &out.numbers[0]), ASKS, NONE, NEVER, NEVER, NO_GROUPS},
    {OP(get_upload_total_size, 7, &out.wides[0]), ASKS, NONE},
    {OP(get_upload_expire_time, 7, &out.wides[0]), ASKS, NONE},
    {OP(get_upload_contents_token, 7, &out.texts[0]), ASKS, NONE},
    {OP(get_upload_status, 7, &out.numbers[0]), ASKS, NONE},
    {OP(get_upload_app_info, 7, &out.counts[0], &out.texts[0]), ASKS, NONE},
    {OP(get_reqid_from_contents_token, word, &out.counts[0]), ASKS, NONE, NEVER, NEVER, {"count 0\n"}},
    {OP(get_request_id_list, QUILLO_APP_TYPE, &out.count_list, &out.counts[0]), ASKS, GONE},
    {OP(get_upload_list_details, &out.count_list, &out.counts[0]), ASKS, GONE | MEMORY, NO_MEMORY},
    {OP(get_resumable_and_cancellable_upload_req_id_and_cnt, 1, &out.count_list, &out.counts[0]), ASKS, GONE | MEMORY,
     NO_MEMORY},
    {OP(get_failed_and_cancelled_upload_req_id_and_cnt, 1, &out.count_list, &out.counts[0]), ASKS, GONE | MEMORY,
     NO_MEMORY},
    {OP(get_resumable_and_cancellable_upload_cnt, &out.counts[0]), ASKS, GONE},
    {OP(get_upload_data, 7, &out.report), ASKS, GONE | NONE | MEMORY, NO_REPORT, NEVER, NO_PATHS},
    {OP(get_upload_recievers_details, 7, &out.people, &out.counts[0]), ASKS, GONE | MEMORY, NO_MEMORY},
    {CALL(_common_storage_get_sync_content_info_file_path_list, return list_paths(out)), ASKS, NONE},
    {CALL(_common_storage_get_upload_receipients_details, return list_recipients(out)), ASKS, GONE | MEMORY, NO_MEMORY},
    {OP(get_upload_content_path_list, 7, &out.text_list, &out.counts[0]), ASKS, GONE | MEMORY, NO_MEMORY},
    {OP(get_time_upload_total_file_static_hr, 1, &out.wides[0], &out.counts[0]), ASKS, GONE},
    {OP(get_matched_count_by_sent_time, 50, &out.numbers[0]), ASKS, NONE},
    {OP(does_reshare_exist, 7, 50, &out.flag), ASKS, NONE, NEVER, NEVER, FALSEHOOD},

    /* Recent receivers. */
    {CALL(_common_storage_is_recent_receiver_list_exist, return find_group(out)), ASKS, 0, NEVER, OTHER_GROUPS},
    // A number of groups that cannot be read counts as 0.
    {OP(update_timestamp_recent_receiver_group, 1), WRITES, S, NEVER, NOTHING, NOTHING,
     "recent_receiver_group|3|1|1970-01-01 00:00:00\n"},
    {OP(update_timestamp_recent_receiver_group, 3), WRITES, S},
    {OP(add_recent_receiver, word, word, 3, 2), WRITES, S},
    {OP(delete_recent_receiver_by_group, 1), WRITES, S},
    {OP(clear_recent_receiver), WRITES, S},
    {OP(get_recent_receiver_details, &out.people, &out.counts[0]), ASKS, GONE | MEMORY, NO_MEMORY, FEWER_PEOPLE},
    {OP(get_recent_receiver_group_list, &out.number_list, &out.numbers[0]), ASKS, GONE | MEMORY, NO_MEMORY, NO_GROUPS},
    {OP(get_recent_receiver_group_count, &out.numbers[0]), ASKS, GONE},
    {OP(get_recent_receiver_count, &out.numbers[0]), ASKS, GONE},

    {OP(clear), WRITES, S, NEVER, NOTHING, NOTHING, ""},
};

template <typename T> bool touched(const T &value)
{
    return value != untouched<T>();
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
    std::string out;
    const answers clean;
    const auto add = [&out](const char *what, const auto &values, auto clean_value) {
        for (const auto value : values)
            if (value != clean_value)
                out += entry(what, value);
    };
    if (flag != clean.flag)
        out += entry("flag", flag);
    add("number", numbers, clean.numbers[0]);
    add("count", counts, clean.counts[0]);
    add("wide", wides, clean.wides[0]);
    add("text", texts, clean.texts[0]);
    for (char *const text : texts)
        if (touched(text))
            g_free(text);
    const bool listed = touched(text_list) || touched(number_list) || touched(count_list) || touched(people);
    const size_t said = numbers[0] != clean.numbers[0] ? static_cast<size_t>(numbers[0]) : counts[0];
    const size_t length = listed ? said : 0;
    for (size_t i = 0; i < length; ++i) {
        if (touched(text_list)) {
            out += entry("text", text_list[i]);
            g_free(text_list[i]);
        }
        if (touched(number_list))
            out += entry("entry", number_list[i]);
        if (touched(count_list))
            out += entry("entry", count_list[i]);
        if (touched(people)) {
            out += shown(people[i]);
            if (people[i]) {
                g_free(people[i]->ccc);
                g_free(people[i]->phone_number);
            }
            g_free(people[i]);
        }
    }
    for (void *const list : {static_cast<void *>(text_list), static_cast<void *>(number_list),
                             static_cast<void *>(count_list), static_cast<void *>(people)})
        if (touched(list))
            free(list);
    if (touched(records)) {
        out += shown_all<zel_content_sync_info>(records);
        g_list_free_full(records, _common_storage_free_sync_content_info);
    }
    if (touched(urls)) {
        out += shown_all<zel_trans_url_info>(urls);
        g_list_free_full(urls, _common_free_url_info);
    }
    if (touched(record)) {
        out += shown(*record);
        _common_storage_free_sync_content_info(record);
    }
    if (touched(report)) {
        out += entry("report", report->request_id, report->total_size, report->file_count, report->expired_time,
                     report->sent_time, report->contents_token, report->status);
        for (const GList *node = report->file_path_list; node; node = node->next)
            out += entry("path", static_cast<const char *>(node->data));
        for (size_t i = 0; i < report->msisdn_count; ++i)
            out += shown(report->msisdn_list[i]);
        _common_free_upload_info(report);
    }
    if (touched(share)) {
        out += entry("share", share->contents_token, share->description, share->type, share->from_msisdn,
                     share->to_list, share->expired_time, share->push_status);
        EXPECT_EQ(g_list_length(share->content_info_list), share->content_info_list_length);
        out += shown_all<zel_trans_content_info>(share->content_info_list);
        _common_free_share_content_info(share);
    }
    *this = answers();
    return out;
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
    for (const zel_content_sync_info &info :
         {transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, 7, 0, 1), transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, 7, 0, 2),
          transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, 7, 2, 3), transfer(ZEL_UPLOAD_FILE, ZEL_SYNC_PAUSED, 8, 0, 4)})
        EXPECT_EQ(add(info, ignored), ZEL_ERR_NONE);
    EXPECT_EQ(_common_storage_update_url_info(1, word, word), ZEL_ERR_NONE);
    for (const zel_upload_request_info &info :
         {request(7, QUILLO_UPLOAD_STATUS_STARTED), request(8, QUILLO_UPLOAD_STATUS_FAILED)})
        EXPECT_EQ(add(info, ignored), ZEL_ERR_NONE);
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
