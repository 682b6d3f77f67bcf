// The command-line terminal on the host: output to a stream the host
// program chooses, keystrokes from the controlling terminal.
//
// The first poll switches the terminal to a mode without line editing,
// echo or signal keys, so that Ctrl+C arrives as byte 3 instead of killing
// the process; the old mode comes back at exit, on request, and before a
// terminating signal takes the process down.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include "host_lock.h"
#include "http_util_host.h"
#include "platform/device.h"

namespace {

using http_util_host_internal::MutexLock;

pthread_mutex_t term_mutex = PTHREAD_MUTEX_INITIALIZER;
FILE *term_out = nullptr;
int tty_fd = -1;
bool tty_tried = false;
bool tty_switched = false;
struct termios tty_saved;

constexpr int kNothingTyped = -1;

void restore_locked() {
    if (tty_switched) {
        (void)tcsetattr(tty_fd, TCSANOW, &tty_saved);
        tty_switched = false;
    }
}

void restore_at_exit() { http_util_host_terminal_restore(); }

// Signals that end a process by default: restore the terminal, then let the
// signal do what it would have done.
constexpr int kFatalSignals[] = {SIGTERM, SIGHUP, SIGQUIT, SIGINT, SIGABRT, SIGSEGV, SIGBUS};
struct sigaction saved_actions[sizeof kFatalSignals / sizeof kFatalSignals[0]];

void restore_on_signal(int sig) {
    if (tty_switched) (void)tcsetattr(tty_fd, TCSANOW, &tty_saved);  // async-signal-safe
    for (size_t i = 0; i < sizeof kFatalSignals / sizeof kFatalSignals[0]; ++i)
        if (kFatalSignals[i] == sig) sigaction(sig, &saved_actions[i], nullptr);
    raise(sig);
}

void guard_signals() {
    for (size_t i = 0; i < sizeof kFatalSignals / sizeof kFatalSignals[0]; ++i) {
        struct sigaction old;
        if (sigaction(kFatalSignals[i], nullptr, &old) != 0) continue;
        saved_actions[i] = old;
        // A program that handles or ignores the signal keeps its choice.
        if (old.sa_handler != SIG_DFL || (old.sa_flags & SA_SIGINFO)) continue;
        struct sigaction sa;
        memset(&sa, 0, sizeof sa);
        sa.sa_handler = restore_on_signal;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESETHAND;
        sigaction(kFatalSignals[i], &sa, nullptr);
    }
}

// Opens the controlling terminal once; without one, nothing is ever typed.
bool tty_ready_locked() {
    if (tty_fd >= 0) return true;
    if (tty_tried) return false;
    tty_tried = true;
    tty_fd = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (tty_fd < 0) return false;
    if (tcgetattr(tty_fd, &tty_saved) != 0) {
        close(tty_fd);
        tty_fd = -1;
        return false;
    }
    struct termios raw = tty_saved;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    if (tcsetattr(tty_fd, TCSANOW, &raw) == 0) {
        tty_switched = true;
        atexit(restore_at_exit);
        guard_signals();
    }
    return true;
}

}  // namespace

extern "C" {

void http_util_host_set_terminal_output(FILE *out) {
    MutexLock lock(&term_mutex);
    term_out = out;
}

void http_util_host_terminal_restore(void) {
    MutexLock lock(&term_mutex);
    restore_locked();
}

int cli_printf(const char *format, ...) {
    MutexLock lock(&term_mutex);
    va_list ap;
    va_start(ap, format);
    int n = vfprintf(term_out != nullptr ? term_out : stdout, format, ap);
    va_end(ap);
    return n;
}

void cli_flush(void) {
    MutexLock lock(&term_mutex);
    fflush(term_out != nullptr ? term_out : stdout);
}

int cli_getc_no_block(void) {
    MutexLock lock(&term_mutex);
    if (!tty_ready_locked()) return kNothingTyped;
    struct pollfd pfd = {tty_fd, POLLIN, 0};
    if (poll(&pfd, 1, 0) <= 0 || (pfd.revents & POLLIN) == 0) return kNothingTyped;
    unsigned char c = 0;
    if (read(tty_fd, &c, 1) != 1) return kNothingTyped;
    return c;
}

}  // extern "C"
