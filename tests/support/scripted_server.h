// A loopback HTTP peer that plays a script and records what it receives.
//
//     scripted::Server srv;
//     srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi").close();
//     srv.start();
//     ... the library talks to srv.url("/a.bin") or srv.connect_client() ...
//     srv.wait();
//     EXPECT_EQ(srv.request(), "GET /a.bin HTTP/1.1\r\n...");
//
// Steps run in order on one connection; next_connection() makes the
// following steps apply to the next accepted connection. When the script
// ends the connection is closed. Waits inside steps end early when the
// server is destroyed, so a stalled script never holds a test up.
#ifndef HTTP_UTIL_TESTS_SCRIPTED_SERVER_H
#define HTTP_UTIL_TESTS_SCRIPTED_SERVER_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace scripted {

enum class Family { IPv4, IPv6 };

using std::chrono::milliseconds;

class Server {
public:
    explicit Server(Family family = Family::IPv4);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    uint16_t port() const { return port_; }
    std::string host() const;                        // "127.0.0.1" or "::1"
    std::string url(const std::string &path = "/") const;  // http://host:port/path
    sockaddr_storage address() const;                // the listening address

    // ---- script steps (before start) ----
    Server &read_request();           // a request head and its Content-Length body
    Server &read_bytes(size_t n);     // exactly n bytes (fewer if the peer closes)
    Server &read_until_close();       // everything until the peer closes
    Server &send(const std::string &bytes);
    Server &pause(milliseconds d);    // wait before the next step
    Server &stall(milliseconds d);    // neither read nor write for a while
    // Holds the script until ready() is true (checked every millisecond on
    // the server's thread), e.g. until the client has taken the bytes sent
    // so far, so that the next send is seen separately.
    Server &wait_until(std::function<bool()> ready);
    // Holds the script until the client end of the connection (a socket of
    // this process) has taken every byte sent on it so far, or is closed:
    // the next send is then seen on its own.
    Server &taken();
    Server &half_close();             // shutdown(SHUT_WR): the peer reads EOF
    Server &close();                  // close the connection
    Server &reset();                  // close with a TCP reset
    Server &next_connection();        // following steps: the next connection
    // A small receive buffer, so that a client's writes block soon when the
    // script stalls (set before start).
    Server &small_receive_buffer();

    void start();

    // A connected client socket (non-blocking unless asked), for tests that
    // hand a descriptor to a reader directly. Needs start() first.
    int connect_client(bool nonblock = true);

    // Waits until the script has run to its end (limit: 60 s); false on time-out.
    bool wait();

    // What connection conn received (so far).
    std::string request(size_t conn = 0) const;
    size_t connections() const;

private:
    enum class Kind { ReadRequest, ReadBytes, ReadUntilClose, Send, Pause, WaitUntil, Taken, HalfClose,
                      Close, Reset, NextConnection };
    struct Step {
        Kind kind;
        std::string bytes;
        size_t count = 0;
        milliseconds delay{0};
        std::function<bool()> ready = {};
    };

    void run();
    bool sleep_for(milliseconds d);  // false when stopping
    int accept_one();
    bool read_some(int fd, size_t conn, size_t want);
    void append(size_t conn, const char *data, size_t n);
    std::string received(size_t conn) const;

    Family family_;
    int listen_fd_ = -1;
    int stop_pipe_[2] = {-1, -1};
    uint16_t port_ = 0;
    bool small_rcvbuf_ = false;
    std::vector<Step> steps_;
    std::thread thread_;

    mutable std::mutex m_;
    std::condition_variable cv_;
    bool done_ = false;
    std::vector<std::string> received_;
};

// A loopback port with nothing listening on it (connections are refused).
uint16_t unused_port();

// True once the connected socket fd, this process's end of a loopback
// connection, has received n bytes and holds none of them unread.
bool taken_off(int fd, size_t n);

// The socket of this process at the other end of the loopback connection
// fd, or -1.
int local_peer_of(int fd);

}  // namespace scripted

#endif
