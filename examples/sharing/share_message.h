/*
 * What the programs have in common: the way in which a step reports that it failed, and a share as a message between
 * them, which is the library's byte encoding of the record. The library does not export it, since on a device only
 * the service's push handler uses it. Here all three programs do, so they link the static library.
 */
#ifndef SHARING_SHARE_MESSAGE_H
#define SHARING_SHARE_MESSAGE_H

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "zel_common_share_encoding.h"

namespace sharing
{

/** A step that failed: its result and a plain sentence. */
class failure : public std::runtime_error
{
  public:
    failure(zel_err_e result, const std::string &sentence) : std::runtime_error(sentence), code(result) {}
    const zel_err_e code;
};

template <auto release> struct releaser {
    template <typename T> void operator()(T *record) const
    {
        release(record);
    }
};

using share = std::unique_ptr<zel_trans_share_content_info, releaser<_common_free_share_content_info>>;
using share_item = zel_trans_content_info;

/** The elements of a GLib list, in order. */
template <typename T> std::vector<T *> elements_of(GList *list)
{
    std::vector<T *> elements;
    for (GList *node = list; node; node = node->next)
        elements.push_back(static_cast<T *>(node->data));
    return elements;
}

/** A text of a record, in which an empty one is NULL. */
inline std::string text_of(const char *maybe)
{
    return maybe ? maybe : "";
}

inline std::string encode(zel_trans_share_content_info &record)
{
    std::string message(__find_length_of_share_content_info_list(&record), '\0');
    int end = 0;
    if (__set_share_content_info_list(message.data(), &end, &record) != ZEL_ERR_NONE)
        throw failure(ZEL_ERR_INTERNAL_ERROR, "The share could not be encoded.");
    return message;
}

/** Takes a message apart; throws when it holds anything but one whole share. */
inline share decode(const std::string &message)
{
    zel_trans_share_content_info *record = nullptr;
    const int size = static_cast<int>(message.size());
    int end = 0;
    const zel_err_e result = __get_share_content_info_list(message.data(), size, &end, &record);
    share decoded(record);
    if (result != ZEL_ERR_NONE || end != size)
        throw failure(ZEL_ERR_BAD_JSON_FORMAT, "The message is not one whole share.");
    return decoded;
}

} // namespace sharing

#endif
