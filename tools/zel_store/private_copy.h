/*
 * A private copy of a store, the only file that SQLite gets. A journal or log beside a store can name any file, which
 * SQLite would open or delete. Beside the copy there is no path that it could reach.
 */
#ifndef ZEL_STORE_PRIVATE_COPY_H
#define ZEL_STORE_PRIVATE_COPY_H

#include <string>

/**
 * SQLite's file system in this program. Its files have no name outside: they are gone with the program, whatever ends
 * that. It opens, deletes and asks for no path.
 */
extern const char PRIVATE_FILES[];

/** Makes it known to SQLite; once is enough. */
void know_private_files();

/** The descriptor of a private file, -1 if there is none of this name. It stays the file system's. */
int private_file(const std::string &name);

/** The name of the copy; "-journal" and "-wal" are added to it for the files beside it. */
constexpr char PRIVATE_COPY[] = "store";

/** What a copy was made of. */
struct copied {
    long long size = 0, journal_size = -1, log_size = -1; /**< in bytes; -1: there is none */
    bool has_hot_journal = false;                         /**< a write is under way, or was broken off */
    std::string super_journal;      /**< what the journal names: the file on which a write to several files depends */
    bool has_super_journal = false; /**< it is there: the write does not count */
};

/**
 * Copies a store with what lies beside it, again and again until no writer has been at work meanwhile. Locks, writes
 * and waits for nothing. Throws unreadable when there is no whole copy, or something there is no regular file.
 */
copied copy_privately(const std::string &path);

/** Gives the copy of a cut file the size in its header, so that SQLite reads the remaining pages. */
void lengthen_copy();

#endif
