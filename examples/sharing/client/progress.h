/*
 * What is seen of a request, and how texts from outside are shown.
 */
#ifndef SHARING_CLIENT_PROGRESS_H
#define SHARING_CLIENT_PROGRESS_H

#include "session.h"

namespace sharing
{

/** Follows a request to its end. */
constexpr unsigned int to_the_end = 101;

/** A text from outside as it can be shown: what controls a terminal or the direction of writing is escaped. */
std::string shown(const std::string &any);

/** "1 file", "2 files". */
std::string counted(unsigned long long number, const std::string &what);

std::string size_text(unsigned long long bytes);

/** A local date and time. */
std::string time_text(unsigned long long seconds);

const char *word_for(guint32 upload_status);

/**
 * Shows how far a request is: once, or again and again until so many percent of it have passed or nothing more comes,
 * because it is settled or paused. At the end it reports what became of the request, with the files that are missing.
 *
 * @param until 0: once; to_the_end
 * @return whether the request is as far as it was followed to; true when it is shown once
 */
bool follow(session &service, guint32 id, unsigned int until);

/** Prints the local paths of a request's files, each with a zero byte after it. */
void print_paths(session &service, guint32 id);

} // namespace sharing

#endif
