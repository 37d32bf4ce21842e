/*
 * What this server does beyond tus: it turns finished uploads into a share, and reports it to the recipients' devices
 * by push messages.
 *
 *   plans/KEY      a share that counts, with the places of its push messages, which may not all be there yet:
 *                  "TOKEN EXPIRES", a line "NUMBER N" for each recipient, an empty line and the message
 *   shares/KEY     the same file when all of them are there
 *   push/NUMBER/N  the message
 */
#ifndef SHARING_SERVER_SHARES_H
#define SHARING_SERVER_SHARES_H

#include "tus.h"

namespace sharing
{

class shares
{
  public:
    shares(const settings &given, const uploads &files) : chosen_(given), files_(files) {}

    /** Makes the exchange of a request that concerns shares or push messages; NULL for others. */
    std::unique_ptr<exchange> open(const request &asked, connection &line);

    /** Removes what has expired, and what an earlier server left half-written. */
    void sweep() const;

    /** Delivers the push messages that an earlier server, or a full disk, left undelivered. */
    void complete_plans();

  private:
    class posted;
    class poll;

    reply issue(const std::string &key, const std::string &message);
    std::string plan(const std::string &message) const;

    const settings &chosen_;
    const uploads &files_;
    std::set<poll *> waiting_;
};

} // namespace sharing

#endif
