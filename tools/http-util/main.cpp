// http-util: move files over HTTP from the command line with libhttp_util.
// Each subcommand maps onto the library's exported calls; the exit status
// is the call's result code.
#include <arpa/inet.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "http_util.h"
#include "http_util_host.h"
#include "progress_bar.h"

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

struct Options {
    std::string log;
    bool debug = false;
    int wait = -1;
    bool random_wait = false;
    bool no_timestamp_check = false;
};

void apply(const Options &o) {
    if (!o.log.empty() && http_util_host_set_log(o.log.c_str()) != 0)
        fprintf(stderr, "http-util: cannot open log %s: %s\n", o.log.c_str(), strerror(errno));
    if (o.debug) http_open_debug();
    if (o.wait >= 0) g_http_opt.wait = o.wait;
    if (o.random_wait) g_http_opt.random_wait = 1;
    if (o.no_timestamp_check) g_http_opt.timestamp_check = 0;
}

int report(int rc) {
    http_util_host_terminal_restore();
    if (rc != HTTP_UTIL_OK) fprintf(stderr, "http-util: %s\n", http_util_strerr(rc));
    return rc;
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"Move files over HTTP with libhttp_util. The exit status is the library's "
                 "result code (0 = success); `http-util strerror CODE` explains one."};
    app.fallthrough();
    app.require_subcommand(1);
    Options opt;
    app.add_option("--log", opt.log, "Write the library's log records to FILE (- = standard error)")
        ->type_name("FILE|-");
    app.add_flag("--debug", opt.debug, "Also copy every log record to the system log");
    app.add_option("--wait", opt.wait, "Seconds between two attempts of a download (default 30)")
        ->check(CLI::NonNegativeNumber);
    app.add_flag("--random-wait", opt.random_wait, "Draw the first pause around --wait");
    app.add_flag("--no-timestamp-check", opt.no_timestamp_check,
                 "Resume a partial file even when the server's copy changed");

    // copy SRC DST
    std::string src, dst;
    bool quiet = false;
    auto *copy = app.add_subcommand(
        "copy", "Copy between a local file and an http:// URL, either way. A download replaces "
                "DST only once complete. Shows ticks on the terminal; Ctrl+C cancels.");
    copy->add_option("SRC", src, "Local path or http:// URL")->required();
    copy->add_option("DST", dst, "Local path or http:// URL")->required();
    copy->add_flag("-q,--quiet", quiet, "No terminal display (Ctrl+C then ends the program)");

    // get URL [FILE]
    std::string url, file;
    int retries = -1;
    std::string source_ip;
    std::string mgmt_name;
    auto *get = app.add_subcommand("get", "Download URL into FILE (default: the URL's file name), "
                                          "resuming a partial FILE");
    get->add_option("URL", url, "http:// URL")->required();
    get->add_option("FILE", file, "Local file");
    get->add_option("--retries", retries, "Retries after the first attempt (default 5)")
        ->check(CLI::NonNegativeNumber);
    auto *get_mgmt = get->add_option("--mgmt", mgmt_name,
                                     "Through the management port (optionally: its interface)")
                         ->expected(0, 1)
                         ->type_name("[IFNAME]");
    auto *get_src = get->add_option("--source-ip", source_ip, "Bind to this IPv4 source address");
    get_src->excludes(get_mgmt);

    // put FILE URL
    std::string put_file, put_url;
    bool put_progress = false;
    auto *put = app.add_subcommand("put", "Upload FILE to URL as a multipart/form-data POST");
    put->add_option("FILE", put_file, "Local file")->required();
    put->add_option("URL", put_url, "http:// URL")->required();
    auto *put_mgmt = put->add_flag("--mgmt", "Through the management port");
    auto *put_src = put->add_option("--source-ip", source_ip, "Bind to this IPv4 source address");
    put_src->excludes(put_mgmt);
    put->add_flag("--progress", put_progress, "Show ticks on the terminal; Ctrl+C cancels");

    // strerror CODE
    int code = 0;
    auto *serr = app.add_subcommand("strerror", "Print the message of a result code");
    serr->add_option("CODE", code, "Result code")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        app.exit(e);
        return HTTP_UTIL_ERR_PARAM;
    }

    if (*serr) {
        printf("%s\n", http_util_strerr(code));
        return 0;
    }

    apply(opt);
    SourceTlv tlv;
    if (!source_ip.empty() && !parse_source(source_ip, &tlv)) {
        fprintf(stderr, "http-util: --source-ip: not an IPv4 address: %s\n", source_ip.c_str());
        return HTTP_UTIL_ERR_PARAM;
    }

    if (*copy) {
        http_util_param param;
        memset(&param, 0, sizeof param);
        param.max_redirect = 5;
        param.ntry = g_http_opt.ntry;
        param.show_progress = quiet ? 2 : 0;  // 0: the copy turns the display on
        return report(http_util_copy(src.c_str(), dst.c_str(), &param));
    }

    if (*get) {
        watch_interrupts();
        ProgressBar bar(stderr, isatty(STDERR_FILENO) != 0);
        BarRecord rec;
        memset(&rec.record, 0, sizeof rec.record);
        rec.record.on_progress = on_progress;
        rec.bar = &bar;
        const char *local = file.empty() ? nullptr : file.c_str();
        int ntry = retries >= 0 ? retries : g_http_opt.ntry;
        int rc;
        if (get_mgmt->count() > 0 && !mgmt_name.empty())
            rc = http_mgnt_download_file_progress_byname(&rec.record, url.c_str(), local, ntry,
                                                         mgmt_name.c_str());
        else if (get_mgmt->count() > 0)
            rc = http_mgnt_download_file_progress(&rec.record, url.c_str(), local, ntry);
        else if (!source_ip.empty())
            rc = http_download_file_progress_tlv(&rec.record, url.c_str(), local, ntry, &tlv);
        else
            rc = http_download_file_progress(&rec.record, url.c_str(), local, ntry);
        bar.finish();
        return report(rc);
    }

    // put
    if (put_progress) {
        http_util_param param;
        memset(&param, 0, sizeof param);
        param.show_progress = 1;
        param.src_ip = source_ip.empty() ? 0 : tlv.addr;
        return report(http_upload_param(put_url.c_str(), put_file.c_str(), &param,
                                        put_mgmt->count() > 0 ? 1 : 0, nullptr));
    }
    if (put_mgmt->count() > 0) return report(http_mgnt_upload_file(put_url.c_str(), put_file.c_str()));
    if (!source_ip.empty())
        return report(http_upload_file_tlv(put_url.c_str(), put_file.c_str(), &tlv));
    return report(http_upload_file(put_url.c_str(), put_file.c_str()));
}
