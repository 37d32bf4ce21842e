// What the tests that break the store share beside the harness: another process.
#ifndef ZEL_TESTS_BREAKING_H
#define ZEL_TESTS_BREAKING_H

#include "disk.h"
#include "operations.h"

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace zel_test
{

struct child {
    pid_t id;
    int reports; ///< where what it reports is read
};

/// Works in a process of its own, which is passed where to write its reports.
template <typename Work> child start(const Work &work)
{
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    const pid_t id = fork();
    if (id == 0) {
        work(ends[1]);
        _exit(testing::Test::HasFailure());
    }
    if (id < 0)
        std::abort();
    close(ends[1]);
    return {id, ends[0]};
}

/// Waits for the end. Gives the status that waitpid tells.
inline int wait_for(const child &process)
{
    int status = 0;
    EXPECT_EQ(waitpid(process.id, &status, 0), process.id);
    return status;
}

} // namespace zel_test

#endif
