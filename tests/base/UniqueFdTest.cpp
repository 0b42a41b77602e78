#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/UniqueFd.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "support/Descriptors.h"

namespace orvane {
namespace {

int openNull() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

// Puts a fresh descriptor at the number `fd`, which was just closed, so that a
// second close of that number would hit it.
void reuse(int fd) {
    int spare = openNull();  // often takes that lowest free number itself
    ASSERT_EQ(::dup2(spare, fd), fd);
    if (spare != fd) ::close(spare);
}

TEST(UniqueFd, ClosesWhatItHoldsExactlyOnce) {
    // What is done to owners x and y of descriptors a and b, which of a and b
    // are open afterwards, and which one each owner holds ('-' for none).
    using U = UniqueFd&;
    struct Case {
        const char* name;
        void (*act)(U x, U y, int a);
        std::string open, held;
    };
    const std::vector<Case> cases = {
        {"destruction", [](U, U, int) {}, "ab", "ab"},
        {"release", [](U x, U, int a) { EXPECT_EQ(x.release(), a); }, "ab", "-b"},
        {"reset to the held one", [](U x, U, int a) { x.reset(a); }, "ab", "ab"},
        {"reset to another", [](U x, U y, int) { x.reset(y.release()); }, "b", "b-"},
        {"reset to a negative", [](U x, U, int) { x.reset(-7); }, "b", "-b"},
        {"move-assign", [](U x, U y, int) { y = std::move(x); }, "a", "-a"},
        {"move-assign to itself", [](U x, U, int) { x = std::move(*&x); }, "ab", "ab"},
        {"move-construct", [](U x, U y, int) { y = UniqueFd(std::move(x)); }, "a", "-a"},
        // A second close must not hit the number, now reused.
        {"close twice", [](U x, U, int a) { x.close(), reuse(a), x.close(); }, "ab", "-b"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        int fds[] = {openNull(), openNull()};
        ASSERT_TRUE(fds[0] >= 0 && fds[1] >= 0);
        auto nameOf = [&](int fd) { return fd == fds[0] ? 'a' : fd == fds[1] ? 'b' : '-'; };
        auto openNow = [&] {
            return std::string(test::isOpenFd(fds[0]) ? "a" : "") +
                   (test::isOpenFd(fds[1]) ? "b" : "");
        };
        {
            UniqueFd x(fds[0]), y(fds[1]);
            c.act(x, y, fds[0]);
            EXPECT_EQ(std::string({nameOf(x.get()), nameOf(y.get())}), c.held);
            EXPECT_EQ(openNow(), c.open);
        }
        // Destruction closed what was held, and nothing else.
        std::string left;
        for (char which : c.open)
            if (c.held.find(which) == std::string::npos) left += which;
        EXPECT_EQ(openNow(), left);
        for (char which : left) ::close(fds[which - 'a']);
    }
}

TEST(UniqueFd, HoldsNegativesAsNoneZeroAsADescriptorAndKeepsErrno) {
    for (int raw : {-1, -5, INT_MIN}) {
        UniqueFd none(raw);
        EXPECT_TRUE(none.get() == UniqueFd::kNone && !none && none.close() == 0) << raw;
    }
    UniqueFd zero(0);
    EXPECT_TRUE(zero.valid() && !zero.isAbove(0) && zero.release() == 0);  // stdin stays open

    int stale = openNull();
    ::close(stale);  // a number the owners below do not really hold
    UniqueFd reported(stale);
    EXPECT_TRUE(reported.close() == -1 && errno == EBADF);
    errno = ENOENT;  // as a failed open() would have left it
    {
        UniqueFd quiet(stale);
        quiet.reset(-1);  // close() fails with EBADF underneath
        EXPECT_EQ(errno, ENOENT);
        quiet.reset(stale);
    }
    EXPECT_EQ(errno, ENOENT);  // the destructor's failing close() too
}

}  // namespace
}  // namespace orvane
