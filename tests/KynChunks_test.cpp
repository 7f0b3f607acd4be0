// The chunk tree: the factory, deep copies, typed leaves, groups, the magic chunk and the print
// conventions that every chunk class follows.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include "KynChunks.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;
using Chunk = std::unique_ptr<KynChunk>;

// A scratch file written through one KynFile and read back through another.
class ChunkFileTest : public ::testing::Test {
  protected:
    void startWriting() { ASSERT_TRUE(out.open(path.c_str(), "w")); }
    Bytes finishWriting() {
        EXPECT_TRUE(out.close());
        return readBytes(path);
    }
    void startReading(const Bytes& bytes) {
        writeBytes(path, bytes);
        ASSERT_TRUE(in.open(path.c_str(), "r"));
    }
    KynHeader nextHeader() {
        KynHeader header;
        EXPECT_TRUE(in.readHeader(header));
        return header;
    }

    std::string path = scratchPath("chunks.kyn");
    KynFile out;
    KynFile in;
};

std::string printed(const KynChunk& chunk, int depth = 0) {
    std::ostringstream os;
    chunk.print(os, depth);
    return os.str();
}

template <class T>
const std::vector<T>& dataOf(const KynChunk* chunk) {
    return dynamic_cast<const KynLeafChunk<T>&>(*chunk).data;
}

// Codes above 6 make a plain chunk.
TEST_F(ChunkFileTest, UnknownTypeSkipsItsPayloadAndWritesABareHeader) {
    startReading(cat({head("ODDT", 7, 5, 1, 2), raw("hello"), head("NEXT", kTypeInt32, 0)}));
    KynHeader header = nextHeader();
    Chunk chunk(KynChunk::create(header.tag, header.type));
    KynHeader otherTag = header;
    otherTag.tag = kTagFREE;
    EXPECT_FALSE(chunk->read(otherTag, in));
    EXPECT_EQ(in.tell(nullptr), 16);
    ASSERT_TRUE(chunk->read(header, in));
    EXPECT_EQ(in.tell(nullptr), 21);
    EXPECT_EQ(chunk->getLength(), 0);
    EXPECT_EQ(nextHeader().tag, kynTag("NEXT"));
    startWriting();
    ASSERT_TRUE(chunk->write(out));
    EXPECT_EQ(finishWriting(), head("ODDT", 7, 0));
}

TEST(KynChunkCopyTest, LeafCopyComputesItsLengthAfresh) {
    KynLeafChunk<float> source(kTagPOSI, 1, 3, {1.0f, 2.0f, 3.0f});
    source.getData().push_back(4.0f);
    source.header.reserved = 7;
    ASSERT_EQ(source.header.length, 12);
    Chunk copy(KynChunk::copy(&source));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(typeid(*copy), typeid(KynLeafChunk<float>));
    EXPECT_EQ(printed(*copy), "POSI float (16) point 3d : 1 2 3 4 ");
    EXPECT_EQ(copy->header.reserved, 0);
}

