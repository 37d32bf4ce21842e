#include "text.h"

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <glib.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace zel_store
{

terminal screen;

void terminal::look()
{
    std::setlocale(LC_CTYPE, "");
    knows_utf8 = g_get_charset(nullptr);
    is_terminal = isatty(STDOUT_FILENO);
    const char *const no_colour = std::getenv("NO_COLOR");
    const char *const kind = std::getenv("TERM");
    has_colours = is_terminal && !(no_colour && *no_colour) && !(kind && std::string_view(kind) == "dumb");
    winsize size = {};
    if (is_terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        width = size.ws_col;
        height = size.ws_row;
    } else if (is_terminal) {
        width = 80;
        height = 24;
    }
}

std::string format(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    char *const made = g_strdup_vprintf(fmt, args);
    va_end(args);
    std::string result = made;
    g_free(made);
    return result;
}

namespace
{

/** What is no letter but an order to the terminal, or turns the text around it. */
bool is_dangerous(gunichar letter)
{
    return !g_unichar_isprint(letter) || letter == 0x061C || (letter >= 0x200B && letter <= 0x200F) ||
           (letter >= 0x2028 && letter <= 0x202E) || (letter >= 0x2060 && letter <= 0x206F) || letter == 0xFEFF;
}

/** Length of what takes no column and stands at the beginning of a text: the tool's own colours. */
size_t colour_length(std::string_view text)
{
    return text.starts_with("\033[") ? text.find('m') + 1 : 0;
}

/** Length and columns of the first letter of a safe text. */
std::pair<size_t, int> first_letter(std::string_view text)
{
    const gunichar letter = g_utf8_get_char(text.data());
    const auto length = static_cast<size_t>(g_unichar_to_utf8(letter, nullptr));
    return {length, g_unichar_iszerowidth(letter) ? 0 : g_unichar_iswide(letter) ? 2 : 1};
}

} // namespace

std::string safe(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const gunichar letter = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
        const bool is_letter = letter < 0x110000;
        const auto length = is_letter ? static_cast<size_t>(g_unichar_to_utf8(letter, nullptr)) : 1;
        if (length == 1 && (!is_letter || is_dangerous(letter)))
            result += format("\\x%02x", static_cast<unsigned int>(static_cast<unsigned char>(text[0])));
        else if (is_dangerous(letter) || (length > 1 && !screen.knows_utf8))
            result += format("\\u{%x}", letter);
        else
            result += text.substr(0, length);
        text.remove_prefix(length);
    }
    return result;
}

int width_of(std::string_view text)
{
    int columns = 0;
    while (!text.empty()) {
        if (const size_t length = colour_length(text); length > 0) {
            text.remove_prefix(length);
            continue;
        }
        const auto [length, wide] = first_letter(text);
        columns += wide;
        text.remove_prefix(std::min(length, text.size()));
    }
    return columns;
}

std::string cut(std::string_view text, int columns)
{
    if (columns <= 0 || width_of(text) <= columns)
        return std::string(text);
    const std::string_view ellipsis = screen.knows_utf8 ? "…" : "~";
    std::string result;
    std::string ending;
    for (int left = columns - 1; !text.empty();) {
        if (const size_t length = colour_length(text); length > 0) {
            // What was switched on in front of the cut is switched off behind it.
            (left < 0 ? ending : result) += text.substr(0, length);
            text.remove_prefix(length);
            continue;
        }
        const auto [length, wide] = first_letter(text);
        if (left >= 0 && wide > left) {
            result += ellipsis;
            left = -1;
        } else if (left >= 0) {
            result += text.substr(0, length);
            left -= wide;
        }
        text.remove_prefix(std::min(length, text.size()));
    }
    return result + ending;
}

std::string in_columns(std::string_view text, int columns)
{
    std::string result = cut(text, columns);
    result.append(static_cast<size_t>(std::max(0, columns - width_of(result))), ' ');
    return result;
}

std::string shortened(std::string_view secret)
{
    const std::string ellipsis = screen.knows_utf8 ? "…" : "..";
    const bool is_plain =
        std::all_of(secret.begin(), secret.end(), [](char letter) { return g_ascii_isgraph(letter); });
    if (secret.empty())
        return "";
    return is_plain && secret.size() >= 8
               ? std::string(secret.substr(0, 3)) + ellipsis + std::string(secret.substr(secret.size() - 2))
               : ellipsis;
}

std::string coloured(colour wanted, const std::string &text)
{
    static constexpr const char *CODES[] = {"", "2", "1", "31", "32", "33", "34"};
    if (!screen.has_colours || wanted == colour::plain || text.empty())
        return text;
    return std::string("\033[") + CODES[static_cast<int>(wanted)] + "m" + text + "\033[0m";
}

std::string bar(long long percent, int cells)
{
    static constexpr const char *EIGHTHS[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const int eighths = static_cast<int>(std::clamp(percent, 0LL, 100LL) * cells * 8 / 100);
    std::string full;
    std::string rest;
    for (int i = 0; i < eighths / 8; ++i)
        full += screen.knows_utf8 ? "█" : "#";
    int empty = cells - eighths / 8;
    if (screen.knows_utf8 && eighths % 8) {
        full += EIGHTHS[eighths % 8];
        --empty;
    }
    for (int i = 0; i < empty; ++i)
        rest += screen.knows_utf8 ? "·" : "-";
    return full + coloured(colour::dim, rest);
}

std::string wrapped(std::string_view text, int indentation)
{
    std::string result;
    const int room = (screen.width > 0 ? screen.width : 100) - indentation;
    int used = 0;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        const int columns = width_of(word);
        if (used > 0 && used + 1 + columns > room) {
            result += "\n" + std::string(static_cast<size_t>(indentation), ' ');
            used = 0;
        } else if (used > 0) {
            result += ' ';
            ++used;
        }
        result += word;
        used += columns;
        text.remove_prefix(std::min(text.size(), word.size() + 1));
    }
    return result;
}

} // namespace zel_store
