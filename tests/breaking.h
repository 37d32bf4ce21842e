// What the tests that break the store share: a call and how it went, a file in the store's place, another process.
#ifndef ZEL_TESTS_BREAKING_H
#define ZEL_TESTS_BREAKING_H

#include "faulty_disk.h"
#include "operations.h"

#include <cstdlib>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace zel_test
{

struct outcome {
    int code;
    std::string answer; ///< what was handed out
    trace lines;
    bool is_complete; ///< a success, and no step failed whose failure the contract lets pass for an absent row
};

/// Calls the operation, which however it ends keeps to its contract: it reports what that knows, says why it failed,
/// hands out no more than it may, and gives up a lock after ten attempts.
inline outcome attempt(const operation &tried)
{
    take_trace();
    const int slept = calls::sleep.calls();
    answers out;
    const int code = tried.call(out);
    outcome now = {code, out.take(), take_trace(), false};
    now.is_complete = code == ZEL_ERR_NONE && !is_among(now.answer, tried.unseen);
    const auto is_said = [&](const char *line) { return count_lines(now.lines, "CRITICAL", line) > 0; };
    const bool has_reason = code == ZEL_ERR_MEMORY
                                ? std::any_of(tried.memory_lines.begin(), tried.memory_lines.end(), is_said)
                                : now.lines.text.find("CRITICAL") != std::string::npos;
    EXPECT_TRUE(code == ZEL_ERR_NONE || tried.may_fail_with(code)) << code;
    EXPECT_TRUE(code == ZEL_ERR_NONE || code == ZEL_ERR_STORAGE_NO_RECORDS || has_reason) << now.lines.text;
    EXPECT_TRUE(code == ZEL_ERR_NONE || is_among(now.answer, tried.left_behind)) << now.answer;
    EXPECT_EQ(calls::sleep.calls() - slept,
              10 * count_lines(now.lines, "CRITICAL", "Retried for 10 times - returning"));
    return now;
}

inline void put_file(const std::string &content)
{
    std::filesystem::remove_all(database_folder);
    std::filesystem::create_directories(database_folder);
    std::ofstream(database_file, std::ios::binary) << content;
}

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
