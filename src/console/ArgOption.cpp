#include <orvane/ArgOption.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "log/LogLine.h"

namespace orvane {

namespace {

constexpr size_t kHelpColumn = 30;

bool endsWithDots(const std::string& name) {
    return name.size() > 3 && name.compare(name.size() - 3, 3, "...") == 0;
}

// A long name: letters, digits, '-' and '_', not starting with '-'.
bool validLongName(const std::string& name) {
    if (name.empty() || name[0] == '-') return false;
    for (char c : name) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') return false;
    }
    return true;
}

std::string joined(const std::vector<std::string>& words, const char* separator) {
    std::string text;
    for (size_t i = 0; i < words.size(); ++i) text += (i > 0 ? separator : "") + words[i];
    return text;
}

}  // namespace

ArgOption::ArgOption(const std::string& programName, const std::string& text)
    : className("ArgOption"), program(programName), description(text) {
    addFlag('h', "help", "show this help");
}

bool ArgOption::fail(const char* method, const std::string& message) const {
    error_ = message;
    ORVANE_ERROR_IN(method, "%s", message.c_str());
    return false;
}

bool ArgOption::declare(Option option, const char* method) {
    error_.clear();
    bool shortOk = option.shortName == 0 || isalnum(static_cast<unsigned char>(option.shortName));
    bool longOk = option.longName.empty() || validLongName(option.longName);
    if (!shortOk || !longOk || (option.shortName == 0 && option.longName.empty())) {
        std::string shortText = option.shortName != 0 ? std::string(1, option.shortName) : "";
        return fail(method,
                    "bad option name: short '" + shortText + "', long '" + option.longName + "'");
    }
    if ((option.shortName != 0 && findShort(option.shortName) != nullptr) ||
        (!option.longName.empty() && findLong(option.longName) != nullptr)) {
        return fail(method, "option " + spelled(option) + " is declared twice");
    }
    options.push_back(std::move(option));
    return true;
}

bool ArgOption::addFlag(char shortName, const std::string& longName, const std::string& help) {
    return declare({shortName, longName, "", help, "", false, {}, {}}, __func__);
}

bool ArgOption::addOption(char shortName, const std::string& longName, const std::string& valueName,
                          const std::string& help, const std::string& defaultValue, bool required) {
    std::string shown = valueName.empty() ? "VALUE" : valueName;
    return declare({shortName, longName, shown, help, defaultValue, required, {}, {}}, __func__);
}

bool ArgOption::setChoices(const std::string& name, const std::vector<std::string>& choices) {
    error_.clear();
    Option* option = find(name, __func__);
    if (option == nullptr) return false;
    if (option->valueName.empty() || choices.empty()) {
        return fail(__func__, "option " + spelled(*option) +
                                  (choices.empty() ? " needs at least one choice"
                                                   : " takes no value to choose"));
    }
    option->choices = choices;
    return true;
}

bool ArgOption::addPositional(const std::string& name, const std::string& help, bool required) {
    error_.clear();
    if (name.empty() || name[0] == '-') return fail(__func__, "bad argument name: '" + name + "'");
    if (!positionalSpecs.empty() && endsWithDots(positionalSpecs.back().name)) {
        return fail(__func__, "argument " + name + " follows " + positionalSpecs.back().name);
    }
    for (auto& spec : positionalSpecs) {
        if (spec.name == name) return fail(__func__, "argument " + name + " is declared twice");
    }
    positionalSpecs.push_back({name, help, required});
    return true;
}

std::string ArgOption::spelled(const Option& option) {
    if (!option.longName.empty()) return "--" + option.longName;
    return std::string("-") + option.shortName;
}

ArgOption::Option* ArgOption::findShort(char shortName) {
    for (auto& option : options) {
        if (option.shortName == shortName) return &option;
    }
    return nullptr;
}

ArgOption::Option* ArgOption::findLong(const std::string& longName) {
    for (auto& option : options) {
        if (option.longName == longName) return &option;
    }
    return nullptr;
}

const ArgOption::Option* ArgOption::find(const std::string& name, const char* method) const {
    size_t start = name.find_first_not_of('-');
    std::string bare = start == std::string::npos ? "" : name.substr(start);
    for (auto& option : options) {
        if ((!option.longName.empty() && option.longName == bare) ||
            (bare.size() == 1 && option.shortName == bare[0])) {
            return &option;
        }
    }
    fail(method, "no option '" + name + "' is declared");
    return nullptr;
}

