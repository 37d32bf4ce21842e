/* zel-store: looks into a store and its trace, without disturbing who uses it. */

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
    view_options view;
    const auto with_store = [&](CLI::App *command) {
        command->add_option("STORE", store_name, "The store's file, or a service's data folder")->capture_default_str();
        return command;
    };
    const auto with_view = [&](CLI::App *command) {
        with_store(command);
        command->add_option("--request", view.request, "Only the upload request of this id")->type_name("ID");
        command->add_option("--token", view.token, "Only the share of this token")->type_name("TOKEN");
        command->add_flag("--secrets", view.shows_secrets, "Show numbers, tokens and keys in full");
        command->add_flag("--json", view.as_json, "For programs");
        return command;
    };
    CLI::App *const show_command = with_view(app.add_subcommand("show", "Everything at a glance"));
    CLI::App *const watch_command = with_view(app.add_subcommand("watch", "The same, refreshed; q ends it"));
    watch_command->add_option("--interval", view.interval, "Seconds between two views")
        ->check(CLI::Range(0.02, 3600.0))
        ->capture_default_str();
    watch_command->add_option("--views", view.views, "End after so many views")->check(CLI::PositiveNumber);
    CLI::App *const check_command =
        with_store(app.add_subcommand("check", "Is it sound, and does it contradict itself?"));
    check_command->add_flag("--json", view.as_json, "For programs");
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
        return show(path, view);
    if (watch_command->parsed())
        return watch(path, view);
    if (check_command->parsed())
        return check(path, view.as_json);
    if (trace_command->parsed())
        return trace(trace_file, traced);
    if (init_command->parsed())
        return make_ready(uses_log);
    return copy_to(store_path(names.size() == 2 ? names[0] : store_name), names.back());
} catch (const std::exception &error) {
    std::fprintf(stderr, "zel-store: %s\n", error.what());
    return CANNOT_READ;
}
