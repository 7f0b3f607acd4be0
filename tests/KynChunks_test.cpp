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

// A scratch file written through one KynFile and read back through another.
class ChunkFileTest : public ::testing::Test {
  protected:
    void SetUp() override { path = scratchPath("chunks.kyn"); }

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

    std::string path;
    KynFile out;
    KynFile in;
};

std::string printed(const KynChunk& chunk, int depth = 0) {
    std::ostringstream os;
    chunk.print(os, depth);
    return os.str();
}

// A chunk whose write always fails, to see what a group does about it.
class FailingChunk : public KynChunk {
  public:
    FailingChunk() : KynChunk(kynTag("FAIL"), kTypeInt32) {}
    bool write(KynFile&) const override { return false; }
};

TEST(KynChunkCreateTest, MakesTheClassOfEachTypeCode) {
    const unsigned tag = kynTag("ANYT");
    std::unique_ptr<KynChunk> chunks[7];
    for (unsigned char type = 0; type < 7; ++type) {
        chunks[type].reset(KynChunk::create(tag, type));
        EXPECT_EQ(chunks[type]->header.tag, tag);
        EXPECT_EQ(chunks[type]->header.type, type);
        EXPECT_EQ(chunks[type]->header.length, 0);
    }
    EXPECT_EQ(typeid(*chunks[0]), typeid(KynLeafChunk<char>));
    EXPECT_EQ(typeid(*chunks[1]), typeid(KynGroupChunk));
    EXPECT_EQ(typeid(*chunks[2]), typeid(KynLeafChunk<std::string>));
    EXPECT_EQ(typeid(*chunks[3]), typeid(KynLeafChunk<int>));
    EXPECT_EQ(typeid(*chunks[4]), typeid(KynLeafChunk<float>));
    EXPECT_EQ(typeid(*chunks[5]), typeid(KynLeafChunk<long>));
    EXPECT_EQ(typeid(*chunks[6]), typeid(KynLeafChunk<double>));
    for (unsigned char type : {7, 255}) {
        std::unique_ptr<KynChunk> plain(KynChunk::create(tag, type));
        EXPECT_EQ(typeid(*plain), typeid(KynChunk));
        EXPECT_EQ(plain->header.type, type);
    }
}

TEST_F(ChunkFileTest, UnknownTypeSkipsItsPayloadAndWritesABareHeader) {
    Bytes bytes;
    appendHeader(bytes, "ODDT", 7, 5, 1, 2);
    bytes.insert(bytes.end(), {'h', 'e', 'l', 'l', 'o'});
    appendHeader(bytes, "NEXT", kTypeInt32, 0);
    startReading(bytes);
    KynHeader header = nextHeader();
    std::unique_ptr<KynChunk> chunk(KynChunk::create(header.tag, header.type));
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
    Bytes expected;
    appendHeader(expected, "ODDT", 7, 0);
    EXPECT_EQ(finishWriting(), expected);
}

TEST(KynChunkCopyTest, RawReservedAndUnknownChunksVanish) {
    EXPECT_EQ(KynChunk::copy(nullptr), nullptr);
    KynLeafChunk<std::string> freeStrings(kTagFREE, {"a"});
    EXPECT_EQ(KynChunk::copy(&freeStrings), nullptr);
    KynLeafChunk<char> raw(kTagPOSI, {'x'});
    EXPECT_EQ(KynChunk::copy(&raw), nullptr);
    std::unique_ptr<KynChunk> unknown(KynChunk::create(kTagPOSI, 9));
    EXPECT_EQ(KynChunk::copy(unknown.get()), nullptr);
}

