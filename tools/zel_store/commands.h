/* The commands. Each returns the exit status. */
#ifndef ZEL_STORE_COMMANDS_H
#define ZEL_STORE_COMMANDS_H

#include "store.h"

#include <functional>
#include <string>
#include <vector>

namespace zel_store
{

struct view_options {
    std::string request, token; /**< what narrows the view */
    bool shows_secrets = false, as_json = false;
    double interval = 1; /**< of a watcher, in seconds */
    int views = 0;       /**< of a watcher; 0: until it is ended */
};

int show(const std::string &path, const view_options &options);
int watch(const std::string &path, const view_options &options);
int check(const std::string &path, bool as_json);

/** Makes the build's own store ready, through the library. */
int make_ready(bool uses_log);

/** Writes a consistent copy to a path where nothing is yet. */
int copy_to(const std::string &path, const std::string &target);

struct trace_options {
    bool shows_tree = false, as_json = false;
    std::string timeline;
};
int trace(const std::string &path, const trace_options &options);

/* What the views share. */

/** The view as a document, as --json shows it. */
json view_of(const store &read, const view_options &options);

/** Its lines; what is known besides of a transfer comes from the function, if there is one. */
std::vector<std::string> lines_of(const json &view,
                                  const std::function<std::string(const json &transfer)> &further = {});

/** The lines about the file itself. */
std::vector<std::string> file_lines(const json &file);

void print(const std::string &line);

} // namespace zel_store

#endif
