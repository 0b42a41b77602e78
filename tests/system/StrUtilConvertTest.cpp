#include <gtest/gtest.h>
#include <orvane/StrUtil.h>

#include <clocale>
#include <cstdint>
#include <string>
#include <vector>

#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(StrUtil, TrimsChangesCaseComparesAndReplaces) {
    EXPECT_EQ(StrUtil::trim(" \t\r\n x y \v\f"), "x y");
    EXPECT_EQ(StrUtil::trimLeft("  x ") + StrUtil::trimRight("  x ") + StrUtil::trim(" \n "),
              "x   x");
    EXPECT_EQ(StrUtil::toUpper("abc-XYZ-\xc3\xa9"), "ABC-XYZ-\xc3\xa9");
    EXPECT_EQ(StrUtil::toLower("ABC-xyz-\xc3\x89"), "abc-xyz-\xc3\x89");
    EXPECT_TRUE(StrUtil::startsWith("/dev/ttyS0", "/dev/") && StrUtil::endsWith("fw.bin", ".bin"));
    EXPECT_FALSE(StrUtil::startsWith("/de", "/dev/") || StrUtil::endsWith("bin", ".bin"));
    EXPECT_EQ(StrUtil::replaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(StrUtil::replaceAll("abc", "", "x"), "abc");
    for (std::string s : {"", "a,,b", ",a,"}) {
        EXPECT_EQ(StrUtil::join(StrUtil::splitString(s, ",", false), ","), s);
    }
}

TEST(StrUtil, ConvertsWholeTextsToNumbersAndRefusesTheRest) {
    struct Good {
        std::string text;
        int base;
        int64_t value;
    };
    // clang-format off
    const std::vector<Good> good = {
        {"0", 10, 0}, {"-42", 10, -42}, {"+7", 10, 7}, {"2147483647", 10, INT32_MAX},
        {"-2147483648", 10, INT32_MIN}, {"ff", 16, 255}, {"0x1F", 16, 31}, {"0X1f", 0, 31},
        {"010", 0, 10}, {"-0x10", 0, -16}, {"777", 8, 511}, {"z", 36, 35}};
    // clang-format on
    for (const Good& g : good) {
        int v = 0;
        EXPECT_TRUE(StrUtil::toInt(g.text, &v, g.base)) << g.text;
        EXPECT_EQ(v, g.value) << g.text;
        int64_t v64 = 0;
        EXPECT_TRUE(StrUtil::toInt64(g.text, &v64, g.base));
        EXPECT_EQ(v64, g.value);
    }
    int64_t v64 = 0;
    uint64_t u64 = 0;
    unsigned u = 0;
    EXPECT_TRUE(StrUtil::toInt64("-9223372036854775808", &v64) &&
                StrUtil::toUInt64("18446744073709551615", &u64));
    EXPECT_TRUE(v64 == INT64_MIN && u64 == UINT64_MAX);

    // Each text against the form it is given to, and the line that refuses it.
    struct Bad {
        std::string op, text, line;
    };
    const std::vector<Bad> bad = {
        {"toInt", "", "not a base-10 number: \"\""},
        {"toInt", " 1", "not a base-10 number: \" 1\""},
        {"toInt", "12ab", "not a base-10 number: \"12ab\""},
        {"toInt", "+-1", "not a base-10 number: \"+-1\""},
        {"toInt", "2147483648", "number out of range: \"2147483648\""},
        {"toInt", "-2147483649", "number out of range: \"-2147483649\""},
        {"toUInt", "-1", "negative value \"-1\" for an unsigned number"},
        {"toUInt", "4294967296", "number out of range: \"4294967296\""},
        {"toUInt64", "18446744073709551616", "number out of range: \"18446744073709551616\""},
        {"toInt64", "9223372036854775808", "number out of range: \"9223372036854775808\""},
        {"toIntInRange", "70000", "70000 is outside [1, 65535]"},
    };
    int v = 5;
    for (const Bad& b : bad) {
        test::expectRefusal(
            [&] {
                if (b.op == "toUInt") return StrUtil::toUInt(b.text, &u);
                if (b.op == "toUInt64") return StrUtil::toUInt64(b.text, &u64);
                if (b.op == "toInt64") return StrUtil::toInt64(b.text, &v64);
                if (b.op == "toIntInRange") return StrUtil::toIntInRange(b.text, 1, 65535, &v);
                return StrUtil::toInt(b.text, &v);
            },
            "<E>DATE [" + b.op + ",L#] " + b.line);
    }
    test::expectRefusal([&] { return StrUtil::toInt("0x", &v, 16); },
                        "<E>DATE [toInt,L#] not a base-16 number: \"0x\"");
    test::expectRefusal([&] { return StrUtil::toInt("1", &v, 37); },
                        "<E>DATE [toInt,L#] bad number base 37");
    EXPECT_EQ(v, 5);
    EXPECT_TRUE(StrUtil::toIntInRange("8080", 1, 65535, &v));
    EXPECT_EQ(v, 8080);
}

