/*
 * What is seen of a request. On a terminal that has room, each file on its way has a bar at the bottom, with a line for
 * the whole below; what is through goes up as a line. Elsewhere there is a line whenever something notable has
 * happened.
 */
#ifndef SHARING_CLIENT_PROGRESS_H
#define SHARING_CLIENT_PROGRESS_H

#include <algorithm>
#include <map>
#include <sys/ioctl.h>

#include "session.h"
#include "zel_common_storage.h"

namespace sharing
{

inline const char *word_for(guint32 upload_status)
{
    constexpr const char *words[] = {"none",      "started", "progressing", "complete", "failed",
                                     "cancelled", "paused",  "shared",      "recalled"};
    return upload_status < std::size(words) ? words[upload_status] : "?";
}

/** A text from outside as it can be printed, cut to a number of columns and padded to it (0: neither). */
inline std::string printable(const std::string &text, size_t columns = 0)
{
    g_autofree char *valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    std::string result;
    size_t used = 0;
    for (const char *at = valid; *at; at = g_utf8_next_char(at)) {
        const gunichar letter = g_utf8_get_char(at);
        const bool is_shown = g_unichar_isprint(letter) != 0;
        const size_t width = !is_shown ? 1 : g_unichar_iszerowidth(letter) ? 0 : g_unichar_iswide(letter) ? 2 : 1;
        if (columns > 0 && used + width > columns)
            break;
        result += is_shown ? std::string(at, static_cast<size_t>(g_utf8_next_char(at) - at)) : "?";
        used += width;
    }
    return columns > 0 ? result + std::string(columns - used, ' ') : result;
}

/** "1 file", "2 files". */
inline std::string counted(unsigned long long number, const std::string &what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

inline std::string size_text(unsigned long long bytes)
{
    return std::unique_ptr<char, releaser<g_free>>(g_format_size(bytes)).get();
}

/** A transfer, as the service describes it. */
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
    const char *trouble = nullptr; /**< why it failed last */
};

/** A request, as the service describes it. */
struct request {
    variant answer; /**< owns the texts */
    guint32 status = 0;
    gboolean is_settled = FALSE;
    guint64 size = 0;
    const char *token = nullptr;
    guint64 waits_since = 0; /**< milliseconds since the epoch; 0 while it does not wait for the server */
    gint32 code = 0;
    const char *trouble = nullptr;
    std::vector<file> files;
    guint64 passed = 0; /**< bytes of them */
    size_t done = 0;    /**< of them */
};

inline request describe(session &service, guint32 id)
{
    request state;
    state.answer = service.call("Describe", g_variant_new("(u)", id));
    g_autoptr(GVariantIter) files = nullptr;
    g_variant_get(state.answer.get(), "((uubt&sti&sa(uayayuutubis)))", nullptr, &state.status, &state.is_settled,
                  &state.size, &state.token, &state.waits_since, &state.code, &state.trouble, &files);
    for (file one;
         g_variant_iter_next(files, "(u^&ay^&ayuutubi&s)", &one.id, &one.name, &one.path, &one.status, &one.percentage,
                             &one.offset, &one.retries, &one.is_given_up, &one.code, &one.trouble);) {
        state.files.push_back(one);
        state.passed += one.offset;
        state.done += one.status == ZEL_SYNC_COMPLETE ? 1 : 0;
    }
    return state;
}

inline bool is_through(const file &one)
{
    return one.status == ZEL_SYNC_COMPLETE || one.is_given_up;
}

inline void report(const request &state, guint32 id)
{
    printf("Request %u: %s, %zu of %s, %s\n", id, word_for(state.status), state.done,
           counted(state.files.size(), "file").c_str(), size_text(state.size).c_str());
    if (*state.token)
        printf("  token %s\n", printable(state.token).c_str());
    if (*state.trouble)
        printf("  %s (%d)\n", printable(state.trouble).c_str(), state.code);
    for (const file &one : state.files)
        if (one.status == ZEL_SYNC_FAILED)
            printf("  %s: %s (%d)\n", printable(one.path).c_str(), printable(one.trouble).c_str(), one.code);
}

/** A line of a file: one with a bar fits the least terminal, one without says why the file failed. */
inline std::string line_of(const file &one, bool has_bar)
{
    constexpr const char *words[] = {"waiting", "moving", "failed", "paused", "paused", "done"};
    const std::string filled(std::min(one.percentage, 100U) / 5, '#');
    char progress[80];
    snprintf(progress, sizeof progress, has_bar ? " [%-20s] %3u %%  %s" : " %.0s%3u %%  %s", filled.c_str(),
             one.percentage, one.status < std::size(words) ? words[one.status] : "?");
    return "  " + printable(one.name, 28) + progress +
           (one.retries > 0 ? ", retry " + std::to_string(one.retries) : "") +
           (has_bar || one.status != ZEL_SYNC_FAILED ? "" : ": " + printable(one.trouble));
}

class screen
{
  public:
    /** @param tells_old whether what was through before it was looked at for the first time is worth a line */
    explicit screen(bool tells_old) : tells_old_(tells_old)
    {
        winsize size = {};
        if (isatty(STDOUT_FILENO) != 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col >= 80)
            rows_ = size.ws_row;
    }