// Raw ("undef") leaves, reserved "FREE" chunks and unknown types vanish from copies, also inside
// groups; a subclass copies as a plain group without its own members.
TEST(KynChunkCopyTest, CopiesDropWhatCannotBeCopied) {
    EXPECT_EQ(KynChunk::copy(nullptr), nullptr);
    KynLeafChunk<std::string> freeStrings(kTagFREE, {"a"});
    EXPECT_EQ(KynChunk::copy(&freeStrings), nullptr);
    KynLeafChunk<char> rawLeaf(kTagPOSI, {'x'});
    EXPECT_EQ(KynChunk::copy(&rawLeaf), nullptr);
    Chunk unknown(KynChunk::create(kTagPOSI, 9));
    EXPECT_EQ(KynChunk::copy(unknown.get()), nullptr);

    KynGroupChunk source(kynTag("GRUP"));
    source.children.push_back(new KynLeafChunk<char>(kTagFREE, {'r'}));
    source.children.push_back(new KynLeafChunk<std::string>(kTagFORM, {"open"}));
    auto* inner = new KynGroupChunk(kynTag("INNR"));
    inner->children.push_back(new KynLeafChunk<char>(kTagPOSI, {'q'}));
    inner->children.push_back(new KynLeafChunk<int>(kTagPCNT, {4}));
    source.children.push_back(inner);
    source.children.push_back(KynChunk::create(kTagMESH, 8));
    Chunk copy(KynChunk::copy(&source));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(printed(*copy),
              "GRUP group (0) : \n"
              ". FORM cstr (5) : open \n"
              ". INNR group (0) : \n"
              ". . PCNT int32 (4) : 4 \n"
              "\n");
    EXPECT_NE(static_cast<KynGroupChunk&>(*copy).children[0], source.children[1]);

    KynDOBJChunk object;
    object.name = "foo";
    object.datr = new KynDATRChunk();
    object.header.compound = 2;
    object.header.length = 99;
    object.children.push_back(new KynLeafChunk<int>(kTagPCNT, {4}));
    copy.reset(KynChunk::copy(&object));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(typeid(*copy), typeid(KynGroupChunk));
    EXPECT_EQ(printed(*copy), "DOBJ group (0) : \n. PCNT int32 (4) : 4 \n");
}

// A leaf refuses a length that is no whole number of elements; the header is already taken
// from the file by then, the data is not.
template <class T>
void expectRefusedLength(unsigned char type, int64_t length, const std::vector<T>& old) {
    std::string path = scratchPath("bad_length.kyn");
    writeBytes(path, cat({head("POSI", type, length), Bytes(64, 0)}));
    KynFile file;
    KynHeader header;
    ASSERT_TRUE(file.open(path.c_str(), "r") && file.readHeader(header));
    KynLeafChunk<T> leaf(kTagPOSI, old);
    EXPECT_FALSE(leaf.read(header, file));
    EXPECT_EQ(leaf.header.length, length);
    EXPECT_EQ(leaf.data, old);
}

TEST(KynLeafChunkTest, LengthNotAWholeNumberOfElementsLeavesTheOldData) {
    expectRefusedLength<float>(kTypeFloat, 6, {1.0f, 2.0f});
    expectRefusedLength<int>(kTypeInt32, 7, {5});
    expectRefusedLength<long>(kTypeInt64, 12, {5, 6});
    expectRefusedLength<double>(kTypeDouble, 4, {0.5});
}

TEST_F(ChunkFileTest, LeafRefusesAnotherTagOrType) {
    startReading(cat({head("PCNT", kTypeInt32, 4), le(9, 4)}));
    KynHeader header = nextHeader();
    KynLeafChunk<int> otherTag(kTagPIDS, {1});
    EXPECT_FALSE(otherTag.read(header, in));
    EXPECT_EQ(otherTag.header.tag, kTagPIDS);
    EXPECT_EQ(otherTag.header.length, 4);
    KynLeafChunk<float> otherType(kTagPCNT);
    EXPECT_FALSE(otherType.read(header, in));
    EXPECT_EQ(in.tell(nullptr), 16);
    KynLeafChunk<int> match(kTagPCNT, {1, 2, 3});
    ASSERT_TRUE(match.read(header, in));
    EXPECT_EQ(match.data, std::vector<int>{9});
}

TEST_F(ChunkFileTest, LeafWriteTakesItsLengthFromTheData) {
    KynLeafChunk<int> leaf(kTagPCNT, 0, 1, {1});
    leaf.getData().push_back(2);
    leaf.header.reserved = 5;
    EXPECT_EQ(leaf.getLength(), 4);
    startWriting();
    ASSERT_TRUE(leaf.write(out));
    ASSERT_TRUE(KynLeafChunk<double>(kTagMTRX, 4, 16).write(out));
    EXPECT_EQ(finishWriting(), cat({head("PCNT", kTypeInt32, 8, 0, 1), le(1, 4), le(2, 4),
                                    head("MTRX", kTypeDouble, 0, 4, 16)}));
}

