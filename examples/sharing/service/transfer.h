/*
 * The road of one file, to the server or from it. A transfer goes on from where the receiving end stands: an upload
 * from the server's offset, a download from the bytes that are collected.
 */
#ifndef SHARING_SERVICE_TRANSFER_H
#define SHARING_SERVICE_TRANSFER_H

#include "http.h"
#include "store.h"

namespace sharing
{

/** What a file is at this moment, for its record (file_key); throws a sentence when it cannot be sent. */
struct sendable {
    unsigned int size = 0;
    entry record;
};
sendable look_at_file(const std::string &path);

/** Called at least once a second with the bytes moved, and the size; throws to break the transfer off. */
using observer = std::function<void(unsigned long long offset, unsigned long long size)>;

/**
 * Moves the file of a transfer; throws a failure when it does not get through. Of those, ZEL_ERR_INVALID_FILE means
 * that no further try can help.
 */
void move_file(const settings &chosen, const zel_content_sync_info &row, http_client &server, const observer &tell);

/** Whether the server still has what it was sent. */
bool is_on_server(const zel_content_sync_info &row, http_client &server);

} // namespace sharing

#endif
