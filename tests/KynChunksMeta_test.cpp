// The metadata table, its objects and their attribute tables: fields packed into and out of
// chunks, the fixed length formulas, and the attribute index rules.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
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
using Strings = std::vector<std::string>;

// The tags of the direct children of the group whose header stands at `groupOffset`.
Strings childTags(const Bytes& bytes, std::size_t groupOffset) {
    Strings tags;
    std::size_t end = groupOffset + 16 + std::size_t(readLE(bytes, groupOffset + 8, 8));
    for (std::size_t at = groupOffset + 16; at < end;
         at += 16 + std::size_t(readLE(bytes, at + 8, 8)))
        tags.emplace_back(bytes.begin() + at, bytes.begin() + at + 4);
    return tags;
}

// The offset of the first direct child tagged `tag` of the group at `groupOffset`.
std::size_t childOffset(const Bytes& bytes, std::size_t groupOffset, const std::string& tag) {
    std::size_t end = groupOffset + 16 + std::size_t(readLE(bytes, groupOffset + 8, 8));
    for (std::size_t at = groupOffset + 16; at < end;
         at += 16 + std::size_t(readLE(bytes, at + 8, 8)))
        if (std::string(bytes.begin() + at, bytes.begin() + at + 4) == tag) return at;
    ADD_FAILURE() << "no child " << tag;
    return 0;
}

// The library's error line: the source path, ":", the line number, a blank, the message.
bool isLibraryError(const std::string& line, const std::string& message) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string::npos || line.substr(blank + 1) != message) return false;
    const std::string location = line.substr(0, blank);
    const std::size_t source = location.rfind(".cpp:");
    return source != std::string::npos && source + 5 < location.size() &&
           location.find_first_not_of("0123456789", source + 5) == std::string::npos;
}

std::string printed(const KynChunk& chunk, int depth = 0) {
    std::ostringstream os;
    chunk.print(os, depth);
    return os.str();
}

class MetaFileTest : public ::testing::Test {
  protected:
    void SetUp() override { path = scratchPath("meta.kyn"); }

    Bytes written(const KynChunk& chunk) {
        KynFile file;
        EXPECT_TRUE(file.open(path.c_str(), "w"));
        EXPECT_TRUE(chunk.write(file));
        EXPECT_TRUE(file.close());
        return readBytes(path);
    }
    // Reads the chunk at the start of `bytes` into `chunk`, emptied first.
    bool readBack(const Bytes& bytes, KynChunk& chunk) {
        writeBytes(path, bytes);
        KynFile file;
        EXPECT_TRUE(file.open(path.c_str(), "r"));
        KynHeader header;
        EXPECT_TRUE(file.readHeader(header));
        chunk.reset();
        return chunk.read(header, file);
    }

    std::string path;
};

// An object with an animated attribute, a static float attribute and one static chunk.
KynDOBJChunk* addRichObject(KynMETAChunk& meta) {
    KynDOBJChunk* object = meta.addDOBJ("|group|foo");
    object->datr = new KynDATRChunk();
    object->datr->addAttr(true, "visible", "bool", kTypeInt32, 0, 0);
    int color = object->datr->addAttr(false, "color", "rgb", kTypeFloat, 5, 3);
    auto* value = static_cast<KynLeafChunk<float>*>(object->datr->getStaticData(color));
    value->data = {1, 0.5f, 0};
    value->header.length = value->dataLength();
    object->children.push_back(new KynLeafChunk<float>(kTagPOSI, 1, 3, {1, 2, 3}));
    return object;
}

