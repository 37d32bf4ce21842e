// A writer killed at any instant: what it was told is stored is there when the store is opened again.
// ZEL_CRASHES says how often (40 unless it is set).
#include "breaking.h"

#include <iostream>
#include <random>

using namespace zel_test;

namespace
{

/// Makes every change of the table, one on top of the other, in a store that the first has to open.
template <typename Done> void change_everything(const Done &done)
{
    for (const operation &tried : operations())
        if (tried.writes && attempt(tried).code == ZEL_ERR_NONE)
            done(tried);
}

} // namespace

TEST(StorageCrash, acknowledged_writes_survive_a_kill)
{
    use_faulty_disk(); // a killed process loses nothing that is only in the system's cache: no need to wait for syncs
    const std::string long_text(3000, 'x'); // spills over to further pages
    word = long_text.c_str();
    const world rows;
    rows.begin();
    std::vector<std::string> states = {stored_rows()};
    std::vector<const char *> halfway = {};
    world::end();
    change_everything([&](const operation &changed) {
        states.push_back(stored_rows());
        halfway.push_back(changed.halfway);
    });
    world::end();

    const unsigned int seed = std::random_device()();
    std::mt19937 random(seed);
    const char *const number = std::getenv("ZEL_CRASHES");
    const int kills = number ? std::atoi(number) : 40;
    int in_flight = 0, hot_journals = 0;
    for (int done = 0; done < kills && !HasFailure(); ++done) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", kill " + std::to_string(done + 1));
        rows.begin();
        world::end();
        const child writer = start([](int reports) {
            change_everything([&](const operation &) { EXPECT_EQ(write(reports, "", 1), 1); });
            pause();
        });
        size_t acknowledged = 0;
        const size_t wanted = random() % states.size();
        char byte = 0;
        while (acknowledged < wanted && read(writer.reports, &byte, 1) == 1)
            ++acknowledged;
        usleep(static_cast<useconds_t>(random() % 1000)); // to somewhere within the next write or two
        kill(writer.id, SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(wait_for(writer))) << "the writer ended by itself";
        while (read(writer.reports, &byte, 1) == 1)
            ++acknowledged;
        close(writer.reports);

        hot_journals += std::filesystem::exists(database_file + "-journal");
        EXPECT_TRUE(_common_storage_check_table_exist("folder_info")); // opens the store
        const std::string found = stored_rows();
        world::end();
        if (found == states[acknowledged])
            continue;
        ++in_flight;
        ASSERT_LT(acknowledged, halfway.size());
        const std::string &next = states[acknowledged + 1];
        const char *const between = halfway[acknowledged];
        EXPECT_TRUE(found == next || (between && lies_between(found, states[acknowledged], next + between)))
            << acknowledged << " acknowledged";
    }
    word = "word";
    std::cout << kills << " kills, " << hot_journals << " with a journal left behind, " << in_flight
              << " behind a write that was not acknowledged any more\n";
}
