// Every heap allocation of a whole transfer fails in turn, the 1st, the
// 2nd, ... until the transfer succeeds: each run must give the code of its
// failure point, leave no descriptor open and no temporary file behind, and
// leave the destination as the contract says (the ASan build adds: nothing
// leaks).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "../download/wire_util.h"
#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

using dltest::pattern;

constexpr int kNomem = HTTP_UTIL_ERR_NOMEM;
constexpr int kSaveFile = HTTP_UTIL_ERR_SAVE_FILE;

// A head longer than the head reader's first buffer, so that it grows.
std::string long_head(size_t body) {
    std::string pad;
    for (int i = 0; i < 30; ++i) pad += "X-Pad: " + std::string(80, 'p') + "\r\n";
    return dltest::ok_head(body, pad + dltest::last_modified());
}

struct Transfer {
    const char *name;
    bool download;  // else an upload of src
    std::function<int(const std::string &url, const std::string &src, const std::string &dst)> run;
    // The result when allocation n fails, n = 1, 2, ...: one entry per
    // allocation of the whole transfer.
    std::vector<int> codes;
};

http_util_param copy_param() {
    http_util_param p{};
    p.max_redirect = 5;
    p.show_progress = 2;  // no terminal output
    return p;
}

const Transfer kTransfers[] = {
    // URL record, local path copy, handle, head buffer, its growth, the
    // file's FILE, body block.
    {"download", true,
     [](const std::string &url, const std::string &, const std::string &dst) {
         return http_download_file_ntry(url.c_str(), dst.c_str(), 0);
     },
     {kNomem, kNomem, kNomem, kNomem, kNomem, kSaveFile, kNomem}},
    // URL record, handle, head buffer, its growth.
    {"upload", false,
     [](const std::string &url, const std::string &src, const std::string &) {
         return http_upload_file(url.c_str(), src.c_str());
     },
     {kNomem, kNomem, kNomem, kNomem}},
    // URL copy and temporary name, then the download's own.
    {"copy down", true,
     [](const std::string &url, const std::string &, const std::string &dst) {
         http_util_param p = copy_param();
         return http_util_copy(url.c_str(), dst.c_str(), &p);
     },
     {kNomem, kNomem, kNomem, kNomem, kNomem, kNomem, kNomem, kSaveFile, kNomem}},
    // URL copy and local path copy, then the upload's own.
    {"copy up", false,
     [](const std::string &url, const std::string &src, const std::string &) {
         http_util_param p = copy_param();
         return http_util_copy(src.c_str(), url.c_str(), &p);
     },
     {kNomem, kNomem, kNomem, kNomem, kNomem, kNomem}},
};

class AllocationSweep : public dltest::WireTest {};

TEST_F(AllocationSweep, EveryFailedAllocationGivesItsCodeAndLeavesNothing) {
    const std::string body = pattern(3000);
    for (const Transfer &t : kTransfers) {
        TempDir dir;
        const std::string dst = dir.file("dst.bin"), src = dir.file("src.bin");
        // A copy keeps an old destination until the download is whole.
        const bool copy = t.name[0] == 'c';
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(t.name) + ", allocation " + std::to_string(n) + " fails");
            unlink(dst.c_str());
            if (copy && t.download) dltest::write_file(dst, "old");
            if (!t.download) dltest::write_file(src, body);
            const auto fds = dltest::open_fds();
            int rc, count;
            std::string request;
            {
                scripted::Server srv;
                srv.read_request().send(long_head(2) + "ok").close();
                srv.start();
                interpose::arm_allocation_failure(n);
                rc = t.run(srv.url("/a.bin"), src, dst);
                count = interpose::disarm_allocation_failure();
                request = srv.request();
            }
            EXPECT_EQ(dltest::open_fds(), fds) << "a descriptor was left open";
            const std::vector<std::string> kept{t.download ? "dst.bin" : "src.bin"};
            if (count < n) {  // nothing failed: the whole transfer
                EXPECT_EQ(rc, HTTP_UTIL_OK);
                EXPECT_EQ(static_cast<size_t>(n - 1), t.codes.size()) << "allocations in all";
                if (t.download)
                    EXPECT_EQ(dltest::read_file(dst), "ok");
                else
                    EXPECT_NE(request.find(body), std::string::npos) << "the upload arrived";
                EXPECT_EQ(dir.entries(), kept);
                break;
            }
            ASSERT_LE(static_cast<size_t>(n), t.codes.size()) << "an allocation more than listed";
            EXPECT_EQ(rc, t.codes[static_cast<size_t>(n) - 1]);
            if (t.download) {
                const std::string left = dltest::read_file(dst);
                if (copy)
                    EXPECT_EQ(left, "old") << "a failed copy changed the destination";
                else
                    EXPECT_TRUE(left.empty()) << "a failed download stored nothing";
                EXPECT_TRUE(dir.entries().empty() || dir.entries() == kept) << "a temporary file";
            } else {
                EXPECT_EQ(dir.entries(), kept);
            }
        }
    }
}

}  // namespace
