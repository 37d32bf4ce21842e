/* The commands that do more than show what was read. Each returns the exit status. */
#ifndef ZEL_STORE_COMMANDS_H
#define ZEL_STORE_COMMANDS_H

#include "show.h"

#include <string>

namespace zel_store
{

enum exit_status : int { FINE = 0, FINDINGS = 1, CANNOT_READ = 2 };

struct watch_options {
    double interval = 1;
    int views = 0; /**< 0: until it is ended */
    bool as_json = false;
};
int watch(const std::string &path, show_options options, const watch_options &how);

/** Makes the build's own store ready, through the library. */
int make_ready(bool uses_log);

/** Writes a consistent copy to a path where nothing is yet. */
int copy_to(const std::string &path, const std::string &target);

struct trace_options {
    bool shows_tree = false, as_json = false;
    std::string timeline;
};
int trace(const std::string &path, const trace_options &how);

} // namespace zel_store

#endif
