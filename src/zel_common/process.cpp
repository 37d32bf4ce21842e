/* Process, time and feature. */

#include "zel_common.h"
#include "zel_common/holders.h"
#include "zel_common_log/trace.h"
#include "zel_platform.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr char PID_FILE_PATH[] = "/tmp/quillo.pid";
constexpr char ENHANCED_FEATURE_KEY[] = "quillo.feature.enhanced";

using file_holder = std::unique_ptr<FILE, releaser<fclose>>;

std::atomic<bool> _g_is_checked_feature{false};
std::atomic<bool> _g_is_enhanced_feature{false};

/** The answer is stored before the check counts as done. */
void remember_enhanced_feature(bool enhanced)
{
    _g_is_enhanced_feature = enhanced;
    _g_is_checked_feature = true;
}

timeval time_of_day()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return now;
}

} // namespace

unsigned int _common_get_random_no(int num)
{
    const timeval now = time_of_day();
    auto digits = now.tv_usec;
    while (digits > 999)
        digits /= 10;

    const long long seed = static_cast<long long>(now.tv_sec) * 1000 + digits + num + getpid();
    srand(static_cast<unsigned int>(seed));
    return static_cast<unsigned int>(rand());
}

unsigned long long _common_util_get_current_timestamp(void)
{
    ZEL_BEGIN();
    const auto timestamp = static_cast<unsigned long long>(time_of_day().tv_sec);
    ZEL_DEBUG(" timestamp:%llu", timestamp);
    ZEL_END();
    return timestamp;
}

unsigned long long _common_util_get_current_unix_time(void)
{
    ZEL_BEGIN();
    const timeval now = time_of_day();
    const auto timestamp =
        static_cast<unsigned long long>(static_cast<long long>(now.tv_sec) * 1000 + now.tv_usec / 1000);
    ZEL_DEBUG(" timestamp:%llu", timestamp);
    ZEL_END();
    return timestamp;
}

void _common_util_set_pid_to_file(void)
{
    const file_holder file(fopen(PID_FILE_PATH, "we"));
    if (!file) {
        ZEL_CRITICAL("RESUME: open file /tmp/quillo.pid error");
        return;
    }

    const auto pid = static_cast<pid_t>(syscall(SYS_gettid));
    fwrite(&pid, sizeof(pid), 1, file.get());
}

bool _common_util_get_pid_from_file(pid_t *pid)
{
    const file_holder file(fopen(PID_FILE_PATH, "re"));
    if (!file) {
        ZEL_CRITICAL("RESUME: open file /tmp/quillo.pid error");
        return false;
    }

    pid_t stored = 0;
    if (fread(&stored, sizeof(stored), 1, file.get()) != 1) {
        ZEL_CRITICAL("RESUME: pid size wrong");
        return false;
    }
    *pid = stored;
    return true;
}

bool _common_util_check_enhanced_feature(void)
{
    if (_g_is_checked_feature)
        return _g_is_enhanced_feature;

    bool enhanced = false;
    const int result = system_info_get_custom_bool(ENHANCED_FEATURE_KEY, &enhanced);
    if (result == SYSTEM_INFO_ERROR_NONE) {
        ZEL_INFO("enhanced feature is [%d]", enhanced);
        remember_enhanced_feature(enhanced);
    } else if (result == SYSTEM_INFO_ERROR_INVALID_PARAMETER) {
        ZEL_CRITICAL("enhanced feature does not exist in feature file");
        remember_enhanced_feature(false);
    } else {
        ZEL_CRITICAL("get enhanced feature failed! err[%d]", result);
    }
    return _g_is_enhanced_feature;
}
