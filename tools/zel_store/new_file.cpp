#include "new_file.h"
#include "zel_store.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t WRITTEN_AT_ONCE = 65536;

} // namespace

new_file::new_file(std::string path_) : path(std::move(path_))
{
    const std::filesystem::path name(path);
    folder = name.has_parent_path() ? name.parent_path().string() : ".";
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) {
        errno = EEXIST;
        fail();
    }
    file = open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (file < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        beside = folder + "/." + name.filename().string() + ".XXXXXX";
        file = mkostemp(beside.data(), O_CLOEXEC);
        if (file < 0)
            beside.clear();
    }
    if (file < 0)
        fail();
}

new_file::~new_file()
{
    if (file >= 0)
        close(file);
    if (!beside.empty())
        unlink(beside.c_str());
}

void new_file::fail() const
{
    const std::string advice =
        errno == EEXIST ? ". Name a file that is not there yet." : ". Nothing was written there.";
    throw unreadable(path + ": " + g_strerror(errno) + advice);
}

void new_file::write_added()
{
    for (std::string_view rest = added; !rest.empty();) {
        const ssize_t written = write(file, rest.data(), rest.size());
        if (written >= 0)
            rest.remove_prefix(static_cast<size_t>(written));
        else if (errno != EINTR)
            fail();
    }
    added.clear();
}

void new_file::add(std::string_view bytes)
{
    added += bytes;
    if (added.size() >= WRITTEN_AT_ONCE)
        write_added();
}

void new_file::publish()
{
    write_added();
    if (fsync(file) != 0)
        fail();
    const std::string open_file = "/proc/self/fd/" + std::to_string(file); // for who may not link what has no name
    if (beside.empty()) {
        if (linkat(file, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) != 0 &&
            (errno != ENOENT || linkat(AT_FDCWD, open_file.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0))
            fail();
    } else if (renameat2(AT_FDCWD, beside.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
        beside.clear();
    } else if (errno != EINVAL || link(beside.c_str(), path.c_str()) != 0) { // no such renaming: NFS, which links
        fail();
    }
    // The name is on the disk, too; a file system that cannot promise it has made it all the same.
    if (const int named_in = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); named_in >= 0) {
        fsync(named_in);
        close(named_in);
    }
}
