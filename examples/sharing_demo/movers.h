/*
 * The threads that carry out the service's transfers, uploads and downloads alike. All that is known about a transfer
 * is in the store, so the process can die at any moment and the next one goes on.
 */
#ifndef SHARING_DEMO_MOVERS_H
#define SHARING_DEMO_MOVERS_H

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "records.h"
#include "server.h"
#include "worker.h"

namespace demo
{

class movers
{
  public:
    /**
     * Makes the transfers and uploads that a dead service left in the store ready to go on.
     *
     * @param dies_midway kill the process once, between a chunk's arrival and its record in the store
     */
    movers(server &remote, size_t chunk_size, bool dies_midway);

    /** Stops the threads after the chunk they are at. */
    ~movers();

    void start();

    /** Has the threads look for transfers in the store. */
    void wake();

    /** Throws when there is nothing to pause, or to resume, in the upload. */
    void pause_or_resume(unsigned int req_id, bool is_pause);

    /** Whether nothing is left to be done for the transfers of a kind of a request, retries included. */
    bool is_settled(zel_file_sync_type kind, unsigned int req_id);

    /** Whether any transfer is in the hands of a thread. */
    bool is_busy();

    /** Waits for progress, a tenth of a second at most; throws when one of the threads has failed. */
    void wait_for_progress();

  private:
    void work(worker &self);
    transfer next_transfer();
    bool claim(zel_file_sync_type kind, zel_file_sync_status status);
    bool may_run(const zel_content_sync_info &row);
    zel_err_e move_file(const zel_content_sync_info &row);
    void close(const zel_content_sync_info &row, zel_err_e result);
    void conclude_upload(unsigned int req_id);
    bool is_done(zel_file_sync_type kind, unsigned int req_id);
    void tell_progress(const std::string &breakdown = {});

    server &remote_;
    const size_t chunk_size_;
    const bool dies_midway_;
    std::vector<std::unique_ptr<worker>> threads_;
    std::atomic<bool> is_stopping_ = false;

    /**
     * Makes the store's questions and the updates that follow from them one step. A transfer is in claimed_ from the
     * moment it is claimed until it is closed, whatever a pause or a resume does to its status meanwhile: it is never
     * in two hands.
     */
    std::mutex schedule_;
    std::set<unsigned int> claimed_;
    std::deque<transfer> ready_; /**< claimed, and waiting for a thread */

    std::mutex progress_mutex_;
    std::condition_variable progress_;
    bool has_progressed_ = false;
    std::string breakdown_;
};

} // namespace demo

#endif
