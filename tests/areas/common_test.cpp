// Result codes, records, files and what belongs to the process; and the log's entry point for clients.
#include "interpose.h"
#include "trace.h"
#include "zel_common.h"
#include "zel_common/records.h"
#include "zel_common_log.h"
#include "zel_common_storage.h"

#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
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

TEST(Codes, clients_get_codes_of_their_own)
{
    // Internal codes with their client codes. All others give -100.
    constexpr std::pair<int, int> client_codes[] = {
        {0, 0},   {1, -1},  {2, -2},   {3, -3},   {4, -4},   {5, -5},   {6, -6},   {7, 0},    {8, -7},
        {9, -8},  {10, -9}, {11, -10}, {12, -11}, {13, -3},  {16, -13}, {20, -22}, {26, -14}, {28, -9},
        {29, -9}, {30, -9}, {31, -16}, {33, 0},   {42, -22}, {44, -18}, {45, -17}, {46, -21}};
    for (int code = -1; code < 60; ++code) {
        int expected = -100;
        for (const auto &[internal, client] : client_codes)
            expected = internal == code ? client : expected;
        EXPECT_EQ(_common_util_convert_service_error_to_client_error(static_cast<zel_err_e>(code)), expected) << code;
        expect_lines(printed("_common_util_convert_service_error_to_client_error: Debug: err [%d]\n", code));
    }
}

TEST(Codes, those_up_to_36_are_printed_as_in_the_header)
{
    std::ifstream header(ZEL_TEST_HEADERS "/zel_common.h");
    int codes = 0;
    for (std::string text, name, equals; std::getline(header, text);) {
        std::istringstream words(text);
        int code = -1;
        if (!(words >> name >> equals >> code) || !name.starts_with("ZEL_ERR_"))
            continue;
        ++codes;
        _common_print_error_info(code);
        const bool is_printed = code >= 0 && code <= 36;
        const char *const line = "_common_print_error_info: Critical: Error code [%d]: Error Msg[%s]\n";
        expect_lines(is_printed ? printed(line, code, name.c_str()) : "");
    }
    EXPECT_EQ(codes, 1 + 49) << "-1 to 48";
}

TEST(Log, clients_entry_point_writes_nothing)
{
    zel_service_log("file.c", "function", 1, "TAG", "%d %s", 1, "x");
    zel_service_log(nullptr, nullptr, -1, nullptr, nullptr);
    EXPECT_EQ(take_trace(), "");
}

// The leak check at the end of the process finds what a release forgets, the address check what it releases twice.
TEST(Records, a_release_takes_null_an_empty_record_and_a_full_one)
{
    const auto release_each = [](void (*release)(void *), void *full) {
        release(nullptr);
        release(g_malloc0(sizeof(zel_content_sync_info))); // the largest of them
        release(full);
    };
    release_each(_common_free_url_info, owned(zel_trans_url_info{text(), text()}));
    release_each(_common_free_url_ids_info, owned(zel_trans_url_ids_info{text(), text(), 1}));
    release_each(_common_free_share_content_info, nullptr); // full ones are released where they are decoded
    release_each(__free_file_path_list, text());
    release_each(_common_storage_free_sync_content_info,
                 owned(zel_content_sync_info{
                     1, {}, {}, 2, 3, 4, 5, 6, 7, 8, 9, text(), text(), text(), text(), text(), text()}));
    void *recipients[] = {owned(quillo_msisdn_s{}), nullptr, owned(quillo_msisdn_s{text(), text(), 1, 2})};
    auto **list = static_cast<quillo_msisdn_s **>(g_memdup2(recipients, sizeof recipients));
    GList *paths = g_list_append(g_list_append(nullptr, text()), text());
    release_each(_common_free_upload_info, owned(zel_trans_upload_info{1, 2, 3, paths, 4, 5, text(), 3, list, {}}));
    expect_lines("_common_storage_free_sync_content_info: Critical: Data is NULL\n");
}

TEST(Files, size_and_existence_are_those_of_the_target)
{
    const std::string exists = "_common_util_file_exist: Info: File already exist\n";
    const std::string failed = "_common_util_file_size: Critical: Fail: stat failed\n";
    const std::string is_empty = "_common_util_file_size: Critical: Fail:Filesize is zero (End)\n";
    // A negative size: there is no file.
    constexpr std::pair<const char *, long long> files[] = {
        {"largest", INT_MAX}, {"empty", 0}, {"too_large", 1LL << 31}, {"dangling", -1}};
    EXPECT_EQ(symlink("missing", "dangling"), 0);
    for (const auto &[path, size] : files) {
        if (size >= 0) {
            make_file(path);
            EXPECT_EQ(truncate64(path, size), 0); // takes no place on the disk
        }
        const bool fits = size >= 0 && size <= INT_MAX;
        unsigned int result = 77;
        EXPECT_EQ(_common_util_file_size(path, &result), fits ? ZEL_ERR_NONE : ZEL_ERR_INVALID_FILE) << path;
        EXPECT_EQ(result, fits ? size : 77) << path;
        EXPECT_EQ(_common_util_file_exist(path), size >= 0) << path;
        expect_lines((size == 0 ? is_empty : fits ? "" : failed) + (size >= 0 ? exists : ""));
    }
    expect_null_is_rejected(2, "Invalid Parameters", ZEL_ERR_INVALID_ARG, _common_util_file_size);
}