// Written, then read back through the factory: data, codes and length survive.
template <class T>
void expectRoundTrip(const std::vector<T>& data) {
    SCOPED_TRACE(typeid(T).name());
    std::string path = scratchPath("round_trip.kyn");
    const KynLeafChunk<T> source(kTagBBOX, 5, 9, data);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w") && source.write(file) && file.close());
    EXPECT_EQ(int64_t(readBytes(path).size()), 16 + source.getLength());
    KynHeader header;
    ASSERT_TRUE(file.open(path.c_str(), "r") && file.readHeader(header));
    EXPECT_EQ(header.type, KynTypeOf<T>::code);
    Chunk chunk(KynChunk::create(header.tag, header.type));
    ASSERT_TRUE(chunk->read(header, file));
    const auto& leaf = dynamic_cast<const KynLeafChunk<T>&>(*chunk);
    EXPECT_EQ(leaf.data, data);
    EXPECT_EQ(leaf.header.tag, kTagBBOX);
    EXPECT_EQ(leaf.getCompound(), 5);
    EXPECT_EQ(leaf.getDimension(), 9);
    EXPECT_EQ(leaf.header.length, source.header.length);
}

TEST(KynLeafChunkTest, EveryElementTypeSurvivesARoundTrip) {
    expectRoundTrip<char>({'a', '\0', 'z'});
    expectRoundTrip<std::string>({"", "ab", "c"});
    expectRoundTrip<int>({-1, 2, 1 << 30});
    expectRoundTrip<float>({0.5f, -2.25f, 1e30f});
    expectRoundTrip<long>({1L << 40, -3, INT64_MIN});
    expectRoundTrip<double>({0.1, -1e300, 3.0});
}

TEST_F(ChunkFileTest, GroupReadBuildsTheTree) {
    startReading(cat({head("GRUP", kTypeGroup, 95), head("PCNT", kTypeInt32, 4), le(7, 4),
                      head("INNR", kTypeGroup, 24), head("KNTU", kTypeDouble, 8),
                      le(0x3FF8000000000000, 8), head("EMPT", kTypeGroup, 0), head("ODDT", 9, 3),
                      raw("xyz"), head("NEXT", kTypeInt32, 0)}));
    KynGroupChunk group(kynTag("GRUP"));
    ASSERT_TRUE(group.read(nextHeader(), in));
    EXPECT_EQ(group.header.length, 95);
    EXPECT_TRUE(in.groupStack.empty());
    EXPECT_EQ(in.tell(nullptr), 111);
    ASSERT_EQ(group.children.size(), 4u);
    EXPECT_EQ(dataOf<int>(group.children[0]), std::vector<int>{7});
    const auto& inner = dynamic_cast<const KynGroupChunk&>(*group.children[1]);
    ASSERT_EQ(inner.children.size(), 1u);
    EXPECT_EQ(dataOf<double>(inner.children[0]), std::vector<double>{1.5});
    EXPECT_TRUE(dynamic_cast<const KynGroupChunk&>(*group.children[2]).children.empty());
    EXPECT_EQ(group.children[3]->header.type, 9);
    EXPECT_EQ(nextHeader().tag, kynTag("NEXT"));
}

TEST_F(ChunkFileTest, EmptyGroupReadsNoChildAndConsumesNothing) {
    startReading(cat({head("GRUP", kTypeGroup, 0), head("NEXT", kTypeInt32, 0)}));
    KynGroupChunk group(kynTag("GRUP"));
    group.children.push_back(new KynLeafChunk<int>(kTagPCNT));
    ASSERT_TRUE(group.read(nextHeader(), in));
    EXPECT_TRUE(group.children.empty());
    EXPECT_EQ(in.tell(nullptr), 16);
    EXPECT_FALSE(KynGroupChunk(kynTag("OTHR")).read(KynHeader(), in));
}

TEST_F(ChunkFileTest, FailedChildFailsTheGroupAndKeepsEarlierChildren) {
    startReading(cat({head("GRUP", kTypeGroup, 42), head("PCNT", kTypeInt32, 4), le(7, 4),
                      head("POSI", kTypeFloat, 6), Bytes(6, 0)}));
    KynGroupChunk group(kynTag("GRUP"));
    EXPECT_FALSE(group.read(nextHeader(), in));
    ASSERT_EQ(group.children.size(), 1u);
    EXPECT_EQ(group.children[0]->header.tag, kTagPCNT);
}

