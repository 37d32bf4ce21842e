/*
 * Holders for what the store hands out, and the ways in which the service asks it.
 */
#ifndef SHARING_SERVICE_STORE_H
#define SHARING_SERVICE_STORE_H

#include <chrono>
#include <thread>

#include "share_message.h"
#include "zel_common_request.h"
#include "zel_common_storage.h"

namespace sharing
{

using transfer = std::unique_ptr<zel_content_sync_info, releaser<_common_storage_free_sync_content_info>>;
using text = std::unique_ptr<char, releaser<g_free>>;
using upload_report = std::unique_ptr<zel_trans_upload_info, releaser<_common_free_upload_info>>;

constexpr zel_file_sync_type all_kinds[] = {ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE};

/** Throws unless an operation of the library succeeded. */
void must(zel_err_e result);

/**
 * Asks the store until it does not refuse. Another program may hold the database for a moment: the library tries for a
 * millisecond and answers ZEL_ERR_STORAGE_FAILURE then, so this tries again, for two seconds. Any other answer is one
 * that will not change.
 */
template <typename... parameters, typename... arguments>
zel_err_e ask(zel_err_e (*operation)(parameters...), arguments... given)
{
    using namespace std::chrono;
    const auto end = steady_clock::now() + seconds(2);
    for (milliseconds pause(1);; pause = std::min(pause * 2, milliseconds(100))) {
        const zel_err_e result = operation(given...);
        if (result != ZEL_ERR_STORAGE_FAILURE || steady_clock::now() >= end)
            return result;
        std::this_thread::sleep_for(pause);
    }
}

/** Writes; what stays refused is thrown, never taken for done. */
template <typename operation, typename... arguments> void write(operation change, arguments... given)
{
    must(ask(change, given...));
}

/** Reads; whether there is something. */
template <typename operation, typename... arguments> bool found(operation question, arguments... given)
{
    const zel_err_e result = ask(question, given...);
    if (result == ZEL_ERR_STORAGE_NO_RECORDS || result == ZEL_ERR_RESOURCE_DOESNT_EXIST)
        return false;
    must(result);
    return true;
}

/** The store takes ids as signed numbers and keeps them as unsigned ones. */
inline int signed_id(unsigned int id)
{
    return static_cast<int>(id);
}

/** Takes over a list of transfers that the store handed out. */
std::vector<transfer> take_transfers(GList *list);

/** The transfers of one kind of a request, in the order in which they were stored. */
std::vector<transfer> transfers_of(zel_file_sync_type kind, unsigned int req_id);

/** NULL when there is none. */
transfer transfer_of(unsigned int sync_id);

/** The kind of a request's transfers; ZEL_UNKNOWN when it has none. */
zel_file_sync_type kind_of(unsigned int req_id);

/** QUILLO_UPLOAD_STATUS_NONE when the upload is not stored (yet). */
quillo_upload_status_e upload_status_of(unsigned int req_id);
void set_upload_status(unsigned int req_id, quillo_upload_status_e status);

/** Moves those of a request's transfers that have one status to another, in one step. */
void move_status(unsigned int req_id, zel_file_sync_status from, zel_file_sync_status to);

/** A received share; NULL when there is none. */
share share_of(const std::string &token);

/** Every upload, the latest first. */
std::vector<unsigned int> all_uploads();

/** A value of the key-value table; empty when there is none. */
std::string value_of(const std::string &key);
void set_value(const std::string &key, const std::string &value);

/** A request id that was never used with this store. */
unsigned int next_request_id();

/* Why a transfer or request failed last, and the code that clients get for it. */
struct trouble {
    int code = 0;
    std::string sentence;
};
std::string key_of_transfer(unsigned int sync_id);
std::string key_of_request(unsigned int req_id);
void note_trouble(const std::string &key, zel_err_e result, const std::string &sentence);
void forget_trouble(const std::string &key);
trouble trouble_of(const std::string &key);

} // namespace sharing

#endif
