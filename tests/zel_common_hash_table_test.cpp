#include "interpose.h"
#include "recording_platform.h"
#include "zel_common.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace zel_test;

namespace
{

std::vector<std::string> released_keys;
std::vector<std::string> released_values;

void release_key(void *key)
{
    released_keys.emplace_back(static_cast<char *>(key));
    g_free(key);
}

void release_value(void *value)
{
    released_values.emplace_back(static_cast<char *>(value));
    g_free(value);
}

zel_hash_table *current = nullptr;
int answer = 0;
int called = 0;
void *seen_key = nullptr;
void *seen_value = nullptr;
void *seen_data = nullptr;
bool lock_was_held = false;

bool lock_is_held()
{
    if (pthread_mutex_trylock(&current->mutex) == EBUSY)
        return true;
    pthread_mutex_unlock(&current->mutex);
    return false;
}

gboolean predicate(void *key, void *value, void *data)
{
    ++called;
    seen_key = key;
    seen_value = value;
    seen_data = data;
    lock_was_held = lock_is_held();
    return answer;
}

gboolean value_is(void *, void *value, void *wanted)
{
    // Any value but 0 means yes.
    return std::string(static_cast<char *>(value)) == static_cast<char *>(wanted) ? 2 : 0;
}

void look_at(void *value)
{
    ++called;
    seen_value = value;
    lock_was_held = lock_is_held();
}

std::string addresses(const void *record, const void *key, const void *value)
{
    char text[100];
    std::snprintf(text, sizeof text, "%p %p %p", record, key, value);
    return text;
}

class HashTable : public testing::Test
{
  protected:
    HashTable()
    {
        _common_init_hash_table(&table, release_key, release_value);
        EXPECT_TRACE(whole("_common_init_hash_table"));
        current = table;
    }
    ~HashTable() override
    {
        if (table)
            _common_deinit_hash_table(table);
    }

    void write(std::initializer_list<std::pair<const char *, const char *>> entries)
    {
        for (const auto &[key, value] : entries)
            _common_write_to_hash_table(table, g_strdup(key), g_strdup(value));
        take_trace();
    }

    std::string read(const char *key)
    {
        const std::string other_buffer = key;
        const void *value = _common_read_from_hash_table(table, other_buffer.c_str());
        take_trace();
        return value ? static_cast<const char *>(value) : "";
    }

    int size()
    {
        const auto count = static_cast<int>(_common_get_hash_table_count(table));
        EXPECT_TRACE();
        EXPECT_EQ(_common_get_hash_table_size(table), count);
        EXPECT_TRACE(begin("_common_get_hash_table_size"));
        return count;
    }

    zel_hash_table *table = nullptr;
};

} // namespace

TEST_F(HashTable, StringKeysAreFoundByContent)
{
    EXPECT_EQ(size(), 0);
    EXPECT_EQ(_common_get_keys_from_hash_table(table), nullptr);
    char *key = g_strdup("one");
    char *value = g_strdup("1");
    _common_write_to_hash_table(table, key, value);
    EXPECT_TRACE(begin("_common_write_to_hash_table"),
                 info("_common_write_to_hash_table", addresses(table, key, value)));
    EXPECT_EQ(_common_read_from_hash_table(table, std::string("one").c_str()), value);
    EXPECT_TRACE(begin("_common_read_from_hash_table"));
    EXPECT_EQ(_common_read_from_hash_table(table, "two"), nullptr);
    EXPECT_TRACE(begin("_common_read_from_hash_table"));
    EXPECT_EQ(size(), 1);
    GList *keys = _common_get_keys_from_hash_table(table);
    EXPECT_TRACE();
    ASSERT_EQ(g_list_length(keys), 1u);
    EXPECT_EQ(keys->data, key) << "the keys stay the table's";
    g_list_free(keys);
}

TEST_F(HashTable, DirectKeysAreFoundByIdentity)
{
    zel_hash_table *direct = nullptr;
    _common_init_hash_table(&direct, nullptr, nullptr);
    char here[] = "one";
    char there[] = "one";
    char value[] = "1";
    _common_write_to_hash_table(direct, here, value);
    EXPECT_EQ(_common_read_from_hash_table(direct, here), value);
    EXPECT_EQ(_common_read_from_hash_table(direct, there), nullptr);
    _common_write_to_hash_table(direct, reinterpret_cast<void *>(7), value);
    EXPECT_EQ(_common_get_hash_table_size(direct), 2);
    _common_remove_from_hash_table(direct, here);
    EXPECT_EQ(_common_read_from_hash_table(direct, reinterpret_cast<void *>(7)), value);
    EXPECT_EQ(_common_get_hash_table_size(direct), 1);
    _common_deinit_hash_table(direct);
}

