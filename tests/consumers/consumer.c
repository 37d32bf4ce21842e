/* A program outside the tree, in what C and C++ have in common: one operation of every area, and whether its answer is
 * right. */
#include <stdio.h>

#include <zel_common.h>
#include <zel_common_log.h>
#include <zel_common_queue.h>
#include <zel_common_request.h>
#ifdef ZEL_LINKED_STATICALLY
#include <zel_common_share_encoding.h>
#endif
#include <zel_common_storage.h>
#include <zel_common_thread.h>

#define CHECK(truth) ((truth) ? (void)0 : (void)(++failures, printf("consumer.c:%d: not so: %s\n", __LINE__, #truth)))
#if !ZEL_COMMON_CHECK_VERSION(1, 1, 0) || ZEL_COMMON_CHECK_VERSION(2, 0, 0)
#error "another version"
#endif

#define IS(text, wanted) (g_strcmp0((const char *)(text), wanted) == 0)

static int failures;
static char done[] = "done";
static zel_thread_s *thread;
static zel_request request, copy;

static void *work(void *queue)
{
    _common_thread_notify_started(thread);
    _common_thread_sendSignal(thread);
    _common_queue_push((zel_queue_s *)queue, done);
    return NULL;
}

int main(void)
{
    CHECK(_common_util_convert_service_error_to_client_error(ZEL_ERR_MEMORY) == QUILLO_ERROR_OUT_OF_MEMORY);
    CHECK(_common_util_check_enhanced_feature());
    zel_service_log(__FILE__, __func__, __LINE__, "CONSUMER", "%s", "hello");

    zel_hash_table *table = NULL;
    _common_init_hash_table(&table, g_free, g_free);
    _common_write_to_hash_table(table, g_strdup("key"), g_strdup("value"));
    CHECK(IS(_common_read_from_hash_table(table, "key"), "value"));
    _common_deinit_hash_table(table);

    zel_queue_s *queue = NULL;
    CHECK(_common_queue_init(&queue) == ZEL_ERR_NONE);
    CHECK(_common_thread_start(&thread, work, queue));
    CHECK(_common_thread_wait_till_start(thread));
    CHECK(IS(_common_queue_pop(queue), "done"));
    _common_thread_stop(thread);
    _common_queue_deinit(queue, NULL);

    request.file_list = g_list_append(NULL, g_strdup("a.jpg"));
    CHECK(_common_copy_zel_request_members(&request, &copy) == ZEL_ERR_NONE);
    CHECK(IS(copy.file_list->data, "a.jpg"));
    _common_free_zel_request_members(&copy);
    _common_free_zel_request_members(&request);

#ifdef ZEL_LINKED_STATICALLY
    zel_trans_share_content_info share = {0}, *decoded = NULL;
    char bytes[100], text[] = "token";
    int written = 0, decoded_bytes = 0;
    share.contents_token = text;
    CHECK(__set_share_content_info_list(bytes, &written, &share) == ZEL_ERR_NONE);
    CHECK(__get_share_content_info_list(bytes, written, &decoded_bytes, &decoded) == ZEL_ERR_NONE);
    CHECK(decoded_bytes == written && decoded && IS(decoded->contents_token, "token"));
    _common_free_share_content_info(decoded);
#endif

    char *token = NULL;
    unsigned long long synced = 0;
    CHECK(_common_storage_init() == ZEL_ERR_NONE);
    CHECK(_common_storage_upsert_folder_info("group", "content", 1, "folder", 2, 1ULL << 40) == ZEL_ERR_NONE);
    CHECK(_common_storage_get_folder_info("group", NULL, NULL, &token, NULL, &synced) == ZEL_ERR_NONE);
    CHECK(IS(token, "folder") && synced == 1ULL << 40);
    g_free(token);

    printf("%d failed\n", failures);
    return failures != 0;
}
