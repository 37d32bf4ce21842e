/*
 * A client application: asks the service for everything, and shows what the store says.
 */
#ifndef SHARING_DEMO_CLIENT_H
#define SHARING_DEMO_CLIENT_H

#include <string>
#include <vector>

#include "console.h"
#include "server.h"
#include "service.h"

namespace demo
{

class client
{
  public:
    client(service &asked, server &remote, console &out);

    /** Has files sent, with a pause on the way. Returns the request's id; throws when the service refuses. */
    unsigned int upload(const std::vector<std::string> &files, const std::vector<std::string> &recipients);

    /**
     * Sees an upload through, from wherever it stands: to its end, to the report, and back to this device as a received
     * share. Returns whether every byte arrived.
     */
    bool see_through(unsigned int req_id);

    void list_received_shares();
    void list_recent_groups();

    /** Wipes the user's data and shows what is left. */
    void forget();

  private:
    std::unique_ptr<connection> ask(zel_cmd command, unsigned int req_id, const std::string &token = {});
    void follow(zel_file_sync_type kind, unsigned int req_id, bool shows);
    void pause_and_resume(unsigned int req_id);
    void show_report(const zel_trans_upload_info &report);
    bool compare_upload(unsigned int req_id);
    bool bring_back(unsigned int req_id, const zel_trans_upload_info &report);
    bool compare_downloads(const arrived_share &arrived, unsigned int upload_id);

    service &service_;
    server &server_;
    console &out_;
};

/** Says what the store knows about the unfinished transfers of an upload, beside what the server has. */
void show_unfinished(unsigned int req_id, server &remote, console &out);

} // namespace demo

#endif
