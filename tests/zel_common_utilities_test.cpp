#include "interpose.h"
#include "recording_platform.h"
#include "zel_common.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using namespace zel_test;

namespace
{

void write_file(const std::string &path, const std::string &content)
{
    std::ofstream(path, std::ios::binary) << content;
}

// A file that is as long as asked, without its bytes on the disk.
void make_sparse(const std::string &path, long long size)
{
    write_file(path, "");
    std::filesystem::resize_file(path, static_cast<uintmax_t>(size));
}

const std::string exists = "_common_util_file_exist";
const std::string file_size = "_common_util_file_size";

} // namespace

TEST(Files, SizeOfAFile)
{
    write_file("five", "12345");
    std::filesystem::create_symlink("five", "link");
    make_sparse("largest", INT_MAX);
    for (const auto &[path, size] : {std::pair{"five", 5u}, {"link", 5u}, {"largest", 2147483647u}}) {
        unsigned int answer = 0;
        EXPECT_EQ(_common_util_file_size(path, &answer), ZEL_ERR_NONE);
        EXPECT_TRACE(whole(file_size));
        EXPECT_EQ(answer, size);
    }
    write_file("empty", "");
    unsigned int answer = 77;
    EXPECT_EQ(_common_util_file_size("empty", &answer), ZEL_ERR_NONE);
    EXPECT_TRACE(whole(file_size, {critical(file_size, "Fail:Filesize is zero")}));
    EXPECT_EQ(answer, 0u);
}

TEST(Files, SizeThatCannotBeTold)
{
    make_sparse("too_large", 1LL << 31);
    make_sparse("wraps_to_five", (1LL << 32) + 5);
    std::filesystem::create_symlink("missing", "dangling");
    unsigned int answer = 77;
    for (const char *path : {"missing", "dangling", "", "too_large", "wraps_to_five"}) {
        EXPECT_EQ(_common_util_file_size(path, &answer), ZEL_ERR_INVALID_FILE) << path;
        EXPECT_TRACE(begin(file_size), critical(file_size, "Fail: stat failed"));
    }
    EXPECT_EQ(_common_util_file_size(nullptr, &answer), ZEL_ERR_INVALID_ARG);
    EXPECT_TRACE(begin(file_size), critical(file_size, "Invalid Parameters"));
    EXPECT_EQ(_common_util_file_size("too_large", nullptr), ZEL_ERR_INVALID_ARG);
    EXPECT_TRACE(begin(file_size), critical(file_size, "Invalid Parameters"));
    EXPECT_EQ(answer, 77u);
}

