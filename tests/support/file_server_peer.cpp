#include "file_server_peer.h"

namespace peer {

std::string FileServerPeer::binary_path() {
#ifdef HTTP_FILE_SERVER_PATH
    return find_program(HTTP_FILE_SERVER_PATH);
#else
    return std::string();
#endif
}

bool FileServerPeer::start() { return start(Options()); }

bool FileServerPeer::start(const Options &options) {
    stop();
    std::string binary = binary_path();
    if (binary.empty()) {
        error_ = "http-file-server was not built (it needs libcpp-httplib-dev)";
        return false;
    }
    if (!make_dir())
        return false;
    root_ = path("root");
    upload_dir_ = path("uploads");
    if (!make_dirs(root_) || !make_dirs(upload_dir_)) {
        error_ = "cannot make the file server's directories";
        stop();
        return false;
    }
    ChildProcess::Command command;
    command.argv = {binary, "--root", root_, "--upload-dir", upload_dir_, "--port", "0"};
    if (options.slow > 0) {
        command.argv.push_back("--slow");
        command.argv.push_back(std::to_string(options.slow));
    }
    command.stderr_path = path("requests.log");
    return start_announcing(command, "the file server");
}

void FileServerPeer::stop() {
    LoopbackPeer::stop();
    root_.clear();
    upload_dir_.clear();
}

std::string FileServerPeer::request_log() const {
    return read_file(path("requests.log"));
}

std::string FileServerPeer::put_random_file(const std::string &name, size_t size, time_t mtime,
                                            uint64_t seed) {
    std::string data = random_bytes(size, seed);
    return !root_.empty() && write_file(root_ + "/" + name, data, mtime) ? data : std::string();
}

}  // namespace peer