TEST_F(HashTable, RewriteKeepsTheStoredKey)
{
    char *stored = g_strdup("key");
    _common_write_to_hash_table(table, stored, g_strdup("old"));
    write({{"key", "new"}});
    EXPECT_EQ(size(), 1);
    EXPECT_EQ(read("key"), "new");
    EXPECT_EQ(released_values, std::vector<std::string>{"old"});
    EXPECT_EQ(released_keys, std::vector<std::string>{"key"});
    GList *keys = _common_get_keys_from_hash_table(table);
    EXPECT_EQ(keys->data, stored);
    g_list_free(keys);
}

TEST_F(HashTable, RemoveAndDeinitReleaseKeysAndValues)
{
    write({{"a", "1"}, {"b", "2"}, {"c", "3"}});
    _common_remove_from_hash_table(table, "b");
    EXPECT_TRACE(begin("_common_remove_from_hash_table"));
    EXPECT_EQ(released_keys, std::vector<std::string>{"b"});
    EXPECT_EQ(released_values, std::vector<std::string>{"2"});
    _common_remove_from_hash_table(table, "b");
    EXPECT_TRACE(begin("_common_remove_from_hash_table"));
    EXPECT_EQ(size(), 2);
    _common_deinit_hash_table(table);
    EXPECT_TRACE(begin("_common_deinit_hash_table"));
    EXPECT_EQ(std::set(released_values.begin(), released_values.end()), (std::set<std::string>{"1", "2", "3"}));
    EXPECT_EQ(released_keys.size(), 3u);
    table = nullptr;
}

TEST_F(HashTable, AddonIsCalledUnderTheLockForAPresentKey)
{
    write({{"a", "1"}});
    void *value = _common_read_from_hash_table_addon(table, "a", look_at);
    EXPECT_TRACE(whole("_common_read_from_hash_table_addon"));
    EXPECT_EQ(called, 1);
    EXPECT_TRUE(lock_was_held);
    EXPECT_EQ(seen_value, value);
    EXPECT_STREQ(static_cast<char *>(value), "1");
    EXPECT_EQ(_common_read_from_hash_table_addon(table, "b", look_at), nullptr);
    EXPECT_TRACE(whole("_common_read_from_hash_table_addon"));
    EXPECT_EQ(called, 1);
    EXPECT_FALSE(lock_is_held());
}

TEST_F(HashTable, FindStopsAtTheFirstAcceptedEntry)
{
    write({{"a", "1"}, {"b", "2"}, {"c", "3"}});
    char wanted[] = "2";
    EXPECT_STREQ(static_cast<char *>(_common_find_in_hash_table(table, value_is, wanted)), "2");
    EXPECT_TRACE(begin("_common_find_in_hash_table"));
    answer = 1;
    EXPECT_EQ(_common_find_in_hash_table(table, predicate, wanted), seen_value);
    EXPECT_EQ(called, 1);
    EXPECT_EQ(seen_data, wanted);
    EXPECT_TRUE(lock_was_held);
    answer = 0;
    EXPECT_EQ(_common_find_in_hash_table(table, predicate, wanted), nullptr);
    EXPECT_EQ(called, 4);
}

TEST_F(HashTable, FindAndRemoveActsOnExactlyOne)
{
    write({{"a", "1"}, {"b", "2"}});
    char key[] = "a";
    for (const int refusal : {0, 2, -1, 256}) {
        answer = refusal;
        _common_find_and_remove_in_hash_table(table, predicate, key);
        EXPECT_EQ(read("a"), "1") << refusal;
    }
    EXPECT_EQ(called, 4);
    EXPECT_EQ(seen_key, key);
    EXPECT_EQ(seen_data, key) << "the key comes again as the third argument";
    EXPECT_STREQ(static_cast<char *>(seen_value), "1");
    EXPECT_TRUE(lock_was_held);
    char absent[] = "z";
    _common_find_and_remove_in_hash_table(table, predicate, absent);
    EXPECT_EQ(called, 4);
    answer = 1;
    _common_find_and_remove_in_hash_table(table, predicate, key);
    EXPECT_TRACE();
    EXPECT_EQ(read("a"), "");
    EXPECT_EQ(released_keys, std::vector<std::string>{"a"});
    EXPECT_EQ(released_values, std::vector<std::string>{"1"});
    EXPECT_EQ(size(), 1);
}

TEST_F(HashTable, ForeachRemoveTakesAllThatAreAccepted)
{
    write({{"a", "1"}, {"b", "2"}, {"c", "1"}});
    char wanted[] = "1";
    _common_foreach_remove_in_hash_table(table, value_is, wanted);
    EXPECT_TRACE();
    EXPECT_EQ(released_values, (std::vector<std::string>{"1", "1"}));
    EXPECT_EQ(size(), 1);
    EXPECT_EQ(read("b"), "2");
    _common_foreach_remove_in_hash_table(table, predicate, wanted);
    EXPECT_TRUE(lock_was_held);
    EXPECT_EQ(seen_data, wanted);
    EXPECT_EQ(size(), 1);
}

