/*
 * sharing-server: stands in for the operator's server.
 */
#include "command_line.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

#include "shares.h"

using namespace sharing;

int main(int argc, char **argv)
try {
    std::string folder = "sharing-server-files";
    int port = 8420;
    tus_settings settings;
    CLI::App app(
        "Takes files by the tus 1.0.0 upload protocol at http://127.0.0.1:PORT/files, makes shares of them and "
        "tells the devices of their recipients. Says on standard output where it listens; ends, with 0, on "
        "SIGINT or SIGTERM. May be killed at any moment: what arrived has arrived.");
    app.add_option("--folder", folder, "Where the files are kept")->capture_default_str()->type_name("FOLDER");
    app.add_option("--port", port, "Port to listen at; 0 picks a free one")
        ->capture_default_str()
        ->check(CLI::Range(0, 65535));
    app.add_option("--max-size", settings.largest, "Largest file that is taken")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->type_name("BYTES")
        ->default_str("2 GiB less a byte");
    app.add_option("--rate", settings.rate, "Bytes a second that each connection takes, so that one can watch; 0: all")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->type_name("BYTES");
    app.add_option(
           "--stage", settings.failures,
           "Failures to be staged, with commas: 503@2 (or another status), cut@5 or hang@7 happens at the "
           "second, fifth, seventh chunk that comes in of each file; cut breaks the connection after half of it")
        ->delimiter(',')
        ->check([](const std::string &failure) {
            return g_regex_match_simple("^([1-9][0-9]{2}|cut|hang)@[0-9]+$", failure.c_str(), {}, {})
                       ? ""
                       : "not of the form WHAT@N: " + failure;
        })
        ->type_name("WHAT@N");
    read_command_line(app, argc, argv);

    umask(077);
    std::filesystem::create_directories(folder);
    const int lock = open((folder + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0)
        throw std::runtime_error(folder + ": another server is at work there, or you may not write there.");

    uploads all(std::filesystem::path(folder) / "uploads");
    tus protocol(all, settings);
    shares more(folder, all, protocol);
    httplib::Server server;
    protocol.attach(server);
    more.attach(server);
    server.set_payload_max_length(static_cast<size_t>(settings.largest));
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(1'000'000);
    server.set_keep_alive_timeout(1); // a stop waits for connections that are idle
    server.new_task_queue = [] { return new httplib::ThreadPool(32); };

    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    if (port == 0)
        port = server.bind_to_any_port("127.0.0.1");
    else if (!server.bind_to_port("127.0.0.1", port))
        port = -1;
    if (port < 0)
        throw std::runtime_error("The port is taken; --port names another.");
    std::thread listener([&] { server.listen_after_bind(); });
    printf("http://127.0.0.1:%d/files\n", port);
    fflush(stdout);

    int signal = 0;
    sigwait(&ends, &signal);
    protocol.stop();
    more.stop();
    while (!server.is_running()) // a stop that comes before the start would be lost
        std::this_thread::yield();
    server.stop();
    listener.join();
    return EXIT_SUCCESS;
} catch (const std::exception &reason) {
    fprintf(stderr, "sharing-server: %s\n", reason.what());
    return EXIT_FAILURE;
}
