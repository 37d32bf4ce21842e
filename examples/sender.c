/*
 * Sends files in chunks on a worker thread and resumes after a kill: sender [FILE...]. Without a FILE it finishes the
 * files of earlier runs. The library moves no bytes: this program copies a file to FILE.sent.
 */
#include <stdio.h>

#include "zel_common_queue.h"
#include "zel_common_storage.h"
#include "zel_common_thread.h"

/* Retries a write that meets another program's lock, for two seconds; then ends the process. */
#define WRITE(call)                                                                                                    \
    do {                                                                                                               \
        int tries = 200;                                                                                               \
        while ((call) != ZEL_ERR_NONE && --tries > 0)                                                                  \
            g_usleep(10000);                                                                                           \
        if (tries == 0)                                                                                                \
            g_error("refused: %s", #call);                                                                             \
    } while (0)

static zel_queue_s *to_send, *ended;
static zel_thread_s *worker;
static char end_mark[] = "no more";
static int failures;

static bool send_file(const zel_content_sync_info *row)
{
    g_autofree char *target_path = g_strconcat(row->local_path, ".sent", NULL);
    char chunk[65536];
    unsigned int offset = row->offset, length = 0;
    int number = row->chunk_no;
    FILE *source = fopen(row->local_path, "rb"), *target = source ? fopen(target_path, offset ? "r+b" : "wb") : NULL;
    bool is_fine = target && fseek(source, (long)offset, SEEK_SET) == 0 && fseek(target, (long)offset, SEEK_SET) == 0;
    while (is_fine && (length = (unsigned int)fread(chunk, 1, sizeof chunk, source)) > 0) {
        is_fine = fwrite(chunk, 1, length, target) == length && fflush(target) == 0;
        if (is_fine) /* stored after the chunk: a kill repeats at most one chunk */
            WRITE(_common_storage_update_upload_info((int)row->sync_id, offset + length, number + 1));
        offset += length, ++number;
    }
    is_fine = is_fine && !ferror(source);
    printf("%s: %s, bytes %u to %u\n", row->local_path, is_fine ? "sent" : "failed", row->offset, offset);
    if (source)
        fclose(source);
    return target && fclose(target) == 0 && is_fine;
}

static void *work(void *unused)
{
    _common_thread_notify_started(worker);
    _common_thread_sendSignal(worker);
    for (zel_content_sync_info *row; (void *)(row = _common_queue_pop(to_send)) != end_mark;) {
        if (!row)
            continue; /* the queue was empty after the wake */
        const bool is_sent = send_file(row);
        failures += !is_sent;
        WRITE(_common_storage_update_status_sync_content_info((int)row->sync_id,
                                                              is_sent ? ZEL_SYNC_COMPLETE : ZEL_SYNC_FAILED));
        _common_storage_free_sync_content_info(row);
    }
    _common_queue_push(ended, end_mark);
    return unused;
}

/* Recipients and transfers first, the request last: an upload counts only with its request. */
static void store_upload(char **files, unsigned int count)
{
    zel_upload_request_info request = {.req_id = (unsigned int)g_random_int_range(1, G_MAXINT32), .receiver_count = 1};
    request.file_count = count, request.status = QUILLO_UPLOAD_STATUS_STARTED;
    WRITE(_common_storage_add_upload_receiver_details(request.req_id, "7700900123", "44", 1));
    for (unsigned int i = 0; i < count; ++i) {
        zel_content_sync_info row = {.type = ZEL_UPLOAD_FILE, .req_id = request.req_id, .local_path = files[i]};
        WRITE(_common_storage_add_sync_content_info(&row));
    }
    WRITE(_common_storage_add_upload_request_info(&request));
}

int main(int argc, char **argv)
{
    if (_common_storage_init() != ZEL_ERR_NONE || _common_queue_init(&to_send) != ZEL_ERR_NONE ||
        _common_queue_init(&ended) != ZEL_ERR_NONE)
        return 1; /* the trace on standard error has the reason */
    WRITE(_common_storage_set_all_status_sync_content_info(ZEL_UPLOAD_FILE, ZEL_SYNC_FAILED, ZEL_SYNC_TODO));
    if (argc > 1)
        store_upload(argv + 1, (unsigned int)argc - 1);
    GList *rows = NULL;
    _common_storage_get_sync_content_info_list(ZEL_UPLOAD_FILE, ZEL_SYNC_TODO, &rows, -1);
    if (!_common_thread_start(&worker, work, NULL) || !_common_thread_wait_till_start(worker))
        return 1;
    for (GList *row = rows; row; row = row->next)
        _common_queue_push(to_send, row->data); /* the worker releases it */
    g_list_free(rows);
    _common_queue_push(to_send, end_mark);
    while (_common_queue_pop(ended) != end_mark)
        ;
    _common_thread_stop(worker);
    return failures != 0;
}
