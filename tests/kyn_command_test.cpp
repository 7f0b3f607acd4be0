// The kyn command run as a process on files made here: the exact output of info, tree and cat
// for every object kind, diff inside and outside a tolerance, check, recover and stitch with
// their exit statuses, usage errors, and progress only on a terminal.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "EveryKind.h"
#include "KynRoMemCache.h"
#include "TestFiles.h"

using namespace kyntest_support;
using Json = nlohmann::json;

namespace {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string quoted(const std::string& word) {
    std::string text = "'";
    for (char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

Outcome kyn(const std::vector<std::string>& arguments) {
    static const std::string out = scratchPath("stdout.txt");
    static const std::string err = scratchPath("stderr.txt");
    std::string command = quoted(KYN_COMMAND);
    for (const std::string& word : arguments) command += " " + quoted(word);
    command += " >" + quoted(out) + " 2>" + quoted(err) + " </dev/null";
    Outcome run;
    const int result = std::system(command.c_str());
    run.status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    run.out = slurp(out);
    run.err = slurp(err);
    return run;
}

// Two uniform samples of the scene of every kind, at frames 1 and 2.
const std::string& everyKind() {
    static const std::string path = [] {
        const std::string made = scratchPath("every.kyn");
        writeEveryKindFile(made, 0, 2, false);
        return made;
    }();
    return path;
}

// A copy of `source` with the first position of the mesh at sample 1 moved by `delta`.
std::string withMovedVertex(const std::string& source, float delta) {
    Kyn::KynRoMemCache cache;
    EXPECT_TRUE(cache.load(source.c_str(), true));
    Kyn::KynHeader h;
    EXPECT_TRUE(cache.seekObjectSample(h, 1, 1));
    const int64_t value = cache.file.tell(nullptr) + 16;  // behind the header of its "POSI"
    std::vector<unsigned char> bytes = readBytes(source);
    float x = 0;
    std::memcpy(&x, &bytes[std::size_t(value)], 4);
    x += delta;
    std::memcpy(&bytes[std::size_t(value)], &x, 4);
    const std::string path = scratchPath("moved.kyn");
    writeBytes(path, bytes);
    return path;
}

}  // namespace

TEST(KynCommand, InfoAndTreeShowEveryKind) {
    Outcome run = kyn({"info", everyKind()});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "file: " + everyKind() +
                           "\n"
                           "version: 2\n"
                           "application: test\n"
                           "samples: 2, frames 1 to 2, 1 sample per frame\n"
                           "space: object\n"
                           "objects: 6\n"
                           "  |xf       transform          animates matrix\n"
                           "  |xf|mesh  mesh               4 vertices, animates positions, "
                           "attribute mdShapeType\n"
                           "  |curve    nurbs curve        3 vertices, animates positions\n"
                           "  |system   coordinate system  static\n"
                           "  |surface  nurbs surface      4 vertices, static\n"
                           "  |locator  locator            static\n");
    run = kyn({"info", everyKind(), "--json"});
    EXPECT_EQ(run.status, 0);
    const Json info = Json::parse(run.out);
    EXPECT_EQ(info["samples"], 2);
    EXPECT_EQ(info["rate"], 1.0);
    ASSERT_EQ(info["objects"].size(), 6u);
    EXPECT_EQ(info["objects"][1]["kind"], "mesh");
    EXPECT_EQ(info["objects"][1]["animated"], Json::array({"POSI"}));
    EXPECT_EQ(info["objects"][1]["vertices"], 4);
    EXPECT_EQ(info["objects"][4]["kind"], "nurbssurface");

    run = kyn({"tree", everyKind()});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "xf  transform\n"
              "  mesh  mesh\n"
              "curve  nurbs curve\n"
              "system  coordinate system\n"
              "surface  nurbs surface\n"
              "locator  locator\n");
    run = kyn({"tree", everyKind(), "--json"});
    const Json tree = Json::parse(run.out);
    EXPECT_EQ(tree[0]["children"][0]["path"], "|xf|mesh");

    const std::string nonUniform = scratchPath("nonuniform.kyn");
    writeEveryKindFile(nonUniform, 0, 3, true);
    EXPECT_NE(kyn({"info", nonUniform}).out.find("samples: 3, frames 1 to 4, non-uniform\n"),
              std::string::npos);
}