TEST(StrUtil, ConvertsDoublesWithAPointWhateverTheLocale) {
    // A locale with a decimal comma, when the machine has one.
    std::string before = setlocale(LC_NUMERIC, nullptr);
    setlocale(LC_NUMERIC, "de_DE.UTF-8");
    const std::vector<std::pair<std::string, double>> good = {
        {"1.5", 1.5}, {"-2e-3", -0.002}, {"+7", 7}, {"0", 0}, {"1e308", 1e308}, {".5", 0.5}};
    for (const auto& g : good) {
        double d = 0;
        EXPECT_TRUE(StrUtil::toDouble(g.first, &d)) << g.first;
        EXPECT_EQ(d, g.second);
    }
    for (std::string text : {"", "1,5", "1.5x", " 1", "nan", "inf", "1e400", "+-1", "1e-400"}) {
        double d = 9;
        std::string reason =
            text == "1e400" || text == "1e-400" ? "number out of range" : "not a number";
        test::expectRefusal([&] { return StrUtil::toDouble(text, &d); },
                            "<E>DATE [toDouble,L#] " + reason + ": \"" + text + "\"");
        EXPECT_EQ(d, 9);
    }
    EXPECT_EQ(StrUtil::doubleToString(0.1) + " " + StrUtil::doubleToString(3.14159, 2) + " " +
                  StrUtil::doubleToString(-1e100),
              "0.1 3.14 -1e+100");
    setlocale(LC_NUMERIC, before.c_str());
}

TEST(StrUtil, WritesAndReadsHexAndShowsSizesAndSpans) {
    std::string bytes("\x00\x01\xa5\xff", 4);
    EXPECT_EQ(StrUtil::toHex(bytes), "0001a5ff");
    EXPECT_EQ(StrUtil::toHex(bytes, true), "0001A5FF");
    std::string back;
    for (const std::string& text :
         {std::string("0001A5ff"), StrUtil::hexView(bytes), std::string("00\n01\tA5\r\nff")}) {
        EXPECT_TRUE(StrUtil::fromHex(text, &back) && back == bytes) << text;
    }
    const std::vector<std::pair<std::string, std::string>> badHex = {
        {"abc", "<E>DATE [fromHex,L#] lone hex digit at the end of \"abc\""},
        {"0g", "<E>DATE [fromHex,L#] bad hex character 0x67 at offset 1"},
        {"0 1", "<E>DATE [fromHex,L#] bad hex character 0x20 at offset 1"},
    };
    for (const auto& b : badHex) {
        back = "kept";
        test::expectRefusal([&] { return StrUtil::fromHex(b.first, &back); }, b.second);
        EXPECT_EQ(back, "kept");
    }

    // clang-format off
    const std::vector<std::pair<uint64_t, std::string>> sizes = {
        {0, "0 B"}, {1023, "1023 B"}, {1024, "1.0 KiB"}, {1536, "1.5 KiB"},
        {1024 * 1024 - 1, "1.0 MiB"}, {10 * 1024 * 1024 + 512 * 1024, "10.5 MiB"},
        {3ull << 30, "3.0 GiB"}, {UINT64_MAX, "16.0 EiB"}};
    const std::vector<std::pair<int64_t, std::string>> spans = {
        {0, "0 ms"}, {999, "999 ms"}, {1000, "1.0 s"}, {12399, "12.3 s"}, {59999, "59.9 s"},
        {60000, "1m 0s"}, {307000, "5m 7s"}, {3601000, "1h 0m 1s"},
        {(2 * 86400 + 3 * 3600 + 9) * 1000LL, "2d 3h 0m 9s"}, {-1500, "-1.5 s"}};
    // clang-format on
    for (const auto& s : sizes) EXPECT_EQ(StrUtil::humanSize(s.first), s.second);
    for (const auto& s : spans) EXPECT_EQ(StrUtil::humanDuration(s.first), s.second);
}

}  // namespace
}  // namespace orvane
