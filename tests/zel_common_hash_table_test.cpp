#include "interpose.h"
#include "recording_platform.h"
#include "zel_common.h"

#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace zel_test;

namespace
{

using texts = std::multiset<std::string>;
texts released;

void release(void *text)
{
    released.emplace(static_cast<char *>(text));
    g_free(text);
}

// What callbacks answer, and what they were called with.
zel_hash_table *table = nullptr;
int answer = 0;
int called = 0;
std::vector<void *> seen;
bool lock_was_held = false;

gboolean predicate(void *key, void *value, void *data)
{
    ++called;
    seen = {key, value, data};
    lock_was_held = is_locked(table->mutex);
    return answer;
}

// Any value but 0 means yes.
gboolean value_is(void *, void *value, void *wanted)
{
    return std::string(static_cast<char *>(value)) == static_cast<char *>(wanted) ? 2 : 0;
}

void look_at(void *value)
{
    predicate(nullptr, value, nullptr);
}

class HashTable : public testing::Test
{
  protected:
    HashTable()
    {
        _common_init_hash_table(&table, release, release);
        EXPECT_TRACE(whole("_common_init_hash_table"));
        for (const char *entry : {"a1", "b2", "c1"})
            _common_write_to_hash_table(table, g_strndup(entry, 1), g_strdup(entry + 1));
        take_trace();
    }
    ~HashTable() override
    {
        if (table)
            _common_deinit_hash_table(table);
    }

    char a[2] = "a";
    char one[2] = "1";
    char absent[2] = "z";
};

} // namespace

TEST_F(HashTable, StringKeysAreComparedByContentAndStayOnRewrite)
{
    GList *keys = _common_get_keys_from_hash_table(table);
    EXPECT_TRACE();
    char *key = g_strdup("a");
    char *value = g_strdup("new");
    char addresses[100];
    std::snprintf(addresses, sizeof addresses, "%p %p %p", static_cast<void *>(table), static_cast<void *>(key),
                  static_cast<void *>(value));
    _common_write_to_hash_table(table, key, value);
    EXPECT_TRACE(begin("_common_write_to_hash_table"), info("_common_write_to_hash_table", addresses));
    EXPECT_EQ(released, (texts{"a", "1"})) << "the old value, the new key";
    EXPECT_EQ(_common_read_from_hash_table(table, a), value);
    EXPECT_EQ(_common_read_from_hash_table(table, absent), nullptr);
    EXPECT_TRACE(begin("_common_read_from_hash_table"), begin("_common_read_from_hash_table"));
    EXPECT_EQ(g_list_length(keys), 3u);
    EXPECT_NE(g_list_find_custom(keys, "a", reinterpret_cast<GCompareFunc>(g_strcmp0)), nullptr);
    g_list_free(keys);

    for (int i = 0; i < 2; ++i) // the second time it is absent
        _common_remove_from_hash_table(table, "b");
    EXPECT_TRACE(begin("_common_remove_from_hash_table"), begin("_common_remove_from_hash_table"));
    EXPECT_EQ(released, (texts{"a", "1", "b", "2"}));
    EXPECT_EQ(_common_get_hash_table_count(table), 2u);
    EXPECT_EQ(_common_get_hash_table_size(table), 2);
    EXPECT_TRACE(begin("_common_get_hash_table_size"));
    _common_deinit_hash_table(table);
    EXPECT_TRACE(begin("_common_deinit_hash_table"));
    EXPECT_EQ(released, (texts{"a", "1", "b", "2", "a", "new", "c", "1"}));
    table = nullptr;
}

TEST_F(HashTable, DirectKeysAreComparedByIdentity)
{
    zel_hash_table *direct = nullptr;
    _common_init_hash_table(&direct, nullptr, nullptr);
    char other[] = "a";
    _common_write_to_hash_table(direct, a, one);
    EXPECT_EQ(_common_read_from_hash_table(direct, a), one);
    EXPECT_EQ(_common_read_from_hash_table(direct, other), nullptr);
    _common_deinit_hash_table(direct);
}

