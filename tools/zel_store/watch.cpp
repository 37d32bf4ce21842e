/* A view that is refreshed in place. */

#include "zel_store.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <glib.h>
#include <map>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace
{

volatile std::sig_atomic_t is_ended = 0;

/** The terminal on a screen of its own, with keys that are not echoed; puts it back. */
struct whole_screen {
    termios before = {};
    const bool are_there = screen.is_terminal && tcgetattr(STDIN_FILENO, &before) == 0;

    whole_screen()
    {
        termios raw = before;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        if (are_there)
            tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        std::fputs(screen.is_terminal ? "\033[?1049h\033[?25l" : "", stdout);
    }
    ~whole_screen()
    {
        std::fputs(screen.is_terminal ? "\033[?25h\033[?1049l" : "", stdout);
        if (are_there)
            tcsetattr(STDIN_FILENO, TCSANOW, &before);
    }
};

struct progress {
    double bytes, speed;
    gint64 time; /**< microseconds */
};

/** Tells a view how fast each transfer moves, smoothed, and for how long still. */
void add_paces(const store &read, std::map<long long, progress> &known)
{
    for (const json &one : read.database.rows("SELECT sync_id, local_path, coalesce(offset, 0) + 0.0 AS offset,"
                                              " coalesce(percentage, 0) / 100.0 AS part FROM content_info_status"
                                              " WHERE status_word = 'ongoing'")) {
        std::error_code error; // the store has no size of a file that is sent
        const auto length = std::filesystem::file_size(text(one, "local_path"), error);
        const double total = error ? 0 : static_cast<double>(length);
        const double bytes = one["offset"] > 0 ? one["offset"].get<double>() : total * one["part"].get<double>();
        const gint64 now = g_get_monotonic_time();
        progress &last = known.emplace(one["sync_id"], progress{bytes, 0, now}).first->second;
        const double speed = std::max(0.0, bytes - last.bytes) * 1e6 / static_cast<double>(now - last.time + 1);
        last = {bytes, last.speed > 0 ? 0.7 * last.speed + 0.3 * speed : speed, now};
        if (last.speed >= 1)
            read.database.rows("INSERT INTO paces VALUES(?1, format('  %s/s, %d s left', amount(?2), ?3))",
                               {one["sync_id"], last.speed, std::max(0.0, total - bytes) / last.speed});
    }
}

} // namespace

int watch(const options &wanted)
{
    opened_for_view(wanted); // what cannot be read at all is told on the ordinary screen
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, [](int) { is_ended = 1; });
    const whole_screen keys;
    std::map<long long, progress> known;
    texts lines;
    size_t first = 0;
    char key = 0;
    for (int views = 0; !is_ended && key != 'q' && (wanted.views == 0 || views < wanted.views); ++views) {
        screen.look();
        const size_t room = screen.is_terminal ? static_cast<size_t>(std::max(screen.height, 2)) - 1 : SIZE_MAX;
        std::string last = format("q ends, j and k move; from line %zu of %zu", first + 1, lines.size());
        try {
            const store seen = opened_for_view(wanted);
            add_paces(seen, known);
            lines = wanted.as_json ? texts{written(document_of(seen), -1)} : lines_of(seen, wanted);
        } catch (const unreadable &error) { // gone for a moment, or written too fast: the last view stays
            last = error.what();
        }
        first = std::min(key == 'j' ? first + 1 : first - (key == 'k' && first > 0),
                         lines.size() - std::min(room, lines.size()));
        std::string view = screen.is_terminal ? "\033[H" : "";
        for (size_t i = first; i < lines.size() && i - first < room; ++i)
            view += lines[i] + (screen.is_terminal ? "\033[K\n" : wanted.as_json ? "" : "\n");
        std::fputs((view + (screen.is_terminal ? "\033[J" + shown(last) : "")).c_str(), stdout);
        std::fflush(stdout);
        pollfd keyboard = {keys.are_there ? STDIN_FILENO : -1, POLLIN, 0};
        const bool is_pressed = poll(&keyboard, 1, static_cast<int>(wanted.interval * 1000)) == 1;
        key = !is_pressed ? '\0' : read(STDIN_FILENO, &key, 1) == 1 ? key : 'q';
    }
    return FINE;
}
