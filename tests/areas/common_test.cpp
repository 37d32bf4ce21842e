// Result codes, records, files and what belongs to the process; and the log's entry point for clients.
#include "interpose.h"
#include "platform.h"
#include "zel_common.h"
#include "zel_common/records.h"
#include "zel_common_log.h"
#include "zel_common_storage.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

using namespace zel_test;

namespace
{

constexpr auto text = [] { return g_strdup("x"); };
constexpr auto owned = [](const auto &record) { return g_memdup2(&record, sizeof record); };

void make_file(const std::string &path, const std::string &content = "")
{
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace

TEST(Errors, have_client_codes_and_names)
{
    for (int code = -1; code < 110; ++code) {
        note(std::to_string(_common_util_convert_service_error_to_client_error(static_cast<zel_err_e>(code))));
        _common_print_error_info(code);
    }
    for (const int nameless : {INT_MIN, INT_MAX})
        _common_print_error_info(nameless);
    expect_lines(0xa8783aa1);
}

TEST(Log, entry_point_of_clients_writes_nothing)
{
    zel_service_log("file.c", "function", 1, "TAG", "%d %s", 1, "x");
    zel_service_log(nullptr, nullptr, -1, nullptr, nullptr);
    EXPECT_EQ(take_trace(), "");
}

// What a release forgets, the leak check at the end of the process finds; what it releases twice, the address check.
TEST(Records, releases_take_null_empty_records_and_all_that_a_record_owns)
{
    const auto check = [](void (*release)(void *), void *record) {
        release(nullptr);
        release(g_malloc0(sizeof(zel_content_sync_info))); // the largest of them
        release(record);
    };
    using recipient = quillo_msisdn_s;
    void *recipients[] = {owned(recipient{}), nullptr, owned(recipient{text(), text(), 1, 2})};
    auto **list = static_cast<recipient **>(g_memdup2(recipients, sizeof recipients));
    check(_common_free_url_info, owned(zel_trans_url_info{text(), text()}));
    check(_common_free_url_ids_info, owned(zel_trans_url_ids_info{text(), text(), 1}));
    check(_common_free_share_content_info, nullptr); // full ones are released where they are decoded
    check(_common_free_upload_info,
          owned(zel_trans_upload_info{
              1, 2, 3, g_list_append(g_list_append(nullptr, text()), text()), 4, 5, text(), 3, list, {}}));
    check(__free_file_path_list, text());
    check(_common_storage_free_sync_content_info,
          owned(zel_content_sync_info{
              1, {}, {}, 2, 3, 4, 5, 6, 7, 8, 9, text(), text(), text(), text(), text(), text()}));
    expect_lines(0xcbf66717);
}

TEST(Files, size_and_existence_are_those_of_the_target)
{
    // A negative size: there is none.
    const std::pair<const char *, long long> files[] = {
        {"five", 5},      {"largest", INT_MAX}, {"empty", 0}, {"too_large", 1LL << 31}, {"wraps", 5 + (1LL << 32)},
        {"dangling", -1}, {"missing", -1},      {"", -1}};
    std::filesystem::create_symlink("missing", "dangling");
    for (const auto &[path, size] : files) {
        if (size >= 0) {
            make_file(path);
            std::filesystem::resize_file(path, static_cast<uintmax_t>(size)); // takes no place on the disk
        }
        unsigned int answer = 77;
        const int result = _common_util_file_size(path, &answer);
        note(testing::PrintToString(std::tuple(path, result, answer, _common_util_file_exist(path))));
    }
    leave_out_each(2, _common_util_file_size);
    calls::file_status.answer(EIO, 2);
    EXPECT_TRUE(_common_util_file_exist("/")) << "even when nobody can look at it";
    EXPECT_FALSE(_common_util_file_exist("five"));
    expect_lines(0x543747e0);
}

TEST(Files, names_are_split_at_the_last_dot_and_numbered_until_free)
{
    std::filesystem::create_directories("dir.d");
    for (const char *taken : {"taken_1.jpg", "taken_2.jpg", "gap_2.jpg", "dir.d/x_1.gz"})
        make_file(taken);
    char result[ZEL_NEW_PATH_SIZE] = ""; // the address check sees every step beyond
    for (const char *path :
         {"taken.jpg", "gap.jpg", "dir.d/x.gz", "README", "dir.d/file", "file.", ".profile", "..", "", "a.tar.gz"}) {
        char *const name = _common_util_get_filename_without_ext(path);
        char *const extension = _common_util_get_ext(path);
        _common_util_get_file_valid_path(path, result);
        note(testing::PrintToString(std::tuple(path, name, extension, std::string(result))));
        std::free(name);
        g_free(extension);
    }
    expect_lines(0x722815b7);
    // Cut off, the last but one is "/", which exists under every number.
    const std::string stem(5000, 'a');
    for (const std::string &path : {stem + ".jpg", stem, "." + stem, std::string(5000, '/') + "a.b", std::string()}) {
        _common_util_get_file_valid_path(path.empty() ? nullptr : path.c_str(), result);
        EXPECT_STREQ(result, path.substr(0, ZEL_NEW_PATH_SIZE - 1).c_str());
    }
    EXPECT_EQ(_common_util_get_filename_without_ext(nullptr), nullptr);
}

TEST(Process, random_number_is_seeded_from_the_clock)
{
    const std::tuple<int, int, int> seeds[] = {
        {7, 12, 7}, {999, 12, 999}, {1000, 12, 100}, {99999, INT_MAX, 999}, {123456, INT_MIN, 123}};
    for (const auto &[microseconds, num, digits] : seeds) {
        const scripted_clock clock(1700000000, microseconds);
        const unsigned int answer = _common_get_random_no(num);
        std::srand(static_cast<unsigned int>(1700000000000 + digits + num + getpid()));
        EXPECT_EQ(answer, static_cast<unsigned int>(std::rand())) << microseconds << " " << num;
    }
    EXPECT_EQ(take_trace(), "");
}

TEST(Process, time_is_in_seconds_and_milliseconds)
{
    const scripted_clock clock(6000000000, 1999);
    EXPECT_EQ(_common_util_get_current_timestamp(), 6000000000u);
    EXPECT_EQ(_common_util_get_current_unix_time(), 6000000000001u);
    expect_lines(0x41681ba2);
}

TEST(Process, pid_file_holds_the_writers_thread_id)
{
    pid_t pid = 77, writer = 0;
    EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
    make_file("quillo.pid", "123");
    EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, 77);
    make_file("quillo.pid", "a longer text that was there before");
    std::thread([&] {
        _common_util_set_pid_to_file();
        writer = gettid();
    }).join();
    EXPECT_EQ(std::filesystem::file_size("quillo.pid"), sizeof pid);
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, writer);
    std::filesystem::remove("quillo.pid");
    std::filesystem::create_directory("quillo.pid");
    _common_util_set_pid_to_file();
    expect_lines(0x84a251c6);
}

// An answer is kept for the life of the process: each of these two needs one of its own.
TEST(Process, feature_is_asked_for_until_answered)
{
    platform.feature_value = true;
    for (const int result : {-5, SYSTEM_INFO_ERROR_NONE}) {
        platform.feature_result = result;
        EXPECT_EQ(_common_util_check_enhanced_feature(), result == SYSTEM_INFO_ERROR_NONE);
    }
    platform.feature_value = false;
    EXPECT_TRUE(_common_util_check_enhanced_feature());
    expect_lines(0xf89211ac);
}

TEST(Process, feature_that_is_unknown_is_cached)
{
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    platform.feature_value = true;
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    expect_lines(0x7c6b9edb);
}
