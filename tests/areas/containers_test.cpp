// The hash table and the queue. Values and items are numbers here.
#include "interpose.h"
#include "trace.h"
#include "zel_common.h"
#include "zel_common_queue.h"

#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <utility>

using namespace zel_test;

namespace
{

zel_hash_table *table = nullptr;
zel_queue_s *queue = nullptr;
gboolean predicate_result = 0;

constexpr auto item = [](intptr_t number) { return reinterpret_cast<void *>(number); };

std::string shown(const void *item)
{
    return std::to_string(reinterpret_cast<intptr_t>(item));
}

/// A callback is logged with its item, and with whether a lock is held.
void log_callback(const std::string &what, const void *item)
{
    const bool is_under_lock = is_locked(table->mutex) || is_locked(queue->available_lock);
    add_line(what + " " + shown(item) + (is_under_lock ? ", locked" : ""));
}

constexpr auto use = [](void *value) { log_callback("use", value); };
constexpr auto release = [](void *item) { log_callback("release", item); };

gboolean predicate(void *key, void *value, void *data)
{
    log_callback(data == key ? "test with its key" : "test", value);
    return data == key || data == table ? predicate_result : TRUE;
}

int last_digits_differ(void *item, void *wanted)
{
    log_callback("compare", item);
    return reinterpret_cast<intptr_t>(item) % 10 != reinterpret_cast<intptr_t>(wanted) % 10;
}

class Containers : public testing::Test
{
  protected:
    Containers()
    {
        _common_init_hash_table(&table, g_free, release);
        fill();
        EXPECT_EQ(_common_queue_init(&queue), ZEL_ERR_NONE);
        take_trace();
    }
    ~Containers() override
    {
        _common_deinit_hash_table(table);
        _common_queue_deinit(queue, nullptr);
        table = nullptr; // the leak check follows what it names
        queue = nullptr;
    }

    static void fill()
    {
        for (const char *key : {"a", "b", "c"})
            _common_write_to_hash_table(table, g_strdup(key), item(1));
    }
    /// Reads an entry in both ways and removes it: the value, and the number of entries that are left.
    static std::string take(const char *key)
    {
        void *const value = _common_read_from_hash_table(table, key);
        EXPECT_EQ(_common_read_from_hash_table_addon(table, key, use), value);
        _common_remove_from_hash_table(table, key);
        const int left = _common_get_hash_table_size(table);
        EXPECT_EQ(_common_get_hash_table_count(table), static_cast<unsigned int>(left));
        return shown(value) + ", " + std::to_string(left) + " left";
    }

    /// Pushes and pops: the popped items, and those that stay in the list, which programs can read: the newest first,
    /// linked in both directions.
    static std::string pass(std::initializer_list<intptr_t> pushed, int pops)
    {
        for (const intptr_t number : pushed)
            _common_queue_push(queue, item(number));
        std::string all;
        for (; pops > 0; --pops)
            all += shown(_common_queue_pop(queue)) + " ";
        all += "|";
        int length = 0;
        const GList *newer = nullptr;
        for (const GList *node = queue->item_list; node; newer = std::exchange(node, node->next)) {
            EXPECT_EQ(node->prev, newer);
            all += " " + shown(node->data);
            ++length;
        }
        EXPECT_EQ(_common_queue_length(queue), length);
        EXPECT_FALSE(_common_queue_get_wait_status(queue));
        return all;
    }
};

using HashTable = Containers;
using Queue = Containers;

} // namespace

TEST_F(HashTable, an_entry_is_found_by_the_text_of_its_key)
{
    EXPECT_EQ(take("z"), "0, 3 left");
    EXPECT_EQ(take(nullptr), "0, 3 left");
    EXPECT_EQ(take("a"), "1, 2 left");
    _common_deinit_hash_table(table);
    _common_init_hash_table(&table, nullptr, nullptr); // keys are addresses
    expect_lines(R"(
use 1, locked
release 1, locked
release 1, locked
release 1, locked
)");
    char text[] = "a", other[] = "a";
    _common_write_to_hash_table(table, text, item(3));
    take_trace();
    EXPECT_EQ(take(other), "0, 1 left");
    EXPECT_EQ(take(text), "3, 0 left");
    expect_lines("use 3, locked\n");
}

