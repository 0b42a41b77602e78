#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/Fifo.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

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
        test::LogCapture::get().clear();
        dir = test::tempPath("fifo");
        std::filesystem::create_directories(dir);
        path = dir + "/pipe";
        ASSERT_TRUE(Fifo::create(path, 0600));
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    static std::string line(const std::string& text) {
        return test::LogCapture::get().waitLine(text);
    }
    std::string dir, path;
};

TEST_F(FifoTest, CreatesAndRemovesOnlyFifos) {
    struct stat st;
    ASSERT_EQ(lstat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    std::string plain = dir + "/plain";
    std::ofstream(plain) << "x";
    const struct {
        bool result, expected;
        std::string text;
    } cases[] = {
        {Fifo::create(path, 0600), true, ""},  // an existing FIFO is fine
        {Fifo::create(plain, 0600), false, "mkfifo(" + plain + ") error: File exists!"},
        {Fifo::create("", 0600), false, "fifo name is empty!"},
        {Fifo::remove(plain), false, plain + " is not a fifo!"},
        {Fifo::remove(dir + "/none"), false, dir + "/none is not a fifo!"},
        {Fifo::remove(path), true, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.result, c.expected) << c.text;
        if (!c.text.empty()) {
            EXPECT_NE(line(c.text), "") << c.text;
        }
    }
    EXPECT_TRUE(std::filesystem::exists(plain));
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(path)));
}

TEST_F(FifoTest, OpensWithoutBlockingAndWaitsForAReaderWithinItsTimeout) {
    Fifo reader;
    ASSERT_TRUE(reader.open(path, IO_READ));  // no writer yet: at once
    EXPECT_NE(fcntl(reader.fd(), F_GETFD) & FD_CLOEXEC, 0);
    char buf[16];
    EXPECT_EQ(reader.recvData(buf, sizeof buf, 0), -2);
    EXPECT_EQ(reader.recvData(buf, sizeof buf, 20000), -2);
    reader.close();

    Fifo writer;
    EXPECT_FALSE(writer.open(path, IO_WRITE));  // no reader: fails at once
    EXPECT_EQ(line("no reader"),
              "<E>DATE [Fifo::open,L#] no reader opened " + path + " within 0 us!");
    EXPECT_FALSE(writer.open(path, IO_WRITE, 30000));

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
}

// Another process at each end: cat reads what Fifo writes, and a shell
// writes what Fifo reads.
TEST_F(FifoTest, CarriesDataToAndFromOtherProcesses) {
    std::string out = dir + "/out";
    FILE* cat = popen(("cat '" + path + "' > '" + out + "'").c_str(), "w");
    ASSERT_NE(cat, nullptr);
    Fifo writer;
    ASSERT_TRUE(writer.open(path, IO_WRITE, 5000000));
    std::string text(10000, 'z');
    int sent = 0;
    while (sent < static_cast<int>(text.size())) {
        int n = writer.sendData(text.data() + sent, static_cast<int>(text.size()) - sent, 1000000);
        ASSERT_GT(n, 0);
        sent += n;
    }
    writer.close();
    pclose(cat);
    EXPECT_EQ(std::filesystem::file_size(out), text.size());

    Fifo reader;
    ASSERT_TRUE(reader.open(path, IO_READ));
    FILE* echo = popen(("printf abc > '" + path + "'").c_str(), "w");
    ASSERT_NE(echo, nullptr);
    char buf[8];
    EXPECT_EQ(reader.readData(buf, sizeof buf), 3);
    EXPECT_EQ(std::string(buf, 3), "abc");
    pclose(echo);
}

TEST_F(FifoTest, ReportsABrokenPipeAndBadArgumentsWithoutDying) {
    Fifo reader;
    Fifo writer;
    ASSERT_TRUE(reader.open(path, IO_READ));
    ASSERT_TRUE(writer.open(path, IO_WRITE));
    reader.close();
    EXPECT_EQ(writer.writeData("x", 1), -1);  // no SIGPIPE death
    EXPECT_EQ(line("Broken pipe"),
              "<E>DATE [Fifo::writeData,L#] fifo(" + path + ") write error: Broken pipe!");
    EXPECT_EQ(writer.sendData(nullptr, 1, 0), -1);
    EXPECT_EQ(line("param error."), "<E>DATE [Fifo::sendData,L#] param error.");
    EXPECT_FALSE(writer.open(path, IO_WRITE));
    EXPECT_NE(line("already opened"), "");
    writer.close();
    char buf[2];
    EXPECT_EQ(writer.recvData(buf, 1, 0), -1);
    EXPECT_NE(line("device not open"), "");

    std::string plain = dir + "/plain";
    std::ofstream(plain) << "x";
    const struct {
        std::string name;
        int mode;
    } refused[] = {{path, IO_READ_WRITE}, {path, IO_CREATE}, {plain, IO_READ}, {"", IO_READ}};
    for (const auto& r : refused) {
        Fifo fifo;
        EXPECT_FALSE(fifo.open(r.name, r.mode, 0)) << r.name << " " << r.mode;
    }
    EXPECT_EQ(line("is not a fifo"), "<E>DATE [Fifo::open,L#] " + plain + " is not a fifo!");
    EXPECT_NE(line("IO_READ or IO_WRITE, not 2"), "");
}

}  // namespace
}  // namespace orvane
