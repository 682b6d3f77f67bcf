#include "multipart_sink.h"

#include <cstdlib>
#include <sstream>

#ifndef HTTP_UTIL_PEERS_DIR
#error "HTTP_UTIL_PEERS_DIR must name tests/peers"
#endif

namespace peer {

namespace {

std::string unescape(const std::string &s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        char c = s[++i];
        out += c == 't' ? '\t' : c == 'n' ? '\n' : c == 'r' ? '\r' : c;
    }
    return out;
}

std::vector<std::string> split_tabs(const std::string &line) {
    std::vector<std::string> fields;
    size_t pos = 0;
    for (;;) {
        size_t tab = line.find('\t', pos);
        fields.push_back(unescape(line.substr(pos, tab == std::string::npos ? tab : tab - pos)));
        if (tab == std::string::npos)
            return fields;
        pos = tab + 1;
    }
}

}  // namespace

std::string MultipartSink::python_path() {
    // The distribution's interpreter first: its start-up is quick and it is
    // the one the install script provides.
    return find_program("python3", {"/usr/bin"});
}

bool MultipartSink::start() { return start(Options()); }

bool MultipartSink::start(const Options &options) {
    stop();
    std::string python = python_path();
    if (python.empty()) {
        error_ = "python3 not found (./scripts/install-deps installs it)";
        return false;
    }
    if (options.ipv6 && !ipv6_loopback_available()) {
        error_ = "no IPv6 loopback address on this machine";
        return false;
    }
    if (!make_dir())
        return false;
    std::string reply_file = path("reply.bin");
    if (!write_file(reply_file, options.reply)) {
        error_ = "cannot write " + reply_file;
        stop();
        return false;
    }
    host_ = options.ipv6 ? "::1" : "127.0.0.1";
    ChildProcess::Command command;
    command.argv = {python, std::string(HTTP_UTIL_PEERS_DIR) + "/multipart_sink.py",
                 "--dir", dir_->path(), "--bind", host_, "--port", "0",
                 "--status", std::to_string(options.status), "--reply-file", reply_file};
    if (options.reply_chunked)
        command.argv.push_back("--reply-chunked");
    if (options.discard)
        command.argv.push_back("--discard");
    command.stderr_path = path("stderr.log");
    return start_announcing(command, "the upload sink");
}

void MultipartSink::stop() {
    LoopbackPeer::stop();
    recorded_ = 0;
}

std::vector<MultipartSink::Part> MultipartSink::parts() const {
    std::vector<Part> parts;
    std::istringstream in(read_file(path("manifest.tsv")));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        auto f = split_tabs(line);
        if (f.size() < 13)
            continue;
        Part p;
        p.request = std::atoi(f[0].c_str());
        p.mode = f[1];
        p.method = f[2];
        p.path = f[3];
        p.content_length = f[4];
        p.content_type = f[5];
        p.name = f[6];
        p.filename = f[7];
        p.size = std::atoll(f[8].c_str());
        p.sha256 = f[9];
        p.stored = f[10].empty() ? std::string() : path("parts/" + f[10]);
        p.disposition = f[11];
        p.defects = f[12];
        parts.push_back(p);
    }
    return parts;
}

bool MultipartSink::wait_requests(int count, milliseconds timeout) {
    auto deadline = Clock::now() + timeout;
    std::string line;
    while (recorded_ < count) {
        auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || !process_.read_line(&line, left))
            return false;
        if (line.rfind("request ", 0) == 0)
            ++recorded_;
    }
    return true;
}

std::string MultipartSink::stored_bytes(const Part &part) const {
    return part.stored.empty() ? std::string() : read_file(part.stored);
}

}  // namespace peer
