#include "world.h"

#include "call.h"
#include "disk.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>

namespace zel_test
{

namespace
{

/// In front of every text but those that the library knows by name.
void add_prefix(raw_database &raw)
{
    const zel_storage::sql_text quoted = zel_storage::sql("%Q", prefix.c_str());
    for (const auto &column : raw.rows("SELECT tables.name, columns.name FROM sqlite_master AS tables, "
                                       "pragma_table_info(tables.name) AS columns WHERE columns.type = 'TEXT'"))
        raw.run("UPDATE " + column[0] + " SET " + column[1] + " = " + quoted.get() + " || " + column[1] + " WHERE " +
                column[1] + " <> '' AND " + column[1] + " NOT LIKE 'evt%'");
}

} // namespace

raw_database::raw_database()
{
    std::filesystem::create_directories(database_folder);
    sqlite3 *opened = nullptr;
    EXPECT_EQ(sqlite3_open(database_file.c_str(), &opened), SQLITE_OK);
    handle_.reset(opened, sqlite3_close);
}

std::vector<std::vector<std::string>> raw_database::rows(const std::string &query)
{
    std::vector<std::vector<std::string>> all;
    const auto append = [](void *rows, int count, char **values, char **) {
        auto &row = static_cast<decltype(all) *>(rows)->emplace_back();
        for (int i = 0; i < count; ++i)
            row.push_back(values[i] ? without_prefix(values[i]) : "NULL");
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(handle_.get(), query.c_str(), append, &all, nullptr), SQLITE_OK)
        << sqlite3_errmsg(handle_.get()) << " in " << query.substr(0, 1000);
    return all;
}

std::string raw_database::value(const std::string &query)
{
    const auto all = rows(query);
    return all.empty() ? "none" : all[0][0];
}

rows_of_tables stored_rows()
{
    raw_database raw;
    EXPECT_EQ(raw.value("PRAGMA integrity_check"), "ok");
    rows_of_tables all = {{{"version", 0, ""}, {"version"}}, {{"version", 1, "1"}, raw.rows("PRAGMA user_version")[0]}};
    for (const auto &table :
         raw.rows("SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%'")) {
        for (const auto &column : raw.rows("SELECT name FROM pragma_table_info('" + table[0] + "')"))
            all[{table[0], 0, ""}].push_back(column[0]);
        for (auto &row : raw.rows("SELECT * FROM " + table[0]))
            all.emplace(std::tuple(table[0], row[0].size(), row[0]), std::move(row));
    }
    return all;
}

std::string changes(const rows_of_tables &before, const rows_of_tables &after)
{
    std::string all;
    for (const auto &[key, row] : after)
        if (const auto &[table, length, id] = key; !before.contains(key)) {
            std::string cells;
            for (size_t i = 0; length && i < row.size(); ++i)
                cells += (cells.empty() ? "" : ",") + shown(row[i].c_str());
            all += " +" + table + " (" + cells + ")";
        }
    std::map<std::pair<std::string, std::string>, std::string> ids; // by table and what became of them
    for (const auto &[key, row] : before) {
        const auto &[table, length, id] = key;
        const auto now = after.find(key);
        std::string change;
        for (size_t i = 0; now != after.end() && i < row.size(); ++i)
            if (row[i] != now->second[i])
                change += " " + before.at({table, 0, ""})[i] + "=" + shown(now->second[i].c_str());
        if (length && (now == after.end() || !change.empty())) {
            std::string &known = ids[{(change.empty() ? " -" : " ~") + table, change}];
            known += (known.empty() ? " " : ",") + id;
        }
    }
    for (const auto &[what, which] : ids)
        all += what.first + which + what.second;
    return all;
}

bool lies_between(const rows_of_tables &now, const std::vector<rows_of_tables> &others)
{
    std::map<rows_of_tables::value_type, size_t> holders;
    for (const rows_of_tables &other : others)
        for (const auto &row : other)
            ++holders[row];
    return std::all_of(now.begin(), now.end(), [&](const auto &row) { return holders.erase(row) > 0; }) &&
           std::none_of(holders.begin(), holders.end(), [&](const auto &it) { return it.second == others.size(); });
}

void furnish(world_size size)
{
    raw_database raw;
    raw.run(content_of(ZEL_TEST_WORLD));
    if (size == FIRST_ROWS)
        for (const auto &table : raw.rows("SELECT name FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"))
            raw.run("DELETE FROM " + table[0] + " WHERE rowid > 1");
    if (!prefix.empty())
        add_prefix(raw);
}

world::world(world_size size, const std::string &front)
{
    prefix = front;
    put_file("");
    EXPECT_EQ(_common_storage_init(), ZEL_ERR_NONE);
    furnish(size);
    end();
    rows();
    first_ = last_;
}

void world::begin(const std::string &given, bool warm) const
{
    const bool is_closed = given.starts_with("closed;");
    put_file(first_.bytes);
    raw_database().run(given.substr(is_closed ? 7 : 0));
    EXPECT_TRUE(is_closed || __execute_query(warm ? "SELECT * FROM sqlite_master" : ""));
    take_trace();
}

std::shared_ptr<const rows_of_tables> world::rows() const
{
    if (!std::filesystem::exists(database_file + "-journal"))
        for (const state &known : {std::cref(first_), std::cref(last_)})
            if (content_of(database_file) == known.bytes)
                return known.rows;
    last_.rows = std::make_shared<rows_of_tables>(stored_rows());
    last_.bytes = content_of(database_file);
    return last_.rows;
}

void world::end()
{
    EXPECT_EQ(sqlite3_close(_g_sqlite_handle), SQLITE_OK) << "a statement was not finalized";
    _g_sqlite_handle = nullptr;
    take_trace();
}

std::string content_of(const std::string &file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

void put_file(const std::string &content)
{
    use_faulty_disk();
    std::filesystem::remove_all(database_folder);
    std::filesystem::create_directories(database_folder);
    std::ofstream(database_file, std::ios::binary) << content;
}

} // namespace zel_test
