/* Copy and release of a client's request. */

#include "zel_common_request/request.h"
#include "zel_common_log/trace.h"

namespace
{

/** A null list is valid in a request and is not logged. */
GList *dup_if_set(const GList *list)
{
    return list ? _common_glist_dup(list) : nullptr;
}

} // namespace

GList *_common_glist_dup(const GList *src)
{
    ZEL_BEGIN();
    if (!src)
        ZEL_CRITICAL("[src] is NULL_PARAM");

    GList *copy = nullptr;
    for (const GList *node = src; node; node = node->next) {
        if (!node->data) {
            ZEL_CRITICAL("NULL string");
            break;
        }
        copy = g_list_prepend(copy, g_strdup(static_cast<const char *>(node->data)));
    }
    ZEL_END();
    return g_list_reverse(copy);
}

zel_err_e _common_copy_zel_request_members(const zel_request *src_request, zel_request *dst_request)
{
    ZEL_BEGIN();
    if (!src_request || !dst_request)
        return reject("Invalid parameters");

    *dst_request = *src_request;
    dst_request->description = g_strdup(src_request->description);
    dst_request->local_path = g_strdup(src_request->local_path);
    dst_request->url = g_strdup(src_request->url);
    dst_request->contents_token = g_strdup(src_request->contents_token);
    dst_request->folder_token = g_strdup(src_request->folder_token);
    dst_request->group_id = g_strdup(src_request->group_id);
    dst_request->receiver_list = dup_if_set(src_request->receiver_list);
    dst_request->url_list = dup_if_set(src_request->url_list);
    dst_request->file_list = dup_if_set(src_request->file_list);
    if (src_request->caller) {
        app_control_h clone = nullptr;
        const int result = app_control_clone(&clone, src_request->caller);
        ZEL_DEBUG("app_control_clone result : [%d]", result);
        dst_request->caller = result == 0 ? clone : nullptr;
    }
    ZEL_END();
    return ZEL_ERR_NONE;
}

void _common_free_zel_request_members(zel_request *request)
{
    ZEL_BEGIN();
    if (!request) {
        ZEL_CRITICAL("[request] is NULL_PARAM");
        ZEL_END();
        return;
    }

    g_clear_pointer(&request->local_path, g_free);
    g_clear_pointer(&request->url, g_free);
    g_clear_pointer(&request->contents_token, g_free);
    g_clear_pointer(&request->folder_token, g_free);
    g_clear_pointer(&request->description, g_free);
    g_clear_pointer(&request->group_id, g_free);

    ZEL_DEBUG("g_list_free_full");
    g_list_free_full(request->receiver_list, g_free);
    g_list_free_full(request->url_list, g_free);
    g_list_free_full(request->file_list, g_free);
    g_list_free_full(request->server_file_list, g_free);

    ZEL_DEBUG("destroy app control");
    if (request->caller) {
        const int result = app_control_destroy(request->caller);
        ZEL_DEBUG("app_control_destroy ret[%d]", result);
    }

    g_clear_pointer(&request->list_next, g_free);
    g_clear_pointer(&request->list_more, g_free);
    ZEL_END();
}

void _common_free_zel_request(zel_request *request)
{
    ZEL_BEGIN();
    if (request) {
        _common_free_zel_request_members(request);
        g_free(request);
    } else {
        ZEL_CRITICAL("[request] is NULL_PARAM");
    }
    ZEL_END();
}

void _common_free_zel_param_members(comm_param_s *param)
{
    ZEL_BEGIN();
    if (param) {
        _common_free_zel_request_members(&param->request);
        g_free(param);
    }
    ZEL_END();
}
