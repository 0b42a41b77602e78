#include <orvane/StrUtil.h>

#include <clocale>

#include "support/Refusal.h"

namespace orvane {
namespace {

TEST(StrUtil, SplitsJoinsFormatsShowsAndConvertsText) {
    std::string longText(5000, 'q'), bytes("\xA5\x01\x00\xff", 4);
    const char* none = nullptr;
    const std::pair<std::string, std::string> cases[] = {
        {StrUtil::format("<%s>", longText.c_str()), "<" + longText + ">"},
        {StrUtil::format(none, 1), ""},
        {StrUtil::join(StrUtil::splitString(",a,,b,", ",", false), "|"), "|a||b|"},
        {StrUtil::join(StrUtil::splitString("cpu  10 0  7", " ", true), "|"), "cpu|10|0|7"},
        {StrUtil::join(StrUtil::splitString("a::b:::c", "::", false), "|"), "a|b|:c"},
        {StrUtil::findString("a <L9> <x>", "<", ">"), "<L9>"},
        {StrUtil::hexView(bytes), "A5 01 00 FF "},
        {StrUtil::toHex(bytes) + StrUtil::toHex(bytes, true), "a50100ffA50100FF"},
        {StrUtil::trim(" \t\r\n x y \v\f") + StrUtil::toUpper("-\xc3\xa9"), "x y-\xc3\xa9"},
        {StrUtil::replaceAll("aaa", "a", "aa") + StrUtil::replaceAll("abc", "", "x"), "aaaaaaabc"},
        {StrUtil::humanSize(1023) + "|" + StrUtil::humanSize(1536) + "|" +
             StrUtil::humanSize(1024 * 1024 - 1) + "|" + StrUtil::humanSize(UINT64_MAX),
         "1023 B|1.5 KiB|1.0 MiB|16.0 EiB"},
        {StrUtil::humanDuration(999) + "|" + StrUtil::humanDuration(59999) + "|" +
             StrUtil::humanDuration(3601000) + "|" + StrUtil::humanDuration(-1500),
         "999 ms|59.9 s|1h 0m 1s|-1.5 s"}};
    for (const auto& c : cases) EXPECT_EQ(c.first, c.second);

    // Whole texts become numbers and bytes; the rest is refused.
    const std::tuple<const char*, int, int64_t> good[] = {{"-2147483648", 10, INT32_MIN},
                                                          {"0x1F", 16, 31},
                                                          {"0X1f", 0, 31},
                                                          {"010", 0, 10},
                                                          {"-0x10", 0, -16}};
    int v = 5;
    int64_t v64 = 0;
    uint64_t u64 = 0;
    unsigned u = 0;
    std::string back = "kept";
    test::expectRefusal([&] { return StrUtil::toUInt("-1", &u); },
                        "<E>DATE [toUInt,L#] negative value \"-1\" for an unsigned number");
    // Each refusal leaves the output as it was.
    for (const char* text : {"+-1", "-2147483649", "70000"}) {
        EXPECT_FALSE(StrUtil::toIntInRange(text, INT32_MIN, 65535, &v)) << text;
    }
    EXPECT_FALSE(StrUtil::fromHex("abc", &back) || StrUtil::fromHex("0 1", &back));
    EXPECT_TRUE(v == 5 && back == "kept");
    for (const auto& [text, base, value] : good) {
        EXPECT_TRUE(StrUtil::toInt(text, &v, base) && StrUtil::toInt64(text, &v64, base));
        EXPECT_TRUE(v == value && v64 == value) << text;
    }
    EXPECT_TRUE(StrUtil::toInt64("-9223372036854775808", &v64) && v64 == INT64_MIN &&
                StrUtil::toUInt64("18446744073709551615", &u64) && u64 == UINT64_MAX);
    // Blanks between pairs are skipped, so hexView's output reads back too.
    EXPECT_TRUE(StrUtil::fromHex("A5\n01\t00\r\nff ", &back) && back == bytes);
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
            text.find('e') != std::string::npos ? "number out of range" : "not a number";
        test::expectRefusal([&] { return StrUtil::toDouble(text, &d); },
                            "<E>DATE [toDouble,L#] " + reason + ": \"" + text + "\"");
        EXPECT_EQ(d, 9);
    }
    EXPECT_EQ(StrUtil::doubleToString(0.1) + " " + StrUtil::doubleToString(3.14159, 2) + " " +
                  StrUtil::doubleToString(-1e100),
              "0.1 3.14 -1e+100");
    setlocale(LC_NUMERIC, before.c_str());
}

}  // namespace
}  // namespace orvane
