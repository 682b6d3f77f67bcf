// The ten download calls: each hands the driver its progress record, its
// management choice, its TLV block and its retry count. Without the optional
// services the management VRF cannot be used.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <array>
#include <climits>
#include <functional>
#include <string>
#include <vector>
#include "fake_device.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

const char kIfName15[] = "mgmt0123456789a";  // the 15 characters kept of the name given

struct Call {
    const char *name;
    std::function<int(http_progress *, const char *, const char *, int, const void *)> run;
    bool progress, mgmt, byname, tlv, takes_ntry;
};

const Call kCalls[] = {
    {"http_download_file", [](http_progress *, const char *u, const char *f, int, const void *) { return http_download_file(u, f); }, false, false, false, false, false},
    {"http_download_file_tlv", [](http_progress *, const char *u, const char *f, int, const void *t) { return http_download_file_tlv(u, f, t); }, false, false, false, true, false},
    {"http_download_file_ntry", [](http_progress *, const char *u, const char *f, int n, const void *) { return http_download_file_ntry(u, f, n); }, false, false, false, false, true},
    {"http_download_file_ntry_tlv", [](http_progress *, const char *u, const char *f, int n, const void *t) { return http_download_file_ntry_tlv(u, f, n, t); }, false, false, false, true, true},
    {"http_download_file_progress", [](http_progress *p, const char *u, const char *f, int n, const void *) { return http_download_file_progress(p, u, f, n); }, true, false, false, false, true},
    {"http_download_file_progress_tlv", [](http_progress *p, const char *u, const char *f, int n, const void *t) { return http_download_file_progress_tlv(p, u, f, n, t); }, true, false, false, true, true},
    {"http_mgnt_download_file_progress", [](http_progress *p, const char *u, const char *f, int n, const void *) { return http_mgnt_download_file_progress(p, u, f, n); }, true, true, false, false, true},
    {"http_mgnt_download_file_progress_byname", [](http_progress *p, const char *u, const char *f, int n, const void *) { return http_mgnt_download_file_progress_byname(p, u, f, n, "mgmt0123456789abcdef"); }, true, true, true, false, true},
    {"http_mgnt_download_file", [](http_progress *, const char *u, const char *f, int, const void *) { return http_mgnt_download_file(u, f); }, false, true, false, false, false},
    {"http_mngt_download_file_ntry", [](http_progress *, const char *u, const char *f, int n, const void *) { return http_mngt_download_file_ntry(u, f, n); }, false, true, false, false, true},
};

// Binds the socket to 127.0.0.2: a later element overrides an earlier one.
const uint32_t kTlv[] = {HTTP_UTIL_TLV_SRC_IP, 4, htonl(0x7f000003), HTTP_UTIL_TLV_SRC_IP, 4, htonl(0x7f000002), HTTP_UTIL_TLV_END, 0};
const uint32_t kBadTlv[] = {2, 4, 0, 0, 0};  // no such type

// Pauses are recorded, not waited for: the attempts are counted by the pauses between them, which wait
// the option's time, only the first of them random.
TEST(EntryOptionalServices, EveryCallDownloadsAndRetriesWithItsOwnInputs) {
    auto &d = fake::device();
    interpose::skip_pauses = true;
    d.ifindex[kIfName15] = 7;
    d.if_vrf[7] = 0;
    d.now = static_cast<time_t>(LLONG_MAX);  // a clock with no calendar time: only the log lacks it
    TempDir dir;
    const std::string file = dir.file("b.bin");
    const std::string refused = "http://127.0.0.1:" + std::to_string(scripted::unused_port()) + "/b";
    unsigned char bytes[1 + sizeof kTlv];  // host programs build blocks byte by byte, not always aligned
    memcpy(bytes + 1, kTlv, sizeof kTlv);
    const void *const good = bytes + 1;
    for (const Call &c : kCalls) {
        const bool unusable = c.mgmt && !c.byname;
        for (const void *tlv : {good, static_cast<const void *>(kBadTlv), static_cast<const void *>(nullptr)}) {
            if (!c.tlv && tlv != good) continue;
            SCOPED_TRACE(std::string(c.name) + (tlv == kBadTlv ? ", bad block" : tlv ? "" : ", no block"));
            d.vrf_name_calls.clear();
            d.if_index_calls.clear();
            unlink(file.c_str());
            scripted::Server srv;
            srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello");
            srv.start();
            http_progress progress{};
            const int rc = c.run(&progress, srv.url("/b.bin").c_str(), file.c_str(), 0, tlv);
#ifndef FAKE_OPTIONAL_SERVICES
            if (unusable) {
                EXPECT_EQ(rc, HTTP_UTIL_ERR_CONNECT);
                continue;
            }
#endif
            EXPECT_EQ(rc, tlv == kBadTlv ? HTTP_UTIL_ERR_PARAM : HTTP_UTIL_OK);
            EXPECT_EQ(files::read_file(file), tlv == kBadTlv ? "" : "hello");
            EXPECT_EQ(srv.connections(), tlv == kBadTlv ? 0u : 1u);
            if (tlv == kBadTlv) continue;
            EXPECT_EQ(srv.peer(), c.tlv && tlv ? "127.0.0.2" : "127.0.0.1");
            EXPECT_EQ(progress.total, c.progress ? 5u : 0u) << "progress record passed on";
            EXPECT_EQ(d.vrf_name_calls, std::vector<std::string>(unusable, "___Mgmt_oob"));
            EXPECT_EQ(d.if_index_calls, std::vector<std::string>(c.byname, kIfName15));
        }
        for (const auto &o : {std::array<int, 3>{0, 0, 0}, {1, 1, 0}, {1, 10, 1}}) {  // ntry, wait, random
            SCOPED_TRACE(testing::Message() << c.name << ", ntry " << o[0] << ", wait " << o[1] << ", random " << o[2]);
            http_opt opt = g_http_opt;  // as a host sets it
            opt.ntry = o[0];
            opt.wait = o[1];
            opt.random_wait = o[2];
            http_set_options(&opt);
            interpose::pauses.clear();
            d.logs.clear();
            EXPECT_EQ(c.run(nullptr, refused.c_str(), file.c_str(), 2, good), HTTP_UTIL_ERR_CONNECT);
            EXPECT_TRUE(fake::logged("Giving up."));
            ASSERT_EQ(interpose::pauses.size(), o[1] == 0 ? 0u : c.takes_ntry ? 2u : static_cast<size_t>(o[0]));
            for (const timeval &t : interpose::pauses) {
                const double s = t.tv_sec + t.tv_usec / 1e6;
                EXPECT_TRUE(&t == &interpose::pauses[0] && o[2] ? s >= 0.5 * o[1] && s < 1.5 * o[1] : s == o[1]) << s;
            }
        }
    }
}

}  // namespace
