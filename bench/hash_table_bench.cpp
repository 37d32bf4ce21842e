/* The hash table beside GHashTable under a mutex of one's own. */

#include "harness.h"
#include "zel_common.h"
#include "zel_common_log/trace.h"

#include <memory>

namespace bench
{

namespace
{

char value;

struct peer_table {
    std::shared_ptr<GHashTable> table;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

    void write(void *key, void *stored)
    {
        ZEL_BEGIN();
        ZEL_INFO("%p %p %p", static_cast<void *>(table.get()), key, stored);
        pthread_mutex_lock(&mutex);
        g_hash_table_insert(table.get(), key, stored);
        pthread_mutex_unlock(&mutex);
    }
    void *read(const void *key)
    {
        ZEL_BEGIN();
        pthread_mutex_lock(&mutex);
        void *stored = g_hash_table_lookup(table.get(), key);
        pthread_mutex_unlock(&mutex);
        return stored;
    }
    void find_and_remove(GHRFunc predicate, void *key)
    {
        pthread_mutex_lock(&mutex);
        void *stored = g_hash_table_lookup(table.get(), key);
        if (stored && predicate(key, stored, key))
            g_hash_table_remove(table.get(), key);
        pthread_mutex_unlock(&mutex);
    }
};

constexpr GHRFunc yes = [](void *, void *, void *) -> gboolean { return TRUE; };
constexpr GHRFunc no = [](void *, void *, void *) -> gboolean { return FALSE; };

void *key_of(size_t i)
{
    return reinterpret_cast<void *>(i + 1);
}

std::shared_ptr<zel_hash_table> new_own_table(size_t entries)
{
    zel_hash_table *table = nullptr;
    _common_init_hash_table(&table, nullptr, nullptr);
    require(table, "no hash table");
    for (size_t i = 0; i < entries; ++i)
        _common_write_to_hash_table(table, key_of(i), &value);
    return {table, _common_deinit_hash_table};
}

std::shared_ptr<peer_table> new_peer_table(size_t entries)
{
    GHashTable *table = g_hash_table_new_full(g_direct_hash, g_direct_equal, nullptr, nullptr);
    for (size_t i = 0; i < entries; ++i)
        g_hash_table_insert(table, key_of(i), &value);
    return std::shared_ptr<peer_table>(new peer_table{{table, g_hash_table_destroy}});
}

/** Does something with one key after another, over and over. */
template <typename Make, typename Action> side with_each_key(Make make, size_t entries, Action action)
{
    return repeat([=] {
        return [=, table = make(entries), key = size_t{0}]() mutable {
            action(table.get(), key_of(key));
            if (++key == entries)
                key = 0;
        };
    });
}

template <typename Own, typename Peer> void add_beside(const std::string &action, size_t entries, Own own, Peer peer)
{
    add({"hash table: " + action + ", " + std::to_string(entries) + " entries / GHashTable", 1.2, [=] {
             return std::pair(with_each_key(new_own_table, entries, own), with_each_key(new_peer_table, entries, peer));
         }});
}

/** The cost of an operation on a whole table. */
template <typename Action> void add_walk(const char *name, Action action)
{
    add_growth(std::string("hash table ") + name, 100, [=](size_t n) {
        return repeat([=] { return [table = new_own_table(n), action] { action(table.get()); }; });
    });
}

const group measures([] {
    const auto read = [](zel_hash_table *table, void *key) {
        require(_common_read_from_hash_table(table, key), "a missing key");
    };
    for (const size_t entries : {10U, 100000U}) {
        add_beside(
            "write", entries, [](zel_hash_table *table, void *key) { _common_write_to_hash_table(table, key, &value); },
            [](peer_table *table, void *key) { table->write(key, &value); });
        add_beside("read", entries, read,
                   [](peer_table *table, void *key) { require(table->read(key), "a missing key"); });
        add_beside(
            "find and remove, write back", entries,
            [](zel_hash_table *table, void *key) {
                _common_find_and_remove_in_hash_table(table, yes, key);
                _common_write_to_hash_table(table, key, &value);
            },
            [](peer_table *table, void *key) {
                table->find_and_remove(yes, key);
                table->write(key, &value);
            });
    }
    add_growth(
        "hash table read", 100, [=](size_t n) { return with_each_key(new_own_table, n, read); }, true);
    add_walk("find", [](zel_hash_table *table) { _common_find_in_hash_table(table, no, nullptr); });
    add_walk("walk", [](zel_hash_table *table) { _common_foreach_read_from_hash_table(table, no, nullptr); });
    add_walk("removal by predicate",
             [](zel_hash_table *table) { _common_foreach_remove_in_hash_table(table, no, nullptr); });
    add_walk("list of keys", [](zel_hash_table *table) { g_list_free(_common_get_keys_from_hash_table(table)); });
    add_growth("hash table fill and release", 100,
               [](size_t n) { return repeat([=] { return [=] { new_own_table(n); }; }); });
});

} // namespace

} // namespace bench
