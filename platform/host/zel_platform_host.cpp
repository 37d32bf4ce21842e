#include "zel_platform_host.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>
#include <pthread.h>
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

char letter_of(log_priority prio)
{
    constexpr char letters[] = "??VDIWEF";
    const auto index = static_cast<unsigned int>(prio);
    return index < sizeof letters - 1 ? letters[index] : '?';
}

/** In one write, unless the system cuts it short. Returns 0 or a negative errno value. */
int write_whole(const char *text, size_t length)
{
    const stderr_guard guard;
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

/** Writes the line whose message stands in place behind room for the prefix, and has room for a newline behind it. */
int write_line(char letter, const char *tag, size_t tag_length, char *line, size_t length)
{
    line[0] = letter;
    line[1] = '/';
    memcpy(line + 2, tag, tag_length);
    line[tag_length + 2] = ':';
    line[tag_length + 3] = ' ';
    if (line[length - 1] != '\n')
        line[length++] = '\n';
    const int result = write_whole(line, length);
    return result < 0 ? result : static_cast<int>(length);
}

int print_line(char letter, const char *tag, const char *fmt, va_list args)
{
    const size_t tag_length = strlen(tag);
    const size_t prefix_length = tag_length + 4;
    char usual[8192]; // holds the longest insert of the store: a line that does not fit is formatted twice
    const size_t room = prefix_length < sizeof usual ? sizeof usual - prefix_length : 0;

    va_list args_again;
    va_copy(args_again, args);
    const int formatted = vsnprintf(room > 0 ? usual + prefix_length : nullptr, room, fmt, args);
    const size_t length = prefix_length + static_cast<size_t>(formatted);
    int result;
    if (formatted < 0) {
        result = -errno;
    } else if (length < sizeof usual) {
        result = write_line(letter, tag, tag_length, usual, length);
    } else if (const std::unique_ptr<char, c_free> longer(static_cast<char *>(malloc(length + 1))); longer) {
        vsnprintf(longer.get() + prefix_length, length + 1 - prefix_length, fmt, args_again);
        result = write_line(letter, tag, tag_length, longer.get(), length);
    } else { // no memory for the whole line: piece by piece, but nothing of it is lost
        const stderr_guard guard;
        dprintf(STDERR_FILENO, "%c/%s: ", letter, tag);
        result = vdprintf(STDERR_FILENO, fmt, args_again);
    }
    va_end(args_again);
    return result;
}

} // namespace

int dlog_print(log_priority prio, const char *tag, const char *fmt, ...)
{
    if (prio == DLOG_SILENT)
        return 0;
    const int caller_errno = errno;
    va_list args;
    va_start(args, fmt);
    const int result = print_line(letter_of(prio), tag ? tag : "", fmt, args);
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
