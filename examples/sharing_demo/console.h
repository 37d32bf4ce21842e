/*
 * What the demo shows: sentences, and the progress of transfers. On a terminal every transfer has a bar; elsewhere
 * there is a line whenever something notable has happened to one.
 */
#ifndef SHARING_DEMO_CONSOLE_H
#define SHARING_DEMO_CONSOLE_H

#include <map>
#include <vector>

#include "records.h"

namespace demo
{

class console
{
  public:
    console();

    /** Prints a line. */
    void say(const char *format, ...) __attribute__((format(printf, 2, 3)));

    /** Shows how far transfers are, in place of what it showed of them before. */
    void show(const std::vector<transfer> &rows);

    /** Leaves what was shown standing. */
    void end_show();

  private:
    struct last_shown {
        zel_file_sync_status status = ZEL_SYNC_ONGOING;
        unsigned int retries = 0;
        unsigned int quarter = 0;
        bool operator==(const last_shown &) const = default;
    };

    bool has_room_for(size_t lines) const;

    const bool is_terminal_;
    size_t lines_drawn_ = 0;
    std::map<unsigned int, last_shown> shown_;
};

/** A text from outside as it can be printed: no control characters, and cut after so many bytes (0: not at all). */
std::string printable(const std::string &text, size_t length = 0);

} // namespace demo

#endif
