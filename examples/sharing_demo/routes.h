/*
 * What differs between the directions of a transfer. The service moves every file the same way, chunk by chunk; a route
 * says where the next chunk comes from and where it goes.
 */
#ifndef SHARING_DEMO_ROUTES_H
#define SHARING_DEMO_ROUTES_H

#include <memory>

#include "records.h"
#include "server.h"

namespace demo
{

class route
{
  public:
    route(const zel_content_sync_info &row, server &remote, size_t chunk_size);
    virtual ~route() = default;

    /** Gets ready and finds out how much the receiving end has: that is where the transfer goes on. */
    virtual zel_err_e begin(position &at) = 0;

    /** Moves the chunk that begins at a position, and the position past it. */
    virtual zel_err_e move_chunk(position &at) = 0;

    /** Records what became of the file, when all of it has been moved. */
    virtual void finish() = 0;

    /** Size of the whole file, once begin() has succeeded. */
    unsigned long long size() const
    {
        return size_;
    }

  protected:
    /**
     * The line to the server is bad in a way that can be counted on: the first file of a request loses its first chunk
     * three times, every other file its eighth chunk once and its sixteenth once.
     */
    bool line_loses(const position &at) const;

    const zel_content_sync_info &row_;
    server &remote_;
    const size_t chunk_size_;
    unsigned long long size_ = 0;

  private:
    const bool is_first_;
};

/** The route of a transfer: to the server, or from it. The transfer must outlive the route. */
std::unique_ptr<route> route_of(const zel_content_sync_info &row, server &remote, size_t chunk_size);

} // namespace demo

#endif
