// Several processes and threads at one store.
#include "breaking.h"

#include <iostream>
#include <map>
#include <thread>

using namespace zel_test;

namespace
{

constexpr unsigned int PROCESSES = 3, THREADS = 3, ROUNDS = 80;

/// How a row that a worker has added stands in the end; small enough for the pipe to keep it in one piece.
struct row {
    unsigned int id, marker; ///< the marker is its req_id, which no other row has
    int status, refusals;
    bool is_deleted;
};

/// Adds rows, moves them all and deletes every third.
void work(int reports, unsigned int worker)
{
    for (unsigned int round = 1; round <= ROUNDS; ++round) {
        row now = {0, worker * 1000 + round, ZEL_SYNC_TODO, 0, false};
        const auto succeeds = [&now](int code) {
            EXPECT_TRUE(code == ZEL_ERR_NONE || code == ZEL_ERR_STORAGE_FAILURE) << code;
            now.refusals += code != ZEL_ERR_NONE;
            return code == ZEL_ERR_NONE;
        };
        zel_content_sync_info info = {};
        info.req_id = now.marker;
        if (succeeds(_common_storage_add_sync_content_info(&info))) {
            now.id = info.sync_id;
            const auto id = static_cast<int>(now.id);
            if (succeeds(_common_storage_update_status_sync_content_info(id, ZEL_SYNC_COMPLETE)))
                now.status = ZEL_SYNC_COMPLETE;
            now.is_deleted = round % 3 == 0 && succeeds(_common_storage_delete_sync_content_info(now.id));
        }
        EXPECT_EQ(write(reports, &now, sizeof now), static_cast<ssize_t>(sizeof now));
    }
}

} // namespace

TEST(StorageContention, the_table_holds_what_was_acknowledged)
{
    use_faulty_disk(); // without syncs the processes meet far more often
    put_file("");
    ASSERT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    world::end();

    std::vector<child> workers;
    for (unsigned int process = 0; process < PROCESSES; ++process)
        workers.push_back(start([process](int reports) {
            EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
            std::vector<std::thread> threads;
            for (unsigned int i = 1; i <= THREADS; ++i)
                threads.emplace_back(work, reports, process * THREADS + i);
            for (std::thread &thread : threads)
                thread.join();
            // At most ten attempts each, and three operations a round at most.
            EXPECT_LE(calls::sleep.calls(), static_cast<int>(10 * 3 * ROUNDS * THREADS));
        }));
    std::map<unsigned int, std::string> rows; // by id, as they are read below
    int refusals = 0;
    for (const child &worker : workers) {
        for (row now = {}; read(worker.reports, &now, sizeof now) == sizeof now; refusals += now.refusals) {
            const std::string line =
                std::to_string(now.id) + "|" + std::to_string(now.marker) + "|" + std::to_string(now.status) + "\n";
            EXPECT_TRUE(now.id == 0 || rows.emplace(now.id, now.is_deleted ? "" : line).second) << "again " << line;
        }
        EXPECT_EQ(wait_for(worker), 0);
    }
    std::string expected;
    for (const auto &[id, line] : rows)
        expected += line;
    raw_database raw;
    EXPECT_EQ(raw.rows("SELECT sync_id, req_id, status FROM content_info_status ORDER BY sync_id"), expected);
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    EXPECT_FALSE(rows.empty());
    std::cout << rows.size() << " rows were added, " << refusals << " operations reported a locked database\n";
}
