/* Files and paths. */

#include "zel_common.h"
#include "zel_common/holders.h"
#include "zel_common_log/trace.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/stat.h>

int _common_util_file_size(const char *file_path, unsigned int *file_size)
{
    ZEL_BEGIN();
    if (!file_path || !file_size)
        return reject("Invalid Parameters");

    /* A size of 2^31 or more fails on every target, as on those where a file status has 32 bits. */
    struct stat status;
    if (stat(file_path, &status) != 0 || status.st_size > INT32_MAX) {
        ZEL_CRITICAL("Fail: stat failed");
        return ZEL_ERR_INVALID_FILE;
    }
    if (status.st_size == 0)
        ZEL_CRITICAL("Fail:Filesize is zero");

    *file_size = static_cast<unsigned int>(status.st_size);
    ZEL_END();
    return ZEL_ERR_NONE;
}

bool _common_util_file_exist(const char *file_path)
{
    ZEL_BEGIN();
    struct stat status;
    const bool exists = stat(file_path, &status) == 0 || strcmp(file_path, "/") == 0;
    if (exists)
        ZEL_INFO("File already exist");
    ZEL_END();
    return exists;
}

char *_common_util_get_filename_without_ext(const char *file_path)
{
    ZEL_BEGIN();
    char *name = nullptr;
    if (file_path) {
        const char *dot = strrchr(file_path, '.');
        if (!dot)
            name = strdup(file_path);
        else if (dot != file_path)
            name = strndup(file_path, static_cast<size_t>(dot - file_path));
    }
    ZEL_END();
    return name;
}

char *_common_util_get_ext(const char *file_path)
{
    ZEL_BEGIN();
    const char *slash = strrchr(file_path, '/');
    const char *dot = strrchr(slash ? slash : file_path, '.');
    char *extension = dot ? g_strdup(dot + 1) : nullptr;
    ZEL_END();
    return extension;
}

void _common_util_get_file_valid_path(const char *file_path, char *file_new_path)
{
    ZEL_BEGIN();
    const std::unique_ptr<char, releaser<free>> name(_common_util_get_filename_without_ext(file_path));
    const std::unique_ptr<char, releaser<g_free>> extension(name ? _common_util_get_ext(file_path) : nullptr);
    if (extension) {
        int number = 0;
        do {
            snprintf(file_new_path, ZEL_NEW_PATH_SIZE, "%s_%d.%s", name.get(), ++number, extension.get());
            /* A number that is cut off cannot make another name. */
        } while (_common_util_file_exist(file_new_path) &&
                 snprintf(nullptr, 0, "%s_%d", name.get(), number + 1) < ZEL_NEW_PATH_SIZE);
    } else {
        snprintf(file_new_path, ZEL_NEW_PATH_SIZE, "%s", file_path ? file_path : "");
    }
    ZEL_END();
}
