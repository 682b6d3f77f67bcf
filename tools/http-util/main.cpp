// http-util: move files over HTTP from the command line with libhttp_util.
// Each subcommand maps onto the library's exported calls; the exit status
// is the call's result code, and 2 (the library's "Wrong parameter") for a
// command line that does not parse.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "http_util.h"
#include "http_util_host.h"
#include "progress_bar.h"
#include "transfer_watch.h"

namespace {

// ---- interruption -------------------------------------------------------
// SIGINT is taken by a waiting thread instead of a handler: a handler would
// interrupt the library's readiness waits, which it treats as failures.
std::atomic<bool> interrupted{false};

void watch_interrupts() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([set] {
        int sig = 0;
        if (sigwait(&set, &sig) == 0) interrupted = true;
        // A second Ctrl+C ends the program at once.
        if (sigwait(&set, &sig) == 0) {
            http_util_host_terminal_restore();
            _exit(HTTP_UTIL_ERR_CANCELED);
        }
    }).detach();
}

// ---- progress bar -------------------------------------------------------
struct BarRecord {
    http_progress record;  // first member: the library hands back its address
    ProgressBar *bar;
};

int on_progress(http_progress *p, uint32_t /*count*/) {
    auto *r = reinterpret_cast<BarRecord *>(p);
    r->bar->update(p->done, p->total);
    return interrupted ? 1 : 0;
}

// ---- TLV block with a source address ------------------------------------
struct SourceTlv {
    uint32_t type = HTTP_UTIL_TLV_SRC_IP;
    uint32_t len = 4;
    uint32_t addr = 0;
    uint32_t end_type = 0;
    uint32_t end_len = 0;
};

bool parse_source(const std::string &text, SourceTlv *tlv) {
    in_addr a{};
    if (inet_pton(AF_INET, text.c_str(), &a) != 1) return false;
    tlv->addr = a.s_addr;
    return true;
}

// ---- the command line ---------------------------------------------------
struct Args {
    // before or after the subcommand
    std::string log;
    bool debug = false;
    int wait = -1;
    bool random_wait = false;
    bool no_timestamp_check = false;
    // the subcommands
    CLI::App *copy = nullptr, *get = nullptr, *put = nullptr, *strerror = nullptr;
    std::string src, dst;  // copy
    bool quiet = false;
    std::string url, file;  // get and put
    int retries = -1;
    std::string source_ip, mgmt_name;
    CLI::Option *get_mgmt = nullptr, *put_mgmt = nullptr;
    bool progress = false;
    int code = 0;
};

constexpr const char *kExitStatus =
    "Exit status: 0 on success; 2 when the command line is wrong (Wrong parameter);\n"
    "otherwise the library's result code, which `http-util strerror CODE` explains\n"
    "(http-util(1) lists them all).";

// A count or a number of seconds: a whole number that fits the library's
// 32-bit fields.
CLI::Validator whole_number() {
    return CLI::Validator(
        [](std::string &s) -> std::string {
            char *end = nullptr;
            errno = 0;
            long long v = strtoll(s.c_str(), &end, 10);
            if (s.empty() || *end != '\0' || errno != 0 || v < 0 || v > INT32_MAX)
                return s + " is not a whole number from 0 to " + std::to_string(INT32_MAX);
            return std::string();
        },
        "", "");
}

// "1.0.0 (/usr/lib/libhttp_util.so.1.0.0)": the copy of the library that
// was actually loaded, named by its file.
std::string library_version() {
    Dl_info info;
    if (dladdr(reinterpret_cast<void *>(http_util_strerr), &info) == 0 || info.dli_fname == nullptr)
        return "(not found)";
    char real[PATH_MAX];
    std::string path = realpath(info.dli_fname, real) != nullptr ? real : info.dli_fname;
    size_t at = path.rfind(".so.");
    std::string version = at == std::string::npos ? "unknown" : path.substr(at + 4);
    return version + " (" + path + ")";
}

void define_global_options(CLI::App &app, Args &a) {
    app.add_option("--log", a.log, "Write the library's log records to FILE (- = standard error)")
        ->type_name("FILE|-");
    app.add_flag("--debug", a.debug, "Also copy every log record to the system log");
    app.add_option("--wait", a.wait, "Seconds between two attempts of a download (default 30)")
        ->check(whole_number())
        ->type_name("N");
    app.add_flag("--random-wait", a.random_wait, "Draw the first pause around --wait");
    app.add_flag("--no-timestamp-check", a.no_timestamp_check,
                 "Resume a partial file even when the server's copy changed");
}

