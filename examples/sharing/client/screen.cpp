#include "screen.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace sharing
{

namespace
{

constexpr unsigned int bar_width = 20;
constexpr guint64 cost_of_a_file = guint64{64} * 1024; /**< what it takes besides its bytes, in bytes */

bool is_through(const file &one)
{
    return one.status == ZEL_SYNC_COMPLETE || (one.status == ZEL_SYNC_FAILED && one.retries > 5);
}

const char *word_for(const file &one, zel_file_sync_type kind)
{
    switch (one.status) {
    case ZEL_SYNC_TODO:
        return "waiting";
    case ZEL_SYNC_ONGOING:
        return kind == ZEL_UPLOAD_FILE ? "sending" : "fetching";
    case ZEL_SYNC_FAILED:
        return is_through(one) ? "given up" : "failed";
    case ZEL_SYNC_PAUSED:
    case ZEL_SYNC_PAUSED_TODO:
        return "paused";
    default:
        return "done";
    }
}

/** A line of a file: one with a bar fits the least terminal, one without says why the file failed. */
std::string line_of(const file &one, zel_file_sync_type kind, bool has_bar)
{
    const size_t filled = std::min(one.percentage, 100U) * bar_width / 100;
    const std::string bar = " [" + std::string(filled, '#') + std::string(bar_width - filled, '.') + "]";
    char percentage[16];
    snprintf(percentage, sizeof percentage, " %3u %%  ", one.percentage);
    std::string line = "  " + printable(one.name, 28) + (has_bar ? bar : "") + percentage + word_for(one, kind);
    if (one.retries > 0)
        line += one.retries == 1 ? ", retried" : ", retry " + std::to_string(one.retries);
    return has_bar || one.status != ZEL_SYNC_FAILED ? line : line + ": " + printable(one.trouble);
}

} // namespace

screen::screen(bool tells_old) : tells_old_(tells_old)
{
    winsize size = {};
    if (isatty(STDOUT_FILENO) != 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        has_bars_ = size.ws_col >= 80 && size.ws_row >= 10;
        rows_ = size.ws_row;
    }
}

void screen::show(const request &state)
{
    end();
    show_lines(state);
    if (!has_bars_ || state.is_settled)
        return;
    size_t more = 0;
    for (const file &one : state.files) {
        if (is_through(one) || (one.status == ZEL_SYNC_TODO && one.percentage == 0))
            continue;
        if (lines_drawn_ + 4 > rows_) {
            ++more;
            continue;
        }
        printf("%s\033[K\n", line_of(one, state.kind, true).c_str());
        ++lines_drawn_;
    }
    printf("  %s%s\033[K\n", summary(state).c_str(), more > 0 ? (", " + counted(more, "further file")).c_str() : "");
    ++lines_drawn_;
    fflush(stdout);
}

void screen::end()
{
    if (lines_drawn_ > 0)
        printf("\033[%zuA\033[J", lines_drawn_);
    lines_drawn_ = 0;
    fflush(stdout);
}

/** Lines that stay. With bars only for what is through, else for whatever is notable. */
void screen::show_lines(const request &state)
{
    for (const file &one : state.files) {
        const bool is_moving = one.status == ZEL_SYNC_TODO || one.status == ZEL_SYNC_ONGOING;
        const last_shown now = {is_moving ? ZEL_SYNC_TODO : one.status, one.retries, one.percentage / 25};
        const bool is_old = !tells_old_ && one.status == ZEL_SYNC_COMPLETE;
        const auto [known, is_new] =
            shown_.try_emplace(one.id, is_old ? now : last_shown{ZEL_SYNC_TODO, one.retries, 0});
        if (now != known->second && (has_bars_ ? is_through(one) : !is_moving || one.percentage < 100)) {
            printf("%s\n", line_of(one, state.kind, false).c_str());
            known->second = now;
        }
    }
    fflush(stdout);
}

/** How much of the whole has passed, how fast, and how long the rest will take. */
std::string screen::summary(const request &state)
{
    const guint64 passed = state.passed();
    const auto through = static_cast<guint64>(std::ranges::count_if(state.files, is_through));
    const std::string text = std::to_string(through) + " of " + counted(state.files.size(), "file") + ", " +
                             size_text(passed) + " of " + size_text(state.size);
    if (state.status == QUILLO_UPLOAD_STATUS_PAUSED)
        return text + ", paused";
    const moment now = {g_get_monotonic_time(), passed, passed + through * cost_of_a_file};
    moments_.push_back(now);
    while (moments_.size() > 2 && now.time - moments_.front().time > gint64{5} * G_USEC_PER_SEC)
        moments_.pop_front();
    const moment then = moments_.front();
    const double seconds = static_cast<double>(now.time - then.time) / G_USEC_PER_SEC;
    const guint64 whole = state.size + state.files.size() * cost_of_a_file;
    char pace[64] = "";
    if (seconds > 0.5 && now.work > then.work && now.work < whole) {
        const double bytes = passed > then.bytes ? static_cast<double>(passed - then.bytes) : 0;
        const double done = static_cast<double>(now.work - then.work) / static_cast<double>(whole - now.work);
        const auto left = static_cast<unsigned long>(seconds / done) + 1;
        snprintf(pace, sizeof pace, ", %s/s, %lu:%02lu left", size_text(static_cast<guint64>(bytes / seconds)).c_str(),
                 left / 60, left % 60);
    }
    return text + pace + (state.trouble.empty() ? "" : ", " + printable(state.trouble));
}

std::string printable(const std::string &text, size_t columns)
{
    const std::unique_ptr<char, releaser<g_free>> valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    std::string result;
    size_t used = 0;
    for (const char *at = valid.get(); *at; at = g_utf8_next_char(at)) {
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

std::string counted(unsigned long long number, const std::string &what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string size_text(unsigned long long bytes)
{
    const std::unique_ptr<char, releaser<g_free>> formatted(g_format_size(bytes));
    std::string text = formatted.get();
    const std::string unbroken = "\u00a0"; // GLib writes a blank that does not break
    if (const size_t at = text.find(unbroken); at != std::string::npos)
        text.replace(at, unbroken.size(), " ");
    return text;
}

} // namespace sharing
