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

void make_file(const std::string &path, const std::string &content)
{
    std::ofstream(path, std::ios::binary) << content;
}

const std::string exists = "_common_util_file_exist";
const std::string file_size = "_common_util_file_size";
const std::string check = "_common_util_check_enhanced_feature";

void expect_feature(bool value, int queries, const trace &lines)
{
    EXPECT_EQ(_common_util_check_enhanced_feature(), value);
    EXPECT_TRACE(lines);
    EXPECT_EQ(platform.feature_queries, queries);
}

} // namespace

TEST(Files, SizeAndExistence)
{
    const std::tuple<const char *, long long, bool, bool> files[] = {{"five", 5, true, true},
                                                                     {"largest", INT_MAX, true, true},
                                                                     {"empty", 0, true, true},
                                                                     {"too_large", 1LL << 31, false, true},
                                                                     {"wraps", 5 + (1LL << 32), false, true},
                                                                     {"dangling", -1, false, false},
                                                                     {"missing", -1, false, false},
                                                                     {"", -1, false, false}};
    std::filesystem::create_symlink("missing", "dangling");
    for (const auto &[path, size, has_size, is_there] : files) {
        if (size >= 0) {
            make_file(path, "");
            std::filesystem::resize_file(path, static_cast<uintmax_t>(size)); // takes no place on the disk
        }
        unsigned int answer = 77;
        EXPECT_EQ(_common_util_file_size(path, &answer), has_size ? ZEL_ERR_NONE : ZEL_ERR_INVALID_FILE) << path;
        EXPECT_EQ(answer, has_size ? size : 77);
        EXPECT_TRACE(has_size ? whole(file_size, {size ? trace() : critical(file_size, "Fail:Filesize is zero")})
                              : join({begin(file_size), critical(file_size, "Fail: stat failed")}));
        EXPECT_EQ(_common_util_file_exist(path), is_there);
        EXPECT_TRACE(whole(exists, {is_there ? info(exists, "File already exist") : trace()}));
    }
    unsigned int answer = 77;
    EXPECT_NULLS_REJECTED(2, ZEL_ERR_INVALID_ARG, "Invalid Parameters", _common_util_file_size, "five", &answer);
    calls::file_status.answer(EIO, 0, 2);
    EXPECT_TRUE(_common_util_file_exist("/")) << "even when nobody can look at it";
    EXPECT_FALSE(_common_util_file_exist("five"));
}

TEST(Files, NameExtensionAndFreePath)
{
    std::filesystem::create_directories("dir.d");
    for (const char *taken : {"taken_1.jpg", "taken_2.jpg", "gap_2.jpg", "dir.d/x_1.gz"})
        make_file(taken, "");
    const std::tuple<const char *, const char *, const char *, const char *> paths[] = {
        {"taken.jpg", "taken", "jpg", "taken_3.jpg"},
        {"gap.jpg", "gap", "jpg", "gap_1.jpg"},
        {"dir.d/x.gz", "dir.d/x", "gz", "dir.d/x_2.gz"},
        {"a.tar.gz", "a.tar", "gz", "a.tar_1.gz"},
        {"README", "README", nullptr, "README"},
        {"dir.d/file", "dir", nullptr, "dir.d/file"},
        {"file.", "file", "", "file_1."},
        {".profile", nullptr, "profile", ".profile"},
        {"..", ".", "", "._1."},
        {"a.b/", "a", nullptr, "a.b/"},
        {"", "", nullptr, ""},
    };
    const trace parts = join({whole("_common_util_get_filename_without_ext"), whole("_common_util_get_ext")});
    for (const auto &[path, name, extension, free_path] : paths) {
        char *got_name = _common_util_get_filename_without_ext(path);
        char *got_extension = _common_util_get_ext(path);
        EXPECT_TRACE(parts);
        EXPECT_STREQ(got_name, name) << path;
        EXPECT_STREQ(got_extension, extension) << path;
        std::free(got_name);
        g_free(got_extension);
        char result[ZEL_NEW_PATH_SIZE] = "";
        _common_util_get_file_valid_path(path, result);
        EXPECT_STREQ(result, free_path);
        const std::string lines = take_trace().text;
        EXPECT_TRUE(path != std::string("a.tar.gz") ||
                    lines == whole("_common_util_get_file_valid_path", {parts, whole(exists)}).text);
    }
    // Cut off, the last one is "/", which exists under every number.
    const std::string stem(5000, 'a');
    for (const std::string &path : {stem + ".jpg", stem, "." + stem, std::string(5000, '/') + "a.b"}) {
        std::string buffer(ZEL_NEW_PATH_SIZE + 1, '#');
        _common_util_get_file_valid_path(path.c_str(), buffer.data());
        EXPECT_EQ(buffer, path.substr(0, 4095) + '\0' + "#");
    }
    char buffer[ZEL_NEW_PATH_SIZE] = "#";
    _common_util_get_file_valid_path(nullptr, buffer);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(_common_util_get_filename_without_ext(nullptr), nullptr);
}

