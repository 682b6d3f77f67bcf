// Every peer leaves nothing behind: no process, no temp directory, no open
// descriptor in the test, no listening port. Later end-to-end tests count
// descriptors around library calls and rely on this.
#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <functional>

#include "curl_client.h"
#include "file_server_peer.h"
#include "multipart_sink.h"
#include "nginx_peer.h"

namespace peer {
namespace {

int open_descriptors() {
    int count = 0;
    DIR *dir = opendir("/proc/self/fd");
    if (!dir)
        return -1;
    while (dirent *e = readdir(dir))
        count += e->d_name[0] != '.';
    closedir(dir);
    return count - 1;  // the directory's own descriptor
}

void expect_clean_lifecycle(LoopbackPeer &peer, const std::function<bool()> &start) {
    int before = open_descriptors();
    ASSERT_TRUE(start()) << peer.error();
    std::string dir = peer.directory();
    pid_t pid = peer.pid();
    std::string url = peer.url("/");
    ASSERT_FALSE(dir.empty());
    ASSERT_GT(pid, 0);

    peer.stop();
    struct stat st;
    EXPECT_NE(stat(dir.c_str(), &st), 0) << dir << " is left behind";
    EXPECT_TRUE(kill(pid, 0) != 0 && errno == ESRCH) << "process " << pid << " is left";
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(curl({"--max-time", "2", url}).exit_code, 7) << "port still answers";
}

TEST(PeerLifecycle, StopLeavesNoProcessDirectoryDescriptorOrPort) {
    if (!have_curl())
        GTEST_SKIP() << "curl not found; ./scripts/install-deps installs it";
    if (!NginxPeer::nginx_path().empty()) {
        SCOPED_TRACE("nginx");
        NginxPeer nginx;
        expect_clean_lifecycle(nginx, [&] { return nginx.start(); });
    }
    if (!MultipartSink::python_path().empty()) {
        SCOPED_TRACE("upload sink");
        MultipartSink sink;
        expect_clean_lifecycle(sink, [&] { return sink.start(); });
    }
    if (!FileServerPeer::binary_path().empty()) {
        SCOPED_TRACE("file server");
        FileServerPeer server;
        expect_clean_lifecycle(server, [&] { return server.start(); });
    }
}

}  // namespace
}  // namespace peer
