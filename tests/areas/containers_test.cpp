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

// What callbacks are given and calls give is noted, and whether a lock is held meanwhile.
void note_item(const std::string &what, void *item)
{
    const bool locked = is_locked(table->mutex) || is_locked(queue->available_lock);
    note(what + " " + std::to_string(reinterpret_cast<intptr_t>(item)) + (locked ? ", locked" : ""));
}

constexpr auto look = [](void *value) { note_item("look at", value); };
constexpr auto release = [](void *item) { note_item("release", item); };

gboolean predicate(void *key, void *value, void *data)
{
    note_item(data == key ? "with its key, ask about" : "ask about", value);
    return data == key || data == table ? answer : TRUE;
}

int last_digits_differ(void *item, void *wanted)
{
    note_item("compare", item);
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
    }
    ~Containers() override
    {
        _common_deinit_hash_table(table);
        _common_queue_deinit(queue, nullptr);
        table = nullptr; // the leak check follows what it names
        queue = nullptr;
    }

    void fill()
    {
        for (const char *key : {"a", "b", "c"})
            _common_write_to_hash_table(table, g_strdup(key), item(1));
    }
    // What the table has of a key, and without it.
    void take(const char *key)
    {
        note_item("read", _common_read_from_hash_table(table, key));
        note_item("read", _common_read_from_hash_table_addon(table, key, look));
        _common_remove_from_hash_table(table, key);
        note(std::to_string(_common_get_hash_table_size(table)) + " entries");
        note(std::to_string(_common_get_hash_table_count(table)) + " counted");
    }

    // Pushes and pops, and notes the list, which programs can read: the newest item first, and linked in both
    // directions, or it ends there.
    void pass(std::initializer_list<intptr_t> pushed, int pops)
    {
        for (const intptr_t number : pushed)
            _common_queue_push(queue, item(number));
        for (; pops > 0; --pops)
            note_item("pop", _common_queue_pop(queue));
        const GList *node = queue->item_list, *newer = nullptr;
        for (; node && node->prev == newer; newer = std::exchange(node, node->next))
            note_item("in the list", node->data);
        note(std::to_string(_common_queue_length(queue)) + " items");
        note(_common_queue_get_wait_status(queue) ? "somebody sleeps" : "nobody sleeps");
    }
};

using HashTable = Containers;
using Queue = Containers;

} // namespace

TEST_F(HashTable, keys_are_texts_and_stay_on_rewrite)
{
    for (const char *key : {"z", static_cast<const char *>(nullptr), "a"})
        take(key);
    GList *keys = _common_get_keys_from_hash_table(table);
    char *key = g_strdup("b");
    _common_write_to_hash_table(table, key, item(2));
    const std::string addresses = (std::ostringstream() << table << " " << static_cast<void *>(key) << " 0x2").str();
    for (const GList *node = keys; node; node = node->next)
        note(static_cast<const char *>(node->data)); // in the table's order, and still the table's own
    g_list_free(keys);
    take("b");
    _common_deinit_hash_table(table);

    _common_init_hash_table(&table, nullptr, nullptr); // keys are addresses
    char text[] = "a", other[] = "a";
    _common_write_to_hash_table(table, text, item(3));
    take(other);
    take(text);
    expect_lines(0x8d7a429c, addresses);
}

TEST_F(HashTable, predicates_are_asked_under_the_lock)
{
    char a[] = "a", z[] = "z";
    for (const gboolean value : {0, 2, -1, 256, 1}) {
        fill();
        answer = value;
        // The walk that takes no lock, and that no answer ends; the removal to which 1 alone means yes.
        EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, table), 3);
        for (char *key : {z, static_cast<char *>(nullptr), a})
            _common_find_and_remove_in_hash_table(table, predicate, key);
        take("b");
        // To these any but 0 means yes.
        note_item("found", _common_find_in_hash_table(table, predicate, table));
        _common_foreach_remove_in_hash_table(table, predicate, table);
        take("c");
    }
    expect_lines(0xe132bd2a);
}

TEST_F(Queue, items_leave_in_the_order_they_came_and_searches_take_the_newest)
{
    pass({1, 2, 0}, 3);
    pass({4, 5, 6}, 1);
    EXPECT_EQ(calls::cond_signal.calls, 2) << "for the first item only";
    pass({8}, 1); // where a popped item lay

    pass({17, 1, 27, 3, 17}, 0);
    for (const intptr_t wanted : {7, 9})
        note_item("found", _common_queue_find(queue, last_digits_differ, item(wanted)));
    for (const intptr_t removed : {7, 17}) // by its address only
        _common_queue_remove(queue, item(removed));
    const std::string element = (std::ostringstream() << "elem[" << queue->item_list->next << "]").str();
    platform.before_line = [] { note(std::to_string(g_list_length(queue->item_list)) + " in the queue"); };
    EXPECT_TRUE(_common_queue_find_and_remove(queue, last_digits_differ, release, item(7)));
    platform.before_line = [] {};
    EXPECT_FALSE(_common_queue_find_and_remove(queue, last_digits_differ, release, item(9)));
    pass({}, 1);

    _common_queue_clear(queue, release); // from the newest on
    _common_queue_clear(queue, release);
    // Without a release, the nodes go and the items stay.
    for (const auto releasing : {free_queue_member(release), free_queue_member()}) {
        pass({1, 3}, 0);
        _common_queue_deinit(queue, releasing);
        _common_queue_init(&queue);
    }
    expect_lines(0x608d4452, element);
}

TEST_F(Queue, null_arguments_are_rejected_as_by_the_hash_table)
{
    leave_out_each(1, _common_queue_init, _common_init_hash_table, _common_deinit_hash_table,
                   _common_read_from_hash_table, _common_remove_from_hash_table, _common_get_hash_table_size,
                   _common_queue_push, _common_queue_pop, _common_queue_deinit, _common_queue_length,
                   _common_get_hash_table_count, _common_get_keys_from_hash_table, _common_queue_get_wait_status);
    leave_out_each(2, _common_find_in_hash_table, _common_queue_find, _common_queue_remove, _common_queue_clear,
                   _common_find_and_remove_in_hash_table, _common_foreach_remove_in_hash_table,
                   _common_foreach_read_from_hash_table);
    leave_out_each(3, _common_queue_find_and_remove, _common_write_to_hash_table, _common_read_from_hash_table_addon);

    zel_queue_s *unmade = queue;
    const fault failure({LIBRARY_MEMORY, true}, 1);
    EXPECT_EQ(_common_queue_init(&unmade), ZEL_ERR_MEMORY);
    EXPECT_EQ(unmade, queue);
    zel_hash_table *other = table;
    _common_init_hash_table(&other, nullptr, nullptr);
    EXPECT_EQ(other, nullptr);
    expect_lines(0x0a6b871a);
}

TEST_F(Queue, a_pop_sleeps_until_it_is_woken)
{
    pass({1, 2}, 0);
    _common_queue_clear(queue, release);
    for (void *pushed : {item(0), item(5)}) {
        auto popped = std::async(std::launch::async, [this] {
            pass({}, 1);
            return take_trace();
        });
        wait_for_sleeper(queue->available_lock);
        EXPECT_TRUE(_common_queue_get_wait_status(queue));
        if (pushed)
            _common_queue_push(queue, pushed);
        else // woken over an empty queue
            pthread_cond_broadcast(&queue->available_signal);
        note(popped.get());
    }
    expect_lines(0x68b17317);
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
