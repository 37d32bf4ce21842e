/* zel-store: looks into a store and its trace, without disturbing who uses it. */

#include "zel_store.h"

#include <cstdio>

namespace
{

/** The options as GLib's parser leaves them. */
struct {
    char *request = nullptr, *token = nullptr, *timeline = nullptr;
    char **operands = nullptr;
    gboolean all = FALSE, secrets = FALSE, json = FALSE, tree = FALSE, log = FALSE, help = FALSE;
    double interval = 1;
    int views = -1;
} given;

constexpr GOptionEntry HELP = {"help", 'h', 0, G_OPTION_ARG_NONE, &given.help, "Show this", nullptr};
constexpr GOptionEntry JSON = {"json", 0, 0, G_OPTION_ARG_NONE, &given.json, "For programs", nullptr};
constexpr GOptionEntry REQUEST = {
    "request", 0, 0, G_OPTION_ARG_FILENAME, &given.request, "Only the upload request of this id", "ID"};
constexpr GOptionEntry TOKEN = {"token", 0, 0, G_OPTION_ARG_FILENAME, &given.token, "Only the share of this token",
                                "TOKEN"};
constexpr GOptionEntry ALL = {"all", 0, 0, G_OPTION_ARG_NONE, &given.all, "Also what is finished or at rest", nullptr};
constexpr GOptionEntry SECRETS = {
    "secrets", 0, 0, G_OPTION_ARG_NONE, &given.secrets, "Show numbers, tokens and keys in full", nullptr};
constexpr GOptionEntry INTERVAL = {"interval", 0, 0, G_OPTION_ARG_DOUBLE, &given.interval, "Seconds between views (1)",
                                   "SECONDS"};
constexpr GOptionEntry VIEWS = {"views", 0, 0, G_OPTION_ARG_INT, &given.views, "End after so many views", "N"};
constexpr GOptionEntry TREE = {"tree", 0, 0, G_OPTION_ARG_NONE, &given.tree, "The calls, nested by thread", nullptr};
constexpr GOptionEntry TIMELINE = {"timeline",
                                   0,
                                   0,
                                   G_OPTION_ARG_FILENAME,
                                   &given.timeline,
                                   "Write the calls to a new file, in the Trace Event format",
                                   "FILE"};
constexpr GOptionEntry LOG = {"wal",  0, 0, G_OPTION_ARG_NONE, &given.log, "Set SQLite's write-ahead log for good",
                              nullptr};
constexpr GOptionEntry OPERANDS = {G_OPTION_REMAINING, 0,       0,      G_OPTION_ARG_FILENAME_ARRAY,
                                   &given.operands,    nullptr, nullptr};

struct command {
    const char *name, *operands, *does;
    guint fewest, most; /**< operands */
    outcome (*run)(const options &);
    GOptionEntry options[8]; /**< up to one without a name */
};

constexpr command COMMANDS[] = {
    {"show", "[STORE]", "What is unfinished, at a glance", 0, 1, show, {REQUEST, TOKEN, ALL, SECRETS, JSON}},
    {"watch",
     "[STORE]",
     "The same, refreshed; q ends it",
     0,
     1,
     watch,
     {REQUEST, TOKEN, ALL, SECRETS, JSON, INTERVAL, VIEWS}},
    {"check", "[STORE]", "Is it sound, does it contradict itself?", 0, 1, check, {JSON}},
    {"trace", "FILE", "A trace made readable; - reads standard input", 1, 1, trace, {TREE, TIMELINE, JSON}},
    {"init", "", "Make this build's store ready: " ZEL_DATABASE, 0, 0, init, {LOG}},
    {"copy", "[STORE] TO", "A consistent copy of a store in use", 1, 2, copy, {}},
};

std::string usage()
{
    std::string lines =
        "Usage: zel-store COMMAND [OPTION...]\n\n"
        "Looks into a store of the sharing library and into its trace, without disturbing who uses it.\n\n";
    for (const command &one : COMMANDS)
        lines += FORMAT("  %-5s %-10s  %s\n", one.name, one.operands, one.does);
    return lines + "\nSTORE is the store's file, or a service's data folder (" ZEL_DATABASE ").\n"
                   "zel-store COMMAND --help tells the options. Manual: zel-store(1).\n"
                   "Exit status: 0 fine, 1 findings or nothing that matches, 2 cannot read or write.\n";
}

[[noreturn]] void refuse(const std::string &what)
{
    throw unreadable(what + " zel-store --help tells more.");
}

/** The options of a command, checked; nothing is run when --help is among them. */
options parsed(const command &chosen, GOptionContext *context, int argc, char **argv)
{
    std::vector<GOptionEntry> entries = {HELP, OPERANDS};
    for (const GOptionEntry *one = chosen.options; one->long_name; ++one)
        entries.insert(entries.end() - 2, *one);
    entries.emplace_back();
    g_option_context_set_help_enabled(context, FALSE);
    g_option_context_add_main_entries(context, entries.data(), nullptr);
    GError *error = nullptr;
    if (!g_option_context_parse(context, &argc, &argv, &error))
        refuse(std::string(error->message) + ".");
    const texts operands(given.operands, given.operands + (given.operands ? g_strv_length(given.operands) : 0));
    if (!given.help && (operands.size() < chosen.fewest || operands.size() > chosen.most))
        refuse(FORMAT("%s takes %s.", chosen.name, *chosen.operands ? chosen.operands : "nothing"));
    guint64 id = 0;
    if (given.request && !g_ascii_string_to_unsigned(given.request, 10, 0, G_MAXUINT32, &id, nullptr))
        refuse(FORMAT("--request takes a number up to 4294967295, not \"%s\".", given.request));
    if (!(given.interval >= 0.02 && given.interval <= 3600))
        refuse("--interval takes 0.02 to 3600 seconds.");
    if (given.views == 0 || given.views < -1)
        refuse("--views takes a number from 1.");
    options wanted;
    if (!operands.empty() && chosen.run != copy)
        (chosen.run == trace ? wanted.trace : wanted.store) = operands[0];
    wanted.copied = operands;
    wanted.request = given.request ? std::to_string(id) : "";
    wanted.token = given.token ? given.token : "";
    wanted.timeline = given.timeline ? given.timeline : "";
    wanted.shows_secrets = given.secrets;
    wanted.shows_all = given.all;
    wanted.as_json = given.json;
    wanted.shows_tree = given.tree;
    wanted.uses_log = given.log;
    wanted.interval = given.interval;
    wanted.views = std::max(0, given.views);
    return wanted;
}

exit_status run(int argc, char **argv)
{
    const std::string name = argc > 1 ? argv[1] : "";
    if (name == "--version")
        return print(ZEL_VERSION "\n"), FINE;
    if (name == "--help" || name == "-h")
        return print(usage()), FINE;
    for (const command &one : COMMANDS) {
        if (one.name != name)
            continue;
        const std::unique_ptr<GOptionContext, void (*)(GOptionContext *)> context(
            g_option_context_new(FORMAT("%s %s", one.name, one.operands).c_str()), g_option_context_free);
        g_option_context_set_summary(context.get(), one.does);
        const options wanted = parsed(one, context.get(), argc - 1, argv + 1);
        if (given.help)
            return print(taken(g_option_context_get_help(context.get(), TRUE, nullptr))), FINE;
        const outcome result = one.run(wanted);
        const bool is_document = wanted.as_json && !result.document.is_null();
        print(is_document ? written(result.document) : result.view);
        return result.status;
    }
    refuse(name.empty() ? "A command is missing: show, watch, check, trace, init or copy."
                        : "There is no command \"" + name + "\", but show, watch, check, trace, init and copy.");
}

} // namespace

int main(int argc, char **argv)
try {
    g_set_prgname("zel-store");
    screen.look();
    return run(argc, argv);
} catch (const std::exception &error) {
    std::fprintf(stderr, "zel-store: %s\n", safe(error.what()).c_str());
    return CANNOT_READ;
}