TEST_F(ChunkFileTest, GroupWriteMeasuresItsLength) {
    KynGroupChunk group(kynTag("GRUP"));
    group.header.length = 12345;
    group.children.push_back(new KynLeafChunk<int>(kTagPCNT, {7}));
    auto* inner = new KynGroupChunk(kynTag("INNR"));
    inner->children.push_back(new KynLeafChunk<std::string>(kTagNAME, {"ab"}));
    group.children.push_back(inner);
    group.children.push_back(new KynGroupChunk(kynTag("EMPT")));
    startWriting();
    ASSERT_TRUE(group.write(out));
    EXPECT_TRUE(out.groupStack.empty());
    EXPECT_EQ(finishWriting(),
              cat({head("GRUP", kTypeGroup, 71), head("PCNT", kTypeInt32, 4), le(7, 4),
                   head("INNR", kTypeGroup, 19), head("NAME", kTypeCstr, 3),
                   raw(std::string("ab\0", 3)), head("EMPT", kTypeGroup, 0)}));
    EXPECT_EQ(group.getLength(), 71);
}

// A chunk whose write always fails, to see what a group does about it.
class FailingChunk : public KynChunk {
  public:
    FailingChunk() : KynChunk(kynTag("FAIL"), kTypeInt32) {}
    bool write(KynFile&) const override { return false; }
};

TEST_F(ChunkFileTest, FailedChildWriteStillClosesTheGroup) {
    KynGroupChunk group(kynTag("GRUP"));
    group.children.push_back(new KynLeafChunk<int>(kTagPCNT, {7}));
    group.children.push_back(new FailingChunk());
    group.children.push_back(new KynLeafChunk<int>(kTagPIDS, {8}));
    startWriting();
    EXPECT_FALSE(group.write(out));
    EXPECT_TRUE(out.groupStack.empty());
    EXPECT_EQ(finishWriting(),
              cat({head("GRUP", kTypeGroup, 20), head("PCNT", kTypeInt32, 4), le(7, 4)}));
}

TEST(KynChunkPrintTest, HeaderText) {
    const struct {
        unsigned char type;
        int64_t length;
        unsigned char compound, dimension;
        std::string text;
        bool prefixOnly = false;
    } cases[] = {
        {kTypeFloat, 12, 1, 3, "POSI float (12) point 3d"},
        {kTypeDouble, 128, 4, 16, "POSI double (128) transform 4x4"},
        {kTypeInt32, -1, 0, 9, "POSI int32 (-1) 3x3"},
        {kTypeUndef, 0, 6, 0, "POSI undef (0) compound"},
        {kTypeGroup, 0, 0, 0, "POSI group (0)"},
        // Codes past the tables come only from damaged files; they print harmlessly.
        {200, 0, 0, 0, "POSI ", true},
        {kTypeInt32, 0, 99, 40, "POSI int32 (0)", true},
    };
    for (const auto& c : cases) {
        std::ostringstream os;
        KynHeader{kTagPOSI, c.type, c.compound, c.dimension, 0, c.length}.print(os);
        EXPECT_EQ(c.prefixOnly ? os.str().substr(0, c.text.size()) : os.str(), c.text);
    }
}

TEST(KynChunkPrintTest, LeavesPrintEachElementWithABlankAndADotPerLevel) {
    EXPECT_EQ(printed(KynLeafChunk<std::string>(kTagNAME, {"a", "b"})), "NAME cstr (4) : a b ");
    EXPECT_EQ(printed(KynLeafChunk<float>(kTagPOSI, 1, 3)), "POSI float (0) point 3d : ");
    EXPECT_EQ(printed(KynLeafChunk<int>(kTagPCNT, {3, -1}), 2), ". . PCNT int32 (8) : 3 -1 ");
    EXPECT_EQ(printed(KynLeafChunk<long>(kTagNSAM, {INT64_MIN}), -1),
              "NSAM int64 (8) : -9223372036854775808 ");
    EXPECT_EQ(printed(KynLeafChunk<char>(kTagFREE, {'x', '\0'})),
              std::string("FREE undef (2) : x \0 ", 21));
    EXPECT_EQ(printed(*Chunk(KynChunk::create(kTagXFRM, kTypeInt32))), "XFRM int32 (0) : ");
}