TEST(KynChunkCopyTest, LeafCopyComputesItsLengthAfresh) {
    KynLeafChunk<float> source(kTagPOSI, 1, 3, {1.0f, 2.0f, 3.0f});
    source.getData().push_back(4.0f);
    source.header.reserved = 7;
    ASSERT_EQ(source.header.length, 12);
    std::unique_ptr<KynChunk> copy(KynChunk::copy(&source));
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(typeid(*copy), typeid(KynLeafChunk<float>));
    const auto& leaf = static_cast<const KynLeafChunk<float>&>(*copy);
    EXPECT_EQ(leaf.header.tag, kTagPOSI);
    EXPECT_EQ(leaf.getCompound(), 1);
    EXPECT_EQ(leaf.getDimension(), 3);
    EXPECT_EQ(leaf.header.length, 16);
    EXPECT_EQ(leaf.header.reserved, 0);
    EXPECT_EQ(leaf.data, source.data);
}

TEST(KynChunkCopyTest, GroupCopyDropsWhatCannotBeCopied) {
    KynGroupChunk source(kynTag("GRUP"));
    source.children.push_back(new KynLeafChunk<char>(kTagFREE, {'r'}));
    source.children.push_back(new KynLeafChunk<std::string>(kTagFORM, {"open"}));
    auto* inner = new KynGroupChunk(kynTag("INNR"));
    inner->children.push_back(new KynLeafChunk<char>(kTagPOSI, {'q'}));
    inner->children.push_back(new KynLeafChunk<int>(kTagPCNT, {4}));
    source.children.push_back(inner);
    source.children.push_back(KynChunk::create(kTagMESH, 8));

    std::unique_ptr<KynChunk> copy(KynChunk::copy(&source));
    ASSERT_NE(copy, nullptr);
    const auto& group = dynamic_cast<const KynGroupChunk&>(*copy);
    ASSERT_EQ(group.children.size(), 2u);
    EXPECT_EQ(group.children[0]->header.tag, kTagFORM);
    EXPECT_EQ(static_cast<KynLeafChunk<std::string>*>(group.children[0])->data,
              std::vector<std::string>{"open"});
    EXPECT_NE(group.children[0], source.children[1]);
    const auto& innerCopy = dynamic_cast<const KynGroupChunk&>(*group.children[1]);
    ASSERT_EQ(innerCopy.children.size(), 1u);
    EXPECT_EQ(innerCopy.children[0]->header.tag, kTagPCNT);
}

TEST(KynChunkCopyTest, SubclassMembersAreNotCarried) {
    KynDOBJChunk source;
    source.name = "foo";
    source.datr = new KynDATRChunk();
    source.header.compound = 2;
    source.header.length = 99;
    source.children.push_back(new KynLeafChunk<int>(kTagPCNT, {4}));
    std::unique_ptr<KynChunk> copy(KynChunk::copy(&source));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(typeid(*copy), typeid(KynGroupChunk));
    EXPECT_EQ(copy->header.tag, kTagDOBJ);
    EXPECT_EQ(copy->header.compound, 0);
    EXPECT_EQ(copy->header.length, 0);
    EXPECT_EQ(static_cast<KynGroupChunk&>(*copy).children.size(), 1u);
}

// A leaf refuses a length that is no whole number of elements; the header is already taken
// from the file by then, the data is not.
template <class T>
void expectRefusedLength(unsigned char type, int64_t length, const std::vector<T>& old) {
    std::string path = scratchPath("bad_length.kyn");
    Bytes bytes;
    appendHeader(bytes, "POSI", type, length);
    bytes.resize(bytes.size() + 64, 0);
    writeBytes(path, bytes);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
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
    Bytes bytes;
    appendHeader(bytes, "PCNT", kTypeInt32, 4);
    appendLE(bytes, 9, 4);
    startReading(bytes);
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
    KynLeafChunk<double> empty(kTagMTRX, 4, 16);
    startWriting();
    ASSERT_TRUE(leaf.write(out));
    ASSERT_TRUE(empty.write(out));
    Bytes expected;
    appendHeader(expected, "PCNT", kTypeInt32, 8, 0, 1);
    appendLE(expected, 1, 4);
    appendLE(expected, 2, 4);
    appendHeader(expected, "MTRX", kTypeDouble, 0, 4, 16);
    EXPECT_EQ(finishWriting(), expected);
}

