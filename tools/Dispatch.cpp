// How kelvo-fs reads a command line: each command's options from the command table, help from its usage texts, and the word lists behind shell completion.
#include "Commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <utility>

namespace kelvo::tool {

namespace {

std::string synopsisOf(char const* usage)
{
    std::string text = usage;
    return text.substr(0, text.find('\n'));
}

std::string summaryOf(char const* usage)
{
    std::string text = usage;
    std::size_t start = text.find('\n');
    if (start == std::string::npos)
        return "";
    std::size_t end = text.find('\n', start + 1);
    return text.substr(start + 1, end == std::string::npos ? std::string::npos : end - start - 1);
}

OptionInfo const* findOption(std::vector<OptionInfo> const& options, std::string const& name)
{
    for (OptionInfo const& option : options) {
        if (name == option.name)
            return &option;
    }
    return nullptr;
}

/// How a command line may spell its options.
struct Spelling {
    /// Single letters go together ("-la"), a long option's value may follow
    /// "=" ("--timeout=5"), and "-" alone is an operand.
    bool compound;
    /// A "--" ends the options; the words after it are taken as they are.
    bool separator;
};

/// Commands: every spelling the tool accepts.
constexpr Spelling kCommandSpelling{true, true};
/// help: each option as a whole word, and no "--".
constexpr Spelling kHelpSpelling{false, false};

/// What the first look at a command line found.
struct Check {
    enum class Outcome { parse, help, bad } outcome = Outcome::parse;
    /// For `bad`: the message, in the tool's words.
    std::string message;
    /// The position of the "--" that ends the options, or the number of words.
    std::size_t separator = 0;
    /// The positions of the options given an empty value after "=" ("--ellipsis=").
    std::vector<std::size_t> emptyValues;
};

/// Reads `words` in order, first to last, for what the parser below
/// is not asked to judge: a request for help (answered even when a later word
/// is wrong, and not when an earlier one is), an empty argument, an option
/// the command does not have, a value given to an option that takes none
/// ("--json=1", which the parser would read as "--json"), an option whose
/// value is missing. The first of them decides, in the tool's own words. Only
/// a command line that passes is parsed.
Check check(std::vector<std::string> const& words, std::vector<OptionInfo> const& options, Spelling spelling)
{
    Check result;
    result.separator = words.size();
    // "-h" asks for help unless the command gives it another meaning.
    bool const shortHelp = findOption(options, "-h") == nullptr;
    auto bad = [&result](std::string message) {
        result.outcome = Check::Outcome::bad;
        result.message = std::move(message);
        return result;
    };
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string const& word = words[i];
        if (spelling.separator && word == "--") {
            result.separator = i;
            break;
        }
        if (word == "--help" || (shortHelp && word == "-h")) {
            result.outcome = Check::Outcome::help;
            return result;
        }
        if (word.empty())
            return bad("an empty argument names nothing");
        if (!spelling.compound) {
            if (word[0] == '-' && findOption(options, word) == nullptr)
                return bad("unknown option " + word);
            continue;
        }
        if (word[0] != '-' || word.size() == 1)
            continue;
        if (word.compare(0, 2, "--") == 0) {
            std::size_t const equals = word.find('=');
            std::string const name = word.substr(0, equals);
            OptionInfo const* option = findOption(options, name);
            if (option == nullptr)
                return bad("unknown option " + name);
            if (option->value == nullptr && equals != std::string::npos)
                return bad("option " + name + " takes no value");
            if (option->value != nullptr && equals == std::string::npos) {
                if (i + 1 == words.size())
                    return bad("option " + name + " needs a value");
                ++i;
            } else if (option->value != nullptr && equals + 1 == word.size()) {
                result.emptyValues.push_back(i);
            }
            continue;
        }
        // One or more single letters together ("-la"), none with a value.
        for (std::size_t k = 1; k < word.size(); ++k) {
            std::string const name = std::string("-") + word[k];
            OptionInfo const* option = findOption(options, name);
            if (option == nullptr || option->value != nullptr)
                return bad("unknown option " + (word.size() == 2 ? word : name + " in " + word));
        }
    }
    return result;
}

/// A command line as the parser read it.
struct Parsed {
    std::vector<std::string> operands;
    /// The options given, with their values ("" for one without a value).
    std::vector<std::pair<std::string, std::string>> options;
};

/// Parses the words before the separator with the command's options. The
/// words have passed `check`, which found the options given an empty value at
/// `emptyValues`, so a refusal here is an error of the tool itself; it is
/// told with the parser's own message.
/// @returns false, with `error` set, on a refusal.
bool parse(std::vector<std::string> const& words, std::vector<std::size_t> const& emptyValues,
           std::vector<OptionInfo> const& options, Parsed& parsed, std::string& error)
{
    CLI::App app;
    // Help was answered by the check, and nothing else is wanted of the
    // parser: no help option, no extra words, no configuration file.
    app.set_help_flag();
    app.allow_extras(false);
    app.add_option("operands", parsed.operands);
    std::vector<std::pair<OptionInfo, CLI::Option*>> registered;
    for (OptionInfo const& option : options) {
        CLI::Option* added = option.value == nullptr
            ? app.add_flag(option.name)
            // As on most command lines, the last value given counts.
            : app.add_option(option.name)->type_size(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        registered.emplace_back(option, added);
    }
    // The parser takes its words last first. An empty value after "=" is
    // handed over as a word of its own, which the parser keeps; glued to the
    // name, it would take the next word instead.
    std::vector<std::string> reversed;
    for (std::size_t i = words.size(); i-- > 0;) {
        if (std::find(emptyValues.begin(), emptyValues.end(), i) != emptyValues.end()) {
            reversed.emplace_back();
            reversed.push_back(words[i].substr(0, words[i].size() - 1));
        } else {
            reversed.push_back(words[i]);
        }
    }
    try {
        app.parse(reversed);
    } catch (CLI::ParseError const& refusal) {
        error = refusal.what();
        return false;
    }
    for (auto const& [option, added] : registered) {
        if (added->count() == 0)
            continue;
        parsed.options.emplace_back(option.name, option.value == nullptr ? std::string() : added->results().back());
    }
    return true;
}

/// Splits the arguments of `command`, runs it and returns its exit status.
int dispatch(CommandInfo const& command, int argc, char** argv)
{
    Invocation invocation;
    invocation.name = command.name;
    invocation.usage = command.usage;
    std::vector<std::string> const words(argv, argv + argc);
    if (command.wordsAsGiven) {
        if (std::find(words.begin(), words.end(), "--help") != words.end()) {
            std::cout << command.usage;
            return kExitSuccess;
        }
        invocation.operands = words;
        return command.run(invocation);
    }
    Check const checked = check(words, command.options, kCommandSpelling);
    if (checked.outcome == Check::Outcome::help) {
        std::cout << command.usage;
        return kExitSuccess;
    }
    if (checked.outcome == Check::Outcome::bad)
        return badUsage(invocation, checked.message);
    if (checked.separator < words.size()) {
        invocation.sawSeparator = true;
        invocation.afterSeparator.assign(words.begin() + static_cast<std::ptrdiff_t>(checked.separator) + 1,
                                         words.end());
    }
    Parsed parsed;
    std::string error;
    if (!parse(std::vector<std::string>(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(checked.separator)),
               checked.emptyValues, command.options, parsed, error))
        return badUsage(invocation, error);
    invocation.operands = std::move(parsed.operands);
    invocation.options = std::move(parsed.options);
    return command.run(invocation);
}

void printToolUsage(std::ostream& out, std::vector<CommandInfo> const& commands, char const* toolUsage)
{
    out << toolUsage << "\nCommands:\n";
    constexpr std::size_t kColumn = 34;
    for (CommandInfo const& command : commands) {
        std::string synopsis = synopsisOf(command.usage);
        std::string const prefix = "Usage: kelvo-fs ";
        if (synopsis.compare(0, prefix.size(), prefix) == 0)
            synopsis.erase(0, prefix.size());
        std::string summary = summaryOf(command.usage);
        out << "  " << synopsis;
        if (synopsis.size() + 2 < kColumn)
            out << std::string(kColumn - synopsis.size() - 2, ' ');
        else
            out << "\n" << std::string(kColumn, ' ');
        out << summary << '\n';
    }
    out << "  help [COMMAND]" << std::string(kColumn - 16, ' ') << "Show this text, or the usage of COMMAND.\n"
        << "\n"
        << "Every command takes --help. A failure names what failed, inside a tree the\n"
        << "entry itself, with the system's reason (\"kelvo-fs rm: cannot remove\n"
        << "'a/b/f': Permission denied\"). Names are shown as UTF-8, every byte that is\n"
        << "not UTF-8 and every control character as \\xHH, a backslash as \\\\; in a\n"
        << "message between single quotes, a quote inside as \\'.\n"
        << "Exit status: 0 success, 1 a negative answer or a failure, 2 bad usage.\n"
        << "A \"--\" ends the options: the arguments after it are taken as they are.\n";
}

constexpr char kHelpUsage[] =
    "Usage: kelvo-fs help [--commands] [--options] [COMMAND]\n"
    "Shows the usage of kelvo-fs, or of COMMAND.\n"
    "\n"
    "For shell completion: --commands lists the command names, one a line;\n"
    "--options COMMAND lists the options COMMAND accepts, one a line.\n";

int runHelp(std::vector<CommandInfo> const& commands, char const* toolUsage, int argc, char** argv)
{
    Invocation invocation;
    invocation.name = "help";
    invocation.usage = kHelpUsage;
    static std::vector<OptionInfo> const kHelpOptions = {{"--commands"}, {"--options"}};
    std::vector<std::string> const words(argv, argv + argc);
    Check const checked = check(words, kHelpOptions, kHelpSpelling);
    if (checked.outcome == Check::Outcome::help) {
        std::cout << kHelpUsage;
        return kExitSuccess;
    }
    if (checked.outcome == Check::Outcome::bad)
        return badUsage(invocation, checked.message);
    Parsed parsed;
    std::string error;
    if (!parse(words, checked.emptyValues, kHelpOptions, parsed, error))
        return badUsage(invocation, error);
    invocation.options = std::move(parsed.options);
    bool const listCommands = invocation.hasOption("--commands");
    bool const listOptions = invocation.hasOption("--options");
    std::vector<std::string> const& names = parsed.operands;
    if (names.size() > 1 || (listCommands && (listOptions || !names.empty())) || (listOptions && names.empty()))
        return badUsage(invocation, "expects at most one COMMAND (and one with --options)");
    if (listCommands) {
        for (CommandInfo const& command : commands)
            std::cout << command.name << '\n';
        std::cout << "help\n";
        return kExitSuccess;
    }
    if (names.empty()) {
        printToolUsage(std::cout, commands, toolUsage);
        return kExitSuccess;
    }
    if (names[0] == "help") {
        if (listOptions) {
            for (OptionInfo const& option : kHelpOptions)
                std::cout << option.name << '\n';
        } else {
            std::cout << kHelpUsage;
        }
        return kExitSuccess;
    }
    for (CommandInfo const& command : commands) {
        if (names[0] == command.name) {
            if (listOptions) {
                for (OptionInfo const& option : command.options)
                    std::cout << option.name << '\n';
                std::cout << "--help\n";
            } else {
                std::cout << command.usage;
            }
            return kExitSuccess;
        }
    }
    return badUsage(invocation, "unknown command " + quoteName(names[0]));
}

} // namespace

int runCommandLine(int argc, char** argv, std::vector<CommandInfo> const& commands, char const* toolUsage)
{
    if (argc < 2) {
        std::string usage = toolUsage;
        std::cerr << "kelvo-fs: expects a COMMAND\n" << usage.substr(0, usage.find('\n'))
                  << "  (kelvo-fs help lists the commands)\n";
        return kExitBadUsage;
    }
    std::string name = argv[1];
    if (name == "--help" || name == "-h") {
        printToolUsage(std::cout, commands, toolUsage);
        return kExitSuccess;
    }
    if (name == "help")
        return runHelp(commands, toolUsage, argc - 2, argv + 2);
    for (CommandInfo const& command : commands) {
        if (name == command.name)
            return dispatch(command, argc - 2, argv + 2);
    }
    std::string usage = toolUsage;
    std::cerr << "kelvo-fs: " << (name.empty()             ? std::string("an empty argument names no command")
                                  : name[0] == '-'         ? "unknown option " + name
                                                           : "unknown command " + quoteName(name))
              << '\n'
              << usage.substr(0, usage.find('\n')) << "  (kelvo-fs help lists the commands)\n";
    return kExitBadUsage;
}

} // namespace kelvo::tool
