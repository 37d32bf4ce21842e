/*
 * Which transfer is next: three threads move files and post shares; the others wait for their turn, for a retry or for
 * the server. Everything that lasts is in the store, so the process can die at any moment. Kept here is an index of the
 * transfers that can go on.
 *
 * A server that cannot be reached is no failure: transfers stay what they are (ZEL_SYNC_TODO), and one of them tries
 * again after a pause that grows. A connection that breaks, or an answer that passes by itself, holds up one transfer
 * in the same way. Whatever else goes wrong counts as a failure, is retried, and given up after some retries.
 */
#ifndef SHARING_SERVICE_MOVERS_H
#define SHARING_SERVICE_MOVERS_H

#include <condition_variable>
#include <future>
#include <mutex>

#include "transfer.h"

namespace sharing
{

/** Receives reports of what happens; called by any thread. */
struct news {
    std::function<void(const zel_content_sync_info &)> progress;
    std::function<void(unsigned int req_id)> state;
};

/** Since when, in milliseconds since the epoch, something waits for the server, and why. */
struct waiting {
    unsigned long long since = 0;
    trouble why = {};
};

class movers
{
  public:
    movers(const settings &chosen, news listeners) : chosen_(chosen), news_(std::move(listeners)) {}
    movers(const movers &) = delete;

    /** Removes from the store what never counted, takes up the rest, and starts the threads. */
    void start();
    /** Waits for the threads, which end when is_stopping is set. */
    void stop();

    /** Takes up a request that is new in the store. */
    void take_up(unsigned int req_id);

    /** Takes up the transfers of a request that were given up. */
    void retry(unsigned int req_id);

    /* What clients want of a request; each throws when there is nothing of it to be done. */
    void pause_request(unsigned int req_id);
    void resume_request(unsigned int req_id);
    void cancel_request(unsigned int req_id);

    /** Has everything wiped while nothing moves; throws when something is on its way. */
    void wipe(const std::function<void()> &everything);

    /** What has become of a request, for a download worked out from its transfers. */
    quillo_upload_status_e status_of(unsigned int req_id) const;

    /** Whether nothing more happens to a request by itself: its retries and its share are through. */
    bool is_settled(unsigned int req_id) const;

    /** What a transfer, or the share of a request, waits for; none when it does not. */
    std::optional<waiting> wait_of_transfer(unsigned int sync_id) const;
    std::optional<waiting> wait_of_share(unsigned int req_id) const;

  private:
    using clock = std::chrono::steady_clock;
    using waits = std::map<unsigned int, waiting>;

    /** A transfer or a share in the schedule. */
    struct turn {
        bool is_taken = false;
        std::atomic<bool> is_called_off = false;
        clock::time_point due = {}; /**< not before */
        std::chrono::milliseconds pause{0};
        unsigned int failures = 0; /**< of a share; those of a transfer are in the store */
    };

    void load(unsigned int req_id);
    void call_off(unsigned int req_id);
    void conclude(unsigned int req_id);
    size_t retry_given_up(unsigned int req_id);
    bool goes_on(const zel_content_sync_info &row) const;
    void remove_what_never_counted();

    void work();
    std::function<void(http_client &)> next_job();
    transfer next_transfer();
    clock::time_point next_moment() const;
    void run_transfer(zel_content_sync_info row, http_client &server);
    void record_end(const zel_content_sync_info &row, const std::exception *reason, bool has_moved);
    void share_files(unsigned int req_id, http_client &server);
    void post_share(unsigned int req_id, http_client &server);
    bool send_forgotten_again(unsigned int req_id, http_client &server);
    void fail_share(unsigned int req_id, const failure &reason);

    void note_outage(const std::exception *reason, bool has_answered);
    void delay(turn &one, waits &kind, unsigned int id, const std::exception &reason);
    void end_wait(waits &kind, unsigned int id);

    const settings &chosen_;
    const news news_;

    /** Makes the store's questions and the updates that follow from them one step; guards the four below. */
    mutable std::mutex steps_;
    std::condition_variable changed_;
    std::map<unsigned int, std::map<unsigned int, turn>> turns_; /**< of transfers that can go on, by request */
    std::map<unsigned int, turn> shares_;                        /**< of uploads that wait for their share */
    unsigned int last_served_ = 0;                               /**< a request: the next one has the next turn */

    std::atomic<bool> knows_tus_only_ = false; /**< the server, as far as is known */

    mutable std::mutex waits_mutex_; /**< never held while the store is asked; guards the rest */
    waits transfer_waits_;
    waits share_waits_;
    struct {
        std::optional<waiting> why;
        clock::time_point due;
        std::chrono::milliseconds pause;
        bool is_looked_at; /**< one job finds out whether the server is back */
    } outage_ = {};

    std::vector<std::future<void>> threads_;
};

} // namespace sharing

#endif
