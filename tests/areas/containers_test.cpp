// The hash table and the queue. Values and items are numbers here.
#include "interpose.h"
#include "platform.h"
#include "zel_common.h"
#include "zel_common_queue.h"

#include <cstdint>
#include <future>
#include <string>
#include <utility>

using namespace zel_test;

namespace
{

const char *const body = "Invalid params";
zel_hash_table *table = nullptr;
zel_queue_s *queue = nullptr;
pthread_mutex_t *lock = nullptr;
gboolean answer = 0;

constexpr auto item = [](intptr_t number) { return reinterpret_cast<void *>(number); };

// Callbacks note what they are given, and whether they come under the lock.

void note_call(const std::string &what, void *item)
{
    note(what + " " + std::to_string(reinterpret_cast<intptr_t>(item)) + (is_locked(*lock) ? ", locked" : ""));
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
    EXPECT_TRUE(is_locked(*lock));
    return reinterpret_cast<intptr_t>(item) % 10 != reinterpret_cast<intptr_t>(wanted) % 10;
}

class HashTable : public testing::Test
{
  protected:
    HashTable()
    {
        EXPECT_WHOLE(0, trace(), _common_init_hash_table, &table, g_free, release);
        lock = &table->mutex;
        for (const char *key : {"a", "b", "c"})
            _common_write_to_hash_table(table, g_strdup(key), item(1));
        take_trace();
    }
    ~HashTable() override
    {
        _common_deinit_hash_table(table);
        table = nullptr; // the leak check follows what it names
        take_trace();
    }
};

// The lines of an operation that takes the queue's lock.
#define EXPECT_LOCKED(result, inside, function, ...)                                                                   \
    EXPECT_WHOLE(result, join({whole("__enter_critical_section"), inside, whole("__leave_critical_section")}),         \
                 function, __VA_ARGS__)

class Queue : public testing::Test
{
  protected:
    Queue()
    {
        EXPECT_WHOLE(ZEL_ERR_NONE, trace(), _common_queue_init, &queue);
        lock = &queue->available_lock;
    }
    ~Queue() override
    {
        _common_queue_deinit(queue, release);
        queue = nullptr;
        take_trace();
    }