ArgOption::Option* ArgOption::find(const std::string& name, const char* method) {
    return const_cast<Option*>(static_cast<const ArgOption*>(this)->find(name, method));
}

bool ArgOption::take(Option* option, const std::string& value) {
    if (!option->choices.empty()) {
        bool allowed = false;
        for (auto& choice : option->choices) allowed = allowed || choice == value;
        if (!allowed) {
            return fail("parse", "option " + spelled(*option) + ": '" + value + "' is not one of " +
                                     joined(option->choices, ", "));
        }
    }
    option->values.push_back(value);
    return true;
}

bool ArgOption::parse(int argc, const char* const* argv) {
    if (argc < 0 || (argc > 0 && argv == nullptr)) return fail(__func__, "bad argument vector");
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        if (argv[i] == nullptr) return fail(__func__, "bad argument vector");
        args.emplace_back(argv[i]);
    }
    if (program.empty() && argc > 0 && argv[0] != nullptr) {
        const char* slash = strrchr(argv[0], '/');
        program = slash != nullptr ? slash + 1 : argv[0];
    }
    return parse(args);
}

bool ArgOption::parse(const std::vector<std::string>& args) {
    error_.clear();
    positionals_.clear();
    for (auto& option : options) option.values.clear();
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size();) {
        const std::string& word = args[i++];
        if (optionsEnded || word.size() < 2 || word[0] != '-') {
            positionals_.push_back(word);
        } else if (word == "--") {
            optionsEnded = true;
        } else if (word[1] == '-') {
            if (!parseLong(word, args, &i)) return false;
        } else if (!parseShort(word, args, &i)) {
            return false;
        }
    }
    return helpRequested() || checkComplete();
}

bool ArgOption::parseLong(const std::string& word, const std::vector<std::string>& args,
                          size_t* next) {
    size_t equals = word.find('=');
    std::string name = word.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
    Option* option = findLong(name);
    if (option == nullptr) return fail("parse", "unknown option '--" + name + "'");
    if (option->valueName.empty()) {
        if (equals != std::string::npos) {
            return fail("parse", "option --" + name + " takes no value");
        }
        return take(option, "");
    }
    if (equals != std::string::npos) return take(option, word.substr(equals + 1));
    if (*next >= args.size()) return fail("parse", "option --" + name + " needs a value");
    return take(option, args[(*next)++]);
}

bool ArgOption::parseShort(const std::string& word, const std::vector<std::string>& args,
                           size_t* next) {
    for (size_t at = 1; at < word.size(); ++at) {
        Option* option = findShort(word[at]);
        if (option == nullptr) return fail("parse", "unknown option '-" + word.substr(at, 1) + "'");
        if (option->valueName.empty()) {
            if (!take(option, "")) return false;
            continue;
        }
        // The rest of the word is the value (-p80), else the next word (-p 80).
        if (at + 1 < word.size()) return take(option, word.substr(at + 1));
        if (*next >= args.size()) {
            return fail("parse", "option -" + word.substr(at, 1) + " needs a value");
        }
        return take(option, args[(*next)++]);
    }
    return true;
}

bool ArgOption::checkComplete() {
    for (auto& option : options) {
        if (option.required && option.values.empty()) {
            return fail("parse", "missing required option " + spelled(option));
        }
    }
    size_t declared = positionalSpecs.size();
    bool takesRest = declared > 0 && endsWithDots(positionalSpecs.back().name);
    for (size_t i = positionals_.size(); i < declared; ++i) {
        if (positionalSpecs[i].required) {
            return fail("parse", "missing argument " + positionalSpecs[i].name);
        }
    }
    if (!takesRest && positionals_.size() > declared) {
        return fail("parse", "unexpected argument '" + positionals_[declared] + "'");
    }
    return true;
}

bool ArgOption::isSet(const std::string& name) const {
    const Option* option = find(name, __func__);
    return option != nullptr && !option->values.empty();
}

int ArgOption::count(const std::string& name) const {
    const Option* option = find(name, __func__);
    return option != nullptr ? static_cast<int>(option->values.size()) : 0;
}

