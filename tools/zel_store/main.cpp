/* zel-store: looks into a store and its trace, without disturbing who uses it. */

#include "zel_store.h"

#include <CLI/CLI.hpp>

#include <cstdio>

int main(int argc, char **argv)
try {
    screen.look();
    CLI::App app{"Looks into a store of the sharing library and into its trace, without disturbing who uses it.",
                 "zel-store"};
    app.footer("Exit status: 0 fine, 1 findings or nothing that matches, 2 cannot read. Manual: zel-store(1).");
    app.set_version_flag("--version", ZEL_VERSION);
    app.require_subcommand(1);

    options wanted;
    outcome result = {};
    const auto add = [&](const char *name, const char *does, outcome (*run)(const options &)) {
        CLI::App *const command = app.add_subcommand(name, does);
        command->callback([&, run] { result = run(wanted); });
        return command;
    };
    CLI::App *const show_it = add("show", "Everything at a glance", show);
    CLI::App *const watch_it = add("watch", "The same, refreshed; q ends it", watch);
    CLI::App *const check_it = add("check", "Is it sound, does it contradict itself?", check);
    CLI::App *const trace_it = add("trace", "A trace made readable", trace);
    CLI::App *const init_it = add("init", "Make this build's store ready: " ZEL_DATABASE, init);
    CLI::App *const copy_it = add("copy", "A consistent copy of a store in use", copy);
    for (CLI::App *const one : {show_it, watch_it, check_it})
        one->add_option("STORE", wanted.store, "The store's file, or a service's data folder")->capture_default_str();
    for (CLI::App *const one : {show_it, watch_it}) {
        one->add_option("--request", wanted.request, "Only the upload request of this id")->type_name("ID");
        one->add_option("--token", wanted.token, "Only the share of this token")->type_name("TOKEN");
        one->add_flag("--secrets", wanted.shows_secrets, "Show numbers, tokens and keys in full");
    }
    for (CLI::App *const one : {show_it, watch_it, check_it, trace_it})
        one->add_flag("--json", wanted.as_json, "For programs");
    watch_it->add_option("--interval", wanted.interval, "Seconds between views (1)")->check(CLI::Range(0.02, 3600.0));
    watch_it->add_option("--views", wanted.views, "End after so many views")->check(CLI::PositiveNumber);
    trace_it->add_option("FILE", wanted.trace, "The trace; - reads standard input")->required();
    trace_it->add_flag("--tree", wanted.shows_tree, "The calls, nested by thread");
    trace_it->add_option("--timeline", wanted.timeline, "Write the calls to a file, in the Trace Event format");
    init_it->add_flag("--wal", wanted.uses_log, "Set SQLite's write-ahead log for good");
    copy_it->add_option("[STORE] TO", wanted.copied, "What to copy, and where to")->required()->expected(1, 2);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? FINE : CANNOT_READ;
    }
    const bool is_document = wanted.as_json && !result.document.is_null();
    print(is_document ? written(result.document) : result.view);
    return result.status;
} catch (const std::exception &error) {
    std::fprintf(stderr, "zel-store: %s\n", safe(error.what()).c_str());
    return CANNOT_READ;
}
