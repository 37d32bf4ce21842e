#include "zel_platform_host.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

struct app_control_s {
    const char *app_id; /**< stored after the record, in the same block */
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
        // A thread cancelled while it writes would leave standard error locked for ever.
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
constexpr char JOURNAL_LEVELS[] = "66776432";                                         // as syslog numbers them
constexpr char PRIORITY_NAMES[] = "verbose, debug, info, warn, error, fatal, silent"; // from DLOG_VERBOSE on

char letter_of(log_priority prio, const char *letters)
{
    const auto index = static_cast<unsigned int>(prio);
    return letters[index < sizeof LETTERS - 1 ? index : 0];
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

/** Collects a line: all of it where the room is large enough, else piece by piece. Without room it counts. */
struct output {
    char *room = nullptr;
    size_t size = 0, used = 0, total = 0;
    int error = 0; /**< of a write: a negative errno value */

    void put(const char *text, size_t length)
    {
        total += length;
        while (room && length > 0) {
            if (used == size)
                flush();
            const size_t fitting = std::min(length, size - used);
            memcpy(room + used, text, fitting);
            used += fitting;
            text += fitting;
            length -= fitting;
        }
    }
    int flush()
    {
        if (const int result = write_whole(room, used); result < 0)
            error = result;
        used = 0;
        return error < 0 ? error : static_cast<int>(total);
    }
};

/** Writes a number with leading zeros. Returns what follows it. */
char *put_digits(char *to, unsigned int number, int count)
{
    for (int i = count - 1; i >= 0; --i, number /= 10)
        to[i] = static_cast<char>('0' + number % 10);
    return to + count;
}

/** Where standard error leads, as far as lines look different there. */
enum class destination { ELSEWHERE, TERMINAL, JOURNAL };

/** The stream to the journal, by which the service manager lets a program recognize it. */
struct journal_stream {
    unsigned long long device = 0, inode = 0;
    bool is_known = false;

    journal_stream() noexcept
    {
        const char *const named = getenv("JOURNAL_STREAM");
        char *end = nullptr;
        device = named ? strtoull(named, &end, 10) : 0;
        if (end && *end == ':') {
            const char *const second = end + 1;
            inode = strtoull(second, &end, 10);
            is_known = end != second && *end == '\0';
        }
    }
    bool is_standard_error() const
    {
        struct stat status = {};
        return is_known && fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
    }
};
/** Known when the platform is loaded, as the lowest priority is. */
const journal_stream journal;

constexpr size_t TIME_LENGTH = sizeof "2026-11-25 06:34:30.123456 " - 1;

/** What a thread works out now and then instead of once a line. */
struct thread_memory {
    char id[3 * sizeof(pid_t) + 2] = {}; /**< with a blank; of the thread's first line, and of a child's after a fork */
    size_t id_length = 0;
    time_t second = -1;  /**< that the time is of */
    time_t seen_at = -1; /**< second of the look at where standard error leads */
    destination where = destination::ELSEWHERE;
    char time[TIME_LENGTH] = {}; /**< up to the point */
};
thread_local thread_memory remembered;

[[maybe_unused]] const int fork_is_heard = pthread_atfork(nullptr, nullptr, [] { remembered.id_length = 0; });

void look_at_destination(thread_memory &latest)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    if (now.tv_sec == latest.seen_at)
        return;
    latest.seen_at = now.tv_sec;
    latest.where = journal.is_standard_error() ? destination::JOURNAL
                   : isatty(STDERR_FILENO)     ? destination::TERMINAL
                                               : destination::ELSEWHERE;
}

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
        latest.second = now.tv_sec;
    }
    return now.tv_nsec;
}

/** What stands in front of a message: time or the journal's level, thread, priority's letter and tag. */
struct prefix {
    thread_memory &thread = remembered;
    char level[3], letter[2]; /**< with their marks: <6> and I/ */
    const char *tag;
    size_t tag_length, length;

    prefix(log_priority prio, const char *tag_)
        : level{'<', letter_of(prio, JOURNAL_LEVELS), '>'}, letter{letter_of(prio, LETTERS), '/'}, tag(tag_),
          tag_length(strlen(tag_))
    {
        look_at_destination(thread);
        if (thread.id_length == 0)
            thread.id_length = static_cast<size_t>(snprintf(thread.id, sizeof thread.id, "%ld ", syscall(SYS_gettid)));
        length = (is_for_journal() ? sizeof level : TIME_LENGTH) + thread.id_length + sizeof letter + tag_length + 2;
    }
    bool is_for_journal() const
    {
        return thread.where == destination::JOURNAL;
    }
    void put(output &to) const
    {
        if (is_for_journal()) {
            to.put(level, sizeof level);
        } else {
            char *point = thread.time + TIME_LENGTH - 8;
            const long nanoseconds = look_at_the_clock(thread);
            *point++ = '.';
            *put_digits(point, static_cast<unsigned int>(nanoseconds / 1000), 6) = ' ';
            to.put(thread.time, TIME_LENGTH);
        }
        to.put(thread.id, thread.id_length);
        to.put(letter, sizeof letter);
        to.put(tag, tag_length);
        to.put(": ", 2);
    }
};

