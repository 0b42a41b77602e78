#include <gtest/gtest.h>
#include <orvane/Regex.h>

#include <string>
#include <vector>

#include "ToolRun.h"
#include "support/LogCapture.h"

namespace orvane {
namespace {

using Groups = std::vector<std::string>;

TEST(Regex, MatchesWholeTextsAndSearchesWithGroups) {
    struct Case {
        std::string pattern, text;
        bool whole;
        Groups found;  // search(): the whole match then each group; empty: no match
    };
    const std::vector<Case> cases = {
        {"^([a-z]+)=([0-9]+)$", "baud=115200", true, {"baud=115200", "baud", "115200"}},
        {"[0-9]+", "port 8080 and 9090", false, {"8080"}},
        {"a|ab", "ab", true, {"ab"}},  // POSIX: the longest of the leftmost matches
        {"(x)?y", "y", true, {"y", ""}},
        {"z", "abc", false, {}},
        {"b.d", std::string("ab\0d", 4) + "bcd", false, {"bcd"}}};
    for (const Case& c : cases) {
        Regex re(c.pattern);
        EXPECT_EQ(re.match(c.text), c.whole) << c.pattern << " on " << c.text;
        Groups groups;
        EXPECT_EQ(re.search(c.text, &groups), !c.found.empty()) << c.pattern;
        EXPECT_EQ(groups, c.found) << c.pattern;
    }
    size_t at = 0;
    EXPECT_TRUE(Regex("[0-9]+").search("a1 b22 c333", nullptr, 3, &at));
    EXPECT_EQ(at, 4u);
    EXPECT_TRUE(Regex("^ERROR", Regex::IgnoreCase).search("error: disk"));
    EXPECT_EQ(Regex("^[a-z]+$", Regex::Multiline).findAll("one\n2\nthree"),
              (Groups{"one", "three"}));
    EXPECT_EQ(Regex("([a-z])([0-9])").findAllGroups("a1 b2"),
              (std::vector<Groups>{{"a1", "a", "1"}, {"b2", "b", "2"}}));
}

TEST(Regex, FindsAllAndReplacesAsSedDoes) {
    const std::vector<std::vector<std::string>> cases = {
        {"([a-z]+)=([0-9]+)", "a=1, bb=22", "\\2:\\1"},
        {"x*", "abc", "-"},
        {"^ *", "   indented", ""},
        {"(a)(b)?", "ab a", "[\\2\\1]"}};
    for (const auto& c : cases) {
        for (const char* flag : {"g", ""}) {
            std::string script = "s/" + c[0] + "/" + c[2] + "/" + flag;
            EXPECT_EQ(Regex(c[0]).replace(c[1], c[2], *flag != '\0'),
                      test::toolOutput("printf '%s' '" + c[1] + "' | sed -E '" + script + "'"))
                << script;
        }
    }
    EXPECT_EQ(Regex("a").replace("a\\b", "\\\\"), "\\\\b");
}

TEST(Regex, ABadPatternLogsOnceAndRefusesEverything) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"(unclosed", "<E>DATE [Regex::Regex,L#] bad pattern \"(unclosed\": Unmatched ( or \\("},
        {std::string("a\0b", 3), "<E>DATE [Regex::Regex,L#] bad pattern: a NUL byte at offset 1"}};
    for (const auto& c : cases) {
        Groups groups{"kept"};
        auto lines = test::LogCapture::get().linesDuring([&] {
            Regex re(c.first);
            EXPECT_FALSE(re.isValid() || re.match("(unclosed") || re.search("x", &groups));
            EXPECT_TRUE(re.findAll("anything").empty());
            EXPECT_EQ(re.replace("same", "x"), "same");
        });
        EXPECT_EQ(lines, std::vector<std::string>{c.second});
        EXPECT_EQ(groups, Groups{"kept"});
    }
}

}  // namespace
}  // namespace orvane
