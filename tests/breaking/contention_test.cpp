// Several processes and threads at one store.
#include "breaking.h"

#include <iostream>
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
};

/// What all write to the same rows: one number in each column, so that a row out of two writes would show.
bool write_shared(unsigned int number, row &now)
{
    const unsigned long long time = number;
    const std::string text = std::to_string(number);
    const int codes[] = {
        _common_storage_upsert_folder_info("shared", text.c_str(), time, text.c_str(), time, time),
        _common_storage_upsert_unique_data("shared", text.c_str(), text.c_str(), text.c_str(), text.c_str()),
        _common_storage_add_push_noti_info("shared", text.c_str(), time, time),
        _common_storage_update_timestamp_recent_receiver_group(1)};
    for (const int code : codes) {
        EXPECT_TRUE(code == ZEL_ERR_NONE || code == ZEL_ERR_STORAGE_FAILURE) << code;
        now.refusals += code != ZEL_ERR_NONE;
        now.stored += code == ZEL_ERR_NONE;
    }
    return now.stored > 0;
}

void read_shared(bool has_log)
{
    for (const char *question : {"get_folder_info shared & & & & &", "get_unique_data shared & & & &"}) {
        const told found = call(question)();
        EXPECT_TRUE(found.code == ZEL_ERR_NONE || !has_log) << question << " " << found.code;
        std::istringstream words(found.outputs);
        std::string first, next;
        words >> first;
        while (words >> next)
            EXPECT_EQ(first, next) << found.outputs;
    }
}

/// Adds rows, moves them all and deletes every third; between them writes and reads what is shared.
void work(int reports, unsigned int worker, bool has_log)
{
    for (unsigned int round = 1; round <= ROUNDS; ++round) {
        row now = {0, worker * 1000 + round, ZEL_SYNC_TODO, 0, 0, false};
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
            EXPECT_LE(calls::sleep.calls(), static_cast<int>(10 * 12 * ROUNDS * THREADS));
        }));
    std::map<unsigned int, std::vector<std::string>> rows; // by id, as they are read below
    int refusals = 0, stored = 0;
    for (const child &worker : workers) {
        for (row now = {}; read(worker.reports, &now, sizeof now) == sizeof now;) {
            refusals += now.refusals;
            stored += now.stored;
            const std::vector<std::string> line = {std::to_string(now.id), std::to_string(now.marker),
                                                   std::to_string(now.status)};
            EXPECT_TRUE(now.id == 0 || rows.emplace(now.id, now.is_deleted ? std::vector<std::string>() : line).second)
                << "again " << now.id;
        }
        EXPECT_EQ(wait_for(worker), 0);
    }
    std::vector<std::vector<std::string>> expected;
    for (const auto &[id, line] : rows)
        if (!line.empty())
            expected.push_back(line);
    raw_database raw;
    EXPECT_EQ(raw.rows("SELECT sync_id, req_id, status FROM content_info_status ORDER BY sync_id"), expected);
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    // Looking and writing are two steps: what is looked for can come twice, and never in parts.
    EXPECT_GT(stored, 0);
    EXPECT_EQ(raw.value("SELECT count(*) FROM unique_data, folder_info"), "1");
    EXPECT_GE(std::stoi(raw.value("SELECT count(*) FROM push_noti_info WHERE type = expired_time AND type = "
                                  "received_time")),
              1);
    EXPECT_GE(std::stoi(raw.value("SELECT count(*) FROM recent_receiver_group WHERE index_value = 1")), 1);
    EXPECT_FALSE(rows.empty());
    EXPECT_TRUE(refusals == 0 || set.writers > 1) << refusals;
    std::cout << rows.size() << " rows were added, " << refusals << " operations reported a locked database\n";
}
