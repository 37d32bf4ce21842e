#include "progress.h"

#include <algorithm>
#include <map>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

#include "zel_common_storage.h"

namespace sharing
{

/* Texts ----------------------------------------------------------------------------------------------------------- */

/** The bytes of the letter at a place. */
static std::string_view letter_at(const char *place)
{
    return {place, static_cast<size_t>(g_utf8_next_char(place) - place)};
}

std::string shown(const std::string &any)
{
    const text valid(g_utf8_make_valid(any.data(), static_cast<gssize>(any.size())));
    std::string result;
    for (const char *at = valid.get(); *at; at = g_utf8_next_char(at)) {
        const gunichar letter = g_utf8_get_char(at);
        const GUnicodeType type = g_unichar_type(letter);
        char escaped[16];
        snprintf(escaped, sizeof escaped, letter < 0x80 ? "\\x%02x" : "\\u%04x", letter);
        if (!g_unichar_isprint(letter) || type == G_UNICODE_LINE_SEPARATOR || type == G_UNICODE_PARAGRAPH_SEPARATOR)
            result += escaped;
        else
            result += letter_at(at);
    }
    return result;
}

/** A text that can be shown, cut or padded to a number of columns. */
static std::string fitted(const std::string &text, size_t columns)
{
    std::string result;
    size_t used = 0;
    for (const char *at = text.c_str(); *at; at = g_utf8_next_char(at)) {
        const gunichar letter = g_utf8_get_char(at);
        const size_t width = g_unichar_iszerowidth(letter) ? 0 : g_unichar_iswide(letter) ? 2 : 1;
        if (used + width > columns)
            break;
        result += letter_at(at);
        used += width;
    }
    return result + std::string(columns - used, ' ');
}

std::string counted(unsigned long long number, const std::string &what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string size_text(unsigned long long bytes)
{
    return text(g_format_size(bytes)).get();
}

std::string time_text(unsigned long long seconds)
{
    g_autoptr(GDateTime) when =
        g_date_time_new_from_unix_local(static_cast<gint64>(std::min(seconds, 253402300799ULL)));
    const text result(when ? g_date_time_format(when, "%F %T") : nullptr);
    return text_of(result.get());
}

const char *word_for(guint32 upload_status)
{
    constexpr const char *words[] = {"none",      "started", "progressing", "complete", "failed",
                                     "cancelled", "paused",  "shared",      "recalled"};
    return upload_status < std::size(words) ? words[upload_status] : "?";
}

/* A request ------------------------------------------------------------------------------------------------------- */

namespace
{

/** A transfer, as the service describes it; the texts are the answer's. */
struct file {
    guint32 id = 0;
    const char *name = nullptr;
    const char *path = nullptr;
    guint32 status = 0;
    guint32 percentage = 0;
    guint64 offset = 0;
    guint32 retries = 0;
    gboolean is_given_up = FALSE;
    gint32 code = 0;
    const char *trouble = nullptr; /**< why it failed last, or what it waits for */
};

struct request {
    variant answer;
    guint32 id = 0;
    guint32 status = 0;
    gboolean is_settled = FALSE;
    guint64 size = 0;
    const char *token = nullptr;
    guint64 waits_since = 0; /**< for the server, in milliseconds; 0: it does not */
    gint32 code = 0;
    const char *trouble = nullptr;
    std::vector<file> files;
    guint64 passed = 0; /**< bytes of them */
    size_t done = 0;    /**< of them */

    bool is_paused() const
    {
        return status == QUILLO_UPLOAD_STATUS_PAUSED;
    }
    /** Everything that was to be done is done. */
    bool is_whole() const
    {
        return (status == QUILLO_UPLOAD_STATUS_FINISHED || status == QUILLO_UPLOAD_STATUS_SHARE_FINISHED) && done > 0 &&
               done == files.size();
    }
    bool has_passed(unsigned int percent) const
    {
        return percent < to_the_end && passed * 100 >= std::max<guint64>(size, 1) * percent;
    }
};

request describe(session &service, guint32 id)
{
    GVariant *answer = nullptr;
    service.call(seconds(30), [&](QuilloSharing *proxy, GError **error) {
        return quillo_sharing_call_describe_sync(proxy, id, &answer, nullptr, error);
    });
    request state;
    state.answer.reset(answer);
    state.id = id;
    g_autoptr(GVariantIter) files = nullptr;
    g_variant_get(answer, "(uubt&sti&sa(uayayuutubis))", nullptr, &state.status, &state.is_settled, &state.size,
                  &state.token, &state.waits_since, &state.code, &state.trouble, &files);
    for (file one;
         g_variant_iter_next(files, "(u^&ay^&ayuutubi&s)", &one.id, &one.name, &one.path, &one.status, &one.percentage,
                             &one.offset, &one.retries, &one.is_given_up, &one.code, &one.trouble);) {
        state.files.push_back(one);
        state.passed += one.offset;
        state.done += one.status == ZEL_SYNC_COMPLETE ? 1 : 0;
    }
    return state;
}

/** "waiting since ...: why"; empty when the request does not wait. */
std::string wait_of(const request &state)
{
    if (state.waits_since == 0)
        return "";
    return "waiting since " + time_text(state.waits_since / 1000) + ": " + shown(state.trouble) + " (" +
           std::to_string(state.code) + ")";
}

std::string reason_of(const file &one)
{
    return shown(one.trouble) + " (" + std::to_string(one.code) + ")";
}

void report(const request &state)
{
    printf("Request %u: %s, %zu of %s, %s\n", state.id, word_for(state.status), state.done,
           counted(state.files.size(), "file").c_str(), size_text(state.size).c_str());
    if (*state.token)
        printf("  token %s\n", shown(state.token).c_str());
    if (state.waits_since > 0)
        printf("  %s\n", wait_of(state).c_str());
    else if (*state.trouble)
        printf("  %s (%d)\n", shown(state.trouble).c_str(), state.code);
    bool can_be_taken_up = false;
    for (const file &one : state.files)
        if (one.is_given_up || one.status == ZEL_SYNC_FAILED) {
            printf("  %s: %s%s\n", shown(one.path).c_str(), reason_of(one).c_str(),
                   one.is_given_up ? ", given up" : "");
            can_be_taken_up |= one.is_given_up != FALSE;
        }
    if (can_be_taken_up || state.is_paused())
        printf("  share resume %u goes on with %s.\n", state.id, can_be_taken_up ? "what was given up" : "it");
}

bool is_through(const file &one)
{
    return one.status == ZEL_SYNC_COMPLETE || one.is_given_up;
}

/** The line of a file, with a bar for a terminal. Without a bar it has the reason of a failure. */
std::string line_of(const file &one, bool has_bar)
{
    constexpr const char *words[] = {"waiting", "moving", "failed", "paused", "paused", "done"};
    const char *word = one.is_given_up ? "given up" : one.status < std::size(words) ? words[one.status] : "?";
    const std::string retries = one.retries > 0 && !is_through(one) ? ", retry " + std::to_string(one.retries) : "";
    if (!has_bar)
        return "  " + shown(one.name) + ": " + word + retries +
               (one.status != ZEL_SYNC_COMPLETE && *one.trouble ? ": " + reason_of(one) : "");
    char bar[64];
    snprintf(bar, sizeof bar, " [%-20s] %3u %%  ", std::string(std::min(one.percentage, 100U) / 5, '#').c_str(),
             std::min(one.percentage, 100U));
    return "  " + fitted(shown(one.name), 28) + bar + word + retries;
}

/**
 * On a terminal with room, each moving file has a bar at the bottom, above a line for the whole. A finished file
 * becomes a line above. Elsewhere a line is written when a file is finished or fails, or when the request waits.
 */
class screen
{
  public:
    screen()
    {
        winsize size = {};
        if (isatty(STDOUT_FILENO) != 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 80) {
            rows_ = size.ws_row;
            columns_ = size.ws_col;
        }
    }

    void show(const request &state)
    {
        erase_bars();
        const bool is_first = std::exchange(is_first_, false);
        for (const file &one : state.files) {
            const auto now = std::pair(one.status == ZEL_SYNC_FAILED ? one.retries + 1 : 0, is_through(one));
            auto &last = last_[one.id];
            if (now != std::exchange(last, now) && (one.status == ZEL_SYNC_FAILED || is_through(one)) && !is_first)
                printf("%s\n", line_of(one, false).c_str());
            if (rows_ > 0 && !is_through(one) && (one.status != ZEL_SYNC_TODO || one.percentage > 0) &&
                bars_.size() + 4 < rows_)
                bars_.push_back(line_of(one, true));
        }
        const std::string wait = wait_of(state);
        if (rows_ == 0 && wait != std::exchange(wait_, wait) && !wait.empty())
            printf("  %s\n", wait.c_str());
        if (rows_ > 0)
            bars_.push_back("  " + std::to_string(state.done) + " of " + counted(state.files.size(), "file") + ", " +
                            size_text(state.passed) + " of " + size_text(state.size) + (wait.empty() ? "" : ", ") +
                            wait);
        for (const std::string &line : bars_) // one that is broken over two rows could not be erased
            printf("%s\n", fitted(line, columns_ - 1).c_str());
        fflush(stdout);
    }

    void erase_bars()
    {
        if (!bars_.empty())
            printf("\033[%zuA\033[J", bars_.size());
        bars_.clear();
    }

  private:
    size_t rows_ = 0; /**< of a terminal that has room for bars */
    size_t columns_ = 0;
    bool is_first_ = true;                             /**< what was through before is in the report */
    std::vector<std::string> bars_;                    /**< that are on the terminal */
    std::map<guint32, std::pair<guint32, bool>> last_; /**< what was shown of each file: failures, whether through */
    std::string wait_;
};

} // namespace

bool follow(session &service, guint32 id, unsigned int until)
{
    screen display;
    for (;;) {
        const gint64 start = g_get_monotonic_time();
        std::optional<request> state;
        try {
            state = describe(service, id);
        } catch (const disconnection &) {
            if (until == 0)
                throw;
            service.reconnect();
            continue;
        }
        const bool is_far_enough = until == 0 || state->has_passed(until);
        if (until > 0)
            display.show(*state);
        if (is_far_enough || state->is_settled || state->is_paused()) {
            display.erase_bars();
            if (until == 0 || state->is_settled || !is_far_enough)
                report(*state);
            return is_far_enough || (state->is_settled && state->is_whole());
        }
        // A request of many files costs the service more: it is asked less often.
        const milliseconds cost((g_get_monotonic_time() - start) / 1000);
        service.wait_for_news(std::max(milliseconds(100), 10 * cost), seconds(2));
    }
}

void print_paths(session &service, guint32 id)
{
    for (const file &one : describe(service, id).files)
        printf("%s%c", one.path, '\0');
}

} // namespace sharing
