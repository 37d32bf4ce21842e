#include "text.h"

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <glib.h>
#include <nlohmann/json.hpp>
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
    has_colours = is_terminal && !(no_colour && *no_colour) && g_strcmp0(std::getenv("TERM"), "dumb") != 0;
    winsize size = {};
    const bool is_known = is_terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    width = is_known ? size.ws_col : is_terminal ? 80 : 0;
    height = is_known ? size.ws_row : 24;
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

/** A letter of a safe text, or one of the tool's colours. */
struct piece {
    size_t length;
    int columns;
};

piece first_piece(std::string_view text)
{
    if (text.starts_with("\033["))
        return {text.find('m') + 1, 0};
    const gunichar letter = g_utf8_get_char(text.data());
    return {static_cast<size_t>(g_unichar_to_utf8(letter, nullptr)), g_unichar_iszerowidth(letter) ? 0
                                                                     : g_unichar_iswide(letter)    ? 2
                                                                                                   : 1};
}

int width_of(std::string_view text)
{
    int columns = 0;
    for (; !text.empty(); text.remove_prefix(first_piece(text).length))
        columns += first_piece(text).columns;
    return columns;
}

std::string repeated(const char *text, int count)
{
    std::string result;
    while (count-- > 0)
        result += text;
    return result;
}

const char *ellipsis()
{
    return screen.knows_utf8 ? "…" : "~";
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

std::string cut(std::string_view text, int columns)
{
    if (columns <= 0 || width_of(text) <= columns)
        return std::string(text);
    std::string result;
    bool is_full = false;
    for (int left = columns - 1; !text.empty();) {
        const piece next = first_piece(text);
        if (!is_full && next.columns > left) {
            result += ellipsis();
            is_full = true;
        }
        if (!is_full || next.columns == 0) // a colour that was switched on is switched off again
            result += text.substr(0, next.length);
        left -= next.columns;
        text.remove_prefix(next.length);
    }
    return result;
}

std::string in_columns(std::string_view text, int columns)
{
    const std::string result = cut(text, columns);
    return result + repeated(" ", columns - width_of(result));
}

std::string wrapped(std::string_view text, int indentation)
{
    const int room = (screen.width > 0 ? screen.width : 100) - indentation;
    std::string result;
    for (int used = 0; !text.empty();) {
        const std::string_view word = text.substr(0, text.find(' '));
        const int columns = width_of(word);
        const bool fits = used == 0 || used + 1 + columns <= room;
        result += used == 0 ? "" : fits ? " " : "\n" + repeated(" ", indentation);
        result += word;
        used = (fits && used > 0 ? used + 1 : 0) + columns;
        text.remove_prefix(std::min(text.size(), word.size() + 1));
    }
    return result;
}

std::string shortened(std::string_view secret)
{
    const bool is_long = secret.size() >= 8 &&
                         std::all_of(secret.begin(), secret.end(), [](char letter) { return g_ascii_isgraph(letter); });
    return secret.empty() ? ""
           : is_long ? std::string(secret.substr(0, 3)) + ellipsis() + std::string(secret.substr(secret.size() - 2))
                     : ellipsis();
}

std::string coloured(colour wanted, const std::string &text)
{
    static constexpr const char *CODES[] = {"", "2", "1", "31", "32", "33"};
    const bool is_plain = !screen.has_colours || wanted == colour::plain || text.empty();
    return is_plain ? text : format("\033[%sm%s\033[0m", CODES[static_cast<int>(wanted)], text.c_str());
}

long long number(const nlohmann::ordered_json &row, const char *name)
{
    const auto found = row.find(name);
    return found != row.end() && found->is_number() ? found->get<long long>() : 0;
}

std::string text(const nlohmann::ordered_json &row, const char *name)
{
    const auto found = row.find(name);
    const bool is_nothing = found == row.end() || found->is_null();
    return is_nothing ? "" : safe(found->is_string() ? found->get<std::string>() : found->dump());
}

std::string size(long long bytes)
{
    static constexpr const char *UNITS[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto number = static_cast<double>(bytes);
    size_t unit = 0;
    for (; number >= 1024 && unit < 4; ++unit)
        number /= 1024;
    return format("%.*f %s", unit == 0 ? 0 : 1, number, UNITS[unit]);
}

std::string date(long long time)
{
    static constexpr long long FIRST_MILLISECONDS = 100000000000; // as seconds in 5138, as milliseconds in 1973
    static constexpr std::pair<long long, const char *> UNITS[] = {
        {365 * 86400LL, "year"}, {86400, "day"}, {3600, "hour"}, {60, "minute"}, {1, "second"}};
    const auto seconds = static_cast<time_t>(time >= FIRST_MILLISECONDS ? time / 1000 : time);
    std::tm parts = {};
    char text[40] = "";
    if (!gmtime_r(&seconds, &parts) || std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &parts) == 0)
        return std::to_string(time);
    const long long difference = seconds - std::time(nullptr);
    for (const auto &[unit, name] : UNITS)
        if (const long long count = std::llabs(difference) / unit; count > 0)
            return format(difference > 0 ? "%s (in %lld %s%s)" : "%s (%lld %s%s ago)", text, count, name,
                          count == 1 ? "" : "s");
    return text + std::string(" (now)");
}

std::string bar(long long percent, int cells)
{
    const int full = static_cast<int>(std::clamp(percent, 0LL, 100LL) * cells / 100);
    return repeated(screen.knows_utf8 ? "█" : "#", full) +
           coloured(colour::dim, repeated(screen.knows_utf8 ? "·" : "-", cells - full));
}

} // namespace zel_store
