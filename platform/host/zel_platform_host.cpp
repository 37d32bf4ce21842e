#include "zel_platform_host.h"

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <strings.h>
#include <sys/syscall.h>
#include <unistd.h>

struct app_control_s {
    const char *app_id; /**< stored behind the record, in the same block */
};

namespace
{

struct feature {
    const char *key;
    bool value;
};
constexpr feature features[] = {{"quillo.feature.enhanced", true}};

struct c_free {
    void operator()(void *block) const
    {
        free(block);
    }
};

/** Standard error for one thread alone: a line longer than a pipe takes at once would otherwise be torn. */
class stderr_guard
{
  public:
    stderr_guard()
    {
        // A thread cancelled while it writes would leave standard error locked for good.
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
        flockfile(stderr);
    }
    ~stderr_guard()
    {
        funlockfile(stderr);
        pthread_setcancelstate(cancel_state, nullptr);
    }
    stderr_guard(const stderr_guard &) = delete;
    stderr_guard &operator=(const stderr_guard &) = delete;

  private:
    int cancel_state = PTHREAD_CANCEL_ENABLE;
};

constexpr char LETTERS[] = "??VDIWEF";
constexpr char PRIORITY_NAMES[] = "verbose, debug, info, warn, error, fatal, silent"; // from DLOG_VERBOSE on

char letter_of(log_priority prio)
{
    const auto index = static_cast<unsigned int>(prio);
    return index < sizeof LETTERS - 1 ? LETTERS[index] : '?';
}

/** In one write, unless the system cuts it short. Returns 0 or a negative errno value. */
int write_whole(const char *text, size_t length)
{
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, text, length);
        if (written >= 0) {
            text += written;
            length -= static_cast<size_t>(written);
        } else if (errno == EAGAIN) {
            pollfd until_writable = {STDERR_FILENO, POLLOUT, 0};
            poll(&until_writable, 1, -1);
        } else if (errno != EINTR) {
            return -errno;
        }
    }
    return 0;
}

/** Writes a number with leading zeros. Returns what follows it. */
char *put_digits(char *to, unsigned int number, int count)
{
    for (int i = count - 1; i >= 0; --i, number /= 10)
        to[i] = static_cast<char>('0' + number % 10);
    return to + count;
}

constexpr size_t TIME_LENGTH = sizeof "2026-11-25 06:34:30.123456 " - 1;

/** What a thread works out now and then instead of once a line. */
struct thread_memory {
    char id[3 * sizeof(pid_t) + 2] = {}; /**< with a blank; of the thread's first line, and of a child's after a fork */
    size_t id_length = 0;
    time_t second = -1; /**< that the next two are of */
    bool is_terminal = false;
    char time[TIME_LENGTH] = {}; /**< up to the point */
};
thread_local thread_memory remembered;

[[maybe_unused]] const int fork_is_heard = pthread_atfork(nullptr, nullptr, [] { remembered.id_length = 0; });

/** Brings what is remembered of the second up to date. Returns the nanoseconds that have passed in it. */
long look_at_the_clock(thread_memory &latest)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != latest.second) {
        using namespace std::chrono;
        const sys_seconds seconds{duration_cast<sys_seconds::duration>(std::chrono::seconds(now.tv_sec))};
        const auto day = floor<days>(seconds);
        const year_month_day date = day;
        const hh_mm_ss time(seconds - day);
        char *to = put_digits(latest.time, static_cast<unsigned int>(static_cast<int>(date.year())) % 10000, 4);
        const auto put = [&to](char in_front, auto number) {
            *to++ = in_front;
            to = put_digits(to, static_cast<unsigned int>(number), 2);
        };
        put('-', static_cast<unsigned int>(date.month()));
        put('-', static_cast<unsigned int>(date.day()));
        put(' ', time.hours().count());
        put(':', time.minutes().count());
        put(':', time.seconds().count());
        latest.is_terminal = isatty(STDERR_FILENO);
        latest.second = now.tv_sec;
    }
    return now.tv_nsec;
}

/** What stands in front of a message: time, thread, priority's letter and tag. Its length is known ahead. */
struct prefix {
    thread_memory &thread = remembered;
    char letter;
    const char *tag;
    size_t tag_length, length;

    prefix(char letter_, const char *tag_) : letter(letter_), tag(tag_), tag_length(strlen(tag_))
    {
        if (thread.id_length == 0)
            thread.id_length = static_cast<size_t>(snprintf(thread.id, sizeof thread.id, "%ld ", syscall(SYS_gettid)));
        length = TIME_LENGTH + thread.id_length + 2 + tag_length + 2;
    }
    void put(char *to) const
    {
        const long nanoseconds = look_at_the_clock(thread);
        to = static_cast<char *>(mempcpy(to, thread.time, TIME_LENGTH - 8));
        *to++ = '.';
        to = put_digits(to, static_cast<unsigned int>(nanoseconds / 1000), 6);
        *to++ = ' ';
        to = static_cast<char *>(mempcpy(to, thread.id, thread.id_length));
        *to++ = letter;
        *to++ = '/';
        to = static_cast<char *>(mempcpy(to, tag, tag_length));
        *to++ = ':';
        *to++ = ' ';
    }
};

