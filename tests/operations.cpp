#include "operations.h"

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace zel_test
{

namespace
{

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
const texts NO_ITEMS = {"", "count 3\n", "count 4\n"};
const texts NO_PATHS = {"", "report 7 5000 2 1000000000000 1000 word 1\nperson word word 1 0\nperson word word 2 0\n"};
const texts FULL_BATCH = {"count 10\n"};
const texts FEWER_PEOPLE = {"count 0\nnone\n", "count 1\nperson word word 1 1\n", "count 1\nperson word word 2 2\n"};
const texts RESTAMPED = {"", "wide 1000\n"};
const texts OTHER_GROUPS = {"flag 0\nnumber 1\n", "flag 0\nnumber 3\n"};

const operation table[] = {
    /* Engine and schema. */
    {"__common_storage_get_db_version &", ASKS, S},
    {"db_upgrade", WRITES, S},
    {"check_table_exist folder_info", ASKS, 0, NEVER, FALSEHOOD},

    /* Key-value data and folder records. */
    {"upsert_unique_data word new word word word", WRITES, S},
    {"upsert_and_involk_unique_data word new word word word &", WRITES, S},
    {"get_unique_data word & & & &", ASKS, GONE},
    {"delete_unique_data word", WRITES, S},
    // The row it merges with, when that cannot be read, counts as absent.
    {"upsert_folder_info word new 0 NULL 0 99", WRITES, S, NEVER, NOTHING, NOTHING,
     "folder_info|word|new|0|NULL|0|99\n"},
    {"get_folder_info word & & & & &", ASKS, GONE},
    {"exist_folder_token word &", ASKS, GONE, NEVER, NEVER, FALSEHOOD},
    {"delete_folder_info word", WRITES, S},

    /* Received shares. */
    {"exist_push_noti word", ASKS, 0, NEVER, FALSEHOOD},
    {"add_push_noti_info new word 1 2", WRITES, S},
    {"delete_push_noti word", WRITES, S, NEVER, NOTHING, NOTHING, ""},
    {"delete_expired_push_noti 101", WRITES, S, NEVER, NOTHING, NOTHING, ""},
    {"delete_expired_content_info 101", WRITES, S},
    {"update_read_push_noti word", WRITES, S},
    {"update_check_delete_push_noti word", WRITES, S},
    {"get_received_time_push_noti word &", ASKS, GONE},
    {"get_contents_token_list word 0 & &", ASKS, GONE},
    {"add_notification (new word word word word 100 2 (word word word word word word word 1 0 5 77) (word word word "
     "word word word word 1 0 5 77))",
     WRITES, 0, NEVER, NO_ITEMS, NOTHING, ""},
    {"get_content_name word &", ASKS, GONE},
    {"get_notification_data word &", ASKS, GONE | MEMORY, {"Failed to get file"}},
    {"update_downloaded_content_info word", WRITES, S},
    {"get_contents_token_content_info word &", ASKS, GONE},
    {"get_content_info_not_downloaded_count word &", ASKS, GONE},
    {"update_status_content_info word 2", WRITES, S},

    /* Transfers. */
    {"add_sync_content_info (77 download todo 5 9 0 0 0 0 -1 50 word word word word word word)", WRITES, S},
    {"update_sync_content_info (1 upload ongoing 1 7 0 1 0 0 -1 50 word word word word word word)", WRITES, S, NEVER,
     NEVER, RESTAMPED},
    {"set_failed_status_sync_content_info 1", WRITES, S},
    {"update_status_sync_content_info 1 ongoing", WRITES, S},
    {"update_status_sync_content_info_by_sync_id 1 ongoing todo", WRITES, S},
    {"update_status_sync_content_info_by_reqid 7 complete", WRITES, S},
    {"update_status_sync_content_info_by_req_id 7 ongoing todo", WRITES, S},
    {"set_all_status_sync_content_info upload todo paused", WRITES, S},
    {"update_percentage_sync_content_info 1 50", WRITES, S},
    {"update_upload_info 1 4096 3", WRITES, S},
    {"update_url_info 2 word word", WRITES, S},
    {"update_url_info_by_reqid 7 word word", WRITES, S},
    {"update_wifi_only_by_req_id 7 1", WRITES, S},
    {"update_mupload_key_sync_content_info 1 new", WRITES, S},
    {"delete_sync_content_info 1", WRITES, S},
    {"delete_sync_content_info_by_req_id 7", WRITES, S},
    {"delete_sync_content_info_based_on_sync_type upload", WRITES, S},
    {"delete_sync_content_info_based_on_param 7 upload todo", WRITES, S},

    /* Questions about transfers. */
    {"get_sync_content_info_count upload failed 1 &", ASKS, NONE},
    {"get_sync_content_info_count_for_req_id upload failed 1 & 7", ASKS, NONE},
    {"get_sync_content_info_remaining_syncable_count_for_req_id upload & 7", ASKS, NONE},
    {"get_sync_content_info_remaining_thumbnail_count_for_req_id upload & 7", ASKS, NONE},
    {"get_pausable_cnt_by_sync_type upload &", ASKS, GONE},
    {"get_resumable_and_cancellable_cnt_by_sync_type upload &", ASKS, GONE},
    {"get_batch_count upload todo 0", ASKS, 0, NEVER, FULL_BATCH},
    {"get_sync_content_info_list upload failed & 10", ASKS, NONE},
    {"get_sync_content_info_list_by_req_id upload todo & 7", ASKS, NONE},
    {"get_sync_content_info_list_only_by_req_id upload & 7", ASKS, NONE},
    {"get_sync_content_info 1 upload &", ASKS, NONE | MEMORY, NO_MEMORY},
    {"get_sync_content_info_by_sync_id 1 &", ASKS, NONE | MEMORY, NO_MEMORY},
    {"get_req_id_by_sync_type_and_status upload & & 1", ASKS, GONE},
    {"get_resumable_and_cancellable_req_id_by_sync_type upload & &", ASKS, GONE},
    {"check_all_file_completed_by_req_id 10 &", ASKS, GONE, NEVER, FALSEHOOD},
    {"check_all_file_failed_by_req_id 10 &", ASKS, GONE, NEVER, FALSEHOOD},
    {"get_sync_content_info_url_list 7 &urls", ASKS, NONE},
    {"get_original_by_sync_id 1 &", ASKS, NONE},
    {"get_mupload_key_by_sync_id 1 &", ASKS, NONE},
    {"get_local_path_by_sync_id 1 &", ASKS, NONE},
    {"get_percentage_by_sync_id 1 &", ASKS, NONE},
    {"get_upload_info 1 & &", ASKS, NONE},
    {"get_wifi_only_by_sync_id 1 &", ASKS, NONE},
    {"get_wifi_only_by_req_id 7 &", ASKS, NONE},
    {"get_sync_type_by_req_id 7 &", ASKS, NONE},
    {"get_sent_time_by_req_id 7 &", ASKS, NONE},
    {"get_sent_time_local_path_by_req_id 7 & & &", ASKS, NONE | MEMORY, FAILED},

    /* Upload requests and recipients. */
    {"add_upload_request_info (77 9 2 1 2 1000000000000 5000 word 1 NULL NULL word 1000)", WRITES, S},
    {"update_contents_token_info 7 new 5", WRITES, S},
    {"update_upload_status 7 3", WRITES, S},
    {"update_expiry_time 7 6", WRITES, S},
    {"add_upload_receiver_details 9 word word 3", WRITES, S},
    {"delete_upload_info 7", WRITES, S, NEVER, NEVER, NOTHING, ""},
    {"delete_recalled_contents word", WRITES, NONE},
    {"get_upload_content_count 7 &", ASKS, NONE, NEVER, NEVER, NO_GROUPS},
    {"get_upload_total_size 7 &", ASKS, NONE},
    {"get_upload_expire_time 7 &", ASKS, NONE},
    {"get_upload_contents_token 7 &", ASKS, NONE},
    {"get_upload_status 7 &", ASKS, NONE},
    {"get_upload_app_info 7 & &", ASKS, NONE},
    {"get_reqid_from_contents_token word &", ASKS, NONE, NEVER, NEVER, {"count 0\n"}},
    {"get_request_id_list 1 & &", ASKS, GONE},
    {"get_upload_list_details & &", ASKS, GONE | MEMORY, NO_MEMORY},
    {"get_resumable_and_cancellable_upload_req_id_and_cnt 1 & &", ASKS, GONE | MEMORY, NO_MEMORY},
    {"get_failed_and_cancelled_upload_req_id_and_cnt 1 & &", ASKS, GONE | MEMORY, NO_MEMORY},
    {"get_resumable_and_cancellable_upload_cnt &", ASKS, GONE},
    {"get_upload_data 7 &", ASKS, GONE | NONE | MEMORY, NO_REPORT, NEVER, NO_PATHS},
    {"get_upload_recievers_details 7 & &", ASKS, GONE | MEMORY, NO_MEMORY},
    {"get_sync_content_info_file_path_list 7 &", ASKS, NONE},
    {"get_upload_receipients_details 7 2 &", ASKS, GONE | MEMORY, NO_MEMORY},
    {"get_upload_content_path_list 7 & &", ASKS, GONE | MEMORY, NO_MEMORY},
    {"get_time_upload_total_file_static_hr 1 & &", ASKS, GONE},
    {"get_matched_count_by_sent_time 50 &", ASKS, NONE},
    {"does_reshare_exist 7 50 &", ASKS, NONE, NEVER, NEVER, FALSEHOOD},

    /* Recent receivers. */
    {"is_recent_receiver_list_exist (word word 2 0) 1 & &", ASKS, 0, NEVER, OTHER_GROUPS},
    // A number of groups that cannot be read counts as 0.
    {"update_timestamp_recent_receiver_group 1", WRITES, S, NEVER, NOTHING, NOTHING,
     "recent_receiver_group|3|1|1970-01-01 00:00:00\n"},
    {"update_timestamp_recent_receiver_group 3", WRITES, S},
    {"add_recent_receiver word word 3 2", WRITES, S},
    {"delete_recent_receiver_by_group 1", WRITES, S},
    {"clear_recent_receiver", WRITES, S},
    {"get_recent_receiver_details & &", ASKS, GONE | MEMORY, NO_MEMORY, FEWER_PEOPLE},
    {"get_recent_receiver_group_list & &", ASKS, GONE | MEMORY, NO_MEMORY, NO_GROUPS},
    {"get_recent_receiver_group_count &", ASKS, GONE},
    {"get_recent_receiver_count &", ASKS, GONE},

    {"clear", WRITES, S, NEVER, NOTHING, NOTHING, ""},
};

} // namespace

std::span<const operation> operations()
{
    return table;
}

void furnish()
{
    for (const char *step :
         {"upsert_unique_data word word word word word", "upsert_unique_data evt_push_token token NULL NULL NULL",
          "upsert_folder_info word word 11 word 12 13", "add_push_noti_info word word 100 200",
          "add_push_noti_info other word 100 201",
          "add_notification (word word word word word 100 2 (word word word word word word word 1 0 5 77) (word word "
          "word word word word word 1 0 5 77))",
          "add_sync_content_info (77 upload todo 1 7 0 0 0 0 -1 50 word word word word word word)",
          "add_sync_content_info (77 upload todo 2 7 0 0 0 0 -1 50 word word word word word word)",
          "add_sync_content_info (77 upload failed 3 7 0 2 0 0 -1 50 word word word word word word)",
          "add_sync_content_info (77 upload paused 4 8 0 0 0 0 -1 50 word word word word word word)",
          "update_url_info 1 word word",
          "add_upload_request_info (77 7 2 1 2 1000000000000 5000 word 1 NULL NULL word 0)",
          "add_upload_request_info (77 8 2 4 2 1000000000000 5000 word 1 NULL NULL word 0)",
          "add_upload_receiver_details 7 word word 1", "update_timestamp_recent_receiver_group 1",
          "add_recent_receiver word word 1 1", "add_upload_receiver_details 7 word word 2",
          "update_timestamp_recent_receiver_group 2", "add_recent_receiver word word 2 2"}) {
        answers ignored;
        EXPECT_EQ(invocation(step)(ignored), ZEL_ERR_NONE) << step;
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

std::vector<std::string> lines_of(const std::string &text)
{
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

bool lies_between(const std::string &now, const std::string &before, const std::string &after)
{
    const auto set_of = [](const std::string &rows) {
        const std::vector<std::string> lines = lines_of(rows);
        return std::set<std::string>(lines.begin(), lines.end());
    };
    const std::set<std::string> here = set_of(now), first = set_of(before), last = set_of(after);
    const auto known = [&](const std::string &row) { return first.count(row) != 0 || last.count(row) != 0; };
    const auto kept = [&](const std::string &row) { return last.count(row) == 0 || here.count(row) != 0; };
    return std::all_of(here.begin(), here.end(), known) && std::all_of(first.begin(), first.end(), kept);
}

} // namespace zel_test