// The precision that a float or double leaf sets stays on the stream for everything after it.
TEST(KynChunkPrintTest, FloatAndDoubleLeavesLeaveTheirPrecisionBehind) {
    std::ostringstream os;
    ASSERT_EQ(os.precision(), 6);
    KynLeafChunk<float>(kTagPOSI, {1.0f / 3}).print(os, 0);
    EXPECT_EQ(os.precision(), 8);
    os << '|' << 2.0 / 3 << '|';
    KynLeafChunk<double>(kTagKNTU, {1.0 / 3}).print(os, 0);
    EXPECT_EQ(os.precision(), 16);
    KynLeafChunk<int>(kTagPCNT, {1}).print(os, 0);
    EXPECT_EQ(os.precision(), 16);
    KynLeafChunk<float>(kTagPOSI, {0.1f}).print(os, 0);
    EXPECT_EQ(os.str(),
              "POSI float (4) : 0.33333334 |0.66666667|KNTU double (8) : 0.3333333333333333 "
              "PCNT int32 (4) : 1 POSI float (4) : 0.1 ");
}

TEST(KynChunkPrintTest, GroupLeavesAnEmptyLineAfterANestedGroup) {
    KynGroupChunk group(kynTag("GRUP"));
    group.children.push_back(new KynLeafChunk<int>(kTagPCNT, {7}));
    auto* inner = new KynGroupChunk(kynTag("INNR"));
    inner->children.push_back(new KynLeafChunk<int>(kTagPIDS, {8}));
    group.children.push_back(inner);
    EXPECT_EQ(printed(group, 1),
              ". GRUP group (0) : \n"
              ". . PCNT int32 (4) : 7 \n"
              ". . INNR group (0) : \n"
              ". . . PIDS int32 (4) : 8 \n"
              "\n");
}

// Also spelled out byte by byte in the worked file's layout.
TEST_F(ChunkFileTest, MagicChunkLayout) {
    KynDKYNChunk dkyn;
    EXPECT_EQ(dkyn.getLength(), 8);
    startWriting();
    ASSERT_TRUE(dkyn.write(out));
    EXPECT_EQ(finishWriting(), cat({head("DKYN", kTypeInt64, 8), le(2, 8)}));
    EXPECT_EQ(printed(dkyn, 1), ". DKYN int64 (8) : version = 2");
}

// Any version reads; only an int64 "DKYN" of length 8 does, and a refusal consumes nothing.
TEST_F(ChunkFileTest, MagicChunkReadsAnyVersionButOnlyItsOwnForm) {
    startReading(cat({head("DKYN", kTypeInt64, 8), le(99, 8), head("DKYN", kTypeInt64, 16),
                      le(99, 8), le(98, 8)}));
    KynDKYNChunk dkyn;
    KynHeader header = nextHeader();
    header.reserved = 3;
    ASSERT_TRUE(dkyn.read(header, in));
    EXPECT_EQ(dkyn.version, 99);
    EXPECT_EQ(dkyn.header.reserved, 3);
    dkyn.reset();
    EXPECT_EQ(dkyn.version, 2);

    header = nextHeader();
    const KynHeader refused[] = {header,
                                 {kTagDKYN, kTypeInt64, 0, 0, 0, 4},
                                 {kTagDKYN, kTypeDouble, 0, 0, 0, 8},
                                 {kTagMETA, kTypeInt64, 0, 0, 0, 8}};
    for (const KynHeader& bad : refused) EXPECT_FALSE(dkyn.read(bad, in)) << bad.length;
    EXPECT_EQ(in.tell(nullptr), 40);
    EXPECT_EQ(dkyn.version, 2);
    EXPECT_EQ(dkyn.header.length, 8);
}

}  // namespace
