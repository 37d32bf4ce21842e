/*
 * A store and a trace as they can be looked at while others use them. Both stand in a database in memory, and SQL
 * answers and puts the lines together; what comes out of it can hold any bytes, and reaches the terminal through
 * shown() alone.
 */
#ifndef ZEL_STORE_H
#define ZEL_STORE_H

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

/** Why nothing can be shown, and what to do; for the person at the terminal. */
struct unreadable : std::runtime_error {
    using runtime_error::runtime_error;
};

struct connection {
    std::unique_ptr<sqlite3, int (*)(sqlite3 *)> handle;

    explicit connection(const std::string &path = ":memory:");

    /** The rows that statements give, as objects; up to where one fails, if there is somebody to complain to. */
    json rows(const std::string &statements, const std::vector<json> &arguments = {},
              std::string *complaint = nullptr) const;
};

/**
 * A private copy of a store, taken without a lock, a write or a connection to the file, so that nobody notices. What a
 * writer has broken off is undone in the copy. The database has the tables as the library makes them, filled with all
 * rows that can be read; ids are unsigned. A column that has a vocabulary has its word in one more, NAME_word,
 * beginning with a question mark when there is none. limits(batch, retries, groups) are the store's; "copy" is the file
 * itself.
 */
struct store {
    /** Throws unreadable when the store is missing, closed to this user, or written too fast for a whole copy. */
    explicit store(const std::string &named);

    /** Adds what is wrong with some rows, if there are any; docs/database.md says what it means and what to do. */
    void find(const std::string &kind, const json &rows);

    json file;                     /**< path, owner, mode, size, what lies beside it, who has it open */
    json findings = json::array(); /**< what is wrong with the file as such: it cannot be read as it was meant */
    bool is_readable = true;
    connection database;
};

/** Of the commands below, each of which returns the exit status. */
struct options {
    std::string store, request, token, trace, timeline;
    bool shows_secrets = false, as_json = false, shows_tree = false, uses_log = false;
    double interval = 1; /**< of a watcher, in seconds */
    int views = 0;       /**< of a watcher; 0: until it is ended */
};

int show(const options &wanted);
int watch(const options &wanted);
int check(const options &wanted);
int trace(const options &wanted);
int init(const options &wanted);
int copy(const options &wanted, const std::string &target);

/** A store narrowed to what is to be seen of it, its secrets shortened; and views of it. */
store opened_for_view(const options &wanted);
json document_of(const store &read);
texts lines_of(const store &read, const options &wanted);
texts lines_of_file(const json &file);

/** Where the output goes: its columns (0: as many as it takes) and lines; look() finds out. */
struct terminal {
    int width = 0, height = 0;
    bool is_terminal = false, has_colours = false, knows_utf8 = false;
    void look();
};
extern terminal screen;

/** As terminals number them. */
enum colour : int { PLAIN = 0, BOLD = 1, RED = 31, GREEN = 32 };

/** As printf would write it. */
__attribute__((format(printf, 1, 2))) std::string format(const char *fmt, ...);

/** The text with control bytes, invalid UTF-8 and what turns the direction of writing shown as \xNN or \u{N}. */
std::string safe(std::string_view text);

/** A text as the terminal shows it in one line: safe, cut and coloured. */
std::string shown(std::string_view text, int colour = PLAIN);
void print(std::string_view text, int colour = PLAIN);

/** Prints a label and a text that is broken between words. */
void print_labelled(const char *label, std::string_view text);

/** A document; bytes that are no text are replaced, since JSON cannot hold them. */
std::string written(const json &document, int indentation = 2);

/** A value of a row as a text, empty if it is NULL. */
std::string text(const json &row, const char *name);

/** Bytes as a person says them: 1.5 MiB. */
std::string amount(long long bytes);

/** The groups of a regular expression's first match in a text, all of them; nothing when there is none. */
texts match(const char *pattern, std::string_view text);

/** The cells of the tables in a section of a page of docs/, which the program holds so that it advises as they do. */
std::vector<texts> advice(std::string_view page, std::string_view heading);

#endif