template <class T>
struct Sample;
template <>
struct Sample<char> {
    static std::vector<char> data() { return {'a', '\0', 'z'}; }
};
template <>
struct Sample<std::string> {
    static std::vector<std::string> data() { return {"", "ab", "c"}; }
};
template <>
struct Sample<int> {
    static std::vector<int> data() { return {-1, 2, 1 << 30}; }
};
template <>
struct Sample<float> {
    static std::vector<float> data() { return {0.5f, -2.25f, 1e30f}; }
};
template <>
struct Sample<long> {
    static std::vector<long> data() { return {1L << 40, -3, INT64_MIN}; }
};
template <>
struct Sample<double> {
    static std::vector<double> data() { return {0.1, -1e300, 3.0}; }
};

template <class T>
class LeafRoundTripTest : public ChunkFileTest {};
using LeafTypes = ::testing::Types<char, std::string, int, float, long, double>;
TYPED_TEST_SUITE(LeafRoundTripTest, LeafTypes);

TYPED_TEST(LeafRoundTripTest, KeepsDataCompoundAndDimension) {
    const KynLeafChunk<TypeParam> source(kTagBBOX, 5, 9, Sample<TypeParam>::data());
    this->startWriting();
    ASSERT_TRUE(source.write(this->out));
    Bytes bytes = this->finishWriting();
    ASSERT_EQ(int64_t(bytes.size()), 16 + source.getLength());
    this->startReading(bytes);
    KynHeader header = this->nextHeader();
    EXPECT_EQ(header.type, KynTypeOf<TypeParam>::code);
    std::unique_ptr<KynChunk> chunk(KynChunk::create(header.tag, header.type));
    ASSERT_TRUE(chunk->read(header, this->in));
    const auto& leaf = dynamic_cast<const KynLeafChunk<TypeParam>&>(*chunk);
    EXPECT_EQ(leaf.data, source.data);
    EXPECT_EQ(leaf.header.tag, kTagBBOX);
    EXPECT_EQ(leaf.getCompound(), 5);
    EXPECT_EQ(leaf.getDimension(), 9);
    EXPECT_EQ(leaf.header.length, source.header.length);
}

TEST_F(ChunkFileTest, GroupReadBuildsTheTree) {
    Bytes bytes;
    appendHeader(bytes, "GRUP", kTypeGroup, 95);
    appendHeader(bytes, "PCNT", kTypeInt32, 4);
    appendLE(bytes, 7, 4);
    appendHeader(bytes, "INNR", kTypeGroup, 24);
    appendHeader(bytes, "KNTU", kTypeDouble, 8);
    appendLE(bytes, 0x3FF8000000000000, 8);
    appendHeader(bytes, "EMPT", kTypeGroup, 0);
    appendHeader(bytes, "ODDT", 9, 3);
    bytes.insert(bytes.end(), {'x', 'y', 'z'});
    appendHeader(bytes, "NEXT", kTypeInt32, 0);
    startReading(bytes);
    KynGroupChunk group(kynTag("GRUP"));
    ASSERT_TRUE(group.read(nextHeader(), in));
    EXPECT_EQ(group.header.length, 95);
    EXPECT_TRUE(in.groupStack.empty());
    EXPECT_EQ(in.tell(nullptr), 111);
    ASSERT_EQ(group.children.size(), 4u);
    EXPECT_EQ(static_cast<KynLeafChunk<int>*>(group.children[0])->data, std::vector<int>{7});
    const auto& inner = dynamic_cast<const KynGroupChunk&>(*group.children[1]);
    ASSERT_EQ(inner.children.size(), 1u);
    EXPECT_EQ(static_cast<KynLeafChunk<double>*>(inner.children[0])->data,
              std::vector<double>{1.5});
    EXPECT_TRUE(dynamic_cast<const KynGroupChunk&>(*group.children[2]).children.empty());
    EXPECT_EQ(group.children[3]->header.type, 9);
    EXPECT_EQ(nextHeader().tag, kynTag("NEXT"));
}

