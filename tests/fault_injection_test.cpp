// Each call of the disk and each allocation made to fail, one after the other, under every operation of the store.
// The short form takes every few allocations; with ZEL_ALL_FAULTS set, all of them.
#include "faulty_disk.h"
#include "operations.h"

#include <climits>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>

using namespace zel_test;

namespace
{

struct kind {
    const char *name;
    unsigned calls; ///< of the disk or of SQLite's memory; 0 for the library's own allocations
    bool lasting = false;
    int code = 0;
    int stride = 1;              ///< in the short form, opportunities from one that is taken to the next
    bool warm = false;           ///< the store knows its schema before the fault
    bool changes_anyway = false; ///< a change can be made though it is reported as failed
};

const kind kinds[] = {
    {"one_call_of_the_disk", DISK_EVERY},
    {"the_disk_from_one_call_on", DISK_EVERY, true, 0, 3},
    {"a_full_disk", DISK_WRITE, true, SQLITE_FULL},
    {"a_lock_of_another_process", DISK_LOCK, true, SQLITE_BUSY},
    // The journal is gone and with it the way back, but SQLite has to report that this may not last.
    {"a_deletion_that_is_carried_out", DISK_DELETED, false, 0, 1, false, true},
    {"one_allocation_of_the_library", 0},
    {"one_allocation_of_sqlite", SQLITE_MEMORY, false, 0, 7, true},
    {"all_allocations_of_sqlite_from_one_on", SQLITE_MEMORY, true, 0, 23, true},
};

/// Every operation once without a fault, then with the first, second, third ... opportunity to fail taken.
class StorageFaults : public testing::TestWithParam<kind>
{
  protected:
    StorageFaults()
    {
        use_faulty_disk();
        calls::sleep.answer(0, 0, INT_MAX);
        world_ = std::make_unique<world>();
        world_->begin();
        before_ = stored_rows();
        world::end();
    }

    void meets_each_fault(const operation &tried, int first, int stride)
    {
        const bool warm = GetParam().warm, afresh = tried.writes || !warm;
        world_->begin(warm);
        answers out;
        EXPECT_EQ(tried.call(out), ZEL_ERR_NONE);
        given_ = out.take();
        after_ = stored_rows();
        EXPECT_EQ(after_ != before_, tried.writes);
        world::end();
        bool happened = true;
        for (int nth = first; happened && !HasFailure(); nth += stride) {
            SCOPED_TRACE("fault " + std::to_string(nth));
            if (afresh || nth == first)
                world_->begin(warm);
            take_trace();
            int code = 0;
            if (GetParam().calls == 0) {
                const allocation_failure fault(nth);
                code = tried.call(out);
                happened = allocations.count >= nth;
            } else {
                const disk_fault fault(GetParam().calls, nth, GetParam().lasting, GetParam().code);
                code = tried.call(out);
                happened = fault.happened();
            }
            injected_ += happened;
            check(tried, code, out.take(), happened);
            EXPECT_EQ(sqlite3_next_stmt(_g_sqlite_handle, nullptr), nullptr) << "a statement was not finalized";
            if (afresh || !happened || HasFailure())
                world::end();
        }
    }

    void check(const operation &tried, int code, const std::string &handed_out, bool happened)
    {
        const bool unseen = is_among(handed_out, tried.unseen);
        if (code != ZEL_ERR_NONE) {
            EXPECT_TRUE(happened && tried.may_fail_with(code)) << code;
            EXPECT_TRUE(is_among(handed_out, tried.left_behind)) << handed_out;
        } else if (!unseen && !(GetParam().calls == 0 && happened && lacks_rows(handed_out))) {
            EXPECT_EQ(handed_out, given_);
        }
        if (code == ZEL_ERR_MEMORY) {
            const trace lines = take_trace();
            EXPECT_TRUE(std::any_of(tried.memory_lines.begin(), tried.memory_lines.end(), [&](const char *line) {
                return count_lines(lines, "CRITICAL", line) > 0;
            })) << lines.text;
        }
        const bool untouched_file = world_->is_untouched();
        EXPECT_TRUE(untouched_file || tried.writes);
        const std::string now = untouched_file ? before_ : stored_rows();
        const bool halfway = tried.halfway && (code != ZEL_ERR_NONE || unseen);
        if (halfway || GetParam().changes_anyway)
            EXPECT_TRUE(lies_between(now, before_, after_ + (halfway ? tried.halfway : ""))) << now;
        else
            EXPECT_EQ(now, code == ZEL_ERR_NONE ? after_ : before_);
    }

    /// Whether this is what is usually handed out, with nothing in the place of rows that found no memory.
    bool lacks_rows(const std::string &handed_out) const
    {
        std::istringstream in(handed_out);
        bool known = true;
        for (std::string line; std::getline(in, line);)
            known = known && (line.starts_with("count ") || line == "person NULL" || line == "none" ||
                              given_.find(line + "\n") != std::string::npos);
        return known && handed_out != given_;
    }

    std::unique_ptr<world> world_;
    std::string before_, after_, given_;
    int injected_ = 0;
};

} // namespace

TEST_P(StorageFaults, each_operation_meets)
{
    const int stride = std::getenv("ZEL_ALL_FAULTS") ? 1 : GetParam().stride;
    int first = 0;
    for (const operation &tried : operations()) {
        SCOPED_TRACE(tried.name);
        meets_each_fault(tried, 1 + first++ % stride, stride);
    }
    std::cout << injected_ << " faults in " << operations().size() << " operations\n";
    EXPECT_GT(injected_, 0);
}
INSTANTIATE_TEST_SUITE_P(Each, StorageFaults, testing::ValuesIn(kinds),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(StorageCreation, what_a_fault_kept_from_being_created_is_created_next_time)
{
    use_faulty_disk();
    std::string whole;
    bool happened = true;
    for (int nth = 0; happened; ++nth) {
        SCOPED_TRACE("fault " + std::to_string(nth));
        std::filesystem::remove_all(database_folder);
        std::filesystem::create_directories(database_folder);
        {
            const disk_fault fault(DISK_EVERY, nth, false, 0);
            const int code = _common_storage_init();
            happened = fault.happened();
            EXPECT_TRUE(code == ZEL_ERR_NONE || (happened && code == ZEL_ERR_STORAGE_INIT_FAILURE)) << code;
            EXPECT_EQ(_g_sqlite_handle != nullptr, code == ZEL_ERR_NONE);
        }
        world::end();
        EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
        if (nth == 0)
            whole = stored_rows();
        EXPECT_EQ(stored_rows(), whole);
        world::end();
    }
}
