#include "nginx_peer.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>

namespace peer {

namespace {

constexpr int kRedirectCodes[] = {301, 302, 303, 307, 308};
constexpr int kMixedCodes[] = {301, 302, 303, 307};
constexpr milliseconds kStartTimeout(10000);

size_t count_lines(const std::string &text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

// One regex location per hop: nginx cannot count, so /…/N/ names /…/N-1/.
void redirect_locations(std::ostringstream &out, const std::string &prefix, int hops,
                        bool relative, int (*code_of)(int hop, int fixed), int fixed) {
    for (int n = 1; n <= hops; ++n) {
        std::string next = n == 1 ? "/$1" : prefix + std::to_string(n - 1) + "/$1";
        out << "        location ~ ^" << prefix << n << "/(.*)$ { ";
        if (relative)
            out << "absolute_redirect off; ";
        out << "return " << code_of(n, fixed) << " " << next << "; }\n";
    }
}

int fixed_code(int, int code) { return code; }
int mixed_code(int hop, int) { return kMixedCodes[(hop - 1) % 4]; }

}  // namespace

std::string NginxPeer::nginx_path() {
    return find_program("nginx", {"/usr/sbin", "/usr/local/sbin", "/usr/local/nginx/sbin"});
}

std::string NginxPeer::config_text(const Options &o) const {
    const std::string &d = dir_->path();
    std::ostringstream out;
    // One process in the foreground: the test owns its pid, and nothing
    // changes user, so the private docroot stays readable.
    out << "daemon off;\n"
           "master_process off;\n"
           "worker_processes 1;\n"
        << "pid " << d << "/nginx.pid;\n"
        << "error_log " << d << "/error.log info;\n"
        << "events { worker_connections 128; }\n"
        << "http {\n"
        << "    log_format peer '$request_method\\t$request_uri\\t$status\\t$http_range\\t"
           "$body_bytes_sent';\n"
        << "    access_log " << d << "/access.log peer;\n";
    for (const char *kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
        out << "    " << kind << "_temp_path " << d << "/tmp/" << kind << ";\n";
    out << "    types { }\n"
           "    default_type application/octet-stream;\n"
           "    keepalive_timeout 5s;\n"
           "    server {\n"
        << "        listen 127.0.0.1:" << port_ << ";\n";
    if (o.ipv6)
        out << "        listen [::1]:" << port_ << ";\n";
    out << "        server_name localhost;\n"
        << "        root " << docroot_ << ";\n"
        << "        location / { }\n"
        // SSI output has no length known in advance, so nginx sends it
        // chunked; with no SSI commands in the file the bytes are the file's.
        << "        location /chunked/ { alias " << docroot_
        << "/; ssi on; ssi_types *; ssi_last_modified on; }\n"
        << "        location /nolm/ { alias " << docroot_
        << "/; add_header Last-Modified \"\"; etag off; if_modified_since off; }\n"
        << "        location /norange/ { alias " << docroot_ << "/; max_ranges 0; }\n"
        << "        location /slow/ { alias " << docroot_ << "/; limit_rate " << o.slow_rate
        << "; }\n"
        << "        location = /host { return 200 \"$http_host\"; }\n";
    for (int code : kRedirectCodes) {
        redirect_locations(out, "/redirect/" + std::to_string(code) + "/", o.max_redirects, false,
                           fixed_code, code);
        redirect_locations(out, "/redirect-rel/" + std::to_string(code) + "/", o.max_redirects,
                           true, fixed_code, code);
    }
    redirect_locations(out, "/redirect/mixed/", o.max_redirects, false, mixed_code, 0);
    for (int code : o.status_codes) {
        out << "        location = /status/" << code << " { ";
        if (code == 401)
            out << "add_header WWW-Authenticate 'Basic realm=\"peer\"' always; ";
        out << "return " << code << "; }\n";
    }
    out << "    }\n}\n";
    return out.str();
}

bool NginxPeer::start() { return start(Options()); }

bool NginxPeer::start(const Options &options) {
    stop();
    if (nginx_path().empty()) {
        error_ = "nginx not found (./scripts/install-deps installs it)";
        return false;
    }
    if (options.ipv6 && !ipv6_loopback_available()) {
        error_ = "no IPv6 loopback address on this machine";
        return false;
    }
    // The port is chosen before nginx binds it, so another process can take
    // it in between: a few fresh tries cover that.
    for (int attempt = 0; attempt < 5; ++attempt) {
        bool port_taken = false;
        if (start_once(options, &port_taken))
            return true;
        if (!port_taken)
            break;
    }
    stop();
    return false;
}

bool NginxPeer::start_once(const Options &options, bool *port_taken) {
    process_.stop();
    if (!make_dir())
        return false;
    docroot_ = dir_->file("docroot");
    port_ = pick_free_port(options.ipv6);
    if (port_ == 0 || !make_dirs(docroot_) || !make_dirs(dir_->file("tmp"))) {
        error_ = "cannot prepare the nginx directory or port";
        return false;
    }
    std::string conf = dir_->file("nginx.conf");
    if (!write_file(conf, config_text(options))) {
        error_ = "cannot write " + conf;
        return false;
    }
    ChildProcess::Command command;
    command.argv = {nginx_path(), "-p", dir_->path(), "-c", conf, "-e", dir_->file("error.log")};
    command.stdout_path = dir_->file("stdout.log");
    command.stderr_path = dir_->file("stderr.log");
    if (!process_.start(command)) {
        error_ = process_.error();
        return false;
    }
    if (wait_until_accepting("127.0.0.1", port_, &process_, kStartTimeout) &&
        (!options.ipv6 || wait_until_accepting("::1", port_, &process_, kStartTimeout)))
        return true;
    process_.stop();
    std::string log = error_log() + read_file(dir_->file("stderr.log"));
    *port_taken = log.find("Address already in use") != std::string::npos;
    error_ = "nginx did not start on port " + std::to_string(port_) + ":\n" + log;
    return false;
}

void NginxPeer::stop() {
    LoopbackPeer::stop();
    docroot_.clear();
}

std::string NginxPeer::url6(const std::string &path) const {
    std::string v4 = url(path);
    return "http://[::1]" + v4.substr(v4.find(':', 5));
}

std::string NginxPeer::put_random_file(const std::string &name, size_t size, time_t mtime,
                                       uint64_t seed) {
    std::string data = random_bytes(size, seed);
    return put_file(name, data, mtime) ? data : std::string();
}

bool NginxPeer::put_file(const std::string &name, const std::string &data, time_t mtime) {
    return !docroot_.empty() && write_file(docroot_ + "/" + name, data, mtime);
}

std::string NginxPeer::redirect_path(int code, int hops, const std::string &name) {
    return "/redirect/" + (code == 0 ? std::string("mixed") : std::to_string(code)) + "/" +
           std::to_string(hops) + "/" + name;
}

std::string NginxPeer::access_log() const {
    return read_file(path("access.log"));
}

std::string NginxPeer::error_log() const {
    return read_file(path("error.log"));
}

bool NginxPeer::wait_access_log(size_t lines, milliseconds timeout) const {
    std::string log = path("access.log");
    if (log.empty())
        return false;
    int fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (fd < 0)
        return false;
    // nginx opens the log at start, so it exists and can be watched.
    inotify_add_watch(fd, log.c_str(), IN_MODIFY);
    auto deadline = Clock::now() + timeout;
    bool done;
    while (!(done = count_lines(access_log()) >= lines)) {
        auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            break;
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, static_cast<int>(left)) > 0) {
            char buf[4096];
            while (read(fd, buf, sizeof buf) > 0) {
            }
        }
    }
    close(fd);
    return done;
}

}  // namespace peer