TEST_F(ChunkFileTest, EmptyGroupReadsNoChildAndConsumesNothing) {
    Bytes bytes;
    appendHeader(bytes, "GRUP", kTypeGroup, 0);
    appendHeader(bytes, "NEXT", kTypeInt32, 0);
    startReading(bytes);
    KynGroupChunk group(kynTag("GRUP"));
    group.children.push_back(new KynLeafChunk<int>(kTagPCNT));
    ASSERT_TRUE(group.read(nextHeader(), in));
    EXPECT_TRUE(group.children.empty());
    EXPECT_EQ(in.tell(nullptr), 16);
    EXPECT_FALSE(KynGroupChunk(kynTag("OTHR")).read(KynHeader(), in));
}

TEST_F(ChunkFileTest, FailedChildFailsTheGroupAndKeepsEarlierChildren) {
    Bytes bytes;
    appendHeader(bytes, "GRUP", kTypeGroup, 42);
    appendHeader(bytes, "PCNT", kTypeInt32, 4);
    appendLE(bytes, 7, 4);
    appendHeader(bytes, "POSI", kTypeFloat, 6);
    bytes.resize(bytes.size() + 6, 0);
    startReading(bytes);
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
    Bytes expected;
    appendHeader(expected, "GRUP", kTypeGroup, 71);
    appendHeader(expected, "PCNT", kTypeInt32, 4);
    appendLE(expected, 7, 4);
    appendHeader(expected, "INNR", kTypeGroup, 19);
    appendHeader(expected, "NAME", kTypeCstr, 3);
    expected.insert(expected.end(), {'a', 'b', 0});
    appendHeader(expected, "EMPT", kTypeGroup, 0);
    EXPECT_EQ(finishWriting(), expected);
    EXPECT_EQ(group.getLength(), 71);
}

TEST_F(ChunkFileTest, FailedChildWriteStillClosesTheGroup) {
    KynGroupChunk group(kynTag("GRUP"));
    group.children.push_back(new KynLeafChunk<int>(kTagPCNT, {7}));
    group.children.push_back(new FailingChunk());
    group.children.push_back(new KynLeafChunk<int>(kTagPIDS, {8}));
    startWriting();
    EXPECT_FALSE(group.write(out));
    EXPECT_TRUE(out.groupStack.empty());
    Bytes bytes = finishWriting();
    ASSERT_EQ(bytes.size(), 36u);
    EXPECT_EQ(readLE(bytes, 8, 8), 20);
}

TEST(KynChunkPrintTest, HeaderText) {
    auto text = [](unsigned char type, int64_t length, unsigned char compound,
                   unsigned char dimension) {
        KynHeader header;
        header.tag = kTagPOSI;
        header.type = type;
        header.length = length;
        header.compound = compound;
        header.dimension = dimension;
        std::ostringstream os;
        header.print(os);
        return os.str();
    };
    EXPECT_EQ(text(kTypeFloat, 12, 1, 3), "POSI float (12) point 3d");
    EXPECT_EQ(text(kTypeDouble, 128, 4, 16), "POSI double (128) transform 4x4");
    EXPECT_EQ(text(kTypeInt32, -1, 0, 9), "POSI int32 (-1) 3x3");
    EXPECT_EQ(text(kTypeUndef, 0, 6, 0), "POSI undef (0) compound");
    EXPECT_EQ(text(kTypeGroup, 0, 0, 0), "POSI group (0)");
    // Codes past the tables come only from damaged files; they print harmlessly.
    EXPECT_EQ(text(200, 0, 0, 0).rfind("POSI ", 0), 0u);
    EXPECT_NE(text(kTypeInt32, 0, 99, 40).find("int32 (0)"), std::string::npos);
}