/** A piece of a format that is a colour, ESC [ ... m. */
struct colour {
    const char *sequence;
    size_t length;
    size_t position; /**< in the format without colours; later in the text */
};

/** The length of the colour that a text begins with, or 0. */
size_t length_of_colour(const char *text)
{
    if (text[0] != '\033' || text[1] != '[')
        return 0;
    const size_t length = 2 + strspn(text + 2, "0123456789;");
    return text[length] == 'm' ? length + 1 : 0;
}

/** A format and its arguments. The colours of the format are taken out: what is left of them came in as a text. */
class message
{
  public:
    message(const char *fmt, va_list args) : format(fmt)
    {
        va_copy(arguments, args);
        if (strchr(fmt, '\033'))
            take_colours_out(fmt);
    }
    ~message()
    {
        va_end(arguments);
    }
    message(const message &) = delete;
    message &operator=(const message &) = delete;

    /** Is vsnprintf. */
    int write_to(char *to, size_t size)
    {
        va_list once;
        va_copy(once, arguments);
        errno = caller_errno; // %m means that
        const int length = vsnprintf(to, size, format, once);
        va_end(once);
        return length;
    }
    /** Is vdprintf. */
    int write_to(int file)
    {
        va_list once;
        va_copy(once, arguments);
        errno = caller_errno;
        const int length = vdprintf(file, format, once);
        va_end(once);
        return length;
    }
    /** Finds where the colours stand in the text: as far behind its beginning as what the format says up to there. */
    void place_colours()
    {
        for (size_t i = 0; i < colour_count; ++i) {
            char &end = bare.get()[colours[i].position];
            const char behind = end;
            end = '\0';
            colours[i].position = static_cast<size_t>(std::max(0, write_to(nullptr, 0)));
            end = behind;
        }
    }

    static constexpr size_t MOST_COLOURS = 16; // of a format; later ones are left out
    colour colours[MOST_COLOURS];
    size_t colour_count = 0;

  private:
    void take_colours_out(const char *fmt)
    {
        const size_t size = strlen(fmt) + 1;
        bare.reset(size <= sizeof usual ? usual : static_cast<char *>(malloc(size)));
        if (!bare) // they are shown as if they had come in as a text
            return;
        char *to = bare.get();
        while (*fmt != '\0') {
            const size_t length = length_of_colour(fmt);
            if (length > 0 && colour_count < MOST_COLOURS)
                colours[colour_count++] = {fmt, length, static_cast<size_t>(to - bare.get())};
            if (length > 0)
                fmt += length;
            else
                *to++ = *fmt++;
        }
        *to = '\0';
        format = bare.get();
    }

    struct release {
        const char *usual;
        void operator()(char *block) const
        {
            if (block != usual)
                free(block);
        }
    };
    const char *format;
    va_list arguments;
    int caller_errno = errno;
    char usual[512];
    std::unique_ptr<char, release> bare{nullptr, {usual}};
};

/** A character that a text begins with. */
struct character {
    size_t length = 1;
    unsigned int number;      /**< of Unicode; a byte that begins no character: its own */
    bool is_harmless = false; /**< is no control, ends no line, turns no text around, and is valid */
};

character first_of(const char *text, size_t length)
{
    const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    character first = {.number = byte(0)};
    if (first.number < 0x80) {
        first.is_harmless =
            (first.number >= ' ' || first.number == '\t') && first.number != '\\' && first.number != 0x7f;
        return first;
    }
    const size_t expected = first.number >= 0xf0 ? 4 : first.number >= 0xe0 ? 3 : 2;
    constexpr unsigned int SMALLEST[] = {0x80, 0x800, 0x10000};
    if (first.number < 0xc2 || first.number > 0xf4 || expected > length)
        return first;
    unsigned int number = first.number & (0x7fU >> expected);
    for (size_t i = 1; i < expected; ++i) {
        if ((byte(i) & 0xc0U) != 0x80)
            return first;
        number = number << 6U | (byte(i) & 0x3fU);
    }
    if (number < SMALLEST[expected - 2] || number > 0x10ffff || (number >= 0xd800 && number < 0xe000))
        return first;
    const bool is_control = number < 0xa0;
    const bool turns = number == 0x61c || number == 0x200e || number == 0x200f ||
                       (number >= 0x202a && number <= 0x202e) || (number >= 0x2066 && number <= 0x206f);
    return {expected, number, !is_control && !turns && number != 0x2028 && number != 0x2029};
}