void define_subcommands(CLI::App &app, Args &a) {
    a.copy = app.add_subcommand(
        "copy", "Copy between a local file and an http:// URL, either way. A download replaces "
                "DST only once complete. Shows ticks on the terminal; Ctrl+C cancels.");
    a.copy->add_option("SRC", a.src, "Local path or http:// URL")->required();
    a.copy->add_option("DST", a.dst, "Local path or http:// URL")->required();
    a.copy->add_flag("-q,--quiet", a.quiet, "No terminal display (Ctrl+C then ends the program)");

    a.get = app.add_subcommand("get", "Download URL into FILE (default: the URL's file name), "
                                      "resuming a partial FILE");
    a.get->add_option("URL", a.url, "http:// URL")->required();
    a.get->add_option("FILE", a.file, "Local file");
    a.get->add_option("--retries", a.retries, "Retries after the first attempt (default 5)")
        ->check(whole_number())
        ->type_name("N");
    a.get_mgmt = a.get->add_option("--mgmt", a.mgmt_name,
                                   "Through the management port (optionally: its interface)")
                     ->expected(0, 1)
                     ->type_name("[IFNAME]");
    a.get->add_option("--source-ip", a.source_ip, "Bind to this IPv4 source address")
        ->excludes(a.get_mgmt);

    a.put = app.add_subcommand("put", "Upload FILE to URL as a multipart/form-data POST");
    a.put->add_option("FILE", a.file, "Local file")->required();
    a.put->add_option("URL", a.url, "http:// URL")->required();
    a.put_mgmt = a.put->add_flag("--mgmt", "Through the management port");
    a.put->add_option("--source-ip", a.source_ip, "Bind to this IPv4 source address")
        ->excludes(a.put_mgmt);
    a.put->add_flag("--progress", a.progress, "Show ticks on the terminal; Ctrl+C cancels");

    a.strerror = app.add_subcommand("strerror", "Print the message of a result code");
    a.strerror->add_option("CODE", a.code, "Result code")->required();

    // The options of http-util itself also work after a subcommand: each
    // subcommand's help lists them.
    std::vector<const CLI::Option *> globals;
    for (const CLI::Option *o : app.get_options())
        if (o->get_name() != "--help" && o->get_name() != "--version") globals.push_back(o);
    std::string shared =
        CLI::Formatter().make_group("Options of http-util (also here)", false, globals);
    shared.erase(0, shared.find_first_not_of('\n'));
    for (CLI::App *sub : {a.copy, a.get, a.put}) sub->footer(shared + "\n" + kExitStatus);
}

// -1 to go on; otherwise the exit status (help, version, a wrong command line).
int parse(CLI::App &app, int argc, char **argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ExtrasError &e) {
        std::vector<std::string> extra = app.remaining();
        if (app.get_subcommands().empty() && !extra.empty() && extra[0][0] != '-') {
            fprintf(stderr, "http-util: unknown subcommand %s (copy, get, put or strerror; see "
                            "--help)\n", extra[0].c_str());
            return HTTP_UTIL_ERR_PARAM;
        }
        app.exit(e);
        return HTTP_UTIL_ERR_PARAM;
    } catch (const CLI::ParseError &e) {
        int rc = app.exit(e);  // 0 after --help and --version
        return rc == 0 ? 0 : HTTP_UTIL_ERR_PARAM;
    }
    if (app.get_subcommands().empty()) {
        fprintf(stderr, "http-util: a subcommand is required (copy, get, put or strerror; see "
                        "--help)\n");
        return HTTP_UTIL_ERR_PARAM;
    }
    return -1;
}

void apply(const Args &a) {
    if (!a.log.empty() && http_util_host_set_log(a.log.c_str()) != 0)
        fprintf(stderr, "http-util: cannot open log %s: %s\n", a.log.c_str(), strerror(errno));
    http_util_init();  // records reach the transfer watch from the first call on
    if (a.debug) http_open_debug();
    if (a.wait >= 0) g_http_opt.wait = a.wait;
    if (a.random_wait) g_http_opt.random_wait = 1;
    if (a.no_timestamp_check) g_http_opt.timestamp_check = 0;
}

// ---- the one-line failure message ---------------------------------------
// "'not a url'": an argument as the user could type it again.
std::string shown(const std::string &arg) {
    if (!arg.empty() && arg.find_first_of(" \t'\"") == std::string::npos) return arg;
    return "'" + arg + "'";
}

// "http-util: get URL: <the library's message> (<what the system said>)"
int report(int rc, const std::string &what, const std::string &reason) {
    http_util_host_terminal_restore();
    if (rc == HTTP_UTIL_OK) return rc;
    if (reason.empty())
        fprintf(stderr, "http-util: %s: %s\n", what.c_str(), http_util_strerr(rc));
    else
        fprintf(stderr, "http-util: %s: %s (%s)\n", what.c_str(), http_util_strerr(rc),
                reason.c_str());
    return rc;
}

bool is_http(const std::string &s) { return strncasecmp(s.c_str(), "http://", 7) == 0; }

// Retry lines go to a terminal only; a script reads the exit status.
FILE *terminal_or_null() { return isatty(STDERR_FILENO) ? stderr : nullptr; }

