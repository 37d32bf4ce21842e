// A writer killed at any instant: what it was told is stored is there when the store is opened again.
// ZEL_CRASHES says how often (40 unless it is set).
#include "faulty_disk.h"
#include "operations.h"

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

using namespace zel_test;

namespace
{

constexpr size_t STEPS = 90;

/// The n-th write of a fixed sequence. The first opens the store; each is one statement but for that one.
zel_err_e write_step(unsigned int n)
{
    if (n == 0)
        return _common_storage_init();
    const unsigned int cycle = n / 6; // each adds two rows
    // Long enough at times to spill over to further pages.
    std::string text = "text " + std::to_string(n) + std::string(n % 7 * 1500, 'x');
    zel_content_sync_info info = {};
    info.sync_id = 2 * cycle + 2;
    info.req_id = n;
    info.contents_token = info.original = info.thumbnail = info.name = info.local_path = text.data();
    switch (n % 6) {
    case 1:
    case 2:
        return _common_storage_add_sync_content_info(&info);
    case 3:
        return _common_storage_update_sync_content_info(&info);
    case 4:
        return _common_storage_update_status_sync_content_info(static_cast<int>(2 * cycle + 1), ZEL_SYNC_COMPLETE);
    case 5:
        return _common_storage_upsert_unique_data(std::to_string(n % 4).c_str(), text.c_str(), "", "", "");
    default:
        return _common_storage_delete_sync_content_info(cycle);
    }
}

void start_afresh()
{
    std::filesystem::remove_all(database_folder);
    std::filesystem::create_directories(database_folder);
}

/// Has a child write, a byte into a pipe for each success, and kills it at a random moment. Gives the number of bytes.
size_t acknowledged_before_kill(std::mt19937 &random)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        for (unsigned int n = 0; n < STEPS; ++n)
            if (write_step(n) != ZEL_ERR_NONE || write(ends[1], "", 1) != 1)
                _exit(1);
        for (;;)
            pause();
    }
    close(ends[1]);

    char byte = 0;
    size_t acknowledged = 0;
    const size_t wanted = random() % STEPS;
    while (acknowledged < wanted && read(ends[0], &byte, 1) == 1)
        ++acknowledged;
    usleep(static_cast<useconds_t>(random() % 1000)); // to somewhere within the next write or two
    EXPECT_TRUE(writer > 0 && kill(writer, SIGKILL) == 0);
    int status = 0;
    EXPECT_EQ(waitpid(writer, &status, 0), writer);
    EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";
    while (read(ends[0], &byte, 1) == 1)
        ++acknowledged;
    close(ends[0]);
    return acknowledged;
}

} // namespace

TEST(StorageCrash, acknowledged_writes_survive_a_kill)
{
    use_faulty_disk(); // a killed process loses nothing that is only in the system's cache: no need to wait for syncs
    const scripted_clock clock(1000, 0);
    start_afresh();
    std::vector<std::string> states = {""};
    for (unsigned int n = 0; n < STEPS; ++n) {
        ASSERT_EQ(write_step(n), ZEL_ERR_NONE) << n;
        states.push_back(stored_rows());
        ASSERT_NE(states[states.size() - 2], states.back()) << n;
    }
    world::end();

    const unsigned int seed = std::random_device()();
    std::mt19937 random(seed);
    const char *const number = std::getenv("ZEL_CRASHES");
    const int kills = number ? std::atoi(number) : 40;
    int in_flight = 0, hot_journals = 0;
    for (int done = 0; done < kills && !HasFailure(); ++done) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(done + 1));
        start_afresh();
        const size_t acknowledged = acknowledged_before_kill(random);
        hot_journals += std::filesystem::exists(database_file + "-journal");
        EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
        const std::string found = stored_rows();
        world::end();
        // The first write has states of its own in between; opening again completes it.
        const size_t at_least = std::max<size_t>(acknowledged, 1);
        const bool completed = acknowledged < STEPS && found == states[at_least + (acknowledged > 0)];
        in_flight += completed && acknowledged > 0;
        EXPECT_TRUE(completed || found == states[at_least]) << acknowledged << " acknowledged\n" << found;
    }
    std::cout << kills << " kills, " << hot_journals << " with a journal left behind, " << in_flight
              << " behind a write that was not acknowledged any more\n";
}
