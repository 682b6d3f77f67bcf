// The loopback file server of the demo and the end-to-end tests: serves a
// directory over HTTP/1.1 and stores uploads, on cpp-httplib.
#ifndef HTTP_FILE_SERVER_FILE_SERVER_H
#define HTTP_FILE_SERVER_FILE_SERVER_H

#include <string>

namespace httplib {
class Server;
}

namespace file_server {

struct Config {
    std::string root = ".";        // files served by GET
    std::string upload_dir = ".";  // where POSTed files land
    long slow = 0;                 // bytes per second for GET bodies, 0 = no limit
};

// Routes:
//   GET /NAME                  the file; Range gives 206 + Content-Range;
//                              Last-Modified always
//   GET /chunked/NAME          the file with Transfer-Encoding: chunked
//   GET /redirect/N/NAME       302 to /redirect/N-1/NAME ... and at last to
//                              /NAME, with absolute Locations
//   POST /ANY                  multipart/form-data: each file part stored under
//                              the base name of its filename; any other body
//                              stored under the URL path
void add_routes(httplib::Server &server, const Config &config);

// Makes bodies still being sent end at their next piece, so that a stopping
// server does not wait for a slow transfer to finish.
void stop_transfers();

}  // namespace file_server

#endif