TEST_F(MetaFileTest, EveryFieldSurvivesARoundTrip) {
    KynMETAChunk meta;
    meta.application = "app";
    meta.sourceFile = "scene.src";
    meta.date = 1400000000;
    meta.numSamples = 3;
    meta.firstTime = 1.5f;
    meta.lastTime = 4.0f;
    meta.rate = 0.0f;
    meta.space = 0;
    addRichObject(meta);
    meta.addDOBJ("bar");
    meta.children.push_back(new KynLeafChunk<std::string>(kynTag("ABCD"), {"x", "y"}));
    Bytes bytes = written(meta);
    EXPECT_EQ(childTags(bytes, 0), (Strings{"WAPP", "SFIL", "DATE", "NSAM", "FTIM", "LTIM", "RATE",
                                            "SPAC", "NOBJ", "DOBJ", "DOBJ", "ABCD"}));

    KynMETAChunk back;
    ASSERT_TRUE(readBack(bytes, back));
    EXPECT_EQ(back.application, "app");
    EXPECT_EQ(back.sourceFile, "scene.src");
    EXPECT_EQ(back.date, 1400000000);
    EXPECT_EQ(back.numSamples, 3);
    EXPECT_EQ(back.firstTime, 1.5f);
    EXPECT_EQ(back.lastTime, 4.0f);
    EXPECT_EQ(back.rate, 0.0f);
    EXPECT_EQ(back.space, 0);
    ASSERT_EQ(back.objects.size(), 2u);
    ASSERT_EQ(back.children.size(), 1u);
    EXPECT_EQ(static_cast<KynLeafChunk<std::string>*>(back.children[0])->data, (Strings{"x", "y"}));

    const KynDOBJChunk& foo = *back.objects[0];
    EXPECT_EQ(foo.name, "|group|foo");
    ASSERT_EQ(foo.children.size(), 1u);
    EXPECT_EQ(static_cast<KynLeafChunk<float>*>(foo.children[0])->data,
              (std::vector<float>{1, 2, 3}));
    ASSERT_NE(foo.datr, nullptr);
    EXPECT_EQ(foo.datr->aatr.names, Strings{"visible"});
    EXPECT_EQ(foo.datr->aatr.types, Strings{"bool"});
    EXPECT_EQ(foo.datr->satr.names, Strings{"color"});
    EXPECT_EQ(foo.datr->satr.types, Strings{"rgb"});
    const auto* color = dynamic_cast<const KynLeafChunk<float>*>(foo.datr->getStaticData(1));
    ASSERT_NE(color, nullptr);
    EXPECT_EQ(color->header.tag, kTagATTR);
    EXPECT_EQ(color->getCompound(), 5);
    EXPECT_EQ(color->getDimension(), 3);
    EXPECT_EQ(color->data, (std::vector<float>{1, 0.5f, 0}));
    EXPECT_EQ(back.objects[1]->name, "bar");
    EXPECT_EQ(back.objects[1]->datr, nullptr);
    EXPECT_TRUE(back.objects[1]->children.empty());
}

TEST_F(MetaFileTest, EmptyMetaReadsAsDefaults) {
    Bytes bytes;
    appendHeader(bytes, "META", kTypeGroup, 0);
    KynMETAChunk meta;
    ASSERT_TRUE(readBack(bytes, meta));
    EXPECT_EQ(meta.numSamples, 0);
    EXPECT_EQ(meta.firstTime, std::numeric_limits<float>::infinity());
    EXPECT_EQ(meta.lastTime, -std::numeric_limits<float>::infinity());
    EXPECT_EQ(meta.rate, 1.0f);
    EXPECT_EQ(meta.space, 1);
    EXPECT_EQ(meta.date, 0);
    EXPECT_TRUE(meta.objects.empty());
}

// The formula always counts "WAPP", "SFIL" and "DATE": the worked file has no source file name,
// so its 17 bytes of "SFIL" header and NUL are counted but not written.
TEST_F(MetaFileTest, LengthFormulaOfTheWorkedFile) {
    writeWorkedFile(path);
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "r"));
    KynHeader header;
    ASSERT_TRUE(file.readHeader(header));
    ASSERT_TRUE(file.skipData(header));
    ASSERT_TRUE(file.readHeader(header));
    KynMETAChunk meta;
    ASSERT_TRUE(meta.read(header, file));
    EXPECT_EQ(meta.header.length, 212);
    EXPECT_EQ(meta.getLength(), 229);
}

TEST_F(MetaFileTest, LengthFormulaMatchesAFullyFilledTable) {
    KynMETAChunk meta;
    meta.application = "a";
    meta.sourceFile = "s";
    meta.date = 5;
    meta.numSamples = 2;
    addRichObject(meta);
    Bytes bytes = written(meta);
    EXPECT_EQ(meta.getLength(), readLE(bytes, 8, 8));
    EXPECT_EQ(meta.objects[0]->getLength(), readLE(bytes, childOffset(bytes, 0, "DOBJ") + 8, 8));
    meta.children.push_back(new KynLeafChunk<int>(kTagPCNT, {1}));
    EXPECT_EQ(meta.getLength(), readLE(bytes, 8, 8));
}