    void push(std::initializer_list<intptr_t> numbers)
    {
        for (const intptr_t number : numbers)
            _common_queue_push(queue, item(number));
        take_trace();
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

} // namespace

TEST_F(HashTable, keys_are_texts_and_stay_on_rewrite)
{
    for (const char *unknown : {"z", static_cast<const char *>(nullptr)}) {
        EXPECT_BEGUN(nullptr, trace(), _common_read_from_hash_table, table, unknown);
        EXPECT_BEGUN(0, trace(), _common_remove_from_hash_table, table, unknown);
        EXPECT_WHOLE(nullptr, trace(), _common_read_from_hash_table_addon, table, unknown, look);
    }
    EXPECT_BEGUN(3, trace(), _common_get_hash_table_size, table);
    const trace released = noted("release 1, locked");
    EXPECT_BEGUN(0, released, _common_remove_from_hash_table, table, "a");
    EXPECT_LOGS(2u, trace(), _common_get_hash_table_count, table);

    GList *keys = _common_get_keys_from_hash_table(table);
    EXPECT_EQ(g_list_length(keys), 2u);
    char *key = g_strdup("b");
    std::ostringstream addresses;
    addresses << table << " " << static_cast<void *>(key) << " " << item(2);
    EXPECT_BEGUN(0, join({info(it, addresses.str()), released}), _common_write_to_hash_table, table, key, item(2));
    EXPECT_NE(g_list_find_custom(keys, "b", reinterpret_cast<GCompareFunc>(g_strcmp0)), nullptr);
    g_list_free(keys);
    EXPECT_BEGUN(item(2), trace(), _common_read_from_hash_table, table, "b");
    EXPECT_WHOLE(item(2), noted("look at 2, locked"), _common_read_from_hash_table_addon, table, "b", look);
    _common_remove_from_hash_table(table, "b");
    take_trace();
    EXPECT_BEGUN(0, released, _common_deinit_hash_table, table);

    _common_init_hash_table(&table, nullptr, nullptr); // keys are addresses
    char text[] = "a", other[] = "a";
    _common_write_to_hash_table(table, text, text);
    EXPECT_EQ(_common_read_from_hash_table(table, text), text);
    EXPECT_EQ(_common_read_from_hash_table(table, other), nullptr);
}

TEST_F(HashTable, predicates_are_asked_under_the_lock)
{
    const trace asked = noted("ask about 1, locked"), released = noted("release 1, locked");
    const trace unlocked = noted("ask about 1"); // the walk that takes no lock, and that no answer ends
    for (const gboolean ignored : {0, 1}) {
        answer = ignored;
        EXPECT_BEGUN(3, join({unlocked, unlocked, unlocked}), _common_foreach_read_from_hash_table, table, predicate,
                     table);
    }
    char a[] = "a", z[] = "z";
    const trace asked_for_a = noted("with its key, ask about 1, locked");
    for (const gboolean value : {0, 2, -1, 256, 1}) { // 1 alone means yes
        answer = value;
        EXPECT_LOGS(0, trace(), _common_find_and_remove_in_hash_table, table, predicate, z);
        EXPECT_LOGS(0, trace(), _common_find_and_remove_in_hash_table, table, predicate, nullptr);
        EXPECT_LOGS(0, join({asked_for_a, value == 1 ? released : trace()}), _common_find_and_remove_in_hash_table,
                    table, predicate, a);
    }
    for (const gboolean yes : {0, 2}) { // any but 0 means yes
        answer = yes;
        EXPECT_BEGUN(yes ? item(1) : nullptr, yes ? asked : join({asked, asked}), _common_find_in_hash_table, table,
                     predicate, table);
        _common_foreach_remove_in_hash_table(table, predicate, table);
        const trace lines = take_trace();
        EXPECT_EQ(count_lines(lines, "NOTE", "ask about 1, locked"), 2);
        EXPECT_EQ(count_lines(lines, "NOTE", "release 1, locked"), yes);
    }
}

TEST_F(Queue, items_leave_in_the_order_they_came)
{
    const trace first = join({whole("__push_front"), whole("__wake_condition_variable")});
    EXPECT_LOCKED(0, first, _common_queue_push, queue, item(1));
    for (const intptr_t number : {2, 0})
        EXPECT_LOCKED(0, whole("__push_front"), _common_queue_push, queue, item(number));
    EXPECT_LOCKED(3, trace(), _common_queue_length, queue);
    expect_items({0, 2, 1});
    for (const intptr_t number : {1, 2, 0})
        EXPECT_LOCKED(item(number), whole("__pop_back"), _common_queue_pop, queue);
    expect_items({});
    EXPECT_LOCKED(0, first, _common_queue_push, queue, item(4));
    EXPECT_EQ(calls::cond_signal.calls(), 2);
    push({5, 6});
    EXPECT_EQ(_common_queue_pop(queue), item(4));
    push({7}); // where a popped item lay
    expect_items({7, 6, 5});
}

TEST_F(Queue, searches_take_the_newest_and_releases_start_with_it)
{
    push({17, 1, 27, 17, 3});
    EXPECT_LOCKED(item(17), trace(), _common_queue_find, queue, last_digits_differ, item(7));
    EXPECT_LOCKED(nullptr, trace(), _common_queue_find, queue, last_digits_differ, item(9));
    EXPECT_LOCKED(0, trace(), _common_queue_remove, queue, item(7)); // by its address only
    EXPECT_LOCKED(0, trace(), _common_queue_remove, queue, item(17));
    expect_items({3, 27, 1, 17});
    std::ostringstream element;
    element << "elem[" << queue->item_list->next << "]";
    platform.on_debug_line = [] { note(std::to_string(g_list_length(queue->item_list)) + " left"); };
    EXPECT_LOCKED(true, join({noted("3 left"), debug(it, element.str()), noted("release 27, locked")}),
                  _common_queue_find_and_remove, queue, last_digits_differ, release, item(7));
    platform.on_debug_line = nullptr;
    EXPECT_LOCKED(false, trace(), _common_queue_find_and_remove, queue, last_digits_differ, release, item(9));
    expect_items({3, 1, 17});
    EXPECT_EQ(_common_queue_pop(queue), item(17));
    take_trace();

    const trace both = join({noted("release 3, locked"), noted("release 1, locked")});
    EXPECT_LOCKED(0, both, _common_queue_clear, queue, release);
    EXPECT_LOCKED(0, trace(), _common_queue_length, queue);
    EXPECT_LOCKED(0, critical(it, "req_queue->item_list is NULL"), _common_queue_clear, queue, release);
    push({1, 3});
    const std::string clear = "_common_queue_clear";
    EXPECT_WHOLE(0, whole(clear, {whole("__enter_critical_section"), both, whole("__leave_critical_section")}),
                 _common_queue_deinit, queue, release);
    _common_queue_init(&queue);
    push({8, 9}); // without a release, the nodes go and the items stay
    EXPECT_WHOLE(0, join({begin(clear), critical(clear, body)}), _common_queue_deinit, queue, nullptr);
    _common_queue_init(&queue);
}

TEST_F(Queue, null_arguments_are_rejected_as_by_the_hash_table)
{
    EXPECT_NULLS_REJECTED(1, ZEL_ERR_INVALID_ARG, body, _common_queue_init);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_init_hash_table, _common_deinit_hash_table, _common_read_from_hash_table,
                          _common_read_from_hash_table_addon, _common_remove_from_hash_table,
                          _common_get_hash_table_size, _common_queue_push, _common_queue_pop, _common_queue_deinit,
                          _common_queue_length);
    EXPECT_NULLS_REFUSED(1, 0, body, _common_get_hash_table_count, _common_get_keys_from_hash_table,
                         _common_queue_get_wait_status);
    EXPECT_NULLS_REJECTED(2, 0, body, _common_find_in_hash_table, _common_queue_find, _common_queue_remove,
                          _common_queue_clear);
    EXPECT_NULLS_REJECTED(2, -1, body, _common_foreach_read_from_hash_table);
    EXPECT_NULLS_REFUSED(2, 0, body, _common_find_and_remove_in_hash_table, _common_foreach_remove_in_hash_table);
    EXPECT_NULLS_REJECTED(3, 0, body, _common_queue_find_and_remove);
    auto *other = reinterpret_cast<zel_hash_table *>(nothing);

