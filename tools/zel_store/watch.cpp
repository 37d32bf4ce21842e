/* A view that is refreshed in place. */

#include "zel_store.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace
{

using clock = std::chrono::steady_clock;

volatile std::sig_atomic_t is_ended = 0;

/** The terminal on a screen of its own, with keys that are not echoed; puts it back. */
struct whole_screen {
    termios before = {};
    const bool has_keys = screen.is_terminal && tcgetattr(STDIN_FILENO, &before) == 0;

    whole_screen()
    {
        termios raw = before;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        if (has_keys)
            tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        std::fputs(screen.is_terminal ? "\033[?1049h\033[?25l" : "", stdout);
    }
    ~whole_screen()
    {
        std::fputs(screen.is_terminal ? "\033[?25h\033[?1049l" : "", stdout);
        if (has_keys)
            tcsetattr(STDIN_FILENO, TCSANOW, &before);
    }
    whole_screen(const whole_screen &) = delete;
    whole_screen &operator=(const whole_screen &) = delete;

    /** Waits so long, or until a key is pressed; gives the key. */
    char key_within(double seconds) const
    {
        pollfd keyboard = {has_keys ? STDIN_FILENO : -1, POLLIN, 0};
        char key = 0;
        if (poll(&keyboard, 1, static_cast<int>(seconds * 1000)) == 1 && read(STDIN_FILENO, &key, 1) != 1)
            key = 'q';
        return key;
    }
};

struct progress {
    double bytes, speed;
    clock::time_point time;
};

/** Tells a view how fast each transfer moves, smoothed, and for how long still. */
void add_paces(const store &read, std::map<long long, progress> &known)
{
    // The store has no size of a file that is sent.
    for (const json &one : read.database.rows(R"(
             SELECT sync_id, total, iif(offset > 0, offset, total * percentage / 100) AS bytes
             FROM (SELECT *, size_of_file(local_path) + 0 AS total FROM content_info_status)
             WHERE status_word = 'ongoing')")) {
        const auto bytes = one["bytes"].is_number() ? one["bytes"].get<double>() : 0;
        const clock::time_point now = clock::now();
        progress &last = known.emplace(one["sync_id"], progress{bytes, 0, now}).first->second;
        const double seconds = std::max(std::chrono::duration<double>(now - last.time).count(), 0.001);
        const double speed = std::max(0.0, bytes - last.bytes) / seconds;
        last = {bytes, last.speed > 0 ? 0.7 * last.speed + 0.3 * speed : speed, now};
        if (last.speed >= 1)
            read.database.rows(
                "INSERT INTO paces VALUES(?, ?)",
                {one["sync_id"],
                 amount(static_cast<long long>(last.speed)) +
                     format("/s, %.0f s left", std::max(0.0, one["total"].get<double>() - bytes) / last.speed)});
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
            const store read = opened_for_view(wanted);
            add_paces(read, known);
            lines = wanted.as_json ? texts{written(document_of(read), -1)} : lines_of(read, wanted);
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
        key = keys.key_within(wanted.interval);
    }
    return FINE;
}
