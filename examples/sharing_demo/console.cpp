#include "console.h"

#include <cstdarg>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace demo
{

namespace
{

constexpr int name_width = 26;
constexpr unsigned int bar_width = 24;
constexpr unsigned int line_width = 79;

const char *word_for(const zel_content_sync_info &row)
{
    switch (row.status) {
    case ZEL_SYNC_TODO:
        return "waiting";
    case ZEL_SYNC_ONGOING:
        return row.type == ZEL_UPLOAD_FILE ? "sending" : "fetching";
    case ZEL_SYNC_FAILED:
        return "failed";
    case ZEL_SYNC_PAUSED:
    case ZEL_SYNC_PAUSED_TODO:
        return "paused";
    default:
        return "done";
    }
}

std::string retries_of(const zel_content_sync_info &row)
{
    return row.fail_retry_count > 0 ? ", retry " + std::to_string(row.fail_retry_count) : "";
}

} // namespace

console::console() : is_terminal_(isatty(STDOUT_FILENO) != 0) {}

void console::say(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    putchar('\n');
    fflush(stdout);
}

bool console::has_room_for(size_t lines) const
{
    winsize size = {};
    return is_terminal_ && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > lines &&
           size.ws_col >= line_width;
}

void console::show(const std::vector<transfer> &rows)
{
    if (!has_room_for(rows.size())) {
        for (const transfer &row : rows) {
            // Worth a line: an end, a pause, a retry, and every quarter of the way.
            const bool is_moving = row->status == ZEL_SYNC_TODO || row->status == ZEL_SYNC_ONGOING;
            if (is_moving && row->percentage == 100)
                continue;
            const last_shown now = {is_moving ? ZEL_SYNC_ONGOING : row->status, row->fail_retry_count,
                                    row->percentage / 25};
            if (std::exchange(shown_.try_emplace(row->sync_id).first->second, now) != now)
                say("  %-*s %3u %%  %s%s", name_width, printable(text_of(row->name), name_width).c_str(),
                    row->percentage, word_for(*row), retries_of(*row).c_str());
        }
        return;
    }
    if (lines_drawn_ > 0)
        printf("\033[%zuA", lines_drawn_);
    for (const transfer &row : rows) {
        const unsigned int filled = row->percentage * bar_width / 100;
        printf("  %-*s [%s%s] %3u %%  %s%s\033[K\n", name_width, printable(text_of(row->name), name_width).c_str(),
               std::string(filled, '#').c_str(), std::string(bar_width - filled, '.').c_str(), row->percentage,
               word_for(*row), retries_of(*row).c_str());
    }
    lines_drawn_ = rows.size();
    fflush(stdout);
}

void console::end_show()
{
    lines_drawn_ = 0;
}

std::string printable(const std::string &text, size_t length)
{
    std::string result = text;
    if (length > 0 && result.size() > length) {
        while (length > 0 && (static_cast<unsigned char>(result[length]) & 0xC0U) == 0x80U)
            --length; // not in the middle of a character
        result.resize(length);
    }
    for (char &byte : result)
        if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F)
            byte = '?';
    return result;
}

} // namespace demo