TEST_F(HashTable, a_second_write_keeps_the_key_and_releases_the_value)
{
    GList *const keys = _common_get_keys_from_hash_table(table);
    char *const key = g_strdup("b");
    _common_write_to_hash_table(table, key, item(2));
    expect_lines(printed("_common_write_to_hash_table: Info: %p %p 0x2\nrelease 1, locked\n",
                         static_cast<void *>(table), static_cast<void *>(key)));
    std::set<std::string> listed;
    for (const GList *node = keys; node; node = node->next)
        listed.insert(static_cast<const char *>(node->data));
    EXPECT_EQ(listed, (std::set<std::string>{"a", "b", "c"}));
    g_list_free(keys); // not the keys
    EXPECT_EQ(take("b"), "2, 2 left");
}

TEST_F(HashTable, predicates_are_called_under_the_lock)
{
    char a[] = "a", z[] = "z";
    for (const gboolean result : {0, 2, -1, 256, 1}) {
        fill();
        predicate_result = result;
        take_trace();
        // This walk takes no lock and does not look at the results.
        EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, table), 3);
        expect_lines("test 1\ntest 1\ntest 1\n");

        for (char *key : {z, static_cast<char *>(nullptr), a})
            _common_find_and_remove_in_hash_table(table, predicate, key);
        const std::string released = "release 1, locked\n";
        expect_lines("test with its key 1, locked\n" + (result == 1 ? released : "")); // to the others 0 alone means no

        _common_remove_from_hash_table(table, "a");
        take_trace();
        const std::string tested = "test 1, locked\n";
        EXPECT_EQ(_common_find_in_hash_table(table, predicate, table), item(result != 0));
        expect_lines(result ? tested : tested + tested);
        _common_foreach_remove_in_hash_table(table, predicate, table);
        expect_lines(result ? tested + released + tested + released : tested + tested);
    }
}

TEST_F(Queue, items_leave_in_the_order_of_their_arrival)
{
    EXPECT_EQ(pass({1, 2, 0}, 3), "1 2 0 |");
    EXPECT_EQ(pass({4, 5, 6}, 1), "4 | 6 5");
    EXPECT_EQ(calls::cond_signal.calls, 2) << "for the first item only";
    EXPECT_EQ(pass({8}, 1), "5 | 8 6") << "in the node of a popped item";
}

TEST_F(Queue, searches_take_the_newest_item)
{
    EXPECT_EQ(pass({17, 1, 27, 3, 17}, 0), "| 17 3 27 1 17");
    for (const intptr_t removed : {7, 17}) // by its address only
        _common_queue_remove(queue, item(removed));
    EXPECT_EQ(pass({}, 0), "| 3 27 1 17");

    const void *const node = queue->item_list->next;
    EXPECT_EQ(_common_queue_find(queue, last_digits_differ, item(7)), item(27));
    EXPECT_TRUE(_common_queue_find_and_remove(queue, last_digits_differ, release, item(7)));
    expect_lines(printed(R"(
compare 3, locked
compare 27, locked
compare 3, locked
compare 27, locked
_common_queue_find_and_remove: Debug: elem[%p]
release 27, locked
)",
                         node));
    EXPECT_EQ(_common_queue_find(queue, last_digits_differ, item(9)), nullptr);
    EXPECT_FALSE(_common_queue_find_and_remove(queue, last_digits_differ, release, item(9)));
    EXPECT_EQ(pass({}, 1), "17 | 3 1");
}

TEST_F(Queue, items_are_released_from_the_newest_on)
{
    pass({1, 3}, 0);
    for (int i = 0; i < 2; ++i)
        _common_queue_clear(queue, release);
    pass({4, 5}, 0);
    _common_queue_deinit(queue, release);
    // Without a release function the nodes are released and the items are not.
    _common_queue_init(&queue);
    pass({6, 7}, 0);
    _common_queue_deinit(queue, nullptr);
    _common_queue_init(&queue);
    expect_lines(R"(
release 3, locked
release 1, locked
_common_queue_clear: Critical: req_queue->item_list is NULL (End)
release 5, locked
release 4, locked
_common_queue_clear: Critical: Invalid params
)");
}

TEST_F(Queue, every_operation_takes_the_lock)
{
    pass({1, 2}, 1);
    _common_queue_find(queue, last_digits_differ, item(3));
    _common_queue_remove(queue, item(3));
    _common_queue_find_and_remove(queue, last_digits_differ, release, item(3));
    _common_queue_clear(queue, release);
    // Begin and End of each of the eight.
    const std::string lines = take_trace();
    EXPECT_EQ(count(lines, "__enter_critical_section"), 2 * 8);
    EXPECT_EQ(count(lines, "__leave_critical_section"), 2 * 8);
}