// "FTIM", "LTIM" and "RATE" go out for a positive count, while the formula counts them for any
// count but 0.
TEST_F(MetaFileTest, NegativeSampleCountWritesNoTimesButIsCounted) {
    KynMETAChunk meta;
    meta.application = "a";
    meta.sourceFile = "s";
    meta.date = 5;
    meta.numSamples = -1;
    Bytes bytes = written(meta);
    EXPECT_EQ(childTags(bytes, 0), (Strings{"WAPP", "SFIL", "DATE", "NSAM", "SPAC", "NOBJ"}));
    EXPECT_EQ(readLE(bytes, 8, 8), 132);
    EXPECT_EQ(meta.getLength(), 192);
    meta.numSamples = 0;
    EXPECT_EQ(meta.getLength(), 132);
}

TEST_F(MetaFileTest, FieldsOfTheWrongFormLandInChildrenAndGoBackBehindTheObjects) {
    Bytes bytes;
    appendHeader(bytes, "META", kTypeGroup, 113);
    appendHeader(bytes, "DATE", kTypeInt32, 4);
    appendLE(bytes, 77, 4);
    appendHeader(bytes, "RATE", kTypeDouble, 8);
    appendLE(bytes, 0x4000000000000000, 8);
    appendHeader(bytes, "NSAM", kTypeInt64, 16);
    appendLE(bytes, 4, 8);
    appendLE(bytes, 5, 8);
    appendHeader(bytes, "DOBJ", kTypeGroup, 21);
    appendHeader(bytes, "NAME", kTypeCstr, 5);
    bytes.insert(bytes.end(), {'f', 'o', 'o', 0, 0});
    KynMETAChunk meta;
    ASSERT_TRUE(readBack(bytes, meta));
    EXPECT_EQ(meta.date, 0);
    EXPECT_EQ(meta.rate, 1.0f);
    EXPECT_EQ(meta.numSamples, 0);
    ASSERT_EQ(meta.objects.size(), 1u);
    EXPECT_EQ(meta.objects[0]->name, "foo");
    ASSERT_EQ(meta.children.size(), 3u);
    EXPECT_EQ(static_cast<KynLeafChunk<int>*>(meta.children[0])->data, std::vector<int>{77});
    EXPECT_EQ(static_cast<KynLeafChunk<double>*>(meta.children[1])->data, std::vector<double>{2});
    EXPECT_EQ(static_cast<KynLeafChunk<long>*>(meta.children[2])->data, (std::vector<long>{4, 5}));

    Bytes rewritten = written(meta);
    EXPECT_EQ(childTags(rewritten, 0),
              (Strings{"NSAM", "SPAC", "NOBJ", "DOBJ", "DATE", "RATE", "NSAM"}));
    std::size_t date = childOffset(rewritten, 0, "DATE");
    EXPECT_EQ(rewritten[date + 4], kTypeInt32);
    EXPECT_EQ(readLE(rewritten, date + 16, 4), 77);
}

// The generic int64 leaf refuses 4 bytes, so a "DATE" of that form fails the whole table.
TEST_F(MetaFileTest, ShortInt64DateFailsTheRead) {
    Bytes bytes;
    appendHeader(bytes, "META", kTypeGroup, 20);
    appendHeader(bytes, "DATE", kTypeInt64, 4);
    appendLE(bytes, 77, 4);
    KynMETAChunk meta;
    EXPECT_FALSE(readBack(bytes, meta));
    EXPECT_EQ(meta.date, 0);
}

TEST_F(MetaFileTest, FailedObjectFailsTheTableAndKeepsEarlierObjects) {
    Bytes bytes;
    appendHeader(bytes, "META", kTypeGroup, 58);
    appendHeader(bytes, "DOBJ", kTypeGroup, 0);
    appendHeader(bytes, "DOBJ", kTypeGroup, 26);
    appendHeader(bytes, "POSI", kTypeFloat, 10);
    bytes.resize(bytes.size() + 10, 0);
    KynMETAChunk meta;
    EXPECT_FALSE(readBack(bytes, meta));
    EXPECT_EQ(meta.objects.size(), 1u);
}