TEST_F(HashTable, ForeachReadVisitsAllWithoutTheLock)
{
    EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, nullptr), 0);
    write({{"a", "1"}, {"b", "2"}, {"c", "3"}});
    for (const int result : {0, 1}) {
        answer = result;
        called = 0;
        lock_was_held = true;
        EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, table), 3);
        EXPECT_TRACE(begin("_common_foreach_read_from_hash_table"));
        EXPECT_EQ(called, 3);
        EXPECT_EQ(seen_data, table);
        EXPECT_FALSE(lock_was_held);
    }
    EXPECT_EQ(size(), 3);
}

TEST_F(HashTable, NullArgumentsAreRejected)
{
    write({{"a", "1"}});
    char key[] = "a";
    const auto rejected = [](const std::string &function, bool begins = true) {
        EXPECT_TRACE(begins ? begin(function) : trace(), critical(function, "Invalid params"));
    };
    _common_init_hash_table(nullptr, release_key, release_value);
    rejected("_common_init_hash_table");
    _common_deinit_hash_table(nullptr);
    rejected("_common_deinit_hash_table");
    const void *const arguments[][3] = {{nullptr, key, key}, {table, nullptr, key}, {table, key, nullptr}};
    for (const auto &[record, a_key, a_value] : arguments) {
        _common_write_to_hash_table(record ? table : nullptr, const_cast<void *>(a_key), const_cast<void *>(a_value));
        const std::string function = "_common_write_to_hash_table";
        EXPECT_TRACE(begin(function), info(function, addresses(record, a_key, a_value)),
                     critical(function, "Invalid params"));
    }
    EXPECT_EQ(_common_read_from_hash_table(nullptr, key), nullptr);
    rejected("_common_read_from_hash_table");
    EXPECT_EQ(_common_read_from_hash_table_addon(nullptr, key, look_at), nullptr);
    rejected("_common_read_from_hash_table_addon");
    EXPECT_EQ(_common_read_from_hash_table_addon(table, key, nullptr), nullptr);
    rejected("_common_read_from_hash_table_addon");
    _common_remove_from_hash_table(nullptr, key);
    rejected("_common_remove_from_hash_table");
    EXPECT_EQ(_common_find_in_hash_table(nullptr, predicate, key), nullptr);
    rejected("_common_find_in_hash_table");
    EXPECT_EQ(_common_find_in_hash_table(table, nullptr, key), nullptr);
    rejected("_common_find_in_hash_table");
    _common_find_and_remove_in_hash_table(nullptr, predicate, key);
    rejected("_common_find_and_remove_in_hash_table", false);
    _common_find_and_remove_in_hash_table(table, nullptr, key);
    rejected("_common_find_and_remove_in_hash_table", false);
    _common_foreach_remove_in_hash_table(nullptr, predicate, key);
    rejected("_common_foreach_remove_in_hash_table", false);
    _common_foreach_remove_in_hash_table(table, nullptr, key);
    rejected("_common_foreach_remove_in_hash_table", false);
    EXPECT_EQ(_common_foreach_read_from_hash_table(nullptr, predicate, key), -1);
    rejected("_common_foreach_read_from_hash_table");
    EXPECT_EQ(_common_foreach_read_from_hash_table(table, nullptr, key), -1);
    rejected("_common_foreach_read_from_hash_table");
    EXPECT_EQ(_common_get_hash_table_size(nullptr), 0);
    rejected("_common_get_hash_table_size");
    EXPECT_EQ(_common_get_hash_table_count(nullptr), 0u);
    rejected("_common_get_hash_table_count", false);
    EXPECT_EQ(_common_get_keys_from_hash_table(nullptr), nullptr);
    rejected("_common_get_keys_from_hash_table", false);
    EXPECT_EQ(called, 0);
    EXPECT_EQ(size(), 1);
    EXPECT_EQ(read("a"), "1");
}

TEST_F(HashTable, InitWithoutMemoryClearsTheVariable)
{
    zel_hash_table *other = table;
    const allocation_failure failure(1);
    _common_init_hash_table(&other, nullptr, nullptr);
    EXPECT_TRUE(failure.happened());
    EXPECT_TRACE(begin("_common_init_hash_table"), critical("_common_init_hash_table", "Memory allocation failed"));
    EXPECT_EQ(other, nullptr);
}

TEST_F(HashTable, ThreadsShareATable)
{
    constexpr int threads = 4;
    constexpr int each = 100;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < threads; ++writer)
        writers.emplace_back([this, writer] {
            for (int n = 0; n < each; ++n) {
                const std::string key = std::to_string(writer * each + n);
                _common_write_to_hash_table(table, g_strdup(key.c_str()), g_strdup("v"));
                _common_write_to_hash_table(table, g_strdup("shared"), g_strdup(key.c_str()));
                _common_read_from_hash_table_addon(table, "shared",
                                                   [](void *value) { g_free(g_strdup(static_cast<char *>(value))); });
                if (n % 2)
                    _common_remove_from_hash_table(table, key.c_str());
            }
        });
    for (std::thread &writer : writers)
        writer.join();
    EXPECT_EQ(_common_get_hash_table_size(table), threads * each / 2 + 1);
}
