#include "zel_store.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <map>
#include <sys/ioctl.h>
#include <unistd.h>

terminal screen;

namespace
{

int columns_of(gunichar letter)
{
    return g_unichar_iszerowidth(letter) ? 0 : g_unichar_iswide(letter) ? 2 : 1;
}

} // namespace

void terminal::look()
{
    std::setlocale(LC_CTYPE, "");
    knows_utf8 = g_get_charset(nullptr);
    is_terminal = isatty(STDOUT_FILENO) && g_strcmp0(g_getenv("TERM"), "dumb") != 0;
    has_colours = is_terminal && g_strcmp0(g_getenv("NO_COLOR"), "") <= 0; // unset or empty
    winsize size = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    width = !is_terminal ? 0 : size.ws_col >= 20 ? size.ws_col : 80; // narrower no text can be broken
    height = size.ws_row ? size.ws_row : 24;
}

std::string taken(char *made)
{
    std::string text = made ? made : "";
    g_free(made);
    return text;
}

std::string safe(const std::string &text)
{
    // What the tool itself writes and, between a number and its unit, GLib: a blank that nobody would find.
    static const std::map<gunichar, char> PLAINER = {{0x2026, '~'}, {0x2588, '#'}, {0x00B7, '-'}, {0x00A0, ' '}};
    std::string result;
    for (size_t at = 0, length = 0; at < text.size(); at += length) {
        const gunichar letter = g_utf8_get_char_validated(&text[at], static_cast<gssize>(text.size() - at));
        // Else it is an order to the terminal, turns the text around it, or ends a line.
        const bool is_harmless = letter < 0x110000 && g_unichar_isprint(letter) && letter != 0x2028 && letter != 0x2029;
        length = letter < 0x110000 ? static_cast<size_t>(g_unichar_to_utf8(letter, nullptr)) : 1;
        if (is_harmless && (length == 1 || (screen.knows_utf8 && letter != 0x00A0)))
            result += text.substr(at, length);
        else if (length == 1)
            result += FORMAT("\\x%02x", static_cast<unsigned int>(static_cast<unsigned char>(text[at])));
        else
            result += PLAINER.contains(letter) ? std::string(1, PLAINER.at(letter)) : FORMAT("\\u{%x}", letter);
    }
    return result;
}

std::string fitted(const std::string &text, int columns)
{
    const std::string whole = safe(text);
    std::vector<size_t> begins; // of the letters, and how many columns stand in front of each
    std::vector<int> before{0};
    for (const char *letter = whole.c_str(); *letter; letter = g_utf8_next_char(letter)) {
        begins.push_back(static_cast<size_t>(letter - whole.c_str()));
        before.push_back(before.back() + columns_of(g_utf8_get_char(letter)));
    }
    const int width = before.back();
    if (width <= columns)
        return whole + std::string(static_cast<size_t>(columns - width), ' ');
    size_t head = 0;
    size_t tail = begins.size();
    while (before[head + 1] <= (columns - 1) / 2)
        ++head;
    while (width - before[tail - 1] <= columns - 1 - before[head])
        --tail;
    const int rest = columns - 1 - before[head] - (width - before[tail]); // half of a wide letter
    return whole.substr(0, begins[head]) + "…" + (tail < begins.size() ? whole.substr(begins[tail]) : "") +
           std::string(static_cast<size_t>(rest), ' ');
}

std::string shown(const std::string &text, int colour, int indentation)
{
    const std::string line = safe(text);
    std::string lines;
    size_t begin = 0; // of the line that is filled, and its last blank between words
    size_t blank = 0;
    int columns = 0; // of that line, and of its last word
    int last = 0;
    for (size_t at = 0; at < line.size() && screen.width > 0;) {
        const int wide = columns_of(g_utf8_get_char(&line[at]));
        if (columns + wide > screen.width && line[at] != ' ') {
            const size_t end = blank > begin ? blank : at;
            lines += line.substr(begin, line.find_last_not_of(' ', end - 1) + 1 - begin) + "\n" +
                     std::string(static_cast<size_t>(indentation), ' ');
            begin = end == at ? at : end + 1;
            columns = indentation + (end == at ? 0 : last);
        }
        columns += wide;
        last += wide;
        if (line[at] == ' ' && line.find_first_not_of(' ', begin) < at) {
            blank = at;
            last = 0;
        }
        at += static_cast<size_t>(g_utf8_skip[static_cast<unsigned char>(line[at])]);
    }
    lines += line.substr(begin);
    if (screen.has_colours && colour != PLAIN)
        lines = FORMAT("\033[%dm%s\033[0m", colour, lines.c_str());
    return lines + "\n";
}

std::string labelled(const char *label, const std::string &text)
{
    return shown(FORMAT("  %-9s %s", label, text.c_str()), PLAIN, 12);
}

std::string lines_of(const json &rows)
{
    std::string lines;
    for (const json &row : rows)
        lines += shown(text(row, "line"), row["style"]) + (row["detail"].is_null() ? "" : shown(text(row, "detail")));
    return lines;
}

std::string written(const json &document, int indentation)
{
    return document.dump(indentation, ' ', true, json::error_handler_t::replace) + "\n";
}

void print(std::string_view text)
{
    errno = 0;
    const bool is_taken = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!is_taken)
        throw unreadable(FORMAT("standard output: %s. What was to be shown is incomplete.", g_strerror(errno)));
}

std::string text(const json &row, const char *name)
{
    const json &value = row.at(name);
    return value.is_null() ? "" : value.is_string() ? value.get<std::string>() : value.dump();
}

std::string amount(long long bytes)
{
    return taken(g_format_size_full(static_cast<guint64>(bytes), G_FORMAT_SIZE_IEC_UNITS));
}

std::vector<texts> matches(const std::string &pattern, const std::string &text)
{
    static auto &compiled = *new std::map<std::string, GRegex *>;
    GRegex *&regex = compiled[pattern];
    if (!regex)
        regex = g_regex_new(pattern.c_str(), GRegexCompileFlags(G_REGEX_OPTIMIZE | G_REGEX_RAW), {}, nullptr);
    std::vector<texts> found;
    GMatchInfo *info = nullptr;
    for (g_regex_match(regex, text.c_str(), {}, &info); g_match_info_matches(info); g_match_info_next(info, nullptr)) {
        texts &groups = found.emplace_back();
        for (int i = 0; i <= g_regex_get_capture_count(regex); ++i)
            groups.push_back(taken(g_match_info_fetch(info, i)));
    }
    g_match_info_free(info);
    return found;
}
