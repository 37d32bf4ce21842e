/* Every header of the library and an operation of each, in the common subset of C and C++. Only the static library has
 * the share encoding. */
#include <string.h>

#include <zel_common.h>
#include <zel_common_log.h>
#include <zel_common_queue.h>
#include <zel_common_request.h>
#include <zel_common_share_encoding.h>
#include <zel_common_storage.h>
#include <zel_common_thread.h>
#include <zel_platform.h>

#if !ZEL_COMMON_CHECK_VERSION(1, 1, 0) || ZEL_COMMON_CHECK_VERSION(2, 0, 0)
#error "another version"
#endif

static zel_request request;
static zel_trans_share_content_info share, *decoded;

int main(void)
{
    char bytes[100], token[] = "token";
    int written = 0, read = 0;
    share.contents_token = token;
    __set_share_content_info_list(bytes, &written, &share);
    __get_share_content_info_list(bytes, written, &read, &decoded);
    const bool is_right = decoded && read == written && strcmp(decoded->contents_token, token) == 0;
    _common_free_share_content_info(decoded);
    _common_free_zel_request_members(&request);
    zel_service_log(__FILE__, __func__, __LINE__, "CONSUMER", "%s", "hello");
    return !is_right || !_common_util_check_enhanced_feature() || _common_storage_init() != ZEL_ERR_NONE ||
           _common_queue_length(NULL) != 0 || _common_thread_get_wait_status(NULL);
}
