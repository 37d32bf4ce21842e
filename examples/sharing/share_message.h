/*
 * What the programs have in common: the way in which a step reports that it failed, and a share as a message between
 * them, which is the library's byte encoding of the record.
 */
#ifndef SHARING_SHARE_MESSAGE_H
#define SHARING_SHARE_MESSAGE_H

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "zel_common.h"

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

std::string encode(zel_trans_share_content_info &record);

/** Takes a message apart; throws when it holds anything but one whole share. */
share decode(const std::string &message);

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

/** Appends an item to a share; the texts are copied. */
share_item &add_item(zel_trans_share_content_info &record, const std::string &original, const std::string &name);

} // namespace sharing

#endif
