/*
 * Where a received file goes. An empty file reserves its name; its bytes are collected below the state folder. They are
 * moved over the empty file only while it is the same file, and still empty. Each step is recorded under the transfer's
 * key (file_key) before it is done, so that the next service knows it after a kill:
 *
 *   value  size in bytes, as announced.
 *   1st    identity of the empty file, or "".
 *   2nd    name of a copy in that folder, if the folder is on another file system, or "".
 *   3rd    identity of the file with all bytes, or "".
 */
#ifndef SHARING_SERVICE_PLACE_H
#define SHARING_SERVICE_PLACE_H

#include <utility>

#include "store.h"

namespace sharing
{

/** A file that is open. */
class open_file
{
  public:
    explicit open_file(int descriptor = -1) : descriptor_(descriptor) {}
    open_file(open_file &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    ~open_file();
    operator int() const
    {
        return descriptor_;
    }

  private:
    int descriptor_;
};

/**
 * A name as a received file may have it: it leads nowhere else, is not hidden, reads as it stands, and any file system
 * takes it.
 */
std::string harmless(const std::string &name);

/**
 * Stores a transfer for a received file and reserves a name for it in a folder, numbered while the name is taken.
 * The record has what the transfer is to have beyond that.
 */
void reserve(zel_content_sync_info row, const std::string &folder, const std::string &name, unsigned int size);

/** Makes the reserved file anew if it vanished; whether the name is (again) reserved. */
bool is_reserved(const zel_content_sync_info &row);

/** The size of a received file, as it was announced. */
unsigned int size_of(const zel_content_sync_info &row);

/** Forgets which file had the bytes: they are fetched again. */
void begin_anew(const zel_content_sync_info &row);

/** Whether all bytes of a received file are there, under its name. */
bool is_in_place(const zel_content_sync_info &row);

/** Where the bytes of a transfer are collected. */
std::string incoming_path(unsigned int sync_id);

/** Opens that file, or makes it. */
open_file open_incoming(const zel_content_sync_info &row);

/** Looks for room for the rest of a file, where it is collected and where it goes; throws when there is none. */
void require_room(const zel_content_sync_info &row, unsigned long long collected);

/** Moves the collected bytes to the reserved name; throws when that cannot be done, or is somebody else's by now. */
void put_in_place(const zel_content_sync_info &row, int bytes);

/** Removes the reserved, empty file of a transfer that does not go on for now. */
void free_name(const zel_content_sync_info &row);

/** Removes everything of a transfer that is not complete, files and keys, and then the transfer itself. */
void remove_unfinished(const zel_content_sync_info &row);

} // namespace sharing

#endif
