// A device self-test built on orvane's own test harness: the checks a
// program can run on its target at start-up or from a service menu, without
// GoogleTest. Run it with --filter=Suite.* to pick checks and
// --junit=report.xml for a report a test station can collect; the exit
// status is non-zero when a check failed.

#include <orvane/orvane.h>
#include <unistd.h>

#include <string>

ORVANE_TEST(System, ProcIsReadable) {
    std::string meminfo = orvane::File::readAll("/proc/meminfo");
    ORVANE_ASSERT_FALSE(meminfo.empty());
    ORVANE_EXPECT_TRUE(orvane::StrUtil::startsWith(meminfo, "MemTotal:"));
    orvane::SysStat stat;
    ORVANE_ASSERT_TRUE(stat.updateStat());
    ORVANE_EXPECT_GT(stat.cpuCount(), 0);
}

ORVANE_TEST(System, TheMonotonicClockMoves) {
    orvane::Time start = orvane::Time::fromMono();
    usleep(2000);
    int64_t elapsedUs = orvane::Time::usSinceMono(start);
    ORVANE_EXPECT_GE(elapsedUs, 2000);
    ORVANE_EXPECT_LT(elapsedUs, 2000000);
}

ORVANE_TEST(System, TheTempDirectoryIsWritable) {
    std::string path = "/tmp/selftest." + std::to_string(getpid());
    orvane::File file;
    ORVANE_ASSERT_TRUE(file.open(path, orvane::IO_TRUNCATE));
    ORVANE_EXPECT_EQ(file.writeData("orvane", 6), 6);
    file.close();
    ORVANE_EXPECT_EQ(orvane::MD5Check::hexOfFile(path), orvane::MD5Check::hexOf("orvane"));
    ORVANE_EXPECT_TRUE(orvane::File::remove(path));
}

ORVANE_TEST(Library, Md5OfAKnownString) {
    ORVANE_EXPECT_EQ(orvane::MD5Check::hexOf("abc"), "900150983cd24fb0d6963f7d28e17f72");
}

ORVANE_TEST(Library, CodecsRoundTrip) {
    ORVANE_EXPECT_EQ(orvane::Base64::encode("foobar"), "Zm9vYmFy");
    orvane::ByteArray<8> frame;
    ORVANE_ASSERT_TRUE(frame.appendBig<uint32_t>(0xA55A0102));
    uint16_t word = 0;
    ORVANE_ASSERT_TRUE(frame.readBig(1, &word));
    ORVANE_EXPECT_EQ(word, 0x5A01);
    ORVANE_EXPECT_TRUE(orvane::Version3::fromString("1.10.0") > orvane::Version3(1, 9, 7));
    ORVANE_EXPECT_TRUE(orvane::Regex("^[0-9]+\\.[0-9]+$").match("3.14"));
}

int main(int argc, char** argv) {
    orvane::Tracer& tracer = orvane::Tracer::getInstance();
    tracer.addSink(std::make_shared<orvane::STDSink>());
    tracer.start();
    // Lines still queued are delivered when the Tracer is destroyed at exit.
    return orvane::test::TestRunner::main(argc, argv);
}
