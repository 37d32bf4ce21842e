#include "interpose.h"
#include "recording_platform.h"
#include "zel_common.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace zel_test;

namespace
{

// Content, or as many bytes as asked that take no place on the disk.
void make_file(const std::string &path, const std::string &content, long long size = -1)
{
    std::ofstream(path, std::ios::binary) << content;
    if (size >= 0)
        std::filesystem::resize_file(path, static_cast<uintmax_t>(size));
}

const std::string exists = "_common_util_file_exist";
const std::string file_size = "_common_util_file_size";

} // namespace

TEST(Files, SizesBelowTwoGigabytes)
{
    make_file("five", "12345");
    make_file("largest", "", INT_MAX);
    make_file("empty", "");
    make_file("too_large", "", 1LL << 31);
    make_file("wraps_to_five", "", (1LL << 32) + 5);
    std::filesystem::create_symlink("five", "link");
    std::filesystem::create_symlink("missing", "dangling");
    for (const auto &[path, size] : {std::pair{"five", 5u}, {"link", 5u}, {"largest", 2147483647u}, {"empty", 0u}}) {
        unsigned int answer = 77;
        EXPECT_EQ(_common_util_file_size(path, &answer), ZEL_ERR_NONE);
        EXPECT_TRACE(whole(file_size, {size ? trace() : critical(file_size, "Fail:Filesize is zero")}));
        EXPECT_EQ(answer, size);
    }
    unsigned int answer = 77;
    for (const char *path : {"missing", "dangling", "", "too_large", "wraps_to_five"})
        EXPECT_REJECTED(ZEL_ERR_INVALID_FILE, "Fail: stat failed", _common_util_file_size, path, &answer);
    EXPECT_NULLS_REJECTED(2, ZEL_ERR_INVALID_ARG, "Invalid Parameters", _common_util_file_size, "five", &answer);
    EXPECT_EQ(answer, 77u);
}

TEST(Files, Existence)
{
    make_file("file", "");
    make_file("large", "", 1LL << 31);
    std::filesystem::create_symlink("missing", "dangling");
    for (const char *path : {"file", "large", ".", "/"}) {
        EXPECT_TRUE(_common_util_file_exist(path)) << path;
        EXPECT_TRACE(whole(exists, {info(exists, "File already exist")}));
    }
    for (const char *path : {"missing", "dangling", "", "file/below"}) {
        EXPECT_FALSE(_common_util_file_exist(path)) << path;
        EXPECT_TRACE(whole(exists));
    }
    calls::file_status.answer(EIO, 0, 2);
    EXPECT_TRUE(_common_util_file_exist("/")) << "even when nobody can look at it";
    EXPECT_FALSE(_common_util_file_exist("file"));
}

TEST(Files, NameExtensionAndFreePath)
{
    std::filesystem::create_directories("dir.d");
    for (const char *taken : {"taken_1.jpg", "taken_2.jpg", "gap_2.jpg", "dir.d/x_1.gz"})
        make_file(taken, "");
    struct {
        const char *path;
        const char *name;
        const char *extension;
        const char *free_path;
    } const paths[] = {
        {"photo.jpg", "photo", "jpg", "photo_1.jpg"},
        {"taken.jpg", "taken", "jpg", "taken_3.jpg"},
        {"taken_1.jpg", "taken_1", "jpg", "taken_1_1.jpg"},
        {"gap.jpg", "gap", "jpg", "gap_1.jpg"},
        {"dir.d/x.gz", "dir.d/x", "gz", "dir.d/x_2.gz"},
        {"a.tar.gz", "a.tar", "gz", "a.tar_1.gz"},
        {"README", "README", nullptr, "README"},
        {"dir.d/file", "dir", nullptr, "dir.d/file"},
        {"dir.d/.file", "dir.d/", "file", "dir.d/_1.file"},
        {"file.", "file", "", "file_1."},
        {".profile", nullptr, "profile", ".profile"},
        {"./x", nullptr, nullptr, "./x"},
        {"..", ".", "", "._1."},
        {"a.b/", "a", nullptr, "a.b/"},
        {"", "", nullptr, ""},
    };
    for (const auto &[path, name, extension, free_path] : paths) {
        char *got_name = _common_util_get_filename_without_ext(path);
        char *got_extension = _common_util_get_ext(path);
        const trace parts = join({whole("_common_util_get_filename_without_ext"), whole("_common_util_get_ext")});
        EXPECT_TRACE(parts);
        EXPECT_STREQ(got_name, name) << path;
        EXPECT_STREQ(got_extension, extension) << path;
        std::free(got_name);
        g_free(got_extension);

        char result[ZEL_NEW_PATH_SIZE] = "";
        _common_util_get_file_valid_path(path, result);
        EXPECT_STREQ(result, free_path);
        if (result == std::string("photo_1.jpg")) {
            EXPECT_TRACE(whole("_common_util_get_file_valid_path", {parts, whole(exists)}));
        }
        take_trace();
    }
    EXPECT_EQ(_common_util_get_filename_without_ext(nullptr), nullptr);

    const std::string stem(5000, 'a');
    for (const std::string &path : {stem + ".jpg", stem, "." + stem}) {
        std::string buffer(ZEL_NEW_PATH_SIZE + 1, '#');
        _common_util_get_file_valid_path(path.c_str(), buffer.data());
        EXPECT_EQ(buffer, path.substr(0, 4095) + '\0' + "#");
    }

    // Cut off it is "/", which exists under every number.
    const std::string slashes(4100, '/');
    std::string buffer(ZEL_NEW_PATH_SIZE, '#');
    _common_util_get_file_valid_path((slashes + "a.b").c_str(), buffer.data());
    EXPECT_EQ(buffer, slashes.substr(0, 4095) + '\0');
    _common_util_get_file_valid_path(nullptr, buffer.data());
    EXPECT_STREQ(buffer.c_str(), "");
}

