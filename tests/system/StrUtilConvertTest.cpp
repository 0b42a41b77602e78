#include <gtest/gtest.h>
#include <orvane/StrUtil.h>

#include <clocale>
#include <cstdint>
#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace orvane {
namespace {

TEST(StrUtil, TrimsChangesCaseComparesAndReplaces) {
    EXPECT_EQ(StrUtil::trim(" \t\r\n x y \v\f"), "x y");
    EXPECT_EQ(StrUtil::trimLeft("  x "), "x ");
    EXPECT_EQ(StrUtil::trimRight("  x "), "  x");
    EXPECT_EQ(StrUtil::trim(" \n "), "");
    EXPECT_EQ(StrUtil::toUpper("abc-XYZ-\xc3\xa9"), "ABC-XYZ-\xc3\xa9");
    EXPECT_EQ(StrUtil::toLower("ABC-xyz-\xc3\x89"), "abc-xyz-\xc3\x89");
    EXPECT_TRUE(StrUtil::startsWith("/dev/ttyS0", "/dev/"));
    EXPECT_FALSE(StrUtil::startsWith("/de", "/dev/"));
    EXPECT_TRUE(StrUtil::endsWith("fw.bin", ".bin"));
    EXPECT_FALSE(StrUtil::endsWith("bin", ".bin"));
    EXPECT_TRUE(StrUtil::startsWith("x", "") && StrUtil::endsWith("x", ""));
    EXPECT_EQ(StrUtil::replaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(StrUtil::replaceAll("a.b.c", ".", ""), "abc");
    EXPECT_EQ(StrUtil::replaceAll("abc", "", "x"), "abc");
    for (std::string s : {"", "a", "a,,b", ",a,"}) {
        EXPECT_EQ(StrUtil::join(StrUtil::splitString(s, ",", false), ","), s);
    }
}

TEST(StrUtil, ConvertsWholeTextsToNumbersAndRefusesTheRest) {
    struct Good {
        std::string text;
        int base;
        int64_t value;
    };
    const std::vector<Good> good = {
        {"0", 10, 0},
        {"-42", 10, -42},
        {"+7", 10, 7},
        {"2147483647", 10, INT32_MAX},
        {"-2147483648", 10, INT32_MIN},
        {"ff", 16, 255},
        {"0x1F", 16, 31},
        {"0X1f", 0, 31},
        {"010", 0, 10},
        {"-0x10", 0, -16},
        {"777", 8, 511},
        {"z", 36, 35},
    };
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
    EXPECT_TRUE(StrUtil::toInt64("-9223372036854775808", &v64));
    EXPECT_EQ(v64, INT64_MIN);
    EXPECT_TRUE(StrUtil::toUInt64("18446744073709551615", &u64));
    EXPECT_EQ(u64, UINT64_MAX);
    EXPECT_TRUE(StrUtil::toUInt("4294967295", &u));
    EXPECT_EQ(u, UINT32_MAX);

    struct Bad {
        std::function<bool()> call;
        std::string line;
    };
    int v = 5;
    const std::string e = "<E>DATE ";
    const std::vector<Bad> bad = {
        {[&] { return StrUtil::toInt("", &v); }, e + "[toInt,L#] not a base-10 number: \"\""},
        {[&] { return StrUtil::toInt(" 1", &v); }, e + "[toInt,L#] not a base-10 number: \" 1\""},
        {[&] { return StrUtil::toInt("1 ", &v); }, e + "[toInt,L#] not a base-10 number: \"1 \""},
        {[&] { return StrUtil::toInt("12ab", &v); },
         e + "[toInt,L#] not a base-10 number: \"12ab\""},
        {[&] { return StrUtil::toInt("+-1", &v); }, e + "[toInt,L#] not a base-10 number: \"+-1\""},
        {[&] { return StrUtil::toInt("0x", &v, 16); },
         e + "[toInt,L#] not a base-16 number: \"0x\""},
        {[&] { return StrUtil::toInt("2147483648", &v); },
         e + "[toInt,L#] number out of range: \"2147483648\""},
        {[&] { return StrUtil::toInt("-2147483649", &v); },
         e + "[toInt,L#] number out of range: \"-2147483649\""},
        {[&] { return StrUtil::toInt("1", &v, 37); }, e + "[toInt,L#] bad number base 37"},
        {[&] { return StrUtil::toInt("1", nullptr); }, e + "[toInt,L#] null output for \"1\""},
        {[&] { return StrUtil::toUInt("-1", &u); },
         e + "[toUInt,L#] negative value \"-1\" for an unsigned number"},
        {[&] { return StrUtil::toUInt("4294967296", &u); },
         e + "[toUInt,L#] number out of range: \"4294967296\""},
        {[&] { return StrUtil::toUInt64("18446744073709551616", &u64); },
         e + "[toUInt64,L#] number out of range: \"18446744073709551616\""},
        {[&] { return StrUtil::toInt64("9223372036854775808", &v64); },
         e + "[toInt64,L#] number out of range: \"9223372036854775808\""},
        {[&] { return StrUtil::toIntInRange("70000", 1, 65535, &v); },
         e + "[toIntInRange,L#] 70000 is outside [1, 65535]"},
    };
    for (const Bad& b : bad) {
        bool ok = true;
        auto lines = test::LogCapture::get().linesDuring([&] { ok = b.call(); });
        EXPECT_FALSE(ok) << b.line;
        EXPECT_EQ(lines, std::vector<std::string>{b.line});
    }
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
        bool ok = true;
        auto lines = test::LogCapture::get().linesDuring([&] { ok = StrUtil::toDouble(text, &d); });
        EXPECT_FALSE(ok) << text;
        EXPECT_EQ(d, 9);
        ASSERT_EQ(lines.size(), 1u) << text;
        EXPECT_EQ(lines[0].find("<E>DATE [toDouble,L#] "), 0u) << lines[0];
    }
    EXPECT_EQ(StrUtil::doubleToString(0.1), "0.1");
    EXPECT_EQ(StrUtil::doubleToString(3.14159, 2), "3.14");
    EXPECT_EQ(StrUtil::doubleToString(-1e100), "-1e+100");
    EXPECT_EQ(StrUtil::doubleToString(2, 0), "2");
    setlocale(LC_NUMERIC, before.c_str());
}

TEST(StrUtil, WritesAndReadsHexAndShowsSizesAndSpans) {
    std::string bytes("\x00\x01\xa5\xff", 4);
    EXPECT_EQ(StrUtil::toHex(bytes), "0001a5ff");
    EXPECT_EQ(StrUtil::toHex(bytes, true), "0001A5FF");
    std::string back;
    for (std::string text : {"0001a5ff", "0001A5FF", "00 01 A5 FF ", "00\n01\tA5\r\nff"}) {
        EXPECT_TRUE(StrUtil::fromHex(text, &back)) << text;
        EXPECT_EQ(back, bytes);
    }
    EXPECT_TRUE(StrUtil::fromHex(StrUtil::hexView(bytes), &back));
    EXPECT_EQ(back, bytes);
    const std::vector<std::pair<std::string, std::string>> badHex = {
        {"abc", "<E>DATE [fromHex,L#] lone hex digit at the end of \"abc\""},
        {"0g", "<E>DATE [fromHex,L#] bad hex character 0x67 at offset 1"},
        {"0 1", "<E>DATE [fromHex,L#] bad hex character 0x20 at offset 1"},
    };
    for (const auto& b : badHex) {
        back = "kept";
        auto lines = test::LogCapture::get().linesDuring(
            [&] { EXPECT_FALSE(StrUtil::fromHex(b.first, &back)); });
        EXPECT_EQ(lines, std::vector<std::string>{b.second});
        EXPECT_EQ(back, "kept");
    }

    const std::vector<std::pair<uint64_t, std::string>> sizes = {
        {0, "0 B"},
        {1023, "1023 B"},
        {1024, "1.0 KiB"},
        {1536, "1.5 KiB"},
        {1024 * 1024 - 1, "1.0 MiB"},
        {10 * 1024 * 1024 + 512 * 1024, "10.5 MiB"},
        {3ull << 30, "3.0 GiB"},
        {UINT64_MAX, "16.0 EiB"},
    };
    for (const auto& s : sizes) EXPECT_EQ(StrUtil::humanSize(s.first), s.second);
    const std::vector<std::pair<int64_t, std::string>> spans = {
        {0, "0 ms"},
        {999, "999 ms"},
        {1000, "1.0 s"},
        {12399, "12.3 s"},
        {59999, "59.9 s"},
        {60000, "1m 0s"},
        {307000, "5m 7s"},
        {3601000, "1h 0m 1s"},
        {(2 * 86400 + 3 * 3600 + 9) * 1000LL, "2d 3h 0m 9s"},
        {-1500, "-1.5 s"},
    };
    for (const auto& s : spans) EXPECT_EQ(StrUtil::humanDuration(s.first), s.second);
}

}  // namespace
}  // namespace orvane
