/*
 * sharing-server: stands in for the operator's server.
 */
#include "options.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <glib-unix.h>
#include <limits>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>

#include "shares.h"

using namespace sharing;

namespace
{

/** The numbers of a list with commas. */
std::set<int> numbers_of(const char *option, const char *list)
{
    std::set<int> numbers;
    g_auto(GStrv) parts = g_strsplit(list ? list : "", ",", -1);
    for (char **part = parts; *part; ++part) {
        guint64 number = 0;
        if (!g_ascii_string_to_unsigned(*part, 10, 1, G_MAXINT, &number, nullptr))
            reject_command_line(std::string(option) + " takes numbers with commas, not '" + list + "'");
        numbers.insert(static_cast<int>(number));
    }
    return numbers;
}

milliseconds time_of(const char *option, double seconds)
{
    if (!(seconds >= 0.1 && seconds <= 1e6))
        reject_command_line(std::string(option) + " takes seconds, from 0.1 to a million");
    return milliseconds(static_cast<gint64>(seconds * 1000));
}

/** Makes the folder the server's alone. */
descriptor lock(const fs::path &folder)
{
    umask(077);
    fs::create_directories(folder);
    descriptor held(open((folder / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (flock(held.get(), LOCK_EX | LOCK_NB) != 0)
        throw std::runtime_error(folder.string() + ": another server is at work there, or you may not write there.");
    return held;
}

/** What is in the folder. */
struct kept_files {
    explicit kept_files(const settings &chosen) : files(chosen), messages(chosen, files) {}
    void sweep() const
    try {
        files.sweep();
        messages.sweep();
    } catch (const std::exception &reason) {
        fprintf(stderr, "sharing-server: %s\n", reason.what());
    }
    uploads files;
    shares messages;
};

} // namespace

int main(int argc, char **argv)
try {
    g_autofree char *folder = nullptr;
    int port = 8420;
    g_autofree char *largest = nullptr;
    g_autofree char *rate = nullptr;
    double timeout = 10;
    double long_poll = 20;
    double lifetime = 48.0 * 60 * 60;
    g_autofree char *refusals = nullptr;
    g_autofree char *cuts = nullptr;
    g_autofree char *hangs = nullptr;
    const GOptionEntry entries[] = {
        {"folder", 0, 0, G_OPTION_ARG_FILENAME, &folder, "Where the files are kept (sharing-server-files)", "FOLDER"},
        {"port", 0, 0, G_OPTION_ARG_INT, &port, "Port to listen at (8420); 0 picks a free one", "PORT"},
        {"max-size", 0, 0, G_OPTION_ARG_STRING, &largest, "Largest file that is taken (2 GiB less a byte)", "SIZE"},
        {"rate", 0, 0, G_OPTION_ARG_STRING, &rate,
         "Bytes a second that each connection takes and gives, to watch them (0: as many as it can)", "SIZE"},
        {"timeout", 0, 0, G_OPTION_ARG_DOUBLE, &timeout,
         "Close a connection after so long in its headers, or below 1 KiB a second (10)", "SECONDS"},
        {"long-poll", 0, 0, G_OPTION_ARG_DOUBLE, &long_poll, "How long a device waits for a push message (20)",
         "SECONDS"},
        {"lifetime", 0, 0, G_OPTION_ARG_DOUBLE, &lifetime,
         "How long uploads and shares last (172800, which is 48 hours)", "SECONDS"},
        {"refuse", 0, 0, G_OPTION_ARG_STRING, &refusals, "Staged: answer 503 to the N-th chunk of each upload",
         "N[,N...]"},
        {"cut", 0, 0, G_OPTION_ARG_STRING, &cuts, "Staged: close the connection after half of the N-th chunk",
         "N[,N...]"},
        {"hang", 0, 0, G_OPTION_ARG_STRING, &hangs, "Staged: do not answer to the N-th chunk", "N[,N...]"},
        {}};
    read_options(
        nullptr,
        "Takes files by the tus 1.0.0 upload protocol at http://127.0.0.1:PORT/files, makes shares of them and\n"
        "reports them to the devices of their recipients. Writes its URL to standard output. Ends with 0 on\n"
        "SIGINT or SIGTERM. May be killed at any moment: what arrived has arrived.",
        entries, argc, argv);
    if (port < 0 || port > G_MAXUINT16)
        reject_command_line("--port takes a number from 0 to 65535");
    settings chosen;
    chosen.folder = folder ? folder : chosen.folder;
    chosen.largest = bytes_of("--max-size", largest, chosen.largest, 1, std::numeric_limits<unsigned int>::max());
    chosen.lifetime = time_of("--lifetime", lifetime);
    chosen.long_poll = time_of("--long-poll", long_poll);
    chosen.refusals = numbers_of("--refuse", refusals);
    chosen.cuts = numbers_of("--cut", cuts);
    chosen.hangs = numbers_of("--hang", hangs);

    std::signal(SIGPIPE, SIG_IGN);
    const descriptor lock_holder = lock(chosen.folder);
    kept_files kept(chosen);
    kept.messages.complete_plans();
    kept.sweep();

    const auto open_exchange = [&](const request &asked, connection &line) {
        auto made = kept.files.open(asked, line);
        if (!made)
            made = kept.messages.open(asked, line);
        return made ? std::move(made) : settled(line, refuse(404, "There is nothing at this path."));
    };
    const http_server http(static_cast<guint16>(port), time_of("--timeout", timeout),
                           bytes_of("--rate", rate, 0, 0, G_MAXUINT32),
                           {{"Tus-Resumable", tus_version},
                            {"Tus-Version", tus_version},
                            {"Tus-Extension", "creation,expiration"},
                            {"Tus-Max-Size", std::to_string(chosen.largest)},
                            {"Sharing-Extension", "shares,push"}, // our service sees that there is more than tus
                            {"Cache-Control", "no-store"}},
                           open_exchange);
    printf("http://127.0.0.1:%d/files\n", http.port());
    fflush(stdout);

    const std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop(g_main_loop_new(nullptr, FALSE),
                                                                        g_main_loop_unref);
    const auto quit = [](void *of) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop *>(of));
        return G_SOURCE_CONTINUE;
    };
    const auto sweep = [](void *of) -> gboolean {
        static_cast<kept_files *>(of)->sweep();
        return G_SOURCE_CONTINUE;
    };
    g_unix_signal_add(SIGINT, quit, loop.get());
    g_unix_signal_add(SIGTERM, quit, loop.get());
    const milliseconds pause = std::clamp(chosen.lifetime / 4, milliseconds(100), milliseconds(600'000));
    g_timeout_add(static_cast<guint>(pause.count()), sweep, &kept);
    g_main_loop_run(loop.get());
    return EXIT_SUCCESS;
} catch (const std::exception &reason) {
    fprintf(stderr, "sharing-server: %s\n", reason.what());
    return EXIT_FAILURE;
}
