// nginx on a loopback port with a generated configuration: a real HTTP
// server, written by nobody here, for end-to-end tests. Everything it writes
// (config, logs, pid, temp files, docroot) lives in a private temp directory
// that goes away with the object, together with the process.
//
// What it serves, for a file NAME written into the docroot:
//   /NAME                        200 with Content-Length, Last-Modified, ETag;
//                                Range requests answer 206 + Content-Range
//   /chunked/NAME                the same bytes with Transfer-Encoding: chunked
//   /nolm/NAME                   the file without Last-Modified (and ETag)
//   /norange/NAME                Range ignored: always 200 with the whole file
//   /slow/NAME                   the body at Options::slow_rate bytes per second
//   /redirect/CODE/N/NAME        CODE (301 302 303 307 308) N times, absolute
//                                Location (http://127.0.0.1:PORT/...), then /NAME
//   /redirect/mixed/N/NAME       as above, the codes taking turns: /N/ answers
//                                301 302 303 307 for N = 1 2 3 4, 5 6 7 8, ...
//   /redirect-rel/CODE/N/NAME    as above with a relative Location (/...)
//   /status/CODE                 answers CODE (Options::status_codes); 401 with
//                                WWW-Authenticate
//   /host                        answers 200 to any method with the Host it was
//                                sent (a request body is read and dropped)
#ifndef HTTP_UTIL_TESTS_NGINX_PEER_H
#define HTTP_UTIL_TESTS_NGINX_PEER_H

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "loopback_peer.h"

namespace peer {

class NginxPeer : public LoopbackPeer {
public:
    struct Options {
        bool ipv6 = false;       // listen on [::1] too (same port)
        int max_redirects = 8;   // longest chain under /redirect*/.../N/
        long slow_rate = 65536;  // bytes per second under /slow/
        std::vector<int> status_codes = {400, 401, 403, 404, 410, 500, 503};
    };

    // Path of the nginx binary; empty when it is not installed.
    static std::string nginx_path();

    // Starts nginx and returns once the port accepts; false with error()
    // (which carries nginx's own error log) when it cannot.
    bool start();
    bool start(const Options &options);
    // Stops nginx and removes the temp directory (the destructor does too).
    void stop();

    // url(path) is http://127.0.0.1:PORT/path; this is http://[::1]:PORT/path.
    std::string url6(const std::string &path) const;
    const std::string &docroot() const { return docroot_; }

    // Writes docroot/NAME with `size` reproducible pseudo-random bytes and
    // returns them; sets the file's modification time when `mtime` is not -1.
    // Empty result on failure (and for size 0).
    std::string put_random_file(const std::string &name, size_t size, time_t mtime = -1,
                                uint64_t seed = 1);
    bool put_file(const std::string &name, const std::string &data, time_t mtime = -1);

    // "/redirect/CODE/HOPS/NAME"; CODE 0 gives the mixed chain.
    static std::string redirect_path(int code, int hops, const std::string &name);

    // One line per finished request: METHOD URI STATUS RANGE-HEADER BYTES-SENT,
    // tab-separated. nginx writes a line after the response went out, so
    // wait_access_log() waits for `lines` of them.
    std::string access_log() const;
    bool wait_access_log(size_t lines, milliseconds timeout) const;
    std::string error_log() const;

private:
    std::string config_text(const Options &options) const;
    bool start_once(const Options &options, bool *port_taken);

    std::string docroot_;
};

}  // namespace peer

#endif
