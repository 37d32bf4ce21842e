#include "push.h"

// The library does not export its byte encoding, since on a device only the service's own push handler takes part in
// it. This file stands in for that handler and for the sender, so it reaches into the static library.
#include "zel_common_request/share_encoding.h"

namespace demo
{

std::vector<char> encode_share(zel_trans_share_content_info &record)
{
    std::vector<char> message(__find_length_of_share_content_info_list(&record));
    int end = 0;
    must(__set_share_content_info_list(message.data(), &end, &record));
    if (static_cast<size_t>(end) != message.size())
        throw failure(ZEL_ERR_INTERNAL_ERROR, "The encoded share does not have the size that was computed for it.");
    return message;
}

share decode_share(const std::vector<char> &message)
{
    zel_trans_share_content_info *record = nullptr;
    int end = 0;
    must(__get_share_content_info_list(message.data(), static_cast<int>(message.size()), &end, &record));
    share decoded(record);
    if (static_cast<size_t>(end) != message.size())
        throw failure(ZEL_ERR_INTERNAL_ERROR, "The push message holds more than a share.");
    return decoded;
}

} // namespace demo
