/*
 * What differs between the directions of a transfer. The service moves every file the same way, chunk by chunk; a route
 * says where the next chunk comes from and where it goes. Every step throws a failure when it does not come off.
 */
#ifndef SHARING_SERVICE_ROUTES_H
#define SHARING_SERVICE_ROUTES_H

#include "remote.h"
#include "store.h"

namespace sharing
{

class route
{
  public:
    /** @param chunk_size bytes moved at once; 0: as suits the file */
    route(const zel_content_sync_info &row, remote &server, size_t chunk_size)
        : row_(row), server_(server), chunk_size_(chunk_size)
    {
    }
    virtual ~route() = default;

    /** Gets ready and finds out how much the receiving end has: that is where the transfer goes on. */
    virtual void begin() = 0;

    virtual void move_chunk() = 0;

    /** Makes sure that all of the file has been moved, and records what became of it. */
    virtual void finish() = 0;

    unsigned long long size() const
    {
        return size_;
    }
    unsigned long long offset() const
    {
        return offset_;
    }

  protected:
    /** How many bytes the next chunk has. */
    size_t next_chunk() const;

    const zel_content_sync_info &row_;
    remote &server_;
    const size_t chunk_size_;
    unsigned long long size_ = 0;
    unsigned long long offset_ = 0;
};

/** The route of a transfer: to the server, or from it. Both must outlive it. */
std::unique_ptr<route> route_of(const zel_content_sync_info &row, remote &server, size_t chunk_size);

/** What a received file is called until all of it is there. */
std::string part_of(const std::string &local_path);

} // namespace sharing

#endif