TEST(Process, RandomNumberIsSeededFromTheClock)
{
    const std::tuple<int, int, int> seeds[] = {
        {7, 12, 7}, {999, 12, 999}, {1000, 12, 100}, {99999, INT_MAX, 999}, {123456, INT_MIN, 123}};
    for (const auto &[microseconds, num, digits] : seeds) {
        const scripted_clock clock(1700000000, microseconds);
        const unsigned int answer = _common_get_random_no(num);
        const auto seed = static_cast<unsigned int>(1700000000000 + digits + num + getpid());
        EXPECT_EQ(last_seed, seed) << microseconds << " " << num;
        std::srand(seed);
        EXPECT_EQ(answer, static_cast<unsigned int>(std::rand()));
    }
    EXPECT_TRACE();
}

TEST(Process, TimeInSecondsAndMilliseconds)
{
    const scripted_clock clock(6000000000, 1999);
    const std::string seconds = "_common_util_get_current_timestamp";
    const std::string milliseconds = "_common_util_get_current_unix_time";
    EXPECT_EQ(_common_util_get_current_timestamp(), 6000000000u);
    EXPECT_EQ(_common_util_get_current_unix_time(), 6000000000001u);
    EXPECT_TRACE(whole(seconds, {debug(seconds, " timestamp:6000000000")}),
                 whole(milliseconds, {debug(milliseconds, " timestamp:6000000000001")}));
}

TEST(Process, PidFileHoldsTheWritersThreadId)
{
    pid_t pid = 77;
    EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
    EXPECT_TRACE(critical("_common_util_get_pid_from_file", "RESUME: open file /tmp/quillo.pid error"));
    make_file("quillo.pid", "123");
    EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
    EXPECT_TRACE(critical("_common_util_get_pid_from_file", "RESUME: pid size wrong"));
    EXPECT_EQ(pid, 77);

    make_file("quillo.pid", "a longer text that was there before");
    pid_t thread = 0;
    std::thread([&thread] {
        thread = static_cast<pid_t>(syscall(SYS_gettid));
        _common_util_set_pid_to_file();
    }).join();
    EXPECT_EQ(std::filesystem::file_size("quillo.pid"), 4u);
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, thread);
    _common_util_set_pid_to_file();
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, getpid());
    EXPECT_TRACE();

    std::filesystem::remove("quillo.pid");
    std::filesystem::create_directory("quillo.pid");
    _common_util_set_pid_to_file();
    EXPECT_TRACE(critical("_common_util_set_pid_to_file", "RESUME: open file /tmp/quillo.pid error"));
}

// An answer is kept for the life of the process: each of these two needs one of its own.
TEST(Process, FeatureIsAskedForUntilAnswered)
{
    platform.feature_value = true;
    platform.feature_result = -5;
    expect_feature(false, 1, critical(check, "get enhanced feature failed! err[-5]"));
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    expect_feature(true, 2, info(check, "enhanced feature is [1]"));
    EXPECT_EQ(platform.feature_key, "quillo.feature.enhanced");
    platform.feature_value = false;
    expect_feature(true, 2, {});
}

TEST(Process, FeatureThatIsUnknownIsCached)
{
    platform.feature_value = true;
    expect_feature(false, 1, critical(check, "enhanced feature does not exist in feature file"));
    platform.feature_result = SYSTEM_INFO_ERROR_NONE;
    expect_feature(false, 1, {});
}
