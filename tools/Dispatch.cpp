// How kelvo-fs reads a command line: the options each command's synopsis shows, help from the command table, and the word lists behind shell completion.
#include "Commands.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <iostream>

namespace kelvo::tool {

namespace {

/// One option a command accepts, as its synopsis shows it.
struct OptionSpec {
    std::string name;   ///< "-l" or "--timeout"
    bool takesValue;    ///< "[--timeout SECONDS]": the next word is its value
};

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

bool isValueWord(std::string const& word)
{
    return !word.empty() && std::all_of(word.begin(), word.end(), [](char c) {
        return std::isupper(static_cast<unsigned char>(c)) || c == '_';
    });
}

/// Reads the options out of a synopsis: every word that starts with "-"
/// (other than "--"); an option followed by an upper-case word inside the
/// same brackets takes a value.
std::vector<OptionSpec> optionsOf(char const* usage)
{
    std::vector<std::string> words;
    std::string synopsis = synopsisOf(usage);
    for (std::size_t i = 0; i < synopsis.size();) {
        std::size_t end = synopsis.find(' ', i);
        if (end == std::string::npos)
            end = synopsis.size();
        if (end > i)
            words.push_back(synopsis.substr(i, end - i));
        i = end + 1;
    }
    std::vector<OptionSpec> options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string word = words[i];
        bool closes = word.find(']') != std::string::npos;
        word.erase(std::remove_if(word.begin(), word.end(), [](char c) { return c == '[' || c == ']'; }), word.end());
        if (word.size() < 2 || word[0] != '-' || word == "--" || word.find("...") != std::string::npos)
            continue;
        bool takesValue = false;
        if (!closes && i + 1 < words.size()) {
            std::string next = words[i + 1];
            next.erase(std::remove_if(next.begin(), next.end(), [](char c) { return c == '[' || c == ']'; }),
                       next.end());
            takesValue = isValueWord(next);
        }
        options.push_back({word, takesValue});
    }
    return options;
}

OptionSpec const* findOption(std::vector<OptionSpec> const& options, std::string const& name)
{
    for (OptionSpec const& option : options) {
        if (option.name == name)
            return &option;
    }
    return nullptr;
}

/// Splits the arguments of `command`, runs it and returns its exit status.
int dispatch(CommandInfo const& command, int argc, char** argv)
{
    Invocation invocation;
    invocation.name = command.name;
    invocation.usage = command.usage;
    std::vector<OptionSpec> const accepted = optionsOf(command.usage);
    // "-h" asks for help unless the command gives it another meaning.
    bool const shortHelp = findOption(accepted, "-h") == nullptr;
    for (int i = 0; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--") {
            invocation.sawSeparator = true;
            invocation.afterSeparator.assign(argv + i + 1, argv + argc);
            break;
        }
        if (argument == "--help" || (shortHelp && argument == "-h")) {
            std::cout << command.usage;
            return kExitSuccess;
        }
        if (argument.empty())
            return badUsage(invocation, "an empty argument names nothing");
        if (argument[0] != '-' || argument.size() == 1) {
            invocation.operands.push_back(argument);
            continue;
        }
        if (argument.compare(0, 2, "--") == 0) {
            std::size_t equals = argument.find('=');
            std::string name = argument.substr(0, equals);
            OptionSpec const* option = findOption(accepted, name);
            if (option == nullptr)
                return badUsage(invocation, "unknown option " + name);
            if (!option->takesValue) {
                if (equals != std::string::npos)
                    return badUsage(invocation, "option " + name + " takes no value");
                invocation.options.emplace_back(name, "");
            } else if (equals != std::string::npos) {
                invocation.options.emplace_back(name, argument.substr(equals + 1));
            } else if (i + 1 < argc) {
                invocation.options.emplace_back(name, argv[++i]);
            } else {
                return badUsage(invocation, "option " + name + " needs a value");
            }
            continue;
        }
        // One or more single-letter options together ("-la").
        for (std::size_t k = 1; k < argument.size(); ++k) {
            std::string name = std::string("-") + argument[k];
            OptionSpec const* option = findOption(accepted, name);
            if (option == nullptr || option->takesValue)
                return badUsage(invocation, "unknown option " + (argument.size() == 2 ? argument : name + " in " + argument));
            invocation.options.emplace_back(name, "");
        }
    }
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
        << "Every command takes --help. Failures are told with the system's reason\n"
        << "(\"Permission denied\"). Names are shown as UTF-8, every byte that is not\n"
        << "UTF-8 and every control character as \\xHH, a backslash as \\\\.\n"
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
    bool listCommands = false;
    bool listOptions = false;
    std::vector<std::string> names;
    for (int i = 0; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "--commands")
            listCommands = true;
        else if (argument == "--options")
            listOptions = true;
        else if (argument == "--help" || argument == "-h") {
            std::cout << kHelpUsage;
            return kExitSuccess;
        } else if (argument.empty() || argument[0] == '-')
            return badUsage(invocation, argument.empty() ? std::string("an empty argument names nothing")
                                                         : "unknown option " + argument);
        else
            names.push_back(argument);
    }
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
        if (listOptions)
            std::cout << "--commands\n--options\n";
        else
            std::cout << kHelpUsage;
        return kExitSuccess;
    }
    for (CommandInfo const& command : commands) {
        if (names[0] == command.name) {
            if (listOptions) {
                for (OptionSpec const& option : optionsOf(command.usage))
                    std::cout << option.name << '\n';
                std::cout << "--help\n";
            } else {
                std::cout << command.usage;
            }
            return kExitSuccess;
        }
    }
    return badUsage(invocation, "unknown command '" + names[0] + "'");
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
                                                           : "unknown command '" + name + "'")
              << '\n'
              << usage.substr(0, usage.find('\n')) << "  (kelvo-fs help lists the commands)\n";
    return kExitBadUsage;
}

} // namespace kelvo::tool
