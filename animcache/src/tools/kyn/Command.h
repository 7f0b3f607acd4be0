// What the subcommands of kyn share: their registration, loading a cache with the library's
// words turned into a message for people, progress on a terminal, and number formatting.
#ifndef KYN_COMMAND_H
#define KYN_COMMAND_H

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

#include "KynProgress.h"
#include "KynRoMemCache.h"

namespace kyncli {

using Json = nlohmann::ordered_json;

// Each subcommand adds itself to the program; its callback leaves the exit status in `status`.
using Registration = void (*)(CLI::App& program, int& status);

void addInfo(CLI::App& program, int& status);
void addTree(CLI::App& program, int& status);
void addCat(CLI::App& program, int& status);
void addDiff(CLI::App& program, int& status);
void addCheck(CLI::App& program, int& status);
void addRecover(CLI::App& program, int& status);
void addStitch(CLI::App& program, int& status);
void addExport(CLI::App& program, int& status);  // with the converters only
void addImport(CLI::App& program, int& status);  // with the converters only
void addBlenderInstall(CLI::App& program, int& status);

// Adds a subcommand that takes one FILE and --json, and runs `run(file, json)` for its status.
void addFileCommand(CLI::App& program, int& status, const std::string& name,
                    const std::string& description, const std::string& exitStatus,
                    int (*run)(const std::string& file, bool json));

// Writes "kyn COMMAND: FILE: WHAT" and, when given, "; REMEDY" on the standard error.
void complain(const std::string& command, const std::string& file, const std::string& what,
              const std::string& remedy = std::string());

// Loads `path` into `cache`, keeping at most `maxSamples` samples. On failure it complains,
// naming what is wrong with the file and what to do, and answers false.
bool loadCache(Kyn::KynRoMemCache& cache, const std::string& path, const std::string& command,
               int maxSamples = 4);

// Shows "LABEL NN%" on the standard error while the work runs, when that is a terminal, and
// nothing otherwise. The line is wiped when the object goes.
class ProgressLine {
  public:
    explicit ProgressLine(std::string label);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // The callback that the library's long operations take; empty when not on a terminal.
    Kyn::KynProgress callback();
    void show(int64_t done, int64_t total);

  private:
    std::string label;
    bool terminal;
    int shown = -1;  // the percentage on the line, -1 for none
};

// The shortest text that reads back as the same value.
std::string number(float value);
std::string number(double value);
// A number as JSON, written as short as `number` writes it; null when it is not finite.
Json jsonNumber(float value);
Json jsonNumber(double value);

// The kind of object a view stands for, as the library names it ("mesh", "transform", ...;
// "helperObj" for none of them), and in words for people.
std::string kindName(Kyn::KynRoMemCache& cache, int object);
std::string kindWords(const std::string& kind);

// "1 sample per frame", "24 samples per frame", "non-uniform".
std::string samplingWords(float rate);

void printJson(const Json& document);

}  // namespace kyncli

#endif