    /** Shows how far a request is, in place of the bars that were shown of it before. */
    void show(const request &state)
    {
        if (!bars_.empty())
            printf("\033[%zuA\033[J", bars_.size());
        bars_.clear();
        for (const file &one : state.files) {
            const guint32 now = one.status == ZEL_SYNC_ONGOING ? std::min(one.percentage, 99U) / 25 * 10 : one.status;
            const bool is_old = !tells_old_ && one.status == ZEL_SYNC_COMPLETE;
            guint32 &told = told_.try_emplace(one.id, is_old ? now : 0).first->second;
            if (now != told && (rows_ == 0 || is_through(one)))
                printf("%s\n", line_of(one, false).c_str());
            if (rows_ == 0 || is_through(one))
                told = now;
            else if ((one.status != ZEL_SYNC_TODO || one.percentage > 0) && bars_.size() + 4 < rows_)
                bars_.push_back(line_of(one, true));
        }
        if (rows_ > 0 && !state.is_settled)
            bars_.push_back("  " + summary(state));
        for (const std::string &line : bars_)
            printf("%s\n", line.c_str());
        fflush(stdout);
    }

  private:
    /** How much of the whole has passed, how fast since it was looked at first, and how long the rest will take. */
    std::string summary(const request &state)
    {
        std::string text = std::to_string(state.done) + " of " + counted(state.files.size(), "file") + ", " +
                           size_text(state.passed) + " of " + size_text(state.size);
        const gint64 now = g_get_monotonic_time();
        if (start_ == 0 || state.status == QUILLO_UPLOAD_STATUS_PAUSED) {
            start_ = now;
            passed_ = state.passed;
        }
        if (const gint64 tenths = (now - start_) / 100'000; tenths > 5 && state.passed > passed_) {
            const guint64 speed = (state.passed - passed_) * 10 / static_cast<guint64>(tenths);
            const guint64 left = (state.size - state.passed) / std::max<guint64>(speed, 1) + 1;
            text += ", " + size_text(speed) + "/s, " + std::to_string(left / 60) + (left % 60 < 10 ? ":0" : ":") +
                    std::to_string(left % 60) + " left";
        }
        return text + (state.status == QUILLO_UPLOAD_STATUS_PAUSED ? ", paused" : "") +
               (*state.trouble ? ", " + printable(state.trouble) : "");
    }

    const bool tells_old_;
    size_t rows_ = 0;                 /**< of a terminal that has room for bars */
    std::vector<std::string> bars_;   /**< that stand there */
    std::map<guint32, guint32> told_; /**< what a file's last line told: its status, or a quarter */
    gint64 start_ = 0;                /**< of measuring, and what had passed then */
    guint64 passed_ = 0;
};

/**
 * Shows how far a request is, again and again until it is settled or so many percent have passed, and then what became
 * of it. Whether all has come off so far.
 */
inline bool follow(session &service, guint32 id, unsigned int until)
{
    for (screen display(until == 0);; service.wait_for_news()) {
        const request state = describe(service, id);
        display.show(state);
        if (!state.is_settled && state.passed * 100 / std::max<guint64>(state.size, 1) < until)
            continue;
        if (state.is_settled || until == 0)
            report(state, id);
        return !state.is_settled || (state.done > 0 && state.done == state.files.size());
    }
}

/** Prints the local paths of a request's files, each with a zero byte behind it. */
inline void print_paths(session &service, guint32 id)
{
    const request state = describe(service, id);
    for (const file &one : state.files)
        printf("%s%c", one.path, '\0');
}

} // namespace sharing

#endif
