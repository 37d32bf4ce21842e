/* A consistent copy of a store in use. */

#include "commands.h"

#include "text.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace zel_store
{

int copy_to(const std::string &path, const std::string &target)
{
    const private_copy taken = take_copy(path);
    if (!taken.complaint.empty())
        throw unreadable(safe(path) + ": " + safe(taken.complaint) +
                         ". Nothing was copied; cp takes such a file as it is.");
    // The copy holds what the store holds: nobody else may read it, and nothing is written over.
    const int made = open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (made < 0)
        throw unreadable(safe(target) + ": " + g_strerror(errno) + ". Name a file that is not there yet.");
    close(made);
    sqlite3 *opened = nullptr;
    sqlite3_open_v2(target.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
    const connection database(opened);
    sqlite3_backup *const backup = sqlite3_backup_init(opened, "main", taken.database.get(), "main");
    if (backup)
        sqlite3_backup_step(backup, -1);
    if (sqlite3_backup_finish(backup) != SQLITE_OK || !backup) {
        unlink(target.c_str());
        throw unreadable(safe(target) + ": " + sqlite3_errmsg(opened) + ". Nothing was left there.");
    }
    std::printf("%s: a copy of %s as it is now, mode 0600.\n", safe(target).c_str(), safe(taken.facts.path).c_str());
    return FINE;
}

} // namespace zel_store