constexpr size_t BLOCK = 64;

/** Whether each byte of a block is harmless ASCII: looks at eight at once, at their high bits after a calculation. */
bool is_plain(const char *block)
{
    constexpr uint64_t EACH = 0x0101010101010101;
    uint64_t high = 0;
    for (size_t i = 0; i < BLOCK; i += sizeof high) {
        uint64_t bytes = 0;
        memcpy(&bytes, block + i, sizeof bytes);
        // Not ASCII, below a blank, a delete, a backslash.
        high |= bytes | (bytes - EACH * ' ') | (bytes + EACH) | ((bytes ^ EACH * '\\') - EACH);
    }
    return (high & EACH * 0x80) == 0;
}

/** How much of a text stands in a line as it is. */
size_t harmless_length(const char *text, size_t length)
{
    size_t at = 0;
    while (at < length) {
        if (length - at >= BLOCK && is_plain(text + at)) {
            at += BLOCK;
            continue;
        }
        for (const size_t end = std::min(length, at + BLOCK); at < end;) {
            const character next = first_of(text + at, length - at);
            if (!next.is_harmless)
                return at;
            at += next.length;
        }
    }
    return at;
}

/** Writes what a line shows in a character's place. Returns its length. */
size_t escape(const character &shown, char *to)
{
    constexpr char DIGITS[] = "0123456789abcdef";
    char *end = to;
    *end++ = '\\';
    if (shown.number == '\\' || shown.number == '\n' || shown.number == '\r') {
        *end++ = shown.number == '\n' ? 'n' : shown.number == '\r' ? 'r' : '\\';
    } else if (shown.length == 1) {
        *end++ = 'x';
        *end++ = DIGITS[shown.number >> 4U];
        *end++ = DIGITS[shown.number & 0xfU];
    } else {
        *end++ = 'u';
        *end++ = '{';
        for (unsigned int shift = shown.number < 0x100 ? 8 : shown.number < 0x1000 ? 12 : 16; shift > 0;)
            *end++ = DIGITS[shown.number >> (shift -= 4) & 0xfU];
        *end++ = '}';
    }
    return static_cast<size_t>(end - to);
}
constexpr size_t LONGEST_ESCAPE = sizeof "\\u{12345}";

/** The journal cuts lines of more than 48 KiB, and the rest after the cut loses its level: part and backslash fit. */
constexpr size_t JOURNAL_PART = 48 * 1024 - 2;

/** What follows the prefix: the text escaped, with its colours, and for the journal in parts. */
class body
{
  public:
    body(output &to_, const prefix &before_, const message &said_)
        : to(to_), before(before_), said(said_), part(before.length)
    {
    }
    /** Adds a text, or a part of one that ends with a character. */
    void add(const char *text, size_t length)
    {
        while (length > 0) {
            add_colours();
            const bool has_colour = next_colour < said.colour_count;
            const size_t rest = has_colour ? std::min(length, said.colours[next_colour].position - at) : length;
            size_t taken = harmless_length(text, rest);
            if (taken > 0) {
                put(text, taken);
            } else {
                const character odd = first_of(text, rest);
                char escaped[LONGEST_ESCAPE];
                const size_t escaped_length = escape(odd, escaped);
                if (is_too_long(escaped_length))
                    begin_part();
                put(escaped, escaped_length);
                taken = odd.length;
            }
            text += taken;
            length -= taken;
            at += taken;
        }
    }
    void end()
    {
        at = SIZE_MAX;
        add_colours();
        to.put("\n", 1);
    }

  private:
    bool is_too_long(size_t more) const
    {
        return before.is_for_journal() && before.length < JOURNAL_PART / 2 && part + more > JOURNAL_PART;
    }
    void add_colours()
    {
        for (; next_colour < said.colour_count && said.colours[next_colour].position <= at; ++next_colour)
            to.put(said.colours[next_colour].sequence, said.colours[next_colour].length);
    }
    void begin_part()
    {
        to.put("\\\n", 2);
        before.put(to);
        to.put("\\", 1);
        part = before.length + 1;
    }
    void put(const char *text, size_t length)
    {
        while (is_too_long(length)) {
            size_t fitting = JOURNAL_PART - part;
            while (fitting > 0 && (static_cast<unsigned char>(text[fitting]) & 0xc0U) == 0x80) // within a character
                --fitting;
            to.put(text, fitting);
            begin_part();
            text += fitting;
            length -= fitting;
        }
        to.put(text, length);
        part += length;
    }