TEST_F(MetaFileTest, ObjectCountIsTheNumberOfObjects) {
    Bytes bytes;
    appendHeader(bytes, "META", kTypeGroup, 56);
    appendHeader(bytes, "NOBJ", kTypeInt64, 8);
    appendLE(bytes, 7, 8);
    appendHeader(bytes, "DOBJ", kTypeGroup, 0);
    appendHeader(bytes, "DOBJ", kTypeGroup, 0);
    KynMETAChunk meta;
    ASSERT_TRUE(readBack(bytes, meta));
    EXPECT_EQ(meta.objects.size(), 2u);
    EXPECT_TRUE(meta.children.empty());
    Bytes rewritten = written(meta);
    EXPECT_EQ(readLE(rewritten, childOffset(rewritten, 0, "NOBJ") + 16, 8), 2);
}

TEST_F(MetaFileTest, NamelessObjectWritesNoName) {
    KynDOBJChunk object;
    Bytes bytes = written(object);
    Bytes expected;
    appendHeader(expected, "DOBJ", kTypeGroup, 0);
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(object.getLength(), 17);
    object.name = "stale";
    ASSERT_TRUE(readBack(bytes, object));
    EXPECT_EQ(object.name, "");
}

TEST_F(MetaFileTest, ObjectKeepsUnknownChildrenBehindNameAndAttributes) {
    Bytes bytes;
    appendHeader(bytes, "DOBJ", kTypeGroup, 72);
    appendHeader(bytes, "MESH", 12, 0);
    appendHeader(bytes, "NAME", kTypeInt32, 4);
    appendLE(bytes, 3, 4);
    appendHeader(bytes, "DATR", kTypeGroup, 0);
    appendHeader(bytes, "NAME", kTypeCstr, 4);
    bytes.insert(bytes.end(), {'f', 'o', 'o', 0});
    KynDOBJChunk object;
    ASSERT_TRUE(readBack(bytes, object));
    EXPECT_EQ(object.name, "foo");
    EXPECT_NE(object.datr, nullptr);
    ASSERT_EQ(object.children.size(), 2u);
    EXPECT_EQ(object.children[0]->header.tag, kTagMESH);
    EXPECT_EQ(object.children[1]->header.tag, kTagNAME);
    EXPECT_EQ(childTags(written(object), 0), (Strings{"NAME", "DATR", "MESH", "NAME"}));
}

TEST_F(MetaFileTest, SecondAttributeTableReplacesTheFirst) {
    Bytes bytes;
    appendHeader(bytes, "DOBJ", kTypeGroup, 2 * (16 + 52));
    for (std::string name : {"one", "two"}) {
        appendHeader(bytes, "DATR", kTypeGroup, 52);
        appendHeader(bytes, "AATR", kTypeGroup, 36);
        appendHeader(bytes, "NAME", kTypeCstr, 4);
        bytes.insert(bytes.end(), name.begin(), name.end());
        bytes.push_back(0);
        appendHeader(bytes, "TYPE", kTypeCstr, 0);
    }
    KynDOBJChunk object;
    ASSERT_TRUE(readBack(bytes, object));
    ASSERT_NE(object.datr, nullptr);
    EXPECT_EQ(object.datr->aatr.names, Strings{"two"});
    EXPECT_TRUE(object.datr->aatr.types.empty());
}

TEST(KynMETAChunkTest, FreshTablePrintsItsDefaults) {
    KynMETAChunk meta;
    std::ostringstream os;
    meta.printChildren(os, 0);
    EXPECT_EQ(os.str(),
              "numObjects = 0\n"
              "numSamples = 0\n"
              "firstTime = frame inf\n"
              "lastTime = -inf\n"
              "rate = 1 samples per frame\n"
              "space = object\n");
}

TEST(KynMETAChunkTest, PrintShowsFieldsThenObjects) {
    KynMETAChunk meta;
    meta.application = "app";
    meta.sourceFile = "src";
    meta.numSamples = 2;
    meta.firstTime = 1;
    meta.lastTime = 2.5f;
    meta.rate = 0;
    meta.space = 0;
    meta.addDOBJ("foo");
    EXPECT_EQ(printed(meta),
              "META group (0) : \n"
              ". application = app\n"
              ". sourceFile = src\n"
              ". numObjects = 1\n"
              ". numSamples = 2\n"
              ". firstTime = frame 1\n"
              ". lastTime = 2.5\n"
              ". rate = nonuniform\n"
              ". space = world\n"
              ". DOBJ group (0) : \n"
              ". . name = foo\n");
    meta.space = 7;
    EXPECT_NE(printed(meta).find(". space = 7\n"), std::string::npos);
}

