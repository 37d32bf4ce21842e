#include "trace_line.h"
#include "zel_store.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr std::string_view TAG = "QUILLO_COMMON";
constexpr size_t LONGEST_NAME = 200;

bool is_digit(char letter)
{
    return letter >= '0' && letter <= '9';
}

bool is_of_name(char letter)
{
    return is_digit(letter) || (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || letter == '_';
}

bool is_of_host(char letter)
{
    return is_of_name(letter) || letter == '-' || letter == '.' || letter == '@';
}

/** What of a line is not taken apart yet. */
struct cursor {
    std::string_view rest;

    bool take(std::string_view text)
    {
        const bool is_next = rest.starts_with(text);
        rest.remove_prefix(is_next ? text.size() : 0);
        return is_next;
    }
    template <typename Letters> std::string_view take_all(Letters are_wanted, size_t most = std::string_view::npos)
    {
        const auto end = std::find_if_not(rest.begin(), rest.begin() + std::min(most, rest.size()), are_wanted);
        const std::string_view taken = rest.substr(0, static_cast<size_t>(end - rest.begin()));
        rest.remove_prefix(taken.size());
        return taken;
    }
    bool take_blanks()
    {
        return !take_all([](char letter) { return letter == ' '; }).empty();
    }
    template <typename Number> bool take_number(Number &number, size_t most)
    {
        const std::string_view digits = take_all(is_digit, most);
        return std::from_chars(digits.data(), digits.data() + digits.size(), number).ec == std::errc();
    }
};

/** A date and a time of day. One of whole seconds would measure nothing: it is taken, but is no time. */
bool take_stamp(cursor &at, std::optional<long long> &time)
{
    const std::string start(at.rest.substr(0, 64)); // strptime wants an end
    for (const char *const form : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%m-%d %H:%M:%S", "%b %d %H:%M:%S"}) {
        std::tm second = {};
        second.tm_year = 70;
        const char *const end = strptime(start.c_str(), form, &second);
        if (!end)
            continue;
        cursor rest{at.rest.substr(static_cast<size_t>(end - start.c_str()))};
        std::string fraction(rest.take(".") || rest.take(",") ? rest.take_all(is_digit, 6) : "");
        const char *const zone = start.c_str() + (at.rest.size() - rest.rest.size());
        const char *const zone_end = is_digit(*zone) || *zone == ' ' ? zone : strptime(zone, "%z", &second);
        if (!zone_end)
            return false;
        rest.rest.remove_prefix(static_cast<size_t>(zone_end - zone));
        if (!rest.take_blanks())
            return false;
        if (!fraction.empty()) {
            fraction.resize(6, '0');
            const long long east = second.tm_gmtoff;
            time = (timegm(&second) - east) * 1'000'000LL + std::strtol(fraction.c_str(), nullptr, 10);
        }
        at = rest;
        return true;
    }
    return false;
}

/** Takes host, program and process, which the system's log writes after the time: "host service[12]: ". */
bool take_sender(cursor &at)
{
    cursor rest = at;
    unsigned int process = 0;
    rest.take_all(is_of_host);
    if (rest.take_blanks())
        rest.take_all(is_of_host);
    const bool is_sender = rest.take("[") && rest.take_number(process, 9) && rest.take("]: ");
    at = is_sender ? rest : at;
    return is_sender;
}

/** "I/NAME: ", "I NAME: ", "I/NAME( 12): ". The library's may stand without a letter. */
bool take_tag(cursor &at, std::string_view &tag, bool &is_host_form)
{
    cursor rest = at;
    const bool has_letter = rest.rest.size() > 1 &&
                            std::string_view("VDIWEF?").find(rest.rest[0]) != std::string::npos &&
                            (rest.rest[1] == '/' || rest.rest[1] == ' ');
    const bool has_slash = has_letter && rest.rest[1] == '/';
    rest.rest.remove_prefix(has_letter ? 2 : 0);
    rest.take_blanks();
    tag = rest.take_all(is_of_host);
    if (tag.empty() || (!has_letter && tag != TAG))
        return false;
    is_host_form = has_slash && rest.rest.starts_with(": ");
    rest.take_blanks();
    if (rest.take("(")) {
        rest.take_all([](char letter) { return letter != ')'; });
        if (!rest.take(")"))
            return false;
        rest.take_blanks();
    }
    if (!rest.take(":"))
        return false;
    rest.take_blanks();
    at = rest;
    return true;
}

/** Takes the rest after the time and the sender: thread, tag and "function(line): text". */
owner take_message(cursor at, trace_line &line)
{
    unsigned long long number = 0;
    for (cursor rest = at; rest.take_number(number, 19) && rest.take_blanks(); at = rest)
        line.thread = number; // the last one: some platforms write the process in front of it
    std::string_view tag;
    bool is_host_form = false;
    line.is_tagged = take_tag(at, tag, is_host_form);
    line.is_escaped = is_host_form && line.thread;
    if (line.is_tagged && tag != TAG)
        return owner::OTHER_TAG;
    if (line.is_escaped && at.take("\\")) {
        line.body = at.rest;
        return owner::CONTINUATION;
    }
    line.function = at.take_all(is_of_name, LONGEST_NAME);
    if (line.function.empty() || is_digit(line.function[0]) || !at.take("(") || !at.take_number(number, 9) ||
        !at.take("): "))
        return line.is_tagged ? owner::OTHER_TAG : owner::UNKNOWN;
    at.take(" ");
    line.body = at.rest;
    return owner::LIBRARY;
}

/** Says what a line is, from its body. */
void classify(trace_line &line)
{
    cursor at{line.body};
    const bool is_critical = at.take("* Critical * ");
    line.text = at.rest;
    if (at.take("failed to execute [")) {
        const size_t end = at.rest.rfind("], err["); // the last one is the library's, others may stand in the text
        cursor number{at.rest.substr(std::min(end, at.rest.size()))};
        if (number.take("], err[") && number.take_number(line.code, 9)) {
            line.what = step::REFUSAL;
            line.text = at.rest.substr(0, end);
            return;
        }
    }
    if (is_critical) {
        line.what = step::COMPLAINT;
    } else if (at.take("BEGIN >>>>")) {
        line.what = step::BEGIN;
    } else if (at.take("END <<<<")) {
        line.what = step::END;
    } else if (at.take("query [") || at.take("query[")) {
        line.what = step::STATEMENT;
        line.text = at.rest.substr(0, at.rest.rfind(']'));
    } else if (at.take("sqlite3_finalize = [") && at.take_number(line.code, 9) && line.code != 0) {
        line.what = step::BROKEN_READ;
    }
}

/** Whether a line's text goes on after a line break: a bracket is open. */
bool is_open(const trace_line &line)
{
    cursor at{line.body};
    if (at.take("query [") || at.take("query["))
        return !at.rest.ends_with(']');
    at.take("* Critical * ");
    return at.take("failed to execute [") && at.rest.find("], err[") == std::string_view::npos;
}

/** Whether a line ends with a backslash that is no text's: texts have theirs doubled. */
bool is_cut(std::string_view text)
{
    const size_t last = text.find_last_not_of('\\');
    return (text.size() - (last + 1)) % 2 == 1; // npos + 1 is 0
}

/** Takes the middle out of what is too long. */
void shorten(std::string &text)
{
    constexpr std::string_view MARK = " ~ ";
    constexpr size_t LONGEST = trace_reader::LONGEST_LINE;
    if (text.size() > LONGEST + MARK.size())
        text.replace(LONGEST / 2, text.size() - LONGEST, MARK);
}

/** Adds to a line what is worth keeping. */
void append(std::string &text, std::string_view more)
{
    text += more;
    if (text.size() > 2 * trace_reader::LONGEST_LINE)
        shorten(text);
}

} // namespace

