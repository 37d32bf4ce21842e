#include "words.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>

namespace zel_store
{

namespace
{

/** An enumerator as words: without what its whole family begins or ends with. */
std::string in_words(std::string_view enumerator, size_t family, std::string_view ending = "")
{
    enumerator.remove_prefix(family);
    enumerator.remove_suffix(enumerator.ends_with(ending) ? ending.size() : 0);
    std::string result;
    for (const char letter : enumerator)
        result += letter == '_' ? ' ' : static_cast<char>(std::tolower(letter));
    return result;
}

} // namespace

// In a switch, so that the compiler tells when a header has an enumerator more.
#define WORD(family, name)                                                                                             \
    case family##name:                                                                                                 \
        return in_words(#family #name, sizeof #family - 1)
#define APPLICATION(name)                                                                                              \
    case name:                                                                                                         \
        return in_words(#name, 0, "_APP_TYPE")

std::string word_of(quillo_upload_status_e status)
{
    switch (status) {
        WORD(QUILLO_UPLOAD_STATUS_, NONE);
        WORD(QUILLO_UPLOAD_STATUS_, STARTED);
        WORD(QUILLO_UPLOAD_STATUS_, PROGRESSING);
        WORD(QUILLO_UPLOAD_STATUS_, FINISHED);
        WORD(QUILLO_UPLOAD_STATUS_, FAILED);
        WORD(QUILLO_UPLOAD_STATUS_, CANCELLED);
        WORD(QUILLO_UPLOAD_STATUS_, PAUSED);
        WORD(QUILLO_UPLOAD_STATUS_, SHARE_FINISHED);
        WORD(QUILLO_UPLOAD_STATUS_, SHARE_RECALLED);
    }
    return "";
}

std::string word_of(quillo_push_status_e status)
{
    switch (status) {
        WORD(QUILLO_PUSH_STATUS_, NONE);
        WORD(QUILLO_PUSH_STATUS_, SHARE_FINISHED);
        WORD(QUILLO_PUSH_STATUS_, SHARE_RECALLED);
    }
    return "";
}

std::string word_of(quillo_app_type_e type)
{
    switch (type) {
        WORD(APP_TYPE_, NONE);
        APPLICATION(QUILLO_APP_TYPE);
        APPLICATION(PIKO_APP_TYPE);
        APPLICATION(MOSAIC_EVENT_APP_TYPE);
    }
    return "";
}

std::string word_of(zel_file_sync_status status)
{
    switch (status) {
        WORD(ZEL_SYNC_, TODO);
        WORD(ZEL_SYNC_, ONGOING);
        WORD(ZEL_SYNC_, FAILED);
        WORD(ZEL_SYNC_, PAUSED);
        WORD(ZEL_SYNC_, PAUSED_TODO);
        WORD(ZEL_SYNC_, COMPLETE);
    }
    return "";
}

std::string word_of(zel_file_sync_type type)
{
    switch (type) {
        WORD(ZEL_, UNKNOWN);
        WORD(ZEL_, UPLOAD_FILE);
        WORD(ZEL_, DOWNLOAD_THUMBNAIL);
        WORD(ZEL_, DOWNLOAD_FILE);
    }
    return "";
}

#undef WORD
#undef APPLICATION

std::string word_of(read_state state)
{
    static constexpr const char *STATES[] = {"unread", "read", "marked for deletion"};
    const int number = static_cast<int>(state);
    return number >= 0 && number <= 2 ? STATES[number] : "";
}

std::string size(long long bytes)
{
    static constexpr const char *UNITS[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto number = static_cast<double>(bytes);
    size_t unit = 0;
    for (; number >= 1024 && unit < 4; ++unit)
        number /= 1024;
    return format("%.*f %s", unit == 0 ? 0 : 1, number, UNITS[unit]);
}

std::string date(long long time)
{
    static constexpr long long FIRST_MILLISECONDS = 100000000000; // as seconds in 5138, as milliseconds in 1973
    static constexpr std::pair<long long, const char *> UNITS[] = {
        {365 * 86400LL, "year"}, {86400, "day"}, {3600, "hour"}, {60, "minute"}, {1, "second"}};
    const auto seconds = static_cast<time_t>(time >= FIRST_MILLISECONDS ? time / 1000 : time);
    std::tm parts = {};
    char text[40] = "";
    if (!gmtime_r(&seconds, &parts) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts) == 0)
        return std::to_string(time);
    const long long difference = seconds - std::time(nullptr);
    for (const auto &[unit, name] : UNITS)
        if (const long long count = std::llabs(difference) / unit; count > 0)
            return format(difference > 0 ? "%s (in %lld %s%s)" : "%s (%lld %s%s ago)", text, count, name,
                          count == 1 ? "" : "s");
    return text + std::string(" (now)");
}

bool is_secret(const column &named)
{
    static constexpr const char *PARTS[] = {"token", "phone",  "msisdn",   "to_list",  "value",
                                            "_key",  "reserv", "original", "thumbnail"};
    return named.type == "TEXT" && std::any_of(std::begin(PARTS), std::end(PARTS), [&](const char *part) {
               return named.name.find(part) != std::string::npos;
           });
}

} // namespace zel_store
