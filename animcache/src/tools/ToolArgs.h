// Argument handling shared by the command-line programs: "--help", and the count of arguments.
#ifndef KYN_TOOL_ARGS_H
#define KYN_TOOL_ARGS_H

#include <cstring>
#include <iostream>

struct ToolUsage {
    const char* name;      // the program
    const char* synopsis;  // its arguments, e.g. "FILE"
    const char* help;      // what it does and how it exits
    int minArguments;
    int maxArguments;
    int usageExit;  // the exit status of a wrong call
};

// True when the program should go on with `argv`; otherwise it has printed help or usage and
// `exitCode` holds the status to exit with.
inline bool acceptArguments(const ToolUsage& usage, int argc, char** argv, int& exitCode) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::cout << "usage: " << usage.name << ' ' << usage.synopsis << '\n' << usage.help;
        exitCode = 0;
        return false;
    }
    if (argc - 1 < usage.minArguments || argc - 1 > usage.maxArguments) {
        std::cerr << "usage: " << usage.name << ' ' << usage.synopsis << " (" << usage.name
                  << " --help for more)\n";
        exitCode = usage.usageExit;
        return false;
    }
    return true;
}

#endif