TEST_F(HashTable, LookingCallsBackUnderTheLock)
{
    void *value = _common_read_from_hash_table_addon(table, "a", look_at);
    EXPECT_STREQ(static_cast<char *>(value), "1");
    EXPECT_EQ(seen[1], value);
    EXPECT_TRUE(lock_was_held);
    EXPECT_EQ(_common_read_from_hash_table_addon(table, absent, look_at), nullptr);
    EXPECT_TRACE(whole("_common_read_from_hash_table_addon"), whole("_common_read_from_hash_table_addon"));
    EXPECT_EQ(called, 1);

    EXPECT_STREQ(static_cast<char *>(_common_find_in_hash_table(table, value_is, one)), "1");
    EXPECT_TRACE(begin("_common_find_in_hash_table"));
    EXPECT_EQ(_common_find_in_hash_table(table, predicate, one), nullptr);
    EXPECT_EQ(called, 4);
    answer = 1;
    EXPECT_EQ(_common_find_in_hash_table(table, predicate, one), seen[1]);
    EXPECT_EQ(called, 5) << "the first accepted entry ends it";
    EXPECT_EQ(seen[2], one);
    EXPECT_TRUE(lock_was_held);
    take_trace();
    EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, nullptr), 3);
    EXPECT_TRACE(begin("_common_foreach_read_from_hash_table"));
    EXPECT_EQ(called, 8) << "no answer ends it";
    EXPECT_EQ(seen[2], nullptr);
    EXPECT_FALSE(lock_was_held) << "this walk takes no lock";
}

TEST_F(HashTable, RemovingAsksThePredicate)
{
    for (const int refusal : {0, 2, -1, 256}) {
        answer = refusal;
        _common_find_and_remove_in_hash_table(table, predicate, a);
    }
    EXPECT_TRUE(released.empty());
    EXPECT_EQ(seen[0], a);
    EXPECT_STREQ(static_cast<char *>(seen[1]), "1");
    EXPECT_EQ(seen[2], a) << "the key comes again as the third argument";
    EXPECT_TRUE(lock_was_held);
    answer = 1;
    _common_find_and_remove_in_hash_table(table, predicate, absent);
    EXPECT_EQ(called, 4);
    _common_find_and_remove_in_hash_table(table, predicate, a);
    EXPECT_EQ(released, (texts{"a", "1"}));

    _common_foreach_remove_in_hash_table(table, value_is, one);
    EXPECT_EQ(released, (texts{"a", "1", "c", "1"}));
    answer = 0;
    lock_was_held = false;
    _common_foreach_remove_in_hash_table(table, predicate, one);
    EXPECT_EQ(seen[2], one);
    EXPECT_TRUE(lock_was_held);
    EXPECT_TRACE();
    EXPECT_EQ(_common_get_hash_table_count(table), 1u);
}

TEST_F(HashTable, NullArgumentsAreRejected)
{
    const std::string body = "Invalid params";
    EXPECT_NULLS_REJECTED(1, 0, body, _common_init_hash_table, &table, release, release);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_deinit_hash_table, table);
    EXPECT_NULLS_REJECTED(1, nullptr, body, _common_read_from_hash_table, table, a);
    EXPECT_REJECTED(nullptr, body, _common_read_from_hash_table_addon, nullptr, a, look_at);
    EXPECT_REJECTED(nullptr, body, _common_read_from_hash_table_addon, table, a, nullptr);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_remove_from_hash_table, table, a);
    EXPECT_NULLS_REJECTED(2, nullptr, body, _common_find_in_hash_table, table, predicate, a);
    EXPECT_NULLS_REFUSED(2, 0, body, _common_find_and_remove_in_hash_table, table, predicate, a);
    EXPECT_NULLS_REFUSED(2, 0, body, _common_foreach_remove_in_hash_table, table, predicate, a);
    EXPECT_NULLS_REJECTED(2, -1, body, _common_foreach_read_from_hash_table, table, predicate, a);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_get_hash_table_size, table);
    EXPECT_NULLS_REFUSED(1, 0u, body, _common_get_hash_table_count, table);
    EXPECT_NULLS_REFUSED(1, nullptr, body, _common_get_keys_from_hash_table, table);
    _common_write_to_hash_table(nullptr, a, one);
    _common_write_to_hash_table(table, nullptr, one);
    _common_write_to_hash_table(table, a, nullptr);
    EXPECT_EQ(count_lines(take_trace(), "CRITICAL", body), 3);
    EXPECT_EQ(called, 0);
    EXPECT_EQ(_common_get_hash_table_count(table), 3u);

    zel_hash_table *other = table;
    const allocation_failure failure(1);
    EXPECT_REJECTED(0, "Memory allocation failed", _common_init_hash_table, &other, nullptr, nullptr);
    EXPECT_EQ(other, nullptr);
}

TEST_F(HashTable, ThreadsShareATable)
{
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer)
        writers.emplace_back([writer] {
            for (int n = 0; n < 100; ++n) {
                const std::string key = std::to_string(writer * 100 + n);
                _common_write_to_hash_table(table, g_strdup(key.c_str()), g_strdup("v"));
                _common_read_from_hash_table_addon(table, "a", [](void *value) { ++*static_cast<char *>(value); });
                if (n % 2)
                    _common_remove_from_hash_table(table, key.c_str());
            }
        });
    for (std::thread &writer : writers)
        writer.join();
    EXPECT_EQ(_common_get_hash_table_count(table), 200u + 3);
}
