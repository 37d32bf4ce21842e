/*
 * A store as it can be looked at while others use it: a private copy, taken without a lock, a write or a connection to
 * the file, so that none of them notices. What a writer has broken off is undone in the copy. All rows that can be read
 * stand in a database in memory that has the tables as the library makes them, so that a question never meets a missing
 * column or a damaged page.
 */
#ifndef ZEL_STORE_STORE_H
#define ZEL_STORE_STORE_H

#include <memory>
#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <stdexcept>
#include <string>

namespace zel_store
{

using json = nlohmann::ordered_json;

enum exit_status : int { FINE = 0, FINDINGS = 1, CANNOT_READ = 2 };

/** Why nothing can be shown, and what to do; for the person at the terminal. */
struct unreadable : std::runtime_error {
    using runtime_error::runtime_error;
};

struct closer {
    void operator()(sqlite3 *database) const
    {
        sqlite3_close(database);
    }
};
using connection = std::unique_ptr<sqlite3, closer>;

/** The rows that a statement gives, as objects; what goes wrong behind some of them is put into the complaint. */
json rows_of(sqlite3 *database, const std::string &statement, std::string *complaint = nullptr);

struct store {
    /** Throws unreadable when the store is missing, closed to this user, or written too fast for a whole copy. */
    explicit store(const std::string &path, bool with_secrets = false);

    json file;                     /**< path, owner, mode, size, what lies beside it, who has it open */
    json findings = json::array(); /**< what is wrong with the file as such: it cannot be read as it was meant */
    connection database;           /**< the tables, and attached as "copy" the file itself */
    bool is_readable = true;
    bool shows_secrets = false;

    /**
     * Rows of the tables. SQL functions give the words of the public headers (upload_status, push_status, app_type,
     * sync_type, sync_status, read_state) and the limits of the store (batch_limit, retry_cap, group_limit). Numbers,
     * tokens and keys are shortened unless secrets are shown.
     */
    json rows(const std::string &statement) const;
};

/** The file that the user means: itself, or the store in a data folder. */
std::string store_path(const std::string &named);

/** A document as it is written out: bytes that are no text are replaced, since JSON cannot hold them. */
std::string text_of(const json &document, int indentation = 2);

} // namespace zel_store

#endif
