/* zel-store: looks into a store, without disturbing who uses it. */

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
                            "STORE is what the build uses unless it is named.";

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

int check_store(const std::string &path, bool as_json)
{
    const store read = read_store(path);
    const std::vector<finding> findings = check(read);
    if (as_json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const finding &one : findings)
            list.push_back({{"kind", one.kind},
                            {"title", one.title},
                            {"table", one.table},
                            {"key", one.key},
                            {"rows", one.rows},
                            {"means", one.meaning},
                            {"do", one.advice}});
        std::fputs(text_of({{"store", file_json(read)}, {"findings", list}}).c_str(), stdout);
    } else {
        print(file_lines(read));
        for (const std::string &lines : finding_lines(findings))
            std::printf("%s\n", lines.c_str());
        const std::string count = std::to_string(findings.size()) + (findings.size() == 1 ? " finding" : " findings");
        std::printf("\n%s\n", findings.empty() ? coloured(colour::green, "Sound: nothing was found.").c_str()
                                               : coloured(colour::red, count + ".").c_str());
    }
    return !read.copy.complaint.empty() ? CANNOT_READ : findings.empty() ? FINE : FINDINGS;
}

} // namespace

int main(int argc, char **argv)
try {
    screen.look();
    CLI::App app{"Looks into a store of the sharing library, without disturbing who uses it."};
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
    CLI::App *const check_command =
        with_store(app.add_subcommand("check", "Is it sound, and does it contradict itself?"));
    check_command->add_flag("--json", as_json, "For programs");
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
    if (check_command->parsed())
        return check_store(path, as_json);
    if (init_command->parsed())
        return make_ready(uses_log);
    return copy_to(store_path(names.size() == 2 ? names[0] : store_name), names.back());
} catch (const unreadable &error) {
    std::fprintf(stderr, "zel-store: %s\n", error.what());
    return CANNOT_READ;
} catch (const std::exception &error) {
    std::fprintf(stderr, "zel-store: %s\n", error.what());
    return CANNOT_READ;
}
