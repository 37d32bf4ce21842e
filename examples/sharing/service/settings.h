/*
 * What the command line chooses, and the stop that all parts look at.
 */
#ifndef SHARING_SERVICE_SETTINGS_H
#define SHARING_SERVICE_SETTINGS_H

#include <atomic>
#include <chrono>
#include <string>

namespace sharing
{

struct settings {
    std::string server = "http://127.0.0.1:8420/files"; /**< where uploads are created */
    std::string number = "+447700900123";               /**< the device's own */
    unsigned long long chunk_size = 0;                  /**< of uploads; 0: as suits the file */
    std::chrono::seconds patience{10};                  /**< with a server that does not move */
    std::chrono::milliseconds first_pause{500};         /**< before a retry; doubled before each further one */
    std::chrono::milliseconds longest_pause{60'000};
};

/* Below the state folder, which is the working directory. */
inline constexpr char incoming_folder[] = "incoming";    /**< bytes on their way here, named by the transfer's id */
inline constexpr char thumbnail_folder[] = "thumbnails"; /**< named by the content item's id */
inline constexpr char received_folder[] = "received";    /**< where files go when a client names no folder */

inline constexpr char log_tag[] = "SHARINGD"; /**< of the service's own lines in the trace */

/** Set once, when the service is to end. Whatever waits or repeats looks at it. */
inline std::atomic<bool> is_stopping = false;

} // namespace sharing

#endif
