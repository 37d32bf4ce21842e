/*
 * Control of one detached worker thread: start it, wait until it reports that it runs, put it to sleep for at most ten
 * seconds, wake it, and release the record at the end.
 *
 * The starter calls _common_thread_start and usually _common_thread_wait_till_start. The started thread calls
 * _common_thread_notify_started and may call _common_thread_waitCallback again and again, woken by
 * _common_thread_sendSignal from other threads. _common_thread_stop comes last, once no thread uses the record.
 *
 * Both waits sleep on one condition, and one signal ends one of them, whichever it reaches. Their limits follow the
 * real-time clock: setting it makes them longer or shorter.
 */
#ifndef ZEL_COMMON_THREAD_H
#define ZEL_COMMON_THREAD_H

#include <pthread.h>
#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** A worker thread. Made by _common_thread_start; callers may read and write the fields. */
typedef struct zel_thread_s {
    pthread_t thread_id;             /**< the thread */
    bool is_running;                 /**< what was last reported, also after the thread has ended; guarded by
                                          available_lock */
    pthread_mutex_t available_lock;  /**< recursive; guards is_running, and every wait on available_signal uses it */
    pthread_cond_t available_signal; /**< wakes both waits */
    bool thread_wait_status;         /**< the owner's flag: starts false, only ever read here, atomically */
    void *data;                      /**< the owner's slot: starts NULL, never touched here */
} zel_thread_s;

/**
 * Starts a detached thread. Its record stands in the caller's variable before the thread exists, so the thread can
 * reach it there from its first instruction.
 *
 * @param req_thread receives the record, which _common_thread_stop releases; NULL again when the thread could not be
 *                   created, untouched when an argument is NULL or the allocation fails
 * @param func_name  the thread's start routine
 * @param data       the routine's argument; may be NULL, is not kept in the record
 * @return true when the thread was created; is_running is still false then. False when req_thread or func_name is
 *         NULL, the allocation fails or the thread cannot be created
 */
bool _common_thread_start(zel_thread_s **req_thread, void *(*func_name)(void *), void *data);

/**
 * Wakes every waiter and releases the record; the thread itself is neither cancelled nor joined. The last operation on
 * the record: no thread may be waiting on, holding or about to use it.
 *
 * @param req_thread the record; NULL is rejected
 */
void _common_thread_stop(zel_thread_s *req_thread);

/**
 * Sleeps until _common_thread_sendSignal is called, for at most 10 seconds. A signal sent while nobody waits is lost.
 * Any thread may call it that does not hold available_lock.
 *
 * @param req_thread the record
 * @return 0 when signalled (or woken early); -110 when the time is up; otherwise the positive error number of the
 *         wait, EINVAL also when the record is NULL
 */
int _common_thread_waitCallback(zel_thread_s *req_thread);

/**
 * Wakes one thread that waits on the record, if there is any. Any thread may call it.
 *
 * @param req_thread the record; NULL is rejected
 */
void _common_thread_sendSignal(zel_thread_s *req_thread);

/**
 * Waits until the thread reports that it runs, for at most 5 seconds. Returns at once when it has done so already;
 * otherwise sleeps once, to the end of the time or until _common_thread_sendSignal, for the report itself wakes nobody.
 * Any thread may call it that does not hold available_lock.
 *
 * @param req_thread the record
 * @return is_running as it stood after the wait; false when the record is NULL
 */
bool _common_thread_wait_till_start(zel_thread_s *req_thread);

/**
 * Reports that the thread runs; wakes nobody. Any thread may call it.
 *
 * @param req_thread the record; NULL is rejected
 */
void _common_thread_notify_started(zel_thread_s *req_thread);

/**
 * Sets whether the thread runs; wakes nobody. Any thread may call it.
 *
 * @param req_thread the record; NULL is rejected
 * @param value      the new value of is_running
 */
void _common_thread_set_is_running(zel_thread_s *req_thread, bool value);

/**
 * Gives the owner's flag. Takes no lock and reads the flag atomically: threads that write it do so atomically too, or
 * agree with the readers.
 *
 * @param req_thread the record
 * @return thread_wait_status; false when the record is NULL
 */
bool _common_thread_get_wait_status(zel_thread_s *req_thread);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
