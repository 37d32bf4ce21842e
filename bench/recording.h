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

    /** Asks the same; each answer has to be the recorded one. */
    void replay(sqlite3 *database);

    /** Frees the copies of texts that are the last replay's result. */
    void release();

    /**
     * What was asked, in its order and whatever the number of rows: "exec", "insert", for each step "row of 17", 17
     * columns being read, or "end"; what comes several times in a row stands once. Behind it the number of statements
     * that were run, if more than one, and of the texts composed, if another.
     */
    std::string shape() const;

    /** copy: of the text that was read last. From step on: of a prepared statement. */
    enum class call {
        log_line,
        compose,
        copy,
        exec,
        prepare,
        step,
        column_int,
        column_int64,
        column_text,
        reset,
        finalize
    };

    /* Called by the stand-ins for what is recorded. */
    void note(call what, const sqlite3_stmt *statement = nullptr, int detail = 0);
    void note_text(call what, const char *text, int detail);
    void note_composed(const char *format, va_list arguments);
    void note_prepared(const char *text, int length, sqlite3_stmt *statement);

    /** That which is recording now; null when none is. */
    static inline recording *current;

  private:
    struct event {
        call what;
        int which;  /**< of the statements prepared, or of the texts */
        int detail; /**< of a step or finalize its result, of a column its number, of a prepare the length, of an exec
                     * its callback
                     */
    };
    struct text {
        std::string content; /**< or the format of what is composed */
        std::vector<unsigned long long> arguments = {};
    };
    std::vector<event> events_;
    std::vector<text> texts_;
    std::list<std::string> strings_; /**< which arguments point to */
    std::vector<sqlite3_stmt *> statements_;
    std::vector<char *> composed_; /**< which live to the end, as they do in an operation */
    std::vector<char *> copies_;
};

} // namespace bench

#endif
