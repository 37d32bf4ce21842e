/*
 * share: asks the sharing service for everything, and shows what it says.
 */
#include "command_line.h"

#include <cstdio>
#include <filesystem>
#include <optional>

#include "progress.h"
#include "share_message.h"

using namespace sharing;

namespace
{

std::string time_text(guint64 seconds)
{
    g_autoptr(GDateTime) when = g_date_time_new_from_unix_local(static_cast<gint64>(seconds));
    g_autofree char *text = g_date_time_format(when, "%F %T");
    return text_of(text);
}

/** Goes through the array that an answer begins with. */
GVariantIter *iterate(const variant &answer)
{
    return g_variant_iter_new(variant(g_variant_get_child_value(answer.get(), 0)).get());
}

/** The texts of an array, with commas. */
std::string joined(GVariantIter *texts)
{
    std::string line;
    for (const char *one = nullptr; g_variant_iter_next(texts, "&s", &one);)
        line += (line.empty() ? "" : ", ") + printable(one);
    return line;
}

void list_uploads(session &service)
{
    const variant answer = service.call("List");
    g_autoptr(GVariantIter) uploads = iterate(answer);
    guint32 id = 0;
    guint32 status = 0;
    guint64 size = 0;
    guint32 files = 0;
    GVariantIter *recipients = nullptr;
    guint64 sent = 0;
    while (g_variant_iter_loop(uploads, "(uutuast)", &id, &status, &size, &files, &recipients, &sent))
        printf("%u  %-11s  %s, %s, to %s, %s\n", id, word_for(status), counted(files, "file").c_str(),
               size_text(size).c_str(), joined(recipients).c_str(), time_text(sent).c_str());
}

void list_inbox(session &service)
{
    const variant answer = service.call("Inbox");
    g_autoptr(GVariantIter) shares = iterate(answer);
    guint64 received = 0;
    gboolean is_new = FALSE;
    guint32 left = 0;
    GVariant *bytes = nullptr;
    while (g_variant_iter_loop(shares, "(tbu@ay)", &received, &is_new, &left, &bytes)) {
        const share record = decode({static_cast<const char *>(g_variant_get_data(bytes)), g_variant_get_size(bytes)});
        const std::string token = printable(text_of(record->contents_token));
        printf("%s  from %s, %s, %s%s\n", token.c_str(), printable(text_of(record->from_msisdn)).c_str(),
               counted(record->content_info_list_length, "file").c_str(), time_text(received / 1000).c_str(),
               is_new ? ", new" : "");
        for (const auto *item : elements_of<share_item>(record->content_info_list))
            printf("  %s, %s\n", printable(text_of(item->name)).c_str(), size_text(item->size).c_str());
        if (left > 0)
            printf("  share get %s fetches what is not here yet\n", token.c_str());
    }
    guint32 unreadable = 0;
    g_variant_get_child(answer.get(), 1, "u", &unreadable);
    if (unreadable > 0)
        printf("%s could not be read.\n", counted(unreadable, "push message").c_str());
}

void list_recent(session &service)
{
    const variant answer = service.call("Recent");
    g_autoptr(GVariantIter) groups = iterate(answer);
    for (GVariantIter *members = nullptr; g_variant_iter_loop(groups, "as", &members);)
        printf("%s\n", joined(members).c_str());
}

} // namespace

int main(int argc, char **argv)
try {
    std::string state = "sharing-state";
    std::vector<std::string> files;
    std::string recipients;
    std::string description;
    std::string token;
    std::string folder;
    unsigned int id = 0;
    unsigned int until = 0;
    bool lists_paths = false;
    std::optional<session> service;

    CLI::App app(
        "Sends files to people by their phone numbers, and receives what they send, through the sharing service "
        "(sharingd). Ends with 0 when done, 1 when the service would not or it failed, 2 when the command line "
        "is wrong, 3 when no service is at work.");
    app.require_subcommand(1);
    app.add_option("--state", state, "State folder of the service")->capture_default_str()->envname("SHARING_STATE");
    app.parse_complete_callback([&] { service.emplace(state); });
    const auto add = [&](const std::string &name, const std::string &purpose, const std::function<void()> &run) {
        CLI::App *command = app.add_subcommand(name, purpose);
        command->callback(run);
        return command;
    };
    const auto absolute = [](const std::string &path) { return std::filesystem::absolute(path).string(); };
    const auto valid = [](const std::string &text) { return printable(text); };

    CLI::App *send = add("send", "Send files; says the number of the request", [&] {
        GVariantBuilder paths;
        g_variant_builder_init(&paths, G_VARIANT_TYPE("aay"));
        for (const std::string &one : files)
            g_variant_builder_add(&paths, "^ay", one.c_str());
        g_auto(GStrv) numbers = g_strsplit(recipients.c_str(), ",", -1);
        GVariant *arguments = g_variant_new("(aay^ass)", &paths, numbers, description.c_str());
        g_variant_get(service->call("Send", arguments).get(), "(u)", &id);
        printf("Request %u: %s for %s in the store.\n", id, counted(files.size(), "file").c_str(),
               counted(g_strv_length(numbers), "recipient").c_str());
    });
    send->add_option("FILE", files, "Files to send")->required()->transform(absolute);
    send->add_option("--to", recipients, "Whom to send to, as COUNTRY-CODE:NUMBER; several with commas")
        ->required()
        ->transform(valid);
    send->add_option("--text", description, "What to say with it")->transform(valid);

    CLI::App *status = add("status", "Show how far a request is, or list the uploads", [&] {
        if (id == 0)
            list_uploads(*service);
        else if (lists_paths)
            print_paths(*service, id);
        else if (until == 0)
            follow(*service, id, until);
    });
    status->add_option("ID", id, "The request");
    status->add_flag("--paths0", lists_paths, "Only the local paths of its files, each with a zero byte behind it");
    for (const auto &[name, method] : {std::pair("pause", "Pause"), {"resume", "Resume"}, {"cancel", "Cancel"}})
        add(name, method + std::string(" a request"),
            [&, method = method] { service->call(method, g_variant_new("(u)", id)); })
            ->add_option("ID", id, "The request")
            ->required();
    add("inbox", "List what others have sent", [&] { list_inbox(*service); });
    CLI::App *get = add("get", "Fetch the files of a received share; says the number of the request", [&] {
        GVariant *arguments = g_variant_new("(s^ay)", token.c_str(), folder.c_str());
        g_variant_get(service->call("Get", arguments).get(), "(u)", &id);
        printf("Request %u\n", id);
    });
    get->add_option("TOKEN", token, "The share, as the inbox tells")->required();
    get->add_option("--into", folder, "Folder to put them into, instead of the service's own")->transform(absolute);
    for (CLI::App *command : {send, status, get})
        command->add_flag("--follow{101}", until,
                          "Show how it goes on, until it is through; --follow=40: or 40 percent of it have passed");
    add("recent", "List the recipients last used", [&] { list_recent(*service); });
    add("forget", "Wipe all that the service knows of the user", [&] { service->call("Forget"); });
    read_command_line(app, argc, argv);
    return until == 0 || follow(*service, id, until) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const refusal &reason) {
    fprintf(stderr, "share: %s (%d)\n", reason.what(), reason.code);
    return reason.code == QUILLO_ERROR_SERVICE_NOT_RUNNING ? 3 : EXIT_FAILURE;
} catch (const std::exception &reason) {
    fprintf(stderr, "share: %s\n", reason.what());
    return EXIT_FAILURE;
}