TEST(Files, Existence)
{
    write_file("file", "");
    make_sparse("large", 1LL << 31);
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

TEST(Files, NameAndExtension)
{
    struct {
        const char *path;
        const char *name;
        const char *extension;
    } const paths[] = {
        {"/data/photo.jpg", "/data/photo", "jpg"},
        {"/data/archive.tar.gz", "/data/archive.tar", "gz"},
        {"/data/README", "/data/README", nullptr},
        {"/dir.d/file", "/dir", nullptr},
        {"/dir.d/.file", "/dir.d/", "file"},
        {"/data/file.", "/data/file", ""},
        {".profile", nullptr, "profile"},
        {"./x", nullptr, nullptr},
        {".", nullptr, ""},
        {"..", ".", ""},
        {"a.b/", "a", nullptr},
        {"", "", nullptr},
    };
    for (const auto &[path, name, extension] : paths) {
        char *got_name = _common_util_get_filename_without_ext(path);
        EXPECT_TRACE(whole("_common_util_get_filename_without_ext"));
        EXPECT_STREQ(got_name, name) << path;
        std::free(got_name);
        char *got_extension = _common_util_get_ext(path);
        EXPECT_TRACE(whole("_common_util_get_ext"));
        EXPECT_STREQ(got_extension, extension) << path;
        g_free(got_extension);
    }
    EXPECT_EQ(_common_util_get_filename_without_ext(nullptr), nullptr);
}

TEST(Files, FreePathIsNumbered)
{
    std::filesystem::create_directory("dir.d");
    for (const char *taken : {"taken_1.jpg", "taken_2.jpg", "gap_2.jpg", "dir.d/x_1.gz"})
        write_file(taken, "");
    const std::pair<const char *, const char *> paths[] = {
        {"photo.jpg", "photo_1.jpg"},
        {"taken.jpg", "taken_3.jpg"},
        {"gap.jpg", "gap_1.jpg"},
        {"dir.d/x.gz", "dir.d/x_2.gz"},
        {"a.tar.gz", "a.tar_1.gz"},
        {"file.", "file_1."},
        {"README", "README"},
        {".profile", ".profile"},
        {"dir.d/file", "dir.d/file"},
        {"./x", "./x"},
        {"taken_1.jpg", "taken_1_1.jpg"},
    };
    for (const auto &[path, expected] : paths) {
        char result[ZEL_NEW_PATH_SIZE] = "";
        _common_util_get_file_valid_path(path, result);
        EXPECT_STREQ(result, expected) << path;
    }
    take_trace();
    char result[ZEL_NEW_PATH_SIZE] = "";
    _common_util_get_file_valid_path("gap_1.jpg", result);
    const trace parts = join({whole("_common_util_get_filename_without_ext"), whole("_common_util_get_ext")});
    EXPECT_TRACE(whole("_common_util_get_file_valid_path", {parts, whole(exists)}));
    _common_util_get_file_valid_path("README", result);
    EXPECT_TRACE(whole("_common_util_get_file_valid_path", {parts}));
}

TEST(Files, FreePathIsCutAtTheBuffersEnd)
{
    const std::string stem(5000, 'a');
    for (const std::string &path : {stem + ".jpg", stem, "." + stem}) {
        std::string buffer(ZEL_NEW_PATH_SIZE + 1, '#');
        _common_util_get_file_valid_path(path.c_str(), buffer.data());
        EXPECT_EQ(buffer, path.substr(0, 4095) + '\0' + "#");
    }
}

TEST(Process, RandomNumberIsSeededFromTheClock)
{
    struct {
        long long seconds;
        long microseconds;
        int digits;
    } const times[] = {
        {1700000000, 7, 7},        {1700000000, 999, 999},    {1700000000, 1000, 100},  {1700000000, 5000, 500},
        {1700000000, 9999, 999},   {1700000000, 10000, 100},  {1700000000, 99999, 999}, {1700000000, 123456, 123},
        {1700000000, 500000, 500}, {1700000000, 999999, 999}, {2147483647, 0, 0},
    };
    for (const auto &[seconds, microseconds, digits] : times) {
        for (const int num : {0, 12, -5, INT_MAX, INT_MIN}) {
            const scripted_clock clock(seconds, microseconds);
            const unsigned int answer = _common_get_random_no(num);
            const auto seed = static_cast<unsigned int>(seconds * 1000 + digits + num + getpid());
            EXPECT_EQ(last_seed(), seed) << seconds << " " << microseconds << " " << num;
            std::srand(seed);
            EXPECT_EQ(answer, static_cast<unsigned int>(std::rand()));
        }
    }
    EXPECT_TRACE();
}

TEST(Process, TimeInSecondsAndMilliseconds)
{
    struct {
        long long seconds;
        long microseconds;
        unsigned long long milliseconds;
    } const times[] = {
        {0, 999, 0},
        {1700000000, 999999, 1700000000999},
        {2147483647, 1000, 2147483647001},
        {-1, 0, -1000ULL},
    };
    for (const auto &[seconds, microseconds, milliseconds] : times) {
        const scripted_clock clock(seconds, microseconds);
        const auto timestamp = static_cast<unsigned long long>(seconds);
        EXPECT_EQ(_common_util_get_current_timestamp(), timestamp);
        EXPECT_TRACE(whole("_common_util_get_current_timestamp",
                           {debug("_common_util_get_current_timestamp", " timestamp:" + std::to_string(timestamp))}));
        EXPECT_EQ(_common_util_get_current_unix_time(), milliseconds);
        EXPECT_TRACE(
            whole("_common_util_get_current_unix_time",
                  {debug("_common_util_get_current_unix_time", " timestamp:" + std::to_string(milliseconds))}));
    }
}

TEST(Process, PidFileHoldsTheWritersThreadId)
{
    pid_t pid = 77;
    write_file("quillo.pid", "a longer text that was there before");
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
    write_file("quillo.pid", std::string("\x04\x03\x02\x01more", 8));
    EXPECT_TRUE(_common_util_get_pid_from_file(&pid));
    EXPECT_EQ(pid, 0x01020304);
    EXPECT_EQ(take_trace_of_all().text, "");
}

TEST(Process, PidFileThatCannotBeUsed)
{
    pid_t pid = 77;
    const std::string get = "_common_util_get_pid_from_file";
    const std::string set = "_common_util_set_pid_to_file";
    EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
    EXPECT_TRACE(critical(get, "RESUME: open file /tmp/quillo.pid error"));
    for (const char *content : {"", "123"}) {
        write_file("quillo.pid", content);
        EXPECT_FALSE(_common_util_get_pid_from_file(&pid));
        EXPECT_TRACE(critical(get, "RESUME: pid size wrong"));
    }
    std::filesystem::remove("quillo.pid");
    std::filesystem::create_directory("quillo.pid");
    _common_util_set_pid_to_file();
    EXPECT_TRACE(critical(set, "RESUME: open file /tmp/quillo.pid error"));
    EXPECT_EQ(pid, 77);
}

// The answer is kept for the life of the process: each of these needs one of its own.
TEST(Process, FeatureIsAskedForUntilAnswered)
{
    const std::string check = "_common_util_check_enhanced_feature";
    for (const int error : {-5, 3}) {
        answer_feature(error, true);
        EXPECT_FALSE(_common_util_check_enhanced_feature());
        EXPECT_TRACE(critical(check, "get enhanced feature failed! err[" + std::to_string(error) + "]"));
    }
    answer_feature(SYSTEM_INFO_ERROR_NONE, true);
    EXPECT_TRUE(_common_util_check_enhanced_feature());
    EXPECT_TRACE(info(check, "enhanced feature is [1]"));
    EXPECT_EQ(last_feature_key(), "quillo.feature.enhanced");
    EXPECT_EQ(feature_queries(), 3);
    answer_feature(SYSTEM_INFO_ERROR_NONE, false);
    EXPECT_TRUE(_common_util_check_enhanced_feature());
    EXPECT_TRACE();
    EXPECT_EQ(feature_queries(), 3);
}

TEST(Process, FeatureAnsweredWithNoIsCached)
{
    answer_feature(SYSTEM_INFO_ERROR_NONE, false);
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    EXPECT_TRACE(info("_common_util_check_enhanced_feature", "enhanced feature is [0]"));
    answer_feature(SYSTEM_INFO_ERROR_NONE, true);
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    EXPECT_EQ(feature_queries(), 1);
}

TEST(Process, FeatureThatTheDeviceDoesNotKnowIsCached)
{
    answer_feature(SYSTEM_INFO_ERROR_INVALID_PARAMETER, true);
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    EXPECT_TRACE(critical("_common_util_check_enhanced_feature", "enhanced feature does not exist in feature file"));
    answer_feature(SYSTEM_INFO_ERROR_NONE, true);
    EXPECT_FALSE(_common_util_check_enhanced_feature());
    EXPECT_EQ(feature_queries(), 1);
}
