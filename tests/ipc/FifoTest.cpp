#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Fifo.h>
#include <stdio.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "support/LogCapture.h"

namespace orvane {
namespace {

class FifoTest : public ::testing::Test {
  protected:
    void SetUp() override {
        capture.clear();
        std::filesystem::create_directories(dir);
        std::ofstream(plain) << "x";
        ASSERT_TRUE(Fifo::create(path, 0600));
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    test::LogCapture& capture = test::LogCapture::get();
    std::string dir = test::tempPath("fifo"), path = dir + "/pipe", plain = dir + "/plain";
};

TEST_F(FifoTest, CreatesRemovesAndOpensOnlyFifos) {
    struct stat st;
    ASSERT_EQ(lstat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 0777), S_IFIFO | 0600u);
    const struct {
        bool result;
        std::string text;  // of the one error line, "" for success
    } cases[] = {
        {Fifo::create(path, 0600), ""},
        {Fifo::create(plain, 0600), "mkfifo(" + plain + ") error: File exists!"},
        {Fifo::create("", 0600), "fifo name is empty!"},
        {Fifo::remove(plain), plain + " is not a fifo!"},
        {Fifo().open(plain, IO_READ), plain + " is not a fifo!"},
        {Fifo().open(path, IO_READ_WRITE), "IO_READ or IO_WRITE, not 2!"},
        {Fifo::remove(path), ""},
        {Fifo::remove(path), path + " is not a fifo!"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.result, c.text.empty()) << c.text;
        EXPECT_TRUE(c.text.empty() || capture.waitLine(c.text) != "") << c.text;
    }
    EXPECT_TRUE(std::filesystem::exists(plain));
}

TEST_F(FifoTest, OpensWithoutBlockingAndWaitsForAReaderWithinItsTimeout) {
    Fifo reader, writer;
    char buf[16];
    ASSERT_TRUE(reader.open(path, IO_READ));  // no writer yet: at once
    EXPECT_NE(fcntl(reader.fd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(reader.recvData(buf, sizeof buf, 20000), -2);
    reader.close();
    EXPECT_FALSE(writer.open(path, IO_WRITE));  // no reader: fails at once
    EXPECT_EQ(capture.waitLine("no reader"),
              "<E>DATE [Fifo::open,L#] no reader opened " + path + " within 0 us!");
    std::thread late([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        reader.open(path, IO_READ);
    });
    EXPECT_TRUE(writer.open(path, IO_WRITE, 2000000));
    late.join();
    EXPECT_EQ(writer.sendData("hello", 5, 100000), 5);
    EXPECT_EQ(reader.recvData(buf, sizeof buf, 100000), 5);
    EXPECT_EQ(std::string(buf, 5), "hello");
    writer.close();
    EXPECT_EQ(reader.recvData(buf, sizeof buf, 100000), 0);  // every writer gone

    ASSERT_TRUE(writer.open(path, IO_WRITE));
    reader.close();
    EXPECT_EQ(writer.writeData("x", 1), -1);  // no SIGPIPE death
    EXPECT_EQ(capture.waitLine("Broken pipe"),
              "<E>DATE [Fifo::writeData,L#] fifo(" + path + ") write error: Broken pipe!");
    EXPECT_EQ(writer.sendData(nullptr, 1, 0), -1);
    EXPECT_EQ(capture.waitLine("param error."), "<E>DATE [Fifo::sendData,L#] param error.");
}

// cat reads what Fifo writes, a shell writes what Fifo reads.
TEST_F(FifoTest, CarriesDataToAndFromOtherProcesses) {
    std::string out = dir + "/out", text(100000, 'z');
    FILE* cat = popen(("cat '" + path + "' > '" + out + "'").c_str(), "w");
    ASSERT_NE(cat, nullptr);
    Fifo writer, reader;
    ASSERT_TRUE(writer.open(path, IO_WRITE, 5000000));
    for (int sent = 0, n = 0; sent < static_cast<int>(text.size()); sent += n) {
        n = writer.sendData(text.data() + sent, static_cast<int>(text.size()) - sent, 1000000);
        ASSERT_GT(n, 0);
    }
    writer.close();
    pclose(cat);
    EXPECT_EQ(std::filesystem::file_size(out), text.size());
    ASSERT_TRUE(reader.open(path, IO_READ));
    FILE* shell = popen(("printf abc > '" + path + "'").c_str(), "w");
    char buf[8];
    EXPECT_EQ(reader.readData(buf, sizeof buf), 3);
    EXPECT_EQ(std::string(buf, 3), "abc");
    pclose(shell);
}

}  // namespace
}  // namespace orvane
