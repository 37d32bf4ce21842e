/*
 * Databases of their own for the measures.
 */
#ifndef ZEL_BENCH_STORE_SCRATCH_H
#define ZEL_BENCH_STORE_SCRATCH_H

#include <sqlite3.h>
#include <string>

namespace bench
{

/** A fresh store, opened by the library, with a second database of the same schema beside it for the peer. */
class scratch_store
{
  public:
    /** Below a folder; rows is run on both. */
    scratch_store(const std::string &folder, const std::string &rows);
    ~scratch_store();
    scratch_store(const scratch_store &) = delete;
    scratch_store &operator=(const scratch_store &) = delete;

    /** Makes it the library's store: the library knows one at a time. */
    void use() const;

    sqlite3 *own;
    sqlite3 *peer;

  private:
    std::string place;
};

/** Runs statements that must not fail. */
void execute(sqlite3 *database, const std::string &statements);

/** A statement that adds n rows; values names the columns of one, in which x is its number, counted from 1. */
std::string rows(const std::string &table, size_t n, const std::string &values);

/* The usual rows. */

/** Transfers: waiting uploads of one request, files of ten to a share. */
std::string transfers(size_t n, unsigned int req_id = 1);
/** Requests with the ids 1 to n. */
std::string requests(size_t n, unsigned int files = 10, unsigned int receivers = 10);
/** Recipients of one request. */
std::string recipients(size_t n, unsigned int req_id = 1);

} // namespace bench

#endif
