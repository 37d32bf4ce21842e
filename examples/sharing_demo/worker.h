/*
 * A thread of the service, run by the library's thread controller.
 */
#ifndef SHARING_DEMO_WORKER_H
#define SHARING_DEMO_WORKER_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "zel_common_thread.h"

namespace demo
{

class worker
{
  public:
    /** Prepares a thread that will run body, which must not throw. */
    explicit worker(std::function<void(worker &)> body);

    /** Joins. */
    ~worker();
    worker(const worker &) = delete;
    worker &operator=(const worker &) = delete;

    /** Starts the thread and waits until it reports that it runs. */
    void start();

    /** Waits until the body has returned. Workers that wake each other are all joined before one of them goes. */
    void join();

    /** For the body: sleeps until wake() is called, or returns at once when it was called since the last sleep. */
    void sleep();

    /** Ends the thread's sleep, or keeps it from its next one. Any thread may call it. */
    void wake();

  private:
    static void *entry(void *self);

    const std::function<void(worker &)> body_;
    zel_thread_s *record_ = nullptr;
    std::atomic<bool> woken_ = false;
    std::atomic<bool> asleep_ = false;
    std::mutex end_mutex_;
    std::condition_variable end_;
    bool ended_ = false;
};

} // namespace demo

#endif
