// The hash table and the queue. Values and items are numbers here.
#include "interpose.h"
#include "platform.h"
#include "zel_common.h"
#include "zel_common_queue.h"

#include <cstdint>
#include <future>
#include <sstream>
#include <string>
#include <utility>

using namespace zel_test;

namespace
{

zel_hash_table *table = nullptr;
zel_queue_s *queue = nullptr;
gboolean answer = 0;

constexpr auto item = [](intptr_t number) { return reinterpret_cast<void *>(number); };

// Callbacks note what they are given, and whether they come under the lock.
void note_call(const std::string &what, void *item)
{
    const bool locked = is_locked(table->mutex) || is_locked(queue->available_lock);
    note(what + " " + std::to_string(reinterpret_cast<intptr_t>(item)) + (locked ? ", locked" : ""));
}

constexpr auto look = [](void *value) { note_call("look at", value); };
constexpr auto release = [](void *item) { note_call("release", item); };

gboolean predicate(void *key, void *value, void *data)
{
    note_call(data == key ? "with its key, ask about" : "ask about", value);
    return data == key || data == table ? answer : TRUE;
}

int last_digits_differ(void *item, void *wanted)
{
    EXPECT_TRUE(is_locked(queue->available_lock));
    return reinterpret_cast<intptr_t>(item) % 10 != reinterpret_cast<intptr_t>(wanted) % 10;
}

class Containers : public testing::Test
{
  protected:
    Containers()
    {
        _common_init_hash_table(&table, g_free, release);
        for (const char *key : {"a", "b", "c"})
            _common_write_to_hash_table(table, g_strdup(key), item(1));
        EXPECT_EQ(_common_queue_init(&queue), ZEL_ERR_NONE);
    }
    ~Containers() override
    {
        _common_deinit_hash_table(table);
        _common_queue_deinit(queue, nullptr);
        table = nullptr; // the leak check follows what it names
        queue = nullptr;
        platform.on_debug_line = nullptr;
    }

    void push(std::initializer_list<intptr_t> numbers)
    {
        for (const intptr_t number : numbers)
            _common_queue_push(queue, item(number));
    }
    void expect_pops(std::initializer_list<intptr_t> numbers)
    {
        for (const intptr_t number : numbers)
            EXPECT_EQ(_common_queue_pop(queue), item(number));
    }

    // The list, which programs can read: the newest item first, and linked in both directions.
    void expect_items(std::initializer_list<intptr_t> numbers)
    {
        const GList *node = queue->item_list, *newer = nullptr;
        for (const intptr_t number : numbers) {
            ASSERT_NE(node, nullptr);
            EXPECT_EQ(std::pair(node->data, node->prev), std::pair(item(number), const_cast<GList *>(newer)));
            newer = std::exchange(node, node->next);
        }
        EXPECT_EQ(node, nullptr);
    }
};

using HashTable = Containers;
using Queue = Containers;

// The lines so far name these addresses.
void expect_addresses(const std::ostream &addresses)
{
    const std::string lines = take_trace();
    EXPECT_EQ(count(lines, static_cast<const std::ostringstream &>(addresses).str()), 1) << lines;
    note(lines);
}

} // namespace

TEST_F(HashTable, keys_are_texts_and_stay_on_rewrite)
{
    for (const char *unknown : {"z", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(_common_read_from_hash_table(table, unknown), nullptr);
        _common_remove_from_hash_table(table, unknown);
        EXPECT_EQ(_common_read_from_hash_table_addon(table, unknown, look), nullptr);
    }
    EXPECT_EQ(_common_get_hash_table_size(table), 3);
    _common_remove_from_hash_table(table, "a");
    EXPECT_EQ(_common_get_hash_table_count(table), 2u);

    GList *keys = _common_get_keys_from_hash_table(table);
    EXPECT_EQ(g_list_length(keys), 2u);
    for (const GList *node = keys; node; node = node->next)
        note(static_cast<const char *>(node->data)); // in the table's order
    char *key = g_strdup("b");
    _common_write_to_hash_table(table, key, item(2));
    expect_addresses(std::ostringstream() << table << " " << static_cast<void *>(key) << " 0x2");
    EXPECT_NE(g_list_find_custom(keys, "b", reinterpret_cast<GCompareFunc>(g_strcmp0)), nullptr);
    g_list_free(keys);
    EXPECT_EQ(_common_read_from_hash_table(table, "b"), item(2));
    EXPECT_EQ(_common_read_from_hash_table_addon(table, "b", look), item(2));
    _common_remove_from_hash_table(table, "b");
    _common_deinit_hash_table(table);

    _common_init_hash_table(&table, nullptr, nullptr); // keys are addresses
    char text[] = "a", other[] = "a";
    _common_write_to_hash_table(table, text, text);
    EXPECT_EQ(_common_read_from_hash_table(table, text), text);
    EXPECT_EQ(_common_read_from_hash_table(table, other), nullptr);
    expect_lines(0x201bb5c9);
}

TEST_F(HashTable, predicates_are_asked_under_the_lock)
{
    char a[] = "a", z[] = "z";
    for (const gboolean value : {0, 2, -1, 256, 1}) {
        answer = value;
        // The walk that takes no lock, and that no answer ends; the removal to which 1 alone means yes.
        EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, table), 3);
        for (char *key : {z, static_cast<char *>(nullptr), a})
            _common_find_and_remove_in_hash_table(table, predicate, key);
        EXPECT_EQ(_common_get_hash_table_size(table), value == 1 ? 2 : 3);
    }
    for (const gboolean yes : {0, 2}) { // any but 0 means yes
        answer = yes;
        EXPECT_EQ(_common_find_in_hash_table(table, predicate, table), yes ? item(1) : nullptr);
        _common_foreach_remove_in_hash_table(table, predicate, table);
        EXPECT_EQ(_common_get_hash_table_size(table), 2 - yes);
    }
    expect_lines(0x12d5f431);
}

