/* A C program outside the tree: one operation of every area, and whether its answer is right. */
#include <stdio.h>

#include "zel_common.h"
#include "zel_common_log.h"
#include "zel_common_queue.h"
#include "zel_common_request.h"
#include "zel_common_storage.h"
#include "zel_common_thread.h"

#define CHECK(truth) ((truth) ? (void)0 : (void)(++failures, printf("consumer.c:%d: not so: %s\n", __LINE__, #truth)))

static int failures;
static zel_thread_s *thread;

static void *work(void *queue)
{
    _common_thread_notify_started(thread);
    _common_thread_sendSignal(thread);
    _common_queue_push(queue, "done");
    return NULL;
}

int main(void)
{
    CHECK(_common_util_convert_service_error_to_client_error(ZEL_ERR_MEMORY) == QUILLO_ERROR_OUT_OF_MEMORY);
    zel_service_log(__FILE__, __func__, __LINE__, "CONSUMER", "%s", "hello");

    zel_hash_table *table = NULL;
    _common_init_hash_table(&table, g_free, g_free);
    _common_write_to_hash_table(table, g_strdup("key"), g_strdup("value"));
    CHECK(g_strcmp0(_common_read_from_hash_table(table, "key"), "value") == 0);
    _common_deinit_hash_table(table);

    zel_queue_s *queue = NULL;
    CHECK(_common_queue_init(&queue) == ZEL_ERR_NONE);
    CHECK(_common_thread_start(&thread, work, queue));
    CHECK(_common_thread_wait_till_start(thread));
    CHECK(g_strcmp0(_common_queue_pop(queue), "done") == 0);
    _common_thread_stop(thread);
    _common_queue_deinit(queue, NULL);

    zel_request request = {.cmd = ZEL_CMD_UPLOAD, .file_list = g_list_append(NULL, g_strdup("a.jpg"))};
    zel_request copy = {.cmd = ZEL_CMD_UNKNOWN};
    CHECK(_common_copy_zel_request_members(&request, &copy) == ZEL_ERR_NONE);
    CHECK(copy.cmd == ZEL_CMD_UPLOAD && g_strcmp0(copy.file_list->data, "a.jpg") == 0);
    _common_free_zel_request_members(&copy);
    _common_free_zel_request_members(&request);

    CHECK(_common_util_check_enhanced_feature());

    char *value = NULL;
    CHECK(_common_storage_init() == ZEL_ERR_NONE);
    CHECK(_common_storage_upsert_unique_data("greeting", "Hello from C", NULL, NULL, NULL) == ZEL_ERR_NONE);
    CHECK(_common_storage_get_unique_data("greeting", &value, NULL, NULL, NULL) == ZEL_ERR_NONE);
    CHECK(g_strcmp0(value, "Hello from C") == 0);
    g_free(value);

    printf("C: %d failed\n", failures);
    return failures != 0;
}
