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

void see(std::initializer_list<void *> arguments)
{
    ++called;
    seen = arguments;
    lock_was_held = is_locked(table->mutex);
}

gboolean predicate(void *key, void *value, void *data)
{
    see({key, value, data});
    return answer;
}

// Any value but 0 means yes.
gboolean value_is(void *, void *value, void *wanted)
{
    return std::string(static_cast<char *>(value)) == static_cast<char *>(wanted) ? 2 : 0;
}

void look_at(void *value)
{
    see({value});
}

class HashTable : public testing::Test
{
  protected:
    HashTable()
    {
        _common_init_hash_table(&table, release, release);
        EXPECT_TRACE(whole("_common_init_hash_table"));
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

    std::string read(const std::string &key)
    {
        const void *value = _common_read_from_hash_table(table, key.c_str());
        EXPECT_TRACE(begin("_common_read_from_hash_table"));
        return value ? static_cast<const char *>(value) : "";
    }

    int size()
    {
        const auto count = static_cast<int>(_common_get_hash_table_count(table));
        EXPECT_EQ(_common_get_hash_table_size(table), count);
        EXPECT_TRACE(begin("_common_get_hash_table_size"));
        return count;
    }

    void *first_key()
    {
        GList *keys = _common_get_keys_from_hash_table(table);
        EXPECT_TRACE();
        EXPECT_EQ(static_cast<int>(g_list_length(keys)), size());
        void *key = keys ? keys->data : nullptr;
        g_list_free(keys);
        return key;
    }
};

} // namespace

TEST_F(HashTable, StringKeysAreComparedByContentAndStayOnRewrite)
{
    EXPECT_EQ(first_key(), nullptr);
    char *key = g_strdup("one");
    char *value = g_strdup("old");
    char addresses[100];
    std::snprintf(addresses, sizeof addresses, "%p %p %p", static_cast<void *>(table), static_cast<void *>(key),
                  static_cast<void *>(value));
    _common_write_to_hash_table(table, key, value);
    EXPECT_TRACE(begin("_common_write_to_hash_table"), info("_common_write_to_hash_table", addresses));
    EXPECT_EQ(read("one"), "old");
    EXPECT_EQ(read("two"), "");
    write({{"one", "new"}});
    EXPECT_EQ(read("one"), "new");
    EXPECT_EQ(released, (texts{"one", "old"}));
    EXPECT_EQ(first_key(), key);
    EXPECT_EQ(size(), 1);
}

TEST_F(HashTable, DirectKeysAreComparedByIdentity)
{
    zel_hash_table *direct = nullptr;
    _common_init_hash_table(&direct, nullptr, nullptr);
    char here[] = "one";
    char there[] = "one";
    _common_write_to_hash_table(direct, here, here);
    _common_write_to_hash_table(direct, reinterpret_cast<void *>(7), there);
    EXPECT_EQ(_common_read_from_hash_table(direct, here), here);
    EXPECT_EQ(_common_read_from_hash_table(direct, there), nullptr);
    _common_remove_from_hash_table(direct, here);
    EXPECT_EQ(_common_read_from_hash_table(direct, reinterpret_cast<void *>(7)), there);
    EXPECT_EQ(_common_get_hash_table_size(direct), 1);
    _common_deinit_hash_table(direct);
}

TEST_F(HashTable, RemoveAndDeinitReleaseKeysAndValues)
{
    write({{"a", "1"}, {"b", "2"}});
    for (int i = 0; i < 2; ++i) { // the second time it is absent
        _common_remove_from_hash_table(table, "b");
        EXPECT_TRACE(begin("_common_remove_from_hash_table"));
        EXPECT_EQ(released, (texts{"b", "2"}));
    }
    EXPECT_EQ(size(), 1);
    _common_deinit_hash_table(table);
    EXPECT_TRACE(begin("_common_deinit_hash_table"));
    EXPECT_EQ(released, (texts{"b", "2", "a", "1"}));
    table = nullptr;
}

TEST_F(HashTable, AddonIsCalledUnderTheLockForAPresentKey)
{
    write({{"a", "1"}});
    void *value = _common_read_from_hash_table_addon(table, "a", look_at);
    EXPECT_TRACE(whole("_common_read_from_hash_table_addon"));
    EXPECT_TRUE(lock_was_held);
    EXPECT_EQ(seen, std::vector{value});
    EXPECT_STREQ(static_cast<char *>(value), "1");
    EXPECT_EQ(_common_read_from_hash_table_addon(table, "b", look_at), nullptr);
    EXPECT_TRACE(whole("_common_read_from_hash_table_addon"));
    EXPECT_EQ(called, 1);
}

TEST_F(HashTable, FindStopsAtTheFirstAcceptedEntry)
{
    write({{"a", "1"}, {"b", "2"}, {"c", "3"}});
    char wanted[] = "2";
    EXPECT_STREQ(static_cast<char *>(_common_find_in_hash_table(table, value_is, wanted)), "2");
    EXPECT_TRACE(begin("_common_find_in_hash_table"));
    EXPECT_EQ(_common_find_in_hash_table(table, predicate, wanted), nullptr);
    EXPECT_EQ(called, 3);
    EXPECT_TRUE(lock_was_held);
    answer = 1;
    EXPECT_EQ(_common_find_in_hash_table(table, predicate, wanted), seen[1]);
    EXPECT_EQ(called, 4);
    EXPECT_EQ(seen[2], wanted);
}

