// Several processes and threads at one store.
#include "faulty_disk.h"
#include "operations.h"

#include <climits>
#include <iostream>
#include <map>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace zel_test;

namespace
{

constexpr unsigned int PROCESSES = 3, THREADS = 3, ROUNDS = 80;

enum action { ADDED, MOVED, DELETED };

/// What a worker reports of one operation; small enough for the pipe to keep it in one piece.
struct report {
    action what;
    int code;
    unsigned int id, marker; ///< the marker is the row's req_id, which no other row has
};

/// Adds rows, moves them all and deletes every third.
void work(int reports, unsigned int worker)
{
    for (unsigned int round = 1; round <= ROUNDS; ++round) {
        zel_content_sync_info info = {};
        info.req_id = worker * 1000 + round;
        const auto tell = [&](action what, int code) {
            const report told = {what, code, info.sync_id, info.req_id};
            return write(reports, &told, sizeof told) == sizeof told && code == ZEL_ERR_NONE;
        };
        if (!tell(ADDED, _common_storage_add_sync_content_info(&info)))
            continue;
        const auto id = static_cast<int>(info.sync_id);
        tell(MOVED, _common_storage_update_status_sync_content_info(id, ZEL_SYNC_COMPLETE));
        if (round % 3 == 0)
            tell(DELETED, _common_storage_delete_sync_content_info(info.sync_id));
    }
}

[[noreturn]] void work_in_threads(int reports, unsigned int process)
{
    if (_common_storage_init() != ZEL_ERR_NONE)
        _exit(1);
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < THREADS; ++i)
        threads.emplace_back(work, reports, process * THREADS + i + 1);
    for (std::thread &thread : threads)
        thread.join();
    // At most ten attempts each, and three operations a round at most.
    _exit(calls::sleep.calls() <= static_cast<int>(10 * 3 * ROUNDS * THREADS) ? 0 : 2);
}

int occurrences(const std::string &text, const std::string &part)
{
    int count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at)
        ++count;
    return count;
}

} // namespace

TEST(StorageContention, the_table_holds_what_was_acknowledged)
{
    use_faulty_disk(); // without syncs the processes meet far more often
    std::filesystem::create_directories(database_folder);
    ASSERT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    world::end();

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    pid_t workers[PROCESSES];
    for (unsigned int i = 0; i < PROCESSES; ++i) {
        workers[i] = fork();
        ASSERT_GE(workers[i], 0);
        if (workers[i] == 0)
            work_in_threads(ends[1], i);
    }
    close(ends[1]);

    std::map<unsigned int, std::string> rows; // by id, as they are read below
    std::map<unsigned int, int> times_handed_out;
    int succeeded = 0, failed = 0;
    for (report told = {}; read(ends[0], &told, sizeof told) == sizeof told;) {
        if (told.code != ZEL_ERR_NONE) {
            EXPECT_EQ(told.code, ZEL_ERR_STORAGE_FAILURE);
            ++failed;
            continue;
        }
        ++succeeded;
        if (told.what == ADDED) {
            EXPECT_EQ(++times_handed_out[told.id], 1) << told.id;
        }
        const int status = told.what == ADDED ? ZEL_SYNC_TODO : ZEL_SYNC_COMPLETE;
        rows[told.id] = std::to_string(told.marker) + "|" + std::to_string(status);
        if (told.what == DELETED)
            rows.erase(told.id);
    }
    close(ends[0]);
    for (const pid_t worker : workers) {
        int status = 0;
        ASSERT_EQ(waitpid(worker, &status, 0), worker);
        EXPECT_EQ(status, 0);
    }

    std::string expected;
    for (const auto &[id, row] : rows)
        expected += std::to_string(id) + "|" + row + "\n";
    raw_database raw;
    EXPECT_EQ(raw.rows("SELECT sync_id, req_id, status FROM content_info_status ORDER BY sync_id"), expected);
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    EXPECT_GT(succeeded, 0);
    std::cout << succeeded << " operations succeeded, " << failed << " reported a locked database\n";
}

TEST(StorageContention, a_held_lock_costs_ten_attempts)
{
    const world rows;
    calls::sleep.answer(0, 0, INT_MAX);
    for (const operation &tried : operations()) {
        SCOPED_TRACE(tried.name);
        rows.begin();
        raw_database other;
        other.lock();
        take_trace();
        const int before = calls::sleep.calls();
        answers out;
        const int code = tried.call(out);
        EXPECT_TRUE(is_among(out.take(), tried.unseen) || tried.may_fail_with(code)) << code;
        // An executor announces each statement once, however often it attempts it. Reading the version is the only
        // one that needs no look at the schema: there the lock shows only at its first row, which nobody tries again.
        const std::string lines = take_trace().text;
        EXPECT_EQ(calls::sleep.calls() - before,
                  10 * (occurrences(lines, "PLAIN __execute_") - occurrences(lines, "query[PRAGMA")));
        other.unlock();
        EXPECT_TRUE(rows.is_untouched());
        world::end();
    }
    EXPECT_EQ(last_sleep, 100UL);
}
