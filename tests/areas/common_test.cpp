// Result codes, records, files and what belongs to the process; and the log's entry point for clients.
#include "interpose.h"
#include "platform.h"
#include "zel_common.h"
#include "zel_common/records.h"
#include "zel_common_log.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace zel_test;

namespace
{

constexpr auto text = [] { return g_strdup("x"); };
constexpr auto owned = [](const auto &record) { return g_memdup2(&record, sizeof record); };

GList *list_of(std::initializer_list<void *> elements)
{
    GList *list = nullptr;
    for (void *element : elements)
        list = g_list_append(list, element);
    return list;
}

void make_file(const std::string &path, const std::string &content = "")
{
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace

TEST(Errors, have_client_codes_and_names)
{
    const std::map<int, int> client_codes = {
        {0, 0},   {1, -1},  {2, -2},   {3, -3},   {4, -4},   {5, -5},   {6, -6},   {7, 0},    {8, -7},
        {9, -8},  {10, -9}, {11, -10}, {12, -11}, {13, -3},  {16, -13}, {20, -22}, {26, -14}, {28, -9},
        {29, -9}, {30, -9}, {31, -16}, {33, 0},   {42, -22}, {44, -18}, {45, -17}, {46, -21},
    };
    std::istringstream names(
        "NONE INVALID_ARG MEMORY SOCKET_FAILURE SERVER_NOT_RUNNING THREAD REQUEST_FAILED CANCELLED NETWORK_FAILURE "
        "TIMEOUT_ERR RESOURCE_DOESNT_EXIST MAX_FILE_SIZE_EXCEEDED NOT_AUTHENTICATED BROKEN_PIPE TELEPHONY "
        "STORAGE_FAILURE INVALID_REQ_ID SHARE_FILE_DOESNT_EXITS AUTHENTICATION_FAILED BAD_JSON_FORMAT "
        "BAD_ACCESS_TOKEN BAD_DEVICE_ID BAD_CLIENT_ID INVALID_UID JSON_FAILURE LIMIT_EXCEED STORAGE_NO_RECORDS "
        "STORAGE_INIT_FAILURE INVALID_FILE FILE_DOESNT_EXIST NOT_A_FILE TRANSPORT_FAILURE SHARE_THUMBNAIL_ERR "
        "REQ_PAUSED UNKNOWN RESOURCE_ALREADY_EXIST MAX_REQ_REACHED");
    std::string name;
    for (int code = 0; code < 110; ++code) {
        const std::string text = std::to_string(code);
        const auto known = client_codes.find(code);
        EXPECT_LOGS(known == client_codes.end() ? -100 : known->second, debug(it, "err [" + text + "]"),
                    _common_util_convert_service_error_to_client_error, static_cast<zel_err_e>(code));
        const bool is_named = bool(names >> name);
        const trace line = critical(it, "Error code [" + text + "]: Error Msg[ZEL_ERR_" + name + "]");
        EXPECT_LOGS(0, is_named ? line : trace(), _common_print_error_info, code);
    }
    EXPECT_EQ(_common_util_convert_service_error_to_client_error(static_cast<zel_err_e>(-1)), -100);
    take_trace();
    for (const int nameless : {-1, INT_MIN, INT_MAX})
        EXPECT_LOGS(0, trace(), _common_print_error_info, nameless);
}

TEST(Log, entry_point_of_clients_writes_nothing)
{
    EXPECT_LOGS(0, trace(), zel_service_log, "file.c", "function", 1, "TAG", "%d %s", 1, "x");
    EXPECT_LOGS(0, trace(), zel_service_log, nullptr, nullptr, -1, nullptr, nullptr);
}

// What a release forgets, the leak check at the end of the process finds; what it releases twice, the address check.
TEST(Records, releases_take_null_empty_records_and_all_that_a_record_owns)
{
    const auto check = [](const char *name, void (*release)(void *), void *record, const trace &inside = {}) {
        release(nullptr);
        release(g_malloc0(sizeof(zel_trans_upload_info))); // the largest of them
        release(record);
        EXPECT_TRACE(whole(name), whole(name), whole(name, {inside}));
    };
    using recipient = quillo_msisdn_s;
    GList *items =
        list_of({nullptr, owned(zel_trans_content_info{}),
                 owned(zel_trans_content_info{text(), text(), text(), text(), text(), text(), text(), 1, 2, 3, 4})});
    void *recipients[] = {owned(recipient{}), nullptr, owned(recipient{text(), text(), 1, 2})};
    auto **list = static_cast<recipient **>(g_memdup2(recipients, sizeof recipients));
    const trace path = whole("__free_file_path_list");
    check("_common_free_url_info", _common_free_url_info, owned(zel_trans_url_info{text(), text()}));
    check("_common_free_url_ids_info", _common_free_url_ids_info, owned(zel_trans_url_ids_info{text(), text(), 1}));
    check("_common_free_share_content_info", _common_free_share_content_info,
          owned(zel_trans_share_content_info{text(), text(), text(), text(), text(), 1, 99, items, 1}));
    check("_common_free_upload_info", _common_free_upload_info,
          owned(zel_trans_upload_info{1, 2, 3, list_of({text(), text()}), 4, 5, text(), 3, list, {}}),
          join({path, path}));
    check("__free_file_path_list", __free_file_path_list, text());
}

TEST(Files, size_and_existence_are_those_of_the_target)
{
    // A negative size: there is none.
    const std::pair<const char *, long long> files[] = {
        {"five", 5},      {"largest", INT_MAX}, {"empty", 0}, {"too_large", 1LL << 31}, {"wraps", 5 + (1LL << 32)},
        {"dangling", -1}, {"missing", -1},      {"", -1}};
    std::filesystem::create_symlink("missing", "dangling");
    for (const auto &[name, size] : files) {
        const char *path = name; // which a macro's lambda can hold
        if (size >= 0) {
            make_file(path);
            std::filesystem::resize_file(path, static_cast<uintmax_t>(size)); // takes no place on the disk
        }
        unsigned int answer = 77;
        if (size >= 0 && size <= INT_MAX)
            EXPECT_WHOLE(ZEL_ERR_NONE, size ? trace() : critical(it, "Fail:Filesize is zero"), _common_util_file_size,
                         path, &answer);
        else
            EXPECT_BEGUN(ZEL_ERR_INVALID_FILE, critical(it, "Fail: stat failed"), _common_util_file_size, path,
                         &answer);
        EXPECT_EQ(answer, size >= 0 && size <= INT_MAX ? size : 77) << path;
        EXPECT_WHOLE(size >= 0, size < 0 ? trace() : info(it, "File already exist"), _common_util_file_exist, path);
    }
    EXPECT_NULLS_REJECTED(2, ZEL_ERR_INVALID_ARG, "Invalid Parameters", _common_util_file_size);
    calls::file_status.answer(EIO, 0, 2);
    EXPECT_TRUE(_common_util_file_exist("/")) << "even when nobody can look at it";
    EXPECT_FALSE(_common_util_file_exist("five"));
}

TEST(Files, names_are_split_at_the_last_dot_and_numbered_until_free)
{
    std::filesystem::create_directories("dir.d");
    for (const char *taken : {"taken_1.jpg", "taken_2.jpg", "gap_2.jpg", "dir.d/x_1.gz"})
        make_file(taken);
    const std::tuple<const char *, const char *, const char *, const char *> paths[] = {
        {"taken.jpg", "taken", "jpg", "taken_3.jpg"},
        {"gap.jpg", "gap", "jpg", "gap_1.jpg"},
        {"dir.d/x.gz", "dir.d/x", "gz", "dir.d/x_2.gz"},
        {"README", "README", nullptr, "README"},
        {"dir.d/file", "dir", nullptr, "dir.d/file"},
        {"file.", "file", "", "file_1."},
        {".profile", nullptr, "profile", ".profile"},
        {"..", ".", "", "._1."},
        {"", "", nullptr, ""},
        {"a.tar.gz", "a.tar", "gz", "a.tar_1.gz"}};
    const trace parts = join({whole("_common_util_get_filename_without_ext"), whole("_common_util_get_ext")});
    char result[ZEL_NEW_PATH_SIZE + 1] = "";
    for (const auto &[path, name, extension, free_path] : paths) {
        take_trace();
        char *const got[] = {_common_util_get_filename_without_ext(path), _common_util_get_ext(path)};
        EXPECT_TRACE(parts);
        EXPECT_STREQ(got[0], name) << path;
        EXPECT_STREQ(got[1], extension) << path;
        std::free(got[0]);
        g_free(got[1]);
        _common_util_get_file_valid_path(path, result);
        EXPECT_STREQ(result, free_path);
    }
    EXPECT_TRACE(whole("_common_util_get_file_valid_path", {parts, whole("_common_util_file_exist")}));
    // Cut off, the last but one is "/", which exists under every number.
    const std::string stem(5000, 'a');
    for (const std::string &path : {stem + ".jpg", stem, "." + stem, std::string(5000, '/') + "a.b", std::string()}) {
        std::fill(std::begin(result), std::end(result), '#');
        _common_util_get_file_valid_path(path.empty() ? nullptr : path.c_str(), result);
        EXPECT_EQ(result[ZEL_NEW_PATH_SIZE], '#');
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
    EXPECT_TRACE();
}

TEST(Process, time_is_in_seconds_and_milliseconds)
{
    const scripted_clock clock(6000000000, 1999);
    EXPECT_WHOLE(6000000000u, debug(it, " timestamp:6000000000"), _common_util_get_current_timestamp);
    EXPECT_WHOLE(6000000000001u, debug(it, " timestamp:6000000000001"), _common_util_get_current_unix_time);
}

TEST(Process, pid_file_holds_the_writers_thread_id)
{
    pid_t pid = 77;
    const trace unopened = critical(it, "RESUME: open file /tmp/quillo.pid error");
    EXPECT_LOGS(false, unopened, _common_util_get_pid_from_file, &pid);
    make_file("quillo.pid", "123");
    EXPECT_LOGS(false, critical(it, "RESUME: pid size wrong"), _common_util_get_pid_from_file, &pid);
    EXPECT_EQ(pid, 77);

    make_file("quillo.pid", "a longer text that was there before");
    pid_t thread = 0;
    std::thread([&thread] {
        thread = static_cast<pid_t>(syscall(SYS_gettid));
        EXPECT_LOGS(0, trace(), _common_util_set_pid_to_file);
    }).join();
    EXPECT_EQ(std::filesystem::file_size("quillo.pid"), 4u);
    EXPECT_LOGS(true, trace(), _common_util_get_pid_from_file, &pid);
    EXPECT_EQ(pid, thread);

    std::filesystem::remove("quillo.pid");
    std::filesystem::create_directory("quillo.pid");
    EXPECT_LOGS(0, unopened, _common_util_set_pid_to_file);
}

// An answer is kept for the life of the process: each of these two needs one of its own.
TEST(Process, feature_is_asked_for_until_answered)
{
    platform.feature_value = true;
    platform.feature_result = -5;
    EXPECT_LOGS(false, critical(it, "get enhanced feature failed! err[-5]"), _common_util_check_enhanced_feature);
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    EXPECT_LOGS(true, info(it, "enhanced feature is [1]"), _common_util_check_enhanced_feature);
    platform.feature_value = false;
    EXPECT_LOGS(true, trace(), _common_util_check_enhanced_feature);
}

TEST(Process, feature_that_is_unknown_is_cached)
{
    EXPECT_LOGS(false, critical(it, "enhanced feature does not exist in feature file"),
                _common_util_check_enhanced_feature);
    platform.feature_value = true;
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    EXPECT_LOGS(false, trace(), _common_util_check_enhanced_feature);
}
