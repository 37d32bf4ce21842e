// A writer killed and the power cut at any instant: what was acknowledged is there when the store is opened again. Both
// with SQLite's default journal and with its log. ZEL_CRASHES says how many kills (20 of each unless it is set),
// ZEL_CUTS how many cuts (150), ZEL_SEED with which random numbers.
#include "breaking.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <random>
#include <span>

using namespace zel_test;

namespace
{

struct step {
    call made;
    bool in_steps;
    rows_of_tables rows; ///< behind it
    size_t changes;      ///< of the disk, up to its end, if they are noted
};

struct StorageCrash : testing::TestWithParam<const char *> {
    StorageCrash()
    {
        use_faulty_disk(); // a killed process loses nothing that is in the system's cache: no need to wait for syncs
        prefix = std::string(3000, 'x'); // spills over to further pages
    }
    ~StorageCrash() override
    {
        noted_changes = nullptr;
        prefix.clear();
    }

    /// Makes every call of the table, one on top of the other, and keeps those that change something behind a first one
    /// that only has the rows of before.
    void make_all_calls()
    {
        world::end();
        std::vector<call> calls = operations();
        calls.insert(calls.begin(), call("init")); // opens it as a service does
        steps = {{calls[0], false, stored_rows(), 0}};
        for (const call &made : calls) {
            const std::string lines = attempt(made).lines;
            sqlite3_wal_autocheckpoint(_g_sqlite_handle, 8); // pages: checkpoints fall among the cuts
            const size_t changes = noted_changes ? noted_changes->size() : 0;
            if (const rows_of_tables after = stored_rows(); after != steps.back().rows)
                steps.push_back({made, has_steps(lines), after, changes});
        }
        EXPECT_GT(steps.size(), 40u);
        world::end();
    }
    /// Whether these can be the rows when so many calls were acknowledged and the next is under way.
    bool explain(size_t acknowledged, const rows_of_tables &found) const
    {
        const rows_of_tables &kept = steps[acknowledged].rows;
        if (found == kept || acknowledged + 1 == steps.size())
            return found == kept;
        const step &next = steps[acknowledged + 1];
        return found == next.rows || (next.in_steps && lies_between(found, {kept, next.rows}));
    }

    const std::string journal = std::string("PRAGMA journal_mode = ") + GetParam();
    std::vector<step> steps;
};
INSTANTIATE_TEST_SUITE_P(Journal, StorageCrash, testing::Values("delete", "wal"),
                         [](const auto &it) { return std::string(it.param); });

using files = std::map<std::string, std::string>; ///< contents by name

/// What is left of these files after these changes and a cut behind the last. What was synced is, and with a journal or
/// log its folder, as SQLite has it. Of the rest each write is kept, dropped or torn by sectors of 512 bytes, and each
/// truncation, creation and deletion is kept or lost, whatever became of the others.
files after_power_cut(files left, std::span<const disk_change> changes, std::mt19937 &random)
{
    const auto luck = random() % 5; // from a disk that has written nothing on its own to one that has written all
    std::map<std::string, std::string> found_as; // "" for a file whose creation is lost
    for (; !changes.empty(); changes = changes.subspan(1)) {
        const disk_change &now = changes.front();
        const bool is_of_folder = now.kind == disk_change::CREATION || now.kind == disk_change::DELETION;
        const bool is_synced = std::any_of(changes.begin(), changes.end(), [&](const disk_change &later) {
            return later.kind == disk_change::SYNC &&
                   (is_of_folder ? !later.file.ends_with(".db") : later.file == now.file);
        });
        const auto is_kept = [&] { return is_synced || random() % 4 < luck; };
        std::string &name = found_as.try_emplace(now.file, now.file).first->second;
        if (now.kind == disk_change::CREATION) {
            name = is_kept() ? now.file : "";
            left[name] = "";
        } else if (now.kind == disk_change::DELETION && is_kept()) {
            left.erase(name);
        } else if (now.kind == disk_change::TRUNCATION && is_kept()) {
            left[name].resize(now.place);
        } else if (now.kind == disk_change::WRITE) {
            const size_t unit = random() % 2 ? 512 : SIZE_MAX, end = now.place + now.bytes.size();
            for (size_t from = now.place, to; from < end; from = to) {
                to = std::min(end - from, unit - from % unit) + from;
                if (!is_kept())
                    continue;
                left[name].resize(std::max(left[name].size(), to));
                left[name].replace(from, to - from, now.bytes, from - now.place, to - from);
            }
        }
    }
    left.erase("");
    return left;
}

rows_of_tables rows_of_opened_store()
{
    EXPECT_TRUE(_common_storage_check_table_exist("folder_info")); // opens the store
    const rows_of_tables found = stored_rows();
    world::end();
    return found;
}

unsigned int setting(const char *name, unsigned int otherwise)
{
    const char *const text = std::getenv(name);
    return text ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : otherwise;
}

} // namespace

