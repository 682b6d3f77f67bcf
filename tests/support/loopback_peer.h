// What every end-to-end peer has: a child process listening on a loopback
// port and a private temp directory, both gone when the peer is stopped or
// destroyed.
#ifndef HTTP_UTIL_TESTS_LOOPBACK_PEER_H
#define HTTP_UTIL_TESTS_LOOPBACK_PEER_H

#include <memory>
#include <string>

#include "child_process.h"
#include "file_util.h"
#include "temp_dir.h"

namespace peer {

class LoopbackPeer {
public:
    LoopbackPeer(const LoopbackPeer &) = delete;
    LoopbackPeer &operator=(const LoopbackPeer &) = delete;

    // Why the last start failed.
    const std::string &error() const { return error_; }
    int port() const { return port_; }
    // http://HOST:PORT/path, HOST in brackets for IPv6.
    std::string url(const std::string &path = "/") const;
    // The peer's private temp directory ("" while stopped).
    std::string directory() const { return dir_ ? dir_->path() : std::string(); }
    pid_t pid() const { return process_.pid(); }
    // Stops the process and removes the temp directory.
    void stop();

protected:
    LoopbackPeer() = default;
    ~LoopbackPeer() { stop(); }

    // A fresh temp directory; false with error() set.
    bool make_dir();
    // Starts a program that prints "listening on HOST:PORT" first on its
    // stdout, and takes the port from that line. On failure the program's
    // stderr (command.stderr_path) goes into error().
    bool start_announcing(const ChildProcess::Command &command, const std::string &what);
    std::string path(const std::string &name) const { return dir_ ? dir_->file(name) : std::string(); }

    std::unique_ptr<TempDir> dir_;
    ChildProcess process_;
    std::string host_ = "127.0.0.1";
    std::string error_;
    int port_ = 0;
};

}  // namespace peer

#endif
