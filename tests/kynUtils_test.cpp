// The text dump and the writer exerciser: exact dump lines, determinism, error reports.
#include <gtest/gtest.h>

#include "KynChunks.h"
#include "TestFiles.h"
#include "kynUtils.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Lines = std::vector<std::string>;

struct DumpResult {
    int result;
    Lines out;
    std::string err;
    std::streamsize precision;  // what the dump left on the stream
};

DumpResult dump(const std::string& path) {
    Capture out(std::cout);
    Capture err(std::cerr);
    std::cout.precision(6);
    const int result = kyn2txt(path.c_str());
    const std::streamsize precision = std::cout.precision();
    std::cout.precision(6);
    return {result, out.lines(), err.str(), precision};
}

// The utility error form ends in the message: "<utility> at <path>:<line> Error <message>".
void expectUtilityError(const std::string& text, const std::string& utility,
                        const std::string& message) {
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.rfind(utility + " at ", 0), 0u) << text;
    EXPECT_NE(text.find(" Error " + message + "\n"), std::string::npos) << text;
}

// The dump of the worked file.
Lines workedDump() {
    std::string reserve;
    for (int i = 0; i < 16; ++i) reserve += std::string(1, '\0') + " ";
    return {
        "DKYN int64 (8) : 2 ",
        "META group (212) : ",
        ". WAPP cstr (4) : app ",
        ". DATE int64 (8) : 1400000000 ",
        ". NSAM int64 (8) : 2 ",
        ". FTIM float (4) : 1 ",
        ". LTIM float (4) : 2 ",
        ". RATE float (4) : 1 ",
        ". SPAC int64 (8) : 1 ",
        ". NOBJ int64 (8) : 1 ",
        ". DOBJ group (20) : #0",
        ". . NAME cstr (4) : foo ",
        "SAMS group (232) : ",
        ". JSAM int64 (16) : 332 416 ",
        ". FREE undef (16) : " + reserve,
        ". SAMP group (68) : #0",
        ". . JOBJ int64 (8) : 372 ",
        ". . SOBJ group (28) : #0",
        ". . . POSI float (12) : 0 0 0 ",
        ". SAMP group (68) : #1",
        ". . JOBJ int64 (8) : 456 ",
        ". . SOBJ group (28) : #0",
        ". . . POSI float (12) : 1 1 1 ",
    };
}

}  // namespace

// The dump leaves a float precision of 8 set on the stream.
TEST(Kyn2txt, DumpsTheWorkedFileLineForLine) {
    const std::string path = scratchPath("worked.kyn");
    writeWorkedFile(path);
    const DumpResult d = dump(path);
    EXPECT_EQ(d.result, 0);
    EXPECT_EQ(d.err, "");
    EXPECT_EQ(d.out, workedDump());
    EXPECT_EQ(d.precision, 8);

    // A cut inside the payload of the last "POSI" keeps what was printed.
    std::vector<unsigned char> bytes = readBytes(path);
    bytes.resize(494);
    writeBytes(path, bytes);
    const DumpResult cut = dump(path);
    EXPECT_EQ(cut.result, -1);
    const Lines expected = workedDump();
    EXPECT_EQ(cut.out, Lines(expected.begin(), expected.end() - 1));
    expectUtilityError(cut.err, "kyn2txt", path + ": error reading leaf chunk");
}

TEST(Kyn2txt, OnlyTheMagicChunkIsOneLineAndOtherFilesAreNotCaches) {
    const std::string path = scratchPath("magic.kyn");
    writeBytes(path,
               {'D', 'K', 'Y', 'N', 5, 0, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0});
    DumpResult d = dump(path);
    EXPECT_EQ(d.result, 0);
    EXPECT_EQ(d.out, Lines{"DKYN int64 (8) : 2 "});

    writeBytes(path, {'h', 'e', 'l', 'l', 'o'});
    d = dump(path);
    EXPECT_EQ(d.result, -1);
    EXPECT_TRUE(d.out.empty());
    expectUtilityError(d.err, "kyn2txt", path + ": is not a valid KYN file");
}

TEST(Kyn2txt, ObjectCountOfTheLastSampleMustMatchTheMetadata) {
    const std::string path = scratchPath("mismatch.kyn");
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynDKYNChunk().write(file);
    KynMETAChunk meta;
    meta.numSamples = 1;
    meta.addDOBJ("a");
    meta.addDOBJ("b");
    ASSERT_TRUE(meta.write(file));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, 1, 0, false) && sams.writeStartSAMPChunk(file, 1, nullptr));
    ASSERT_TRUE(sams.writeStartSOBJChunk(file) && sams.writeEndSOBJChunk(file));
    ASSERT_TRUE(sams.writeEndSAMPChunk(file) && sams.writeEnd(file) && file.close());
    const DumpResult d = dump(path);
    EXPECT_EQ(d.result, -1);
    ASSERT_FALSE(d.out.empty());
    // An empty "SOBJ" closes its parents at its header: the next line moves out two levels.
    EXPECT_EQ(d.out.back(), ". . SOBJ group (0) : #0");
    expectUtilityError(d.err, "kyn2txt", "Number of SOBJ not match number of DOBJ");
}

TEST(Kyntest, WritesTheFixedFileIdenticallyEveryTime) {
    const std::string first = scratchPath("first.kyn"), second = scratchPath("second.kyn");
    ASSERT_EQ(kyntest(first.c_str()), 0);
    ASSERT_EQ(kyntest(second.c_str()), 0);
    EXPECT_TRUE(KynFile::isKynFile(first.c_str()));
    EXPECT_EQ(readBytes(first), readBytes(second));
    const DumpResult d = dump(first);
    EXPECT_EQ(d.result, 0);
    const Lines head = {
        "DKYN int64 (8) : 1 ",      "META group (176) : ",
        ". NSAM int64 (8) : 0 ",    ". SPAC int64 (8) : 0 ",
        ". NOBJ int64 (8) : 2 ",    ". DOBJ group (20) : #0",
        ". . NAME cstr (4) : foo ", ". DOBJ group (20) : #1",
        ". . NAME cstr (4) : bar ", ". ABCD cstr (16) : aaa bbb ccc ddd ",
        "SAMS group (312) : ",      ". JSAM int64 (8) : 288 ",
    };
    const Lines samples = {
        ". SAMP group (240) : #0",
        ". . JOBJ int64 (16) : 336 416 ",
        ". . SOBJ group (64) : #0",
        ". . . POSI float (16) : 0 1 2 3 ",
        ". . . VELO float (16) : 0 2 4 6 ",
        ". . SOBJ group (112) : #1",
        ". . . POSI float (40) : 0 3 6 9 12 15 18 21 24 27 ",
        ". . . VELO float (40) : 0 4 8 12 16 20 24 28 32 36 ",
    };
    ASSERT_GE(d.out.size(), head.size() + 9);
    EXPECT_EQ(Lines(d.out.begin(), d.out.begin() + 12), head);
    EXPECT_EQ(Lines(d.out.begin() + 13, d.out.end()), samples);

    Capture err(std::cerr);
    EXPECT_EQ(kyntest("/nonexistent-directory/x.kyn"), -1);
    expectUtilityError(err.str(), "kyntest", "opening file");
}