TEST_F(HashTable, FindAndRemoveActsOnExactlyOne)
{
    write({{"a", "1"}, {"b", "2"}});
    char key[] = "a";
    char absent[] = "z";
    for (const int refusal : {0, 2, -1, 256}) {
        answer = refusal;
        _common_find_and_remove_in_hash_table(table, predicate, key);
        EXPECT_EQ(read("a"), "1") << refusal;
    }
    EXPECT_EQ(seen[0], key);
    EXPECT_STREQ(static_cast<char *>(seen[1]), "1");
    EXPECT_EQ(seen[2], key) << "the key comes again as the third argument";
    EXPECT_TRUE(lock_was_held);
    answer = 1;
    _common_find_and_remove_in_hash_table(table, predicate, absent);
    EXPECT_EQ(called, 4);
    _common_find_and_remove_in_hash_table(table, predicate, key);
    EXPECT_TRACE();
    EXPECT_EQ(released, (texts{"a", "1"}));
    EXPECT_EQ(size(), 1);
}

TEST_F(HashTable, ForeachRemovesOrReadsEveryEntry)
{
    EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, nullptr), 0);
    write({{"a", "1"}, {"b", "2"}, {"c", "1"}});
    for (const int result : {0, 1}) {
        answer = result;
        EXPECT_EQ(_common_foreach_read_from_hash_table(table, predicate, table), 3);
        EXPECT_TRACE(begin("_common_foreach_read_from_hash_table"));
        EXPECT_EQ(seen[2], table);
        EXPECT_FALSE(lock_was_held) << "the walk takes no lock";
    }
    EXPECT_EQ(called, 6);
    EXPECT_EQ(size(), 3);

    char wanted[] = "1";
    _common_foreach_remove_in_hash_table(table, value_is, wanted);
    EXPECT_TRACE();
    EXPECT_EQ(released, (texts{"a", "1", "c", "1"}));
    answer = 0;
    _common_foreach_remove_in_hash_table(table, predicate, wanted);
    EXPECT_EQ(seen[2], wanted);
    EXPECT_TRUE(lock_was_held);
    EXPECT_EQ(read("b"), "2");
    EXPECT_EQ(size(), 1);
}

TEST_F(HashTable, NullArgumentsAreRejected)
{
    write({{"a", "1"}});
    char key[] = "a";
    const std::string body = "Invalid params";
    EXPECT_NULLS_REJECTED(1, 0, body, _common_init_hash_table, &table, release, release);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_deinit_hash_table, table);
    EXPECT_NULLS_REJECTED(1, nullptr, body, _common_read_from_hash_table, table, key);
    EXPECT_REJECTED(nullptr, body, _common_read_from_hash_table_addon, nullptr, key, look_at);
    EXPECT_REJECTED(nullptr, body, _common_read_from_hash_table_addon, table, key, nullptr);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_remove_from_hash_table, table, key);
    EXPECT_NULLS_REJECTED(2, nullptr, body, _common_find_in_hash_table, table, predicate, key);
    EXPECT_NULLS_REFUSED(2, 0, body, _common_find_and_remove_in_hash_table, table, predicate, key);
    EXPECT_NULLS_REFUSED(2, 0, body, _common_foreach_remove_in_hash_table, table, predicate, key);
    EXPECT_NULLS_REJECTED(2, -1, body, _common_foreach_read_from_hash_table, table, predicate, key);
    EXPECT_NULLS_REJECTED(1, 0, body, _common_get_hash_table_size, table);
    EXPECT_NULLS_REFUSED(1, 0u, body, _common_get_hash_table_count, table);
    EXPECT_NULLS_REFUSED(1, nullptr, body, _common_get_keys_from_hash_table, table);

    const std::string write_name = "_common_write_to_hash_table";
    for (const auto &[record, a_key, a_value] : {std::tuple<zel_hash_table *, char *, char *>{nullptr, key, key},
                                                 {table, nullptr, key},
                                                 {table, key, nullptr}}) {
        _common_write_to_hash_table(record, a_key, a_value);
        const std::string lines = take_trace().text;
        EXPECT_TRUE(lines.starts_with(begin(write_name).text + "INFO " + write_name + ": ")) << lines;
        EXPECT_TRUE(lines.ends_with("\n" + critical(write_name, body).text)) << lines;
    }
    EXPECT_EQ(called, 0);
    EXPECT_EQ(size(), 1);
    EXPECT_EQ(read("a"), "1");

    zel_hash_table *other = table;
    const allocation_failure failure(1);
    EXPECT_REJECTED(0, "Memory allocation failed", _common_init_hash_table, &other, nullptr, nullptr);
    EXPECT_TRUE(failure.happened());
    EXPECT_EQ(other, nullptr);
}

TEST_F(HashTable, ThreadsShareATable)
{
    constexpr int each = 100;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer)
        writers.emplace_back([writer] {
            for (int n = 0; n < each; ++n) {
                const std::string key = std::to_string(writer * each + n);
                _common_write_to_hash_table(table, g_strdup(key.c_str()), g_strdup("v"));
                _common_write_to_hash_table(table, g_strdup("shared"), g_strdup(key.c_str()));
                _common_read_from_hash_table_addon(table, "shared",
                                                   [](void *value) { *static_cast<char *>(value) = 'x'; });
                if (n % 2)
                    _common_remove_from_hash_table(table, key.c_str());
            }
        });
    for (std::thread &writer : writers)
        writer.join();
    EXPECT_EQ(_common_get_hash_table_size(table), 4 * each / 2 + 1);
}
