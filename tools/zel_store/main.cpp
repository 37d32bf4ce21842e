/* zel-store: looks into a store and its trace, without disturbing who uses it. */

#include "check.h"
#include "commands.h"
#include "text.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>

using namespace zel_store;

namespace
{

constexpr char STATUSES[] = "Exit status: 0 fine, 1 findings or nothing that matches, 2 cannot read.\n"
                            "The manual, zel-store(1), tells the rest.";

void print(const std::vector<std::string> &lines)
{
    for (const std::string &line : lines)
        std::printf("%s\n", cut(line, screen.width).c_str());
}

int show(const std::string &path, const show_options &options, bool as_json)
{
    const store read = read_store(path, options.wanted);
    if (as_json)
        std::fputs(text_of(show_json(read, options)).c_str(), stdout);
    else
        print(show_lines(read, options));
    if (!read.copy.complaint.empty())
        return CANNOT_READ;
    return options.wanted.is_set() && read.uploads.empty() && read.shares.empty() && read.loose.empty() ? FINDINGS
                                                                                                        : FINE;
}

int check(const std::string &path, bool as_json)
{
    const store read = read_store(path);
    const std::vector<finding> findings = check_all(read);
    if (as_json) {
        std::fputs(text_of({{"store", file_json(read.copy.facts)}, {"findings", json_of(findings)}}).c_str(), stdout);
    } else {
        print(file_lines(read.copy.facts));
        for (const std::string &lines : lines_of(findings))
            std::printf("%s\n", lines.c_str());
        std::printf("\n%s\n", findings.empty()
                                  ? coloured(colour::green, "Sound: nothing was found.").c_str()
                                  : coloured(colour::red, format("Findings: %zu.", findings.size())).c_str());
    }
    return !read.copy.complaint.empty() ? CANNOT_READ : findings.empty() ? FINE : FINDINGS;
}

} // namespace

int main(int argc, char **argv)
try {
    screen.look();
    CLI::App app{"Looks into a store of the sharing library and into its trace, without disturbing who uses it."};
    app.name("zel-store");
    app.footer(STATUSES);
    app.set_version_flag("--version", ZEL_VERSION);
    app.require_subcommand(1);

    std::string store_name = ZEL_DATABASE;
    show_options shown;
    bool as_json = false;
    const auto with_store = [&](CLI::App *command) {
        command->add_option("STORE", store_name, "The store's file, or a service's data folder")->capture_default_str();
        return command;
    };
    const auto with_view = [&](CLI::App *command) {
        with_store(command);
        command->add_option("--request", shown.wanted.request, "Only the upload request of this id")->type_name("ID");
        command->add_option("--token", shown.wanted.token, "Only the share of this token")->type_name("TOKEN");
        command->add_flag("--secrets", shown.shows_secrets, "Show numbers, tokens and keys in full");
        command->add_flag("--json", as_json, "For programs");
        return command;
    };
    CLI::App *const show_command = with_view(app.add_subcommand("show", "Everything at a glance"));
    CLI::App *const watch_command = with_view(app.add_subcommand("watch", "The same, refreshed; q ends it"));
    watch_options watched;
    watch_command->add_option("--interval", watched.interval, "Seconds between two views")
        ->check(CLI::Range(0.02, 3600.0))
        ->capture_default_str();
    watch_command->add_option("--views", watched.views, "End after so many views")->check(CLI::PositiveNumber);
    CLI::App *const check_command =
        with_store(app.add_subcommand("check", "Is it sound, and does it contradict itself?"));
    check_command->add_flag("--json", as_json, "For programs");
    CLI::App *const trace_command = app.add_subcommand("trace", "A trace made readable");
    std::string trace_file;
    trace_options traced;
    trace_command->add_option("FILE", trace_file, "The trace; - reads standard input")->required();
    trace_command->add_flag("--tree", traced.shows_tree, "The calls, nested by thread");
    trace_command->add_option("--timeline", traced.timeline, "Write the calls to a file in the Trace Event format")
        ->type_name("FILE.json");
    trace_command->add_flag("--json", traced.as_json, "For programs");
    CLI::App *const init_command = app.add_subcommand("init", "Make the store of this build ready: " ZEL_DATABASE);
    bool uses_log = false;
    init_command->add_flag("--wal", uses_log, "Set SQLite's write-ahead log for good");
    CLI::App *const copy_command = app.add_subcommand("copy", "A consistent copy of a store in use");
    std::vector<std::string> names;
    copy_command->add_option("[STORE] TO", names, "What to copy, and where to")->required()->expected(1, 2);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? FINE : CANNOT_READ;
    }
    std::signal(SIGPIPE, SIG_DFL);
    const std::string path = store_path(store_name);
    if (show_command->parsed())
        return show(path, shown, as_json);
    if (watch_command->parsed()) {
        watched.as_json = as_json;
        return watch(path, shown, watched);
    }
    if (check_command->parsed())
        return check(path, as_json);
    if (trace_command->parsed())
        return trace(trace_file, traced);
    if (init_command->parsed())
        return make_ready(uses_log);
    return copy_to(store_path(names.size() == 2 ? names[0] : store_name), names.back());
} catch (const std::exception &error) {
    std::fprintf(stderr, "zel-store: %s\n", error.what());
    return CANNOT_READ;
}
