/*
 * The push message of a received share: the library's byte encoding of the share record.
 */
#ifndef SHARING_DEMO_PUSH_H
#define SHARING_DEMO_PUSH_H

#include <vector>

#include "records.h"

namespace demo
{

/** What the server's push service sends to a device. */
std::vector<char> encode_share(zel_trans_share_content_info &record);

/** What the device makes of it. */
share decode_share(const std::vector<char> &message);

} // namespace demo

#endif
