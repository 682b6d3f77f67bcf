#include "child_process.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

namespace peer {

namespace {

int open_pidfd(pid_t pid) {
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

int remaining_ms(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

bool executable(const std::string &path) {
    return !path.empty() && access(path.c_str(), X_OK) == 0;
}

// The child's side of start(): only async-signal-safe calls from here on.
[[noreturn]] void exec_child(char *const *argv, int in_fd, int out_fd, int err_fd, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
        _exit(127);
    // The test's own handlers and masks must not reach the peer.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (in_fd >= 0)
        dup2(in_fd, STDIN_FILENO);
    if (out_fd >= 0)
        dup2(out_fd, STDOUT_FILENO);
    if (err_fd >= 0)
        dup2(err_fd, STDERR_FILENO);
    execv(argv[0], argv);
    _exit(127);
}

}  // namespace

std::string find_program(const std::string &name, const std::vector<std::string> &dirs) {
    if (name.find('/') != std::string::npos)
        return executable(name) ? name : std::string();
    for (const auto &dir : dirs) {
        std::string path = dir + "/" + name;
        if (executable(path))
            return path;
    }
    const char *env = getenv("PATH");
    std::string path_list = env ? env : "/usr/local/bin:/usr/bin:/bin";
    size_t pos = 0;
    while (pos <= path_list.size()) {
        size_t end = path_list.find(':', pos);
        if (end == std::string::npos)
            end = path_list.size();
        std::string dir = path_list.substr(pos, end - pos);
        std::string path = (dir.empty() ? std::string(".") : dir) + "/" + name;
        if (executable(path))
            return path;
        pos = end + 1;
    }
    return std::string();
}

bool ChildProcess::start(const Command &command) {
    stop();
    error_.clear();
    pending_.clear();
    status_ = -1;
    if (command.argv.empty() || !executable(command.argv[0])) {
        error_ = "not an executable: " + (command.argv.empty() ? std::string() : command.argv[0]);
        return false;
    }

    // Everything the child needs is prepared before fork.
    std::vector<char *> argv;
    for (const auto &arg : command.argv)
        argv.push_back(const_cast<char *>(arg.c_str()));
    argv.push_back(nullptr);

    int pipe_fds[2] = {-1, -1};
    int out_fd = -1;
    int err_fd = -1;
    auto close_all = [&] {
        for (int fd : {pipe_fds[0], pipe_fds[1], out_fd, err_fd})
            if (fd >= 0)
                close(fd);
    };
    if (command.pipe_stdout) {
        if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
            error_ = std::string("pipe: ") + strerror(errno);
            return false;
        }
    } else {
        const std::string &path = command.stdout_path.empty() ? std::string("/dev/null") : command.stdout_path;
        out_fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }
    if (!command.stderr_path.empty())
        err_fd = open(command.stderr_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);

    int in_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    pid_t parent = getpid();
    pid_t pid = fork();
    if (pid == 0)
        exec_child(argv.data(), in_fd, command.pipe_stdout ? pipe_fds[1] : out_fd, err_fd, parent);
    if (in_fd >= 0)
        close(in_fd);
    if (pid < 0) {
        error_ = std::string("fork: ") + strerror(errno);
        close_all();
        return false;
    }

    pid_ = pid;
    pidfd_ = open_pidfd(pid);
    if (command.pipe_stdout) {
        out_fd_ = pipe_fds[0];
        pipe_fds[0] = -1;
    }
    close_all();
    return true;
}

bool ChildProcess::reap(int flags) {
    if (pid_ < 0)
        return true;
    int status = 0;
    pid_t r;
    do {
        r = waitpid(pid_, &status, flags);
    } while (r < 0 && errno == EINTR);
    if (r == 0)
        return false;
    status_ = r == pid_ ? status : -1;
    pid_ = -1;
    if (pidfd_ >= 0) {
        close(pidfd_);
        pidfd_ = -1;
    }
    return true;
}

bool ChildProcess::running() {
    return pid_ >= 0 && !reap(WNOHANG);
}

bool ChildProcess::wait_readable(int fd, milliseconds timeout) {
    auto deadline = Clock::now() + timeout;
    for (;;) {
        pollfd fds[2] = {{fd, POLLIN, 0}, {pidfd_, POLLIN, 0}};
        int n = poll(fds, pidfd_ >= 0 ? 2 : 1, remaining_ms(deadline));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        // Data (or end of output) wins over the exit, so that the last
        // lines of a child that printed and died are still read.
        if (fds[0].revents)
            return true;
        return false;
    }
}

bool ChildProcess::read_line(std::string *line, milliseconds timeout) {
    auto deadline = Clock::now() + timeout;
    for (;;) {
        size_t nl = pending_.find('\n');
        if (nl != std::string::npos) {
            *line = pending_.substr(0, nl);
            pending_.erase(0, nl + 1);
            return true;
        }
        if (out_fd_ < 0 || !wait_readable(out_fd_, milliseconds(remaining_ms(deadline))))
            return false;
        char buf[4096];
        ssize_t n = read(out_fd_, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        pending_.append(buf, static_cast<size_t>(n));
    }
}

bool ChildProcess::wait_exit(milliseconds timeout) {
    if (pid_ < 0)
        return true;
    if (pidfd_ >= 0) {
        auto deadline = Clock::now() + timeout;
        for (;;) {
            pollfd fd = {pidfd_, POLLIN, 0};
            int n = poll(&fd, 1, remaining_ms(deadline));
            if (n < 0 && errno == EINTR)
                continue;
            break;
        }
        return reap(WNOHANG);
    }
    // No pidfd (very old kernel): the exit can only be polled for.
    auto deadline = Clock::now() + timeout;
    while (!reap(WNOHANG)) {
        if (Clock::now() >= deadline)
            return false;
        poll(nullptr, 0, 5);
    }
    return true;
}

int ChildProcess::stop(milliseconds grace) {
    if (pid_ >= 0) {
        if (running())
            kill(pid_, SIGTERM);
        if (!wait_exit(grace)) {
            kill(pid_, SIGKILL);
            reap(0);
        }
    }
    if (out_fd_ >= 0) {
        close(out_fd_);
        out_fd_ = -1;
    }
    return status_;
}

RunResult run_program(const std::vector<std::string> &argv, milliseconds timeout) {
    RunResult result;
    if (argv.empty())
        return result;
    std::string path = find_program(argv[0]);
    if (path.empty()) {
        result.err = "not found: " + argv[0];
        return result;
    }
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0)
        return result;
    if (pipe2(err, O_CLOEXEC) != 0) {
        close(out[0]);
        close(out[1]);
        return result;
    }
    std::vector<char *> args;
    args.push_back(const_cast<char *>(path.c_str()));
    for (size_t i = 1; i < argv.size(); ++i)
        args.push_back(const_cast<char *>(argv[i].c_str()));
    args.push_back(nullptr);

    int in_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    pid_t parent = getpid();
    pid_t pid = fork();
    if (pid == 0)
        exec_child(args.data(), in_fd, out[1], err[1], parent);
    if (in_fd >= 0)
        close(in_fd);
    close(out[1]);
    close(err[1]);
    if (pid < 0) {
        close(out[0]);
        close(err[0]);
        return result;
    }

    auto deadline = Clock::now() + timeout;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string *sinks[2] = {&result.out, &result.err};
    int open_count = 2;
    while (open_count > 0) {
        int n = poll(fds, 2, remaining_ms(deadline));
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0) {
            result.timed_out = true;
            kill(pid, SIGKILL);
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !fds[i].revents)
                continue;
            char buf[65536];
            ssize_t r = read(fds[i].fd, buf, sizeof buf);
            if (r > 0) {
                sinks[i]->append(buf, static_cast<size_t>(r));
            } else if (r == 0 || errno != EINTR) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_count;
            }
        }
    }
    for (auto &fd : fds)
        if (fd.fd >= 0)
            close(fd.fd);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!result.timed_out && WIFEXITED(status))
        result.exit_code = WEXITSTATUS(status);
    return result;
}

