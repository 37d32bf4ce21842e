#include "http.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <glib-unix.h>
#include <microhttpd.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>

namespace sharing
{

constexpr long long least_speed = 1024; // bytes a second
constexpr int charges = 10;             // of the least speed, while a client is borne with
constexpr unsigned long long most_surplus = 64ULL * 1024 * 1024;
constexpr size_t buffer_size = 64UL * 1024;
constexpr rlim_t spare_descriptors = 32;

reply refuse(unsigned int status, const std::string &sentence)
{
    return {.status = status, .headers = {{"Content-Type", "text/plain; charset=utf-8"}}, .body = sentence + "\n"};
}

static std::string value_of(MHD_Connection *handle, MHD_ValueKind kind, const char *name)
{
    const char *value = MHD_lookup_connection_value(handle, kind, name);
    return value ? value : "";
}

std::string request::header(const char *name) const
{
    return value_of(handle, MHD_HEADER_KIND, name);
}

std::optional<guint64> request::number(const char *name) const
{
    guint64 number = 0;
    if (!g_ascii_string_to_unsigned(header(name).c_str(), 10, 0, G_MAXUINT64, &number, nullptr))
        return std::nullopt;
    return number;
}

std::string request::argument(const char *name) const
{
    return value_of(handle, MHD_GET_ARGUMENT_KIND, name);
}

std::unique_ptr<exchange> settled(connection &line, reply answer)
{
    struct known final : exchange {
        known(connection &line, reply answer) : exchange(line), answer_(std::move(answer)) {}
        std::optional<reply> answer() override
        {
            return std::move(answer_);
        }
        reply answer_;
    };
    return std::make_unique<known>(line, std::move(answer));
}

/* A connection ---------------------------------------------------------------------------------------------------- */

connection::connection(http_server &server, MHD_Connection *handle)
    : server_(server), handle_(handle),
      socket_(MHD_get_connection_info(handle, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd),
      credit_(server.full_credit_)
{
}

void connection::rest(milliseconds time)
{
    if (is_resting_ || is_let_go_)
        return;
    const auto end = [](void *self) -> gboolean {
        static_cast<connection *>(self)->timer_ = 0;
        static_cast<connection *>(self)->wake();
        return G_SOURCE_REMOVE;
    };
    is_resting_ = true;
    timer_ = g_timeout_add(static_cast<guint>(time.count()), end, this);
    MHD_suspend_connection(handle_);
}

void connection::wake()
{
    if (timer_ != 0)
        g_source_remove(std::exchange(timer_, 0));
    if (!std::exchange(is_resting_, false))
        return;
    MHD_resume_connection(handle_);
    server_.run_soon();
}

void connection::let_go()
{
    is_let_go_ = true;
    shutdown(socket_, SHUT_RDWR);
    wake();
}

/* The server ------------------------------------------------------------------------------------------------------ */

/** What the library calls. */
struct http_server::callbacks {
    static connection &line_of(MHD_Connection *handle)
    {
        return *static_cast<connection *>(
            MHD_get_connection_info(handle, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
    }

    static void come_or_go(void *self, MHD_Connection *handle, void **context, MHD_ConnectionNotificationCode what)
    {
        auto &server = *static_cast<http_server *>(self);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            *context = *server.connections_.insert(new connection(server, handle)).first;
        } else {
            auto *line = static_cast<connection *>(*context);
            server.connections_.erase(line);
            delete line;
        }
    }

    static MHD_Result advance(void *self, MHD_Connection *handle, const char *url, const char *method, const char *,
                              const char *piece, size_t *size, void **context)
    {
        connection &line = line_of(handle);
        const bool is_new = std::exchange(*context, &line) == nullptr;
        const int goes_on = static_cast<http_server *>(self)->advance(line, is_new, {handle, method, url}, piece, size);
        return goes_on != 0 ? MHD_YES : MHD_NO;
    }

    static void end(void *, MHD_Connection *handle, void **, MHD_RequestTerminationCode)
    {
        connection &line = line_of(handle);
        line.current_.reset();
        line.credit_ = line.server_.full_credit_;
    }
};

http_server::http_server(guint16 port, milliseconds patience, unsigned long long rate, header_list headers,
                         handler handle)
    : rate_(rate), headers_(std::move(headers)), handle_(std::move(handle)),
      full_credit_(least_speed * patience.count() / 1000)
{
    rlimit files = {};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::clamp<rlim_t>(files.rlim_max, 2 * spare_descriptors, 65536);
    setrlimit(RLIMIT_NOFILE, &files);

    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, port, nullptr, nullptr, &callbacks::advance, this,
        MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_NOTIFY_CONNECTION, &callbacks::come_or_go, this,
        MHD_OPTION_NOTIFY_COMPLETED, &callbacks::end, this, MHD_OPTION_CONNECTION_MEMORY_LIMIT, buffer_size,
        MHD_OPTION_CONNECTION_LIMIT, // each may have a file open
        static_cast<unsigned int>((files.rlim_cur - spare_descriptors) / 2), MHD_OPTION_LISTEN_BACKLOG_SIZE,
        static_cast<unsigned int>(SOMAXCONN), MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_END);
    if (!daemon_)
        throw std::runtime_error("The port is taken; --port names another.");

    const auto serve = [](int, GIOCondition, void *self) -> gboolean {
        static_cast<http_server *>(self)->run();
        return G_SOURCE_CONTINUE;
    };
    const auto look = [](void *self) -> gboolean {
        static_cast<http_server *>(self)->charge();
        return G_SOURCE_CONTINUE;
    };
    watch_ = g_unix_fd_add(MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, G_IO_IN, serve, this);
    clock_ = g_timeout_add(static_cast<guint>(patience.count() / charges), look, this);
}

http_server::~http_server()
{
    for (connection *line : connections_)
        line->wake(); // the library stops only when nothing is suspended
    for (const guint source : {watch_, clock_, soon_})
        if (source != 0)
            g_source_remove(source);
    MHD_stop_daemon(daemon_);
}

guint16 http_server::port() const
{
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
}

void http_server::run()
{
    MHD_run(daemon_);
    MHD_UNSIGNED_LONG_LONG time = 0;
    if (MHD_get_timeout(daemon_, &time) == MHD_YES && time == 0)
        run_soon();
}

void http_server::run_soon()
{
    const auto serve = [](void *self) -> gboolean {
        static_cast<http_server *>(self)->soon_ = 0;
        static_cast<http_server *>(self)->run();
        return G_SOURCE_REMOVE;
    };
    if (soon_ == 0)
        soon_ = g_idle_add_full(G_PRIORITY_DEFAULT, serve, this, nullptr);
}

/** Closes the connections whose clients have been too slow for too long. */
void http_server::charge()
{
    for (connection *line : connections_)
        if (!line->is_resting_ && (line->credit_ -= full_credit_ / charges) < 0)
            line->let_go();
}

/** Counts bytes that came or went, and keeps them to the rate. */
void http_server::let_pass(connection &line, size_t bytes)
{
    line.credit_ = std::min(line.credit_ + static_cast<long long>(bytes), full_credit_);
    const milliseconds time(rate_ > 0 ? bytes * 1000 / rate_ : 0);
    if (time.count() > 0)
        line.rest(time);
}

/** Hands a reply to the library. */
int http_server::queue(connection &line, reply answer)
{
    struct sending {
        connection &line;
        descriptor file;
        unsigned long long from;
    };
    MHD_Response *response = nullptr;
    if (answer.file.get() >= 0) {
        const auto give = [](void *of, uint64_t position, char *into, size_t size) -> ssize_t {
            const auto &[line, file, from] = *static_cast<sending *>(of);
            const ssize_t count = pread(file.get(), into, size, static_cast<off_t>(from + position));
            if (count <= 0)
                return MHD_CONTENT_READER_END_WITH_ERROR;
            line.server_.let_pass(line, static_cast<size_t>(count));
            return count;
        };
        response = MHD_create_response_from_callback(answer.count, buffer_size, give,
                                                     new sending{line, std::move(answer.file), answer.from},
                                                     [](void *of) { delete static_cast<sending *>(of); });
    } else {
        response = MHD_create_response_from_buffer(answer.body.size(), answer.body.data(), MHD_RESPMEM_MUST_COPY);
    }
    for (const header_list *list : {&headers_, static_cast<const header_list *>(&answer.headers)})
        for (const auto &[name, value] : *list)
            MHD_add_response_header(response, name, value.c_str());
    const int is_queued = MHD_queue_response(line.handle_, answer.status, response);
    MHD_destroy_response(response);
    return is_queued;
}

/** Goes on with a request: its headers are new, or a piece of its body has come, or it is whole. 0 breaks it off. */
int http_server::advance(connection &line, bool is_new, const request &asked, const char *piece, size_t *size)
try {
    if (line.is_let_go_)
        return 0;
    if (is_new) {
        line.surplus_ = 0;
        line.current_ = handle_(asked, line);
        // A reply that comes before the body closes the connection, so a small body is read first.
        const bool is_large = asked.number("Content-Length").value_or(0) > most_surplus;
        if (line.current_->wants_body() || (!is_large && asked.header("Expect").empty()))
            return 1;
    }
    if (*size > 0) {
        if (line.current_->wants_body())
            line.current_->take({piece, *size});
        else if ((line.surplus_ += *size) > most_surplus)
            return 0;
        let_pass(line, std::exchange(*size, 0));
        return 1;
    }
    auto answer = line.current_->answer();
    return !answer || queue(line, std::move(*answer));
} catch (const std::exception &reason) {
    fprintf(stderr, "sharing-server: %s\n", reason.what()); // which is no business of the client's
    reply answer = refuse(500, "The server failed; its operator sees why.");
    if (!is_new && *size == 0)
        return queue(line, std::move(answer));
    *size = 0;
    line.current_ = settled(line, std::move(answer));
    return 1;
}

} // namespace sharing
