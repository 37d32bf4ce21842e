/*
 * What clients may ask: the methods of the interface (quillo.Sharing.xml).
 */
#ifndef SHARING_SERVICE_REQUESTS_H
#define SHARING_SERVICE_REQUESTS_H

#include <gio/gio.h>
#include <set>

#include "movers.h"
#include "zel_common_request.h"

namespace sharing
{

/** A File of the interface, as a floating value. */
GVariant *describe_file(const movers &of, const zel_content_sync_info &row);

/**
 * Carries out a method in steps of some milliseconds, between which others have theirs: gives the answer, or NULL while
 * there is more to do. Throws a failure.
 */
using work = std::function<GVariant *()>;

class requests
{
  public:
    explicit requests(movers &carriers) : movers_(carriers) {}
    requests(const requests &) = delete;

    /** Goes on with a wipe in which the service died. */
    void finish_forgetting();

    /** What a request takes to be carried out; the request may go. */
    work begin(const zel_request &request);

  private:
    work store_upload(const zel_request &request);
    work list_uploads();
    GVariant *describe(unsigned int req_id) const;
    work list_received();
    work fetch_share(const zel_request &request);
    work forget();

    movers &movers_;
    size_t being_stored_ = 0;                                          /**< requests */
    std::set<std::pair<std::string, std::string>> being_fetched_ = {}; /**< shares, and the folders they go to */
    bool is_forgetting_ = false;
    bool has_to_be_finished_ = false; /**< a wipe that failed */
};

} // namespace sharing

#endif
