/*
 * A store and a trace as they can be looked at while others use them. A store stands in a database in memory, and SQL
 * answers and puts the lines together; a trace is added up line by line. What comes out of them can hold any bytes, and
 * reaches the terminal through shown() alone.
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

/** A database in memory. */
struct connection {
    std::unique_ptr<sqlite3, int (*)(sqlite3 *)> handle;

    connection();

    /** The rows that statements give, as objects; up to where one fails, if there is somebody to complain to. */
    json rows(const std::string &statements, const texts &arguments = {}, std::string *complaint = nullptr) const;
};

/**
 * A private copy of a store, taken without a lock, a write or a connection to the file, so that nobody notices. What a
 * writer has broken off is undone in the copy. The database has the tables as the library makes them, filled with all
 * rows that can be read; ids are unsigned. A column that has a vocabulary has its word in one more, NAME_word, which
 * begins with a question mark when there is none. limits(batch, retries, groups) are the store's, and is_unused
 * is true when its owner has no process that has it open; "copy" is the file.
 */
struct store : connection {
    /** Throws unreadable when the store is missing, closed to this user, or written too fast for a whole copy. */
    explicit store(const std::string &named);

    /** Adds what is wrong with some rows, if there are any; docs/database.md says what it means and what to do. */
    void find(const std::string &kind, const json &rows);

    json file;                     /**< path, owner, mode, size, what lies beside it, who has it open */
    json findings = json::array(); /**< what is wrong with the file as such: it cannot be read as it was meant */
    bool is_readable = true, has_all_rows = true;
};

struct options {
    std::string store = ZEL_DATABASE, request, token, trace, timeline;
    texts copied; /**< the store, if it is not that above, and the copy */
    bool shows_secrets = false, as_json = false, shows_tree = false, uses_log = false;
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
