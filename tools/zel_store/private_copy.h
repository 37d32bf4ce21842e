/*
 * A private copy of a store's file, taken while others use it: without a lock, a write or a connection to the file, so
 * that none of them notices. A connection to the copy undoes there what a writer has broken off.
 */
#ifndef ZEL_STORE_PRIVATE_COPY_H
#define ZEL_STORE_PRIVATE_COPY_H

#include <memory>
#include <optional>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace zel_store
{

/** Why nothing can be shown, and what to do; for the person at the terminal. */
struct unreadable : std::runtime_error {
    using runtime_error::runtime_error;
};

struct process {
    pid_t id;
    std::string name;
};

/** The file as the directory and its first bytes tell it. */
struct file_facts {
    std::string path;
    struct stat status = {};
    std::optional<size_t> journal_size, log_size; /**< of the rollback journal and of the write-ahead log beside it */
    bool is_database = false;                     /**< begins as an SQLite 3 file does, or is empty */
    bool uses_log = false;                        /**< a write-ahead log is set for good */
    unsigned int page_size = 0, stored_pages = 0; /**< as the file says itself */
    std::vector<process> openers;
    bool sees_all_processes = true; /**< false: processes of other users may have it open too */

    /** Shorter than it says, and nothing beside it holds what it lacks. */
    bool is_cut() const
    {
        return !journal_size.value_or(0) && !log_size.value_or(0) &&
               static_cast<unsigned long long>(page_size) * stored_pages >
                   static_cast<unsigned long long>(status.st_size);
    }
};

struct closer {
    void operator()(sqlite3 *database) const
    {
        sqlite3_close(database);
    }
};
using connection = std::unique_ptr<sqlite3, closer>;

struct private_copy {
    file_facts facts;
    connection database;   /**< of the copy; it is nobody else's and has no name any more */
    std::string complaint; /**< of SQLite about the file as a whole; empty when it opened */
};

/** The file that the user means: itself, or the store in a data folder. */
std::string store_path(const std::string &named);

/**
 * Copies the store. Throws unreadable when it is missing or closed to this user, or when it is written so fast that no
 * copy is consistent for some seconds.
 */
private_copy take_copy(const std::string &path);

} // namespace zel_store

#endif
