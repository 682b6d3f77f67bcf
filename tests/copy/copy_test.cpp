// The copy's order of syncs; then every heap allocation of a whole transfer
// fails in turn.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "http_util.h"
#include "interpose.h"
#include "scripted_server.h"
#include "temp_dir.h"

namespace {

// Power may fail at any moment: the data reaches storage before the rename
// makes it the destination, and the folder's new entry after it.
TEST(CopyFaults, DataIsSyncedBeforeTheRenameAndTheFolderAfterIt) {
    TempDir dir;
    const std::string dst = dir.file("dst.bin");
    scripted::Server srv;
    srv.read_request().send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    srv.start();
    http_util_param p{};
    EXPECT_EQ(http_util_copy(srv.url("/a.bin").c_str(), dst.c_str(), &p), HTTP_UTIL_OK);
    std::string calls;
    for (const std::string &c : interpose::file_calls) calls += c + "\n";
    const size_t at = calls.find("rename " + dst + ".");
    ASSERT_NE(at, std::string::npos) << calls;
    const std::string tmp = calls.substr(at + 7, dst.size() + 7);
    const std::string folder = std::filesystem::canonical(dir.path());
    EXPECT_EQ(calls, "fsync " + folder + tmp.substr(dir.path().size()) + "\nrename " + tmp + " " + dst + "\nfsync " +
                         folder + "\n");
}

// Each run must give the code of its failure point, leave no descriptor
// open and no temporary file, and leave the destination as the contract
// says (the ASan build adds: nothing leaks).
TEST(AllocationSweep, EveryFailedAllocationGivesItsCodeAndLeavesNothing) {
    constexpr int N = HTTP_UTIL_ERR_NOMEM, S = HTTP_UTIL_ERR_SAVE_FILE;
    const struct {
        const char *name;
        bool download, copy;
        std::vector<int> codes;  // the result when allocation n fails, n = 1, 2, ...
    } transfers[] = {{"download", true, false, {N, N, N, N, N, S, N}}, {"upload", false, false, {N, N, N, N}},
                     {"copy down", true, true, {N, N, N, N, N, N, N, S, N}}, {"copy up", false, true, {N, N, N, N, N, N}}};
    // A head longer than the head reader's first buffer, so that it grows.
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nLast-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
    for (int i = 0; i < 30; ++i) head += "X-Pad: " + std::string(80, 'p') + "\r\n";
    const std::string body = files::pattern(3000);
    for (const auto &t : transfers) {
        TempDir dir;
        const std::string dst = dir.file("dst.bin"), src = dir.file("src.bin");
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(t.name) + ", allocation " + std::to_string(n) + " fails");
            unlink(dst.c_str());
            if (t.copy && t.download) files::write_file(dst, "old");
            if (!t.download) files::write_file(src, body);
            const auto fds = files::open_fds();
            int rc, count;
            std::string request;
            {
                scripted::Server srv;
                srv.read_request().send(head + "\r\nok").close();
                srv.start();
                const std::string url = srv.url("/a.bin");
                http_util_param p{};
                interpose::arm_allocation_failure(n);
                rc = t.copy ? http_util_copy(t.download ? url.c_str() : src.c_str(), t.download ? dst.c_str() : url.c_str(), &p)
                     : t.download ? http_download_file_ntry(url.c_str(), dst.c_str(), 0)
                                  : http_upload_file(url.c_str(), src.c_str());
                count = interpose::disarm_allocation_failure();
                request = srv.request();
            }
            EXPECT_EQ(files::open_fds(), fds) << "a descriptor was left open";
            const std::vector<std::string> kept{t.download ? "dst.bin" : "src.bin"};
            if (count < n) {  // nothing failed: the whole transfer
                EXPECT_EQ(rc, HTTP_UTIL_OK);
                EXPECT_EQ(static_cast<size_t>(n - 1), t.codes.size()) << "allocations in all";
                EXPECT_TRUE(t.download ? files::read_file(dst) == "ok" : request.find(body) != std::string::npos);
                EXPECT_EQ(dir.entries(), kept);
                break;
            }
            ASSERT_LE(static_cast<size_t>(n), t.codes.size()) << "an allocation more than listed";
            EXPECT_EQ(rc, t.codes[static_cast<size_t>(n) - 1]);
            EXPECT_EQ(files::read_file(dst), t.download && t.copy ? "old" : "") << "the destination changed";
            EXPECT_TRUE(dir.entries() == kept || (t.download && !t.copy && dir.entries().empty())) << "a temporary file";
        }
    }
}

}  // namespace
