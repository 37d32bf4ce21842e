/*
 * What others share with this device: push messages are taken in, in their order, and their thumbnails fetched.
 */
#ifndef SHARING_SERVICE_INBOX_H
#define SHARING_SERVICE_INBOX_H

#include "movers.h"

namespace sharing
{

constexpr char unreadable_pushes[] = "sharingd.push.unreadable"; /**< how many push messages could not be read */
constexpr char share_type[] = "files";                           /**< of every stored notification */

/** A received share; throws when there is none. */
share received_share(const std::string &given);

/** Removes what is kept under keys of a received share. */
void forget_token(const std::string &stored);

class inbox
{
  public:
    inbox(const settings &chosen, movers &thumbnails) : chosen_(chosen), movers_(thumbnails) {}
    inbox(const inbox &) = delete;

    void start();
    /** Waits for the thread, which ends when is_stopping is set. */
    void stop();

  private:
    void await_shares();
    void take_in(const std::string &message);

    const settings &chosen_;
    movers &movers_;
    std::future<void> thread_;
};

} // namespace sharing

#endif
