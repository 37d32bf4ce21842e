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

const char *word_for(guint32 status)
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
    const char *state_word = is_upload || !state.is_settled ? word_for(state.status)
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
        return !state.is_settled && state.passed() * 100 / std::max<guint64>(state.size, 1) < until;
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

using iterator = std::unique_ptr<GVariantIter, releaser<g_variant_iter_free>>;

/** Goes through the array that an answer begins with. */
iterator iterate(const variant &answer)
{
    return iterator(g_variant_iter_new(variant(g_variant_get_child_value(answer.get(), 0)).get()));
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
    const iterator uploads = iterate(answer);
    guint32 id = 0;
    guint32 status = 0;
    guint64 size = 0;
    guint32 files = 0;
    GVariantIter *recipients = nullptr;
    guint64 sent = 0;
    while (g_variant_iter_loop(uploads.get(), "(uutuast)", &id, &status, &size, &files, &recipients, &sent))
        printf("%u  %-11s  %s, %s, to %s, %s\n", id, word_for(status), counted(files, "file").c_str(),
               size_text(size).c_str(), joined(recipients).c_str(), time_text(sent).c_str());
}

void list_inbox(session &service)
{
    const variant answer = service.call("Inbox");
    const iterator shares = iterate(answer);
    guint64 received = 0;
    gboolean is_new = FALSE;
    guint32 left = 0;
    GVariant *bytes = nullptr;
    while (g_variant_iter_next(shares.get(), "(tbu@ay)", &received, &is_new, &left, &bytes)) {
        const variant owned(bytes);
        const share record = decode({static_cast<const char *>(g_variant_get_data(bytes)), g_variant_get_size(bytes)});
        printf("%s  from %s, %s, %s%s\n", record->contents_token, printable(text_of(record->from_msisdn)).c_str(),
               counted(record->content_info_list_length, "file").c_str(), time_text(received / 1000).c_str(),
               is_new ? ", new" : "");
        for (const auto *item : elements_of<share_item>(record->content_info_list))
            printf("  %s, %s\n", printable(text_of(item->name)).c_str(), size_text(item->size).c_str());
        if (left > 0)
            printf("  share get %s fetches what is not here yet\n", record->contents_token);
    }
    guint32 unreadable = 0;
    g_variant_get_child(answer.get(), 1, "u", &unreadable);
    if (unreadable > 0)
        printf("%s could not be read.\n", counted(unreadable, "push message").c_str());
}

void list_recent(session &service)
{
    const variant answer = service.call("Recent");
    const iterator groups = iterate(answer);
    for (GVariantIter *members = nullptr; g_variant_iter_loop(groups.get(), "as", &members);)
        printf("%s\n", joined(members).c_str());
}

GVariant *call_to_send(const std::vector<std::string> &files, const std::vector<std::string> &recipients,
                       const std::string &description)
{
    GVariantBuilder paths;
    GVariantBuilder numbers;
    g_variant_builder_init(&paths, G_VARIANT_TYPE("aay"));
    g_variant_builder_init(&numbers, G_VARIANT_TYPE("as"));
    for (const std::string &one : files)
        g_variant_builder_add(&paths, "^ay", one.c_str());
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

    std::map<CLI::App *, std::function<void(session &)>> runs;
    const auto add = [&](const char *name, const char *purpose, const std::function<void(session &)> &run) {
        CLI::App *command = app.add_subcommand(name, purpose);
        runs[command] = run;
        return command;
    };
    const auto absolute = [](const std::string &path) { return std::filesystem::absolute(path).string(); };
    CLI::App *send = add("send", "Send files; says the number of the request", [&](session &service) {
        id = number_of(service.call("Send", call_to_send(files, recipients, description)));
        printf("Request %u: %s for %s in the store.\n", id, counted(files.size(), "file").c_str(),
               counted(recipients.size(), "recipient").c_str());
    });
    send->add_option("FILE", files, "Files to send")->required()->transform(absolute)->type_name("");
    send->add_option("--to", recipients, "Whom to send to; several with commas")
        ->required()
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("COUNTRY-CODE:NUMBER");
    send->add_option("--text", description, "What to say with it")->type_name("TEXT");
    CLI::App *status = add("status", "Show how far a request is, or list the uploads", [&](session &service) {
        if (id == 0) {
            list_uploads(service);
        } else if (lists_paths) {
            for (const file &one : service.describe(id).files)
                printf("%s%c", one.path.c_str(), '\0');
        } else if (!follows && until > 100) {
            const request described = service.describe(id);
            screen(true).show(described);
            report(described);
        }
    });
    status->add_option("ID", id, "The request");
    status->add_flag("--paths0", lists_paths, "Only the local paths of its files, each with a zero byte behind it");
    for (const auto &[name, method, purpose] : {std::tuple("pause", "Pause", "Pause a request"),
                                                {"resume", "Resume", "Go on with a paused request"},
                                                {"cancel", "Cancel", "Cancel what is not yet through of a request"}})
        add(name, purpose, [&id, method = method](session &service) { service.call(method, g_variant_new("(u)", id)); })
            ->add_option("ID", id, "The request")
            ->required();
    add("inbox", "List what others have sent", list_inbox);
    CLI::App *get =
        add("get", "Fetch the files of a received share; says the number of the request",
            [&](session &service) { printf("Request %u\n", id = get_share(service, token, folder, patience)); });
    get->add_option("TOKEN", token, "The share, as the inbox tells")->required();
    get->add_option("--into", folder, "Where to put them, instead of the service's own folder")
        ->transform(absolute)
        ->type_name("FOLDER");
    get->add_option("--wait", patience, "How long to wait for a share that has not arrived yet")->type_name("SECONDS");
    for (CLI::App *command : {send, status, get})
        command->add_flag("--follow", follows, "Show how it goes on, until it is through");
    for (CLI::App *command : {send, status})
        command->add_option("--until", until, "Follow until so much of it has passed")
            ->check(CLI::Range(0, 100))
            ->type_name("PERCENT");
    add("recent", "List the recipients last used", list_recent);
    add("forget", "Wipe all that the service knows of the user", [](session &service) { service.call("Forget"); });
    read_command_line(app, argc, argv);

    session service(state);
    runs[app.get_subcommands().front()](service);
    fflush(stdout);
    return !follows && until > 100 ? EXIT_SUCCESS : follow(service, id, until) ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const refusal &reason) {
    fprintf(stderr, "share: %s (%d)\n", reason.what(), reason.code);
    return reason.code == QUILLO_ERROR_SERVICE_NOT_RUNNING ? 3 : EXIT_FAILURE;
} catch (const std::exception &reason) {
    fprintf(stderr, "share: %s\n", reason.what());
    return EXIT_FAILURE;
}