namespace {

// A bound socket holding a port, closed by the destructor.
struct BoundSocket {
    int fd = -1;
    ~BoundSocket() {
        if (fd >= 0)
            close(fd);
    }
};

int bind_loopback(BoundSocket *s, int family, int port) {
    s->fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (s->fd < 0)
        return -1;
    sockaddr_storage ss = {};
    socklen_t len;
    if (family == AF_INET) {
        auto *a = reinterpret_cast<sockaddr_in *>(&ss);
        a->sin_family = AF_INET;
        a->sin_port = htons(static_cast<uint16_t>(port));
        a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        len = sizeof *a;
    } else {
        int one = 1;
        setsockopt(s->fd, IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
        auto *a = reinterpret_cast<sockaddr_in6 *>(&ss);
        a->sin6_family = AF_INET6;
        a->sin6_port = htons(static_cast<uint16_t>(port));
        a->sin6_addr = in6addr_loopback;
        len = sizeof *a;
    }
    if (bind(s->fd, reinterpret_cast<sockaddr *>(&ss), len) != 0)
        return -1;
    if (getsockname(s->fd, reinterpret_cast<sockaddr *>(&ss), &len) != 0)
        return -1;
    return family == AF_INET ? ntohs(reinterpret_cast<sockaddr_in *>(&ss)->sin_port)
                             : ntohs(reinterpret_cast<sockaddr_in6 *>(&ss)->sin6_port);
}

}  // namespace

int pick_free_port(bool also_ipv6) {
    for (int attempt = 0; attempt < 20; ++attempt) {
        BoundSocket v4;
        int port = bind_loopback(&v4, AF_INET, 0);
        if (port <= 0)
            return 0;
        if (!also_ipv6)
            return port;
        BoundSocket v6;
        if (bind_loopback(&v6, AF_INET6, port) == port)
            return port;
    }
    return 0;
}

bool ipv6_loopback_available() {
    BoundSocket s;
    return bind_loopback(&s, AF_INET6, 0) > 0;
}

bool wait_until_accepting(const std::string &host, int port, ChildProcess *child,
                          milliseconds timeout) {
    sockaddr_storage ss = {};
    socklen_t len;
    auto *a4 = reinterpret_cast<sockaddr_in *>(&ss);
    auto *a6 = reinterpret_cast<sockaddr_in6 *>(&ss);
    if (inet_pton(AF_INET, host.c_str(), &a4->sin_addr) == 1) {
        a4->sin_family = AF_INET;
        a4->sin_port = htons(static_cast<uint16_t>(port));
        len = sizeof *a4;
    } else if (inet_pton(AF_INET6, host.c_str(), &a6->sin6_addr) == 1) {
        a6->sin6_family = AF_INET6;
        a6->sin6_port = htons(static_cast<uint16_t>(port));
        len = sizeof *a6;
    } else {
        return false;
    }
    auto deadline = Clock::now() + timeout;
    for (;;) {
        int fd = socket(ss.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return false;
        int r = connect(fd, reinterpret_cast<sockaddr *>(&ss), len);
        close(fd);
        if (r == 0)
            return true;
        if (child && !child->running())
            return false;
        if (Clock::now() >= deadline)
            return false;
        // Nothing to wait on but the child's exit: a loopback connect is
        // refused at once until the peer listens, so retry briefly.
        if (child && child->pid() >= 0)
            child->wait_exit(milliseconds(std::min(5, remaining_ms(deadline))));
        else
            poll(nullptr, 0, std::min(5, remaining_ms(deadline)));
    }
}

}  // namespace peer
