/*
 * HTTP, as the other parts of the server see it: a request whose body arrives in pieces, a reply that may wait, and a
 * connection that is closed when its client stalls. Everything runs on one thread, in GLib's main loop, so nothing
 * needs a lock and a client that waits costs a descriptor only.
 */
#ifndef SHARING_SERVER_HTTP_H
#define SHARING_SERVER_HTTP_H

#include <chrono>
#include <functional>
#include <glib.h>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

struct MHD_Connection;
struct MHD_Daemon;

namespace sharing
{

using std::chrono::milliseconds;

/** A file descriptor, closed with its holder. */
class descriptor
{
  public:
    explicit descriptor(int number = -1) : number_(number) {}
    descriptor(descriptor &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    ~descriptor()
    {
        if (number_ >= 0)
            close(number_);
    }
    int get() const
    {
        return number_;
    }

  private:
    int number_;
};

using header_list = std::vector<std::pair<const char *, std::string>>;

struct reply {
    unsigned int status = 200;
    header_list headers = {};
    std::string body = {};
    descriptor file{}; /**< if it is open, the reply has count bytes of it instead of body */
    unsigned long long from = 0;
    unsigned long long count = 0;
};

/** A reply that says in a sentence why the request is refused. */
reply refuse(unsigned int status, const std::string &sentence);

/** A request line and its headers; valid while the exchange is made. */
struct request {
    MHD_Connection *handle;
    std::string method;
    std::string path;

    /** A header; empty when it is absent. */
    std::string header(const char *name) const;
    /** A header that is a decimal number; absent when it is anything else. */
    std::optional<guint64> number(const char *name) const;
    /** An argument of the query; empty when it is absent. */
    std::string argument(const char *name) const;
};

/** A client's connection. */
class connection
{
  public:
    /** Suspends the connection: nothing is read from it or sent to it until then, or until it is woken. */
    void rest(milliseconds time);
    void wake();
    /** Closes the connection without a reply. */
    void let_go();

  private:
    friend class http_server;
    connection(class http_server &server, MHD_Connection *handle);

    http_server &server_;
    MHD_Connection *const handle_;
    const int socket_;
    std::unique_ptr<class exchange> current_;
    unsigned long long surplus_ = 0; /**< bytes of the body that nobody wants */
    long long credit_;               /**< bytes by which the client may still fall short of the least speed */
    guint timer_ = 0;                /**< ends a rest */
    bool is_resting_ = false;
    bool is_let_go_ = false;
};

/** A request and its reply; released when the reply is through or the connection is gone. */
class exchange
{
  public:
    explicit exchange(connection &line) : line_(line) {}
    exchange(const exchange &) = delete;
    virtual ~exchange() = default;

    /** Whether the rest of the body is of use; if not, it is dropped. */
    virtual bool wants_body() const
    {
        return false;
    }
    virtual void take(std::string_view) {}

    /** The reply to the whole request. Without one, the connection rests, and this is asked again afterwards. */
    virtual std::optional<reply> answer() = 0;

  protected:
    connection &line_;
};

/** A request that needs nothing but its headers. */
std::unique_ptr<exchange> settled(connection &line, reply answer);

class http_server
{
  public:
    using handler = std::function<std::unique_ptr<exchange>(const request &, connection &)>;

    /**
     * Listens at the loopback interface; throws when the port is taken.
     *
     * @param port     0 picks a free one
     * @param patience how long a client may send its headers, or stay below 1 KiB a second
     * @param rate     bytes a second that each connection takes and gives; 0: as many as it can
     * @param headers  sent with every reply
     * @param handle   makes the exchange of a request
     */
    http_server(guint16 port, milliseconds patience, unsigned long long rate, header_list headers, handler handle);
    http_server(const http_server &) = delete;
    ~http_server();

    guint16 port() const;

  private:
    friend class connection;
    struct callbacks;

    void run();
    void run_soon();
    void charge();
    void let_pass(connection &line, size_t bytes);
    int queue(connection &line, reply answer);
    int advance(connection &line, bool is_new, const request &asked, const char *piece, size_t *size);

    const unsigned long long rate_;
    const header_list headers_;
    const handler handle_;
    const long long full_credit_;
    MHD_Daemon *daemon_ = nullptr;
    std::set<connection *> connections_;
    guint watch_ = 0;
    guint clock_ = 0;
    guint soon_ = 0;
};

} // namespace sharing

#endif
