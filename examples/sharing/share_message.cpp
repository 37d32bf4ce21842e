#include "share_message.h"

// The library does not export its byte encoding, since on a device only the service's push handler takes part in it.
// Here all three programs do, so they are linked with the static library.
#include "zel_common_request/share_encoding.h"

namespace sharing
{

std::string encode(zel_trans_share_content_info &record)
{
    std::string message(__find_length_of_share_content_info_list(&record), '\0');
    int end = 0;
    if (__set_share_content_info_list(message.data(), &end, &record) != ZEL_ERR_NONE ||
        static_cast<size_t>(end) != message.size())
        throw failure(ZEL_ERR_INTERNAL_ERROR, "The share could not be encoded.");
    return message;
}

share decode(const std::string &message)
{
    zel_trans_share_content_info *record = nullptr;
    int end = 0;
    const zel_err_e result =
        __get_share_content_info_list(message.data(), static_cast<int>(message.size()), &end, &record);
    share decoded(record);
    if (result != ZEL_ERR_NONE || static_cast<size_t>(end) != message.size())
        throw failure(ZEL_ERR_BAD_JSON_FORMAT, "The message is not one whole share.");
    return decoded;
}

share_item &add_item(zel_trans_share_content_info &record, const std::string &original, const std::string &name)
{
    auto *item = g_new0(share_item, 1);
    item->original = g_strdup(original.c_str());
    item->name = g_strdup(name.c_str());
    record.content_info_list = g_list_append(record.content_info_list, item);
    return *item;
}

} // namespace sharing
