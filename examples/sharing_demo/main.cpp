/*
 * The sharing service demo: sends files through the library to a stand-in server and gets them back as a received
 * share. This file holds the command line, the state folder and the order of events.
 */
#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "client.h"
#include "console.h"
#include "server.h"
#include "service.h"

namespace fs = std::filesystem;
using namespace demo;

namespace
{

struct options {
    std::vector<std::string> files;
    std::vector<std::string> recipients = {"44:7700900123", "1:2025550123"};
    std::string state = "demo-state";
    size_t chunk_size = size_t{32} * 1024;
    bool kills = false;
    bool forgets = false;
    bool starts_over = false;
};

/** Where complaints go; standard error itself becomes the trace. */
int complaints = STDERR_FILENO;

constexpr char lock_file[] = "sharing_demo.lock";
constexpr char server_folder[] = "server";
constexpr char packed_sources[] = "sources.tar";
constexpr char trace_file[] = "trace.log";
constexpr char last_trace_file[] = "trace.old.log";

/** Packs the project's sources, so that there is a file that nobody has at hand. */
std::string pack_sources()
{
    std::string path = fs::current_path() / packed_sources;
    const char *arguments[] = {"tar", "-cf",      path.c_str(), "-C",   DEMO_SOURCE_DIR,
                               "src", "platform", "examples",   nullptr};
    pid_t tar = 0;
    int status = 0;
    if (posix_spawnp(&tar, arguments[0], nullptr, nullptr, const_cast<char **>(arguments), environ) != 0 ||
        waitpid(tar, &status, 0) != tar || status != 0)
        throw failure(ZEL_ERR_INVALID_FILE, "The sources could not be packed; name FILEs to send instead.");
    return path;
}

/** What is sent when no FILE is named: the built library, the sources in one file, and the documents and headers. */
std::vector<std::string> files_of_the_project()
{
    std::vector<std::string> small = {DEMO_SOURCE_DIR "/README.md"};
    for (const char *folder : {DEMO_SOURCE_DIR "/docs", DEMO_SOURCE_DIR "/src"})
        for (const auto &entry : fs::directory_iterator(folder))
            if (entry.path().extension() == ".md" || entry.path().extension() == ".h")
                small.push_back(entry.path());
    std::erase_if(small, [](const std::string &path) { return !fs::is_regular_file(path); });
    std::ranges::sort(small);
    std::vector<std::string> files = {pack_sources(), DEMO_LIBRARY};
    files.insert(files.end(), small.begin(), small.end());
    return files;
}

/** Makes the state folder the working directory, alone in it, with the library's trace going to a file in it. */
void enter_state_folder(options &chosen)
{
    if (fs::path(ZEL_APPS_ROOT).is_absolute())
        throw failure(ZEL_ERR_STORAGE_INIT_FAILURE,
                      "This build keeps its database below " ZEL_APPS_ROOT ", which a demo must not touch; configure "
                      "it with -DZEL_APPS_ROOT=apps/, as script/demo does.");
    for (std::string &file : chosen.files)
        file = fs::absolute(file);
    fs::create_directories(chosen.state);
    fs::current_path(chosen.state);

    const bool is_known = fs::exists(lock_file);
    const int lock = open(lock_file, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0)
        throw failure(ZEL_ERR_PERMISSION_DENIED,
                      chosen.state + ": another demo is at work there, or you may not write there.");
    if (chosen.starts_over && is_known) // or it would be somebody else's folder
        for (const char *entry :
             {ZEL_APPS_ROOT, server_folder, "received", packed_sources, last_trace_file, trace_file})
            fs::remove_all(entry);
    fs::create_directories(fs::path(ZEL_APPS_ROOT) / "quillo.service" / "data");
    fs::create_directories(server_folder);
    fs::create_directories("received/thumbnails");

    std::error_code there_is_none;
    fs::rename(trace_file, last_trace_file, there_is_none);
    const int trace = open(trace_file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    complaints = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (trace < 0 || complaints < 0 || dup2(trace, STDERR_FILENO) < 0)
        throw failure(ZEL_ERR_PERMISSION_DENIED, std::string(trace_file) + ": " + strerror(errno));
    close(trace);
}

/** The whole story; returns whether every byte arrived. */
bool run(const options &chosen, console &out)
{
    must(_common_storage_init());
    server remote(fs::current_path() / server_folder);
    service sharing(remote, fs::current_path() / "received", chosen.chunk_size, chosen.kills);

    const std::vector<unsigned int> unfinished = unfinished_uploads();
    for (const unsigned int req_id : unfinished)
        show_unfinished(req_id, remote, out);
    if (!unfinished.empty())
        out.say("Going on from there.");
    sharing.start();

    bool has_arrived = true;
    std::exception_ptr problem;
    std::thread application([&] {
        try {
            client me(sharing, remote, out);
            for (const unsigned int req_id : unfinished)
                has_arrived = me.see_through(req_id) && has_arrived;
            if (unfinished.empty() || !chosen.files.empty()) {
                const auto files = chosen.files.empty() ? files_of_the_project() : chosen.files;
                has_arrived = me.see_through(me.upload(files, chosen.recipients)) && has_arrived;
            }
            me.list_received_shares();
            me.list_recent_groups();
            if (chosen.forgets)
                me.forget();
        } catch (...) {
            problem = std::current_exception();
        }
    });
    application.join();
    if (problem)
        std::rethrow_exception(problem);
    return has_arrived;
}

/** Runs the service in a process of its own, which dies on the way, and says what it left behind. */
bool run_and_kill(const options &chosen, console &out)
{
    const pid_t child = fork();
    if (child < 0)
        throw failure(ZEL_ERR_THREAD, std::string("No process for the service: ") + strerror(errno));
    if (child == 0) {
        bool has_arrived = false;
        try {
            has_arrived = run(chosen, out);
        } catch (const std::exception &reason) {
            dprintf(complaints, "%s\n", reason.what());
        }
        _exit(has_arrived ? EXIT_SUCCESS : EXIT_FAILURE);
    }

    int status = 0;
    if (waitpid(child, &status, 0) != child)
        throw failure(ZEL_ERR_THREAD, std::string("The service's process got lost: ") + strerror(errno));
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
        if (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS)
            out.say("\nThe service was not killed: that takes a file of four chunks or more; see --chunk.");
        return false;
    }
    out.say("\nThe service's process %d was killed (SIGKILL) in the middle of a file, after the server had taken a "
            "chunk and before the store knew of it.",
            static_cast<int>(child));
    must(_common_storage_init());
    server remote(fs::current_path() / server_folder);
    for (const unsigned int req_id : unfinished_uploads())
        show_unfinished(req_id, remote, out);
    out.say("Run the demo again, and it goes on from there.");
    return true;
}

/** What the command line accepts as a recipient; empty when it does. */
std::string complaint_about_recipient(const std::string &text)
{
    const size_t colon = text.find_first_not_of("0123456789");
    const bool is_one = colon != std::string::npos && colon > 0 && text[colon] == ':' && colon + 1 < text.size() &&
                        text.find_first_not_of("0123456789", colon + 1) == std::string::npos;
    return is_one ? "" : "not of the form COUNTRY-CODE:NUMBER, like 44:7700900123: " + text;
}

} // namespace

