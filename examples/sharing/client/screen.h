/*
 * How a request's progress is shown. On a terminal that has room, what is on its way has a bar at the bottom, with a
 * line for the whole below; what is through goes up as a line. Elsewhere there is a line whenever something notable
 * has happened.
 */
#ifndef SHARING_CLIENT_SCREEN_H
#define SHARING_CLIENT_SCREEN_H

#include <deque>
#include <map>

#include "session.h"

namespace sharing
{

class screen
{
  public:
    /** @param tells_old whether what was through before it was looked at for the first time is worth a line */
    explicit screen(bool tells_old);

    /** Shows how far a request is, in place of what was shown of it before. */
    void show(const request &state);

    /** Leaves what was shown standing, without the bars. */
    void end();

  private:
    /** What a file's last line said. */
    struct last_shown {
        zel_file_sync_status status = ZEL_SYNC_TODO;
        unsigned int retries = 0;
        unsigned int quarter = 0;
        bool operator==(const last_shown &) const = default;
    };
    struct moment {
        gint64 time; /**< in microseconds */
        guint64 bytes;
        guint64 work; /**< the bytes, and what the files take besides them */
    };

    void show_lines(const request &state);
    std::string summary(const request &state);

    const bool tells_old_;
    bool has_bars_ = false;
    size_t rows_ = 24;
    size_t lines_drawn_ = 0;
    std::map<unsigned int, last_shown> shown_;
    std::deque<moment> moments_; /**< of the last seconds */
};

/** A text from outside as it can be printed, cut to a number of columns and padded to it (0: neither). */
std::string printable(const std::string &text, size_t columns = 0);

/** "1 file", "2 files". */
std::string counted(unsigned long long number, const std::string &what);

/** "1.5 MB" */
std::string size_text(unsigned long long bytes);

} // namespace sharing

#endif
