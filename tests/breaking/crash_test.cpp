// A writer killed at any instant: what it was told is stored is there when the store is opened again.
// ZEL_CRASHES says how often (40 unless it is set).
#include "breaking.h"

#include <iostream>
#include <random>

using namespace zel_test;

namespace
{

struct step {
    call made;
    bool in_steps;
    rows_of_tables rows; ///< behind it
};

/// Every call of the table that changes something when they are made one on top of the other.
std::vector<step> changing_calls(const rows_of_tables &at_first)
{
    std::vector<step> all;
    rows_of_tables before = at_first;
    for (const call &made : operations()) {
        const trace lines = attempt(made).lines;
        const rows_of_tables after = stored_rows();
        if (after != before)
            all.push_back({made, has_steps(lines), after});
        before = after;
    }
    return all;
}

} // namespace

TEST(StorageCrash, acknowledged_writes_survive_a_kill)
{
    use_faulty_disk(); // a killed process loses nothing that is only in the system's cache: no need to wait for syncs
    prefix = std::string(3000, 'x'); // spills over to further pages
    const world rows(ROWS);
    rows.begin();
    const rows_of_tables at_first = stored_rows();
    const std::vector<step> steps = changing_calls(at_first);
    EXPECT_GE(steps.size(), 40u);
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
        const child writer = start([&](int reports) {
            for (const step &it : steps) // the first of them has to open the store
                EXPECT_TRUE(it.made().code == ZEL_ERR_NONE && write(reports, "", 1) == 1);
            pause();
        });
        size_t acknowledged = 0;
        const size_t wanted = random() % (steps.size() + 1);
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
        const rows_of_tables found = stored_rows();
        world::end();
        const rows_of_tables &kept = acknowledged ? steps[acknowledged - 1].rows : at_first;
        if (found == kept)
            continue;
        ++in_flight;
        ASSERT_LT(acknowledged, steps.size());
        const step &next = steps[acknowledged];
        EXPECT_TRUE(found == next.rows || (next.in_steps && lies_between(found, {kept, next.rows})))
            << acknowledged << " acknowledged, then " << next.made.text() << changes(kept, found);
    }
    prefix.clear();
    std::cout << kills << " kills, " << hot_journals << " with a journal left behind, " << in_flight
              << " behind a write that was not acknowledged any more\n";
}
