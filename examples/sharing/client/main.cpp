/*
 * share: asks the sharing service for everything, and shows what it answers.
 */
#include "options.h"

#include <algorithm>
#include <filesystem>

#include "progress.h"

using namespace sharing;

namespace
{

constexpr seconds short_time(30);
constexpr seconds long_time(600); // many files are stored

/** What the command line gives. */
struct arguments {
    std::string recipients;
    std::string description;
    std::string folder;
    unsigned int until = 0;
    gboolean lists_paths = FALSE;
    std::vector<std::string> rest; /**< what follows the command */
};

/** Goes through an array. */
GVariantIter *iterate(GVariant *array)
{
    return g_variant_iter_new(variant(array).get());
}

/** The texts of an array, with commas. */
std::string joined(GVariantIter *texts)
{
    std::string line;
    for (const char *one = nullptr; g_variant_iter_next(texts, "&s", &one);)
        line += (line.empty() ? "" : ", ") + shown(one);
    return line;
}

std::string absolute(const std::string &path)
{
    return std::filesystem::absolute(path).string();
}

std::string valid(const char *any)
{
    return any ? text(g_utf8_make_valid(any, -1)).get() : "";
}

guint32 id_in(const std::string &argument)
{
    guint64 id = 0;
    if (!g_ascii_string_to_unsigned(argument.c_str(), 10, 1, G_MAXUINT32, &id, nullptr))
        reject_command_line("'" + argument + "' is no request");
    return static_cast<guint32>(id);
}

/* The commands; each returns the exit status. --------------------------------------------------------------------- */

bool follow_if_wanted(session &service, guint32 id, const arguments &given)
{
    fflush(stdout);
    return given.until == 0 || follow(service, id, given.until);
}

bool send_files(session &service, const arguments &given)
{
    std::vector<const char *> files;
    for (const std::string &file : given.rest)
        files.push_back(file.c_str());
    files.push_back(nullptr);
    g_auto(GStrv) recipients = g_strsplit(given.recipients.c_str(), ",", -1);
    guint32 id = 0;
    service.call(long_time, [&](QuilloSharing *proxy, GError **error) {
        return quillo_sharing_call_send_sync(proxy, files.data(), recipients, given.description.c_str(), &id, nullptr,
                                             error);
    });
    printf("Request %u: %s for %s in the store.\n", id, counted(given.rest.size(), "file").c_str(),
           counted(g_strv_length(recipients), "recipient").c_str());
    return follow_if_wanted(service, id, given);
}

bool list_uploads(session &service)
{
    GVariant *answer = nullptr;
    service.call(short_time, [&](QuilloSharing *proxy, GError **error) {
        return quillo_sharing_call_list_sync(proxy, &answer, nullptr, error);
    });
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
    return true;
}

bool show_status(session &service, const arguments &given)
{
    if (given.rest.empty())
        return list_uploads(service);
    const guint32 id = id_in(given.rest[0]);
    if (given.lists_paths)
        print_paths(service, id);
    return given.lists_paths || follow(service, id, given.until);
}

template <auto method> bool change(session &service, const arguments &given)
{
    const guint32 id = id_in(given.rest[0]);
    service.call(short_time, [&](QuilloSharing *proxy, GError **error) { return method(proxy, id, nullptr, error); });
    return true;
}

bool list_inbox(session &service, const arguments &)
{
    GVariant *answer = nullptr;
    guint32 unreadable = 0;
    service.call(short_time, [&](QuilloSharing *proxy, GError **error) {
        return quillo_sharing_call_inbox_sync(proxy, &answer, &unreadable, nullptr, error);
    });
    g_autoptr(GVariantIter) shares = iterate(answer);
    guint64 received = 0;
    gboolean is_new = FALSE;
    guint32 left = 0;
    GVariant *bytes = nullptr;
    while (g_variant_iter_loop(shares, "(tbu@ay)", &received, &is_new, &left, &bytes)) {
        const share record = decode({static_cast<const char *>(g_variant_get_data(bytes)), g_variant_get_size(bytes)});
        const std::string token = shown(text_of(record->contents_token));
        printf("%s  from %s, %s, %s%s\n", token.c_str(), shown(text_of(record->from_msisdn)).c_str(),
               counted(record->content_info_list_length, "file").c_str(), time_text(received / 1000).c_str(),
               is_new ? ", new" : "");
        if (record->description)
            printf("  \"%s\"\n", shown(record->description).c_str());
        for (const auto *item : elements_of<share_item>(record->content_info_list))
            printf("  %s, %s\n", shown(text_of(item->name)).c_str(), size_text(item->size).c_str());
        if (left > 0)
            printf("  share get %s fetches what is not here yet\n", token.c_str());
    }
    if (unreadable > 0)
        printf("%s could not be read.\n", counted(unreadable, "push message").c_str());
    return true;
}

bool get_share(session &service, const arguments &given)
{
    guint32 id = 0;
    service.call(long_time, [&](QuilloSharing *proxy, GError **error) {
        return quillo_sharing_call_get_sync(proxy, valid(given.rest[0].c_str()).c_str(), given.folder.c_str(), &id,
                                            nullptr, error);
    });
    printf("Request %u\n", id);
    return follow_if_wanted(service, id, given);
}

bool list_recent(session &service, const arguments &)
{
    GVariant *answer = nullptr;
    service.call(short_time, [&](QuilloSharing *proxy, GError **error) {
        return quillo_sharing_call_recent_sync(proxy, &answer, nullptr, error);
    });
    g_autoptr(GVariantIter) groups = iterate(answer);
    for (GVariantIter *members = nullptr; g_variant_iter_loop(groups, "as", &members);)
        printf("%s\n", joined(members).c_str());
    return true;
}

bool forget(session &service, const arguments &)
{
    service.call(long_time, [&](QuilloSharing *proxy, GError **error) {
        return quillo_sharing_call_forget_sync(proxy, nullptr, error);
    });
    return true;
}

constexpr struct command {
    const char *name;
    size_t least; /**< arguments */
    size_t most;
    const char *options;
    bool (*run)(session &, const arguments &);
} commands[] = {{"send", 1, SIZE_MAX, "to text follow", send_files},
                {"status", 0, 1, "follow paths0", show_status},
                {"pause", 1, 1, "", change<quillo_sharing_call_pause_sync>},
                {"resume", 1, 1, "", change<quillo_sharing_call_resume_sync>},
                {"cancel", 1, 1, "", change<quillo_sharing_call_cancel_sync>},
                {"inbox", 0, 0, "", list_inbox},
                {"get", 1, 1, "into follow", get_share},
                {"recent", 0, 0, "", list_recent},
                {"forget", 0, 0, "", forget}};

constexpr char summary[] =
    "Sends files to people by their phone numbers, and receives what they send, through the sharing service "
    "(sharingd).\n\n"
    "  send --to WHOM[,WHOM...] [--text TEXT] FILE...  send files; reports the number of the request\n"
    "  status [ID]                                     show how far a request is, or list the uploads\n"
    "  pause ID, cancel ID                             stop a request for now, or for good\n"
    "  resume ID                                       go on with a paused request, or with what was given up\n"
    "  inbox                                           list what others have sent\n"
    "  get [--into FOLDER] TOKEN                       fetch the files of a received share; reports a request too\n"
    "  recent                                          list the recipients last used\n"
    "  forget                                          wipe all that the service knows of the user\n\n"
    "Ends with 0 when done, 1 when not all of it was done, 2 when the command line is wrong, 3 when no service is at "
    "work.";

} // namespace