TEST_F(Queue, items_leave_in_the_order_they_came)
{
    push({1, 2, 0});
    EXPECT_EQ(_common_queue_length(queue), 3);
    expect_items({0, 2, 1});
    expect_pops({1, 2, 0});
    expect_items({});
    push({4, 5, 6});
    EXPECT_EQ(calls::cond_signal.calls, 2) << "for the first item only";
    expect_pops({4});
    push({7}); // where a popped item lay
    expect_items({7, 6, 5});
    expect_lines(0xdebc7049);
}

TEST_F(Queue, searches_take_the_newest_and_releases_start_with_it)
{
    push({17, 1, 27, 17, 3});
    EXPECT_EQ(_common_queue_find(queue, last_digits_differ, item(7)), item(17));
    EXPECT_EQ(_common_queue_find(queue, last_digits_differ, item(9)), nullptr);
    _common_queue_remove(queue, item(7)); // by its address only
    _common_queue_remove(queue, item(17));
    expect_items({3, 27, 1, 17});
    const GList *const element = queue->item_list->next;
    platform.on_debug_line = [] { note(std::to_string(g_list_length(queue->item_list)) + " left"); };
    EXPECT_TRUE(_common_queue_find_and_remove(queue, last_digits_differ, release, item(7)));
    expect_addresses(std::ostringstream() << "elem[" << element << "]");
    EXPECT_FALSE(_common_queue_find_and_remove(queue, last_digits_differ, release, item(9)));
    expect_items({3, 1, 17});
    expect_pops({17});

    _common_queue_clear(queue, release);
    EXPECT_EQ(_common_queue_length(queue), 0);
    _common_queue_clear(queue, release);
    push({1, 3});
    _common_queue_deinit(queue, release);
    _common_queue_init(&queue);
    push({8, 9}); // without a release, the nodes go and the items stay
    _common_queue_deinit(queue, nullptr);
    _common_queue_init(&queue);
    expect_lines(0xe908ed03);
}

TEST_F(Queue, null_arguments_are_rejected_as_by_the_hash_table)
{
    leave_out_each(1, _common_queue_init, _common_init_hash_table, _common_deinit_hash_table,
                   _common_read_from_hash_table, _common_read_from_hash_table_addon, _common_remove_from_hash_table,
                   _common_get_hash_table_size, _common_queue_push, _common_queue_pop, _common_queue_deinit,
                   _common_queue_length, _common_get_hash_table_count, _common_get_keys_from_hash_table,
                   _common_queue_get_wait_status);
    leave_out_each(2, _common_find_in_hash_table, _common_queue_find, _common_queue_remove, _common_queue_clear,
                   _common_find_and_remove_in_hash_table, _common_foreach_remove_in_hash_table,
                   _common_foreach_read_from_hash_table);
    leave_out_each(3, _common_queue_find_and_remove, _common_write_to_hash_table);
    auto *other = reinterpret_cast<zel_hash_table *>(nothing);
    EXPECT_EQ(_common_read_from_hash_table_addon(other, "a", nullptr), nullptr);

    zel_queue_s *unmade = queue;
    const fault failure({LIBRARY_MEMORY}, 1);
    EXPECT_EQ(_common_queue_init(&unmade), ZEL_ERR_MEMORY);
    EXPECT_EQ(unmade, queue);
    const fault another({LIBRARY_MEMORY}, 1);
    _common_init_hash_table(&other, nullptr, nullptr);
    EXPECT_EQ(other, nullptr);
    expect_lines(0x4399c14c);
}

TEST_F(Queue, a_pop_sleeps_until_it_is_woken)
{
    push({1, 2});
    _common_queue_clear(queue, release);
    EXPECT_FALSE(_common_queue_get_wait_status(queue));
    for (void *pushed : {item(0), item(5)}) {
        auto popped = std::async(std::launch::async, [pushed] {
            EXPECT_EQ(_common_queue_pop(queue), pushed);
            return take_trace();
        });
        wait_for_sleeper(queue->available_lock);
        EXPECT_TRUE(_common_queue_get_wait_status(queue));
        if (pushed)
            _common_queue_push(queue, pushed);
        else // woken over an empty queue
            pthread_cond_broadcast(&queue->available_signal);
        note(popped.get());
        EXPECT_FALSE(_common_queue_get_wait_status(queue));
    }
    expect_lines(0x9325b124);
}

TEST_F(Queue, threads_lose_nothing_in_a_queue_and_a_table)
{
    std::future<void> producers[4];
    for (const intptr_t producer : {0, 1, 2, 3})
        producers[producer] = std::async(std::launch::async, [producer] {
            for (intptr_t n = producer * 1000 + 1; n % 1000 <= 200; ++n) {
                const std::string key = std::to_string(n);
                _common_write_to_hash_table(table, g_strdup(key.c_str()), item(n));
                if (n % 2)
                    _common_remove_from_hash_table(table, key.c_str());
                _common_queue_push(queue, item(n));
            }
        });
    intptr_t last[4] = {};
    for (int left = 4 * 200; left > 0;) {
        const auto number = reinterpret_cast<intptr_t>(_common_queue_pop(queue)); // 0: woken too early
        if (number == 0)
            continue;
        --left;
        EXPECT_EQ(number % 1000, ++last[number / 1000]) << "each producer's items stay in their order";
        _common_read_from_hash_table(table, std::to_string(number).c_str());
    }
    for (const std::future<void> &producer : producers)
        producer.wait();
    EXPECT_EQ(_common_queue_length(queue), 0);
    EXPECT_EQ(_common_get_hash_table_count(table), 3 + 4 * 100u);
}