int main(int argc, char **argv)
try {
    options chosen;
    CLI::App app("Sends FILEs to two people through the sharing library and a stand-in server, and gets them back as "
                 "a received share; without a FILE, some files of the project. Uploads that an earlier run left "
                 "unfinished are finished first. Exits with 0 only when every byte arrived.");
    app.add_option("FILE", chosen.files, "Files to send")->type_name("");
    app.add_option("--recipients", chosen.recipients, "Whom to send to; several with commas")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(complaint_about_recipient)
        ->type_name("COUNTRY-CODE:NUMBER")
        ->default_str("44:7700900123,1:2025550123");
    app.add_option("--state", chosen.state,
                   "Folder for the database, the server's files, the received files, the trace")
        ->type_name("FOLDER")
        ->capture_default_str();
    app.add_option("--chunk", chosen.chunk_size, "Bytes sent at once; 64K and 1M are understood")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->check(CLI::Range(size_t{1}, size_t{64} * 1024 * 1024).description(""))
        ->type_name("BYTES")
        ->default_str("32K");
    app.add_flag("--kill", chosen.kills, "Kill the service in the middle of a file; run again to see it go on");
    app.add_flag("--forget", chosen.forgets, "At the end, wipe the user's data and show what survives");
    app.add_flag("--fresh", chosen.starts_over, "Begin with an empty state folder");
    CLI11_PARSE(app, argc, argv);

    enter_state_folder(chosen);
    console out;
    out.say("State folder %s; the library's trace goes to %s in it.", fs::current_path().c_str(), trace_file);
    const bool is_well = chosen.kills ? run_and_kill(chosen, out) : run(chosen, out);
    return is_well ? EXIT_SUCCESS : EXIT_FAILURE;
} catch (const std::exception &reason) {
    dprintf(complaints, "%s\n", reason.what());
    return EXIT_FAILURE;
}
