#include "loopback_peer.h"

#include <cstdlib>
#include <exception>

namespace peer {

namespace {

constexpr milliseconds kStartTimeout(15000);

}  // namespace

std::string LoopbackPeer::url(const std::string &path) const {
    std::string host = host_.find(':') != std::string::npos ? "[" + host_ + "]" : host_;
    return "http://" + host + ":" + std::to_string(port_) +
           (path.empty() || path[0] != '/' ? "/" : "") + path;
}

void LoopbackPeer::stop() {
    process_.stop();
    dir_.reset();
    port_ = 0;
}

bool LoopbackPeer::make_dir() {
    try {
        dir_.reset(new TempDir);
        return true;
    } catch (const std::exception &e) {
        error_ = std::string("cannot create a temp directory: ") + e.what();
        return false;
    }
}

bool LoopbackPeer::start_announcing(const ChildProcess::Command &command, const std::string &what) {
    ChildProcess::Command piped = command;
    piped.pipe_stdout = true;
    const std::string prefix = "listening on ";
    std::string line;
    if (process_.start(piped) && process_.read_line(&line, kStartTimeout) &&
        line.rfind(prefix, 0) == 0) {
        port_ = std::atoi(line.substr(line.rfind(':') + 1).c_str());
        if (port_ > 0)
            return true;
    }
    error_ = what + " did not start: " + process_.error() + line + "\n" +
             (command.stderr_path.empty() ? std::string() : read_file(command.stderr_path));
    stop();
    return false;
}

}  // namespace peer
