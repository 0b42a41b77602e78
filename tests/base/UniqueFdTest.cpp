#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <orvane/UniqueFd.h>
#include <unistd.h>

#include <climits>
#include <functional>
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
    if (spare == fd) return;
    ASSERT_EQ(::dup2(spare, fd), fd);
    ::close(spare);
}

// What is done to two owners that start with descriptors a and b, and which
// descriptor each holds afterwards: 'a', 'b' or '-' (none).
struct OwnerCase {
    const char* name;
    std::function<void(UniqueFd& x, UniqueFd& y, int a, int b)> act;
    char x;
    char y;
};

int heldAs(char which, int a, int b) { return which == 'a' ? a : which == 'b' ? b : -1; }

TEST(UniqueFd, ClosesWhatItHoldsExactlyOnce) {
    const std::vector<OwnerCase> cases = {
        {"destruction closes both", [](UniqueFd&, UniqueFd&, int, int) {}, 'a', 'b'},
        {"release gives a up unclosed",
         [](UniqueFd& x, UniqueFd&, int a, int) { EXPECT_EQ(x.release(), a); }, '-', 'b'},
        {"reset to the held descriptor keeps it open",
         [](UniqueFd& x, UniqueFd&, int a, int) { x.reset(a); }, 'a', 'b'},
        {"reset to another closes the old one",
         [](UniqueFd& x, UniqueFd& y, int, int) { x.reset(y.release()); }, 'b', '-'},
        {"reset to a negative value closes and holds none",
         [](UniqueFd& x, UniqueFd&, int, int) { x.reset(-7); }, '-', 'b'},
        {"move-assign closes the target's own",
         [](UniqueFd& x, UniqueFd& y, int, int) { y = std::move(x); }, '-', 'a'},
        {"move-assign to itself keeps it",
         [](UniqueFd& x, UniqueFd&, int, int) {
             UniqueFd& same = x;
             x = std::move(same);
         },
         'a', 'b'},
        {"move-construct empties the source",
         [](UniqueFd& x, UniqueFd& y, int, int) {
             UniqueFd taken(std::move(x));
             // A moved-from owner is documented to be empty.
             // NOLINTNEXTLINE(bugprone-use-after-move)
             EXPECT_FALSE(x.valid());
             y = std::move(taken);
         },
         '-', 'a'},
        {"a second close closes nothing",
         [](UniqueFd& x, UniqueFd&, int a, int) {
             EXPECT_EQ(x.close(), 0);
             reuse(a);
             EXPECT_EQ(x.close(), 0);
         },
         '-', 'b'},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        int a = openNull();
        int b = openNull();
        ASSERT_TRUE(a >= 0 && b >= 0);
        {
            UniqueFd x(a);
            UniqueFd y(b);
            c.act(x, y, a, b);
            EXPECT_EQ(x.get(), heldAs(c.x, a, b));
            EXPECT_EQ(y.get(), heldAs(c.y, a, b));
            for (int fd : {a, b}) {
                bool held = fd == x.get() || fd == y.get();
                if (held) {
                    EXPECT_TRUE(test::isOpenFd(fd));
                } else if (!test::isOpenFd(fd)) {
                    reuse(fd);  // a second close of this number would hit it
                }
            }
        }
        // Destruction closed what was held, and nothing else.
        for (int fd : {a, b}) {
            bool held = fd == heldAs(c.x, a, b) || fd == heldAs(c.y, a, b);
            EXPECT_EQ(test::isOpenFd(fd), !held) << "descriptor " << fd;
            if (!held) ::close(fd);
        }
    }
}

TEST(UniqueFd, HoldsNegativesAsNoneAndZeroAsADescriptor) {
    for (int raw : {-1, -5, INT_MIN}) {
        UniqueFd none(raw);
        EXPECT_EQ(none.get(), UniqueFd::kNone) << raw;
        EXPECT_FALSE(none.valid() || static_cast<bool>(none)) << raw;
        EXPECT_EQ(none.close(), 0) << raw;
    }
    UniqueFd zero(0);
    EXPECT_TRUE(zero.valid() && !zero.isAbove(0));
    EXPECT_EQ(zero.release(), 0);  // standard input stays open
    EXPECT_TRUE(test::isOpenFd(0));
}

TEST(UniqueFd, ReportsCloseErrorsOnlyFromCloseAndKeepsErrnoOtherwise) {
    int stale = openNull();
    ASSERT_GE(stale, 0);
    ::close(stale);  // a number this owner does not really hold

    UniqueFd reported(stale);
    EXPECT_EQ(reported.close(), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(reported.valid());

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
