#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/UniqueFd.h>
#include <unistd.h>

#include <climits>
#include <functional>
#include <tuple>
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
    if (spare != fd) {
        ASSERT_EQ(::dup2(spare, fd), fd);
        ::close(spare);
    }
}

TEST(UniqueFd, ClosesWhatItHoldsExactlyOnce) {
    // What is done to owners x and y of descriptors a and b, and which one
    // each holds afterwards: 'a', 'b' or '-' (none).
    using Act = std::function<void(UniqueFd & x, UniqueFd & y, int a)>;
    const std::vector<std::tuple<const char*, Act, char, char>> cases = {
        {"destruction", [](UniqueFd&, UniqueFd&, int) {}, 'a', 'b'},
        {"release", [](UniqueFd& x, UniqueFd&, int a) { EXPECT_EQ(x.release(), a); }, '-', 'b'},
        {"reset to the held one", [](UniqueFd& x, UniqueFd&, int a) { x.reset(a); }, 'a', 'b'},
        {"reset to another", [](UniqueFd& x, UniqueFd& y, int) { x.reset(y.release()); }, 'b', '-'},
        {"reset to a negative", [](UniqueFd& x, UniqueFd&, int) { x.reset(-7); }, '-', 'b'},
        {"move-assign", [](UniqueFd& x, UniqueFd& y, int) { y = std::move(x); }, '-', 'a'},
        {"move-assign to itself", [](UniqueFd& x, UniqueFd&, int) { x = std::move(*&x); }, 'a',
         'b'},
        {"move-construct", [](UniqueFd& x, UniqueFd& y, int) { y = UniqueFd(std::move(x)); }, '-',
         'a'},
        {"close twice",
         [](UniqueFd& x, UniqueFd&, int a) {
             x.close();
             reuse(a);
             x.close();
         },
         '-', 'b'}};
    for (const auto& [name, act, heldByX, heldByY] : cases) {
        SCOPED_TRACE(name);
        int a = openNull();
        int b = openNull();
        ASSERT_TRUE(a >= 0 && b >= 0);
        auto held = [&](char which) { return which == 'a' ? a : which == 'b' ? b : -1; };
        {
            UniqueFd x(a);
            UniqueFd y(b);
            act(x, y, a);
            EXPECT_EQ(x.get(), held(heldByX));
            EXPECT_EQ(y.get(), held(heldByY));
            // Held ones are open; a closed one is reused, so a second close would hit it.
            for (int fd : {a, b}) {
                bool isHeld = fd == x.get() || fd == y.get();
                EXPECT_TRUE(!isHeld || test::isOpenFd(fd)) << "descriptor " << fd;
                if (!isHeld && !test::isOpenFd(fd)) reuse(fd);
            }
        }
        // Destruction closed what was held, and nothing else.
        for (int fd : {a, b}) {
            bool closed = fd == held(heldByX) || fd == held(heldByY);
            EXPECT_EQ(test::isOpenFd(fd), !closed) << "descriptor " << fd;
            if (!closed) ::close(fd);
        }
    }
}

TEST(UniqueFd, HoldsNegativesAsNoneZeroAsADescriptorAndKeepsErrno) {
    for (int raw : {-1, -5, INT_MIN}) {
        UniqueFd none(raw);
        EXPECT_TRUE(none.get() == UniqueFd::kNone && !none && none.close() == 0) << raw;
    }
    UniqueFd zero(0);
    EXPECT_TRUE(zero.valid() && !zero.isAbove(0));
    EXPECT_EQ(zero.release(), 0);  // standard input stays open

    int stale = openNull();
    ::close(stale);  // a number the owners below do not really hold
    UniqueFd reported(stale);
    EXPECT_EQ(reported.close(), -1);
    EXPECT_EQ(errno, EBADF);
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