trace_line parsed(std::string_view text)
{
    trace_line line;
    cursor at{text};
    if (text.size() > 2 && text[0] == '<' && is_digit(text[1]) && text[2] == '>') // the level, for the journal
        at.rest.remove_prefix(3);
    const bool has_stamp = take_stamp(at, line.time);
    if (has_stamp && take_sender(at))
        take_stamp(at, line.time); // of a platform that does not know the journal
    line.whose = take_message(at, line);
    if (line.whose == owner::LIBRARY)
        classify(line);
    return line;
}

std::string unescaped(std::string_view text)
{
    std::string plain;
    unsigned int number = 0;
    for (cursor at{text}; !at.rest.empty();) {
        plain += at.take_all([](char letter) { return letter != '\\'; });
        const cursor escape = at;
        const auto take_hexadecimal = [&](size_t most) {
            const std::string_view digits = at.take_all([](char letter) { return g_ascii_isxdigit(letter); }, most);
            std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
            return !digits.empty();
        };
        if (at.take("\\\\")) {
            plain += '\\';
        } else if (at.take("\\n")) {
            plain += '\n';
        } else if (at.take("\\r")) {
            plain += '\r';
        } else if (at.take("\\x") && take_hexadecimal(2)) {
            plain += static_cast<char>(number);
        } else if (at.take("\\u{") && take_hexadecimal(6) && at.take("}") && g_unichar_validate(number)) {
            char letter[6];
            plain.append(letter, static_cast<size_t>(g_unichar_to_utf8(number, letter)));
        } else { // no escape, but an old trace
            at = escape;
            plain += at.rest.substr(0, 1);
            at.rest.remove_prefix(std::min<size_t>(1, at.rest.size()));
        }
    }
    return plain;
}