TEST(KynCommand, CatShowsEveryKindAtASample) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"|xf",
         "|xf  transform  sample 1, frame 2\n"
         "XFRM  int32  static  0 values\n"
         "MTRX  float 4x4  animated  4 items of 4\n"
         "  1 0 0 0\n  0 1 0 0\n  0 0 1 0\n  1 0 0 1\n"},
        {"|xf|mesh",
         "|xf|mesh  mesh  sample 1, frame 2\n"
         "MESH  int32  static  0 values\n"
         "PCNT  int32  static  1 value\n  4\n"
         "PIDS  int32  static  4 values\n  0 1 2 3\n"
         "POSI  float 3d  animated  4 items of 3\n  1 1 1\n  1 1 1\n  1 1 1\n  1 1 1\n"
         "attribute mdShapeType (int)  int32  animated  1 value\n  1\n"
         "attribute rmanP__Pref (point[])  float point 3d  static  4 items of 3\n"
         "  0.5 0.5 0.5\n  0.5 0.5 0.5\n  0.5 0.5 0.5\n  0.5 0.5 0.5\n"},
        {"|curve",
         "|curve  nurbs curve  sample 1, frame 2\n"
         "NRBC  int32  static  0 values\n"
         "DEGR  int32  static  1 value\n  1\n"
         "FORM  cstr  static  1 value\n  kOpen\n"
         "KNTU  float  static  3 values\n  0 1 2\n"
         "POSI  float 3d  animated  3 items of 3\n  1 1 1\n  1 1 1\n  1 1 1\n"},
        {"|system",
         "|system  coordinate system  sample 1, frame 2\n"
         "LXCS  int32  static  0 values\n"
         "attribute displayShape (int)  int32 scalar  static  1 value\n  3\n"},
        {"|surface",
         "|surface  nurbs surface  sample 1, frame 2\n"
         "NRBS  int32  static  0 values\n"
         "DEGR  int32  static  2 values\n  1 1\n"
         "FORM  cstr  static  2 values\n  kOpen\n  kPeriodic\n"
         "KNTU  float  static  2 values\n  0 1\n"
         "KNTV  double  static  3 values\n  0 1 2\n"
         "POSI  float 3d  static  4 items of 3\n  1 1 1\n  1 1 1\n  1 1 1\n  1 1 1\n"},
        {"|locator",
         "|locator  locator  sample 1, frame 2\n"
         "ELOC  int32  static  0 values\n"
         "BBOX  double  static  6 values\n  0 0 0 1 1 1\n"},
    };
    for (const auto& [path, expected] : cases) {
        const Outcome run = kyn({"cat", everyKind(), path, "--sample", "1"});
        EXPECT_EQ(run.status, 0) << path;
        EXPECT_EQ(run.out, expected) << path;
    }
}

TEST(KynCommand, CatAtATimeInEachFormat) {
    Outcome run = kyn({"cat", everyKind(), "|xf|mesh", "--time", "1.25", "--tag", "POSI"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "|xf|mesh  mesh  frame 1.25, order 1\n"
              "POSI  float 3d  evaluated  4 items of 3\n"
              "  0.25 0.25 0.25\n  0.25 0.25 0.25\n  0.25 0.25 0.25\n  0.25 0.25 0.25\n");
    run = kyn({"cat", everyKind(), "|xf", "--time", "1.5", "--order", "0", "--csv"});
    EXPECT_EQ(run.out, "MTRX,0,1,0,0,0\nMTRX,1,0,1,0,0\nMTRX,2,0,0,1,0\nMTRX,3,0,0,0,1\n");
    run = kyn({"cat", everyKind(), "|xf", "--time", "1.5", "--json"});
    const Json json = Json::parse(run.out);
    EXPECT_EQ(json["heldSample"], 0);
    EXPECT_EQ(json["chunks"][1]["source"], "evaluated");
    EXPECT_EQ(json["chunks"][1]["values"][3], Json::array({0.5, 0.0, 0.0, 1.0}));
    run = kyn({"cat", everyKind(), "|xf|mesh", "--tag", "mdShapeType", "--json"});
    EXPECT_EQ(Json::parse(run.out)["attributes"][0]["values"], Json::array({0}));

    run = kyn({"cat", everyKind(), "|xf|mesh", "--tag", "NOPE"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("has no chunk or attribute NOPE; it has MESH, PCNT"), std::string::npos);
    EXPECT_EQ(kyn({"cat", everyKind(), "|nothing"}).status, 1);
    EXPECT_EQ(kyn({"cat", everyKind(), "|xf", "--sample", "2"}).status, 1);
    EXPECT_EQ(kyn({"cat", everyKind(), "|xf", "--sample", "1", "--time", "1"}).status, 2);
    EXPECT_EQ(kyn({"cat", everyKind(), "|xf", "--json", "--csv"}).status, 2);
}

TEST(KynCommand, DiffWithinAndOutsideATolerance) {
    const std::string copy = scratchPath("copy.kyn");
    writeBytes(copy, readBytes(everyKind()));
    Outcome run = kyn({"diff", everyKind(), copy});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, everyKind() + " and " + copy + " are the same (largest difference 0)\n");

    const std::string moved = withMovedVertex(everyKind(), 0.0625f);
    run = kyn({"diff", everyKind(), moved});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, everyKind() + " and " + moved +
                           " differ:\n"
                           "  |xf|mesh POSI, sample 1 (frame 2): 1 of 12 values differ, most at "
                           "value 0 (1 and 1.0625)\n"
                           "largest difference: 0.0625, in |xf|mesh POSI, sample 1 (frame 2)\n");
    run = kyn({"diff", everyKind(), moved, "--tolerance", "0.1", "--json"});
    EXPECT_EQ(run.status, 0);
    const Json json = Json::parse(run.out);
    EXPECT_TRUE(json["same"]);
    EXPECT_EQ(json["largest"]["value"], 0.0625);
    EXPECT_EQ(json["largest"]["path"], "|xf|mesh");

    const std::string longer = scratchPath("longer.kyn");
    writeEveryKindFile(longer, 0, 3, false);
    run = kyn({"diff", everyKind(), longer});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("  samples: 2 and 3\n"), std::string::npos);
    run = kyn({"diff", everyKind(), scratchPath("missing.kyn")});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find("missing.kyn: no such file"), std::string::npos);
}

