// Each call of the disk and each allocation made to fail, one after the other, under every operation of the store.
#include "faulty_disk.h"
#include "operations.h"

#include <climits>
#include <iostream>
#include <memory>
#include <sstream>

using namespace zel_test;

namespace
{

/// Every operation once without a fault, then with the first, second, third ... opportunity to fail taken.
class faults : public testing::Test
{
  protected:
    faults()
    {
        use_faulty_disk();
        calls::sleep.answer(0, 0, INT_MAX);
        world_ = std::make_unique<world>();
        world_->begin();
        before_ = stored_rows();
        world::end();
    }
    ~faults() override
    {
        std::cout << injected_ << " faults in " << operations().size() << " operations\n";
        EXPECT_GT(injected_, 0);
    }

    /// @param fault makes a guard for the n-th opportunity, which tells by happened() whether there was one
    template <typename Fault> void each_operation_meets(Fault fault)
    {
        for (const operation &tried : operations()) {
            SCOPED_TRACE(tried.name);
            world_->begin(warm_);
            answers out;
            EXPECT_EQ(tried.call(out), ZEL_ERR_NONE);
            given_ = out.take();
            after_ = stored_rows();
            EXPECT_EQ(after_ != before_, tried.writes);
            world::end();
            bool happened = true;
            for (int nth = first_; happened && !HasFailure(); nth += stride_) {
                SCOPED_TRACE("fault " + std::to_string(nth));
                // A store that need not be cold can be asked again and again.
                const bool afresh = nth == first_ || tried.writes || !warm_;
                if (afresh)
                    world_->begin(warm_);
                take_trace();
                int code = 0;
                {
                    const auto guard = fault(nth);
                    code = tried.call(out);
                    happened = guard->happened();
                }
                injected_ += happened;
                check(tried, code, out.take(), happened);
                EXPECT_EQ(sqlite3_next_stmt(_g_sqlite_handle, nullptr), nullptr) << "a statement was not finalized";
                if (!happened || HasFailure() || tried.writes || !warm_)
                    world::end();
            }
        }
    }

    void check(const operation &tried, int code, const std::string &handed_out, bool happened)
    {
        const bool unseen = is_among(handed_out, tried.unseen);
        if (code != ZEL_ERR_NONE) {
            EXPECT_TRUE(happened && tried.may_fail_with(code)) << code;
            EXPECT_TRUE(is_among(handed_out, tried.left_behind)) << handed_out;
        } else if (!unseen && !(rows_may_be_missing_ && happened && lacks_rows(handed_out))) {
            EXPECT_EQ(handed_out, given_);
        }
        if (code == ZEL_ERR_MEMORY) {
            const trace lines = take_trace();
            EXPECT_TRUE(std::any_of(tried.memory_lines.begin(), tried.memory_lines.end(), [&](const char *line) {
                return count_lines(lines, "CRITICAL", line) > 0;
            })) << lines.text;
        }
        const bool untouched_file = world_->is_untouched();
        if (!tried.writes) {
            EXPECT_TRUE(untouched_file);
            return;
        }
        const std::string now = untouched_file ? before_ : stored_rows();
        const bool halfway = tried.halfway && (code != ZEL_ERR_NONE || unseen);
        if (halfway || changes_anyway_) {
            EXPECT_TRUE(lies_between(now, before_, after_ + (halfway ? tried.halfway : ""))) << now;
        } else {
            EXPECT_EQ(now, code == ZEL_ERR_NONE ? after_ : before_);
        }
    }

    /// Whether this is what is usually handed out, with nothing in the place of some rows.
    bool lacks_rows(const std::string &handed_out) const
    {
        std::istringstream in(handed_out);
        bool known = true;
        for (std::string line; std::getline(in, line);)
            known = known && (line.starts_with("count ") || line == "person NULL" ||
                              given_.find(line + "\n") != std::string::npos);
        return known && handed_out != given_;
    }

    int first_ = 1;
    int stride_ = 1;                   ///< opportunities from one that is taken to the next
    bool warm_ = false;                ///< the store knows its schema before the fault
    bool changes_anyway_ = false;      ///< a change can be made though it is reported as failed
    bool rows_may_be_missing_ = false; ///< rows that find no memory are left out
    std::unique_ptr<world> world_;
    std::string before_, after_, given_;
    int injected_ = 0;
};

auto failing_disk(unsigned which, bool lasting, int code = 0)
{
    return [=](int nth) { return std::make_unique<disk_fault>(which, nth, lasting, code); };
}

using StorageFaults = faults;
using StorageAllocations = faults;
struct StorageAllocationsInTurn : faults, testing::WithParamInterface<int> {
};

} // namespace

TEST_F(StorageFaults, one_call_of_the_disk_fails)
{
    each_operation_meets(failing_disk(DISK_EVERY, false));
}

TEST_F(StorageFaults, the_disk_fails_from_one_call_on)
{
    each_operation_meets(failing_disk(DISK_EVERY, true));
}

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

TEST_F(StorageFaults, the_disk_is_full)
{
    each_operation_meets(failing_disk(DISK_WRITE, true, SQLITE_FULL));
}

TEST_F(StorageFaults, another_process_holds_the_lock)
{
    each_operation_meets(failing_disk(DISK_LOCK, true, SQLITE_BUSY));
}

// The journal is gone and with it the way back, but SQLite has to report that this may not last.
TEST_F(StorageFaults, a_deletion_that_is_carried_out_fails)
{
    changes_anyway_ = true;
    each_operation_meets(failing_disk(DISK_DELETED, false));
}

TEST_F(StorageAllocations, of_the_library)
{
    rows_may_be_missing_ = true;
    each_operation_meets([](int nth) { return std::make_unique<allocation_failure>(nth); });
}

// In three parts, which run side by side.
TEST_P(StorageAllocationsInTurn, one_of_sqlite)
{
    warm_ = true;
    first_ = GetParam();
    stride_ = 3;
    each_operation_meets(failing_disk(SQLITE_MEMORY, false));
}
INSTANTIATE_TEST_SUITE_P(Part, StorageAllocationsInTurn, testing::Values(1, 2, 3));

TEST_F(StorageAllocations, all_of_sqlite_from_one_on)
{
    warm_ = true;
    stride_ = 4; // mostly the same as one by one
    each_operation_meets(failing_disk(SQLITE_MEMORY, true));
}
