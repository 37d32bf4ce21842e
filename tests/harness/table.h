// The table of the store's calls: storage/operations/, a file for each family of operations.
#ifndef ZEL_TESTS_TABLE_H
#define ZEL_TESTS_TABLE_H

#include "call.h"

#include <string>
#include <vector>

namespace zel_test
{

/// Named like the sources and the headings of the header.
inline const std::string families[] = {
    "connection", "database",        "key_value",        "received_shares", "recent_receivers",
    "transfers",  "transfer_counts", "transfer_queries", "uploads",         "upload_report",
    "wipe"};

/// A call with its outcomes, or a line that stands between calls.
struct table_entry {
    size_t line;       ///< its number in the file
    std::string text;  ///< its lines, without the last line's end
    call made;         ///< without a name if it is no call
    std::string given; ///< statements that are run before it; "closed;" in front: the store is closed
    bool is_first;     ///< of its operation in the file
};

std::string table_file(const std::string &family);
std::vector<table_entry> read_table(const std::string &family);
/// Whether ZEL_TEST_RECORD names this family, or "statements": what is met goes into its file.
bool is_recorded(const std::string &family);
/// Writes another file first, so that a program that is stopped leaves the table as it was.
void write_file(const std::string &file, const std::string &content);

/// A text in lines of at most 120 characters, broken at single blanks outside of quotation marks. The lines after the
/// first are indented by eight.
std::string wrapped(const std::string &text);

/// The first call that each operation has in the world as it is; without the executors and init.
std::vector<call> first_calls();

} // namespace zel_test

#endif
