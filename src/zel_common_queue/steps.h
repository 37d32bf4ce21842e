/*
 * The steps of the queue's operations. They do not check the queue, which comes from _common_queue_init. The caller of
 * every step except __enter_critical_section holds the lock.
 */
#ifndef ZEL_COMMON_QUEUE_STEPS_H
#define ZEL_COMMON_QUEUE_STEPS_H

#include "zel_common_queue.h"

extern "C" {

/** Locks the queue. */
void __enter_critical_section(zel_queue_s *req_queue);

/** Unlocks the queue. */
void __leave_critical_section(zel_queue_s *req_queue);

/** Puts an item at the head of the list. */
void __push_front(zel_queue_s *req_queue, void *data);

/** Wakes one thread that sleeps in __sleep_condition_variable. */
void __wake_condition_variable(zel_queue_s *req_queue);

/** Sleeps, without a time limit, until woken; releases the lock during the sleep. */
void __sleep_condition_variable(zel_queue_s *req_queue);

/** Removes and returns the oldest item, the tail of the list; NULL when the list is empty. */
void *__pop_back(zel_queue_s *req_queue);
}

#endif
