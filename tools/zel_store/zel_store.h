/*
 * A store and a trace as they can be looked at while others use them. SQL answers questions about a store and puts the
 * lines together; a trace is added up line by line. What comes out of them can hold any bytes, and reaches the terminal
 * through shown() alone.
 */
#ifndef ZEL_STORE_H
#define ZEL_STORE_H

#include <glib.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using json = nlohmann::ordered_json;
using texts = std::vector<std::string>;

enum exit_status : int { FINE = 0, FINDINGS = 1, CANNOT_READ = 2 };

/** Is thrown when nothing can be shown: why, and what to do, for the person at the terminal. */
using unreadable = std::runtime_error;

/** Is thrown when a place of the store is damaged; the rest can be salvaged. */
struct damaged : unreadable {
    using unreadable::unreadable;
};

/** A database in memory; what is too much for the memory lies in private files (private_copy.h). */
struct connection {
    std::unique_ptr<sqlite3, int (*)(sqlite3 *)> handle;
    long long steps = 0; /**< of SQLite's machine, in thousands, that its statements have taken */

    connection();
    connection(const connection &) = delete;

    /** Ends with unreadable what takes more thousands of steps or seconds, or hands out more bytes, from now on. */
    void limit(long long thousand_steps, long long seconds, long long bytes);

    /**
     * The rows that statements give, as objects; up to where one fails, if there is somebody to complain to. Throws
     * damaged when that is for damage, unreadable otherwise.
     */
    json rows(const std::string &statements, const texts &arguments = {}, std::string *complaint = nullptr) const;

  private:
    long long steps_allowed, seconds_allowed; // of this process's processor time: a step on a long text takes longer
    mutable long long bytes_allowed;
};

/**
 * A private copy of a store, taken without a lock, a write or a connection to the file, so that nobody notices. What a
 * writer has broken off is undone in the copy. The database has the tables as the library lays them down, each as a
 * view by its name; ids are unsigned. A column that has a vocabulary has its word in one more, NAME_word, which begins
 * with a question mark when there is none. counters(name, seq) holds the highest row ids, limits(batch, retries,
 * groups) are the store's, and is_unused is true when it is known that no process has the store open; "copy" is the
 * file.
 */
struct store : connection {
    /** Throws unreadable when the store is missing, closed to this user, or written too fast for a whole copy. */
    explicit store(const std::string &named);

    /** Keeps from each table the rows that can be read, and finds those where something is damaged. */
    void salvage();

    /** Adds what is wrong with some rows, if there are any; findings.md says what it means and what to do. */
    void find(const std::string &kind, const json &rows);

    json file;                     /**< path, owner, mode, size, what lies beside it, who has it open */
    json findings = json::array(); /**< what is wrong with the file as such: it cannot be read as it was meant */
    bool is_readable = true, has_all_rows = true;

  private:
    void lay_views();

    std::vector<std::pair<std::string, std::string>> readings; /**< by table: the statement that gives its rows */
};

/** What is known of a file without opening it: who owns it and has it open, for a person. */
std::string view_of_file(const json &file);

struct options {
    std::string store = ZEL_DATABASE, request, token, trace, timeline;
    texts copied; /**< the store, if it is not that above, and the copy */
    bool shows_secrets = false, shows_all = false, as_json = false, shows_tree = false, uses_log = false;
    double interval = 1; /**< of a watcher, in seconds */
    int views = 0;       /**< of a watcher; 0: until it is ended */
};

/** What a command ends with, for a person or a program. */
struct outcome {
    exit_status status;
    std::string view;
    json document;
};

outcome show(const options &wanted);
outcome watch(const options &wanted);
outcome check(const options &wanted);
outcome trace(const options &wanted);
outcome init(const options &wanted);
outcome copy(const options &wanted);

/** Where the output goes: its columns (0: as many as it takes) and lines; look() finds out. */
struct terminal {
    int width = 0, height = 0;
    bool is_terminal = false, has_colours = false, knows_utf8 = false;
    void look();
};
extern terminal screen;

enum colour : int { PLAIN = 0, BOLD = 1, RED = 31, GREEN = 32 }; // as terminals number them

/** What GLib has made, which is released; nothing if it is NULL. */
std::string taken(char *made);
#define FORMAT(...) taken(g_strdup_printf(__VA_ARGS__))

/** The text with control bytes, invalid UTF-8 and what turns the direction of writing shown as \xNN or \u{N}. */
std::string safe(const std::string &text);

/** A safe text in so many columns of the terminal, filled up, or cut in the middle: names differ at their ends. */
std::string fitted(const std::string &text, int columns);

/** A text as the terminal shows it: safe, coloured, and broken into lines that fit, all but the first indented. */
std::string shown(const std::string &text, int colour = PLAIN, int indentation = 4);
std::string labelled(const char *label, const std::string &text);

/** The lines that rows hold, each with a detail below it if there is one. */
std::string lines_of(const json &rows);

/** A document in ASCII alone; bytes that are no text are replaced, since JSON cannot hold them. */
std::string written(const json &document, int indentation = 2);

/** Writes to standard output, at once. Throws unreadable when it does not take everything. */
void print(std::string_view text);

/** A value of a row as a text, empty if it is NULL. */
std::string text(const json &row, const char *name);

/** Bytes as a person says them: 1.5 MiB. */
std::string amount(long long bytes);

/** All matches of a regular expression in a text, each with all its groups. */
std::vector<texts> matches(const std::string &pattern, const std::string &text);

#endif
