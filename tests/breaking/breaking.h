// What the tests that break the store share beside the harness.
#ifndef ZEL_TESTS_BREAKING_H
#define ZEL_TESTS_BREAKING_H

#include "operations.h"

#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

namespace zel_test
{

/// Where processes put down what the store has acknowledged, a line each: what is written stays, whoever is killed.
constexpr char ACKNOWLEDGED[] = "acknowledged";
inline void acknowledge(const std::string &what)
{
    std::ofstream(ACKNOWLEDGED, std::ios::app) << what + "\n";
}

/// On the disk of the tests, with this in front of every text.
struct breaking_test : testing::Test {
    explicit breaking_test(const std::string &front = "")
    {
        use_faulty_disk();
        disk_is_read_only = false;
        prefix = front;
        std::filesystem::remove(ACKNOWLEDGED);
    }
};

/// Works in a process of its own.
template <typename Work> pid_t start(const Work &work)
{
    const pid_t id = fork();
    if (id == 0) {
        work();
        _exit(testing::Test::HasFailure());
    }
    EXPECT_GT(id, 0);
    return id;
}

/// Waits for its end. Gives the status that waitpid tells.
inline int wait_for(pid_t id)
{
    int status = 0;
    EXPECT_EQ(waitpid(id, &status, 0), id);
    return status;
}

} // namespace zel_test

#endif
