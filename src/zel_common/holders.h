/*
 * What the areas of the library share behind their public headers.
 */
#ifndef ZEL_COMMON_HOLDERS_H
#define ZEL_COMMON_HOLDERS_H

#include "zel_common.h"
#include "zel_common_log/trace.h"

/** Deleter of a std::unique_ptr: releases with the function it is given. */
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

/** Whether an operation's arguments are unusable; if so, says it in the operation's name. */
inline bool refused(bool unusable, const char *message, log_site site = log_here())
{
    if (unusable)
        ZEL_CRITICAL_AT(site, "%s", message);
    return unusable;
}

extern "C" {

/** Releases one string of an upload report's path list; data may be NULL. */
void __free_file_path_list(void *data);

/** Releases a zel_trans_content_info with its strings; data may be NULL. Writes no log line. */
void __free_content_info(void *data);
}

#endif
