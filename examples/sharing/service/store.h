/*
 * The floor of the service: how the library's store is asked, holders for what comes out, and the keys under which the
 * service keeps what the store has no columns for (README.md lists them).
 *
 * The store does not distinguish "busy" from "nothing there". An empty answer counts only if a key that always exists
 * was read before and after it. What cannot be asked within two seconds is a failure.
 */
#ifndef SHARING_SERVICE_STORE_H
#define SHARING_SERVICE_STORE_H

#include <optional>

#include "settings.h"
#include "share_message.h"
#include "zel_common_storage.h"

namespace sharing
{

using transfer = std::unique_ptr<zel_content_sync_info, releaser<_common_storage_free_sync_content_info>>;
using text = std::unique_ptr<char, releaser<g_free>>;
using upload_report = std::unique_ptr<zel_trans_upload_info, releaser<_common_free_upload_info>>;

/** Throws unless an operation of the library succeeded. */
void must(zel_err_e result);
void require(bool holds, zel_err_e otherwise, const std::string &sentence);

/** An exception as a failure. */
failure as_failure(const std::exception &reason);

/** Sets WAL on the database file, opens the store and makes its tables; throws unless all of it can be used. */
void open_store(const char *database);

/** Whether the store answers at this moment: the key that always exists is there. */
bool store_answers();

/** The time within which the store must answer. */
class patience
{
  public:
    /** Pauses before the next try; throws when the time is up or the service stops. */
    void wait();

  private:
    std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    std::chrono::milliseconds pause_{1};
};

/** Asks again until the answer, even an empty one, can be believed. */
template <typename question> auto surely(question ask)
{
    for (patience left;; left.wait())
        if (store_answers())
            if (auto answer = ask(); store_answers())
                return answer;
}

/**
 * Writes. A refusal (ZEL_ERR_STORAGE_FAILURE) is worth another try; what stays refused is thrown, never taken for done.
 * Ids go in as the operation wants them: the store takes some as signed, and keeps all unsigned.
 */
template <typename... parameters, typename... arguments>
void store(zel_err_e (*change)(parameters...), arguments... given)
{
    for (patience left;; left.wait())
        if (const zel_err_e result = change(static_cast<parameters>(given)...); result != ZEL_ERR_STORAGE_FAILURE)
            return must(result);
}

/** Reads; whether there is something. */
template <typename... parameters, typename... arguments>
bool found(zel_err_e (*question)(parameters...), arguments... given)
{
    const auto is_nothing = [](zel_err_e result) {
        return result == ZEL_ERR_STORAGE_NO_RECORDS || result == ZEL_ERR_RESOURCE_DOESNT_EXIST;
    };
    for (patience left;; left.wait()) {
        zel_err_e result = question(static_cast<parameters>(given)...);
        if (is_nothing(result) && store_answers()) {
            result = question(static_cast<parameters>(given)...);
            if (is_nothing(result) && store_answers())
                return false;
        }
        if (result == ZEL_ERR_NONE)
            return true;
        if (result != ZEL_ERR_STORAGE_FAILURE && !is_nothing(result))
            must(result);
    }
}

/** Reads a value that the question hands out last; 0 or NULL when there is nothing. */
template <typename value, typename operation, typename... arguments>
value value_of(operation question, arguments... given)
{
    value answer = {};
    found(question, given..., &answer);
    return answer;
}

/** Reads transfers, by a question that hands out their list before its last argument. */
template <typename operation, typename limit, typename... arguments>
std::vector<transfer> transfers_from(operation question, limit last, arguments... given)
{
    GList *list = nullptr;
    found(question, given..., &list, last);
    std::vector<transfer> transfers;
    for (auto *record : elements_of<zel_content_sync_info>(list))
        transfers.emplace_back(record);
    g_list_free(list);
    return transfers;
}

/* Transfers ------------------------------------------------------------------------------------------------------- */

/** A transfer that failed more often than this is given up. */
constexpr unsigned int max_retries = 5;

/** The transfers of one kind of a request, in the order in which they were stored. */
std::vector<transfer> transfers_of(zel_file_sync_type kind, unsigned int req_id);

transfer transfer_of(unsigned int sync_id);

/** Stores a transfer; its id goes to the record. The record has its kind, request and status, and texts as needed. */
void add_transfer(zel_content_sync_info &row, std::string name, std::string path);

/** Rewrites status and retries of a transfer. */
void set_retries(zel_content_sync_info &row, zel_file_sync_status status, unsigned int retries);

inline bool is_given_up(const zel_content_sync_info &row)
{
    return row.status == ZEL_SYNC_FAILED && row.fail_retry_count > max_retries;
}

/** The kind of a request's transfers; ZEL_UNKNOWN when it has none. */
zel_file_sync_type kind_of(unsigned int req_id);

/** QUILLO_UPLOAD_STATUS_NONE when the upload is not stored (yet). */
quillo_upload_status_e upload_status_of(unsigned int req_id);

/** Every upload, the latest first. */
std::vector<unsigned int> all_uploads();

/* Keys ------------------------------------------------------------------------------------------------------------ */

/** What stands under a key. */
struct entry {
    std::string value;
    std::string extra[3];
};

std::optional<entry> entry_at(const std::string &key);
void set_entry(const std::string &key, const entry &content);
void remove_entry(const std::string &key);

/** A number that stands under a key; 0 when there is none. */
unsigned long long number_at(const std::string &key);

/** The last request id that was given away. */
constexpr char last_request[] = "sharingd.request";

/** A request id that was never used with this store. */
unsigned int next_request_id();

/** Why a transfer or a request failed last, and the code that clients get for it. */
struct trouble {
    int code = 0;
    std::string sentence;
};

trouble trouble_of(const char *what, unsigned int id);
void set_trouble(const char *what, unsigned int id, const failure &reason);
void clear_trouble(const char *what, unsigned int id);

/** What a fetch is of, and where to. Stored last of a fetch, it makes the transfers of its request count. */
struct fetch {
    std::string token;
    std::string folder;
    size_t items = 0;
    bool is_cancelled = false;
};

std::optional<fetch> fetch_of(unsigned int req_id);
void set_fetch(unsigned int req_id, const fetch &content);

/** The request that fetches, or fetched, a share to a folder. */
std::optional<unsigned int> request_for(const std::string &token, const std::string &folder);

/** Removes the way to a request, if it is (still) that one's. */
void remove_folder_key(const std::string &token, const std::string &folder, unsigned int req_id);

/** What a transfer's file is: for an upload when the request was made, for a download when it is complete. */
std::string file_key(unsigned int sync_id);

/** Removes what the service keeps of a transfer or a request under keys. */
void remove_keys_of_transfer(unsigned int sync_id);
void remove_keys_of_request(unsigned int req_id);

} // namespace sharing

#endif
