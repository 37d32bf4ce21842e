/*
 * The ways in which the service asks the store, holders for what comes out, and the questions asked at several places.
 */
#ifndef SHARING_SERVICE_STORE_H
#define SHARING_SERVICE_STORE_H

#include <chrono>
#include <mutex>
#include <thread>

#include "share_message.h"
#include "zel_common_storage.h"

namespace sharing
{

using transfer = std::unique_ptr<zel_content_sync_info, releaser<_common_storage_free_sync_content_info>>;
using text = std::unique_ptr<char, releaser<g_free>>;
using upload_report = std::unique_ptr<zel_trans_upload_info, releaser<_common_free_upload_info>>;

constexpr zel_file_sync_type all_kinds[] = {ZEL_UPLOAD_FILE, ZEL_DOWNLOAD_THUMBNAIL, ZEL_DOWNLOAD_FILE};

/** Throws unless an operation of the library succeeded. */
inline void must(zel_err_e result)
{
    if (result != ZEL_ERR_NONE)
        throw failure(result, "The library answered " + std::to_string(result) + "; the trace tells where.");
}

inline void require(bool holds, zel_err_e otherwise, const std::string &sentence)
{
    if (!holds)
        throw failure(otherwise, sentence);
}

/** An exception as a failure. */
inline failure as_failure(const std::exception &reason)
{
    const auto *known = dynamic_cast<const failure *>(&reason);
    return known ? *known : failure(ZEL_ERR_INTERNAL_ERROR, reason.what());
}

/**
 * Asks the store until it does not refuse. Another program may hold the database for a moment: the library tries for a
 * millisecond and answers ZEL_ERR_STORAGE_FAILURE then, so this tries again, for two seconds. Any other answer is one
 * that will not change. Ids go in as the operation wants them: the store takes some as signed, and keeps all unsigned.
 */
template <typename... parameters, typename... arguments>
zel_err_e ask(zel_err_e (*operation)(parameters...), arguments... given)
{
    using namespace std::chrono;
    const auto end = steady_clock::now() + seconds(2);
    for (milliseconds pause(1);; pause = std::min(pause * 2, milliseconds(100))) {
        const zel_err_e result = operation(static_cast<parameters>(given)...);
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

/** Reads a value that the question hands out last; 0 or NULL when there is nothing. */
template <typename value, typename operation, typename... arguments> value read(operation question, arguments... given)
{
    value answer = {};
    found(question, given..., &answer);
    return answer;
}

/** Reads transfers, by a question that hands out their list behind the arguments but the last one. */
template <typename operation, typename limit, typename... arguments>
std::vector<transfer> read_transfers(operation question, limit last, arguments... given)
{
    GList *list = nullptr;
    found(question, given..., &list, last);
    std::vector<transfer> transfers;
    for (auto *record : elements_of<zel_content_sync_info>(list))
        transfers.emplace_back(record);
    g_list_free(list);
    return transfers;
}

/** The transfers of one kind of a request, in the order in which they were stored. */
inline std::vector<transfer> transfers_of(zel_file_sync_type kind, unsigned int req_id)
{
    return read_transfers(_common_storage_get_sync_content_info_list_only_by_req_id, req_id, kind);
}

inline transfer transfer_of(unsigned int sync_id)
{
    return transfer(read<zel_content_sync_info *>(_common_storage_get_sync_content_info_by_sync_id, sync_id));
}

/** Stores a transfer that waits; row has what it is to have besides. */
inline void add_transfer(zel_content_sync_info row, zel_file_sync_type kind, unsigned int req_id, std::string name,
                         std::string path)
{
    row.type = kind;
    row.status = ZEL_SYNC_TODO;
    row.req_id = req_id;
    row.name = name.data();
    row.local_path = path.data();
    write(_common_storage_add_sync_content_info, &row);
}

/** The kind of a request's transfers; ZEL_UNKNOWN when it has none. */
inline zel_file_sync_type kind_of(unsigned int req_id)
{
    return static_cast<zel_file_sync_type>(read<int>(_common_storage_get_sync_type_by_req_id, req_id));
}

/** QUILLO_UPLOAD_STATUS_NONE when the upload is not stored (yet). */
inline quillo_upload_status_e upload_status_of(unsigned int req_id)
{
    return static_cast<quillo_upload_status_e>(read<int>(_common_storage_get_upload_status, req_id));
}

/** Every upload, the latest first. */
inline std::vector<unsigned int> all_uploads()
{
    unsigned int *ids = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_request_id_list, APP_TYPE_NONE, &ids, &count);
    const std::unique_ptr<unsigned int[], releaser<g_free>> owned(ids);
    return {ids, ids + count};
}

/** A number of the key-value table; 0 when there is none. */
inline unsigned long long number_at(const char *key)
{
    char *value = nullptr;
    found(_common_storage_get_unique_data, key, &value, nullptr, nullptr, nullptr);
    return std::strtoull(text_of(text(value).get()).c_str(), nullptr, 10);
}

inline void set_number(const char *key, unsigned long long value)
{
    write(_common_storage_upsert_unique_data, key, std::to_string(value).c_str(), nullptr, nullptr, nullptr);
}

/** A request id that was never used with this store. */
inline unsigned int next_request_id()
{
    static std::mutex one_at_a_time;
    const std::lock_guard lock(one_at_a_time);
    const auto next = static_cast<unsigned int>(number_at("sharingd.request") + 1);
    set_number("sharingd.request", next);
    return next;
}

/** Why a transfer or a request failed last, and the code that clients get for it. */
struct trouble {
    int code = 0;
    std::string sentence;
};

inline trouble trouble_of(const std::string &what, unsigned int id)
{
    char *sentence = nullptr;
    char *code = nullptr;
    found(_common_storage_get_unique_data, ("sharingd.trouble." + what + "." + std::to_string(id)).c_str(), &sentence,
          &code, nullptr, nullptr);
    const text owned(code);
    return {code ? static_cast<int>(std::strtol(code, nullptr, 10)) : 0, text_of(text(sentence).get())};
}

/** Stores why a transfer or a request failed last, or that it did not. */
inline void note_trouble(const std::string &what, unsigned int id, const failure *reason)
{
    const std::string key = "sharingd.trouble." + what + "." + std::to_string(id);
    if (!reason)
        return write(_common_storage_delete_unique_data, key.c_str());
    const int code = _common_util_convert_service_error_to_client_error(reason->code);
    write(_common_storage_upsert_unique_data, key.c_str(), reason->what(), std::to_string(code).c_str(), nullptr,
          nullptr);
}

} // namespace sharing

#endif
