/*
 * A blocking first-in, first-out queue of pointers that threads share: some push requests, one takes them out in the
 * order of their arrival and sleeps while there are none.
 *
 * The queue stores the pointers it is given and never owns what they point to; only a release function that the caller
 * passes releases an item. Every operation but _common_queue_get_wait_status holds the queue's lock for its whole list
 * work. Functions that the caller passes run under that lock: they must not call an operation of the same queue, and
 * must not throw.
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
 * A queue. Made by _common_queue_init only. Its fields are for reading under the lock: more is kept behind them, and a
 * change to item_list corrupts the queue.
 */
typedef struct zel_queue_s {
    pthread_mutex_t available_lock;  /**< guards item_list and queue_wait_status; not recursive */
    pthread_cond_t available_signal; /**< signalled when the queue goes from empty to one item */
    bool queue_wait_status;          /**< a thread is asleep in _common_queue_pop; see _common_queue_get_wait_status */
    GList *item_list;                /**< the items, newest first; NULL when the queue is empty */
} zel_queue_s;

/**
 * Releases one item; runs under the queue's lock.
 *
 * @param item the item, NULL if NULL was pushed
 */
typedef void (*free_queue_member)(void *item);

/**
 * Compares an item with what is looked for; runs under the queue's lock.
 *
 * @param item      an item, NULL if NULL was pushed
 * @param user_data what the caller of the search passed
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
 * Releases a queue. The last operation on it: no thread may be inside another one, asleep in a pop least of all. The
 * caller's variable is not cleared.
 *
 * @param req_queue the queue; NULL is rejected
 * @param func      releases each item left, newest first; with NULL the items are not released
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
 * Adds an item. If it is the only one, one thread asleep in _common_queue_pop is woken; an item added to others wakes
 * nobody, even while several threads sleep and the first has not yet taken its own. Any thread may call it.
 *
 * @param req_queue the queue; NULL is rejected
 * @param data      the item; NULL is queued like any other
 */
void _common_queue_push(zel_queue_s *req_queue, void *data);

/**
 * Takes the oldest item out; sleeps, without a time limit, while the queue is empty. It wakes once and does not look
 * again: a worker calls it in a loop. Any thread may call it; one that is cancelled in it keeps the lock for good.
 *
 * @param req_queue the queue
 * @return the item, now the caller's, which is NULL if NULL was queued; NULL also when it woke and found nothing, and
 *         when the queue is NULL
 */
void *_common_queue_pop(zel_queue_s *req_queue);

/**
 * Tells whether a thread is asleep in _common_queue_pop. Takes no lock: the answer may be out of date when it arrives.
 * Any thread may call it.
 *
 * @param req_queue the queue
 * @return true when one is; false when none is, when the first of several has woken, and when the queue is NULL
 */
bool _common_queue_get_wait_status(zel_queue_s *req_queue);

/**
 * Finds the newest item that matches, and leaves it in the queue, where another thread may take it out and release it.
 * Any thread may call it.
 *
 * @param req_queue the queue
 * @param func      the comparison
 * @param user_data passed through
 * @return the item; NULL when none matches, or when the queue or the comparison is NULL
 */
void *_common_queue_find(zel_queue_s *req_queue, _common_queue_find_func func, void *user_data);

/**
 * Takes one item out by its address, the newest if it was pushed more than once, and does not release it. Any thread
 * may call it.
 *
 * @param req_queue the queue; NULL is rejected
 * @param item      the item; one that is not queued is ignored, NULL is rejected
 */
void _common_queue_remove(zel_queue_s *req_queue, void *item);

/**
 * Takes out the newest item that matches, and releases it. Any thread may call it.
 *
 * @param req_queue the queue
 * @param func      the comparison
 * @param free_func releases the item
 * @param user_data passed through
 * @return true when an item was taken out; false when none matches, or when the queue or a function is NULL
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