    EXPECT_REJECTED(nullptr, body, _common_read_from_hash_table_addon, other, "a", nullptr);
    _common_write_to_hash_table(nullptr, other, other);
    _common_write_to_hash_table(other, nullptr, other);
    _common_write_to_hash_table(other, other, nullptr);
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", body), 3);

    zel_queue_s *unmade = queue;
    const allocation_failure failure(1);
    EXPECT_REJECTED(ZEL_ERR_MEMORY, "Failed to allocate memory", _common_queue_init, &unmade);
    EXPECT_EQ(unmade, queue);
    const allocation_failure another(1);
    EXPECT_REJECTED(0, "Memory allocation failed", _common_init_hash_table, &other, nullptr, nullptr);
    EXPECT_EQ(other, nullptr);
}

TEST_F(Queue, a_pop_sleeps_until_it_is_woken)
{
    push({1, 2});
    _common_queue_clear(queue, release);
    EXPECT_FALSE(_common_queue_get_wait_status(queue));
    take_trace();
    for (void *pushed : {item(5), item(0)}) {
        const auto popped = std::async(std::launch::async, [pushed] {
            const trace slept = join({whole("__sleep_condition_variable"), whole("__pop_back")});
            EXPECT_LOCKED(pushed, slept, _common_queue_pop, queue);
        });
        wait_for_sleeper(queue->available_lock);
        EXPECT_TRUE(_common_queue_get_wait_status(queue));
        if (pushed)
            _common_queue_push(queue, pushed);
        else // woken over an empty queue
            pthread_cond_broadcast(&queue->available_signal);
        popped.wait();
        EXPECT_FALSE(_common_queue_get_wait_status(queue));
    }
}

TEST_F(Queue, threads_lose_nothing_in_a_queue_and_a_table)
{
    _common_init_hash_table(&table, g_free, nullptr);
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
    for (int taken = 0; taken < 4 * 200;) {
        const auto number = reinterpret_cast<intptr_t>(_common_queue_pop(queue));
        if (number == 0)
            continue;
        ++taken;
        EXPECT_EQ(number % 1000, ++last[number / 1000]) << "each producer's items stay in their order";
        _common_read_from_hash_table(table, std::to_string(number).c_str());
    }
    for (const std::future<void> &producer : producers)
        producer.wait();
    EXPECT_EQ(_common_queue_length(queue), 0);
    EXPECT_EQ(_common_get_hash_table_count(table), 4 * 100u);
    _common_deinit_hash_table(table);
}
