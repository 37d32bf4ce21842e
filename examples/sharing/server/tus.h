/*
 * The tus 1.0.0 resumable upload protocol, core and creation, over HTTP.
 */
#ifndef SHARING_SERVER_TUS_H
#define SHARING_SERVER_TUS_H

#include <httplib.h>

#include "stage.h"
#include "uploads.h"

namespace sharing
{

class tus
{
  public:
    tus(uploads &all, stage &staged, unsigned long long largest) : uploads_(all), stage_(staged), largest_(largest) {}

    /** Takes over the paths /files and /files/ID, but for GET. */
    void attach(httplib::Server &server);

    /** Answers HEAD /files/ID. */
    void tell_offset(const httplib::Request &request, httplib::Response &response);

  private:
    void tell_abilities(httplib::Response &response) const;
    void create(const httplib::Request &request, httplib::Response &response);
    void append(const httplib::Request &request, httplib::Response &response, const httplib::ContentReader &body);

    uploads &uploads_;
    stage &stage_;
    const unsigned long long largest_;
};

/** Reads what is left of a request whose content is not wanted. */
void discard(const httplib::Request &request, const httplib::ContentReader &body);

} // namespace sharing

#endif