TEST_P(StorageCrash, acknowledged_writes_survive_a_kill)
{
    const world rows(ROWS);
    rows.begin(journal);
    make_all_calls();

    const unsigned int seed = setting("ZEL_SEED", std::random_device()()), kills = setting("ZEL_CRASHES", 20);
    std::mt19937 random(seed);
    int in_flight = 0, hot_journals = 0;
    for (unsigned int done = 0; done < kills && !HasFailure(); ++done) {
        SCOPED_TRACE("ZEL_SEED=" + std::to_string(seed) + ", kill " + std::to_string(done + 1));
        rows.begin(journal);
        world::end();
        const child writer = start([&](int reports) {
            for (const step &it : std::span(steps).subspan(1)) // the first of them has to open the store
                EXPECT_TRUE(it.made().code == ZEL_ERR_NONE && write(reports, "", 1) == 1);
            pause();
        });
        size_t acknowledged = 0;
        const size_t wanted = random() % steps.size();
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
        const rows_of_tables found = rows_of_opened_store();
        in_flight += found != steps[acknowledged].rows;
        EXPECT_TRUE(explain(acknowledged, found))
            << acknowledged << " acknowledged" << changes(steps[acknowledged].rows, found);
    }
    std::cout << kills << " kills, " << hot_journals << " with a journal left behind, " << in_flight
              << " behind a write that was not acknowledged any more\n";
}

/// SQLite deletes its default journal to commit a statement and does not sync that: the last one can be undone.
TEST_P(StorageCrash, acknowledged_writes_survive_a_power_cut)
{
    std::vector<disk_change> made, recovery;
    const world rows(ROWS);
    rows.begin(journal);
    const files first = {{std::filesystem::canonical(database_file), content_of(database_file)}};
    noted_changes = &made;
    make_all_calls();

    const unsigned int seed = setting("ZEL_SEED", std::random_device()()), wanted = setting("ZEL_CUTS", 150);
    unsigned int cuts = 0, again = 0, undone = 0;
    for (; cuts < wanted && !HasFailure(); ++cuts) {
        SCOPED_TRACE("ZEL_CUTS=1 ZEL_SEED=" + std::to_string(seed + cuts));
        std::mt19937 random(seed + cuts);
        const size_t instant = random() % (made.size() + 1);
        files left = after_power_cut(first, std::span(made).first(instant), random);
        rows_of_tables found;
        for (bool is_cut = true; is_cut; again += is_cut) {
            put_file("");
            for (const auto &[name, bytes] : left)
                std::ofstream(name, std::ios::binary) << bytes;
            recovery.clear();
            noted_changes = &recovery;
            found = rows_of_opened_store();
            is_cut = !recovery.empty() && random() % 2;
            left = after_power_cut(left, std::span(recovery).first(random() % (recovery.size() + 1)), random);
        }
        const auto last = static_cast<size_t>(
            std::count_if(steps.begin() + 1, steps.end(), [&](const step &it) { return it.changes <= instant; }));
        const bool is_undone = !explain(last, found);
        undone += is_undone;
        EXPECT_TRUE(!is_undone || (GetParam() == std::string("delete") && last && explain(last - 1, found)))
            << last << " acknowledged" << changes(steps[last].rows, found);
    }
    std::cout << cuts << " power cuts among " << made.size() << " changes of the disk, seed " << seed << ", and "
              << again << " during recovery; " << undone << " undid the last statement\n";
}
