// Several processes and threads at one store.
#include "breaking.h"

#include <iostream>
#include <iterator>
#include <thread>

using namespace zel_test;

namespace
{

constexpr unsigned int PROCESSES = 3, THREADS = 3, ROUNDS = 80;

/// With SQLite's log nobody who reads meets a lock, nor does a single process that writes.
struct form {
    const char *name;
    unsigned int writers; ///< processes that write and read; the others read
    bool has_log;
};
const form forms[] = {{"default_journal", PROCESSES, false}, {"log", PROCESSES, true}, {"log_of_one_writer", 1, true}};

class StorageContention : public testing::TestWithParam<form>
{
};
INSTANTIATE_TEST_SUITE_P(With, StorageContention, testing::ValuesIn(forms),
                         [](const auto &it) { return it.param.name; });

/// How a row that a worker has added stands in the end; small enough for the pipe to keep it in one piece.
struct row {
    unsigned int id, marker;      ///< the marker is its req_id, which no other row has
    int status, refusals, stored; ///< stored: writes of the shared rows that were acknowledged
    bool is_deleted;
    bool succeeds(int code)
    {
        EXPECT_TRUE(code == ZEL_ERR_NONE || code == ZEL_ERR_STORAGE_FAILURE) << code;
        refusals += code != ZEL_ERR_NONE;
        return code == ZEL_ERR_NONE;
    }
};

/// What all write to the same rows: one number in each column, so that a row out of two writes would show.
void write_shared(unsigned int time, row &now)
{
    const std::string text = std::to_string(time);
    const char *const n = text.c_str();
    for (const int code : {_common_storage_upsert_folder_info("shared", n, time, n, time, time),
                           _common_storage_upsert_unique_data("shared", n, n, n, n),
                           _common_storage_add_push_noti_info("shared", n, time, time),
                           _common_storage_update_timestamp_recent_receiver_group(1)})
        now.stored += now.succeeds(code);
}

void read_shared(bool has_log)
{
    for (const char *question : {"get_folder_info shared & & & & &", "get_unique_data shared & & & &"}) {
        const told found = call(question)();
        EXPECT_TRUE(found.code == ZEL_ERR_NONE || !has_log) << question << " " << found.code;
        std::istringstream words(found.outputs);
        const std::set<std::string> all{std::istream_iterator<std::string>(words), {}};
        EXPECT_TRUE(all.size() == 1 || found.code != ZEL_ERR_NONE) << found.outputs;
    }
}

/// Adds rows, moves them all and deletes every third; between them writes and reads what is shared.
void work(int reports, unsigned int worker, bool has_log)
{
    for (unsigned int round = 1; round <= ROUNDS; ++round) {
        row now = {0, worker * 1000 + round, ZEL_SYNC_TODO, 0, 0, false};
        zel_content_sync_info info = {};
        info.req_id = now.marker;
        if (now.succeeds(_common_storage_add_sync_content_info(&info))) {
            now.id = info.sync_id;
            const auto id = static_cast<int>(now.id);
            if (now.succeeds(_common_storage_update_status_sync_content_info(id, ZEL_SYNC_COMPLETE)))
                now.status = ZEL_SYNC_COMPLETE;
            now.is_deleted = round % 3 == 0 && now.succeeds(_common_storage_delete_sync_content_info(now.id));
        }
        write_shared(now.marker, now);
        read_shared(has_log);
        EXPECT_EQ(write(reports, &now, sizeof now), static_cast<ssize_t>(sizeof now));
    }
}

} // namespace

TEST_P(StorageContention, the_tables_hold_what_was_acknowledged)
{
    use_faulty_disk(); // without syncs the processes meet far more often
    const form &set = GetParam();
    put_file("");
    if (set.has_log)
        raw_database().run("PRAGMA journal_mode = WAL");
    ASSERT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    row none = {};
    write_shared(0, none);
    world::end();

    std::vector<child> workers;
    for (unsigned int process = 0; process < PROCESSES; ++process)
        workers.push_back(start([process, &set](int reports) {
            EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
            std::vector<std::thread> threads;
            for (unsigned int i = 1; i <= THREADS; ++i)
                threads.emplace_back([&set, reports, process, i] {
                    if (process < set.writers)
                        return work(reports, process * THREADS + i, set.has_log);
                    for (unsigned int round = 0; round < 10 * ROUNDS; ++round)
                        read_shared(set.has_log);
                });
            for (std::thread &thread : threads)
                thread.join();
            // At most ten attempts for each statement, of which a round has a dozen at most.
            EXPECT_LE(calls::sleep.calls, static_cast<int>(10 * 12 * ROUNDS * THREADS));
        }));
    std::map<unsigned int, row> rows; // by id
    int refusals = 0, stored = 0;
    for (const child &worker : workers) {
        for (row now = {}; read(worker.reports, &now, sizeof now) == sizeof now;) {
            refusals += now.refusals;
            stored += now.stored;
            EXPECT_TRUE(now.id == 0 || rows.emplace(now.id, now).second) << "again " << now.id;
        }
        EXPECT_EQ(wait_for(worker), 0);
    }
    std::vector<std::vector<std::string>> expected;
    for (const auto &[id, row] : rows)
        if (!row.is_deleted)
            expected.push_back({std::to_string(id), std::to_string(row.marker), std::to_string(row.status)});
    raw_database raw;
    EXPECT_EQ(raw.rows("SELECT sync_id, req_id, status FROM content_info_status ORDER BY sync_id"), expected);
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    // Looking and writing are two steps: what is looked for can come twice, and never in parts.
    EXPECT_GT(stored, 0);
    EXPECT_EQ(
        raw.value("SELECT count(*) FROM unique_data, folder_info WHERE EXISTS (SELECT * FROM push_noti_info WHERE "
                  "type = expired_time AND type = received_time) AND "
                  "EXISTS (SELECT * FROM recent_receiver_group WHERE index_value = 1)"),
        "1");
    EXPECT_FALSE(rows.empty());
    EXPECT_TRUE(refusals == 0 || set.writers > 1) << refusals;
    std::cout << rows.size() << " rows were added, " << refusals << " operations reported a locked database\n";
}
