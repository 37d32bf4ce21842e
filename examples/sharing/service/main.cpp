/*
 * sharingd: the sharing service of one user.
 */
#include <csignal>
#include <cstring>
#include <curl/curl.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "door.h"
#include "inbox.h"
#include "options.h"

namespace fs = std::filesystem;
using namespace sharing;

constexpr char summary[] =
    "The sharing service: sends and receives files for the clients of one user, through a server. Says \"ready\" on "
    "standard output when clients can come, at a socket in the state folder; writes its trace to standard error; ends, "
    "with 0, on SIGINT or SIGTERM. May be killed at any moment: the next one goes on.";
constexpr unsigned int stop_limit = 4; // seconds

/** Makes the state folder the working directory, with nobody else in it. */
static void enter(const std::string &state)
{
    require(fs::path(SHARING_DATABASE).is_relative(), ZEL_ERR_STORAGE_INIT_FAILURE,
            "The library's database is " SHARING_DATABASE ", which an example must not touch; build the library with "
            "-DZEL_APPS_ROOT=apps/, as script/demo does.");
    umask(077);
    fs::create_directories(state);
    struct stat folder = {};
    require(stat(state.c_str(), &folder) == 0 && folder.st_uid == getuid() && (folder.st_mode & 077) == 0,
            ZEL_ERR_PERMISSION_DENIED,
            state + ": others can look into this folder. Name another with --state, or chmod 700 it.");
    fs::current_path(state);
    const int lock = open("sharingd.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    require(lock >= 0 && flock(lock, LOCK_EX | LOCK_NB) == 0, ZEL_ERR_PERMISSION_DENIED,
            state + ": another sharingd is at work there.");
    for (const fs::path &part :
         {fs::path(SHARING_DATABASE).parent_path(), fs::path(incoming_folder), fs::path(thumbnail_folder)})
        fs::create_directories(part);
}

static settings chosen_by(int &argc, char **&argv, std::string &state)
{
    settings chosen;
    g_autofree char *folder = nullptr;
    g_autofree char *server = nullptr;
    g_autofree char *number = nullptr;
    g_autofree char *chunk = nullptr;
    int patience = static_cast<int>(chosen.patience.count());
    int first_pause = static_cast<int>(chosen.first_pause.count());
    int longest_pause = static_cast<int>(chosen.longest_pause.count());
    const GOptionEntry entries[] = {
        {"state", 0, 0, G_OPTION_ARG_FILENAME, &folder,
         "Folder for the database, the socket and received files (sharing-state)", "FOLDER"},
        {"server", 0, 0, G_OPTION_ARG_STRING, &server,
         "Where a tus server creates uploads (http://127.0.0.1:8420/files)", "URL"},
        {"number", 0, 0, G_OPTION_ARG_STRING, &number,
         "This device's own phone number, at which shares arrive (+447700900123)", "NUMBER"},
        {"chunk", 0, 0, G_OPTION_ARG_STRING, &chunk,
         "How much is sent at once: 4096, 64K, 2M (a thirty-second of the file, 64K to 4M)", "SIZE"},
        {"timeout", 0, 0, G_OPTION_ARG_INT, &patience, "How many seconds to wait for a server that does not move (10)",
         "SECONDS"},
        {"retry-delay", 0, 0, G_OPTION_ARG_INT, &first_pause,
         "Milliseconds before the first retry, doubled before each further one (500)", "MS"},
        {"longest-delay", 0, 0, G_OPTION_ARG_INT, &longest_pause, "The most milliseconds before a retry (60000)", "MS"},
        {}};
    read_options(nullptr, summary, entries, argc, argv);
    const auto check = [](const char *option, int value, int most) {
        if (value < 1 || value > most)
            reject_command_line(std::string(option) + " takes a number from 1 to " + std::to_string(most));
    };
    check("--timeout", patience, 3600);
    check("--retry-delay", first_pause, 3'600'000);
    check("--longest-delay", longest_pause, 3'600'000);
    state = folder ? folder : "sharing-state";
    chosen.server = server ? server : chosen.server;
    chosen.number = number ? number : chosen.number;
    chosen.chunk_size = bytes_of("--chunk", chunk, 0, 0, 64ULL * 1024 * 1024);
    chosen.patience = std::chrono::seconds(patience);
    chosen.first_pause = std::chrono::milliseconds(first_pause);
    chosen.longest_pause = std::max(std::chrono::milliseconds(longest_pause), chosen.first_pause);
    return chosen;
}

/** Quits the loop on SIGINT or SIGTERM, and ends the process when something keeps it from stopping in time. */
static void await_end(GMainLoop *loop)
{
    static sigset_t ends; // blocked in all threads, so that one of its own takes them, whatever the others do
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGALRM, [](int) { _exit(EXIT_SUCCESS); }); // all that lasts is in the store
    std::thread([loop] {
        int signal = 0;
        sigwait(&ends, &signal);
        alarm(stop_limit);
        is_stopping = true;
        g_main_loop_quit(loop);
    }).detach();
}

int main(int argc, char **argv)
try {
    std::string state;
    const settings chosen = chosen_by(argc, argv, state);
    enter(state);
    const std::unique_ptr<GMainLoop, releaser<g_main_loop_unref>> loop(g_main_loop_new(nullptr, FALSE));
    await_end(loop.get());
    curl_global_init(CURL_GLOBAL_DEFAULT);
    open_store(SHARING_DATABASE);

    door *entrance = nullptr; // which reports what happens inside
    std::optional<movers> carriers;
    const auto report = [&](const auto &step) {
        try {
            step();
        } catch (const std::exception &) { // the store did not answer; clients ask again by Describe
        }
    };
    carriers.emplace(chosen,
                     news{[&](const zel_content_sync_info &row) {
                              report([&] { entrance->report_progress(row.req_id, describe_file(*carriers, row)); });
                          },
                          [&](unsigned int req_id) { entrance->report_state(req_id); }});
    requests methods(*carriers);
    desk calls(methods);
    door clients(calls);
    entrance = &clients;
    inbox received(chosen, *carriers);
    const std::shared_ptr<void> at_the_end(nullptr, [&](void *) {
        is_stopping = true;
        clients.stop_accepting();
        received.stop();
        carriers->stop();
        calls.stop();
    });
    methods.finish_forgetting();
    carriers->start();
    calls.start();
    received.start();
    clients.start_accepting();
    printf("ready\n");
    fflush(stdout);
    if (!is_stopping) // a signal can have come before
        g_main_loop_run(loop.get());
    return EXIT_SUCCESS;
} catch (const std::exception &reason) {
    fprintf(stderr, "sharingd: %s\n", reason.what());
    return EXIT_FAILURE;
}
