/*
 * The tus 1.0.0 resumable upload protocol, core and creation, over HTTP.
 */
#ifndef SHARING_SERVER_TUS_H
#define SHARING_SERVER_TUS_H

#include <future>
#include <httplib.h>
#include <vector>

#include "uploads.h"

namespace sharing
{

struct tus_settings {
    unsigned long long largest = 0x7FFFFFFF; /**< file that is taken, in bytes */
    unsigned long long rate = 0;             /**< bytes a second that each connection takes; 0: as many as come */

    /** Failures on request, for whoever wants to see what becomes of them: "503@2", "cut@5", "hang@7". */
    std::vector<std::string> failures;
};

class tus
{
  public:
    tus(uploads &all, const tus_settings &settings) : uploads_(all), settings_(settings) {}

    /** Takes over the paths /files and /files/ID, but for GET. */
    void attach(httplib::Server &server);

    /** Answers HEAD /files/ID; like what follows, it returns the status. */
    int tell_offset(const httplib::Request &request, httplib::Response &response);

    /** Ends what hangs. */
    void stop()
    {
        stop_.set_value();
    }

  private:
    int answer(const httplib::Request &request, httplib::Response &response, const httplib::ContentReader &body);
    int tell_abilities(httplib::Response &response) const;
    int create(const httplib::Request &request, httplib::Response &response);
    int append(const httplib::Request &request, httplib::Response &response, const httplib::ContentReader &body);
    std::string next_failure(const std::string &id);

    uploads &uploads_;
    const tus_settings settings_;
    std::mutex mutex_;
    std::map<std::string, int> chunks_; /**< that have come in of each upload */
    std::promise<void> stop_;
    const std::shared_future<void> stopping_ = stop_.get_future().share();
};

} // namespace sharing

#endif
