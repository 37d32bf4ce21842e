/*
 * Two workers that share one queue and work at the same time. A push wakes a worker only when the queue was empty. So
 * each worker passes the wake on when it leaves items in the queue. Ends with 0 if both were at work at once.
 */
#include <stdio.h>

#include "zel_common_queue.h"
#include "zel_common_thread.h"

enum { WORKERS = 2, ITEMS = 8 };

static zel_queue_s *to_do, *done;
static zel_thread_s *workers[WORKERS];
static char end_mark[] = "no more";
static int at_work, were_all_at_work;

/* Takes the next item out; sleeps while there is none. */
static char *take(zel_queue_s *queue)
{
    char *item;
    do { /* a worker that was woken can find the queue empty: another one was faster */
        item = _common_queue_pop(queue);
        pthread_mutex_lock(&queue->available_lock);
        if (queue->item_list)
            pthread_cond_signal(&queue->available_signal);
        pthread_mutex_unlock(&queue->available_lock);
    } while (!item);
    return item;
}

static void *work(void *name)
{
    for (char *item; (item = take(to_do)) != end_mark;) {
        if (g_atomic_int_add(&at_work, 1) == WORKERS - 1)
            g_atomic_int_set(&were_all_at_work, 1);
        g_usleep(20000); /* the work */
        printf("%s: %s\n", (const char *)name, item);
        g_atomic_int_add(&at_work, -1);
        _common_queue_push(done, item);
    }
    _common_queue_push(done, end_mark);
    return NULL;
}

int main(void)
{
    static char *names[WORKERS] = {"first worker", "second worker"};
    if (_common_queue_init(&to_do) != ZEL_ERR_NONE || _common_queue_init(&done) != ZEL_ERR_NONE)
        return 1; /* the trace on standard error has the reason */
    for (int i = 0; i < WORKERS; ++i)
        if (!_common_thread_start(&workers[i], work, names[i]))
            return 1;
    for (int i = 1; i <= ITEMS; ++i)
        _common_queue_push(to_do, g_strdup_printf("item %d", i));
    for (int i = 0; i < WORKERS; ++i)
        _common_queue_push(to_do, end_mark);
    for (int ended = 0; ended < WORKERS;) {
        char *item = take(done);
        if (item == end_mark)
            ++ended;
        else
            g_free(item);
    }
    return g_atomic_int_get(&were_all_at_work) ? 0 : 1;
}
