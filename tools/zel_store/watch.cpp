/* A view that is refreshed in place. */

#include "commands.h"

#include "text.h"
#include "words.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace zel_store
{

namespace
{

using clock = std::chrono::steady_clock;

volatile std::sig_atomic_t is_ended = 0;

/** The terminal without an echo and without waiting for lines, on a screen of its own; puts it back. */
class whole_screen
{
  public:
    whole_screen()
    {
        if (!screen.is_terminal)
            return;
        has_keys = tcgetattr(STDIN_FILENO, &before) == 0;
        termios raw = before;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        if (has_keys)
            tcsetattr(STDIN_FILENO, TCSANOW, &raw);
        std::fputs("\033[?1049h\033[?25l", stdout);
    }
    ~whole_screen()
    {
        if (!screen.is_terminal)
            return;
        std::fputs("\033[?25h\033[?1049l", stdout);
        std::fflush(stdout);
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

  private:
    bool has_keys = false;
    termios before = {};
};

/** How fast each transfer moves: what came between two views, smoothed. */
class speedometer
{
  public:
    void look(const store &read)
    {
        const clock::time_point now = clock::now();
        const double seconds = std::chrono::duration<double>(now - latest).count();
        std::map<long long, progress> next;
        const auto measure = [&](const row &transfer, const row *content) {
            const long long id = transfer[COLUMN_CONTENT_SYNC_INFO_SYNC_ID].number;
            progress one = {bytes_of(transfer, content), 0};
            if (const auto before = known.find(id); before != known.end() && seconds > 0) {
                const double speed = static_cast<double>(one.bytes - before->second.bytes) / seconds;
                one.speed = std::max(0.0, before->second.speed > 0 ? 0.7 * before->second.speed + 0.3 * speed : speed);
            }
            next[id] = one;
        };
        for (const upload &each : read.uploads)
            for (const row *transfer : each.transfers)
                measure(*transfer, nullptr);
        for (const share &each : read.shares)
            for (const item &content : each.items)
                for (const row *transfer : content.transfers)
                    measure(*transfer, content.content);
        known = std::move(next);
        latest = now;
    }

    std::string text(const row &transfer, const row *content) const
    {
        const auto found = known.find(transfer[COLUMN_CONTENT_SYNC_INFO_SYNC_ID].number);
        if (found == known.end() || found->second.speed < 1 ||
            transfer[COLUMN_CONTENT_SYNC_INFO_STATUS].number != ZEL_SYNC_ONGOING)
            return "";
        const auto left = static_cast<double>(size_of(transfer, content) - found->second.bytes);
        return "  " + size(static_cast<long long>(found->second.speed)) + "/s" +
               (left > 0 ? format(", %.0f s left", left / found->second.speed) : "");
    }

  private:
    struct progress {
        long long bytes;
        double speed;
    };

    /** The store has the size of an item, but not that of a file that is sent. */
    static long long size_of(const row &transfer, const row *content)
    {
        struct stat status = {};
        if (content)
            return content->operator[](COLUMN_CONTENT_INFO_SIZE).id();
        return stat(transfer[COLUMN_CONTENT_SYNC_INFO_LOCAL_PATH].text.c_str(), &status) == 0 ? status.st_size : 0;
    }

    static long long bytes_of(const row &transfer, const row *content)
    {
        const long long offset = transfer[COLUMN_CONTENT_SYNC_INFO_OFFSET].id();
        return offset > 0 ? offset
                          : size_of(transfer, content) * transfer[COLUMN_CONTENT_SYNC_INFO_PERCENTAGE].number / 100;
    }

    std::map<long long, progress> known;
    clock::time_point latest;
};

} // namespace

int watch(const std::string &path, show_options options, const watch_options &how)
{
    speedometer speeds;
    options.further = [&](const row &transfer, const row *content) { return speeds.text(transfer, content); };
    read_store(path, options.wanted); // what cannot be read at all is told on the ordinary screen
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, [](int) { is_ended = 1; });
    const whole_screen keys;
    size_t first = 0;
    std::vector<std::string> lines;
    for (int views = 0; !is_ended && (how.views == 0 || views < how.views); ++views) {
        std::string complaint;
        try {
            const store read = read_store(path, options.wanted);
            speeds.look(read);
            if (how.as_json) {
                std::fputs(text_of(show_json(read, options), -1).c_str(), stdout);
                std::fflush(stdout);
                keys.key_within(how.interval);
                continue;
            }
            lines = show_lines(read, options);
        } catch (const unreadable &error) { // gone for a moment, or written too fast: the last view stays
            complaint = error.what();
        }
        screen.look();
        const size_t room =
            screen.is_terminal && screen.height > 2 ? static_cast<size_t>(screen.height) - 1 : lines.size();
        first = std::min(first, lines.size() > room ? lines.size() - room : 0);
        std::string view = screen.is_terminal ? "\033[H" : "";
        for (size_t i = first; i < std::min(lines.size(), first + room); ++i)
            view += cut(lines[i], screen.width) + (screen.is_terminal ? "\033[K\n" : "\n");
        if (screen.is_terminal)
            view += "\033[J" + cut(complaint.empty()
                                       ? format("q ends, j and k move; line %zu of %zu", first + 1, lines.size())
                                       : complaint,
                                   screen.width);
        std::fputs((view + (screen.is_terminal ? "" : "\f\n")).c_str(), stdout);
        std::fflush(stdout);
        const char key = keys.key_within(how.interval);
        if (key == 'q')
            break;
        first += key == 'j' ? 1 : key == ' ' ? room : 0;
        first -= std::min(first, key == 'k' ? 1 : key == 'b' ? room : 0);
    }
    return FINE;
}

} // namespace zel_store
