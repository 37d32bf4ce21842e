#include "store.h"

#include <mutex>

namespace sharing
{

void must(zel_err_e result)
{
    if (result != ZEL_ERR_NONE)
        throw failure(result, "The library answered " + std::to_string(result) + "; the trace tells where.");
}

std::vector<transfer> take_transfers(GList *list)
{
    std::vector<transfer> transfers;
    for (auto *record : elements_of<zel_content_sync_info>(list))
        transfers.emplace_back(record);
    g_list_free(list);
    return transfers;
}

std::vector<transfer> transfers_of(zel_file_sync_type kind, unsigned int req_id)
{
    GList *list = nullptr;
    found(_common_storage_get_sync_content_info_list_only_by_req_id, kind, &list, signed_id(req_id));
    return take_transfers(list);
}

transfer transfer_of(unsigned int sync_id)
{
    zel_content_sync_info *row = nullptr;
    found(_common_storage_get_sync_content_info_by_sync_id, signed_id(sync_id), &row);
    return transfer(row);
}

zel_file_sync_type kind_of(unsigned int req_id)
{
    int kind = ZEL_UNKNOWN;
    found(_common_storage_get_sync_type_by_req_id, signed_id(req_id), &kind);
    return static_cast<zel_file_sync_type>(kind);
}

quillo_upload_status_e upload_status_of(unsigned int req_id)
{
    int status = QUILLO_UPLOAD_STATUS_NONE;
    found(_common_storage_get_upload_status, req_id, &status);
    return static_cast<quillo_upload_status_e>(status);
}

void set_upload_status(unsigned int req_id, quillo_upload_status_e status)
{
    write(_common_storage_update_upload_status, signed_id(req_id), status);
}

void move_status(unsigned int req_id, zel_file_sync_status from, zel_file_sync_status to)
{
    write(_common_storage_update_status_sync_content_info_by_req_id, signed_id(req_id), to, from);
}

std::vector<unsigned int> all_uploads()
{
    unsigned int *ids = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_request_id_list, APP_TYPE_NONE, &ids, &count);
    const std::unique_ptr<unsigned int[], releaser<g_free>> owned(ids);
    return {ids, ids + count};
}

share share_of(const std::string &token)
{
    zel_trans_share_content_info *record = nullptr;
    found(_common_storage_get_notification_data, token.c_str(), &record);
    return share(record);
}

std::string value_of(const std::string &key)
{
    char *value = nullptr;
    found(_common_storage_get_unique_data, key.c_str(), &value, nullptr, nullptr, nullptr);
    return text_of(text(value).get());
}

void set_value(const std::string &key, const std::string &value)
{
    write(_common_storage_upsert_unique_data, key.c_str(), value.c_str(), nullptr, nullptr, nullptr);
}

unsigned int next_request_id()
{
    static std::mutex one_at_a_time;
    const std::lock_guard lock(one_at_a_time);
    const std::string last = value_of("sharingd.request");
    const unsigned int next = last.empty() ? 1 : static_cast<unsigned int>(std::stoul(last)) + 1;
    set_value("sharingd.request", std::to_string(next));
    return next;
}

std::string key_of_transfer(unsigned int sync_id)
{
    return "sharingd.trouble.transfer." + std::to_string(sync_id);
}

std::string key_of_request(unsigned int req_id)
{
    return "sharingd.trouble.request." + std::to_string(req_id);
}

void note_trouble(const std::string &key, zel_err_e result, const std::string &sentence)
{
    const std::string code = std::to_string(_common_util_convert_service_error_to_client_error(result));
    write(_common_storage_upsert_unique_data, key.c_str(), sentence.c_str(), code.c_str(), nullptr, nullptr);
}

void forget_trouble(const std::string &key)
{
    write(_common_storage_delete_unique_data, key.c_str());
}

trouble trouble_of(const std::string &key)
{
    char *sentence = nullptr;
    char *code = nullptr;
    if (!found(_common_storage_get_unique_data, key.c_str(), &sentence, &code, nullptr, nullptr))
        return {};
    const text owned_sentence(sentence);
    const text owned_code(code);
    return {static_cast<int>(std::strtol(code, nullptr, 10)), sentence};
}

} // namespace sharing
