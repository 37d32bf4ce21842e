#include "zel_store.h"

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <glib.h>
#include <map>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>

terminal screen;

void terminal::look()
{
    std::setlocale(LC_CTYPE, "");
    knows_utf8 = g_get_charset(nullptr);
    is_terminal = isatty(STDOUT_FILENO);
    const char *const no_colour = std::getenv("NO_COLOR");
    has_colours = is_terminal && !(no_colour && *no_colour) && g_strcmp0(std::getenv("TERM"), "dumb") != 0;
    winsize size = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    width = !is_terminal ? 0 : size.ws_col ? size.ws_col : 80;
    height = size.ws_row ? size.ws_row : 24;
}

std::string format(const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const std::unique_ptr<char, void (*)(void *)> made(g_strdup_vprintf(fmt, args), g_free);
    va_end(args);
    return made.get();
}

std::string safe(std::string_view text)
{
    static const std::map<gunichar, char> PLAINER = {{0x2026, '~'}, {0x2588, '#'}, {0x00B7, '-'}}; // of the tool's own
    std::string result;
    for (size_t length = 0; !text.empty(); text.remove_prefix(length)) {
        const gunichar letter = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
        const bool is_letter = letter < 0x110000;
        length = is_letter ? static_cast<size_t>(g_unichar_to_utf8(letter, nullptr)) : 1;
        // No letter but an order to the terminal, or what turns the text around it.
        const bool is_dangerous = !is_letter || !g_unichar_isprint(letter) || letter == 0x061C || letter == 0xFEFF ||
                                  (letter >= 0x200B && letter <= 0x200F) || (letter >= 0x2028 && letter <= 0x202E) ||
                                  (letter >= 0x2060 && letter <= 0x206F);
        if (!is_dangerous && (length == 1 || screen.knows_utf8))
            result += text.substr(0, length);
        else if (length == 1)
            result += format("\\x%02x", static_cast<unsigned int>(static_cast<unsigned char>(text[0])));
        else
            result += PLAINER.contains(letter) ? std::string(1, PLAINER.at(letter)) : format("\\u{%x}", letter);
    }
    return result;
}

std::string shown(std::string_view text, int colour)
{
    std::string line = safe(text);
    int used = 0;
    size_t fitting = 0; // bytes that leave a column for the mark of what is missing
    for (const char *at = line.c_str(); *at; at = g_utf8_next_char(at)) {
        fitting = used < screen.width ? static_cast<size_t>(at - line.c_str()) : fitting;
        const gunichar letter = g_utf8_get_char(at);
        used += g_unichar_iszerowidth(letter) ? 0 : g_unichar_iswide(letter) ? 2 : 1;
    }
    if (screen.width > 0 && used > screen.width)
        line = line.substr(0, fitting) + safe("…");
    return screen.has_colours && colour != PLAIN ? format("\033[%dm%s\033[0m", colour, line.c_str()) : line;
}

void print(std::string_view text, int colour)
{
    std::puts(shown(text, colour).c_str());
}

void print_labelled(const char *label, std::string_view text)
{
    std::string line = format("  %-9s", label);
    std::istringstream words(safe(text));
    for (std::string word; words >> word; line += " " + word)
        if (line.size() > 11 && line.size() + word.size() >= static_cast<size_t>(screen.width ? screen.width : 100)) {
            std::puts(line.c_str());
            line.assign(11, ' ');
        }
    std::puts(line.c_str());
}

std::string written(const json &document, int indentation)
{
    return document.dump(indentation, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string text(const json &row, const char *name)
{
    const json &value = row.at(name);
    return value.is_null() ? "" : value.is_string() ? value.get<std::string>() : value.dump();
}

std::string amount(long long bytes)
{
    static constexpr const char *UNITS[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto number = static_cast<double>(bytes);
    size_t unit = 0;
    for (; number >= 1024 && unit < 4; ++unit)
        number /= 1024;
    return format("%.*f %s", unit == 0 ? 0 : 1, number, UNITS[unit]);
}

texts match(const char *pattern, std::string_view text)
{
    static auto &compiled = *new std::map<const char *, GRegex *>;
    GRegex *&regex = compiled[pattern];
    if (!regex)
        regex = g_regex_new(pattern, static_cast<GRegexCompileFlags>(G_REGEX_OPTIMIZE | G_REGEX_RAW), {}, nullptr);
    GMatchInfo *info = nullptr;
    texts groups;
    if (g_regex_match_full(regex, text.data(), static_cast<gssize>(text.size()), 0, {}, &info, nullptr))
        for (int i = 0, from = 0, to = 0; i <= g_regex_get_capture_count(regex); ++i) {
            const bool is_there = g_match_info_fetch_pos(info, i, &from, &to) && from >= 0;
            groups.emplace_back(is_there ? text.substr(static_cast<size_t>(from), static_cast<size_t>(to - from)) : "");
        }
    g_match_info_free(info);
    return groups;
}

std::vector<texts> advice(std::string_view page, std::string_view heading)
{
    page.remove_prefix(page.find(heading) + heading.size());
    std::istringstream section(std::string(page.substr(0, page.find("\n## "))));
    std::vector<texts> rows;
    for (std::string line; std::getline(section, line);) {
        for (size_t at = 0; (at = line.find("](")) != std::string::npos; line.erase(line.rfind('[', at), 1))
            line.erase(at, line.find(')', at) + 1 - at); // of a link its text stays
        texts &row = rows.emplace_back();
        for (size_t at = 2, end = 0; (end = line.find(" |", at)) != std::string::npos; at = end + 3)
            row.push_back(line.substr(at, end - at));
    }
    return rows;
}