TEST(KynMETAChunkTest, DateStampLeavesAnEmptyLine) {
    KynMETAChunk meta;
    meta.date = 1400000000;
    std::ostringstream os;
    meta.printChildren(os, 1);
    std::istringstream lines(os.str());
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line.rfind(". date stamp = ", 0), 0u);
    EXPECT_NE(line.find("2014"), std::string::npos);
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, "");
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(line, ". numObjects = 0");
}

// ---- Attribute tables

// Animated "a", "c" and static "b", "d": indices a 0, c 1, b 2, d 3.
void fillTable(KynDATRChunk& table) {
    table.addAttr(false, "b", "int", kTypeInt32, 0, 0);
    table.addAttr(true, "a", "float", kTypeFloat, 0, 0);
    table.addAttr(true, "c", "float", kTypeFloat, 0, 0);
    table.addAttr(false, "d", "double", kTypeDouble, 0, 0);
}

TEST(KynDATRChunkTest, AnimatedAttributesComeFirst) {
    KynDATRChunk table;
    EXPECT_EQ(table.addAttr(false, "b", "int", kTypeInt32, 0, 0), 0);
    EXPECT_EQ(table.addAttr(true, "a", "float", kTypeFloat, 0, 0), 0);
    EXPECT_EQ(table.findAttr("b"), 1);
    EXPECT_EQ(table.addAttr(true, "c", "float", kTypeFloat, 0, 0), 1);
    EXPECT_EQ(table.findAttr("b"), 2);
    EXPECT_EQ(table.findAttr("a"), 0);
    EXPECT_EQ(table.findAttr("c"), 1);
    EXPECT_EQ(table.findAttr("B"), -1);
    EXPECT_EQ(table.addAttr(false, "d", "double", kTypeDouble, 0, 0), 3);
    EXPECT_EQ(table.getAttrName(3), "d");
    EXPECT_EQ(table.getAttrType(2), "int");
    EXPECT_TRUE(table.isAnimated(1));
    EXPECT_FALSE(table.isAnimated(2));
    EXPECT_EQ(table.getAnimatedDataIndex(1), 1);
    EXPECT_EQ(table.getAnimatedDataIndex(2), -1);
    EXPECT_EQ(table.getStaticData(1), nullptr);
    EXPECT_EQ(table.getStaticData(3), table.atrs.children[1]);
    EXPECT_TRUE(table.setAttrName(3, "e"));
    EXPECT_TRUE(table.setAttrType(0, "vec"));
    EXPECT_EQ(table.satr.names, (Strings{"b", "e"}));
    EXPECT_EQ(table.aatr.types, (Strings{"vec", "float"}));
}

TEST(KynDATRChunkTest, NameBothAnimatedAndStaticResolvesToTheAnimatedOne) {
    KynDATRChunk table;
    table.addAttr(false, "x", "int", kTypeInt32, 0, 0);
    table.addAttr(true, "y", "int", kTypeInt32, 0, 0);
    table.addAttr(true, "x", "int", kTypeInt32, 0, 0);
    EXPECT_EQ(table.findAttr("x"), 1);
}

// A bad index prints the library's error line on the standard output and throws false.
TEST(KynDATRChunkTest, BadIndexPrintsAndThrowsFalse) {
    KynDATRChunk table;
    fillTable(table);
    for (int index : {-1, 4, std::numeric_limits<int>::min()}) {
        Capture out(std::cout);
        try {
            table.getAttrName(index);
            ADD_FAILURE() << "no throw for " << index;
        } catch (bool value) {
            EXPECT_FALSE(value);
        }
        std::vector<std::string> lines = out.lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_TRUE(isLibraryError(lines[0], "DATR attribute index out of bounds")) << lines[0];
    }
    Capture out(std::cout);
    EXPECT_THROW(table.getAttrType(4), bool);
    EXPECT_THROW(table.setAttrName(4, "n"), bool);
    EXPECT_THROW(table.setAttrType(-1, "t"), bool);
    EXPECT_THROW(table.isAnimated(4), bool);
    EXPECT_THROW(table.getStaticData(4), bool);
    EXPECT_THROW(table.getAnimatedDataIndex(-1), bool);
    EXPECT_THROW(table.removeStaticAttrs(4, 1), bool);
    EXPECT_THROW(table.removeAnimatedAttrs(-1, 2), bool);
    EXPECT_EQ(out.lines().size(), 8u);
}

