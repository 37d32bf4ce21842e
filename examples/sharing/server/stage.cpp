#include "stage.h"

#include <arpa/inet.h>
#include <chrono>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace sharing
{

void stage::plan(const std::vector<std::string> &failures)
{
    for (const std::string &failure : failures) {
        const size_t at = failure.find('@');
        const std::string what = failure.substr(0, at);
        const bool is_status = what.size() == 3 && what.find_first_not_of("0123456789") == std::string::npos;
        if (at == std::string::npos || (!is_status && what != "cut" && what != "hang"))
            throw std::invalid_argument("not of the form WHAT@N: " + failure);
        plan_[std::stoi(failure.substr(at + 1))] = what;
    }
}

std::string stage::next(const std::string &id)
{
    const std::lock_guard lock(mutex_);
    const auto planned = plan_.find(++chunks_[id]);
    return planned == plan_.end() ? "" : planned->second;
}

void stage::keep_pace(size_t bytes) const
{
    if (rate > 0)
        std::this_thread::sleep_for(std::chrono::nanoseconds(bytes * 1'000'000'000 / rate));
}

void stage::hang()
{
    std::unique_lock lock(mutex_);
    stopping_.wait_for(lock, std::chrono::minutes(1), [this] { return is_stopping_; });
}

void stage::stop()
{
    const std::lock_guard lock(mutex_);
    is_stopping_ = true;
    stopping_.notify_all();
}

void stage::cut(int remote_port)
{
    // The HTTP library does not tell a connection's socket.
    const long count = sysconf(_SC_OPEN_MAX);
    for (int file = 0; file < count && file < 1024; ++file) {
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        if (getpeername(file, reinterpret_cast<sockaddr *>(&peer), &size) == 0 && ntohs(peer.sin_port) == remote_port)
            shutdown(file, SHUT_RDWR);
    }
}

} // namespace sharing
