/* The guarded hash table. */

#include "zel_common.h"
#include "zel_common/holders.h"
#include "zel_common_log/trace.h"

namespace
{

/** Returns the value of a key. NULL is never stored, and string hashing cannot take it. */
void *lookup(const zel_hash_table *hash_table, const void *key)
{
    return key ? g_hash_table_lookup(hash_table->table, key) : nullptr;
}

} // namespace

void _common_init_hash_table(zel_hash_table **hash_table, GDestroyNotify free_key, GDestroyNotify free_value)
{
    ZEL_BEGIN();
    if (!hash_table)
        return (void)reject("Invalid params");

    *hash_table = g_try_new0(zel_hash_table, 1);
    if (!*hash_table) {
        ZEL_CRITICAL("Memory allocation failed");
        return;
    }

    pthread_mutex_init(&(*hash_table)->mutex, nullptr);
    (*hash_table)->table = g_hash_table_new_full(free_key ? g_str_hash : g_direct_hash,
                                                 free_key ? g_str_equal : g_direct_equal, free_key, free_value);
    ZEL_END();
}

void _common_deinit_hash_table(zel_hash_table *hash_table)
{
    ZEL_BEGIN();
    if (!hash_table)
        return (void)reject("Invalid params");

    {
        const mutex_guard guard(hash_table->mutex);
        g_hash_table_destroy(hash_table->table);
        hash_table->table = nullptr;
    }
    pthread_mutex_destroy(&hash_table->mutex);
    g_free(hash_table);
}

void _common_write_to_hash_table(zel_hash_table *hash_table, void *key, void *value)
{
    ZEL_BEGIN();
    ZEL_INFO("%p %p %p", static_cast<void *>(hash_table), key, value);
    if (!hash_table || !key || !value)
        return (void)reject("Invalid params");

    const mutex_guard guard(hash_table->mutex);
    g_hash_table_insert(hash_table->table, key, value);
}

void *_common_read_from_hash_table(zel_hash_table *hash_table, const void *key)
{
    ZEL_BEGIN();
    if (!hash_table)
        return reject("Invalid params", nullptr);

    const mutex_guard guard(hash_table->mutex);
    return lookup(hash_table, key);
}

void *_common_read_from_hash_table_addon(zel_hash_table *hash_table, const void *key, _common_hash_table_addon_cb cb)
{
    ZEL_BEGIN();
    if (!hash_table || !cb)
        return reject("Invalid params", nullptr);

    void *value = nullptr;
    {
        const mutex_guard guard(hash_table->mutex);
        value = lookup(hash_table, key);
        if (value)
            cb(value);
    }
    ZEL_END();
    return value;
}

void _common_remove_from_hash_table(zel_hash_table *hash_table, const void *key)
{
    ZEL_BEGIN();
    if (!hash_table)
        return (void)reject("Invalid params");

    const mutex_guard guard(hash_table->mutex);
    if (key)
        g_hash_table_remove(hash_table->table, key);
}

void *_common_find_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data)
{
    ZEL_BEGIN();
    if (!hash_table || !predicate_func)
        return reject("Invalid params", nullptr);

    const mutex_guard guard(hash_table->mutex);
    return g_hash_table_find(hash_table->table, predicate_func, user_data);
}

void _common_find_and_remove_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *key)
{
    if (!hash_table || !predicate_func)
        return (void)reject("Invalid params");

    const mutex_guard guard(hash_table->mutex);
    void *value = lookup(hash_table, key);
    if (value && predicate_func(key, value, key) == TRUE)
        g_hash_table_remove(hash_table->table, key);
}

void _common_foreach_remove_in_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data)
{
    if (!hash_table || !predicate_func)
        return (void)reject("Invalid params");

    const mutex_guard guard(hash_table->mutex);
    g_hash_table_foreach_remove(hash_table->table, predicate_func, user_data);
}

int _common_foreach_read_from_hash_table(zel_hash_table *hash_table, GHRFunc predicate_func, void *user_data)
{
    ZEL_BEGIN();
    if (!hash_table || !predicate_func)
        return reject("Invalid params", -1);

    int visited = 0;
    GHashTableIter entries;
    void *key = nullptr;
    void *value = nullptr;
    g_hash_table_iter_init(&entries, hash_table->table);
    while (g_hash_table_iter_next(&entries, &key, &value)) {
        predicate_func(key, value, user_data);
        ++visited;
    }
    return visited;
}

int _common_get_hash_table_size(zel_hash_table *hash_table)
{
    ZEL_BEGIN();
    if (!hash_table)
        return reject("Invalid params", 0);

    const mutex_guard guard(hash_table->mutex);
    return static_cast<int>(g_hash_table_size(hash_table->table));
}

unsigned int _common_get_hash_table_count(zel_hash_table *hash_table)
{
    if (!hash_table)
        return reject("Invalid params", 0U);

    const mutex_guard guard(hash_table->mutex);
    return g_hash_table_size(hash_table->table);
}

GList *_common_get_keys_from_hash_table(zel_hash_table *hash_table)
{
    if (!hash_table)
        return reject("Invalid params", nullptr);

    /* g_hash_table_get_keys guarantees no order. */
    const mutex_guard guard(hash_table->mutex);
    GList *keys = nullptr;
    GHashTableIter entries;
    void *key = nullptr;
    g_hash_table_iter_init(&entries, hash_table->table);
    while (g_hash_table_iter_next(&entries, &key, nullptr))
        keys = g_list_prepend(keys, key);
    return g_list_reverse(keys);
}
