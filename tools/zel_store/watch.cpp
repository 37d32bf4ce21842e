/* A view that is refreshed in place. */

#include "commands.h"
#include "text.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace zel_store
{

namespace
{

using clock = std::chrono::steady_clock;

volatile std::sig_atomic_t is_ended = 0;

/** The terminal on a screen of its own, with keys that are not echoed; puts it back. */
class whole_screen
{
  public:
    whole_screen()
    {
        has_keys = screen.is_terminal && tcgetattr(STDIN_FILENO, &before) == 0;
        termios raw = before;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        if (has_keys)
            tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        if (screen.is_terminal)
            std::fputs("\033[?1049h\033[?25l", stdout);
    }
    ~whole_screen()
    {
        if (screen.is_terminal)
            std::fputs("\033[?25h\033[?1049l", stdout);
        if (has_keys)
            tcsetattr(STDIN_FILENO, TCSANOW, &before);
    }
    whole_screen(const whole_screen &) = delete;
    whole_screen &operator=(const whole_screen &) = delete;

    /** Shows it and waits so long, or until a key is pressed; gives the key. */
    char key_within(double seconds) const
    {
        std::fflush(stdout);
        pollfd keyboard = {has_keys ? STDIN_FILENO : -1, POLLIN, 0};
        char key = 0;
        if (poll(&keyboard, 1, static_cast<int>(seconds * 1000)) == 1 && read(STDIN_FILENO, &key, 1) != 1)
            key = 'q';
        return key;
    }

  private:
    bool has_keys = false;
    termios before = {};
};

/** How fast a transfer moves, smoothed, and for how long still. */
class speedometer
{
  public:
    std::string text_for(const json &transfer)
    {
        // The store has no size of a file that is sent.
        struct stat file = {};
        const bool has_file = stat(transfer["local_path"].get<std::string>().c_str(), &file) == 0;
        const auto size_of_file = static_cast<double>(has_file ? file.st_size : 0);
        const auto offset = static_cast<double>(number(transfer, "offset"));
        const auto percent = static_cast<double>(number(transfer, "percentage"));
        const double bytes = offset > 0 ? offset : size_of_file * percent / 100;
        const clock::time_point now = clock::now();
        progress &known = transfers[number(transfer, "sync_id")];
        const double seconds = std::chrono::duration<double>(now - known.time).count();
        if (known.bytes >= 0) {
            const double speed = std::max(0.0, (bytes - known.bytes) / seconds);
            known.speed = known.speed > 0 ? 0.7 * known.speed + 0.3 * speed : speed;
        }
        known = {bytes, known.speed, now};
        if (known.speed < 1 || text(transfer, "status_word") != "ongoing")
            return "";
        const double left = size_of_file > bytes ? size_of_file - bytes : percent > 0 ? bytes * (100 / percent - 1) : 0;
        return "  " + size(static_cast<long long>(known.speed)) + "/s" + format(", %.0f s left", left / known.speed);
    }

  private:
    struct progress {
        double bytes = -1, speed = 0;
        clock::time_point time;
    };
    std::map<long long, progress> transfers;
};

} // namespace

int watch(const std::string &path, const view_options &options)
{
    speedometer speeds;
    view_of(store(path), options); // what cannot be read at all is told on the ordinary screen
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, [](int) { is_ended = 1; });
    const whole_screen keys;
    std::vector<std::string> lines;
    size_t first = 0;
    char key = 0;
    for (int views = 0; !is_ended && key != 'q' && (options.views == 0 || views < options.views); ++views) {
        screen.look();
        const size_t room = screen.is_terminal ? static_cast<size_t>(std::max(screen.height, 2)) - 1 : SIZE_MAX;
        std::string complaint;
        try {
            const json view = view_of(store(path, options.shows_secrets), options);
            if (options.as_json)
                lines = {text_of(view, -1)};
            else
                lines = lines_of(view, [&](const json &transfer) { return speeds.text_for(transfer); });
        } catch (const unreadable &error) { // gone for a moment, or written too fast: the last view stays
            complaint = error.what();
        }
        first += key == 'j' ? 1 : key == ' ' ? room : 0;
        first -= std::min<size_t>(first, key == 'k' ? 1 : key == 'b' ? room : 0);
        first = std::min(first, lines.size() - std::min(room, lines.size()));
        std::string shown = screen.is_terminal ? "\033[H" : "";
        for (size_t i = first; i < lines.size() && i - first < room; ++i)
            shown += cut(lines[i], screen.width) + (screen.is_terminal ? "\033[K\n" : options.as_json ? "" : "\n");
        if (complaint.empty())
            complaint = format("q ends, j and k move; line %zu of %zu", first + 1, lines.size());
        if (screen.is_terminal)
            shown += "\033[J" + cut(complaint, screen.width);
        std::fputs(shown.c_str(), stdout);
        key = keys.key_within(options.interval);
    }
    return FINE;
}

} // namespace zel_store