TEST(KynCommand, CheckAndRecover) {
    Outcome run = kyn({"check", everyKind()});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, everyKind() + ": whole, 2 samples of 6 objects read\n");
    EXPECT_EQ(run.err, "");  // no progress when the standard error is no terminal

    const std::vector<unsigned char> bytes = readBytes(everyKind());
    const std::string cut = scratchPath("cut.kyn");
    writeBytes(cut, std::vector<unsigned char>(bytes.begin(), bytes.end() - 20));
    run = kyn({"check", cut});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find(": damaged\n"), std::string::npos);
    EXPECT_NE(run.out.find("sample 1 at offset "), std::string::npos);
    EXPECT_NE(run.out.find("1 of 2 samples can be read; kyn recover " + cut + " OUT would keep 1"),
              std::string::npos);
    const Json json = Json::parse(kyn({"check", cut, "--json"}).out);
    EXPECT_FALSE(json["whole"]);
    EXPECT_EQ(json["recoverableSamples"], 1);
    EXPECT_EQ(json["damage"].back()["kind"], "cut");

    const std::string out = scratchPath("recovered.kyn");
    run = kyn({"recover", cut, out});
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("kept 1 of 2 samples found in " + cut + ", written to " + out +
                           " (frames 1 to 1, uniform)\ndropped:\n  sample 1 at offset "),
              std::string::npos);
    EXPECT_EQ(kyn({"check", out}).status, 0);

    const std::string missing = scratchPath("missing.kyn");
    EXPECT_EQ(kyn({"check", missing}).status, 2);
    run = kyn({"recover", missing, out});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("missing.kyn: the file cannot be opened; nothing was written"),
              std::string::npos);
}

TEST(KynCommand, StitchJoinsPiecesAndRefusesOverlaps) {
    const std::string a = scratchPath("a.kyn");
    const std::string b = scratchPath("b.kyn");
    const std::string c = scratchPath("c.kyn");
    writeEveryKindFile(a, 0, 2, false);
    writeEveryKindFile(b, 2, 2, false);
    writeEveryKindFile(c, 4, 1, false);
    const std::string out = scratchPath("joined.kyn");
    Outcome run = kyn({"stitch", out, c, a, b});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "joined 3 pieces, 5 samples, into " + out + ": " + a + " " + b + " " + c + "\n");
    const std::string whole = scratchPath("whole.kyn");
    writeEveryKindFile(whole, 0, 5, false);
    EXPECT_EQ(kyn({"diff", out, whole}).status, 0);

    run = kyn({"stitch", out, a, b, a});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "kyn stitch: " + a + ": it starts at frame 1, " + a +
                           " ends at frame 2; nothing was written; give pieces whose frame "
                           "ranges do not overlap\n");
    EXPECT_EQ(kyn({"diff", out, whole}).status, 0);  // the target as it was
    const Json json = Json::parse(kyn({"stitch", out, a, c, "--json"}).out);
    EXPECT_EQ(json["refusal"], "gap");
    EXPECT_EQ(json["file"], c);
}

TEST(KynCommand, HelpUsageAndProgressOnATerminal) {
    for (const char* command : {"info", "tree", "cat", "diff", "check", "recover", "stitch"}) {
        const Outcome run = kyn({command, "--help"});
        EXPECT_EQ(run.status, 0) << command;
        EXPECT_NE(run.out.find("Exit status:"), std::string::npos) << command;
    }
    EXPECT_EQ(kyn({}).status, 2);
    EXPECT_EQ(kyn({"frobnicate"}).status, 2);
    EXPECT_EQ(kyn({"info"}).status, 2);
    EXPECT_EQ(kyn({"check", everyKind(), "--frobnicate"}).status, 2);

    // On a terminal, check shows how far it has come on the standard error.
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        execl(KYN_COMMAND, KYN_COMMAND, "check", everyKind().c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    std::string seen;
    char buffer[256];
    for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) > 0;) seen.append(buffer, n);
    int status = 0;
    waitpid(child, &status, 0);
    close(terminal);
    EXPECT_NE(seen.find("checking " + everyKind() + " 100%"), std::string::npos) << seen;
}