TEST(KynDATRChunkTest, AddAttrRules) {
    KynDATRChunk table;
    EXPECT_EQ(table.addAttr(false, "g", "", kTypeGroup, 0, 0), -1);
    EXPECT_EQ(table.addAttr(true, "g", "", kTypeGroup, 0, 0), -1);
    EXPECT_EQ(table.addAttr(false, "u", "", kTypeUndef, 0, 0), -1);
    EXPECT_EQ(table.addAttr(false, "x", "", 7, 0, 0), -1);
    EXPECT_EQ(table.getNumAttrs(), 0);
    EXPECT_EQ(table.addAttr(true, "u", "", kTypeUndef, 0, 0), 0);
    EXPECT_EQ(table.addAttr(true, "w", "", 200, 0, 0), 1);
    EXPECT_TRUE(table.atrs.children.empty());
    EXPECT_EQ(table.addAttr(false, "m", "matrix", kTypeDouble, 4, 16), 2);
    ASSERT_EQ(table.atrs.children.size(), 1u);
    const KynChunk& value = *table.atrs.children[0];
    EXPECT_EQ(typeid(value), typeid(KynLeafChunk<double>));
    EXPECT_EQ(value.header.tag, kTagATTR);
    EXPECT_EQ(value.header.compound, 4);
    EXPECT_EQ(value.header.dimension, 16);
    EXPECT_EQ(value.header.length, 0);
    EXPECT_TRUE(static_cast<const KynLeafChunk<double>&>(value).data.empty());
}

TEST(KynDATRChunkTest, RemovingEveryStaticAttributeEmptiesTheValues) {
    KynDATRChunk table;
    fillTable(table);
    EXPECT_EQ(table.removeStaticAttrs(2, 2), 1);
    EXPECT_TRUE(table.satr.names.empty());
    EXPECT_TRUE(table.satr.types.empty());
    EXPECT_TRUE(table.atrs.children.empty());
    EXPECT_EQ(table.aatr.names, (Strings{"a", "c"}));
}

TEST(KynDATRChunkTest, RemovingTheLastOfTwoStaticAttributesDeletesOneValue) {
    KynDATRChunk table;
    fillTable(table);
    KynChunk* first = table.atrs.children[0];
    EXPECT_EQ(table.removeStaticAttrs(3, 1), 1);
    EXPECT_EQ(table.satr.names, Strings{"b"});
    EXPECT_EQ(table.satr.types, Strings{"int"});
    ASSERT_EQ(table.atrs.children.size(), 1u);
    EXPECT_EQ(table.atrs.children[0], first);
}

TEST(KynDATRChunkTest, RemovingStaticAttributesIsRefusedOutsideTheStaticRange) {
    KynDATRChunk table;
    fillTable(table);
    EXPECT_EQ(table.removeStaticAttrs(2, 0), 1);
    EXPECT_EQ(table.removeStaticAttrs(1, 1), 0);
    EXPECT_EQ(table.removeStaticAttrs(3, 2), 0);
    EXPECT_EQ(table.satr.names, (Strings{"b", "d"}));
    EXPECT_EQ(table.atrs.children.size(), 2u);
}

// The animated twin erases one entry fewer than asked, and is kept that way.
TEST(KynDATRChunkTest, RemovingAnimatedAttributesErasesOneFewerThanCount) {
    KynDATRChunk table;
    for (const char* name : {"a0", "a1", "a2"}) table.addAttr(true, name, name, kTypeFloat, 0, 0);
    table.addAttr(false, "s", "int", kTypeInt32, 0, 0);
    EXPECT_EQ(table.removeAnimatedAttrs(0, 1), 0);
    EXPECT_EQ(table.aatr.names.size(), 3u);
    EXPECT_EQ(table.removeAnimatedAttrs(0, 2), 0);
    EXPECT_EQ(table.aatr.names, (Strings{"a1", "a2"}));
    EXPECT_EQ(table.aatr.types, (Strings{"a1", "a2"}));
    EXPECT_EQ(table.removeAnimatedAttrs(1, 3), 1);
    EXPECT_EQ(table.aatr.names, Strings{"a1"});
    EXPECT_EQ(table.removeAnimatedAttrs(1, 2), -1);
    EXPECT_EQ(table.satr.names, Strings{"s"});
}

TEST(KynDATRChunkTest, NameListRemoveTakesAnEndPosition) {
    KynSATRChunk names;
    names.names = {"a", "b", "c", "d"};
    names.types = {"1", "2", "3", "4"};
    names.remove(1, 3);
    EXPECT_EQ(names.names, (Strings{"a", "d"}));
    EXPECT_EQ(names.types, (Strings{"1", "4"}));
}