int main(int argc, char **argv)
try {
    arguments given;
    g_autofree char *state = nullptr;
    g_autofree char *recipients = nullptr;
    g_autofree char *description = nullptr;
    g_autofree char *folder = nullptr;
    g_auto(GStrv) rest = nullptr;
    static unsigned int until = 0;
    const GOptionArgFunc read_follow = [](const char *, const char *value, void *, GError **) -> gboolean {
        guint64 percent = to_the_end;
        if (value && !g_ascii_string_to_unsigned(value, 10, 1, 100, &percent, nullptr))
            reject_command_line(std::string("--follow takes a percentage from 1 to 100, not '") + value + "'");
        until = static_cast<unsigned int>(percent);
        return TRUE;
    };
    const GOptionEntry entries[] = {
        {"state", 0, 0, G_OPTION_ARG_FILENAME, &state, "State folder of the service ($SHARING_STATE, or sharing-state)",
         "FOLDER"},
        {"to", 0, 0, G_OPTION_ARG_FILENAME, &recipients, "send: recipients, as COUNTRY-CODE:NUMBER", "WHOM[,WHOM...]"},
        {"text", 0, 0, G_OPTION_ARG_FILENAME, &description, "send: a description", "TEXT"},
        {"follow", 0, G_OPTION_FLAG_OPTIONAL_ARG, G_OPTION_ARG_CALLBACK, reinterpret_cast<void *>(read_follow),
         "send, status, get: show progress until nothing more comes, or so much has passed", "PERCENT"},
        {"paths0", 0, 0, G_OPTION_ARG_NONE, &given.lists_paths,
         "status: only the local paths of the files, each with a zero byte after it", nullptr},
        {"into", 0, 0, G_OPTION_ARG_FILENAME, &folder, "get: the folder for the files, instead of the service's own",
         "FOLDER"},
        {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &rest, nullptr, nullptr},
        {}};
    read_options("COMMAND [ARGUMENT...]", summary, entries, argc, argv);
    if (!rest || !*rest)
        reject_command_line("a command is missing");
    const std::string name = *rest;
    const auto *chosen = std::ranges::find(commands, name, [](const command &one) { return one.name; });
    if (chosen == std::end(commands))
        reject_command_line("there is no command '" + name + "'");
    given.rest.assign(rest + 1, rest + g_strv_length(rest));
    if (given.rest.size() < chosen->least || given.rest.size() > chosen->most)
        reject_command_line(name + " takes " +
                            (chosen->most == 0   ? "no argument"
                             : chosen->most == 1 ? "one"
                                                 : "files"));
    const std::string known = chosen->options;
    for (const auto &[option, is_given] : {std::pair("to", recipients != nullptr),
                                           {"text", description != nullptr},
                                           {"follow", until > 0},
                                           {"paths0", given.lists_paths != FALSE},
                                           {"into", folder != nullptr}})
        if (is_given && known.find(option) == std::string::npos)
            reject_command_line(name + " takes no --" + option);
    if (name == "send" && !recipients)
        reject_command_line("send needs --to");
    // The session changes the working directory.
    if (name == "send")
        std::ranges::transform(given.rest, given.rest.begin(), absolute);
    given.folder = folder ? absolute(folder) : "";
    given.recipients = valid(recipients);
    given.description = valid(description);
    given.until = until;

    const char *of_environment = g_getenv("SHARING_STATE");
    session service(state ? state : of_environment ? of_environment : "sharing-state");
    const bool is_done = chosen->run(service, given);
    if (fflush(stdout) != 0)
        throw std::runtime_error("The output cannot be written.");
    return is_done ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const refusal &reason) {
    fprintf(stderr, "share: %s (%d)\n", shown(reason.what()).c_str(), reason.code);
    return reason.code == QUILLO_ERROR_SERVICE_NOT_RUNNING ? 3 : EXIT_FAILURE;
} catch (const std::exception &reason) {
    fprintf(stderr, "share: %s\n", shown(reason.what()).c_str());
    return EXIT_FAILURE;
}
