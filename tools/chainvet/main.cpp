// chainvet: asks libchainvet's chain policies about certificates on disk.
#include "command.h"

#include "core/trace.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace chainvet_tool;

namespace {

const char* kMainUsage =
    "usage: chainvet [--trace] COMMAND [ARGS...]\n"
    "       chainvet COMMAND --help\n\n"
    "Options:\n"
    "  --trace   write the library's trace lines to stderr\n"
    "  --help    show help (after a command: that command's help)\n"
    "  --version show the version of chainvet and of the library in it\n\n"
    "Commands:\n";

void printUsage(FILE* out) {
    std::fputs(kMainUsage, out);
    for (const Command& c : registry())
        std::fprintf(out, "  %-30s %s\n", c.path, c.summary);
}

// Number of leading words of args that spell the command's path, or 0.
size_t matchPath(const Command& c, const std::vector<std::string>& args) {
    std::vector<std::string> words;
    const char* p = c.path;
    while (*p) {
        const char* sp = std::strchr(p, ' ');
        size_t n = sp ? static_cast<size_t>(sp - p) : std::strlen(p);
        words.emplace_back(p, n);
        p += n;
        while (*p == ' ')
            ++p;
    }
    if (args.size() < words.size())
        return 0;
    for (size_t i = 0; i < words.size(); ++i)
        if (args[i] != words[i])
            return 0;
    return words.size();
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args;
    bool trace = false;
    bool help = false;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--trace")
            trace = true;
        else if (a == "--help" || a == "-h")
            help = true;
        else
            args.push_back(a);
    }

    // Only alone: after a command it is that command's (unknown) option.
    if (!help && args.size() == 1 && args[0] == "--version") {
        // The program carries the library's objects, so both are of this build.
        std::printf("chainvet %s (libchainvet %s)\n", CHAINVET_VERSION, CHAINVET_VERSION);
        return kPass;
    }

    const Command* found = nullptr;
    size_t consumed = 0;
    for (const Command& c : registry()) {
        size_t n = matchPath(c, args);
        if (n > consumed) {
            found = &c;
            consumed = n;
        }
    }
    if (found == nullptr) {
        if (help && args.empty()) {
            printUsage(stdout);
            return kPass;
        }
        if (!args.empty())
            std::fprintf(stderr, "chainvet: unknown command '%s'\n\n", args[0].c_str());
        printUsage(stderr);
        return kUsage;
    }
    if (help) {
        std::fputs(found->help, stdout);
        return kPass;
    }
    std::unique_ptr<DbTraceInitializer> tracer;
    if (trace)
        tracer.reset(new DbTraceInitializer("chainvet", chainvet_db_ctx));
    args.erase(args.begin(), args.begin() + static_cast<std::ptrdiff_t>(consumed));
    return found->run(args);
}
