/*
 * sharingd: the sharing service of one user.
 */
#include "command_line.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <glib-unix.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "service.h"

namespace fs = std::filesystem;
using namespace sharing;

constexpr char trace_file[] = "trace.log";
constexpr char last_trace_file[] = "trace.old.log";
constexpr off_t longest_trace = off_t{4} * 1024 * 1024;

/** Where complaints go; standard error itself becomes the trace. */
static int complaints = STDERR_FILENO;

/** Makes the state folder the working directory, with nobody else in it. */
static void enter(const std::string &state)
{
    require(fs::path(ZEL_APPS_ROOT).is_relative(), ZEL_ERR_STORAGE_INIT_FAILURE,
            "This build keeps its database below " ZEL_APPS_ROOT ", which an example must not touch; configure "
            "it with -DZEL_APPS_ROOT=apps/, as script/demo does.");
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
    fs::create_directories(fs::path(ZEL_APPS_ROOT) / "quillo.service" / "data");
}

/** Has the trace go to a new file. Other threads may be writing to it. */
static void begin_trace()
{
    rename(trace_file, last_trace_file);
    const int trace = open(trace_file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    require(trace >= 0 && dup2(trace, STDERR_FILENO) >= 0, ZEL_ERR_PERMISSION_DENIED,
            std::string(trace_file) + ": " + strerror(errno));
    close(trace);
}

/** Keeps the trace bounded: the file that is written and the one before it. */
static gboolean look_after_trace(void *)
{
    struct stat trace = {};
    if (fstat(STDERR_FILENO, &trace) == 0 && trace.st_size > longest_trace)
        begin_trace();
    return G_SOURCE_CONTINUE;
}

int main(int argc, char **argv)
try {
    settings chosen;
    std::string state = "sharing-state";
    double patience = 10;
    unsigned int retry_delay = 500;
    CLI::App app(
        "The sharing service: sends and receives files for the clients of one user, through a server. Says "
        "\"ready\" on standard output when clients can come, at a socket in the state folder; ends, with 0, on "
        "SIGINT or SIGTERM. May be killed at any moment: the next one goes on.");
    app.option_defaults()->always_capture_default();
    app.add_option("--state", state, "Folder for the database, the socket, received files and the trace")
        ->type_name("FOLDER");
    app.add_option("--server", chosen.server, "The URL of a tus server at which uploads are created")->type_name("URL");
    app.add_option("--number", chosen.number, "This device's own phone number, at which shares arrive");
    app.add_option("--chunk", chosen.chunk_size, "Bytes moved at once; 0: a thirty-second of the file, 64K to 4M")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->check(CLI::Range(size_t{0}, size_t{64} * 1024 * 1024).description(""));
    app.add_option("--timeout", patience, "How many seconds to wait for the server's answer")
        ->check(CLI::Range(0.1, 3600.0));
    app.add_option("--retry-delay", retry_delay, "Milliseconds before the first retry, doubled before each further one")
        ->check(CLI::Range(1, 60'000));
    read_command_line(app, argc, argv);
    chosen.patience = std::chrono::milliseconds(static_cast<long>(patience * 1000));
    chosen.retry_delay = std::chrono::milliseconds(retry_delay);

    std::signal(SIGPIPE, SIG_IGN);
    enter(state);
    complaints = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    begin_trace();
    must(_common_storage_init());
    const auto quit = [](void *loop) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop *>(loop));
        return G_SOURCE_CONTINUE;
    };
    const std::unique_ptr<GMainLoop, releaser<g_main_loop_unref>> loop(g_main_loop_new(nullptr, FALSE));
    g_unix_signal_add(SIGINT, quit, loop.get());
    g_unix_signal_add(SIGTERM, quit, loop.get());
    g_timeout_add(200, look_after_trace, nullptr);
    service sharing(chosen);
    sharing.start();
    printf("ready\n");
    fflush(stdout);
    g_main_loop_run(loop.get());
    return EXIT_SUCCESS;
} catch (const std::exception &reason) {
    dprintf(complaints, "sharingd: %s\n", reason.what());
    return EXIT_FAILURE;
}