TEST(KynChunkPrintTest, LeavesPrintEachElementWithABlank) {
    EXPECT_EQ(printed(KynLeafChunk<std::string>(kTagNAME, {"a", "b"})), "NAME cstr (4) : a b ");
    EXPECT_EQ(printed(KynLeafChunk<float>(kTagPOSI, 1, 3)), "POSI float (0) point 3d : ");
    EXPECT_EQ(printed(KynLeafChunk<int>(kTagPCNT, {3, -1})), "PCNT int32 (8) : 3 -1 ");
    EXPECT_EQ(printed(KynLeafChunk<long>(kTagNSAM, {INT64_MIN})),
              "NSAM int64 (8) : -9223372036854775808 ");
    EXPECT_EQ(printed(KynLeafChunk<char>(kTagFREE, {'x', '\0'})),
              std::string("FREE undef (2) : x \0 ", 21));
    EXPECT_EQ(printed(*std::unique_ptr<KynChunk>(KynChunk::create(kTagXFRM, kTypeInt32))),
              "XFRM int32 (0) : ");
}

TEST(KynChunkPrintTest, IndentationIsADotAndABlankPerLevel) {
    KynLeafChunk<int> leaf(kTagPCNT, {1});
    EXPECT_EQ(printed(leaf, 2), ". . PCNT int32 (4) : 1 ");
    EXPECT_EQ(printed(leaf, -1), "PCNT int32 (4) : 1 ");
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

TEST_F(ChunkFileTest, MagicChunkLayout) {
    KynDKYNChunk dkyn;
    EXPECT_EQ(dkyn.header.tag, kTagDKYN);
    EXPECT_EQ(dkyn.header.type, kTypeInt64);
    EXPECT_EQ(dkyn.getLength(), 8);
    EXPECT_EQ(dkyn.version, 2);
    startWriting();
    ASSERT_TRUE(dkyn.write(out));
    Bytes expected = {0x44, 0x4B, 0x59, 0x4E, 0x05, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00,
                      0x00, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    EXPECT_EQ(finishWriting(), expected);
    EXPECT_EQ(printed(dkyn, 1), ". DKYN int64 (8) : version = 2");
}

TEST_F(ChunkFileTest, MagicChunkReadsAnyVersion) {
    Bytes bytes;
    appendHeader(bytes, "DKYN", kTypeInt64, 8);
    bytes[7] = 3;
    appendLE(bytes, 99, 8);
    startReading(bytes);
    KynDKYNChunk dkyn;
    ASSERT_TRUE(dkyn.read(nextHeader(), in));
    EXPECT_EQ(dkyn.version, 99);
    EXPECT_EQ(dkyn.header.reserved, 3);
    dkyn.reset();
    EXPECT_EQ(dkyn.version, 2);
}

TEST_F(ChunkFileTest, MagicChunkNeedsTypeInt64OfLengthEight) {
    Bytes bytes;
    appendHeader(bytes, "DKYN", kTypeInt64, 16);
    appendLE(bytes, 99, 8);
    appendLE(bytes, 98, 8);
    startReading(bytes);
    KynHeader header = nextHeader();
    KynDKYNChunk dkyn;
    EXPECT_FALSE(dkyn.read(header, in));
    header.length = 4;
    EXPECT_FALSE(dkyn.read(header, in));
    header.length = 8;
    header.type = kTypeDouble;
    EXPECT_FALSE(dkyn.read(header, in));
    header.type = kTypeInt64;
    header.tag = kTagMETA;
    EXPECT_FALSE(dkyn.read(header, in));
    EXPECT_EQ(in.tell(nullptr), 16);
    EXPECT_EQ(dkyn.version, 2);
    EXPECT_EQ(dkyn.header.length, 8);
}

}  // namespace
