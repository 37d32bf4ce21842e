/*
 * share: asks the sharing service for everything, and shows what it says.
 */
#include "command_line.h"

#include <cstdio>
#include <ctime>
#include <filesystem>

#include "screen.h"
#include "share_message.h"

using namespace sharing;

namespace
{

std::string time_text(unsigned long long seconds)
{
    const auto when = static_cast<time_t>(seconds);
    tm parts = {};
    char result[32] = "";
    if (localtime_r(&when, &parts))
        strftime(result, sizeof result, "%Y-%m-%d %H:%M:%S", &parts);
    return result;
}

const char *word_for(unsigned int status)
{
    constexpr const char *words[] = {"none",      "started", "progressing", "sent",    "failed",
                                     "cancelled", "paused",  "shared",      "recalled"};
    return status < std::size(words) ? words[status] : "?";
}

/** Whether all of a request came off; a request that goes on has not. */
bool has_come_off(const request &state)
{
    return state.is_settled && !state.files.empty() &&
           std::ranges::all_of(state.files, [](const file &one) { return one.status == ZEL_SYNC_COMPLETE; });
}

void report(const request &state)
{
    const auto done = std::ranges::count(state.files, ZEL_SYNC_COMPLETE, &file::status);
    const bool is_upload = state.kind == ZEL_UPLOAD_FILE;
    const char *state_word = is_upload || !state.is_settled ? word_for(static_cast<unsigned int>(state.status))
                             : has_come_off(state)          ? "received"
                                                            : "not received as a whole";
    printf("Request %u: %s, %lld of %s %s, %s\n", state.id, state_word, static_cast<long long>(done),
           counted(state.files.size(), "file").c_str(), is_upload ? "sent" : "received", size_text(state.size).c_str());
    if (!state.token.empty() && is_upload)
        printf("  token %s\n", printable(state.token).c_str());
    if (!state.trouble.empty())
        printf("  %s (%d)\n", printable(state.trouble).c_str(), state.code);
    for (const file &one : state.files)
        if (one.status == ZEL_SYNC_FAILED)
            printf("  %s: %s (%d)\n", printable(one.path).c_str(), printable(one.trouble).c_str(), one.code);
}

/** Shows a request until it is settled, or has got so far. */
bool follow(session &service, unsigned int id, unsigned int until)
{
    screen display(false);
    request last;
    service.follow(id, [&](const request &state) {
        display.show(state);
        last = state;
        return !state.is_settled && percentage_of(state) < until;
    });
    display.end();
    if (last.is_settled)
        report(last);
    return !last.is_settled || has_come_off(last);
}

unsigned int number_of(const variant &answer)
{
    guint32 number = 0;
    g_variant_get(answer.get(), "(u)", &number);
    return number;
}

/** Asks for the files of a share, as soon as it has arrived if there is time to wait. */
unsigned int get_share(session &service, const std::string &token, const std::string &folder, unsigned int patience)
{
    for (const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(patience);;)
        try {
            return number_of(service.call("Get", g_variant_new("(s^ay)", token.c_str(), folder.c_str())));
        } catch (const refusal &reason) {
            if (reason.code != QUILLO_ERROR_RESOURCE_DOESNT_EXIST || std::chrono::steady_clock::now() >= end)
                throw;
            service.wait_for_news();
        }
}

void list_uploads(session &service)
{
    const variant answer = service.call("List");
    GVariantIter *uploads = nullptr;
    g_variant_get(answer.get(), "(a(uutuast))", &uploads);
    guint32 id = 0;
    guint32 status = 0;
    guint64 size = 0;
    guint32 files = 0;
    GVariantIter *recipients = nullptr;
    guint64 sent = 0;
    while (g_variant_iter_loop(uploads, "(uutuast)", &id, &status, &size, &files, &recipients, &sent)) {
        std::string to;
        for (const char *one = nullptr; g_variant_iter_next(recipients, "&s", &one);)
            to += (to.empty() ? "" : ", ") + printable(one);
        printf("%u  %-11s  %s, %s, to %s, %s\n", id, word_for(status), counted(files, "file").c_str(),
               size_text(size).c_str(), to.c_str(), time_text(sent).c_str());
    }
    g_variant_iter_free(uploads);
}

void list_inbox(session &service)
{
    const variant answer = service.call("Inbox");
    GVariantIter *shares = nullptr;
    guint32 unreadable = 0;
    g_variant_get(answer.get(), "(a(tbuay)u)", &shares, &unreadable);
    guint64 received = 0;
    gboolean is_new = FALSE;
    guint32 left = 0;
    GVariant *bytes = nullptr;
    while (g_variant_iter_next(shares, "(tbu@ay)", &received, &is_new, &left, &bytes)) {
        const variant owned(bytes);
        gsize size = 0;
        const auto *data = static_cast<const char *>(g_variant_get_fixed_array(bytes, &size, 1));
        const share record = decode(std::string(data, size));
        printf("%s  from %s, %s, %s%s\n", record->contents_token, printable(text_of(record->from_msisdn)).c_str(),
               counted(record->content_info_list_length, "file").c_str(), time_text(received / 1000).c_str(),
               is_new ? ", new" : "");
        for (const auto *item : elements_of<share_item>(record->content_info_list))
            printf("  %s, %s\n", printable(text_of(item->name)).c_str(), size_text(item->size).c_str());
        if (left > 0)
            printf("  share get %s fetches what is not here yet\n", record->contents_token);
    }
    if (unreadable > 0)
        printf("%s could not be read.\n", counted(unreadable, "push message").c_str());
    g_variant_iter_free(shares);
}

void list_recent(session &service)
{
    const variant answer = service.call("Recent");
    GVariantIter *groups = nullptr;
    g_variant_get(answer.get(), "(aas)", &groups);
    GVariantIter *members = nullptr;
    while (g_variant_iter_loop(groups, "as", &members)) {
        std::string line;
        for (const char *one = nullptr; g_variant_iter_next(members, "&s", &one);)
            line += (line.empty() ? "" : ", ") + printable(one);
        printf("%s\n", line.c_str());
    }
    g_variant_iter_free(groups);
}

GVariant *call_to_send(const std::vector<std::string> &files, const std::vector<std::string> &recipients,
                       const std::string &description)
{
    GVariantBuilder paths;
    GVariantBuilder numbers;
    g_variant_builder_init(&paths, G_VARIANT_TYPE("aay"));
    g_variant_builder_init(&numbers, G_VARIANT_TYPE("as"));
    for (const std::string &one : files)
        g_variant_builder_add(&paths, "^ay", std::filesystem::absolute(one).c_str());
    for (const std::string &one : recipients)
        g_variant_builder_add(&numbers, "s", printable(one).c_str());
    return g_variant_new("(aayass)", &paths, &numbers, printable(description).c_str());
}

} // namespace

