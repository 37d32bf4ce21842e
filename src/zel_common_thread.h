/*
 * Control of one detached worker thread: start it, wait until it reports that it runs, let it sleep for at most ten
 * seconds, wake it, and release the record at the end.
 *
 * The starter calls _common_thread_start and usually _common_thread_wait_till_start. The started thread calls
 * _common_thread_notify_started, then _common_thread_sendSignal to wake a starter that already waits. The thread may
 * call _common_thread_waitCallback repeatedly; other threads wake it with _common_thread_sendSignal.
 * _common_thread_stop is the last call, after every thread has stopped using the record.
 *
 * Both waits sleep on one condition, and one signal ends one wait, of either kind. Their time limits use the real-time
 * clock: setting the clock makes them longer or shorter.
 */
#ifndef ZEL_COMMON_THREAD_H
#define ZEL_COMMON_THREAD_H

#include <pthread.h>
#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** A worker thread; _common_thread_start makes it. Callers may read and write the fields. */
typedef struct zel_thread_s {
    pthread_t thread_id;             /**< the thread */
    bool is_running;                 /**< the last value reported, also after the thread has ended; guarded by
                                          available_lock */
    pthread_mutex_t available_lock;  /**< recursive; guards is_running and both waits on available_signal */
    pthread_cond_t available_signal; /**< wakes both waits */
    bool thread_wait_status;         /**< the owner's flag: false at the start; the library only reads it, atomically */
    void *data;                      /**< the owner's pointer: NULL at the start; the library never uses it */
} zel_thread_s;

/**
 * Starts a detached thread. The caller's variable receives the record before the thread exists, so the thread can use
 * the variable from its first instruction.
 *
 * @param req_thread receives the record, which _common_thread_stop releases; NULL when the thread cannot be created;
 *                   untouched when an argument is NULL or the allocation fails
 * @param func_name  the thread's start routine
 * @param data       the routine's argument; may be NULL; not kept in the record
 * @return true when the thread was created, with is_running still false; false when req_thread or func_name is NULL,
 *         the allocation fails or the thread cannot be created
 */
bool _common_thread_start(zel_thread_s **req_thread, void *(*func_name)(void *), void *data);

/**
 * Wakes every waiter and releases the record. The thread itself is neither cancelled nor joined. This must be the last
 * operation on the record: no thread may wait on the record, hold its lock or use it later.
 *
 * @param req_thread the record; NULL is rejected
 */
void _common_thread_stop(zel_thread_s *req_thread);

/**
 * Sleeps until _common_thread_sendSignal is called, for at most 10 seconds. A signal that is sent while no thread waits
 * is lost. Any thread that does not hold available_lock may call it. A thread that is cancelled in it keeps
 * available_lock for ever.
 *
 * @param req_thread the record
 * @return 0 after a signal or a spurious wake; -110 after the timeout; otherwise the positive error number of the wait;
 *         EINVAL when the record is NULL
 */
int _common_thread_waitCallback(zel_thread_s *req_thread);

/**
 * Wakes one thread that waits on the record, if any. Any thread may call it.
 *
 * @param req_thread the record; NULL is rejected
 */
void _common_thread_sendSignal(zel_thread_s *req_thread);

/**
 * Waits until the thread reports that it runs, for at most 5 seconds. Returns immediately when the thread has already
 * reported. Otherwise it sleeps once, until the timeout or a _common_thread_sendSignal: the report itself wakes no
 * waiter. After a timeout it logs nothing. Any thread that does not hold available_lock may call it.
 *
 * @param req_thread the record
 * @return is_running after the wait; false when the record is NULL
 */
bool _common_thread_wait_till_start(zel_thread_s *req_thread);

/**
 * Sets is_running to true; wakes no waiter. Any thread may call it.
 *
 * @param req_thread the record; NULL is rejected
 */
void _common_thread_notify_started(zel_thread_s *req_thread);

/**
 * Sets is_running; wakes no waiter. Any thread may call it.
 *
 * @param req_thread the record; NULL is rejected
 * @param value      the new value of is_running
 */
void _common_thread_set_is_running(zel_thread_s *req_thread, bool value);

/**
 * Returns the owner's flag. Takes no lock and reads the flag atomically; threads that write the flag should do so
 * atomically too.
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
