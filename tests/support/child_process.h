// Child processes for the end-to-end peers: started by the test, stopped on
// every path by the destructor, waited on by events (pipe data, process exit,
// an accepting port) with a deadline, never by sleeping.
#ifndef HTTP_UTIL_TESTS_CHILD_PROCESS_H
#define HTTP_UTIL_TESTS_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace peer {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Absolute path of an executable: each of `dirs` first, then $PATH.
// Empty when there is none.
std::string find_program(const std::string &name, const std::vector<std::string> &dirs = {});

class ChildProcess {
public:
    struct Command {
        std::vector<std::string> argv;  // argv[0] is the program's path
        bool pipe_stdout = false;       // read it with read_line()
        std::string stdout_path;        // else a file (empty: /dev/null)
        std::string stderr_path;        // empty: the test's own stderr
    };

    ChildProcess() = default;
    ~ChildProcess() { stop(); }
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // Starts the program; false with error() set when it cannot be started.
    // The child gets SIGKILL when the thread that started it ends, so even a
    // crashed test leaves nothing running.
    bool start(const Command &command);

    // One line of the child's stdout (without the newline), waiting at most
    // `timeout`. False on timeout, end of output or the child's exit.
    bool read_line(std::string *line, milliseconds timeout);

    // True while the child has not exited; reaps it once it has.
    bool running();

    // Waits at most `timeout` for the child to exit on its own.
    bool wait_exit(milliseconds timeout);

    // SIGTERM, then SIGKILL when it has not exited within `grace`; reaps it.
    // Returns the exit status as waitpid gives it, or -1 when nothing ran.
    int stop(milliseconds grace = milliseconds(3000));

    pid_t pid() const { return pid_; }
    int exit_status() const { return status_; }
    const std::string &error() const { return error_; }

private:
    bool reap(int flags);
    bool wait_readable(int fd, milliseconds timeout);

    pid_t pid_ = -1;
    int pidfd_ = -1;
    int out_fd_ = -1;
    int status_ = -1;
    std::string pending_;  // stdout bytes after the last line handed out
    std::string error_;
};

// Output and exit status of a program run to its end.
struct RunResult {
    int exit_code = -1;  // -1: killed, timed out or not started
    bool timed_out = false;
    std::string out;
    std::string err;
};

// Runs argv (argv[0] a path or a name looked up in $PATH) with no input,
// collecting stdout and stderr; kills it after `timeout`.
RunResult run_program(const std::vector<std::string> &argv,
                      milliseconds timeout = milliseconds(20000));

// A TCP port on 127.0.0.1 that was free a moment ago (and on ::1 too when
// `also_ipv6`); 0 when none could be had.
int pick_free_port(bool also_ipv6 = false);

// True when a socket can be bound to [::1].
bool ipv6_loopback_available();

// Waits until host:port accepts a TCP connection, or `child` exits, or the
// deadline passes. True only when a connection was accepted.
bool wait_until_accepting(const std::string &host, int port, ChildProcess *child,
                          milliseconds timeout);

}  // namespace peer

#endif
