/* The commands that do more than show what was read. Each returns the exit status. */
#ifndef ZEL_STORE_COMMANDS_H
#define ZEL_STORE_COMMANDS_H

#include "show.h"

#include <string>

namespace zel_store
{

enum exit_status : int { FINE = 0, FINDINGS = 1, CANNOT_READ = 2 };

/** Makes the build's own store ready, through the library. */
int make_ready(bool uses_log);

/** Writes a consistent copy to a path where nothing is yet. */
int copy_to(const std::string &path, const std::string &target);

} // namespace zel_store

#endif
