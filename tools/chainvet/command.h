// Sub-commands of the chainvet program. Each cmd_*.cpp registers its commands with
// CHAINVET_COMMAND; main dispatches on the words of the command line.
#pragma once

#include <string>
#include <vector>

namespace chainvet_tool {

// Exit statuses shared by every command.
enum Exit { kPass = 0, kChainFailed = 1, kCouldNotRun = 2, kUsage = 64 };

struct Command {
    const char* path;     // words that select it, e.g. "check basic-constraints"
    const char* summary;  // one line for the command list
    const char* help;     // full text for --help
    int (*run)(const std::vector<std::string>& args);  // args after the path words
};

std::vector<Command>& registry();

struct Registrar {
    explicit Registrar(const Command& c) { registry().push_back(c); }
};

// Published name of a Win32 error or HRESULT the program prints, or "" if unknown.
const char* errorName(unsigned code);

// Prints usage to stderr and returns kUsage.
int usage(const Command& c, const std::string& why);

}  // namespace chainvet_tool

#define CHAINVET_COMMAND_CAT2(a, b) a##b
#define CHAINVET_COMMAND_CAT(a, b) CHAINVET_COMMAND_CAT2(a, b)
#define CHAINVET_COMMAND(...) \
    static ::chainvet_tool::Registrar CHAINVET_COMMAND_CAT(s_command_, __LINE__)(::chainvet_tool::Command{__VA_ARGS__})
