#include "screen.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace sharing
{

namespace
{

constexpr size_t name_width = 28;
constexpr unsigned int bar_width = 20;
constexpr unsigned long long cost_of_a_file = 64 * 1024ULL; /**< what it takes besides its bytes, in bytes */
constexpr unsigned short least_columns = 80;
constexpr unsigned short least_rows = 10;

const char *word_for(const file &one, zel_file_sync_type kind)
{
    switch (one.status) {
    case ZEL_SYNC_TODO:
        return "waiting";
    case ZEL_SYNC_ONGOING:
        return kind == ZEL_UPLOAD_FILE ? "sending" : "fetching";
    case ZEL_SYNC_FAILED:
        return one.retries > 5 ? "given up" : "failed";
    case ZEL_SYNC_PAUSED:
    case ZEL_SYNC_PAUSED_TODO:
        return "paused";
    default:
        return "done";
    }
}

/** What is said behind a file's bar or percentage. */
std::string remarks(const file &one, zel_file_sync_type kind)
{
    std::string text = word_for(one, kind);
    if (one.retries > 0)
        text += ", " + (one.retries == 1 ? std::string("retried") : "retry " + std::to_string(one.retries));
    return text;
}

bool is_through(const file &one)
{
    return one.status == ZEL_SYNC_COMPLETE || (one.status == ZEL_SYNC_FAILED && one.retries > 5);
}

std::string line_of(const file &one, zel_file_sync_type kind)
{
    char percentage[16];
    snprintf(percentage, sizeof percentage, " %3u %%  ", one.percentage);
    return "  " + printable(one.name, name_width) + percentage + remarks(one, kind) +
           (one.status == ZEL_SYNC_FAILED ? ": " + printable(one.trouble) : "");
}

} // namespace

screen::screen(bool tells_old) : tells_old_(tells_old)
{
    winsize size = {};
    if (isatty(STDOUT_FILENO) != 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) {
        has_bars_ = size.ws_col >= least_columns && size.ws_row >= least_rows;
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
        const unsigned int filled = std::min(one.percentage, 100U) * bar_width / 100;
        printf("  %s [%s%s] %3u %%  %s\033[K\n", printable(one.name, name_width).c_str(),
               std::string(filled, '#').c_str(), std::string(bar_width - filled, '.').c_str(), one.percentage,
               remarks(one, state.kind).c_str());
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
        const bool is_notable = has_bars_ ? is_through(one) && now != known->second : now != known->second;
        if (is_notable && (!is_moving || one.percentage < 100)) {
            printf("%s\n", line_of(one, state.kind).c_str());
            known->second = now;
        }
    }
    fflush(stdout);
}

/** How much of the whole has passed, how fast, and how long the rest will take. */
std::string screen::summary(const request &state)
{
    using namespace std::chrono;
    unsigned long long passed = 0;
    for (const file &one : state.files)
        passed += one.offset;
    const auto through = static_cast<unsigned long long>(std::ranges::count_if(state.files, is_through));
    std::string text = std::to_string(through) + " of " + counted(state.files.size(), "file") + ", " +
                       size_text(passed) + " of " + size_text(state.size);
    if (state.status == QUILLO_UPLOAD_STATUS_PAUSED)
        return text + ", paused";
    const auto now = steady_clock::now();
    sent_.push_back({now, passed, passed + through * cost_of_a_file});
    while (sent_.size() > 2 && now - sent_.front().time > seconds(5))
        sent_.pop_front();
    const double time = duration<double>(now - sent_.front().time).count();
    const auto work = static_cast<double>(sent_.back().work - std::min(sent_.back().work, sent_.front().work));
    const unsigned long long whole = state.size + state.files.size() * cost_of_a_file;
    if (time > 0.5 && work > 0 && sent_.back().work < whole) {
        const auto bytes = static_cast<double>(passed - std::min(passed, sent_.front().bytes));
        const auto left = static_cast<unsigned long>(static_cast<double>(whole - sent_.back().work) * time / work) + 1;
        char rest[64];
        snprintf(rest, sizeof rest, ", %s/s, %lu:%02lu left",
                 size_text(static_cast<unsigned long long>(bytes / time)).c_str(), left / 60, left % 60);
        text += rest;
    }
    return state.trouble.empty() ? text : text + ", " + printable(state.trouble);
}

unsigned int percentage_of(const request &state)
{
    unsigned long long passed = 0;
    for (const file &one : state.files)
        passed += one.offset;
    return state.size > 0 ? static_cast<unsigned int>(passed * 100 / state.size) : 0;
}

std::string printable(const std::string &text, size_t columns)
{
    char *valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
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
    g_free(valid);
    return columns > 0 ? result + std::string(columns - used, ' ') : result;
}

std::string counted(unsigned long long number, const std::string &what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string size_text(unsigned long long bytes)
{
    char *text = g_format_size(bytes);
    std::string result;
    for (const char *at = text; *at; ++at) // a plain blank where GLib writes one that does not break
        result += g_str_has_prefix(at, "\u00a0") ? (++at, ' ') : *at;
    g_free(text);
    return result;
}

} // namespace sharing