int main(int argc, char **argv)
try {
    std::string state = "sharing-state";
    std::vector<std::string> files;
    std::vector<std::string> recipients;
    std::string description;
    std::string token;
    std::string folder;
    unsigned int id = 0;
    unsigned int until = 101;
    unsigned int patience = 0;
    bool follows = false;
    bool lists_paths = false;

    CLI::App app(
        "Sends files to people by their phone numbers, and receives what they send, through the sharing service "
        "(sharingd). Ends with 0 when done, 1 when the service would not or it failed, 2 when the command line "
        "is wrong, 3 when no service is at work.");
    app.require_subcommand(1);
    app.add_option("--state", state, "State folder of the service")
        ->capture_default_str()
        ->envname("SHARING_STATE")
        ->type_name("FOLDER");
    CLI::App *send = app.add_subcommand("send", "Send files; says the number of the request");
    send->add_option("FILE", files, "Files to send")->required()->type_name("");
    send->add_option("--to", recipients, "Whom to send to; several with commas")
        ->required()
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("COUNTRY-CODE:NUMBER");
    send->add_option("--text", description, "What to say with it")->type_name("TEXT");
    CLI::App *status = app.add_subcommand("status", "Show how far a request is, or list the uploads");
    status->add_option("ID", id, "The request");
    status->add_flag("--paths0", lists_paths, "Only the local paths of its files, each with a zero byte behind it");
    for (CLI::App *command : {send, status}) {
        command->add_flag("--follow", follows, "Show how it goes on, until it is through");
        command->add_option("--until", until, "Follow until so much of it has passed")
            ->check(CLI::Range(0, 100))
            ->type_name("PERCENT");
    }
    CLI::App *pause = app.add_subcommand("pause", "Pause a request");
    CLI::App *resume = app.add_subcommand("resume", "Go on with a paused request");
    CLI::App *cancel = app.add_subcommand("cancel", "Cancel what is not yet through of a request");
    for (CLI::App *command : {pause, resume, cancel})
        command->add_option("ID", id, "The request")->required();
    CLI::App *inbox = app.add_subcommand("inbox", "List what others have sent");
    CLI::App *get = app.add_subcommand("get", "Fetch the files of a received share; says the number of the request");
    get->add_option("TOKEN", token, "The share, as the inbox tells")->required();
    get->add_option("--into", folder, "Where to put them, instead of the service's own folder")->type_name("FOLDER");
    get->add_flag("--follow", follows, "Show how it goes on, until it is through");
    get->add_option("--wait", patience, "How long to wait for a share that has not arrived yet")->type_name("SECONDS");
    CLI::App *recent = app.add_subcommand("recent", "List the recipients last used");
    CLI::App *forget = app.add_subcommand("forget", "Wipe all that the service knows of the user");
    read_command_line(app, argc, argv);

    if (!folder.empty())
        folder = std::filesystem::absolute(folder);
    GVariant *call = files.empty() ? nullptr : call_to_send(files, recipients, description);
    session service(state);
    const std::pair<CLI::App *, const char *> changes[] = {{pause, "Pause"}, {resume, "Resume"}, {cancel, "Cancel"}};
    for (const auto &[command, method] : changes)
        if (command->parsed())
            service.call(method, g_variant_new("(u)", id));
    if (send->parsed()) {
        id = number_of(service.call("Send", call));
        printf("Request %u: %s for %s in the store.\n", id, counted(files.size(), "file").c_str(),
               counted(recipients.size(), "recipient").c_str());
    } else if (get->parsed()) {
        id = get_share(service, token, folder, patience);
        printf("Request %u\n", id);
    } else if (inbox->parsed()) {
        list_inbox(service);
    } else if (recent->parsed()) {
        list_recent(service);
    } else if (forget->parsed()) {
        service.call("Forget");
    } else if (status->parsed() && id == 0) {
        list_uploads(service);
    } else if (status->parsed() && lists_paths) {
        for (const file &one : service.describe(id).files)
            printf("%s%c", one.path.c_str(), '\0');
    } else if (status->parsed() && !follows && until > 100) {
        const request described = service.describe(id);
        screen(true).show(described);
        report(described);
    }
    fflush(stdout);
    return !follows && until > 100 ? EXIT_SUCCESS : follow(service, id, until) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const refusal &reason) {
    fprintf(stderr, "share: %s (%d)\n", reason.what(), reason.code);
    return reason.code == QUILLO_ERROR_SERVICE_NOT_RUNNING ? 3 : EXIT_FAILURE;
} catch (const std::exception &reason) {
    fprintf(stderr, "share: %s\n", reason.what());
    return EXIT_FAILURE;
}
