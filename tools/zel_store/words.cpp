#include "words.h"

#include "text.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <map>
#include <set>

namespace zel_store
{

namespace
{

/** An enumerator as words: without what its whole family begins or ends with. */
std::string in_words(std::string_view enumerator, size_t family, std::string_view ending = "")
{
    enumerator.remove_prefix(family);
    enumerator.remove_suffix(enumerator.ends_with(ending) ? ending.size() : 0);
    std::string result(enumerator);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char letter) { return letter == '_' ? ' ' : static_cast<char>(std::tolower(letter)); });
    return result;
}

} // namespace

// A switch, so that the compiler tells when a header has an enumerator more.
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

std::string read_state(long long state)
{
    static constexpr const char *STATES[] = {"unread", "read", "marked for deletion"};
    return state >= 0 && state <= 2 ? STATES[state] : "";
}

std::string size(long long bytes)
{
    static constexpr const char *UNITS[] = {"KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024)
        return format("%lld bytes", bytes);
    auto number = static_cast<double>(bytes);
    size_t unit = 0;
    for (number /= 1024; number >= 1024 && unit < 3; ++unit)
        number /= 1024;
    return format("%.1f %s", number, UNITS[unit]);
}

namespace
{

constexpr long long FIRST_MILLISECONDS = 100000000000; // as seconds the year 5138, as milliseconds 1973

long long in_seconds(long long time)
{
    return time >= FIRST_MILLISECONDS ? time / 1000 : time;
}

} // namespace

std::string date(long long time)
{
    const auto seconds = static_cast<time_t>(in_seconds(time));
    std::tm parts = {};
    char text[40] = "";
    if (!gmtime_r(&seconds, &parts) || !std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts))
        return std::to_string(time);
    return text;
}

std::string away(long long time)
{
    static constexpr std::pair<long long, const char *> UNITS[] = {
        {365 * 86400LL, "year"}, {86400, "day"}, {3600, "hour"}, {60, "minute"}, {1, "second"}};
    const long long difference = in_seconds(time) - static_cast<long long>(std::time(nullptr));
    const long long distance = std::abs(difference);
    for (const auto &[seconds, name] : UNITS) {
        if (distance < seconds)
            continue;
        const long long count = distance / seconds;
        const std::string amount = format("%lld %s%s", count, name, count == 1 ? "" : "s");
        return difference > 0 ? "in " + amount : amount + " ago";
    }
    return "now";
}

bool is_secret(std::string_view table, int column)
{
    static const std::map<std::string_view, std::set<int>> SECRETS = {
        {TABLE_PUSH_NOTI_INFO, {COLUMN_PUSH_NOTI_INFO_COTENTS_TOKEN}},
        {TABLE_CONTENT_INFO,
         {COLUMN_CONTENT_INFO_CONTENTS_TOKEN, COLUMN_CONTENT_INFO_FROM_MSISDN, COLUMN_CONTENT_INFO_TO_LIST,
          COLUMN_CONTENT_INFO_ORIGINAL, COLUMN_CONTENT_INFO_THUMBNAIL, COLUMN_CONTENT_INFO_MID_THUMBNAIL,
          COLUMN_CONTENT_INFO_BIG_THUMBNAIL}},
        {TABLE_CONTENT_INFO_STATUS,
         {COLUMN_CONTENT_SYNC_INFO_CONTENTS_TOKEN, COLUMN_CONTENT_SYNC_INFO_ORIGINAL,
          COLUMN_CONTENT_SYNC_INFO_THUMBNAIL, COLUMN_CONTENT_SYNC_INFO_MUPLOAD_KEY}},
        {TABLE_RECENT_RECEIVER_DETAILS, {COLUMN_RECENT_RECEIVER_PHONE_NO}},
        {TABLE_UPLOAD_REQUEST_DATA, {COLUMN_UPLOAD_INFO_CONTENTS_TOKEN}},
        {TABLE_CONTACT_DETAILS, {COLUMN_CONTACT_DETAILS_RECEIVER_PHONE_NO}},
        {TABLE_UNIQUE_DATA,
         {COLUMN_UNIQUE_DATA_VALUE, COLUMN_UNIQUE_DATA_RESERV_0, COLUMN_UNIQUE_DATA_RESERV_1,
          COLUMN_UNIQUE_DATA_RESERV_2}},
        {TABLE_FOLDER_INFO, {COLUMN_FOLDER_INFO_CONTENT_TOKEN, COLUMN_FOLDER_INFO_FOLDER_TOKEN}},
    };
    const auto found = SECRETS.find(table);
    return found != SECRETS.end() && found->second.contains(column);
}

bool is_given_up(const row &transfer)
{
    return transfer[COLUMN_CONTENT_SYNC_INFO_STATUS].number == ZEL_SYNC_FAILED &&
           transfer[COLUMN_CONTENT_SYNC_INFO_FAIL_COUNT].number > RETRY_CAP;
}

} // namespace zel_store
