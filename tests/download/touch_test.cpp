// touch: the server's modification time, the device clock's access time.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "download_test_util.h"
#include "fake_device.h"
#include "temp_dir.h"
#include "http_util.h"

namespace {

TEST(Touch, SetsModificationTimeAndNowAsAccessTime) {
    TempDir dir;
    std::string f = dir.file("a.bin");
    dltest::write_file(f, "abc");
    fake::device().now = 1700000000;
    touch(f.c_str(), 784111777);
    struct stat st;
    ASSERT_EQ(stat(f.c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime, 784111777);
    EXPECT_EQ(st.st_atime, 1700000000);
    ASSERT_FALSE(fake::device().time_calls.empty());
    EXPECT_EQ(fake::device().time_calls.back(), 2);
    EXPECT_TRUE(fake::log_texts("touch").empty());
    EXPECT_EQ(dltest::read_file(f), "abc");
}

TEST(Touch, MissingFileIsLoggedAndNotCreated) {
    TempDir dir;
    std::string f = dir.file("missing");
    touch(f.c_str(), 784111777);
    EXPECT_FALSE(dltest::exists(f));
    EXPECT_EQ(fake::log_texts("touch"),
              std::vector<std::string>{"utime(" + f + "): No such file or directory"});
}

}  // namespace