// ---- the subcommands ----------------------------------------------------
int run_copy(const Args &a) {
    const std::string what = "copy " + shown(a.src) + " to " + shown(a.dst);
    // Two URLs would make the library write to a local path named like the
    // second one; the library answers anything but one URL and one path so.
    if (is_http(a.src) && is_http(a.dst))
        return report(HTTP_UTIL_ERR_NOT_SUPPORTED, what, "SRC and DST are both URLs");
    std::string why;
    if (!is_http(a.src) && !is_http(a.dst))
        why = a.src.find("://") != std::string::npos || a.dst.find("://") != std::string::npos
                  ? "only http:// URLs are supported"
                  : "one of SRC and DST must be an http:// URL";
    http_util_param param;
    memset(&param, 0, sizeof param);
    param.max_redirect = 5;
    param.ntry = g_http_opt.ntry;
    param.show_progress = a.quiet ? 2 : 0;  // 0: the copy turns the display on
    TransferWatch watch({a.quiet ? nullptr : terminal_or_null(), param.ntry + 1, nullptr,
                         isatty(STDOUT_FILENO) != 0, a.src, a.dst});
    int rc = http_util_copy(a.src.c_str(), a.dst.c_str(), &param);
    return report(rc, what, why.empty() ? watch.reason() : why);
}

int run_get(const Args &a, const SourceTlv *tlv) {
    watch_interrupts();
    ProgressBar bar(stderr, isatty(STDERR_FILENO) != 0);
    BarRecord rec;
    memset(&rec.record, 0, sizeof rec.record);
    rec.record.on_progress = on_progress;
    rec.bar = &bar;
    const char *local = a.file.empty() ? nullptr : a.file.c_str();
    int ntry = a.retries >= 0 ? a.retries : g_http_opt.ntry;
    TransferWatch watch({terminal_or_null(), ntry + 1, &bar, false, a.url, ""});
    int rc;
    if (a.get_mgmt->count() > 0 && !a.mgmt_name.empty())
        rc = http_mgnt_download_file_progress_byname(&rec.record, a.url.c_str(), local, ntry,
                                                     a.mgmt_name.c_str());
    else if (a.get_mgmt->count() > 0)
        rc = http_mgnt_download_file_progress(&rec.record, a.url.c_str(), local, ntry);
    else if (tlv != nullptr)
        rc = http_download_file_progress_tlv(&rec.record, a.url.c_str(), local, ntry, tlv);
    else
        rc = http_download_file_progress(&rec.record, a.url.c_str(), local, ntry);
    bar.finish();
    return report(rc, "get " + shown(a.url), watch.reason());
}

int run_put(const Args &a, const SourceTlv *tlv) {
    TransferWatch watch({nullptr, 1, nullptr, false, a.url, ""});
    const bool mgmt = a.put_mgmt->count() > 0;
    int rc;
    if (a.progress) {
        http_util_param param;
        memset(&param, 0, sizeof param);
        param.show_progress = 1;
        param.src_ip = tlv != nullptr ? tlv->addr : 0;
        rc = http_upload_param(a.url.c_str(), a.file.c_str(), &param, mgmt ? 1 : 0, nullptr);
    } else if (mgmt) {
        rc = http_mgnt_upload_file(a.url.c_str(), a.file.c_str());
    } else if (tlv != nullptr) {
        rc = http_upload_file_tlv(a.url.c_str(), a.file.c_str(), tlv);
    } else {
        rc = http_upload_file(a.url.c_str(), a.file.c_str());
    }
    return report(rc, "put " + shown(a.file) + " to " + shown(a.url), watch.reason());
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"Move files over HTTP with libhttp_util."};
    app.fallthrough();
    app.require_subcommand(0, 1);
    app.footer(kExitStatus);
    app.set_version_flag("--version", [] {
        return std::string("http-util " HTTP_UTIL_TOOL_VERSION "\nlibhttp_util ") +
               library_version();
    }, "Print the versions of http-util and of the library it loaded");
    Args args;
    define_global_options(app, args);
    define_subcommands(app, args);
    int rc = parse(app, argc, argv);
    if (rc >= 0) return rc;

    if (*args.strerror) {
        printf("%s\n", http_util_strerr(args.code));
        return 0;
    }
    apply(args);
    SourceTlv tlv;
    if (!args.source_ip.empty() && !parse_source(args.source_ip, &tlv)) {
        fprintf(stderr, "http-util: --source-ip: not an IPv4 address: %s\n",
                args.source_ip.c_str());
        return HTTP_UTIL_ERR_PARAM;
    }
    const SourceTlv *source = args.source_ip.empty() ? nullptr : &tlv;
    if (*args.copy) return run_copy(args);
    if (*args.get) return run_get(args, source);
    return run_put(args, source);
}
