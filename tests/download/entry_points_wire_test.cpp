// The ten download calls: each hands the driver its progress record, its
// management choice, its TLV block and its retry count.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "download_test_util.h"
#include "fake_device.h"
#include "http_util.h"
#include "scripted_server.h"
#include "temp_dir.h"
#include "wire_util.h"

namespace {

using dltest::ok_head;

// A block binding the socket to 127.0.0.1.
struct SrcIpBlock {
    uint32_t type = HTTP_UTIL_TLV_SRC_IP;
    uint32_t len = 4;
    uint32_t addr = htonl(INADDR_LOOPBACK);
    uint32_t end = HTTP_UTIL_TLV_END;
    uint32_t end_len = 0;
};

// An interface name of 20 characters; the URL record keeps 15.
const char kLongIfName[] = "mgmt0123456789abcdef";
const char kIfName15[] = "mgmt0123456789a";

struct Call {
    const char *name;
    // (progress, url, local file, ntry) -> result; each call takes what it takes
    std::function<int(http_progress *, const char *, const char *, int, const void *)> run;
    bool progress, mgmt, byname, tlv, takes_ntry;
};

const std::vector<Call> &calls() {
    static const std::vector<Call> all = {
        {"http_download_file",
         [](http_progress *, const char *u, const char *f, int, const void *) {
             return http_download_file(u, f);
         },
         false, false, false, false, false},
        {"http_download_file_tlv",
         [](http_progress *, const char *u, const char *f, int, const void *t) {
             return http_download_file_tlv(u, f, t);
         },
         false, false, false, true, false},
        {"http_download_file_ntry",
         [](http_progress *, const char *u, const char *f, int n, const void *) {
             return http_download_file_ntry(u, f, n);
         },
         false, false, false, false, true},
        {"http_download_file_ntry_tlv",
         [](http_progress *, const char *u, const char *f, int n, const void *t) {
             return http_download_file_ntry_tlv(u, f, n, t);
         },
         false, false, false, true, true},
        {"http_download_file_progress",
         [](http_progress *p, const char *u, const char *f, int n, const void *) {
             return http_download_file_progress(p, u, f, n);
         },
         true, false, false, false, true},
        {"http_download_file_progress_tlv",
         [](http_progress *p, const char *u, const char *f, int n, const void *t) {
             return http_download_file_progress_tlv(p, u, f, n, t);
         },
         true, false, false, true, true},
        {"http_mgnt_download_file_progress",
         [](http_progress *p, const char *u, const char *f, int n, const void *) {
             return http_mgnt_download_file_progress(p, u, f, n);
         },
         true, true, false, false, true},
        {"http_mgnt_download_file_progress_byname",
         [](http_progress *p, const char *u, const char *f, int n, const void *) {
             return http_mgnt_download_file_progress_byname(p, u, f, n, kLongIfName);
         },
         true, true, true, false, true},
        {"http_mgnt_download_file",
         [](http_progress *, const char *u, const char *f, int, const void *) {
             return http_mgnt_download_file(u, f);
         },
         false, true, false, false, false},
        {"http_mngt_download_file_ntry",
         [](http_progress *, const char *u, const char *f, int n, const void *) {
             return http_mngt_download_file_ntry(u, f, n);
         },
         false, true, false, false, true},
    };
    return all;
}

class EntryPoints : public dltest::WireTest {
protected:
    TempDir dir;
    std::string file = dir.file("b.bin");
};

bool logged_prefix(const std::string &prefix) {
    for (const std::string &t : fake::log_texts())
        if (t.rfind(prefix, 0) == 0) return true;
    return false;
}

TEST_F(EntryPoints, EveryCallDownloadsWithItsOwnInputs) {
    SrcIpBlock tlv;
    for (const Call &c : calls()) {
        SCOPED_TRACE(c.name);
        fake::device().logs.clear();
        fake::device().vrf_name_calls.clear();
        fake::device().if_index_calls.clear();
        fake::device().ifindex[kIfName15] = 7;
        fake::device().if_vrf[7] = 0;
        unlink(file.c_str());
        scripted::Server srv;
        srv.read_request().send(ok_head(5) + "hello");
        srv.start();
        http_progress progress{};
        int rc = c.run(&progress, srv.url("/b.bin").c_str(), file.c_str(), 0, &tlv);
#ifndef FAKE_OPTIONAL_SERVICES
        if (c.mgmt && !c.byname) {
            // Without the VRF name service the management VRF cannot be used.
            EXPECT_EQ(rc, HTTP_UTIL_ERR_CONNECT);
            continue;
        }
#endif
        EXPECT_EQ(rc, HTTP_UTIL_OK);
        EXPECT_EQ(dltest::read_file(file), "hello");
        EXPECT_EQ(progress.total, c.progress ? 5u : 0u) << "progress record passed on";
        EXPECT_EQ(logged_prefix("HTTP: bind source ip to socket success!"), c.tlv);
        EXPECT_EQ(fake::device().vrf_name_calls,
                  c.mgmt && !c.byname ? std::vector<std::string>{"___Mgmt_oob"}
                                      : std::vector<std::string>{});
        EXPECT_EQ(fake::device().if_index_calls,
                  c.byname ? std::vector<std::string>{kIfName15} : std::vector<std::string>{});
    }
}

TEST_F(EntryPoints, RetryCountComesFromTheArgumentOrTheOptionAtCallTime) {
    const std::string url = "http://127.0.0.1:" + std::to_string(scripted::unused_port()) + "/b";
    g_http_opt.wait = 0;
    fake::device().ifindex[kIfName15] = 7;
    fake::device().if_vrf[7] = 0;
    for (const Call &c : calls()) {
        SCOPED_TRACE(c.name);
        for (int option : {0, 1}) {
            g_http_opt.ntry = option;
            fake::device().logs.clear();
            SrcIpBlock tlv;
            int rc = c.run(nullptr, url.c_str(), file.c_str(), 2, &tlv);
            EXPECT_EQ(rc, HTTP_UTIL_ERR_CONNECT);
            size_t attempts = 0;
            for (const std::string &t : fake::log_texts("http_get_loop"))
                attempts += t.rfind("--", 0) == 0;
            EXPECT_EQ(attempts, c.takes_ntry ? 3u : option + 1u) << "option " << option;
        }
    }
}

TEST_F(EntryPoints, BadTlvBlockIsRefusedBeforeAnyConnection) {
    const uint32_t block[] = {2, 4, 0, 0, 0};  // no such type
    scripted::Server srv;
    srv.start();
    EXPECT_EQ(http_download_file_tlv(srv.url("/b").c_str(), file.c_str(), block),
              HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_download_file_ntry_tlv(srv.url("/b").c_str(), file.c_str(), 1, block),
              HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(http_download_file_progress_tlv(nullptr, srv.url("/b").c_str(), file.c_str(), 1,
                                              block),
              HTTP_UTIL_ERR_PARAM);
    EXPECT_EQ(srv.connections(), 0u);
    EXPECT_FALSE(dltest::exists(file));
}

TEST_F(EntryPoints, NullTlvBlockIsAPlainDownload) {
    scripted::Server srv;
    srv.read_request().send(ok_head(5) + "hello");
    srv.start();
    EXPECT_EQ(http_download_file_tlv(srv.url("/b.bin").c_str(), file.c_str(), nullptr),
              HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), dltest::get_request("/b.bin", dltest::host_of(srv)));
    EXPECT_EQ(dltest::read_file(file), "hello");
}

TEST_F(EntryPoints, LongUrlIsCutTo255Characters) {
    scripted::Server srv;
    srv.read_request().send(ok_head(1) + "x");
    srv.start();
    std::string url = srv.url("/");
    url += std::string(255 - url.size(), 'p');
    const std::string target = url.substr(url.find('/', 7));
    url += std::string(300 - url.size(), 'q');
    EXPECT_EQ(http_download_file_ntry(url.c_str(), file.c_str(), 0), HTTP_UTIL_OK);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request().rfind("GET " + target + " HTTP/1.1\r\n", 0), 0u) << srv.request();
}

}  // namespace
