/* A file that is there whole or not at all, for its user alone, and in nobody's place. */
#ifndef ZEL_STORE_NEW_FILE_H
#define ZEL_STORE_NEW_FILE_H

#include <string>
#include <string_view>

/**
 * A file that gets its name when all of it is written. Until then it has none, and ends with the program. A file system
 * without such files (FAT, NFS) has it as .NAME.XXXXXX beside its place, where a kill leaves it.
 * Mode 0600. Every operation throws unreadable when it fails; the destructor removes what was not published.
 */
class new_file
{
  public:
    /** Throws also when something has the name already, be it a link that leads nowhere. */
    explicit new_file(std::string path);
    ~new_file();
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;

    /** Collects what is added and writes it now and then. */
    void add(std::string_view bytes);

    /** Writes the rest, to the disk, and gives the file its name; never in place of another file. */
    void publish();

  private:
    void write_added();
    [[noreturn]] void fail() const; /**< as errno says */

    std::string path, folder, beside; /**< beside: the other name, empty without one */
    std::string added;
    int file = -1;
};

#endif