TEST(Files, names_are_split_at_the_last_dot_and_numbered_until_free)
{
    mkdir("dir.d", 0700);
    for (const char *taken : {"taken_1.jpg", "taken_2.jpg", "gap_2.jpg", "dir.d/x_1.gz"})
        make_file(taken);
    constexpr char NONE[] = "(none)";
    const struct {
        const char *path, *name, *extension, *numbered;
    } cases[] = {
        {"taken.jpg", "taken", "jpg", "taken_3.jpg"},
        {"gap.jpg", "gap", "jpg", "gap_1.jpg"},
        {"dir.d/x.gz", "dir.d/x", "gz", "dir.d/x_2.gz"},
        {"README", "README", NONE, "README"},
        {"dir.d/file", "dir", NONE, "dir.d/file"},
        {".profile", NONE, "profile", ".profile"},
        {"..", ".", "", "._1."},
        {"a.tar.gz", "a.tar", "gz", "a.tar_1.gz"},
    };
    char numbered[ZEL_NEW_PATH_SIZE] = ""; // the address check sees every step beyond
    for (const auto &expected : cases) {
        char *const name = _common_util_get_filename_without_ext(expected.path);
        char *const extension = _common_util_get_ext(expected.path);
        _common_util_get_file_valid_path(expected.path, numbered);
        EXPECT_STREQ(name ? name : NONE, expected.name) << expected.path;
        EXPECT_STREQ(extension ? extension : NONE, expected.extension) << expected.path;
        EXPECT_STREQ(numbered, expected.numbered);
        std::free(name);
        g_free(extension);
    }
    expect_lines(R"(
_common_util_file_exist: Info: File already exist
    Info: File already exist
    Info: File already exist
)");
    EXPECT_EQ(_common_util_get_filename_without_ext(nullptr), nullptr);
    _common_util_get_file_valid_path(nullptr, numbered);
    EXPECT_STREQ(numbered, "");
    const std::string stem(5000, 'a'), root(5000, '/'); // which exists under every number
    for (const std::string &path : {stem, printed("%s.jpg", stem.c_str()), printed("%sa.b", root.c_str())}) {
        _common_util_get_file_valid_path(path.c_str(), numbered);
        EXPECT_EQ(numbered, path.substr(0, ZEL_NEW_PATH_SIZE - 1));
    }
}

TEST(Process, random_number_is_seeded_from_the_clock)
{
    constexpr std::tuple<int, int, int> seeds[] = {
        {7, 12, 7}, {999, 12, 999}, {1000, 12, 100}, {99999, INT_MAX, 999}, {123456, INT_MIN, 123}};
    for (const auto &[microseconds, num, digits] : seeds) {
        const scripted_clock clock(1700000000, microseconds);
        const unsigned int result = _common_get_random_no(num);
        std::srand(static_cast<unsigned int>(1700000000000 + digits + num + getpid()));
        EXPECT_EQ(result, static_cast<unsigned int>(std::rand())) << microseconds << " " << num;
    }
    expect_lines("");
}

TEST(Process, time_is_in_seconds_and_milliseconds)
{
    const scripted_clock clock(6000000000, 1999);
    EXPECT_EQ(_common_util_get_current_timestamp(), 6000000000u);
    EXPECT_EQ(_common_util_get_current_unix_time(), 6000000000001u);
    // The text begins with a blank.
    expect_lines(R"(
_common_util_get_current_timestamp: Debug:  timestamp:6000000000
_common_util_get_current_unix_time: Debug:  timestamp:6000000000001
)");
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
    struct stat status = {};
    EXPECT_EQ(stat("quillo.pid", &status), 0);
    EXPECT_EQ(status.st_size, off_t{sizeof pid});
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, writer);
    unlink("quillo.pid");
    mkdir("quillo.pid", 0700);
    _common_util_set_pid_to_file();
    expect_lines(R"(
_common_util_get_pid_from_file: Critical: RESUME: open file /tmp/quillo.pid error
    Critical: RESUME: pid size wrong
_common_util_set_pid_to_file: Critical: RESUME: open file /tmp/quillo.pid error
)");
}

// A result is kept for the life of the process: each of these two needs one of its own.
TEST(Process, feature_registry_is_asked_until_it_answers)
{
    platform.feature_value = true;
    for (const int result : {-5, SYSTEM_INFO_ERROR_NONE}) {
        platform.feature_result = result;
        EXPECT_EQ(_common_util_check_enhanced_feature(), result == SYSTEM_INFO_ERROR_NONE);
    }
    platform.feature_value = false;
    EXPECT_TRUE(_common_util_check_enhanced_feature());
    expect_lines(R"(
_common_util_check_enhanced_feature: Critical: get enhanced feature failed! err[-5]
    Info: enhanced feature is [1]
)");
}

TEST(Process, unknown_feature_is_cached)
{
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    platform.feature_value = true;
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    expect_lines("_common_util_check_enhanced_feature: Critical: enhanced feature does not exist in feature file\n");
}
