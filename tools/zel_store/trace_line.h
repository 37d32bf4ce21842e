/*
 * The lines of a trace, as docs/log.md describes them, one after the other. A trace is not trusted: whose a line is
 * decides what stands in front of the message, never a text in it, and what a line takes of memory is bounded.
 */
#ifndef ZEL_STORE_TRACE_LINE_H
#define ZEL_STORE_TRACE_LINE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class owner {
    LIBRARY,
    CONTINUATION, /**< the library's, a part of a line that was too long for the journal */
    OTHER_TAG,
    UNKNOWN
};
enum class step { OTHER, BEGIN, END, STATEMENT, REFUSAL, BROKEN_READ, COMPLAINT };

/** A line, taken apart; the views are into its text. */
struct trace_line {
    owner whose = owner::UNKNOWN;
    bool is_tagged = false;  /**< has the library's tag */
    bool is_escaped = false; /**< as the host platform writes it */
    size_t number = 0;       /**< in the trace, from 1 */
    std::optional<unsigned long long> thread;
    std::optional<long long> time; /**< in microseconds; without a year since the beginning of 1970 */
    std::string_view function, body;
    step what = step::OTHER;
    std::string_view text; /**< the statement, what SQLite said, or what the operation complains of */
    int code = 0;          /**< SQLite's */
};

trace_line parsed(std::string_view text);

/** A text as it was before the host platform escaped it. */
std::string unescaped(std::string_view text);

/** Reads a trace; standard input if its name is "-". Throws unreadable when that fails. */
class trace_reader
{
  public:
    /** What is kept of a line, in bytes: of a longer one the middle goes. */
    static constexpr size_t LONGEST_LINE = 524'288;

    explicit trace_reader(const std::string &name);
    ~trace_reader();
    trace_reader(const trace_reader &) = delete;
    trace_reader &operator=(const trace_reader &) = delete;

    /** The library's next line, in one piece; its views are valid until the next call. */
    std::optional<trace_line> next();

    bool is_empty() const
    {
        return number == 0;
    }

  private:
    /** What next() does with the line that is kept back. */
    enum class kept { NOTHING, WHOLE, CUT, OPEN };

    std::optional<std::string_view> next_text();
    bool read_more();
    std::string_view cleaned(std::string_view text);
    void keep(std::string_view text, const trace_line &line, kept as);
    trace_line hand_out();

    std::string name;
    int file;
    std::vector<char> buffer;
    size_t begin = 0, end = 0; /**< of what is unread in the buffer */
    size_t number = 0;         /**< of the latest line */
    std::string pieces;        /**< a line that does not lie in the buffer as a whole */
    std::string clean;         /**< a line without its colours */
    bool has_tags = false;     /**< the library's latest line has one: a line without belongs to somebody else */

    kept state = kept::NOTHING;
    std::string kept_text, handed_out;
    size_t kept_number = 0;
    std::optional<unsigned long long> kept_thread;
};

#endif
