#include <orvane/ArgOption.h>

#include "support/Refusal.h"

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

// `call` fails and logs exactly "<E>DATE [ArgOption::<method>,L#] " + error(),
// which reads `error`.
void expectFailure(ArgOption& args, const std::function<bool()>& call, const char* method,
                   const std::string& error) {
    test::expectRefusal(call, "<E>DATE [ArgOption::" + std::string(method) + ",L#] " + error);
    EXPECT_EQ(args.error(), error);
}

TEST(ArgOption, ReadsEveryFormOfOptionAndArgument) {
    // listen, baud, parity, how often -v, the positionals.
    const std::pair<Args, const char*> cases[] = {
        {{"--listen", "h:1", "--baud=9600", "-v", "--parity", "even", "d"}, "h:1 9600 even 1 d"},
        {{"-vvv", "-b4800", "-l", "h:1", "d"}, "h:1 4800 none 3 d"},
        {{"-vb", "2400", "d", "-v"}, "0.0.0.0:5020 2400 none 2 d"},
        {{"--", "-v"}, "0.0.0.0:5020 115200 none 0 -v"},
        {{"-"}, "0.0.0.0:5020 115200 none 0 -"},
    };
    for (auto& c : cases) {
        ArgOption args("gateway");
        declareGateway(&args);
        ASSERT_TRUE(args.parse(c.first)) << args.error();
        int baud = 0;
        EXPECT_TRUE(args.getInt("--baud", &baud, 1200, 921600));
        std::string seen = args.getString("listen") + " " + std::to_string(baud) + " " +
                           args.getString("parity") + " " + std::to_string(args.count("-v"));
        for (auto& word : args.positionals()) seen += " " + word;
        EXPECT_EQ(seen, c.second);
        EXPECT_EQ(args.getPositional("DEVICE"), args.positionals().front());
    }
    // Every value of a repeated option is kept; the program is named after
    // argv[0]; a second parse starts afresh.
    ArgOption args("", "Serial to TCP gateway");
    declareGateway(&args);
    const char* argv[] = {"/usr/bin/gw", "-I", "a", "-Ib", "-I", "c", "dev", nullptr};
    ASSERT_TRUE(args.parse(7, argv));
    EXPECT_TRUE(args.getValues("I") == (Args{"a", "b", "c"}) && args.getString("-I") == "c");
    ASSERT_TRUE(args.parse(Args{"dev2"}));
    EXPECT_TRUE(args.getValues("I").empty());
    std::string help = args.helpText();
    for (const char* part : {
             "Usage: gw [options] DEVICE\n\nSerial to TCP gateway\n\nOptions:\n"
             "  -h, --help                  show this help\n",
             "  -b, --baud N                serial speed (default: 115200)\n",
             "      --parity <none|odd|even>  serial parity (default: none)\n",
             "  -I DIR                      search directory\n"
             "\nArguments:\n  DEVICE                      serial device\n",
         }) {
        EXPECT_NE(help.find(part), std::string::npos) << part << help;
    }
}

TEST(ArgOption, ExplainsEveryMistakeInOneLine) {
    const std::pair<Args, const char*> cases[] = {
        {{"--bogus", "d"}, "unknown option '--bogus'"},
        {{"-vx"}, "unknown option '-x'"},
        {{"d", "-vb"}, "option -b needs a value"},
        {{"--verbose=1", "d"}, "option --verbose takes no value"},
        {{"--parity=", "d"}, "option --parity: '' is not one of none, odd, even"},
        {{"-v"}, "missing argument DEVICE"},
        {{"a", "b"}, "unexpected argument 'b'"},
    };
    for (auto& c : cases) {
        ArgOption args("gateway");
        declareGateway(&args);
        expectFailure(
            args, [&] { return args.parse(c.first); }, "parse", c.second);
    }
    ArgOption required("tool");
    required.addOption('p', "port", "N", "port", "", true);
    expectFailure(
        required, [&] { return required.parse(Args{}); }, "parse",
        "missing required option --port");
    EXPECT_TRUE(required.parse(Args{"--help"}) && required.helpRequested());  // needs nothing else

    required.addPositional("FILES...", "inputs", false);
    expectFailure(
        required, [&] { return required.addFlag('h', "hello", ""); }, "addFlag",
        "option --hello is declared twice");
    EXPECT_FALSE(required.addPositional("MORE", "") || required.isSet("nosuch"));
    ASSERT_TRUE(required.parse(Args{"-p", "1", "a", "b", "c"}));
    EXPECT_EQ(required.getPositional("FILES..."), "a b c");
}

// getInt of --baud in 1200..921600, getDouble of --ratio in 0..1; a failure
// leaves the value as it was (-5).
TEST(ArgOption, ChecksNumbersAgainstTheirRange) {
    const std::tuple<Args, double, const char*> cases[] = {
        {{"-b", "0x2580"}, 9600, ""},
        {{"-b", "96k"}, -5, "option --baud: '96k' is not an integer"},
        {{"-b", "99"}, -5, "option --baud: 99 is out of range 1200 to 921600"},
        {{"-b", "99999999999999999999"},
         -5,
         "option --baud: '99999999999999999999' is not an integer"},
        {{"-b", " 9600"}, -5, "option --baud: ' 9600' is not an integer"},
        {{"-r", "1e-1"}, 0.1, ""},
        {{"-r", "nan"}, -5, "option --ratio: 'nan' is not a number"},
        {{"-r", "2.5"}, -5, "option --ratio: 2.5 is out of range 0.000000 to 1.000000"},
        {{"-r"}, -5, "option --ratio has no value"},
    };
    for (auto& [words, value, error] : cases) {
        SCOPED_TRACE(words.back());
        ArgOption args;
        declareGateway(&args);
        args.addOption('r', "ratio", "X", "a ratio", "");
        ASSERT_TRUE(args.parse(words.size() > 1 ? Args{words[0], words[1], "d"} : Args{"d"}));
        int baud = -5;
        double ratio = -5;
        bool ok = words[0] == "-b" ? args.getInt("baud", &baud, 1200, 921600)
                                   : args.getDouble("ratio", &ratio, 0.0, 1.0);
        EXPECT_EQ(ok, *error == '\0');
        EXPECT_DOUBLE_EQ(words[0] == "-b" ? baud : ratio, value);
        EXPECT_EQ(args.error(), error);
    }
}

}  // namespace
}  // namespace orvane