TEST_F(Queue, null_arguments_are_rejected_as_by_the_hash_table)
{
    constexpr char MESSAGE[] = "Invalid params";
    expect_null_is_rejected(1, MESSAGE, ZEL_ERR_INVALID_ARG, _common_queue_init);
    expect_null_is_rejected(1, MESSAGE, 0, _common_init_hash_table, _common_deinit_hash_table,
                            _common_read_from_hash_table, _common_remove_from_hash_table, _common_get_hash_table_size,
                            _common_queue_push, _common_queue_pop, _common_queue_deinit, _common_queue_length,
                            _common_get_hash_table_count, _common_get_keys_from_hash_table,
                            _common_queue_get_wait_status);
    expect_null_is_rejected(2, MESSAGE, 0, _common_find_in_hash_table, _common_queue_find, _common_queue_remove,
                            _common_queue_clear, _common_find_and_remove_in_hash_table,
                            _common_foreach_remove_in_hash_table);
    expect_null_is_rejected(2, MESSAGE, -1, _common_foreach_read_from_hash_table);
    expect_null_is_rejected(3, MESSAGE, 0, _common_queue_find_and_remove);
    expect_null_is_rejected(
        2, MESSAGE, 0, +[](zel_hash_table *table, _common_hash_table_addon_cb callback) {
            return _common_read_from_hash_table_addon(table, "a", callback); // for which NULL is never present
        });
    _common_write_to_hash_table(nullptr, item(1), item(2));
    _common_write_to_hash_table(table, nullptr, item(2));
    _common_write_to_hash_table(table, item(1), nullptr);
    EXPECT_EQ(count(take_trace(), MESSAGE), 3);
}

TEST_F(Queue, a_failed_allocation_is_reported_as_by_the_hash_table)
{
    zel_queue_s *new_queue = queue;
    zel_hash_table *new_table = table;
    const fault failure({LIBRARY_MEMORY, true}, 1);
    EXPECT_EQ(_common_queue_init(&new_queue), ZEL_ERR_MEMORY);
    EXPECT_EQ(new_queue, queue);
    _common_init_hash_table(&new_table, nullptr, nullptr);
    EXPECT_EQ(new_table, nullptr);
    expect_lines(R"(
_common_queue_init: Critical: Failed to allocate memory
_common_init_hash_table: Critical: Memory allocation failed
)");
}

TEST_F(Queue, a_pop_sleeps_until_it_is_woken)
{
    pass({1, 2}, 0);
    _common_queue_clear(queue, release); // nothing of these may come out
    for (void *pushed : {item(0), item(5)}) {
        std::string popped;
        std::thread consumer([&] {
            popped = pass({}, 1);
            popped += lines_of(take_trace());
        });
        wait_for_sleeper(queue->available_lock);
        EXPECT_TRUE(_common_queue_get_wait_status(queue));
        if (pushed)
            _common_queue_push(queue, pushed);
        else // woken while the queue is empty
            pthread_cond_broadcast(&queue->available_signal);
        consumer.join();
        EXPECT_EQ(popped, shown(pushed) + " |");
    }
}

TEST_F(Queue, threads_lose_nothing_in_a_queue_and_a_table)
{
    std::jthread producers[4];
    for (const intptr_t producer : {0, 1, 2, 3})
        producers[producer] = std::jthread([producer] {
            for (intptr_t n = producer * 1000 + 1; n % 1000 <= 200; ++n) {
                const std::string key = std::to_string(n);
                _common_write_to_hash_table(table, g_strdup(key.c_str()), item(n));
                if (n % 2)
                    _common_remove_from_hash_table(table, key.c_str());
                _common_queue_push(queue, item(n));
            }
        });
    intptr_t last[4] = {};
    for (int left = 4 * 200; left > 0;)
        if (const auto number = reinterpret_cast<intptr_t>(_common_queue_pop(queue))) { // 0: woken too early
            --left;
            EXPECT_EQ(number % 1000, ++last[number / 1000]) << "each producer's items stay in their order";
            _common_read_from_hash_table(table, std::to_string(number).c_str());
        }
    // Every item has come, and with it all that its producer wrote before.
    EXPECT_EQ(_common_queue_length(queue), 0);
    EXPECT_EQ(_common_get_hash_table_count(table), 3 + 4 * 100u);
}
