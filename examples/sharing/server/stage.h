/*
 * Failures on request, for whoever wants to see what becomes of them, and a pace at which one can watch.
 */
#ifndef SHARING_SERVER_STAGE_H
#define SHARING_SERVER_STAGE_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace sharing
{

class stage
{
  public:
    /** Failures as "WHAT@N": WHAT happens at the Nth chunk that comes in of each file. @throws std::invalid_argument */
    void plan(const std::vector<std::string> &failures);

    /** What is to happen at the next chunk of an upload: a status, "cut", "hang", or nothing. */
    std::string next(const std::string &id);

    /** Bytes that each connection takes in a second; 0 for as many as come. */
    unsigned long long rate = 0;

    /** Sleeps as long as the bytes that just came should have taken. */
    void keep_pace(size_t bytes) const;

    /** Does nothing until the server stops, or for a minute. */
    void hang();
    void stop();

    /** Breaks off the connection whose other end is a port. */
    static void cut(int remote_port);

  private:
    std::map<int, std::string> plan_;
    std::mutex mutex_;
    std::map<std::string, int> chunks_;
    std::condition_variable stopping_;
    bool is_stopping_ = false;
};

} // namespace sharing

#endif
