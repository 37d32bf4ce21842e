/*
 * The sharing service: takes up the requests of clients and the push messages of the server, and has its movers carry
 * out the transfers that follow from them.
 */
#ifndef SHARING_DEMO_SERVICE_H
#define SHARING_DEMO_SERVICE_H

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "movers.h"
#include "records.h"
#include "server.h"
#include "worker.h"

#include "zel_common_queue.h"

namespace demo
{

/** A client's end of a request. */
class connection
{
  public:
    /** Waits for the answer; throws a failure when the service refused the request. */
    void wait();
    void answer(zel_err_e result, const std::string &sentence);

    upload_report report; /**< the answer to ZEL_CMD_GET_UPLOAD_INFO */

  private:
    std::mutex mutex_;
    std::condition_variable answered_;
    bool is_answered_ = false;
    zel_err_e result_ = ZEL_ERR_NONE;
    std::string sentence_;
};

/** What the service makes of a push message. */
struct arrived_share {
    std::string token;
    unsigned int thumbnails = 0; /**< request of its thumbnails' transfers */
    unsigned int files = 0;      /**< request of its files' transfers, which wait until a client wants them */
};

class service
{
  public:
    /** Group whose folder record the service keeps. */
    static constexpr char family_folder[] = "family";

    /**
     * Signs in; the store must be open. Received files go to a folder, their thumbnails to "thumbnails" in it.
     */
    service(server &remote, std::string received_folder, size_t chunk_size, bool dies_midway);
    ~service();

    /** Starts the threads. */
    void start();

    /**
     * Takes up a request: ZEL_CMD_UPLOAD (req_id, type, file_list, receiver_list with entries "COUNTRY-CODE:NUMBER",
     * description), ZEL_CMD_UPLOAD_PAUSE, ZEL_CMD_UPLOAD_RESUME and ZEL_CMD_GET_UPLOAD_INFO (req_id), ZEL_CMD_DOWNLOAD
     * (contents_token), ZEL_CMD_DEACTIVATE. Its handle is a connection, which gets the answer.
     */
    void submit(queued_request request);

    /** Takes in a share. A message that comes again changes nothing. */
    arrived_share receive_push(const std::vector<char> &message);

    movers transfers;

  private:
    void sign_in();
    void dispatch();
    void carry_out(const zel_request &request, connection &client);
    void take_up_upload(const zel_request &request);
    void remember_recipients(unsigned int req_id);
    void start_download(const char *token);
    unsigned int add_downloads(const zel_trans_share_content_info &record, zel_file_sync_type kind,
                               zel_file_sync_status status, bool may_be_there);

    const std::string received_folder_;
    zel_queue_s *requests_ = nullptr;
    std::unique_ptr<worker> dispatcher_;
};

} // namespace demo

#endif
