// A loopback HTTP peer that plays a script of steps, in order, and records
// what it receives. next_connection() moves on to the next connection. Waits
// inside steps end when the server is destroyed.
#ifndef HTTP_UTIL_TESTS_SCRIPTED_SERVER_H
#define HTTP_UTIL_TESTS_SCRIPTED_SERVER_H

#include <netinet/in.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace scripted {

enum class Family { IPv4, IPv6 };

class Server {
public:
    explicit Server(Family family = Family::IPv4);
    ~Server();

    uint16_t port() const { return port_; }
    std::string url(const std::string &path = "/") const;  // http://host:port/path
    sockaddr_storage address() const;                       // the listening address

    // Script steps, before start(). read_request: a head and its Content-Length body.
    Server &read_request() { return add(Kind::ReadRequest); }
    Server &read_until_close() { return add(Kind::ReadUntilClose); }
    Server &send(const std::string &bytes) { return add(Kind::Send, bytes); }
    Server &wait_until(std::function<bool()> ready) { return add(Kind::WaitUntil, "", std::move(ready)); }
    // Holds until the client end (a socket of this process) has taken every
    // byte sent so far, or is closed: the next send is seen alone.
    Server &taken() { return add(Kind::Taken); }
    Server &close() { return add(Kind::Close); }
    Server &reset() { return add(Kind::Reset); }  // a close with a TCP reset
    Server &next_connection() { return add(Kind::Next); }

    void start();
    int connect_client();  // a connected non-blocking client socket, after start()
    bool wait();  // until the script has run to its end (limit: 10 s); false on time-out
    // What connection conn received (so far), and its client's address.
    std::string request(size_t conn = 0) const { return at(received_, conn); }
    std::string peer(size_t conn = 0) const { return at(peers_, conn); }
    size_t connections() const;

private:
    enum class Kind { ReadRequest, ReadUntilClose, Send, WaitUntil, Taken, Close, Reset, Next };
    struct Step {
        Kind kind;
        std::string bytes;
        std::function<bool()> ready;
    };
    Server &add(Kind kind, const std::string &bytes = "", std::function<bool()> ready = {}) {
        steps_.push_back({kind, bytes, std::move(ready)});
        return *this;
    }
    std::string at(const std::vector<std::string> &v, size_t i) const;
    void run();
    bool read_some(int fd, size_t conn, size_t want);  // false when closed or stopping
    int accept_one();

    Family family_;
    int listen_fd_ = -1, stop_pipe_[2] = {-1, -1};
    uint16_t port_ = 0;
    std::vector<Step> steps_;
    std::thread thread_;
    mutable std::mutex m_;
    std::condition_variable cv_;
    bool done_ = false;
    std::vector<std::string> received_, peers_;
};

// A loopback port with nothing listening on it (connections are refused).
uint16_t unused_port();

}  // namespace scripted

#endif