TEST(KynDATRChunkTest, LengthFormulas) {
    KynSATRChunk names;
    EXPECT_EQ(names.getLength(), 0);
    names.names = {"ab", "c"};
    names.types = {"int", "f"};
    EXPECT_EQ(names.getLength(), 3 + 2 + 4 + 2 + 32);
    KynDATRChunk table;
    EXPECT_EQ(table.getLength(), 0);
    table.aatr.names = {"v"};
    table.aatr.types = {"t"};
    EXPECT_EQ(table.getLength(), 4 + 32 + 16);
    table.atrs.children.push_back(new KynLeafChunk<int>(kTagATTR, {1}));
    EXPECT_EQ(table.getLength(), 52);
    table.satr.names = {"s"};
    table.satr.types = {""};
    EXPECT_EQ(table.getLength(), 35 + 16 + 16 + (4 + 16) + 52);
}

TEST_F(MetaFileTest, WrittenTableMatchesItsLengthAndReadsBack) {
    KynDATRChunk table;
    fillTable(table);
    static_cast<KynLeafChunk<int>*>(table.getStaticData(2))->data = {5};
    table.atrs.children[0]->header.length = 4;
    table.children.push_back(new KynLeafChunk<int>(kynTag("XTRA"), {9}));
    Bytes bytes = written(table);
    EXPECT_EQ(childTags(bytes, 0), (Strings{"SATR", "ATRS", "AATR", "XTRA"}));
    EXPECT_EQ(table.getLength() + 20, readLE(bytes, 8, 8));

    KynDATRChunk back;
    ASSERT_TRUE(readBack(bytes, back));
    EXPECT_EQ(back.satr.names, (Strings{"b", "d"}));
    EXPECT_EQ(back.satr.types, (Strings{"int", "double"}));
    EXPECT_EQ(back.aatr.names, (Strings{"a", "c"}));
    ASSERT_EQ(back.atrs.children.size(), 2u);
    EXPECT_EQ(static_cast<KynLeafChunk<int>*>(back.atrs.children[0])->data, std::vector<int>{5});
    ASSERT_EQ(back.children.size(), 1u);
    EXPECT_EQ(back.children[0]->header.tag, kynTag("XTRA"));
}

TEST_F(MetaFileTest, TableWithNamesButNoValuesSkipsBothAndWarns) {
    KynDATRChunk table;
    table.satr.names = {"x"};
    table.satr.types = {"int"};
    table.aatr.names = {"v"};
    Capture out(std::cout);
    Bytes bytes = written(table);
    EXPECT_EQ(out.lines(), Strings{"WARNING: SATR and ATRS write skipped, counts do not match"});
    EXPECT_EQ(childTags(bytes, 0), Strings{"AATR"});
}

TEST_F(MetaFileTest, SurplusTypesAreCutOnWrite) {
    KynSATRChunk names;
    names.names = {"a"};
    names.types = {"t1", "t2"};
    Bytes bytes = written(names);
    EXPECT_EQ(names.types, Strings{"t1"});
    EXPECT_EQ(childTags(bytes, 0), (Strings{"NAME", "TYPE"}));
    EXPECT_EQ(readLE(bytes, childOffset(bytes, 0, "TYPE") + 8, 8), 3);
    EXPECT_EQ(written(names), bytes);
    EXPECT_EQ(names.types, Strings{"t1"});
}

TEST_F(MetaFileTest, MissingTypesArePaddedOnWrite) {
    KynAATRChunk names;
    names.names = {"a", "b", "c"};
    names.types = {"t"};
    Bytes bytes = written(names);
    EXPECT_EQ(names.types, (Strings{"t", "", ""}));
    KynAATRChunk back;
    ASSERT_TRUE(readBack(bytes, back));
    EXPECT_EQ(back.types, (Strings{"t", "", ""}));
}

TEST_F(MetaFileTest, NamesWithoutTypesWriteNameOnly) {
    KynSATRChunk names;
    names.names = {"a", "b"};
    Bytes bytes = written(names);
    EXPECT_EQ(childTags(bytes, 0), Strings{"NAME"});
    KynSATRChunk back;
    back.types = {"stale"};
    ASSERT_TRUE(readBack(bytes, back));
    EXPECT_EQ(back.names, (Strings{"a", "b"}));
    EXPECT_TRUE(back.types.empty());
}