trace_reader::trace_reader(const std::string &name_)
    : name(name_), file(name == "-" ? dup(STDIN_FILENO) : open(name.c_str(), O_RDONLY | O_CLOEXEC)), buffer(131'072)
{
    if (file < 0)
        throw unreadable(name + ": " + g_strerror(errno) + ". Name a file with a trace.");
}

trace_reader::~trace_reader()
{
    close(file);
}

bool trace_reader::read_more()
{
    ssize_t got = -1;
    do {
        got = read(file, buffer.data(), buffer.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0)
        throw unreadable(name + ": " + g_strerror(errno) + ". Name a file with a trace.");
    begin = 0;
    end = static_cast<size_t>(got);
    return got > 0;
}

std::optional<std::string_view> trace_reader::next_text()
{
    pieces.clear();
    for (bool is_begun = false;; is_begun = true) {
        if (begin == end && !read_more()) {
            if (!is_begun)
                return std::nullopt;
            break;
        }
        const std::string_view unread(&buffer[begin], end - begin);
        const std::string_view piece = unread.substr(0, unread.find('\n'));
        const bool is_ended = piece.size() < unread.size();
        begin += piece.size() + (is_ended ? 1 : 0);
        if (is_ended && !is_begun) {
            ++number;
            return cleaned(piece);
        }
        append(pieces, piece);
        if (is_ended)
            break;
    }
    ++number;
    shorten(pieces);
    return cleaned(pieces);
}

/** Without what a terminal's recording adds: colours and carriage returns. */
std::string_view trace_reader::cleaned(std::string_view text)
{
    if (text.ends_with('\r'))
        text.remove_suffix(1);
    if (text.find('\033') == std::string_view::npos)
        return text;
    clean.clear();
    while (!text.empty()) {
        const size_t escape = std::min(text.find('\033'), text.size());
        clean += text.substr(0, escape);
        cursor at{text.substr(escape)};
        const bool is_sequence = at.take("\033[");
        at.take_all([](char letter) { return is_digit(letter) || letter == ';'; });
        if (!is_sequence || !at.take("m")) { // none, or cut: it stays
            clean += text.substr(escape, 1);
            at.rest = text.substr(std::min(escape + 1, text.size()));
        }
        text = at.rest;
    }
    return clean;
}

void trace_reader::keep(std::string_view text, const trace_line &line, kept as)
{
    kept_text = text.substr(0, text.size() - (as == kept::CUT ? 1 : 0));
    kept_number = number;
    kept_thread = line.thread;
    state = as;
}

trace_line trace_reader::hand_out()
{
    shorten(kept_text);
    handed_out.swap(kept_text);
    state = kept::NOTHING;
    trace_line line = parsed(handed_out);
    line.number = kept_number;
    return line;
}

std::optional<trace_line> trace_reader::next()
{
    if (state == kept::WHOLE)
        return hand_out();
    while (const std::optional<std::string_view> text = next_text()) {
        trace_line line = parsed(*text);
        line.number = number;
        if (line.whose == owner::LIBRARY && has_tags && !line.is_tagged)
            line.whose = owner::UNKNOWN;
        if (line.whose == owner::CONTINUATION && state == kept::CUT && line.thread == kept_thread) {
            const bool goes_on = is_cut(line.body);
            append(kept_text, line.body.substr(0, line.body.size() - (goes_on ? 1 : 0)));
            if (!goes_on)
                return hand_out();
        } else if (line.whose == owner::UNKNOWN && state == kept::OPEN) {
            append(kept_text, "\n");
            append(kept_text, *text);
        } else if (line.whose == owner::LIBRARY) {
            has_tags = line.is_tagged;
            const kept as = line.is_escaped && is_cut(*text) ? kept::CUT : is_open(line) ? kept::OPEN : kept::WHOLE;
            const bool is_other = state == kept::CUT && line.thread != kept_thread;
            if (as == kept::WHOLE && (state == kept::NOTHING || is_other))
                return line;
            if (state == kept::NOTHING) {
                keep(*text, line, as);
                continue;
            }
            trace_line ended = hand_out();
            keep(*text, line, as);
            return ended;
        }
    }
    if (state != kept::NOTHING)
        return hand_out();
    return std::nullopt;
}
