// Argument handling shared by the command-line programs: "-h"/"--help", unknown options and the
// count of arguments, all decided before a program touches any file.
#ifndef KYN_TOOL_ARGS_H
#define KYN_TOOL_ARGS_H

#include <cstring>
#include <iostream>
#include <string>
#include <vector>

struct ToolUsage {
    const char* name;      // the program
    const char* synopsis;  // its arguments, e.g. "FILE"
    const char* help;      // what it does and how it exits
    int minArguments;
    int maxArguments;
    int usageExit;  // the exit status of a wrong call
    int passedOn;   // the 1-based position of an argument taken as it is (kyndiff's options), or 0
};

// The program's arguments once options are settled: "--" ends the options, so that a file may
// be called "-h"; a lone "-" is an argument.
struct ToolCall {
    std::vector<const char*> arguments;
    int exitCode = 0;  // meaningful when acceptArguments answers false
};

// True when the program should go on with `call.arguments`; otherwise it has printed help or
// usage and `call.exitCode` holds the status to exit with.
inline bool acceptArguments(const ToolUsage& usage, int argc, char** argv, ToolCall& call) {
    bool options = true;
    for (int i = 1; i < argc; ++i) {
        const char* argument = argv[i];
        const bool passedOn = int(call.arguments.size()) + 1 == usage.passedOn;
        if (options && !passedOn && argument[0] == '-' && argument[1] != '\0') {
            if (std::strcmp(argument, "--") == 0) {
                options = false;
                continue;
            }
            if (std::strcmp(argument, "-h") == 0 || std::strcmp(argument, "--help") == 0) {
                std::cout << "usage: " << usage.name << ' ' << usage.synopsis << '\n' << usage.help;
                call.exitCode = 0;
                return false;
            }
            std::cerr << usage.name << ": unknown option " << argument << " (" << usage.name
                      << " --help for usage; put -- in front of a file name that starts with -)\n";
            call.exitCode = usage.usageExit;
            return false;
        }
        call.arguments.push_back(argument);
    }
    const int count = int(call.arguments.size());
    if (count < usage.minArguments || count > usage.maxArguments) {
        std::cerr << "usage: " << usage.name << ' ' << usage.synopsis << " (" << usage.name
                  << " --help for more)\n";
        call.exitCode = usage.usageExit;
        return false;
    }
    return true;
}

#endif