TEST(KynDATRChunkTest, PrintOrderIsStaticAnimatedValues) {
    KynDATRChunk table;
    table.addAttr(false, "s", "int", kTypeInt32, 0, 0);
    table.addAttr(true, "a", "float", kTypeFloat, 0, 0);
    static_cast<KynLeafChunk<int>*>(table.getStaticData(1))->data = {5};
    EXPECT_EQ(printed(table),
              "DATR group (0) : \n"
              ". SATR group (0) : \n"
              ". . names = s \n"
              ". . types = int \n"
              ". AATR group (0) : \n"
              ". . names = a \n"
              ". . types = float \n"
              ". ATRS group (0) : \n"
              ". . ATTR int32 (0) : 5 \n");
}

class MergeTest : public ::testing::Test {
  protected:
    void SetUp() override {
        int n = own.addAttr(false, "n", "int", kTypeInt32, 0, 0);
        static_cast<KynLeafChunk<int>*>(own.getStaticData(n))->data = {1};
        own.addAttr(true, "anim", "float", kTypeFloat, 0, 0);
    }
    KynDATRChunk own;
    KynDATRChunk other;
};

TEST_F(MergeTest, SameNameIsANoOp) {
    int n = other.addAttr(false, "n", "int", kTypeInt32, 0, 0);
    static_cast<KynLeafChunk<int>*>(other.getStaticData(n))->data = {2};
    other.addAttr(false, "anim", "int", kTypeInt32, 0, 0);
    own.mergeStaticAttributes(&other);
    EXPECT_EQ(own.satr.names, Strings{"n"});
    ASSERT_EQ(own.atrs.children.size(), 1u);
    EXPECT_EQ(static_cast<KynLeafChunk<int>*>(own.atrs.children[0])->data, std::vector<int>{1});
}

TEST_F(MergeTest, CopiesMissingStaticValuesAsAttr) {
    other.addAttr(true, "other anim", "float", kTypeFloat, 0, 0);
    other.satr.names.push_back("x");
    other.satr.types.push_back("vec");
    other.atrs.children.push_back(new KynLeafChunk<double>(kynTag("ODDT"), 2, 3, {1, 2, 3}));
    own.mergeStaticAttributes(&other);
    EXPECT_EQ(own.satr.names, (Strings{"n", "x"}));
    EXPECT_EQ(own.satr.types, (Strings{"int", "vec"}));
    EXPECT_EQ(own.aatr.names, Strings{"anim"});
    ASSERT_EQ(own.atrs.children.size(), 2u);
    const KynChunk* copy = own.atrs.children[1];
    EXPECT_NE(copy, other.atrs.children[0]);
    ASSERT_EQ(typeid(*copy), typeid(KynLeafChunk<double>));
    EXPECT_EQ(copy->header.tag, kTagATTR);
    EXPECT_EQ(copy->header.compound, 2);
    EXPECT_EQ(copy->header.dimension, 3);
    EXPECT_EQ(copy->header.length, 24);
    EXPECT_EQ(static_cast<const KynLeafChunk<double>*>(copy)->data, (std::vector<double>{1, 2, 3}));
}

// Names added by the merge are not looked at, so a name twice in the source is added twice.
TEST_F(MergeTest, DuplicateSourceNamesAreBothAdded) {
    other.addAttr(false, "d", "int", kTypeInt32, 0, 0);
    other.addAttr(false, "d", "int", kTypeInt32, 0, 0);
    own.mergeStaticAttributes(&other);
    EXPECT_EQ(own.satr.names, (Strings{"n", "d", "d"}));
    EXPECT_EQ(own.atrs.children.size(), 3u);
}

TEST_F(MergeTest, GroupValueIsReportedAndSkipped) {
    other.satr.names.push_back("g");
    other.satr.types.push_back("group");
    other.atrs.children.push_back(new KynGroupChunk(kTagATTR));
    other.addAttr(false, "k", "int", kTypeInt32, 0, 0);
    Capture err(std::cerr);
    own.mergeStaticAttributes(&other);
    EXPECT_EQ(err.str(), "mergeStaticAttributes NOT Merged, unknown type fof: g\n");
    EXPECT_EQ(own.satr.names, (Strings{"n", "k"}));
    EXPECT_EQ(own.atrs.children.size(), 2u);
}

}  // namespace
