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
    /** Records what the action asks. */
    explicit recording(const std::function<void()> &action);
    recording(const recording &) = delete;
    recording &operator=(const recording &) = delete;

    /** Repeats the calls; each answer must be the recorded one. release() frees the texts handed out. */
    void replay(sqlite3 *database);
    void release();
    /** Whether any statement ran without steps, as all do that change rows. */
    bool writes() const;
    /**
     * The calls in their order: "exec", "insert", for each step "row of 17" (17 columns are read) or "end". Repetitions
     * are written once, so the number of rows does not matter. Three numbers can follow: of the statements if it is
     * above one, of the composed texts if it differs, of the copies if they are more than the texts read.
     */
    std::string shape() const;

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
