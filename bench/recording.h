/*
 * What an operation of the store asks of SQLite and the log, recorded while it runs once, so that the same can be asked
 * again bare: that is the operation's peer.
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
    /** Records what the action asks. */
    explicit recording(const std::function<void()> &action);
    recording(const recording &) = delete;
    recording &operator=(const recording &) = delete;

    /** Asks the same; each answer has to be the recorded one. The texts handed out are freed by release(). */
    void replay(sqlite3 *database);
    void release();
    /** Whether any statement was run otherwise than by steps: that is how all that change rows are run. */
    bool writes() const;
    /**
     * What was asked, in its order and whatever the number of rows: "exec", "insert", for each step "row of 17", 17
     * columns being read, or "end"; what comes several times in a row stands once. Behind it the number of statements
     * that were run, if more than one, of the texts composed, if another, and of the copies, if more than texts read.
     */
    std::string shape() const;

    /** That which is recording now; null when none is. */
    static inline recording *current;

    /* For the stand-ins of what is recorded. */

    void note(std::function<void(recording &)> again)
    {
        calls.push_back(std::move(again));
    }
    void note_composed(const char *format, va_list arguments);
    size_t index_of(const sqlite3_stmt *statement) const;

    std::vector<std::function<void(recording &)>> calls;
    std::vector<std::pair<std::string, int>> parts; /**< of the shape, with the number of columns */
    int texts = 0, surplus_copies = 0;
    sqlite3 *database = nullptr; /**< that of the replay */
    std::vector<sqlite3_stmt *> statements;
    std::list<std::string> strings; /**< which arguments point to */
    std::vector<char *> composed;   /**< which live to the end, as they do in an operation */
    std::vector<char *> copies;
    const char *read = nullptr; /**< the last text */
};

} // namespace bench

#endif
