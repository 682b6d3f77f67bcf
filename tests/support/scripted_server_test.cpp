// The scripted server itself: what every wire test relies on.
#include "scripted_server.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <string>

namespace {

// Blocking helpers on a client socket.
std::string read_all(int fd) {
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    return out;
}

void write_all(int fd, const std::string &s) {
    ASSERT_EQ(write(fd, s.data(), s.size()), static_cast<ssize_t>(s.size()));
}

TEST(ScriptedServer, RecordsTheRequestAndPlaysTheReply) {
    scripted::Server srv;
    srv.read_request().send("HTTP/1.1 200 OK\r\n\r\nbody").close();
    srv.start();
    int fd = srv.connect_client(false);
    ASSERT_GE(fd, 0);
    write_all(fd, "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_EQ(read_all(fd), "HTTP/1.1 200 OK\r\n\r\nbody");
    close(fd);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc");
    EXPECT_EQ(srv.connections(), 1u);
}

TEST(ScriptedServer, EachConnectionHasItsOwnSteps) {
    scripted::Server srv(scripted::Family::IPv6);
    srv.read_bytes(2).send("one").next_connection().read_bytes(3).send("two");
    srv.start();
    EXPECT_EQ(srv.url("/x"), "http://[::1]:" + std::to_string(srv.port()) + "/x");
    for (const char *expect : {"one", "two"}) {
        int fd = srv.connect_client(false);
        ASSERT_GE(fd, 0);
        write_all(fd, std::string(expect) == "one" ? "ab" : "cde");
        EXPECT_EQ(read_all(fd), expect);
        close(fd);
    }
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(0), "ab");
    EXPECT_EQ(srv.request(1), "cde");
}

TEST(ScriptedServer, ResetReachesTheClientAsAnError) {
    scripted::Server srv;
    srv.read_bytes(1).reset();
    srv.start();
    int fd = srv.connect_client(false);
    write_all(fd, "x");
    ASSERT_TRUE(srv.wait());
    char c;
    EXPECT_EQ(read(fd, &c, 1), -1);
    EXPECT_EQ(errno, ECONNRESET);
    close(fd);
}

TEST(ScriptedServer, HalfCloseLetsTheClientGoOnWriting) {
    scripted::Server srv;
    srv.send("bye").half_close().read_until_close();
    srv.start();
    int fd = srv.connect_client(false);
    EXPECT_EQ(read_all(fd), "bye");
    write_all(fd, "still here");
    shutdown(fd, SHUT_WR);
    ASSERT_TRUE(srv.wait());
    EXPECT_EQ(srv.request(), "still here");
    close(fd);
}

TEST(ScriptedServer, DestroyingAStalledServerDoesNotWait) {
    auto t0 = std::chrono::steady_clock::now();
    {
        scripted::Server srv;
        srv.read_request().stall(std::chrono::seconds(60));
        srv.start();
        int fd = srv.connect_client(false);
        write_all(fd, "GET / HTTP/1.1\r\n\r\n");
        pollfd p = {fd, POLLIN, 0};
        EXPECT_EQ(poll(&p, 1, 200), 0) << "a stalled server sends nothing";
        close(fd);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
}

TEST(ScriptedServer, WaitUntilHoldsTheScriptUntilTheConditionHolds) {
    std::atomic<bool> go{false};
    scripted::Server srv;
    srv.send("one").wait_until([&] { return go.load(); }).send("two");
    srv.start();
    int fd = srv.connect_client(false);
    char buf[8] = {};
    ASSERT_EQ(read(fd, buf, sizeof buf), 3);
    pollfd p = {fd, POLLIN, 0};
    EXPECT_EQ(poll(&p, 1, 100), 0) << "nothing more before the condition holds";
    go = true;
    EXPECT_EQ(read_all(fd), "two");
    ASSERT_TRUE(srv.wait());
    close(fd);
}

TEST(ScriptedServer, UnusedPortRefusesConnections) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_port = htons(scripted::unused_port());
    sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&sin), sizeof sin), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    close(fd);
}

}  // namespace
