// A loopback TCP proxy that cuts connections at random, for soak tests.
//
// One connection at a time is relayed to a server on a loopback port. In
// the chosen direction (the response, or the request) the proxy holds the
// head until it is whole, reads its Content-Length, and then either relays
// the connection uncut or cuts it at a random offset from 0 (nothing of the
// head) to the end (after the last byte, where a cut request loses its
// reply; a share of the cuts is placed there on purpose), by
// a close or by a reset (SO_LINGER 0), chosen at random. Every choice comes
// from one seeded generator, so a failing run is replayed with its seed.
//
// A reply to a request whose target ends in "?chunked" (nginx serves the
// file and ignores the query) is re-sent with chunked coding: chunks of
// random sizes, some with extensions; then a share of its cuts falls inside
// a size line or the line end before it.
#ifndef HTTP_UTIL_TESTS_CUTTING_PROXY_H
#define HTTP_UTIL_TESTS_CUTTING_PROXY_H

#include <stdint.h>

#include <mutex>
#include <random>
#include <string>
#include <thread>

namespace peer {

class CuttingProxy {
public:
    enum class Direction { Response, Request };
    struct Options {
        int upstream_port = 0;  // the server on 127.0.0.1
        Direction cut = Direction::Response;
        unsigned pass_percent = 30;  // share of connections relayed uncut
        unsigned end_percent = 10;   // share of cuts made right after the last byte
        uint64_t seed = 1;
    };
    // Counted when a choice is made, before the client can see its effect.
    struct Stats {
        int connections = 0;
        int passed = 0;
        int closes = 0;       // cut by a close
        int resets = 0;       // cut by a reset
        int whole = 0;        // cuts after the last byte (a request's reply is lost)
        int range_requests = 0;
        int partial_replies = 0;  // 206 heads relayed, whole or in part
        int chunked = 0;          // replies re-sent chunked
        int size_line_cuts = 0;   // cuts inside a size line or the line end before it
        int cuts() const { return closes + resets; }
    };

    explicit CuttingProxy(const Options &options);
    ~CuttingProxy();
    CuttingProxy(const CuttingProxy &) = delete;
    CuttingProxy &operator=(const CuttingProxy &) = delete;

    std::string url(const std::string &path) const;
    Stats stats() const;

private:
    void run();
    void relay(int client);

    Options options_;
    std::mt19937_64 random_;
    int listen_fd_ = -1;
    int stop_pipe_[2] = {-1, -1};
    int port_ = 0;
    mutable std::mutex m_;
    Stats stats_;
    std::thread thread_;
};

// The soak seed: HTTP_UTIL_SOAK_SEED when set (to replay a run), else fresh.
uint64_t soak_seed();

}  // namespace peer

#endif
