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

struct route {
    /** @param most_bytes moved at once; 0: as suits the file */
    route(const zel_content_sync_info &transfer, remote &remote_end, size_t most_bytes)
        : row(transfer), server(remote_end), chunk_size(most_bytes)
    {
    }
    virtual ~route() = default;

    /** Gets ready and finds out how much the receiving end has: that is where the transfer goes on. */
    virtual void begin() = 0;

    virtual void move_chunk() = 0;

    /** Makes sure that all of the file has been moved, and records what became of it. */
    virtual void finish() = 0;

    /** How many bytes the next chunk has. */
    size_t next_chunk() const;

    const zel_content_sync_info &row;
    remote &server;
    const size_t chunk_size;
    unsigned long long size = 0;
    unsigned long long offset = 0;
};

/** The route of a transfer: to the server, or from it. Both must outlive it. */
std::unique_ptr<route> route_of(const zel_content_sync_info &row, remote &server, size_t chunk_size);

/** What a received file is called until all of it is there. */
std::string part_of(const std::string &local_path);

} // namespace sharing

#endif
