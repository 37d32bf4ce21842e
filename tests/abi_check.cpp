// What users of the public headers compile in: the order of fields (a designator out of order is an error) and their
// width. An enumerator's value stands in its header.
#include "zel_common.h"
#include "zel_common_queue.h"
#include "zel_common_request.h"
#include "zel_common_storage.h"
#include "zel_common_thread.h"

#include <cstddef>

namespace
{

constexpr bool is(size_t size, size_t on_64_bits, size_t on_32_bits)
{
    return size == (sizeof(void *) == 8 ? on_64_bits : on_32_bits);
}

} // namespace

// clang-format off
static_assert(is(sizeof(zel_request{.cmd = {}, .req_id = {}, .receiver_count = {}, .url_count = {}, .file_count = {},
    .cancel_id = {}, .setting_status = {}, .reconnecting_to_server = {}, .type = {}, .thumbnail_type = {},
    .description = {}, .local_path = {}, .url = {}, .contents_token = {}, .content_token_expired_time = {},
    .folder_token = {}, .folder_token_expired_time = {}, .group_id = {}, .receiver_list = {}, .url_list = {},
    .file_list = {}, .server_file_list = {}, .server_timestamp = {}, .list_count = {}, .list_next = {},
    .list_more = {}, .response_mutex = {}, .send_push = {}, .caller = {}}), 192, 144));
static_assert(is(sizeof(comm_param_s{.request = {}, .ongoing = {}, .reconnecting = {}, .pending_destroy = {},
    .is_pause = {}, .is_started = {}, .handle = {}}), 208, 160));
static_assert(offsetof(comm_param_s, is_started) == sizeof(zel_request) + 4);
static_assert(is(sizeof(zel_trans_url_info{.url = {}, .content_type = {}}), 16, 8));
static_assert(is(sizeof(zel_trans_url_ids_info{.id = {}, .url = {}, .expired_time = {}}), 24, 16));
static_assert(is(sizeof(zel_trans_content_info{.original = {}, .thumbnail = {}, .mid_thumbnail = {},
    .big_thumbnail = {}, .name = {}, .content_type = {}, .contents_token = {}, .download_count = {},
    .max_download_count = {}, .size = {}, .content_id = {}}), 72, 44));
static_assert(is(sizeof(zel_trans_share_content_info{.contents_token = {}, .description = {}, .type = {},
    .from_msisdn = {}, .to_list = {}, .expired_time = {}, .content_info_list_length = {}, .content_info_list = {},
    .push_status = {}}), 72, 48));
static_assert(is(sizeof(zel_trans_upload_info{.request_id = {}, .total_size = {}, .file_count = {},
    .file_path_list = {}, .expired_time = {}, .sent_time = {}, .contents_token = {}, .msisdn_count = {},
    .msisdn_list = {}, .status = {}}), 80, 56));
static_assert(is(sizeof(quillo_msisdn_s{.ccc = {}, .phone_number = {}, .number_id = {}, .group_id = {}}), 24, 16));
static_assert(is(sizeof(zel_content_sync_info{.sync_id = {}, .type = {}, .status = {}, .content_id = {}, .req_id = {},
    .wifi_only = {}, .fail_retry_count = {}, .percentage = {}, .offset = {}, .chunk_no = {}, .sent_time = {},
    .contents_token = {}, .original = {}, .thumbnail = {}, .name = {}, .local_path = {}, .mupload_key = {}}), 96, 72));
static_assert(is(sizeof(zel_upload_request_info{.unique_id = {}, .req_id = {}, .file_count = {}, .status = {},
    .receiver_count = {}, .expired_time = {}, .total_size = {}, .contents_token = {}, .app_type = {}, .from_ccc = {},
    .from_number = {}, .description = {}, .sent_time = {}}), 88, 72));
static_assert(is(sizeof(zel_hash_table{.mutex = {}, .table = {}}), 48, 28));
static_assert(is(sizeof(zel_queue_s{.available_lock = {}, .available_signal = {}, .queue_wait_status = {},
    .item_list = {}}), 104, 80));
static_assert(is(sizeof(zel_thread_s{.thread_id = {}, .is_running = {}, .available_lock = {}, .available_signal = {},
    .thread_wait_status = {}, .data = {}}), 120, 88));
// clang-format on
