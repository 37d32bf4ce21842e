/*
 * A blocking first-in, first-out queue of pointers: any thread pushes requests, one worker pops them in order and
 * sleeps while the queue is empty.
 *
 * The queue never owns its items; only a release function that the caller passes releases an item. Every operation
 * except _common_queue_get_wait_status holds the queue's lock while it uses the list. The caller's functions run under
 * that lock: they must not call an operation of the same queue, and must not throw.
 *
 * Several workers. A push signals only when the queue goes from empty to one item, and wakes one worker. So if several
 * workers sleep on one queue and items keep coming, only one of them works. Give each worker a queue of its own. Or let
 * each worker wake the next one after its pop:
 *
 *     void *item = _common_queue_pop(queue);
 *     pthread_mutex_lock(&queue->available_lock);
 *     if (queue->item_list)
 *         pthread_cond_signal(&queue->available_signal);
 *     pthread_mutex_unlock(&queue->available_lock);
 */
#ifndef ZEL_COMMON_QUEUE_H
#define ZEL_COMMON_QUEUE_H

#include "zel_common.h"
#include <glib.h>
#include <pthread.h>
#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/**
 * A queue; only _common_queue_init creates one. Callers may read the fields under the lock and signal available_signal.
 * A change to item_list corrupts the queue: the library keeps more data next to it.
 */
typedef struct zel_queue_s {
    pthread_mutex_t available_lock;  /**< guards item_list and queue_wait_status; not recursive */
    pthread_cond_t available_signal; /**< signalled by a push to the empty queue */
    bool queue_wait_status;          /**< a thread is asleep in _common_queue_pop; see _common_queue_get_wait_status */
    GList *item_list;                /**< the items, newest first; NULL when the queue is empty */
} zel_queue_s;

/**
 * Releases one item; runs under the queue's lock.
 *
 * @param item the item; NULL if NULL was pushed
 */
typedef void (*free_queue_member)(void *item);

/**
 * Compares an item with the caller's data; runs under the queue's lock.
 *
 * @param item      an item; NULL if NULL was pushed
 * @param user_data the caller's data
 * @return 0 when the item matches, as a GCompareFunc does
 */
typedef int (*_common_queue_find_func)(void *item, void *user_data);

/**
 * Creates an empty queue.
 *
 * @param req_queue receives the queue, which _common_queue_deinit releases
 * @return ZEL_ERR_NONE; ZEL_ERR_INVALID_ARG when req_queue is NULL; ZEL_ERR_MEMORY when the allocation fails
 */
zel_err_e _common_queue_init(zel_queue_s **req_queue);

/**
 * Releases a queue. It must be the last operation on the queue: no thread may be inside another operation, for instance
 * asleep in a pop. The caller's variable is not cleared.
 *
 * @param req_queue the queue; NULL is rejected
 * @param func      releases each remaining item, newest first; with NULL the items are not released
 */
void _common_queue_deinit(zel_queue_s *req_queue, free_queue_member func);

/**
 * Releases every item and leaves the queue empty. Any thread may call it.
 *
 * @param req_queue the queue; NULL is rejected
 * @param func      releases each item, newest first; NULL is rejected
 */
void _common_queue_clear(zel_queue_s *req_queue, free_queue_member func);

/**
 * Adds an item. A push to the empty queue wakes one thread that sleeps in _common_queue_pop; any other push wakes none,
 * even while several threads sleep. Any thread may call it.
 *
 * @param req_queue the queue; NULL is rejected
 * @param data      the item; NULL is a valid item
 */
void _common_queue_push(zel_queue_s *req_queue, void *data);

/**
 * Removes and returns the oldest item. On an empty queue it sleeps once, without a time limit. After the wake it checks
 * the queue once and can find it empty: call it in a loop. Any thread may call it. A thread cancelled in this call
 * keeps the lock for ever.
 *
 * @param req_queue the queue
 * @return the item, now owned by the caller; NULL if NULL was pushed, when the queue was still empty after the wake,
 *         and when the queue is NULL
 */
void *_common_queue_pop(zel_queue_s *req_queue);

/**
 * Tests whether a thread sleeps in _common_queue_pop. Takes no lock: the answer can be out of date when it is returned.
 * Any thread may call it.
 *
 * @param req_queue the queue
 * @return true when a thread sleeps; false when none does, after the first of several has woken, and when the queue is
 *         NULL
 */
bool _common_queue_get_wait_status(zel_queue_s *req_queue);

/**
 * Finds the newest item that matches. The item stays in the queue, so another thread can pop and release it. Any thread
 * may call it.
 *
 * @param req_queue the queue
 * @param func      the comparison
 * @param user_data passed to func
 * @return the item; NULL when none matches, or when the queue or the comparison is NULL
 */
void *_common_queue_find(zel_queue_s *req_queue, _common_queue_find_func func, void *user_data);

/**
 * Removes one item by its address, without releasing it. If the item was pushed more than once, only the newest entry
 * is removed. Any thread may call it.
 *
 * @param req_queue the queue; NULL is rejected
 * @param item      the item; an item that is not queued is ignored, NULL is rejected
 */
void _common_queue_remove(zel_queue_s *req_queue, void *item);

/**
 * Removes the newest item that matches, and releases it. Any thread may call it.
 *
 * @param req_queue the queue
 * @param func      the comparison
 * @param free_func releases the item
 * @param user_data passed to func
 * @return true when an item was removed; false when none matches, or when the queue or a function is NULL
 */
bool _common_queue_find_and_remove(zel_queue_s *req_queue, _common_queue_find_func func, free_queue_member free_func,
                                   void *user_data);

/**
 * Counts the items. Any thread may call it.
 *
 * @param req_queue the queue
 * @return the number of items; 0 when the queue is NULL
 */
int _common_queue_length(zel_queue_s *req_queue);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
