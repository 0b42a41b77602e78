#include <fcntl.h>
#include <orvane/Fifo.h>

#include <filesystem>
#include <fstream>

#include "support/Refusal.h"
#include "support/ToolRun.h"

namespace orvane {
namespace {

class FifoTest : public ::testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(dir);
        ASSERT_TRUE(Fifo::create(path, 0600));
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string dir = test::tempPath("fifo"), path = dir + "/pipe", plain = dir + "/plain";
};

TEST_F(FifoTest, CreatesRemovesAndOpensOnlyFifos) {
    EXPECT_EQ(test::toolOutput("stat -c %A " + path), "prw-------\n");
    EXPECT_TRUE(Fifo::create(path, 0600));  // an existing FIFO is success
    std::ofstream(plain) << "x";
    test::expectRefusal([&] { return Fifo().open(plain, IO_READ); },
                        "<E>DATE [Fifo::open,L#] " + plain + " is not a fifo!");
    EXPECT_FALSE(Fifo::create(plain, 0600) || Fifo::remove(plain) ||
                 Fifo().open(path, IO_READ_WRITE));
    EXPECT_TRUE(Fifo::remove(path) && !std::filesystem::exists(path) &&
                std::filesystem::exists(plain));
}

// The ends open without waiting for each other, unless the writer is given
// time to wait for a reader; a shell writes what a Fifo reads, cat reads
// what a Fifo writes.
TEST_F(FifoTest, OpensWithoutBlockingAndCarriesDataToAndFromOtherProcesses) {
    Fifo reader, writer;
    char buf[16];
    test::expectRefusal([&] { return writer.open(path, IO_WRITE); },  // no reader: fails at once
                        "<E>DATE [Fifo::open,L#] no reader opened " + path + " within 0 us!");
    ASSERT_TRUE(reader.open(path, IO_READ));  // no writer yet: at once
    EXPECT_NE(fcntl(reader.fd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(reader.recvData(buf, sizeof buf, 20000), -2);
    ASSERT_EQ(std::system(("printf abc > '" + path + "'").c_str()), 0);  // opens at once
    EXPECT_TRUE(reader.readData(buf, sizeof buf) == 3 && std::string(buf, 3) == "abc");
    EXPECT_EQ(reader.recvData(buf, sizeof buf, 100000), 0);  // every writer gone
    reader.close();

    std::string out = dir + "/out", text(4096, 'z');  // PIPE_BUF: written whole
    FILE* cat = popen(("cat '" + path + "' > '" + out + "'").c_str(), "w");
    ASSERT_TRUE(writer.open(path, IO_WRITE, 5000000));  // waits for cat to open it
    EXPECT_EQ(writer.sendData(text.data(), 4096, 1000000), 4096);
    writer.close();
    pclose(cat);
    EXPECT_EQ(std::filesystem::file_size(out), text.size());

    ASSERT_TRUE(reader.open(path, IO_READ) && writer.open(path, IO_WRITE));
    reader.close();
    test::expectRefusal(
        [&] { return writer.writeData("x", 1) != -1; },  // no SIGPIPE death
        "<E>DATE [Fifo::writeData,L#] fifo(" + path + ") write error: Broken pipe!");
}

}  // namespace
}  // namespace orvane
