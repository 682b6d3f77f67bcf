// The upload sink (tests/peers/multipart_sink.py) as a child process on a
// loopback port: it parses multipart/form-data bodies with Python's email
// package and keeps every part byte-exact, so an upload test compares what
// arrived with what was sent. Process and files go away with the object.
#ifndef HTTP_UTIL_TESTS_MULTIPART_SINK_H
#define HTTP_UTIL_TESTS_MULTIPART_SINK_H

#include <string>
#include <vector>

#include "loopback_peer.h"

namespace peer {

class MultipartSink : public LoopbackPeer {
public:
    struct Options {
        int status = 200;            // status of every answer (400 for a malformed body)
        std::string reply = "OK\n";  // body of every answer
        bool reply_chunked = false;  // answer with Transfer-Encoding: chunked
        bool discard = false;        // read bodies, keep nothing (benchmarks)
        bool ipv6 = false;           // listen on [::1] instead of 127.0.0.1
    };

    // One stored part (or raw body) of one request.
    struct Part {
        int request = 0;             // 1 for the first request
        std::string mode;            // multipart, raw, discard or error
        std::string method, path;    // of the request
        std::string content_length;  // request header as received ("" if absent)
        std::string content_type;    // request header as received
        std::string name;            // form field name (multipart)
        std::string filename;        // filename parameter as the email package reads it
        long long size = 0;          // payload bytes (for error: bytes received)
        std::string sha256;
        std::string stored;          // path of the stored payload ("" if none)
        std::string disposition;     // the part's raw Content-Disposition value
        std::string defects;         // parser findings, comma-separated ("" if none)
    };

    // The Python interpreter used; empty when there is none.
    static std::string python_path();

    // Starts the sink; returns once it listens. False with error() otherwise.
    // It takes a POST to any path (url("/upload"), say).
    bool start();
    bool start(const Options &options);
    void stop();

    // Every part recorded so far. A request is recorded before it is
    // answered, so after a client has its answer the request is here.
    std::vector<Part> parts() const;
    // Waits until `count` requests were recorded in all (also those that
    // were never answered, such as an upload cut off half-way).
    bool wait_requests(int count, milliseconds timeout);
    // Bytes of a stored part.
    std::string stored_bytes(const Part &part) const;

private:
    int recorded_ = 0;
};

}  // namespace peer

#endif