/** Takes the colours out of a text, ESC [ ... m. Returns its new length. */
size_t without_colours(char *text, size_t length)
{
    char *const end = text + length;
    char *to = static_cast<char *>(memchr(text, '\033', length));
    for (const char *from = to; from && from < end;) {
        const char *behind = from;
        if (*from == '\033' && end - from > 1 && from[1] == '[')
            for (behind += 2; behind < end && strchr("0123456789;", *behind) && *behind != '\0';)
                ++behind;
        if (behind > from && behind < end && *behind == 'm')
            from = behind + 1;
        else
            *to++ = *from++;
    }
    return to ? static_cast<size_t>(to - text) : length;
}

/** Writes the line whose message stands in place behind room for the prefix, and has room for a newline behind it. */
int write_line(const prefix &before, char *line, size_t length)
{
    const stderr_guard guard; // the clock is read behind it, so that the lines stand in the order of their times
    before.put(line);
    if (!before.thread.is_terminal)
        length = before.length + without_colours(line + before.length, length - before.length);
    if (line[length - 1] != '\n')
        line[length++] = '\n';
    const int result = write_whole(line, length);
    return result < 0 ? result : static_cast<int>(length);
}

int print_line(const prefix &before, const char *fmt, va_list args)
{
    char usual[8192]; // holds the longest insert of the store: a line that does not fit is formatted twice
    const size_t room = before.length < sizeof usual ? sizeof usual - before.length : 0;

    va_list args_again;
    va_copy(args_again, args);
    const int formatted = vsnprintf(room > 0 ? usual + before.length : nullptr, room, fmt, args);
    const size_t length = before.length + static_cast<size_t>(formatted);
    int result;
    if (formatted < 0) {
        result = -errno;
    } else if (length < sizeof usual) {
        result = write_line(before, usual, length);
    } else if (const std::unique_ptr<char, c_free> longer(static_cast<char *>(malloc(length + 1))); longer) {
        vsnprintf(longer.get() + before.length, length + 1 - before.length, fmt, args_again);
        result = write_line(before, longer.get(), length);
    } else { // no memory for the whole line: piece by piece and with its colours, but nothing of it is lost
        const stderr_guard guard;
        if (before.length <= sizeof usual) {
            before.put(usual);
            write_whole(usual, before.length);
        }
        result = vdprintf(STDERR_FILENO, fmt, args_again);
    }
    va_end(args_again);
    return result;
}

__attribute__((format(printf, 3, 4))) int print(char letter, const char *tag, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const int result = print_line({letter, tag}, fmt, args);
    va_end(args);
    return result;
}

/** The lowest priority that is written, as the environment wants it. */
log_priority wanted_priority() noexcept
{
    const char *const wanted = getenv("ZEL_HOST_LOG");
    if (!wanted || !*wanted)
        return DLOG_VERBOSE;
    const char *name = PRIORITY_NAMES;
    for (int priority = DLOG_VERBOSE; priority <= DLOG_SILENT; ++priority) {
        const size_t length = strcspn(name, ",");
        if (strlen(wanted) == length && strncasecmp(wanted, name, length) == 0)
            return static_cast<log_priority>(priority);
        name += length + 2;
    }
    print('W', "zel_platform", "ZEL_HOST_LOG=%s is none of %s: every line is written\n", wanted, PRIORITY_NAMES);
    return DLOG_VERBOSE;
}

/** Known when the platform is loaded; what is written before that is written whole. */
const log_priority lowest_priority = wanted_priority();

} // namespace

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    const bool is_known = prio >= DLOG_VERBOSE && prio < DLOG_PRIO_MAX;
    if (prio == DLOG_SILENT || (is_known && prio < lowest_priority))
        return 0;
    const int caller_errno = errno;
    va_list args;
    va_start(args, fmt);
    const int result = print_line({letter_of(prio), tag ? tag : ""}, fmt, args);
    va_end(args);
    errno = caller_errno;
    return result;
}

int system_info_get_custom_bool(const char *key, bool *value)
{
    if (!key || !value)
        return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
    for (const feature &known : features) {
        if (strcmp(known.key, key) == 0) {
            *value = known.value;
            return SYSTEM_INFO_ERROR_NONE;
        }
    }
    return SYSTEM_INFO_ERROR_INVALID_PARAMETER;
}

int app_control_create(app_control_h *app_control, const char *app_id)
{
    if (!app_control || !app_id)
        return -EINVAL;
    const size_t id_size = strlen(app_id) + 1;
    auto *created = static_cast<app_control_s *>(malloc(sizeof(app_control_s) + id_size));
    if (!created)
        return -ENOMEM;
    created->app_id = static_cast<char *>(memcpy(created + 1, app_id, id_size));
    *app_control = created;
    return 0;
}

const char *app_control_get_app_id(app_control_h app_control)
{
    return app_control ? app_control->app_id : nullptr;
}

int app_control_clone(app_control_h *clone, app_control_h app_control)
{
    return app_control ? app_control_create(clone, app_control->app_id) : -EINVAL;
}

int app_control_destroy(app_control_h app_control)
{
    if (!app_control)
        return -EINVAL;
    free(app_control);
    return 0;
}
