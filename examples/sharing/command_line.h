/*
 * How the programs read their command lines: --help ends with 0, a wrong one with 2.
 */
#ifndef SHARING_COMMAND_LINE_H
#define SHARING_COMMAND_LINE_H

#include <CLI/CLI.hpp>

namespace sharing
{

inline void read_command_line(CLI::App &app, int argc, char **argv)
{
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &wrong) {
        std::exit(app.exit(wrong) == EXIT_SUCCESS ? EXIT_SUCCESS : 2);
    }
}

} // namespace sharing

#endif
