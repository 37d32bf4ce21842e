/*
 * Records the calls of one operation of the store to SQLite and the log. Repeated bare, these calls are the operation's
 * peer.
 */
#ifndef ZEL_BENCH_RECORDING_H
#define ZEL_BENCH_RECORDING_H

#include <cstdarg>
#include <functional>
#include <list>
#include <sqlite3.h>
#include <string>
#include <vector>

namespace bench
{

class recording
{
  public:
    recording() = default;
    recording(const recording &) = delete;
    recording &operator=(const recording &) = delete;

    /** Records the calls of the action. */
    void record(const std::function<void()> &action);
    /** Repeats the calls; each answer must be the recorded one. release() frees the texts handed out. */
    void replay(sqlite3 *database);
    void release();
    /** Whether any statement ran without steps, as all do that change rows. */
    bool writes = false;

    /** The active recording, or null. */
    static inline recording *current;

    /* For the stand-ins of what is recorded. */

    void note(std::function<void(recording &)> again)
    {
        calls.push_back(std::move(again));
    }
    void note_composed(const char *format, va_list arguments);
    size_t index_of(const sqlite3_stmt *statement) const;

    std::vector<std::function<void(recording &)>> calls;
    sqlite3 *database = nullptr; /**< that of the replay */
    std::vector<sqlite3_stmt *> statements;
    std::list<std::string> strings; /**< which arguments point to */
    std::vector<char *> composed;   /**< which live to the end, as they do in an operation */
    std::vector<char *> copies;
    const char *read = nullptr; /**< the last text */
};

} // namespace bench

#endif
