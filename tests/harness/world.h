// The store's file, a small world of rows in it, and what changes there.
#ifndef ZEL_TESTS_WORLD_H
#define ZEL_TESTS_WORLD_H

#include "interpose.h"
#include "platform.h"
#include "zel_common.h"
#include "zel_common_storage.h"
#include "zel_common_storage/connection.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace zel_test
{

inline const std::string database_folder = ZEL_APPS_ROOT "quillo.service/data";
inline const std::string database_file = database_folder + "/.quillo_service.db";

/// A connection that does not go through the library (nor through the stand-ins of interpose.h).
class raw_database
{
  public:
    raw_database();
    void run(const std::string &text)
    {
        rows(text);
    }
    std::vector<std::vector<std::string>> rows(const std::string &query);
    /// The first column of the first row.
    std::string value(const std::string &query);

  private:
    std::shared_ptr<sqlite3> handle_;
};

/// The cells of all rows by table and id (by the id's length first: numbers in their order); the names of the columns
/// stand without an id. The version counts as a table.
using rows_of_tables = std::map<std::tuple<std::string, size_t, std::string>, std::vector<std::string>>;
/// Read through a connection of its own that also tests the file's integrity.
rows_of_tables stored_rows();
/// What became of the rows, in a line: "+table (row)", "-table ids", "~table ids column=value".
std::string changes(const rows_of_tables &before, const rows_of_tables &after);
/// Whether each row of `now` is one of the others', and all that these have in common is there.
bool lies_between(const rows_of_tables &now, const std::vector<rows_of_tables> &others);

enum world_size {
    FIRST_ROWS, ///< one in each table
    ROWS,
};
/// Fills the tables, with the prefix in front of each text.
void furnish(world_size size);

/// The file as world.sql fills it, to start from again and again.
class world
{
  public:
    /// Makes the file, with this in front of every text from now on. Leaves the store closed.
    explicit world(world_size size, const std::string &front = "");
    /// Puts the file back, runs a statement text, and has the library open the store as in a new process: it knows
    /// nothing of the schema unless warm. With "closed;" in front of the text the store stays closed.
    void begin(const std::string &given = "", bool warm = false) const;
    /// The stored rows. They are read again if the file is neither the restored one nor the last one read.
    std::shared_ptr<const rows_of_tables> rows() const;
    /// Closes the store, which fails if a statement was not finalized.
    static void end();

  private:
    scripted_clock clock_{6000000000, 0};
    struct state {
        std::string bytes;
        std::shared_ptr<const rows_of_tables> rows;
    } first_;
    mutable state last_;
};

std::string content_of(const std::string &file);
/// An empty database folder, or one with this file in it, on the disk of the tests from now on.
void put_file(const std::string &content);

} // namespace zel_test

#endif
