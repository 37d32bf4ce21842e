/*
 * Texts for a terminal. What comes out of a store or a trace can hold any bytes: safe() makes of them what may be
 * shown, and only the tool itself adds colours behind it.
 */
#ifndef ZEL_STORE_TEXT_H
#define ZEL_STORE_TEXT_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace zel_store
{

/** Where the output goes. */
struct terminal {
    int width = 0; /**< columns; 0: as wide as it takes */
    int height = 0;
    bool is_terminal = false, has_colours = false, knows_utf8 = false;

    /** Looks at standard output, the locale and the environment. */
    void look();
};
extern terminal screen;

/** As printf would write it. */
__attribute__((format(printf, 1, 2))) std::string format(const char *fmt, ...);

/** The text with control bytes, invalid UTF-8 and what turns the direction of writing shown as \xNN or \u{N}. */
std::string safe(std::string_view text);

/** A safe text, with colours or not, in at most so many columns; 0: the whole text. */
std::string cut(std::string_view text, int columns);

/** In exactly so many columns. */
std::string in_columns(std::string_view text, int columns);

/** A safe text broken between words; all lines but the first are indented. */
std::string wrapped(std::string_view text, int indentation);

/** A secret as it may be shown: its ends, or nothing of a short one. */
std::string shortened(std::string_view secret);

enum class colour { plain, dim, bold, red, green, yellow };
std::string coloured(colour wanted, const std::string &text);

/* A value of a row: as a number, 0 if it is none, and as a safe text, empty if it is NULL. */
long long number(const nlohmann::ordered_json &row, const char *name);
std::string text(const nlohmann::ordered_json &row, const char *name);

/** Bytes as a person says them: 1.5 MiB. */
std::string size(long long bytes);

/** A time in seconds or, from the year 5138 on, in milliseconds: the date (UTC) and, in brackets, how far away it is.
 */
std::string date(long long time);

/** A bar of so many cells that is full at 100 percent. */
std::string bar(long long percent, int cells);

} // namespace zel_store

#endif
