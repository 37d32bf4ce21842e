/*
 * The parts of the sharing service, one file each. Clients come in at the door (clients.cpp), their requests are
 * carried out one after the other (service.cpp), movers transfer the files (movers.cpp) by the roads to and from the
 * server (transfer.cpp), and what others share lies in the inbox (inbox.cpp).
 */
#ifndef SHARING_SERVICE_SERVICE_H
#define SHARING_SERVICE_SERVICE_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <gio/gio.h>
#include <httplib.h>
#include <list>
#include <map>
#include <set>

#include "store.h"
#include "zel_common_queue.h"
#include "zel_common_thread.h"

namespace sharing
{

using http = httplib::Client;

struct settings {
    std::string server = "http://127.0.0.1:8420/files";
    std::string number = "+447700900123"; /**< the device's own */
    std::string received = "received";    /**< folder of received files */
    size_t chunk_size = 0;                /**< 0: as suits the file */
    std::chrono::milliseconds patience{10'000};
    std::chrono::milliseconds retry_delay{500};
};

struct service {
    explicit service(const settings &given) : chosen(given) {}
    ~service();
    void start();

    const settings chosen;

    GDBusServer *door = nullptr;
    std::mutex clients_mutex;
    std::list<GDBusConnection *> clients;

    zel_queue_s *requests = nullptr;
    zel_thread_s *dispatcher = nullptr;
    std::promise<void> dispatcher_end; /**< that thread is detached and cannot be joined */
    std::future<void> dispatcher_ended;

    /**
     * Makes the store's questions and the updates that follow from them one step. A transfer is claimed from the moment
     * it is taken up until it is closed, whatever a pause or a resume does to its status meanwhile: it is never in two
     * hands.
     */
    std::mutex schedule;
    std::condition_variable changed;
    std::set<unsigned int> claimed;
    struct attempt {
        std::chrono::steady_clock::time_point due; /**< not before */
        unsigned int failures = 0;
    };
    std::map<unsigned int, attempt> retries;  /**< of failed transfers */
    std::map<unsigned int, attempt> shares;   /**< uploads to be shared */
    std::atomic<bool> knows_tus_only = false; /**< the server, as far as is known */

    std::atomic<bool> is_stopping = false;
    std::list<http> servers; /**< the server, for each thread */
    std::vector<std::future<void>> threads;
};

/** Sends a request for a path, or a URL, on the server; throws a failure unless the answer is a success. */
httplib::Response send(const service &s, http &server, const char *method, const std::string &url,
                       httplib::Headers headers, std::string body = {});

/** Scheme, host and port of a URL. */
inline std::string origin_of(const std::string &url)
{
    return url.substr(0, url.find('/', url.find("://") + 3));
}

/** Whether the server does more than tus: shares, push messages, thumbnails. */
inline bool has_shares(const service &s, http &server)
{
    return send(s, server, "OPTIONS", s.chosen.server, {}).has_header("Sharing-Extension");
}

/** A number among the headers of an answer: all of the value, or what stands behind its slash, as in bytes 0-9/1234. */
unsigned long long number_of(const httplib::Response &answer, const char *header);

/** Is told before each chunk how much has been moved of how many bytes; throws to break the transfer off. */
using observer = std::function<void(unsigned long long offset, unsigned long long size)>;

/* The roads of a file, from where the receiving end stands. They give its size. */
unsigned long long upload(const service &s, const zel_content_sync_info &row, http &server, const observer &tell);
unsigned long long download(const service &s, const zel_content_sync_info &row, http &server, const observer &tell);

/** What a received file is called until all of it is there. */
inline std::string part_of(const std::string &local_path)
{
    return local_path + ".part";
}

/* The door: lets clients of the same user in over a socket, and tells all of them what happens. Any thread may tell. */
void open_door(service &s);
void close_door(service &s);
void tell_progress(service &s, const zel_content_sync_info &row);
void tell_state(service &s, unsigned int req_id);
GVariant *file_of(const zel_content_sync_info &row); // a SHARING_FILE

/** Makes a request of a client's call, and queues it. Calls arrive on the main loop's thread. */
void take_call(service &s, const std::string &method, GVariant *arguments, GDBusMethodInvocation *invocation);

/* The movers: all that is known about a transfer is in the store, so the process can die at any moment. */
void start_movers(service &s);
void stop_movers(service &s);
void take_up(service &s, unsigned int req_id); // a request that is new in the store
quillo_upload_status_e status_of(unsigned int req_id);
bool is_settled(const service &s, unsigned int req_id); // nothing is left to be done, retries and its share included

/** A received share; throws when there is none. */
share received_share(const std::string &token);

/** Takes in the server's push messages, and has their thumbnails fetched, until the service stops. */
void listen(service &s, http &server);

/* What clients ask for; each gives the answer, or throws a failure. */
GVariant *pause(service &s, const zel_request &request);
GVariant *resume(service &s, const zel_request &request);
GVariant *cancel(service &s, const zel_request &request);
GVariant *forget(service &s, const zel_request &request);
GVariant *list_received(service &s, const zel_request &request);
GVariant *fetch(service &s, const zel_request &request);

/** An array of what make gives for each element. */
template <typename range, typename function> GVariant *array_of(const char *type, const range &elements, function make)
{
    GVariantBuilder array;
    g_variant_builder_init(&array, G_VARIANT_TYPE(type));
    for (const auto &element : elements)
        g_variant_builder_add_value(&array, make(element));
    return g_variant_builder_end(&array);
}

} // namespace sharing

#endif
