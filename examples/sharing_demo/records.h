/*
 * Holders for what the library hands out, and the one way in which the demo reports that a step failed.
 */
#ifndef SHARING_DEMO_RECORDS_H
#define SHARING_DEMO_RECORDS_H

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "zel_common.h"
#include "zel_common_request.h"
#include "zel_common_storage.h"

namespace demo
{

/** A step that failed: its result and a plain sentence. */
class failure : public std::runtime_error
{
  public:
    failure(zel_err_e result, const std::string &sentence) : std::runtime_error(sentence), code(result) {}
    const zel_err_e code;
};

/** Throws, naming the place of the call, unless an operation of the library succeeded. */
void must(zel_err_e result, const char *function = __builtin_FUNCTION(), int line = __builtin_LINE());

/** Whether a question was answered; that there is nothing to hand out is an answer too. */
bool found(zel_err_e result, const char *function = __builtin_FUNCTION(), int line = __builtin_LINE());

template <auto release> struct releaser {
    template <typename T> void operator()(T *record) const
    {
        release(record);
    }
};

using transfer = std::unique_ptr<zel_content_sync_info, releaser<_common_storage_free_sync_content_info>>;
using share = std::unique_ptr<zel_trans_share_content_info, releaser<_common_free_share_content_info>>;
using upload_report = std::unique_ptr<zel_trans_upload_info, releaser<_common_free_upload_info>>;
using queued_request = std::unique_ptr<comm_param_s, releaser<_common_free_zel_param_members>>;
using text = std::unique_ptr<char, releaser<g_free>>;
template <typename T> using array = std::unique_ptr<T[], releaser<g_free>>;

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

/** The store takes ids as signed numbers and keeps them as unsigned ones. */
inline int signed_id(unsigned int id)
{
    return static_cast<int>(id);
}

/** Takes over a list of transfers that the store handed out. */
std::vector<transfer> take_transfers(GList *list);

/** The transfers of one kind of a request, in the order in which they were stored. */
std::vector<transfer> transfers_of(zel_file_sync_type kind, unsigned int req_id);

/* The status of an upload, and of those of a request's transfers that have a given one. */
quillo_upload_status_e upload_status_of(unsigned int req_id);
void set_upload_status(unsigned int req_id, quillo_upload_status_e status);
void move_status(unsigned int req_id, zel_file_sync_status to, zel_file_sync_status from);

/** The uploads that are neither given up nor handed over to their recipients, as the store knows them. */
std::vector<unsigned int> unfinished_uploads();

/** A request id that was never used in this state folder; the last one is kept in the store's key-value table. */
unsigned int next_request_id();

/** Key of the last request id, which no wipe removes. */
inline constexpr char last_request_key[] = "demo_last_request_id";

} // namespace demo

#endif
