/*
 * Small holders that release their resource at the end of their scope.
 */
#ifndef ZEL_COMMON_HOLDERS_H
#define ZEL_COMMON_HOLDERS_H

#include <pthread.h>

/** Deleter of a std::unique_ptr: calls the function that is its argument. */
template <auto release> struct releaser {
    template <typename T> void operator()(T *held) const
    {
        release(held);
    }
};

/** Holds a mutex from its construction to the end of its scope. */
struct mutex_guard {
    explicit mutex_guard(pthread_mutex_t &held) : mutex(held)
    {
        pthread_mutex_lock(&mutex);
    }
    ~mutex_guard()
    {
        pthread_mutex_unlock(&mutex);
    }
    mutex_guard(const mutex_guard &) = delete;
    mutex_guard &operator=(const mutex_guard &) = delete;

    pthread_mutex_t &mutex;
};

#endif
