#pragma once

#include <orvane/Export.h>

#include <climits>
#include <string>
#include <vector>

namespace orvane {

// Command-line parsing in the getopt_long style: short options (-v, -p 80,
// -p80), grouped short flags (-abc, the last of which may take a value:
// -vp 80), long options (--verbose, --port 80, --port=80), flags counted
// when repeated (-vvv), options with values (each repetition's value kept),
// defaults, required options, choices, positional arguments (a name ending
// in "..." takes the rest), and "--" ending the options. "-" alone is a
// positional argument; long names are never abbreviated.
//
//     ArgOption args("gateway", "Serial to TCP gateway");
//     args.addOption('l', "listen", "HOST:PORT", "address to listen on", "0.0.0.0:5020");
//     args.addOption('b', "baud", "N", "serial speed", "115200");
//     args.addOption(0, "parity", "MODE", "serial parity", "none");
//     args.setChoices("parity", {"none", "odd", "even"});
//     args.addFlag('v', "verbose", "more log lines (repeatable)");
//     args.addPositional("DEVICE", "serial device, e.g. /dev/ttyS1");
//     if (!args.parse(argc, argv)) {
//         fprintf(stderr, "%s\n%s", args.error().c_str(), args.helpText().c_str());
//         return 2;
//     }
//     if (args.helpRequested()) { fputs(args.helpText().c_str(), stdout); return 0; }
//     int baud = 0;
//     if (!args.getInt("baud", &baud, 1200, 921600)) { ... args.error() ... }
//
// "-h" and "--help" are declared by the constructor; when given, parse()
// succeeds without checking required options and helpRequested() is true.
// Failures (a bad declaration, an unknown option, a missing or bad value, a
// missing required option or argument, a number out of range) give false,
// leave a sentence for the user in error() and log it once; the library
// never prints to the terminal and never exits. Declare first, then parse
// once; the accessors read what the last parse() found. No locking: one
// thread uses an object; parsing costs a few string comparisons per word.
class ORVANE_API ArgOption {
  public:
    // `program` names the program in the usage line (parse(argc, argv)
    // takes it from argv[0] when empty); `description` follows the usage line.
    explicit ArgOption(const std::string& program = "", const std::string& description = "");

    // Declares a flag: no value; isSet() and count() tell whether and how
    // often it was given. shortName 0 means none; longName may be "" when
    // shortName is given. False for a name that is taken or malformed.
    bool addFlag(char shortName, const std::string& longName, const std::string& help);
    // Declares an option that takes a value (valueName shows in the help).
    // defaultValue is what getString gives when the option is absent (none
    // when ""); a required option must be given.
    bool addOption(char shortName, const std::string& longName, const std::string& valueName,
                   const std::string& help, const std::string& defaultValue = "",
                   bool required = false);
    // Limits the values of a declared option to `choices`; false when the
    // option is unknown or takes no value, or the list is empty.
    bool setChoices(const std::string& name, const std::vector<std::string>& choices);
    // Declares the next positional argument. A name ending in "..." takes
    // every remaining argument and must be the last one declared. Without it,
    // arguments beyond the declared ones are an error.
    bool addPositional(const std::string& name, const std::string& help, bool required = true);

    // Parses argv[1] to argv[argc - 1]. Parsing again starts afresh.
    bool parse(int argc, const char* const* argv);
    // Parses `args`, which hold no program name.
    bool parse(const std::vector<std::string>& args);
    // Why the last failing call failed; "" after a success.
    const std::string& error() const { return error_; }
    // True when the last parse() saw -h or --help.
    bool helpRequested() const { return isSet("help"); }

    // `name` is the long name, or the short one when there is no long name,
    // with or without leading dashes ("port", "--port", "p", "-p"). Unknown
    // names are logged and give false, 0 or "".
    bool isSet(const std::string& name) const;
    // How often the option was given.
    int count(const std::string& name) const;
    // The value of the option's last occurrence, else its default, else "".
    std::string getString(const std::string& name) const;
    // The values of every occurrence, in command-line order.
    std::vector<std::string> getValues(const std::string& name) const;
    // getString as a decimal (or 0x hexadecimal) integer / a number,
    // checked against [min, max]. False with error() set when the option has
    // no value, it is not a number, or it is out of range; *value unchanged.
    bool getInt(const std::string& name, int* value, int min = INT_MIN, int max = INT_MAX);
    // The last value of the option `name` as a number within [min, max]; false (logged) when
    // absent, not a number or out of range, *value then unchanged.
    bool getDouble(const std::string& name, double* value, double min = -1.0e308,
                   double max = 1.0e308);
    // The positional arguments in order (those after "--" included).
    const std::vector<std::string>& positionals() const { return positionals_; }
    // The positional argument declared as `name` ("" when absent); for a
    // "..." name, the remaining arguments joined by single blanks.
    std::string getPositional(const std::string& name) const;

    // The usage line, the description, and one line per option and
    // positional argument with its help, value name, default and choices.
    std::string helpText() const;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    struct Option {
        char shortName;
        std::string longName;
        std::string valueName;  // empty for a flag
        std::string help;
        std::string defaultValue;
        bool required;
        std::vector<std::string> choices;
        std::vector<std::string> values;  // one entry per occurrence ("" for a flag)
    };
    struct Positional {
        std::string name;
        std::string help;
        bool required;
    };

    bool declare(Option option, const char* method);
    Option* find(const std::string& name, const char* method);
    const Option* find(const std::string& name, const char* method) const;
    Option* findShort(char shortName);
    Option* findLong(const std::string& longName);
    // Records one occurrence; false after fail() for a bad choice.
    bool take(Option* option, const std::string& value);
    // "--name" or "-p" as the user typed it.
    static std::string spelled(const Option& option);
    bool parseLong(const std::string& word, const std::vector<std::string>& args, size_t* next);
    bool parseShort(const std::string& word, const std::vector<std::string>& args, size_t* next);
    bool checkComplete();
    // The option and the text getInt/getDouble convert; null after fail()
    // when the option is unknown, `value` is null or there is no value.
    const Option* numberOption(const std::string& name, const void* value, const char* method,
                               std::string* text) const;
    bool fail(const char* method, const std::string& message) const;

    std::string program;
    std::string description;
    std::vector<Option> options;
    std::vector<Positional> positionalSpecs;
    std::vector<std::string> positionals_;
    mutable std::string error_;
};

}  // namespace orvane
