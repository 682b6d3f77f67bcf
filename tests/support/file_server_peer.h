// The project's loopback file server (tools/file-server) as a child process
// with a private root and upload directory, for end-to-end tests. Process
// and directories go away with the object.
#ifndef HTTP_UTIL_TESTS_FILE_SERVER_PEER_H
#define HTTP_UTIL_TESTS_FILE_SERVER_PEER_H

#include <stdint.h>
#include <time.h>

#include <string>

#include "loopback_peer.h"

namespace peer {

class FileServerPeer : public LoopbackPeer {
public:
    struct Options {
        long slow = 0;  // bytes per second for GET bodies, 0 = no limit
    };

    // Path of the built server; empty when it was not built.
    static std::string binary_path();

    bool start();
    bool start(const Options &options);
    void stop();

    const std::string &root() const { return root_; }
    const std::string &upload_dir() const { return upload_dir_; }
    // The server's request log (one line per request, written after the
    // response).
    std::string request_log() const;

    // Writes root/NAME with `size` reproducible pseudo-random bytes and
    // returns them; sets the modification time when `mtime` is not -1.
    std::string put_random_file(const std::string &name, size_t size, time_t mtime = -1,
                                uint64_t seed = 1);

private:
    std::string root_, upload_dir_;
};

}  // namespace peer

#endif