TEST(Process, RandomNumberIsSeededFromTheClock)
{
    for (const auto &[microseconds, digits] : {std::pair{7, 7},
                                               {999, 999},
                                               {1000, 100},
                                               {5000, 500},
                                               {9999, 999},
                                               {10000, 100},
                                               {99999, 999},
                                               {100000, 100},
                                               {123456, 123},
                                               {500000, 500},
                                               {999999, 999}}) {
        for (const int num : {0, 12, -5, INT_MAX, INT_MIN}) {
            const scripted_clock clock(1700000000, microseconds);
            const unsigned int answer = _common_get_random_no(num);
            const auto seed = static_cast<unsigned int>(1700000000000 + digits + num + getpid());
            EXPECT_EQ(last_seed, seed) << microseconds << " " << num;
            std::srand(seed);
            EXPECT_EQ(answer, static_cast<unsigned int>(std::rand()));
        }
    }
    EXPECT_TRACE();
}

TEST(Process, TimeInSecondsAndMilliseconds)
{
    const std::tuple<long long, long, unsigned long long> times[] = {
        {0, 999, 0}, {1700000000, 999999, 1700000000999}, {2147483647, 1000, 2147483647001}, {-1, 0, -1000ULL}};
    for (const auto &[seconds, microseconds, milliseconds] : times) {
        const scripted_clock clock(seconds, microseconds);
        const auto expect = [](const char *function, unsigned long long (*call)(), unsigned long long value) {
            EXPECT_EQ(call(), value);
            EXPECT_TRACE(whole(function, {debug(function, " timestamp:" + std::to_string(value))}));
        };
        expect("_common_util_get_current_timestamp", _common_util_get_current_timestamp,
               static_cast<unsigned long long>(seconds));
        expect("_common_util_get_current_unix_time", _common_util_get_current_unix_time, milliseconds);
    }
}

TEST(Process, PidFileHoldsTheWritersThreadId)
{
    pid_t pid = 77;
    const trace not_open = critical("_common_util_get_pid_from_file", "RESUME: open file /tmp/quillo.pid error");
    const trace too_short = critical("_common_util_get_pid_from_file", "RESUME: pid size wrong");
    EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
    EXPECT_TRACE(not_open);
    for (const char *content : {"", "123"}) {
        make_file("quillo.pid", content);
        EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
        EXPECT_TRACE(too_short);
    }
    EXPECT_EQ(pid, 77);

    make_file("quillo.pid", "a longer text that was there before");
    _common_util_set_pid_to_file();
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, getpid());
    EXPECT_EQ(std::filesystem::file_size("quillo.pid"), 4u);
    pid_t thread = 0;
    std::thread([&thread] {
        thread = static_cast<pid_t>(syscall(SYS_gettid));
        _common_util_set_pid_to_file();
    }).join();
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, thread);
    EXPECT_NE(thread, getpid());
    const pid_t stored[] = {0x01020304, 0x05060708};
    make_file("quillo.pid", std::string(reinterpret_cast<const char *>(stored), sizeof stored));
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, 0x01020304);
    EXPECT_EQ(take_trace_of_all().text, "");

    std::filesystem::remove("quillo.pid");
    std::filesystem::create_directory("quillo.pid");
    _common_util_set_pid_to_file();
    EXPECT_TRACE(critical("_common_util_set_pid_to_file", "RESUME: open file /tmp/quillo.pid error"));
}

// An answer is kept for the life of the process: each of these needs one of its own.
namespace
{

void expect_feature(bool value, int queries, const trace &lines)
{
    EXPECT_EQ(_common_util_check_enhanced_feature(), value);
    EXPECT_TRACE(lines);
    EXPECT_EQ(platform.feature_queries, queries);
}

const std::string check = "_common_util_check_enhanced_feature";

} // namespace

TEST(Process, FeatureIsAskedForUntilAnswered)
{
    platform.feature_value = true;
    platform.feature_result = -5;
    expect_feature(false, 1, critical(check, "get enhanced feature failed! err[-5]"));
    platform.feature_result = 3;
    expect_feature(false, 2, critical(check, "get enhanced feature failed! err[3]"));
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    expect_feature(true, 3, info(check, "enhanced feature is [1]"));
    EXPECT_EQ(platform.feature_key, "quillo.feature.enhanced");
    platform.feature_value = false;
    expect_feature(true, 3, {});
}

TEST(Process, FeatureThatIsAbsentIsCached)
{
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    expect_feature(false, 1, info(check, "enhanced feature is [0]"));
    platform.feature_value = true;
    expect_feature(false, 1, {});
}

TEST(Process, FeatureThatIsUnknownIsCached)
{
    platform.feature_value = true;
    expect_feature(false, 1, critical(check, "enhanced feature does not exist in feature file"));
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    expect_feature(false, 1, {});
}
