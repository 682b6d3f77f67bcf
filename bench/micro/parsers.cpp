// Micro-benchmarks of the parsers a transfer runs once per response or per
// field, through the exported entry points: ns per call.
#include <benchmark/benchmark.h>

#include <ctype.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "http_util.h"

namespace {

constexpr char kHead[] =
    "HTTP/1.1 206 Partial Content\r\n"
    "Server: nginx/1.22.1\r\n"
    "Date: Sun, 22 Nov 2026 22:00:00 GMT\r\n"
    "Content-Type: application/octet-stream\r\n"
    "Content-Length: 1048576\r\n"
    "Last-Modified: Sat, 21 Nov 2026 10:11:12 GMT\r\n"
    "Connection: close\r\n"
    "ETag: \"6560a1b0-40000000\"\r\n"
    "Content-Range: bytes 1048576-2097151/1073741824\r\n"
    "Accept-Ranges: bytes\r\n"
    "\r\n";

// The platform log formats every record while its threshold allows; level
// 4 turns it off, as a host program that wants no records does.
void set_log(bool on) { g_http_util_zlog_level = on ? 5 : 4; }

void BM_HeadParser(benchmark::State &state) {
    set_log(state.range(0) != 0);
    http_util *util = http_create_util();
    http_progress_ref ref;
    memset(&ref, 0, sizeof ref);
    ref.start = 1048576;
    ref.local_mtime = -1;
    for (auto _ : state) {
        int rc = http_parse_http_response_head(util, &ref, kHead);
        benchmark::DoNotOptimize(rc);
    }
    http_free_util(util);
    set_log(true);
}
BENCHMARK(BM_HeadParser)->ArgName("log")->Arg(0)->Arg(1);

void BM_StatusLine(benchmark::State &state) {
    http_rsp rsp;
    memset(&rsp, 0, sizeof rsp);
    for (auto _ : state) {
        int rc = http_parse_resp_status(&rsp, "HTTP/1.1 206 Partial Content");
        benchmark::DoNotOptimize(rc);
    }
}
BENCHMARK(BM_StatusLine);

void BM_ContentRange(benchmark::State &state) {
    int32_t first = 0, last = 0, length = 0;
    for (auto _ : state) {
        int ok = parse_content_range("bytes 1048576-2097151/1073741824", &first, &last, &length);
        benchmark::DoNotOptimize(ok);
    }
}
BENCHMARK(BM_ContentRange);

// The three date formats, each found by the parser's own order of trying.
constexpr const char *kDates[] = {
    "Sun, 06 Nov 1994 08:49:37 GMT",   // RFC 1123
    "Sunday, 06-Nov-94 08:49:37 GMT",  // RFC 850
    "Sun Nov  6 08:49:37 1994",        // asctime
};

// The library's date parser before it read dates itself: strptime with
// LC_TIME switched to "C" around the call. Kept here only to compare.
time_t former_atotm(const char *date) {
    static const char *const formats[] = {"%a, %d %b %Y %T", "%A, %d-%b-%y %T",
                                          "%a %b %d %T %Y", "%a, %d-%b-%Y %T"};
    char saved[256] = "";
    const char *current = setlocale(LC_TIME, nullptr);
    bool restore = current != nullptr && strlen(current) < sizeof saved;
    if (restore) memcpy(saved, current, strlen(current) + 1);
    (void)setlocale(LC_TIME, "C");
    time_t result = -1;
    for (const char *format : formats) {
        struct tm tm;
        memset(&tm, 0, sizeof tm);
        const char *end = strptime(date, format, &tm);
        if (end == nullptr) continue;
        while (isspace(static_cast<unsigned char>(*end))) ++end;
        if (*end == '\0' || strncmp(end, "GMT", 3) == 0 ||
            ((*end == '+' || *end == '-') && isdigit(static_cast<unsigned char>(end[1])))) {
            result = timegm(&tm);
            break;
        }
    }
    if (restore) (void)setlocale(LC_TIME, saved);
    return result;
}

template <time_t (*parse)(const char *)>
void BM_Date(benchmark::State &state) {
    const char *date = kDates[state.range(0)];
    if (parse(date) != 784111777) state.SkipWithError("date not read");
    for (auto _ : state) {
        time_t t = parse(date);
        benchmark::DoNotOptimize(t);
    }
}
BENCHMARK_TEMPLATE(BM_Date, http_atotm)->ArgName("format")->Arg(0)->Arg(1)->Arg(2);
BENCHMARK_TEMPLATE(BM_Date, former_atotm)->ArgName("format")->Arg(0)->Arg(1)->Arg(2);

void BM_GetLine(benchmark::State &state) {
    char line[512];
    for (auto _ : state) {
        const char *next = http_getline(kHead, line, sizeof line);
        benchmark::DoNotOptimize(next);
    }
}
BENCHMARK(BM_GetLine);

void BM_TagCmp(benchmark::State &state) {
    for (auto _ : state) {
        int r = http_tag_cmp("Content-Length", "content-length");
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_TagCmp);

// Address literals only, so that no resolver is asked; includes the
// record's allocation and release, as every caller pays them.
void BM_Url(benchmark::State &state) {
    const char *url = state.range(0) == 0 ? "http://192.168.10.1:8080/images/fw-2.1.bin?x=1"
                                          : "http://[fd00::1]/images/fw-2.1.bin";
    http_util_param param;
    memset(&param, 0, sizeof param);
    set_log(false);
    for (auto _ : state) {
        int err = 0;
        http_url_param *up = http_create_url_param(url, &err, &param, 0, nullptr);
        if (up == nullptr) {
            state.SkipWithError("URL refused");
            break;
        }
        benchmark::DoNotOptimize(up);
        free(up);
    }
    set_log(true);
}
BENCHMARK(BM_Url)->ArgName("ipv6")->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
