#include <gtest/gtest.h>
#include <orvane/StrUtil.h>

#include <clocale>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/Refusal.h"

namespace orvane {
namespace {

using Pieces = std::vector<std::string>;

TEST(StrUtil, SplitsJoinsFormatsFindsAndChangesText) {
    EXPECT_EQ(StrUtil::splitString("cpu  10 0  7", " ", true), (Pieces{"cpu", "10", "0", "7"}));
    EXPECT_EQ(StrUtil::splitString("a::b:::c", "::", false), (Pieces{"a", "b", ":c"}));
    for (std::string s : {"", "a,,b", ",a,"}) {
        EXPECT_EQ(StrUtil::join(StrUtil::splitString(s, ",", false), ","), s);
    }
    std::string longText(5000, 'q');
    const char* none = nullptr;
    const std::pair<std::string, std::string> cases[] = {
        {StrUtil::format("<%s>", longText.c_str()), "<" + longText + ">"},
        {StrUtil::format(none, 1), ""},
        {StrUtil::findString("a <L9> <x>", "<", ">"), "<L9>"},
        {StrUtil::hexView(std::string("\xA5\x01\x00\xff", 4)), "A5 01 00 FF "},
        {StrUtil::trim(" \t\r\n x y \v\f") + StrUtil::trimLeft("  x ") + StrUtil::trim(" "),
         "x yx "},
        {StrUtil::toUpper("abc-\xc3\xa9") + StrUtil::toLower("XYZ-\xc3\x89"),
         "ABC-\xc3\xa9xyz-\xc3\x89"},
        {StrUtil::replaceAll("aaa", "a", "aa") + StrUtil::replaceAll("abc", "", "x"), "aaaaaaabc"}};
    for (const auto& c : cases) EXPECT_EQ(c.first, c.second);
    EXPECT_TRUE(StrUtil::startsWith("/dev/ttyS0", "/dev/") && StrUtil::endsWith("fw.bin", ".bin"));
    EXPECT_FALSE(StrUtil::startsWith("/de", "/dev/") || StrUtil::endsWith("bin", ".bin"));
}

TEST(StrUtil, ConvertsWholeTextsToNumbersAndRefusesTheRest) {
    const std::pair<std::string, int> good[] = {{"-2147483648", 10}, {"+7", 10}, {"0x1F", 16},
                                                {"0X1f", 0},         {"010", 0}, {"-0x10", 0}};
    const int64_t values[] = {INT32_MIN, 7, 31, 31, 10, -16};
    for (size_t i = 0; i < sizeof values / sizeof values[0]; ++i) {
        int v = 0;
        int64_t v64 = 0;
        EXPECT_TRUE(StrUtil::toInt(good[i].first, &v, good[i].second) &&
                    StrUtil::toInt64(good[i].first, &v64, good[i].second));
        EXPECT_TRUE(v == values[i] && v64 == values[i]) << good[i].first;
    }
    int64_t v64 = 0;
    uint64_t u64 = 0;
    unsigned u = 0;
    int v = 5;
    EXPECT_TRUE(StrUtil::toInt64("-9223372036854775808", &v64) &&
                StrUtil::toUInt64("18446744073709551615", &u64));
    EXPECT_TRUE(v64 == INT64_MIN && u64 == UINT64_MAX);

    const std::vector<std::pair<std::function<bool()>, std::string>> bad = {
        {[&] { return StrUtil::toInt("+-1", &v); }, "[toInt,L#] not a base-10 number: \"+-1\""},
        {[&] { return StrUtil::toInt("1", &v, 37); }, "[toInt,L#] bad number base 37"},
        {[&] { return StrUtil::toInt("2147483648", &v); },
         "[toInt,L#] number out of range: \"2147483648\""},
        {[&] { return StrUtil::toInt("-2147483649", &v); },
         "[toInt,L#] number out of range: \"-2147483649\""},
        {[&] { return StrUtil::toUInt("-1", &u); },
         "[toUInt,L#] negative value \"-1\" for an unsigned number"},
        {[&] { return StrUtil::toIntInRange("70000", 1, 65535, &v); },
         "[toIntInRange,L#] 70000 is outside [1, 65535]"}};
    for (const auto& b : bad) test::expectRefusal(b.first, "<E>DATE " + b.second);
    EXPECT_EQ(v, 5);
    EXPECT_TRUE(StrUtil::toIntInRange("8080", 1, 65535, &v) && v == 8080);
}

TEST(StrUtil, ConvertsDoublesWithAPointWhateverTheLocale) {
    std::string before = setlocale(LC_NUMERIC, nullptr);
    setlocale(LC_NUMERIC, "de_DE.UTF-8");  // a decimal comma, when the machine has it
    const std::pair<std::string, double> good[] = {{"-2e-3", -0.002}, {"+7", 7}, {".5", 0.5}};
    for (const auto& g : good) {
        double d = 0;
        EXPECT_TRUE(StrUtil::toDouble(g.first, &d) && d == g.second) << g.first;
    }
    for (std::string text : {"", "1,5", "+-1", "inf", "1e400", "1e-400"}) {
        double d = 9;
        std::string reason =
            text.find("e") != std::string::npos ? "number out of range" : "not a number";
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
    EXPECT_EQ(StrUtil::toHex(bytes) + StrUtil::toHex(bytes, true), "0001a5ff0001A5FF");
    std::string back;
    for (const std::string& text : {StrUtil::hexView(bytes), std::string("00\n01\tA5\r\nff")}) {
        EXPECT_TRUE(StrUtil::fromHex(text, &back) && back == bytes) << text;
    }
    back = "kept";
    test::expectRefusal([&] { return StrUtil::fromHex("abc", &back); },
                        "<E>DATE [fromHex,L#] lone hex digit at the end of \"abc\"");
    test::expectRefusal([&] { return StrUtil::fromHex("0 1", &back); },
                        "<E>DATE [fromHex,L#] bad hex character 0x20 at offset 1");
    EXPECT_EQ(back, "kept");
    const std::pair<uint64_t, std::string> sizes[] = {{1023, "1023 B"},
                                                      {1536, "1.5 KiB"},
                                                      {1024 * 1024 - 1, "1.0 MiB"},
                                                      {UINT64_MAX, "16.0 EiB"}};
    const std::pair<int64_t, std::string> spans[] = {
        {999, "999 ms"}, {59999, "59.9 s"}, {3601000, "1h 0m 1s"}, {-1500, "-1.5 s"}};
    for (const auto& s : sizes) EXPECT_EQ(StrUtil::humanSize(s.first), s.second);
    for (const auto& s : spans) EXPECT_EQ(StrUtil::humanDuration(s.first), s.second);
}

}  // namespace
}  // namespace orvane
