/*
 * What this server does beyond tus: it turns finished uploads into a share, tells the recipients' devices of it by push
 * messages, and hands out files and thumbnails.
 *
 *   shares/TOKEN     the share, as its recipients are told of it
 *   push/NUMBER/N    the push messages for a device: 1, 2, 3 ...
 */
#ifndef SHARING_SERVER_SHARES_H
#define SHARING_SERVER_SHARES_H

#include <condition_variable>

#include "share_message.h"
#include "tus.h"

namespace sharing
{

class shares
{
  public:
    shares(std::filesystem::path folder, uploads &all, tus &protocol);

    /** Takes over POST /shares, GET /push/NUMBER, GET /files/ID and GET /thumbnails/ID. */
    void attach(httplib::Server &server);

    /** Ends the long polls. */
    void stop();

  private:
    void issue(httplib::Response &response, const httplib::ContentReader &body);
    void complete(zel_trans_share_content_info &record);
    void push(const std::string &recipients, const std::string &message);
    void wait_for_push(const httplib::Request &request, httplib::Response &response);
    void hand_out(const httplib::Request &request, httplib::Response &response, unsigned long long limit);

    const std::filesystem::path folder_;
    uploads &uploads_;
    tus &tus_;
    std::mutex mutex_;
    std::condition_variable posted_;
    bool is_stopping_ = false;
};

} // namespace sharing

#endif
