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
    state server;
    int port = 8420;
    CLI::App app(
        "Takes files by the tus 1.0.0 upload protocol at http://127.0.0.1:PORT/files, makes shares of them and "
        "tells the devices of their recipients. Says on standard output where it listens; ends, with 0, on "
        "SIGINT or SIGTERM. May be killed at any moment: what arrived has arrived.");
    app.option_defaults()->always_capture_default();
    app.add_option("--folder", server.folder, "Where the files are kept")->type_name("FOLDER");
    app.add_option("--port", port, "Port to listen at; 0 picks a free one")->check(CLI::Range(0, 65535));
    app.add_option("--max-size", server.largest, "Largest file that is taken")->transform(CLI::AsSizeValue(false));
    app.add_option("--rate", server.rate, "Bytes a second that each connection takes, so that one can watch; 0: all")
        ->transform(CLI::AsSizeValue(false));
    const std::string which = " chunk that comes in of each file; several with commas";
    app.add_option("--refuse", server.refusals, "Staged: answers 503 to the N-th" + which)->delimiter(',');
    app.add_option("--cut", server.cuts, "Staged: breaks the connection after half of the N-th" + which)
        ->delimiter(',');
    app.add_option("--hang", server.hangs, "Staged: does not answer to the N-th" + which)->delimiter(',');
    read_command_line(app, argc, argv);

    umask(077);
    std::filesystem::create_directories(server.folder);
    const int lock = open((server.folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0)
        throw std::runtime_error(server.folder.string() +
                                 ": another server is at work there, or you may not write there.");

    httplib::Server http;
    attach_tus(http, server);
    attach_shares(http, server);
    http.set_payload_max_length(static_cast<size_t>(server.largest));
    http.set_tcp_nodelay(true);
    http.set_socket_options([](int socket) { // by itself the library would let two servers have one port
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    http.set_keep_alive_max_count(1'000'000);
    http.set_keep_alive_timeout(1); // a stop waits for connections that are idle
    http.new_task_queue = [] { return new httplib::ThreadPool(32); };

    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    if (port == 0)
        port = http.bind_to_any_port("127.0.0.1");
    else if (!http.bind_to_port("127.0.0.1", port))
        throw std::runtime_error("The port is taken; --port names another.");
    std::thread listener([&] { http.listen_after_bind(); });
    printf("http://127.0.0.1:%d/files\n", port);
    fflush(stdout);

    int signal = 0;
    sigwait(&ends, &signal);
    server.ending.request_stop();
    while (!http.is_running()) // a stop that comes before the start would be lost
        std::this_thread::yield();
    http.stop();
    listener.join();
    return EXIT_SUCCESS;
} catch (const std::exception &reason) {
    fprintf(stderr, "sharing-server: %s\n", reason.what());
    return EXIT_FAILURE;
}
