#include <gtest/gtest.h>
#include <orvane/ArgOption.h>

#include <string>
#include <vector>

#include "support/LogCapture.h"

namespace orvane {
namespace {

using Args = std::vector<std::string>;

// The options of a serial-to-TCP gateway.
void declareGateway(ArgOption* args) {
    args->addOption('l', "listen", "HOST:PORT", "address to listen on", "0.0.0.0:5020");
    args->addOption('b', "baud", "N", "serial speed", "115200");
    args->addOption(0, "parity", "MODE", "serial parity", "none");
    args->setChoices("parity", {"none", "odd", "even"});
    args->addFlag('v', "verbose", "more log lines");
    args->addOption('I', "", "DIR", "search directory");
    args->addPositional("DEVICE", "serial device");
}

TEST(ArgOption, ReadsEveryFormOfOptionAndArgument) {
    struct Case {
        Args args;
        const char* listen;
        int baud;
        const char* parity;
        int verbose;
        Args positionals;
    };
    const Case cases[] = {
        {{"--listen", "10.0.0.1:502", "--baud=9600", "-v", "--parity", "even", "/dev/ttyS1"},
         "10.0.0.1:502",
         9600,
         "even",
         1,
         {"/dev/ttyS1"}},
        {{"-vvv", "-b4800", "-l", "h:1", "/dev/x"}, "h:1", 4800, "none", 3, {"/dev/x"}},
        {{"-vb", "2400", "/dev/x", "-v"}, "0.0.0.0:5020", 2400, "none", 2, {"/dev/x"}},
        {{"/dev/x"}, "0.0.0.0:5020", 115200, "none", 0, {"/dev/x"}},
        {{"--", "-v"}, "0.0.0.0:5020", 115200, "none", 0, {"-v"}},
        {{"-"}, "0.0.0.0:5020", 115200, "none", 0, {"-"}},
        {{"--parity=", "odd", "-b", "-1200"}, "0.0.0.0:5020", 115200, "none", 0, {}},
    };
    for (size_t i = 0; i + 1 < sizeof cases / sizeof cases[0]; ++i) {
        const Case& c = cases[i];
        SCOPED_TRACE(c.args.front());
        ArgOption args("gateway");
        declareGateway(&args);
        ASSERT_TRUE(args.parse(c.args)) << args.error();
        EXPECT_EQ(args.error(), "");
        EXPECT_EQ(args.getString("listen"), c.listen);
        int baud = 0;
        EXPECT_TRUE(args.getInt("--baud", &baud, 1200, 921600));
        EXPECT_EQ(baud, c.baud);
        EXPECT_EQ(args.getString("parity"), c.parity);
        EXPECT_EQ(args.count("-v"), c.verbose);
        EXPECT_EQ(args.isSet("verbose"), c.verbose > 0);
        EXPECT_EQ(args.positionals(), c.positionals);
        EXPECT_EQ(args.getPositional("DEVICE"), c.positionals.front());
        EXPECT_FALSE(args.helpRequested());
    }
    // An empty value is refused by the choices of --parity.
    ArgOption args("gateway");
    declareGateway(&args);
    EXPECT_FALSE(args.parse(cases[6].args));
    EXPECT_EQ(args.error(), "option --parity: '' is not one of none, odd, even");
}

TEST(ArgOption, KeepsEveryValueOfARepeatedOptionAndParsesAfresh) {
    ArgOption args;
    declareGateway(&args);
    const char* argv[] = {"/usr/bin/gw", "-I", "a", "-Ib", "-I", "c", "dev", nullptr};
    ASSERT_TRUE(args.parse(7, argv));
    EXPECT_EQ(args.getValues("I"), (Args{"a", "b", "c"}));
    EXPECT_EQ(args.getString("-I"), "c");
    EXPECT_EQ(args.helpText().rfind("Usage: gw [options] DEVICE\n", 0), 0u);
    ASSERT_TRUE(args.parse(Args{"dev2"}));
    EXPECT_TRUE(args.getValues("I").empty());
    EXPECT_EQ(args.positionals(), Args{"dev2"});
}

TEST(ArgOption, ExplainsEveryCommandLineMistake) {
    const std::pair<Args, const char*> cases[] = {
        {{"--bogus", "d"}, "unknown option '--bogus'"},
        {{"-x"}, "unknown option '-x'"},
        {{"-vx"}, "unknown option '-x'"},
        {{"d", "--baud"}, "option --baud needs a value"},
        {{"d", "-vb"}, "option -b needs a value"},
        {{"--verbose=1", "d"}, "option --verbose takes no value"},
        {{"--parity", "mark", "d"}, "option --parity: 'mark' is not one of none, odd, even"},
        {{"-v"}, "missing argument DEVICE"},
        {{"a", "b"}, "unexpected argument 'b'"},
    };
    for (auto& c : cases) {
        ArgOption args("gateway");
        declareGateway(&args);
        auto lines =
            test::LogCapture::get().linesDuring([&] { EXPECT_FALSE(args.parse(c.first)); });
        EXPECT_EQ(args.error(), c.second);
        EXPECT_EQ(lines, Args{std::string("<E>DATE [ArgOption::parse,L#] ") + c.second});
    }
    ArgOption required("tool");
    required.addOption('p', "port", "N", "port", "", true);
    EXPECT_FALSE(required.parse(Args{}));
    EXPECT_EQ(required.error(), "missing required option --port");
    EXPECT_TRUE(required.parse(Args{"--help"}));  // help needs nothing else
    EXPECT_TRUE(required.helpRequested());
}

TEST(ArgOption, ChecksNumbersAgainstTheirRange) {
    struct Case {
        const char* value;
        bool ok;
        int number;
        const char* error;
    };
    const Case ints[] = {
        {"9600", true, 9600, ""},
        {"0x2580", true, 9600, ""},
        {"abc", false, 0, "option --baud: 'abc' is not an integer"},
        {"96k", false, 0, "option --baud: '96k' is not an integer"},
        {"99", false, 0, "option --baud: 99 is out of range 1200 to 921600"},
        {"99999999999999999999", false, 0,
         "option --baud: '99999999999999999999' is not an integer"},
        {" 9600", false, 0, "option --baud: ' 9600' is not an integer"},
    };
    for (auto& c : ints) {
        ArgOption args;
        declareGateway(&args);
        ASSERT_TRUE(args.parse(Args{"--baud", c.value, "d"}));
        int baud = -5;
        EXPECT_EQ(args.getInt("baud", &baud, 1200, 921600), c.ok) << c.value;
        EXPECT_EQ(baud, c.ok ? c.number : -5);
        EXPECT_EQ(args.error(), c.error);
    }
    ArgOption args;
    args.addOption('r', "ratio", "X", "a ratio");
    double ratio = 0;
    const std::pair<const char*, const char*> doubles[] = {
        {"0.25", ""},
        {"nan", "option --ratio: 'nan' is not a number"},
        {"2.5", "option --ratio: 2.5 is out of range 0.000000 to 1.000000"},
        {"1e-1", ""},
    };
    for (auto& d : doubles) {
        ASSERT_TRUE(args.parse(Args{"-r", d.first}));
        EXPECT_EQ(args.getDouble("ratio", &ratio, 0.0, 1.0), *d.second == '\0');
        EXPECT_EQ(args.error(), d.second);
    }
    EXPECT_DOUBLE_EQ(ratio, 0.1);
    ASSERT_TRUE(args.parse(Args{}));
    EXPECT_FALSE(args.getDouble("ratio", &ratio));
    EXPECT_EQ(args.error(), "option --ratio has no value");
}

TEST(ArgOption, RefusesBadDeclarationsAndUnknownNames) {
    ArgOption args("tool");
    args.addFlag('v', "verbose", "");
    args.addPositional("FILES...", "inputs", false);
    const std::pair<std::function<bool()>, const char*> cases[] = {
        {[&] { return args.addFlag('h', "hello", ""); }, "option --hello is declared twice"},
        {[&] { return args.addOption(0, "", "N", ""); }, "bad option name: short '', long ''"},
        {[&] { return args.addOption('-', "x", "N", ""); }, "bad option name: short '-', long 'x'"},
        {[&] { return args.addFlag(0, "two words", ""); },
         "bad option name: short '', long 'two words'"},
        {[&] { return args.setChoices("verbose", {"a"}); },
         "option --verbose takes no value to choose"},
        {[&] { return args.addPositional("MORE", ""); }, "argument MORE follows FILES..."},
        {[&] { return args.isSet("nosuch"); }, "no option 'nosuch' is declared"},
        {[&] { return !args.getString("--nosuch").empty(); }, "no option '--nosuch' is declared"},
    };
    for (auto& c : cases) {
        auto lines = test::LogCapture::get().linesDuring([&] { EXPECT_FALSE(c.first()); });
        ASSERT_EQ(lines.size(), 1u) << c.second;
        EXPECT_NE(lines[0].find(c.second), std::string::npos) << lines[0];
    }
    ASSERT_TRUE(args.parse(Args{"a", "b", "-v", "c"}));
    EXPECT_EQ(args.getPositional("FILES..."), "a b c");
}

TEST(ArgOption, WritesHelpWithValuesDefaultsAndChoices) {
    ArgOption args("gateway", "Serial to TCP gateway");
    declareGateway(&args);
    args.addOption('p', "port", "N", "port", "", true);
    std::string help = args.helpText();
    const char* const expected[] = {
        "Usage: gateway [options] DEVICE\n\nSerial to TCP gateway\n\nOptions:\n",
        "  -h, --help                  show this help\n",
        "  -b, --baud N                serial speed (default: 115200)\n",
        "      --parity <none|odd|even>  serial parity (default: none)\n",
        "  -I DIR                      search directory\n",
        "  -p, --port N                port (required)\n",
        "\nArguments:\n  DEVICE                      serial device\n",
    };
    for (const char* part : expected) EXPECT_NE(help.find(part), std::string::npos) << part << help;
}

}  // namespace
}  // namespace orvane
