#include "records.h"

namespace demo
{

void must(zel_err_e result, const char *function, int line)
{
    if (result != ZEL_ERR_NONE)
        throw failure(result, std::string(function) + "(" + std::to_string(line) + "): the library answered " +
                                  std::to_string(result) + "; the trace tells more.");
}

bool found(zel_err_e result, const char *function, int line)
{
    if (result == ZEL_ERR_STORAGE_NO_RECORDS || result == ZEL_ERR_RESOURCE_DOESNT_EXIST)
        return false;
    must(result, function, line);
    return true;
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
    found(_common_storage_get_sync_content_info_list_only_by_req_id(kind, &list, signed_id(req_id)));
    return take_transfers(list);
}

quillo_upload_status_e upload_status_of(unsigned int req_id)
{
    int status = 0;
    must(_common_storage_get_upload_status(req_id, &status));
    return static_cast<quillo_upload_status_e>(status);
}

void set_upload_status(unsigned int req_id, quillo_upload_status_e status)
{
    must(_common_storage_update_upload_status(signed_id(req_id), status));
}

void move_status(unsigned int req_id, zel_file_sync_status to, zel_file_sync_status from)
{
    must(_common_storage_update_status_sync_content_info_by_req_id(signed_id(req_id), to, from));
}

std::vector<unsigned int> unfinished_uploads()
{
    constexpr unsigned int every_application = 3;
    unsigned int *ids = nullptr;
    unsigned int count = 0;
    found(_common_storage_get_resumable_and_cancellable_upload_req_id_and_cnt(every_application, &ids, &count));
    const array<unsigned int> owned(ids);
    return {ids, ids + count};
}

unsigned int next_request_id()
{
    char *stored = nullptr;
    found(_common_storage_get_unique_data(last_request_key, &stored, nullptr, nullptr, nullptr));
    const text last(stored);
    const unsigned int next = last ? static_cast<unsigned int>(std::stoul(last.get())) + 1 : 1;
    must(_common_storage_upsert_unique_data(last_request_key, std::to_string(next).c_str(), nullptr, nullptr, nullptr));
    return next;
}

} // namespace demo
