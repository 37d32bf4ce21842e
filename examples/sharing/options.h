/*
 * How the programs read their command lines, by GLib's option parser: --help ends with 0, a wrong one with 2.
 */
#ifndef SHARING_OPTIONS_H
#define SHARING_OPTIONS_H

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glib.h>
#include <memory>
#include <string>

namespace sharing
{

[[noreturn]] inline void reject_command_line(const std::string &reason)
{
    fprintf(stderr, "%s: %s; --help lists the options\n", g_get_prgname(), reason.c_str());
    exit(2);
}

/**
 * Reads the options; argv keeps the program's name and the other arguments.
 *
 * @param arguments what follows the options, for the help; NULL rejects further arguments
 * @param entries   ends with a zero-filled one
 */
inline void read_options(const char *arguments, const char *summary, const GOptionEntry *entries, int &argc,
                         char **&argv)
{
    g_autofree char *name = g_path_get_basename(argv[0]);
    g_set_prgname(name);
    GOptionContext *context = g_option_context_new(arguments);
    const std::unique_ptr<GOptionContext, decltype(&g_option_context_free)> owner(context, g_option_context_free);
    g_option_context_set_summary(context, summary);
    g_option_context_add_main_entries(context, entries, nullptr);
    g_autoptr(GError) error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error))
        reject_command_line(error->message);
    if (argc > 1 && g_str_equal(argv[1], "--")) { // ends the options
        argv[1] = argv[0];
        ++argv;
        --argc;
    }
    if (!arguments && argc > 1)
        reject_command_line(std::string("'") + argv[1] + "' is too much");
}

/** The value of an option that is a number of bytes: 4096, 64K, 2M, 1G; fallback when the option is absent. */
inline unsigned long long bytes_of(const char *option, const char *value, unsigned long long fallback,
                                   unsigned long long least, unsigned long long most)
{
    if (!value)
        return fallback;
    char *unit = nullptr;
    const guint64 number = g_ascii_strtoull(value, &unit, 10);
    const char *units = " KMG";
    const char *known = *unit ? strchr(units + 1, g_ascii_toupper(*unit)) : units;
    const unsigned int shift = known ? static_cast<unsigned int>(known - units) * 10 : 0;
    if (!g_ascii_isdigit(*value) || !known || (*unit && unit[1]) || number > (G_MAXUINT64 >> shift) ||
        number << shift < least || number << shift > most)
        reject_command_line(std::string(option) + " takes a size like 4096, 64K or 2M, from " + std::to_string(least) +
                            " to " + std::to_string(most) + ", not '" + value + "'");
    return number << shift;
}

} // namespace sharing

#endif
