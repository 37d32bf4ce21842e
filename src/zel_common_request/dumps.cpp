/* Dumps of a request and a share to the log. */

#include "zel_common_request/dumps.h"
#include "zel_common_log/trace.h"

void __print_share_content_info_list(const zel_trans_share_content_info *share_content_info)
{
    ZEL_BEGIN();
    if (!share_content_info)
        return (void)reject("Fail: Invalid Parameter");

    ZEL_INFO("contents_token [%s]", log_text(share_content_info->contents_token));
    ZEL_INFO("description [%s]", log_text(share_content_info->description));
    ZEL_PLAIN("type [%s]", log_text(share_content_info->type));
    ZEL_PLAIN("from_msisdn [%s]", log_text(share_content_info->from_msisdn));
    ZEL_PLAIN("to_list [%s]", log_text(share_content_info->to_list));
    ZEL_PLAIN("expired_time [%llu]", share_content_info->expired_time);
    ZEL_INFO("push_status [%u]", share_content_info->push_status);
    ZEL_INFO("content_info_list_length [%u]", share_content_info->content_info_list_length);

    const GList *node = share_content_info->content_info_list;
    for (unsigned int i = 0; node && i < share_content_info->content_info_list_length; ++i, node = node->next) {
        const auto *content_info = static_cast<const zel_trans_content_info *>(node->data);
        if (!content_info)
            continue;
        ZEL_INFO("original [%s]", log_text(content_info->original));
        ZEL_INFO("thumbnail [%s]", log_text(content_info->thumbnail));
        ZEL_INFO("mid_thumbnail [%s]", log_text(content_info->mid_thumbnail));
        ZEL_INFO("big_thumbnail [%s]", log_text(content_info->big_thumbnail));
        ZEL_INFO("name [%s]", log_text(content_info->name));
        ZEL_INFO("content_type [%s]", log_text(content_info->content_type));
        ZEL_INFO("contents_token [%s]", log_text(content_info->contents_token));
        ZEL_INFO("download_count [%u]", content_info->download_count);
        ZEL_INFO("max_download_count [%u]", content_info->max_download_count);
        ZEL_INFO("size [%u]", content_info->size);
        ZEL_INFO("content_id [%u]", content_info->content_id);
    }
    ZEL_END();
}

void __print_zel_request(const zel_request *request, const char *from, int line)
{
    from = log_text(from);
    ZEL_INFO("from %s(%d) > cmd [%d]", from, line, request->cmd);
    ZEL_INFO("from %s(%d) > req_id [%d]", from, line, static_cast<int>(request->req_id));
    ZEL_INFO("from %s(%d) > receiver_count [%d]", from, line, static_cast<int>(request->receiver_count));
    ZEL_INFO("from %s(%d) > url_count [%d]", from, line, static_cast<int>(request->url_count));
    ZEL_INFO("from %s(%d) > file_count [%d]", from, line, static_cast<int>(request->file_count));
    ZEL_PLAIN("from %s(%d) > contents_token [%s]", from, line, log_text(request->contents_token));
    ZEL_INFO("from %s(%d) > content_token_expired_time [%lld]", from, line,
             static_cast<long long>(request->content_token_expired_time));
    ZEL_PLAIN("from %s(%d) > folder_token [%s]", from, line, log_text(request->folder_token));
    ZEL_INFO("from %s(%d) > folder_token_expired_time [%lld]", from, line,
             static_cast<long long>(request->folder_token_expired_time));
    ZEL_PLAIN("from %s(%d) > group_id [%s]", from, line, log_text(request->group_id));
    ZEL_PLAIN("from %s(%d) > thumbnail_type [%d]", from, line, request->thumbnail_type);
    ZEL_PLAIN("from %s(%d) > g_list_length(file_list) [%d]", from, line,
              static_cast<int>(g_list_length(request->file_list)));
    for (const GList *node = request->file_list; node; node = node->next)
        ZEL_PLAIN("from %s(%d) > file [%s]", from, line, log_text(static_cast<const char *>(node->data)));
}
