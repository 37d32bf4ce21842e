/* zel-store: looks into a store and its trace, without disturbing who uses it. */

#include "zel_store.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>

int main(int argc, char **argv)
try {
    screen.look();
    CLI::App app{"Looks into a store of the sharing library and into its trace, without disturbing who uses it."};
    app.name("zel-store");
    app.footer("Exit status: 0 fine, 1 findings or nothing that matches, 2 cannot read. Manual: zel-store(1).");
    app.set_version_flag("--version", ZEL_VERSION);
    app.require_subcommand(1);

    options wanted;
    wanted.store = ZEL_DATABASE;
    int status = FINE;
    const auto add = [&](const char *name, const char *does, const std::function<int()> &run) {
        CLI::App *const command = app.add_subcommand(name, does);
        command->callback([&status, run] { status = run(); });
        return command;
    };
    CLI::App *const show_it = add("show", "Everything at a glance", [&] { return show(wanted); });
    CLI::App *const watch_it = add("watch", "The same, refreshed; q ends it", [&] { return watch(wanted); });
    CLI::App *const check_it = add("check", "Is it sound, does it contradict itself?", [&] { return check(wanted); });
    CLI::App *const trace_it = add("trace", "A trace made readable", [&] { return trace(wanted); });
    CLI::App *const init_it = add("init", "Make this build's store ready: " ZEL_DATABASE, [&] { return init(wanted); });
    texts names;
    add("copy", "A consistent copy of a store in use",
        [&] {
            wanted.store = names.size() == 2 ? names[0] : wanted.store;
            return copy(wanted, names.back());
        })
        ->add_option("[STORE] TO", names, "What to copy, and where to")
        ->required()
        ->expected(1, 2);
    for (CLI::App *const one : {show_it, watch_it, check_it})
        one->add_option("STORE", wanted.store, "The store's file, or a service's data folder")->capture_default_str();
    for (CLI::App *const one : {show_it, watch_it}) {
        one->add_option("--request", wanted.request, "Only the upload request of this id")->type_name("ID");
        one->add_option("--token", wanted.token, "Only the share of this token")->type_name("TOKEN");
        one->add_flag("--secrets", wanted.shows_secrets, "Show numbers, tokens and keys in full");
    }
    for (CLI::App *const one : {show_it, watch_it, check_it, trace_it})
        one->add_flag("--json", wanted.as_json, "For programs");
    watch_it->add_option("--interval", wanted.interval, "Seconds between two views (1)")
        ->check(CLI::Range(0.02, 3600.0));
    watch_it->add_option("--views", wanted.views, "End after so many views")->check(CLI::PositiveNumber);
    trace_it->add_option("FILE", wanted.trace, "The trace; - reads standard input")->required();
    trace_it->add_flag("--tree", wanted.shows_tree, "The calls, nested by thread");
    trace_it->add_option("--timeline", wanted.timeline, "Write the calls to a file, in the Trace Event format");
    init_it->add_flag("--wal", wanted.uses_log, "Set SQLite's write-ahead log for good");
    std::signal(SIGPIPE, SIG_DFL);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? FINE : CANNOT_READ;
    }
    return status;
} catch (const std::exception &error) {
    std::fprintf(stderr, "zel-store: %s\n", safe(error.what()).c_str());
    return CANNOT_READ;
}
