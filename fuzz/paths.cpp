// The path functions on any path, checked against what the header promises.
#include "fuzz.h"
#include "zel_common.h"

#include <memory>
#include <sys/stat.h>

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Repeated, to reach the ends of buffers.
    FuzzedDataProvider input(data, size);
    const int times = input.ConsumeIntegralInRange(1, 100);
    const std::string part = input.ConsumeRemainingBytesAsString();
    std::string path;
    for (int i = 0; i < times; ++i)
        path += part.c_str();

    const std::unique_ptr<char, decltype(&free)> name(_common_util_get_filename_without_ext(path.c_str()), free);
    const std::unique_ptr<char, decltype(&g_free)> extension(_common_util_get_ext(path.c_str()), g_free);
    const std::unique_ptr<char[]> numbered(new char[ZEL_NEW_PATH_SIZE]);
    _common_util_get_file_valid_path(path.c_str(), numbered.get());

    const std::string given = numbered.get();
    constexpr size_t LONGEST = ZEL_NEW_PATH_SIZE - 1;
    struct stat status = {};
    if (name && extension) {
        g_assert_true(path == std::string(name.get()) + "." + extension.get());
        g_assert_true(given.size() == LONGEST || (given.starts_with(name.get()) && stat(given.c_str(), &status) != 0));
    } else {
        g_assert_true(given == path.substr(0, LONGEST) && (!name || path.starts_with(name.get())));
    }
    return 0;
}
