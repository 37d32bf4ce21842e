/* The release of the records that client, service and store exchange. */

#include "zel_common/records.h"
#include "zel_common_log/trace.h"

void zel_common::free_recipient(quillo_msisdn_s *recipient)
{
    if (!recipient)
        return;

    g_free(recipient->ccc);
    g_free(recipient->phone_number);
    g_free(recipient);
}

void _common_free_url_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *info = static_cast<zel_trans_url_info *>(data);
        g_free(info->url);
        g_free(info->content_type);
        g_free(info);
    }
    ZEL_END();
}

void _common_free_url_ids_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *info = static_cast<zel_trans_url_ids_info *>(data);
        g_free(info->id);
        g_free(info->url);
        g_free(info);
    }
    ZEL_END();
}

void __free_content_info(void *data)
{
    if (!data)
        return;

    auto *item = static_cast<zel_trans_content_info *>(data);
    g_free(item->original);
    g_free(item->thumbnail);
    g_free(item->mid_thumbnail);
    g_free(item->big_thumbnail);
    g_free(item->name);
    g_free(item->content_type);
    g_free(item->contents_token);
    g_free(item);
}

void _common_free_share_content_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *share = static_cast<zel_trans_share_content_info *>(data);
        g_free(share->contents_token);
        g_free(share->description);
        g_free(share->type);
        g_free(share->from_msisdn);
        g_free(share->to_list);
        g_list_free_full(share->content_info_list, __free_content_info);
        g_free(share);
    }
    ZEL_END();
}

void __free_file_path_list(void *data)
{
    ZEL_BEGIN();
    g_free(data);
    ZEL_END();
}

void _common_free_upload_info(void *data)
{
    ZEL_BEGIN();
    if (data) {
        auto *upload = static_cast<zel_trans_upload_info *>(data);
        for (size_t i = 0; upload->msisdn_list && i < upload->msisdn_count; ++i)
            zel_common::free_recipient(upload->msisdn_list[i]);
        g_free(upload->msisdn_list);
        g_list_free_full(upload->file_path_list, __free_file_path_list);
        g_free(const_cast<char *>(upload->contents_token));
        g_free(upload);
    }
    ZEL_END();
}
