/* A copy of a store's file and of what lies beside it, as they were at one moment. */
#ifndef ZEL_STORE_PRIVATE_COPY_H
#define ZEL_STORE_PRIVATE_COPY_H

#include "store.h"

#include <csignal>
#include <optional>
#include <sys/stat.h>

namespace zel_store
{

struct image {
    std::string main;
    std::optional<std::string> journal, log; /**< the rollback journal and the write-ahead log, if they are there */
    struct stat status = {};
};

/** Reads again and again until no writer has been at work meanwhile; throws unreadable after some seconds. */
image read_consistently(const std::string &path);

/** The files of an image in a folder of their own, which goes with it; no signal ends the program meanwhile. */
class scratch_files
{
  public:
    explicit scratch_files(const image &taken);
    ~scratch_files();
    scratch_files(const scratch_files &) = delete;
    scratch_files &operator=(const scratch_files &) = delete;

    std::string folder;

  private:
    sigset_t signals = {};
};

} // namespace zel_store

#endif
