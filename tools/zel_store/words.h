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
enum class read_state : int {}; /**< of a notification: 0 to 2, which no header names */
std::string word_of(read_state state);

/** The word of a stored value; empty when there is none. */
template <typename Vocabulary> std::string known_word(const value &stored)
{
    return stored.number == static_cast<int>(stored.number) ? word_of(static_cast<Vocabulary>(stored.number)) : "";
}

/** The word of a stored value; of one outside the vocabulary the value itself. */
template <typename Vocabulary> std::string word(const value &stored)
{
    const std::string found = known_word<Vocabulary>(stored);
    return !found.empty() ? found : "?" + safe(stored.text);
}

/** Bytes as a person says them: 1.5 MiB. */
std::string size(long long bytes);

/** A time in seconds or, from the year 5138 on, in milliseconds: the date (UTC) and, in brackets, how far away it is.
 */
std::string date(long long time);

/** Whether a column holds what is shown shortened: numbers, tokens, keys, and addresses that may hold them. */
bool is_secret(const column &named);

} // namespace zel_store

#endif
