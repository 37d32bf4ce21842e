// The path functions, against what they promise of any path.
#include "fuzz.h"
#include "zel_common.h"

#include <memory>
#include <sys/stat.h>

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Many times over, for the ends of buffers.
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

    const size_t dot = path.rfind('.');
    REQUIRE(dot == 0 ? !name : name && path.substr(0, dot) == name.get());
    const size_t slash = path.rfind('/');
    const bool has_extension = dot != std::string::npos && (slash == std::string::npos || slash < dot);
    REQUIRE(has_extension ? extension && path.substr(dot + 1) == extension.get() : !extension);

    const std::string given = numbered.get();
    constexpr size_t LONGEST = ZEL_NEW_PATH_SIZE - 1;
    if (!name || !extension) {
        REQUIRE(given == path.substr(0, LONGEST));
        return 0;
    }
    const auto candidate = [&](int number) {
        return (path.substr(0, dot) + "_" + std::to_string(number) + path.substr(dot)).substr(0, LONGEST);
    };
    struct stat status = {};
    const auto is_taken = [&status](const std::string &file) { return stat(file.c_str(), &status) == 0; };
    int number = 1;
    for (; candidate(number) != given; ++number)
        REQUIRE(is_taken(candidate(number)));
    REQUIRE(given.size() == LONGEST || !is_taken(given));
    return 0;
}
