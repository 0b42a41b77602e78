#include <orvane/Regex.h>

#include "support/LogCapture.h"
#include "support/ToolRun.h"

namespace orvane {
namespace {

using Groups = std::vector<std::string>;

TEST(Regex, MatchesWholeTextsAndSearchesWithGroups) {
    // Pattern, flags, text, whether match() takes the whole text, and what
    // search() finds: the whole match then each group (empty: no match).
    const std::vector<std::tuple<std::string, unsigned, std::string, bool, Groups>> cases = {
        {"^([a-z]+)=([0-9]+)$", 0, "baud=115200", true, {"baud=115200", "baud", "115200"}},
        {"[0-9]+", 0, "port 8080 and 9090", false, {"8080"}},
        {"a|ab", 0, "ab", true, {"ab"}},  // POSIX: the longest of the leftmost matches
        {"(x)?y", 0, "y", true, {"y", ""}},
        {"z", 0, "abc", false, {}},
        {"b.d", 0, std::string("ab\0d", 4) + "bcd", false, {"bcd"}},
        {"^ERROR", Regex::IgnoreCase, "Error: disk", false, {"Error"}}};
    for (const auto& [pattern, flags, text, whole, found] : cases) {
        Regex re(pattern, flags);
        EXPECT_EQ(re.match(text), whole) << pattern << " on " << text;
        Groups groups;
        EXPECT_EQ(re.search(text, &groups), !found.empty()) << pattern;
        EXPECT_EQ(groups, found) << pattern;
    }
    size_t at = 0;
    EXPECT_TRUE(Regex("[0-9]+").search("a1 b22 c333", nullptr, 3, &at) && at == 4u);
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
    Groups groups{"kept"};
    auto lines = test::LogCapture::get().linesDuring([&] {
        Regex re("(unclosed");
        EXPECT_FALSE(re.isValid() || re.match("(unclosed") || re.search("x", &groups));
        EXPECT_TRUE(re.findAll("anything").empty());
        EXPECT_EQ(re.replace("same", "x"), "same");
    });
    EXPECT_EQ(lines,
              std::vector<std::string>{
                  "<E>DATE [Regex::Regex,L#] bad pattern \"(unclosed\": Unmatched ( or \\("});
    EXPECT_EQ(groups, Groups{"kept"});
    EXPECT_FALSE(Regex(std::string("a\0b", 3)).isValid()) << "a NUL byte in the pattern";
}

}  // namespace
}  // namespace orvane
