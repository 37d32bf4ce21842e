// Runs the selected cases in a new scratch folder below the build folder, and removes it on success.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <unistd.h>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();

    // ctest runs each case in a process of its own. Several cases in one process share a folder named for the process.
    std::string name = testing::GTEST_FLAG(filter);
    if (name.find_first_of("*:?-") != std::string::npos)
        name = "process_" + std::to_string(getpid());
    std::replace(name.begin(), name.end(), '/', '_');

    const std::filesystem::path folder = std::filesystem::path(ZEL_TEST_SCRATCH) / name;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    std::filesystem::current_path(folder);
    const int result = RUN_ALL_TESTS();
    if (result == 0) {
        std::filesystem::current_path(folder.parent_path());
        std::filesystem::remove_all(folder);
    }
    return result;
}
