/*
 * What a store holds: its tables as they are, read by position as the library reads them, and what belongs together.
 */
#ifndef ZEL_STORE_MODEL_H
#define ZEL_STORE_MODEL_H

#include "private_copy.h"
#include "zel_common_storage.h"
#include "zel_common_storage/schema.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zel_store
{

using namespace zel_storage;

/** The table that is not read by position has no enumeration of its own. */
enum : int { COLUMN_GROUP_ID = 0, COLUMN_GROUP_INDEX_VALUE, COLUMN_GROUP_TIME_STAMP };

/** One stored value with SQLite's type of it. */
struct value {
    int type = SQLITE_NULL;
    long long number = 0; /**< of an integer, or what SQLite makes of another */
    std::string text;     /**< the same as text; of a blob its bytes */

    bool is_null() const
    {
        return type == SQLITE_NULL;
    }
    /** An id: some are written as the negative number of the same 32 bits. */
    unsigned int id() const
    {
        return static_cast<unsigned int>(number);
    }
};

struct row {
    std::vector<value> columns;

    /** A column by its position; one that the row does not have is NULL. */
    const value &operator[](int column) const
    {
        static const value nothing;
        return static_cast<size_t>(column) < columns.size() ? columns[static_cast<size_t>(column)] : nothing;
    }
};

struct column {
    std::string name, type;

    bool operator==(const column &) const = default;
};

struct stored_table {
    bool exists = false;
    std::vector<column> laid_down, found; /**< as the library makes the table, and as it is */
    std::vector<row> rows;
    std::string complaint; /**< of SQLite, when not all rows could be read */
};

struct upload {
    const row *request = nullptr;
    std::vector<const row *> recipients, transfers;
};

struct item {
    const row *content = nullptr;
    std::vector<const row *> transfers;
};

struct share {
    std::string token;
    const row *notification = nullptr; /**< or NULL */
    std::vector<item> items;
};

struct group {
    const row *entry = nullptr;
    std::vector<const row *> members;
};

struct store {
    private_copy copy;
    int version = 0;
    std::map<std::string_view, stored_table> tables;

    /* What belongs together, the newest first; points into the tables. */
    std::vector<upload> uploads;
    std::vector<share> shares;
    std::vector<group> groups;
    std::vector<const row *> loose; /**< transfers of no request and no item */

    const std::vector<row> &rows(const char *table) const
    {
        return tables.at(table).rows;
    }
};

/** Whether a transfer has failed for good: it was retried as often as the store lists it. */
inline bool is_given_up(const row &transfer)
{
    return transfer[COLUMN_CONTENT_SYNC_INFO_STATUS].number == ZEL_SYNC_FAILED &&
           transfer[COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT].number > RETRY_CAP;
}

/** What narrows a view; with neither all is meant. */
struct narrowing {
    std::string request, token;

    bool is_set() const
    {
        return !request.empty() || !token.empty();
    }
};

/** Takes a copy and reads it. Throws unreadable when there is nothing to read. */
store read_store(const std::string &path, const narrowing &wanted = {});

/** The rows that a statement gives on the copy, as long as there are any. */
std::vector<row> rows_of(sqlite3 *database, const std::string &statement, std::string *complaint = nullptr);

} // namespace zel_store

#endif