std::string ArgOption::getString(const std::string& name) const {
    const Option* option = find(name, __func__);
    if (option == nullptr) return "";
    return option->values.empty() ? option->defaultValue : option->values.back();
}

std::vector<std::string> ArgOption::getValues(const std::string& name) const {
    const Option* option = find(name, __func__);
    return option != nullptr ? option->values : std::vector<std::string>();
}

const ArgOption::Option* ArgOption::numberOption(const std::string& name, const void* value,
                                                 const char* method, std::string* text) const {
    error_.clear();
    const Option* option = find(name, method);
    if (option == nullptr) return nullptr;
    if (value == nullptr) {
        fail(method, "param error: value is null");
        return nullptr;
    }
    *text = option->values.empty() ? option->defaultValue : option->values.back();
    if (text->empty()) {
        fail(method, "option " + spelled(*option) + " has no value");
        return nullptr;
    }
    return option;
}

bool ArgOption::getInt(const std::string& name, int* value, int min, int max) {
    std::string text;
    const Option* option = numberOption(name, value, __func__, &text);
    if (option == nullptr) return false;
    char* end = nullptr;
    errno = 0;
    long long number = strtoll(text.c_str(), &end, 0);
    if (*end != '\0' || errno == ERANGE || isspace(static_cast<unsigned char>(text[0]))) {
        return fail(__func__, "option " + spelled(*option) + ": '" + text + "' is not an integer");
    }
    if (number < min || number > max) {
        return fail(__func__, "option " + spelled(*option) + ": " + text + " is out of range " +
                                  std::to_string(min) + " to " + std::to_string(max));
    }
    *value = static_cast<int>(number);
    return true;
}

bool ArgOption::getDouble(const std::string& name, double* value, double min, double max) {
    std::string text;
    const Option* option = numberOption(name, value, __func__, &text);
    if (option == nullptr) return false;
    char* end = nullptr;
    errno = 0;
    double number = strtod(text.c_str(), &end);
    if (*end != '\0' || errno == ERANGE || isspace(static_cast<unsigned char>(text[0])) ||
        number != number) {
        return fail(__func__, "option " + spelled(*option) + ": '" + text + "' is not a number");
    }
    if (number < min || number > max) {
        return fail(__func__, "option " + spelled(*option) + ": " + text + " is out of range " +
                                  std::to_string(min) + " to " + std::to_string(max));
    }
    *value = number;
    return true;
}

std::string ArgOption::getPositional(const std::string& name) const {
    for (size_t i = 0; i < positionalSpecs.size(); ++i) {
        if (positionalSpecs[i].name != name) continue;
        if (i >= positionals_.size()) return "";
        if (!endsWithDots(name)) return positionals_[i];
        std::vector<std::string> rest(positionals_.begin() + static_cast<long>(i),
                                      positionals_.end());
        return joined(rest, " ");
    }
    fail(__func__, "no argument '" + name + "' is declared");
    return "";
}

std::string ArgOption::helpText() const {
    std::string text = "Usage: " + (program.empty() ? std::string("program") : program);
    if (options.size() > 0) text += " [options]";
    for (auto& spec : positionalSpecs) {
        text += spec.required ? " " + spec.name : " [" + spec.name + "]";
    }
    text += "\n";
    if (!description.empty()) text += "\n" + description + "\n";
    auto addRow = [&text](std::string left, const std::string& help) {
        left = "  " + left;
        left += left.size() < kHelpColumn ? std::string(kHelpColumn - left.size(), ' ') : "  ";
        text += left + help + "\n";
    };
    text += "\nOptions:\n";
    for (auto& option : options) {
        std::string left = option.shortName != 0 ? std::string("-") + option.shortName : "  ";
        if (!option.longName.empty()) {
            left += (option.shortName != 0 ? ", --" : "  --") + option.longName;
        }
        if (!option.valueName.empty()) {
            left += " " + (option.choices.empty() ? option.valueName
                                                  : "<" + joined(option.choices, "|") + ">");
        }
        std::string help = option.help;
        if (option.required) help += " (required)";
        if (!option.defaultValue.empty()) help += " (default: " + option.defaultValue + ")";
        addRow(left, help);
    }
    if (!positionalSpecs.empty()) text += "\nArguments:\n";
    for (auto& spec : positionalSpecs) addRow(spec.name, spec.help);
    return text;
}

}  // namespace orvane
