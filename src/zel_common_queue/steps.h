/*
 * The single steps that the queue's operations are made of. The queue is one of _common_queue_init and is not tested;
 * every step but the lock itself is taken with the lock held.
 */
#ifndef ZEL_COMMON_QUEUE_STEPS_H
#define ZEL_COMMON_QUEUE_STEPS_H

#include "zel_common_queue.h"

extern "C" {

/** Takes the queue's lock. */
void __enter_critical_section(zel_queue_s *req_queue);

/** Lets go of the queue's lock. */
void __leave_critical_section(zel_queue_s *req_queue);

/** Puts an item at the head of the list. */
void __push_front(zel_queue_s *req_queue, void *data);

/** Wakes one thread that sleeps in __sleep_condition_variable. */
void __wake_condition_variable(zel_queue_s *req_queue);

/** Sleeps, without a time limit, until woken; the lock is open meanwhile. */
void __sleep_condition_variable(zel_queue_s *req_queue);

/** Takes the item at the tail of the list, the oldest, out of it; NULL when the list is empty. */
void *__pop_back(zel_queue_s *req_queue);
}

#endif
