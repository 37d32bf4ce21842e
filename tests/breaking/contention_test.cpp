// Several processes and threads at one store.
#include "operations.h"

#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace zel_test;

namespace
{

/// A line for each row that a worker has stored.
constexpr char ACKNOWLEDGED[] = "acknowledged";
constexpr unsigned int PROCESSES = 3, THREADS = 3, ROUNDS = 80;

/// With SQLite's log a reader never finds the store locked, nor does the only process that writes.
struct form {
    const char *name;
    unsigned int writers; ///< processes that write and read; the others read
    bool has_log;
    bool succeeds(int code) const
    {
        EXPECT_TRUE(code == ZEL_ERR_NONE || (code == ZEL_ERR_STORAGE_FAILURE && writers > 1)) << code;
        return code == ZEL_ERR_NONE;
    }
};
const form forms[] = {{"default_journal", PROCESSES, false}, {"log", PROCESSES, true}, {"log_of_one_writer", 1, true}};

using StorageContention = testing::TestWithParam<form>;
INSTANTIATE_TEST_SUITE_P(With, StorageContention, testing::ValuesIn(forms),
                         [](const auto &it) { return it.param.name; });

/// All workers write the same rows: one number in each column, so that a row mixed from two writes would show.
void write_shared(unsigned int time, const form &set)
{
    const std::string text = std::to_string(time);
    const char *const n = text.c_str();
    for (const int code : {_common_storage_upsert_folder_info("shared", n, time, n, time, time),
                           _common_storage_upsert_unique_data("shared", n, n, n, n),
                           _common_storage_add_push_noti_info("shared", n, time, time),
                           _common_storage_update_timestamp_recent_receiver_group(1)})
        set.succeeds(code);
}

void read_shared(const form &set)
{
    for (const char *reading : {"get_folder_info shared & & & & &", "get_unique_data shared & & & &"}) {
        const result found = call(reading)();
        EXPECT_TRUE(found.code == ZEL_ERR_NONE || !set.has_log) << reading << " " << found.code;
        const std::set<std::string> all(found.outputs.begin(), found.outputs.end());
        EXPECT_TRUE(all.size() == 1 || found.code != ZEL_ERR_NONE) << found.words();
    }
}

/// Adds rows, moves them all and deletes every third; between them writes and reads what is shared.
void write_and_read(unsigned int worker, const form &set)
{
    for (unsigned int round = 1; round <= ROUNDS; ++round) {
        zel_content_sync_info info = {};
        info.req_id = worker * 1000 + round; // which no other row has
        if (set.succeeds(_common_storage_add_sync_content_info(&info))) {
            const auto id = static_cast<int>(info.sync_id);
            if (set.succeeds(_common_storage_update_status_sync_content_info(id, ZEL_SYNC_COMPLETE)))
                info.status = ZEL_SYNC_COMPLETE;
            if (round % 3 || !set.succeeds(_common_storage_delete_sync_content_info(info.sync_id)))
                std::ofstream(ACKNOWLEDGED, std::ios::app) << id << "," << info.req_id << "," << info.status << "\n";
        }
        write_shared(info.req_id, set);
        read_shared(set);
    }
}

} // namespace

/// The rows are those that were acknowledged: an id handed out twice would show, and so would a lost deletion.
TEST_P(StorageContention, the_tables_hold_what_was_acknowledged)
{
    const form &set = GetParam();
    put_file("");
    if (set.has_log)
        raw_database().run("PRAGMA journal_mode = WAL");
    const std::string signal = database_folder + "/begin";
    for (unsigned int process = 0; process < PROCESSES; ++process)
        if (fork() == 0) {
            while (!std::filesystem::exists(signal))
                usleep(1000);
            EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
            std::vector<std::jthread> threads;
            for (unsigned int i = 1; i <= THREADS; ++i)
                threads.emplace_back([=] {
                    if (process < set.writers)
                        return write_and_read(process * THREADS + i, set);
                    for (unsigned int round = 0; round < 10 * ROUNDS; ++round)
                        read_shared(set);
                });
            threads.clear(); // when they have ended
            // At most ten attempts for each statement, of which a round has a dozen at most.
            EXPECT_LE(calls::sleep.calls, static_cast<int>(10 * 12 * ROUNDS * THREADS));
            _exit(HasFailure());
        }
    // Stays open, for the first connection to a log locks it while it makes the index.
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    write_shared(0, set);
    std::ofstream(signal).close();
    unsigned int ended = 0;
    for (int status = 0; wait(&status) > 0; ++ended)
        EXPECT_EQ(status, 0);
    EXPECT_EQ(ended, PROCESSES);
    world::end();

    raw_database raw;
    std::multiset<std::string> stored;
    for (const auto &row : raw.rows("SELECT sync_id || ',' || req_id || ',' || status FROM content_info_status"))
        stored.insert(row[0]);
    std::ifstream lines(ACKNOWLEDGED);
    const std::multiset<std::string> acknowledged{std::istream_iterator<std::string>(lines), {}};
    EXPECT_EQ(stored, acknowledged);
    EXPECT_FALSE(stored.empty());
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    // Looking and writing are two steps: what is looked for can come twice, and never in parts.
    EXPECT_EQ(raw.value("SELECT count(*) FROM unique_data, folder_info WHERE value <> '0' AND EXISTS (SELECT * FROM "
                        "push_noti_info WHERE type = expired_time AND type = received_time) AND "
                        "EXISTS (SELECT * FROM recent_receiver_group WHERE index_value = 1)"),
              "1");
}
