// A writer killed and the power cut at any instant: what was acknowledged is there when the store is opened again. Both
// with SQLite's default journal and with its log. ZEL_CRASHES says how many kills (20 of each unless it is set),
// ZEL_CUTS how many cuts (150), ZEL_SEED with which random numbers.
#include "operations.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <span>
#include <thread>
#include <unistd.h>

using namespace zel_test;

namespace
{

using files = std::map<std::string, std::string>; ///< contents by name

void put(const files &all)
{
    put_file("");
    for (const auto &[name, bytes] : all)
        std::ofstream(name, std::ios::binary) << bytes;
}

/// The files after these changes and a power cut after the last one. Synced changes are kept, and with a journal or log
/// also those of its folder, as SQLite assumes. Each of the others is independent: a write is kept, dropped or torn
/// by sectors of 512 bytes, a truncation, creation or deletion is kept or lost.
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

struct step {
    call made;
    bool in_steps;
    rows_of_tables rows; ///< after it
    size_t changes;      ///< of the disk, up to its end
};

struct StorageCrash : testing::TestWithParam<const char *> {
    /// Makes the calls of the table one after the other. Keeps those that change rows, after a first step with the
    /// first rows. The disk never waits for a sync: what a killed process wrote stays in the system's cache. The texts
    /// are so long that they take overflow pages.
    StorageCrash() : rows(ROWS, std::string(3000, 'x'))
    {
        rows.begin(std::string("PRAGMA journal_mode = ") + GetParam());
        steps = {{call("init"), false, stored_rows(), 0}};
        world::end();
        first = {{std::filesystem::canonical(database_file), content_of(database_file)}};
        recorded_changes = &made;
        std::vector<call> calls = first_calls();
        calls.insert(calls.begin(), steps[0].made); // opens it as a service does
        for (const call &made_now : calls) {
            const std::string lines = attempt(made_now).lines;
            sqlite3_wal_autocheckpoint(_g_sqlite_handle, 8); // pages: checkpoints fall among the cuts
            const size_t changes = made.size();
            if (const rows_of_tables after = stored_rows(); after != steps.back().rows)
                steps.push_back({made_now, has_steps(lines), after, changes});
        }
        EXPECT_GT(steps.size(), 40u);
        world::end();
        recorded_changes = nullptr;
    }
    /// Whether these rows are possible after so many acknowledged calls, while the next one is under way.
    bool explain(size_t acknowledged, const rows_of_tables &found) const
    {
        const rows_of_tables &kept = steps[acknowledged].rows;
        const step &next = steps[std::min(acknowledged + 1, steps.size() - 1)];
        return found == kept || found == next.rows || (next.in_steps && lies_between(found, {kept, next.rows}));
    }
    /// Interrupts the calls so many times and opens what is left; `interrupt` returns how many calls were acknowledged.
    void survive(unsigned int wanted, bool may_undo, const std::function<size_t(std::mt19937 &)> &interrupt) const
    {
        const unsigned int seed = setting("ZEL_SEED", std::random_device()());
        unsigned int done = 0, journals = 0, undone = 0;
        for (; done < wanted && !HasFailure(); ++done) {
            SCOPED_TRACE("ZEL_CRASHES=1 ZEL_CUTS=1 ZEL_SEED=" + std::to_string(seed + done));
            std::mt19937 random(seed + done);
            const size_t acknowledged = interrupt(random);
            journals += std::filesystem::exists(database_file + "-journal");
            const rows_of_tables found = rows_of_opened_store();
            const bool is_undone = !explain(acknowledged, found);
            EXPECT_TRUE(!is_undone || (may_undo && acknowledged && explain(acknowledged - 1, found)))
                << acknowledged << " acknowledged" << changes(steps[acknowledged].rows, found);
            undone += is_undone;
        }
        std::cout << done << " times, " << journals << " with a journal left, " << undone
                  << " undid the last statement\n";
    }

    const world rows;
    files first;
    std::vector<disk_change> made;
    std::vector<step> steps;
};
INSTANTIATE_TEST_SUITE_P(Journal, StorageCrash, testing::Values("delete", "wal"),
                         [](const auto &it) { return std::string(it.param); });

} // namespace

TEST_P(StorageCrash, acknowledged_writes_survive_a_kill)
{
    survive(setting("ZEL_CRASHES", 20), false, [this](std::mt19937 &random) {
        put(first);
        const std::string acknowledged = database_folder + "/acknowledged"; // a letter for each
        const size_t last = 1 + random() % (steps.size() - 1);
        const auto delay = static_cast<useconds_t>(random() % 1000); // to somewhere within the next write or two
        const auto write_until_killed = [&] {
            for (size_t i = 1; i < steps.size(); ++i) { // the first one must open the store
                if (i == last)
                    std::thread([delay] { usleep(delay), kill(getpid(), SIGKILL); }).detach();
                EXPECT_EQ(steps[i].made().code, ZEL_ERR_NONE);
                std::ofstream(acknowledged, std::ios::app) << '.';
            }
            pause();
        };
        EXPECT_EXIT(write_until_killed(), testing::KilledBySignal(SIGKILL), "");
        return content_of(acknowledged).size();
    });
}

/// SQLite deletes its default journal to commit a statement and does not sync that: the last one can be undone.
TEST_P(StorageCrash, acknowledged_writes_survive_a_power_cut)
{
    survive(setting("ZEL_CUTS", 150), GetParam() == std::string("delete"), [&](std::mt19937 &random) {
        const size_t instant = random() % (made.size() + 1);
        put(after_power_cut(first, std::span(made).first(instant), random));
        return static_cast<size_t>(
            std::count_if(steps.begin() + 1, steps.end(), [&](const step &it) { return it.changes <= instant; }));
    });
}
