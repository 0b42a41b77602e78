#include <orvane/UniqueFd.h>

#include "support/Descriptors.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

int openNull() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

TEST(UniqueFd, ClosesWhatItHoldsExactlyOnce) {
    // What is done to owners x and y of descriptors a and b, which of a and b
    // are open afterwards, and which one each owner holds ('-' for none).
    using U = UniqueFd&;
    const std::tuple<const char*, void (*)(U, U, int), const char*, std::string> cases[] = {
        {"reset to the held one", [](U x, U, int a) { x.reset(a); }, "ab", "ab"},
        {"reset to another", [](U x, U y, int) { x.reset(y.release()); }, "b", "b-"},
        {"reset to a negative", [](U x, U, int) { x.reset(-7); }, "b", "-b"},
        {"move-assign", [](U x, U y, int) { y = std::move(x); }, "a", "-a"},
        {"move-assign to itself", [](U x, U, int) { x = std::move(*&x); }, "ab", "ab"},
        {"move-construct", [](U x, U y, int) { y = UniqueFd(std::move(x)); }, "a", "-a"},
        {"close twice", [](U x, U, int) { x.close(), x.close(); }, "b", "-b"}};
    for (const auto& [name, act, open, held] : cases) {
        SCOPED_TRACE(name);
        const int fds[] = {openNull(), openNull()};
        auto nameOf = [&](int fd) { return fd == fds[0] ? 'a' : fd == fds[1] ? 'b' : '-'; };
        auto openNow = [&] {
            return std::string(test::isOpenFd(fds[0]) ? "a" : "") +
                   (test::isOpenFd(fds[1]) ? "b" : "");
        };
        {
            UniqueFd x(fds[0]), y(fds[1]);
            act(x, y, fds[0]);
            EXPECT_EQ(std::string({nameOf(x.get()), nameOf(y.get())}) + " " + openNow(),
                      held + " " + open);
        }
        EXPECT_EQ(openNow(), "");  // destruction closed what was held
    }
}

TEST(UniqueFd, HoldsNegativesAsNoneZeroAsADescriptorAndKeepsErrno) {
    EXPECT_TRUE(UniqueFd(-5).get() == UniqueFd::kNone && UniqueFd(-5).close() == 0);
    UniqueFd zero(0);
    EXPECT_TRUE(zero.valid() && !zero.isAbove(0) && zero.release() == 0);  // stdin stays open

    const int stale = UniqueFd(openNull()).get();  // closed again: a number no one holds
    EXPECT_TRUE(UniqueFd(stale).close() == -1 && errno == EBADF);
    errno = ENOENT;             // as a failed open() would have left it
    UniqueFd(stale).reset(-1);  // close() fails with EBADF underneath
    EXPECT_TRUE(errno == ENOENT && UniqueFd(stale).valid());
    EXPECT_EQ(errno, ENOENT);  // the destructor's failing close() too
}

}  // namespace
}  // namespace orvane
