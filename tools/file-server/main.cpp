// http-file-server: serves a directory and takes uploads on a loopback port,
// for the demo and the end-to-end tests.
#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <httplib.h>

#include <iostream>
#include <string>
#include <thread>

#include "file_server.h"

namespace {

void usage(std::ostream &out) {
    out << "usage: http-file-server [--root DIR] [--upload-dir DIR] [--bind ADDR] [--port N]\n"
           "                        [--slow BYTES_PER_SEC] [--quiet]\n"
           "  --root DIR        directory served by GET (default: .)\n"
           "  --upload-dir DIR  where POSTed files are stored (default: the root)\n"
           "  --bind ADDR       address to listen on (default: 127.0.0.1)\n"
           "  --port N          port; 0 picks a free one (default: 0)\n"
           "  --slow RATE       send GET bodies at RATE bytes per second\n"
           "  --quiet           no request log on standard error\n"
           "The first line on standard output is \"listening on ADDR:PORT\".\n";
}

bool is_dir(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

int main(int argc, char **argv) {
    file_server::Config config;
    std::string bind = "127.0.0.1";
    std::string upload_dir;
    int port = 0;
    bool quiet = false;

    const option options[] = {
        {"root", required_argument, nullptr, 'r'},  {"upload-dir", required_argument, nullptr, 'u'},
        {"bind", required_argument, nullptr, 'b'},  {"port", required_argument, nullptr, 'p'},
        {"slow", required_argument, nullptr, 's'},  {"quiet", no_argument, nullptr, 'q'},
        {"help", no_argument, nullptr, 'h'},        {nullptr, 0, nullptr, 0}};
    for (int c; (c = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (c) {
        case 'r': config.root = optarg; break;
        case 'u': upload_dir = optarg; break;
        case 'b': bind = optarg; break;
        case 'p': port = std::atoi(optarg); break;
        case 's': config.slow = std::atol(optarg); break;
        case 'q': quiet = true; break;
        case 'h': usage(std::cout); return 0;
        default: usage(std::cerr); return 2;
        }
    }
    if (optind != argc || port < 0 || port > 65535 || config.slow < 0) {
        usage(std::cerr);
        return 2;
    }
    config.upload_dir = upload_dir.empty() ? config.root : upload_dir;
    for (const auto &dir : {config.root, config.upload_dir}) {
        if (!is_dir(dir)) {
            std::cerr << "http-file-server: not a directory: " << dir << "\n";
            return 2;
        }
    }

    // SIGINT and SIGTERM stop the server from a thread of their own: the
    // server's stop() is not for signal handlers. Blocked before any thread
    // starts, so that every thread inherits the mask.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGINT);
    sigaddset(&stop_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    httplib::Server server;
    file_server::add_routes(server, config);
    if (!quiet) {
        server.set_logger([](const httplib::Request &req, const httplib::Response &res) {
            std::string range = req.get_header_value("Range");
            std::cerr << req.method << " " << req.target << " " << res.status
                      << (range.empty() ? "" : " (" + range + ")") << "\n";
        });
    }

    int bound = port == 0 ? server.bind_to_any_port(bind) : (server.bind_to_port(bind, port) ? port : -1);
    if (bound <= 0) {
        std::cerr << "http-file-server: cannot listen on " << bind << ":" << port << "\n";
        return 1;
    }
    std::string shown = bind.find(':') != std::string::npos ? "[" + bind + "]" : bind;
    std::cout << "listening on " << shown << ":" << bound << std::endl;

    std::thread stopper([&server, stop_signals] {
        int sig = 0;
        sigwait(&stop_signals, &sig);
        file_server::stop_transfers();
        server.stop();
    });
    bool ok = server.listen_after_bind();
    // The server may also end on its own (a listen failure): wake the
    // stopper so that it can be joined.
    pthread_kill(stopper.native_handle(), SIGTERM);
    stopper.join();
    return ok ? 0 : 1;
}
