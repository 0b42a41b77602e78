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
        {"^$", "", true, {""}},
        {"z", "abc", false, {}},
        {"b.d", std::string("ab\0d", 4) + "bcd", false, {"bcd"}},
    };
    for (const Case& c : cases) {
        Regex re(c.pattern);
        ASSERT_TRUE(re.isValid()) << c.pattern;
        EXPECT_EQ(re.match(c.text), c.whole) << c.pattern << " on " << c.text;
        Groups groups;
        EXPECT_EQ(re.search(c.text, &groups), !c.found.empty()) << c.pattern;
        if (!c.found.empty()) {
            EXPECT_EQ(groups, c.found) << c.pattern;
        }
    }
    size_t at = 0;
    EXPECT_TRUE(Regex("[0-9]+").search("a1 b22 c333", nullptr, 3, &at));
    EXPECT_EQ(at, 4u);
    EXPECT_TRUE(Regex("^ERROR", Regex::IgnoreCase).match("error"));
    EXPECT_FALSE(Regex("^ERROR").search("error: disk"));
    EXPECT_TRUE(Regex("^ERROR", Regex::IgnoreCase).search("error: disk"));
    EXPECT_EQ(Regex("^[a-z]+$", Regex::Multiline).findAll("one\n2\nthree"),
              (Groups{"one", "three"}));
    EXPECT_EQ(Regex("^[a-z]+").findAll("one two"), Groups{"one"});
}

TEST(Regex, FindsAllAndReplacesAsSedDoes) {
    struct Case {
        std::string pattern, text, replacement;
    };
    const std::vector<Case> cases = {
        {"([a-z]+)=([0-9]+)", "a=1, bb=22, c=x", "\\2:\\1"},
        {"[0-9]", "a1b22", "#"},
        {"x*", "abc", "-"},
        {"o", "foo boo", "0"},
        {"^ *", "   indented", ""},
        {"(a)(b)?", "ab a", "[\\2\\1]"},
    };
    for (const Case& c : cases) {
        std::string sedScript = "s/" + c.pattern + "/" + c.replacement + "/g";
        std::string sed =
            test::toolOutput("printf '%s' '" + c.text + "' | sed -E '" + sedScript + "'");
        EXPECT_EQ(Regex(c.pattern).replace(c.text, c.replacement), sed) << sedScript;
        std::string sedFirst = test::toolOutput("printf '%s' '" + c.text + "' | sed -E 's/" +
                                                c.pattern + "/" + c.replacement + "/'");
        EXPECT_EQ(Regex(c.pattern).replace(c.text, c.replacement, false), sedFirst);
    }
    EXPECT_EQ(Regex("[0-9]+").findAll("v1.22.333"), (Groups{"1", "22", "333"}));
    EXPECT_EQ(Regex("([a-z])([0-9])").findAllGroups("a1 b2"),
              (std::vector<Groups>{{"a1", "a", "1"}, {"b2", "b", "2"}}));
    EXPECT_EQ(Regex("x*").findAll("ab"), (Groups{"", "", ""}));
    EXPECT_EQ(Regex("a").replace("a\\b", "\\\\"), "\\\\b");
}

TEST(Regex, ABadPatternLogsOnceAndRefusesEverything) {
    struct Case {
        std::string pattern, line;
    };
    const std::vector<Case> cases = {
        {"(unclosed", "<E>DATE [Regex::Regex,L#] bad pattern \"(unclosed\": Unmatched ( or \\("},
        {std::string("a\0b", 3), "<E>DATE [Regex::Regex,L#] bad pattern: a NUL byte at offset 1"},
    };
    for (const Case& c : cases) {
        std::unique_ptr<Regex> re;
        EXPECT_EQ(test::LogCapture::get().linesDuring([&] { re.reset(new Regex(c.pattern)); }),
                  std::vector<std::string>{c.line});
        Groups groups{"kept"};
        auto lines = test::LogCapture::get().linesDuring([&] {
            EXPECT_FALSE(re->isValid());
            EXPECT_FALSE(re->match("(unclosed"));
            EXPECT_FALSE(re->search("anything", &groups));
            EXPECT_TRUE(re->findAll("anything").empty());
            EXPECT_EQ(re->replace("same", "x"), "same");
            EXPECT_EQ(re->groupCount(), 0u);
        });
        EXPECT_TRUE(lines.empty());
        EXPECT_EQ(groups, Groups{"kept"});
    }
    Regex moved(Regex("([0-9])"));
    EXPECT_EQ(moved.groupCount(), 1u);
    EXPECT_TRUE(moved.match("7"));
}

}  // namespace
}  // namespace orvane
