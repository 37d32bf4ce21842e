/*
 * Values of the store in words. The words of a vocabulary are the names of its enumerators in the public headers.
 */
#ifndef ZEL_STORE_WORDS_H
#define ZEL_STORE_WORDS_H

#include "model.h"
#include "text.h"

#include <string>

namespace zel_store
{

/* The word of a value; empty when the vocabulary does not have it. */
std::string word_of(quillo_upload_status_e status);
std::string word_of(quillo_push_status_e status);
std::string word_of(quillo_app_type_e type);
std::string word_of(zel_file_sync_status status);
std::string word_of(zel_file_sync_type type);

/** What a notification's read_noti stands for; no header names it. */
std::string read_state(long long state);

/** The word of a stored value; of one outside the vocabulary the value itself. */
template <typename Vocabulary> std::string word(const value &stored)
{
    const std::string found = stored.type == SQLITE_INTEGER && stored.number >= -1 && stored.number < 1000
                                  ? word_of(static_cast<Vocabulary>(stored.number))
                                  : "";
    return !found.empty() ? found : stored.is_null() ? "NULL" : "?" + safe(stored.text);
}

/** Bytes as a person says them: 1.5 MiB. */
std::string size(long long bytes);

/** A time in seconds or, from the year 5138 on, milliseconds: as a date (UTC), and how far away it is. */
std::string date(long long time);
std::string away(long long time);

/** Whether a column holds what is shown shortened: numbers, tokens, keys, and addresses that may hold them. */
bool is_secret(std::string_view table, int column);

/** Whether a transfer has failed for good: retried as often as the store lists it. */
bool is_given_up(const row &transfer);

} // namespace zel_store

#endif
