#include "Command.h"

#include <unistd.h>

#include <charconv>
#include <cmath>
#include <iostream>
#include <memory>

#include "KynFile.h"
#include "KynHelper.h"
#include "KynKinds.h"
#include "KynMessages.h"

namespace kyncli {

void addFileCommand(CLI::App& program, int& status, const std::string& name,
                    const std::string& description, const std::string& exitStatus,
                    int (*run)(const std::string& file, bool json)) {
    auto* command = program.add_subcommand(name, description);
    auto file = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    command->add_option("FILE", *file, "The cache file")->required();
    command->add_flag("--json", *json, "Print one JSON document instead");
    command->footer("Exit status: " + exitStatus);
    command->callback([file, json, run, &status] { status = run(*file, *json); });
}

void complain(const std::string& command, const std::string& file, const std::string& what,
              const std::string& remedy) {
    std::cerr << "kyn " << command << ": ";
    if (!file.empty()) std::cerr << file << ": ";
    std::cerr << what;
    if (!remedy.empty()) std::cerr << "; " << remedy;
    std::cerr << std::endl;
}

bool loadCache(Kyn::KynRoMemCache& cache, const std::string& path, const std::string& command,
               int maxSamples) {
    if (access(path.c_str(), R_OK) != 0) {
        complain(command, path, "no such file, or it cannot be read",
                 "check the path and the file's permissions");
        return false;
    }
    if (!Kyn::KynFile::isKynFile(path.c_str())) {
        complain(command, path, "not a cache file (it does not start with a cache header)");
        return false;
    }
    Kyn::KynMessageCapture capture;
    if (cache.load(path.c_str(), true, maxSamples)) return true;
    complain(command, path, "the file is damaged (" + capture.last() + ")",
             "kyn check " + path + " tells what is damaged, kyn recover " + path +
                 " OUT saves what can be saved");
    return false;
}

ProgressLine::ProgressLine(std::string label)
    : label(std::move(label)), terminal(isatty(STDERR_FILENO) == 1) {}

ProgressLine::~ProgressLine() {
    if (terminal && shown >= 0) std::cerr << "\r\033[K" << std::flush;
}

Kyn::KynProgress ProgressLine::callback() {
    if (!terminal) return Kyn::KynProgress();
    return [this](int64_t done, int64_t total) { show(done, total); };
}

void ProgressLine::show(int64_t done, int64_t total) {
    if (!terminal || total <= 0) return;
    const int percent = int(std::min<int64_t>(100, done * 100 / total));
    if (percent == shown) return;
    shown = percent;
    std::cerr << '\r' << label << ' ' << percent << '%' << std::flush;
}

namespace {

template <class T>
std::string shortest(T value) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
    char text[64];
    auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

}  // namespace

std::string number(float value) {
    return shortest(value);
}

std::string number(double value) {
    return shortest(value);
}

Json jsonNumber(float value) {
    // The double nearest the float's shortest text, which JSON writes back as that text.
    return std::isfinite(value) ? Json(std::stod(number(value))) : Json(nullptr);
}

Json jsonNumber(double value) {
    return std::isfinite(value) ? Json(value) : Json(nullptr);
}

std::string kindName(Kyn::KynRoMemCache& cache, int object) {
    Kyn::KynHelperObjFactory factory(&cache);
    std::unique_ptr<Kyn::KynHelperObj> view(factory.kynObjBuilder(object));
    for (const std::string* kind :
         {&Kyn::transform, &Kyn::mesh, &Kyn::nurbssurface, &Kyn::nurbscurve, &Kyn::locator,
          &Kyn::lxcoordsystem, &Kyn::geometry})
        if (view->isA(*kind)) return *kind;
    return Kyn::helperObj;
}

std::string kindWords(const std::string& kind) {
    if (kind == Kyn::nurbssurface) return "nurbs surface";
    if (kind == Kyn::nurbscurve) return "nurbs curve";
    if (kind == Kyn::lxcoordsystem) return "coordinate system";
    if (kind == Kyn::geometry) return "points";
    if (kind == Kyn::helperObj) return "other";
    return kind;
}

std::string samplingWords(float rate) {
    if (rate == 0.0f) return "non-uniform";
    if (rate == 1.0f) return "1 sample per frame";
    return number(rate) + " samples per frame";
}

void printJson(const Json& document) {
    std::cout << document.dump(2) << std::endl;
}

}  // namespace kyncli
