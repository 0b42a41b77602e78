// A user's first program with the newer classes, built against the installed
// headers only: options, paths, directories, mounts, socket pairs, commands,
// checksums, encodings, versions, fixed arrays, regular expressions and the
// event loop.
#include <orvane/orvane.h>

#include <cstdio>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    orvane::ArgOption args("consumer");
    args.addOption('n', "count", "N", "how many", "3");
    if (!args.parse(argc, argv)) {
        std::printf("%s\n", args.error().c_str());
        return 2;
    }
    int count = 0;
    args.getInt("count", &count);

    auto logs = (orvane::FilePath("/data") / "logs" / "app.log").parent();
    std::vector<std::string> names;
    orvane::Directory::list("/proc/self", &names, false, "st*");
    long long avail = orvane::Partition::availableBytes("/tmp");

    orvane::SocketPair pair;
    pair.open(orvane::SocketPair::STREAM);
    pair.sendData(1, "hi", 2, -1);
    char buf[8] = {};
    int got = pair.recvData(0, buf, sizeof buf, 1000000);

    std::string out;
    int status = orvane::System::runCommand("echo hello", 2000000, &out);
    std::string hex = orvane::MD5Check::hexOf("abc");
    std::string b64 = orvane::Base64::encode(std::string("hello"));
    unsigned char frame[6] = {0, 0, 0, 0, 1, 2};
    uint32_t v32 = orvane::Endian::readBig<uint32_t>(frame + 2);
    orvane::Version3 v;
    bool parsed = v.parse("1.4.2");
    orvane::ByteArray<16> bytes;
    bytes.appendBig<uint16_t>(0x1234);
    orvane::Regex re("([a-z]+)([0-9]+)");
    bool m = re.match("abc123");

    orvane::EventLoop loop;
    int fired = 0;
    loop.post([&] {
        ++fired;
        loop.stop();
    });
    loop.run();

    orvane::Tracer::getInstance().printAt(1, "Consumer", "main", __LINE__, "filtered or queued");
    std::printf(
        "count=%d logs=%s names=%zu avail>0=%d got=%d status=%d out=%s md5=%s b64=%s v32=%u "
        "v=%s<2=%d bytes=%zu re=%d fired=%d\n",
        count, logs.toString().c_str(), names.size(), avail > 0, got, status, out.c_str(),
        hex.c_str(), b64.c_str(), v32, v.toString().c_str(),
        parsed && v < orvane::Version3(2, 0, 0), bytes.size(), m, fired);
    return 0;
}
