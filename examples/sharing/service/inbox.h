/*
 * The shares that others send to this device: takes in the server's push messages, and has what they name fetched.
 */
#ifndef SHARING_SERVICE_INBOX_H
#define SHARING_SERVICE_INBOX_H

#include "movers.h"

namespace sharing
{

class inbox
{
  public:
    /** Starts the thread that waits for push messages. */
    inbox(const settings &chosen, movers &carriers);

    /** Breaks off the long poll. */
    ~inbox();

    /** The received shares, as the client gets them. */
    GVariant *list();

    /** Has the files of a share fetched into a folder; gives the id of the request. */
    unsigned int fetch(const std::string &token, const std::string &folder);

  private:
    void listen();
    void take_in(const std::string &message);

    const settings settings_;
    movers &movers_;
    remote server_;
    std::promise<void> stop_;
    const std::future<void> stopping_ = stop_.get_future();
    std::unique_ptr<worker> listener_;
};

} // namespace sharing

#endif
