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

    /**
     * How each statement is used, in their order, whatever the number of rows: "exec"; "insert"; "row of 1", a
     * prepared one that is stepped once, one column being read; "rows of 17", stepped to its end, 17 columns being read
     * of each row ("rows of 1 (first 2)": of the first row 2); "some rows of 3", stepped more than once and not to its
     * end; "no row". The same several times over stands once. What is asked besides is counted: "+2 steps".
     */
    std::string shape() const;

    enum class call { log_line, compose, exec, prepare, step, column_int, column_int64, column_text, reset, finalize };

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
        int detail; /**< of a step its result, of a column its number, of a prepare the length, of an exec its callback
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
};

} // namespace bench

#endif
