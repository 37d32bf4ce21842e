/*
 * The threads that carry out the service's transfers, uploads and downloads alike, and what follows from their end. All
 * that is known about a transfer is in the store, so the process can die at any moment and the next one goes on.
 */
#ifndef SHARING_SERVICE_MOVERS_H
#define SHARING_SERVICE_MOVERS_H

#include <condition_variable>

#include "clients.h"
#include "remote.h"
#include "routes.h"
#include "store.h"
#include "worker.h"

namespace sharing
{

struct settings {
    std::string server = "http://127.0.0.1:8420/files";
    std::string number = "+447700900123"; /**< the device's own */
    std::string received = "received";    /**< folder of received files */
    size_t chunk_size = 0;
    std::chrono::milliseconds patience{10'000};
    std::chrono::milliseconds retry_delay{500};
};

class movers
{
  public:
    /** Makes what a dead service left in the store ready to go on, and starts the threads. */
    movers(const settings &chosen, clients &door);

    /** Breaks off the chunks on their way, and stops the threads. */
    ~movers();

    /** Has the threads look at a request that is new in the store. */
    void take_up(unsigned int req_id);

    /* Each throws when there is nothing of the request to be paused, resumed or cancelled. */
    void pause(unsigned int req_id);
    void resume(unsigned int req_id);
    void cancel(unsigned int req_id);

    /** Wipes the user's data; throws while transfers are on their way. */
    void forget();

    quillo_upload_status_e status_of(unsigned int req_id);

    /** Whether nothing is left to be done for a request, retries and its share included. */
    bool is_settled(unsigned int req_id);

  private:
    using clock = std::chrono::steady_clock;
    enum class origin { unknown, ours, foreign };

    void recover();
    void work(remote &server);
    bool do_next(remote &server, std::unique_lock<std::mutex> &lock);
    transfer claim(zel_file_sync_type kind, zel_file_sync_status status);
    bool may_run(const zel_content_sync_info &row);
    void move_file(const zel_content_sync_info &row, remote &server);
    void close(const zel_content_sync_info &row, const failure *reason);
    void conclude(unsigned int req_id);
    void share_upload(unsigned int req_id, remote &server);
    quillo_upload_status_e outcome_of(unsigned int req_id);
    void call_off(unsigned int req_id);
    clock::time_point due_after(unsigned int failures) const;

    const settings settings_;
    clients &door_;
    std::atomic<bool> is_stopping_ = false;
    std::atomic<origin> server_ = origin::unknown;

    /**
     * Makes the store's questions and the updates that follow from them one step. A transfer is in claimed_ from the
     * moment it is claimed until it is closed, whatever a pause or a resume does to its status meanwhile: it is never
     * in two hands.
     */
    std::mutex schedule_;
    std::condition_variable changed_;
    std::set<unsigned int> claimed_;
    std::set<unsigned int> called_off_;                /**< those of them that are to stop after their chunk */
    std::map<unsigned int, clock::time_point> due_;    /**< failed transfers, not to be tried again before */
    std::map<unsigned int, clock::time_point> shares_; /**< uploads to be shared, not before */
    std::map<unsigned int, unsigned int> refusals_;    /**< how often the server would not share them */

    std::vector<std::unique_ptr<remote>> servers_; /**< one for each thread */
    std::vector<std::unique_ptr<worker>> threads_;
};

} // namespace sharing

#endif