    output &to;
    const prefix &before;
    const message &said;
    size_t at = 0;   /**< in the text */
    size_t part = 0; /**< length of the line's latest part */
    size_t next_colour = 0;
};

/** A line is ended by us: without the newline that a format ends with, and one in front of it. */
size_t without_newlines(const char *end, size_t length)
{
    for (int i = 0; i < 2 && length > 0 && end[-1] == '\n'; ++i, --end)
        --length;
    return length;
}

/** Without memory for the text: through a file of the kernel's. Failing that, what the window holds is written. */
int print_without_memory(const prefix &before, message &said, char *window, size_t window_size)
{
    const stderr_guard guard;
    char pieces[256];
    output to = {pieces, sizeof pieces};
    before.put(to);
    body text(to, before, said);
    const int file = memfd_create("zel_platform", MFD_CLOEXEC);
    const int formatted = file < 0 ? -1 : said.write_to(file);
    if (formatted < 0) {
        text.add(window, strlen(window));
    } else {
        size_t length = static_cast<size_t>(formatted);
        char last[2] = {};
        if (length >= sizeof last && pread(file, last, sizeof last, formatted - 2) == sizeof last)
            length = without_newlines(last + sizeof last, length);
        for (size_t at = 0; at < length;) {
            const ssize_t got = pread(file, window, std::min(window_size, length - at), static_cast<off_t>(at));
            if (got <= 0)
                break;
            // A character that may go on in the next piece is left to that.
            size_t taken = static_cast<size_t>(got);
            for (size_t i = 1; at + taken < length && i <= 3; ++i) {
                if (static_cast<unsigned char>(window[got - static_cast<ssize_t>(i)]) >= 0xc0) {
                    taken -= i;
                    break;
                }
            }
            text.add(window, taken);
            at += taken;
        }
    }
    if (file >= 0)
        close(file);
    text.end();
    const int result = to.flush();
    return formatted < 0 ? -ENOMEM : result;
}

int print_line(const prefix &before, message &said)
{
    if (before.thread.where == destination::TERMINAL)
        said.place_colours();
    else
        said.colour_count = 0;
    char usual[8192]; // holds the longest insert of the store: a line that does not fit is formatted twice
    const bool is_usual = before.length < sizeof usual / 2;
    char *const beginning = usual + (is_usual ? before.length : 0);
    const size_t room = static_cast<size_t>(usual + sizeof usual - beginning);
    char *line = usual;
    std::unique_ptr<char, c_free> longer;
    const int formatted = said.write_to(beginning, room);
    if (formatted < 0)
        return -errno;
    size_t length = static_cast<size_t>(formatted);
    if (!is_usual || length >= room) {
        longer.reset(static_cast<char *>(malloc(before.length + length + 1)));
        if (!longer)
            return print_without_memory(before, said, beginning, room);
        line = longer.get();
        said.write_to(line + before.length, length + 1);
    }
    char *const text = line + before.length;
    length = without_newlines(text + length, length);
    const bool is_short = before.length + length <= JOURNAL_PART || !before.is_for_journal();
    if (is_short && said.colour_count == 0 && harmless_length(text, length) == length) {
        text[length] = '\n';
        const stderr_guard guard; // the clock is read after it, so that the lines stand in the order of their times
        output to = {line, before.length + length + 1};
        before.put(to);
        to.used = to.total = to.size;
        return to.flush();
    }
    const auto put_all = [&](output &to) {
        before.put(to);
        body whole(to, before, said);
        whole.add(text, length);
        whole.end();
    };
    output counted;
    put_all(counted);
    const std::unique_ptr<char, c_free> escaped(static_cast<char *>(malloc(counted.total)));
    char pieces[256]; // without memory
    const stderr_guard guard;
    output to = {escaped ? escaped.get() : pieces, escaped ? counted.total : sizeof pieces};
    put_all(to);
    return to.flush();
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
    dlog_print(DLOG_WARN, "zel_platform", "ZEL_HOST_LOG=%s is none of %s: every line is written\n", wanted,
               PRIORITY_NAMES);
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
    message said(fmt, args);
    va_end(args);
    const int result = print_line({prio, tag ? tag : ""}, said);
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
