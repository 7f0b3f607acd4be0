// The metadata table, its objects and their attribute tables: fields packed into and out of
// chunks, the fixed length formulas, and the attribute index rules.
#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>
#include <tuple>
#include <typeinfo>
#include <vector>

#include "KynChunks.h"
#include "TestFiles.h"

using namespace Kyn;
using namespace kyntest_support;

namespace {

using Bytes = std::vector<unsigned char>;
using Strings = std::vector<std::string>;

// The offsets of the direct children of the group whose header stands at `group`.
std::vector<std::size_t> children(const Bytes& bytes, std::size_t group) {
    std::vector<std::size_t> offsets;
    const std::size_t end = group + 16 + std::size_t(readLE(bytes, group + 8, 8));
    for (std::size_t at = group + 16; at < end; at += 16 + std::size_t(readLE(bytes, at + 8, 8)))
        offsets.push_back(at);
    return offsets;
}
std::string tagAt(const Bytes& bytes, std::size_t at) {
    return std::string(bytes.begin() + long(at), bytes.begin() + long(at) + 4);
}
Strings childTags(const Bytes& bytes, std::size_t group = 0) {
    Strings tags;
    for (std::size_t at : children(bytes, group)) tags.push_back(tagAt(bytes, at));
    return tags;
}
// The offset of the first direct child tagged `tag` of the top-level group.
std::size_t childOffset(const Bytes& bytes, const std::string& tag) {
    for (std::size_t at : children(bytes, 0))
        if (tagAt(bytes, at) == tag) return at;
    ADD_FAILURE() << "no child " << tag;
    return 0;
}

std::string printed(const KynChunk& chunk, int depth = 0) {
    std::ostringstream os;
    chunk.print(os, depth);
    return os.str();
}
std::string printedChildren(const KynGroupChunk& chunk, int depth = 0) {
    std::ostringstream os;
    chunk.printChildren(os, depth);
    return os.str();
}

template <class T>
std::vector<T>& dataOf(KynChunk* chunk) {
    return dynamic_cast<KynLeafChunk<T>&>(*chunk).data;
}

class MetaFileTest : public ::testing::Test {
  protected:
    Bytes written(const KynChunk& chunk) {
        KynFile file;
        EXPECT_TRUE(file.open(path.c_str(), "w") && chunk.write(file) && file.close());
        return readBytes(path);
    }
    // Reads the chunk at the start of `bytes` into `chunk`, emptied first.
    bool readBack(const Bytes& bytes, KynChunk& chunk) {
        writeBytes(path, bytes);
        KynFile file;
        KynHeader header;
        EXPECT_TRUE(file.open(path.c_str(), "r") && file.readHeader(header));
        chunk.reset();
        return chunk.read(header, file);
    }
    std::string path = scratchPath("meta.kyn");
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
    EXPECT_EQ(childTags(bytes), (Strings{"WAPP", "SFIL", "DATE", "NSAM", "FTIM", "LTIM", "RATE",
                                         "SPAC", "NOBJ", "DOBJ", "DOBJ", "ABCD"}));

    KynMETAChunk back;
    ASSERT_TRUE(readBack(bytes, back));
    EXPECT_EQ(written(back), bytes);
    auto fields = [](const KynMETAChunk& m) {
        return std::tie(m.application, m.sourceFile, m.date, m.numSamples, m.firstTime, m.lastTime,
                        m.rate, m.space);
    };
    EXPECT_EQ(fields(back), fields(meta));
    ASSERT_EQ(back.objects.size(), 2u);
    EXPECT_EQ(back.objects[0]->name, "|group|foo");
    ASSERT_NE(back.objects[0]->datr, nullptr);
    EXPECT_EQ(back.objects[0]->datr->getAttrType(0), "bool");
    EXPECT_EQ(dataOf<float>(back.objects[0]->datr->getStaticData(1)),
              (std::vector<float>{1, 0.5f, 0}));
}

TEST_F(MetaFileTest, EmptyMetaReadsAsAFreshTable) {
    KynMETAChunk meta;
    meta.date = 5;
    meta.addDOBJ("stale");
    ASSERT_TRUE(readBack(head("META", kTypeGroup, 0), meta));
    EXPECT_EQ(meta.firstTime, std::numeric_limits<float>::infinity());
    EXPECT_EQ(printedChildren(meta),
              "numObjects = 0\n"
              "numSamples = 0\n"
              "firstTime = frame inf\n"
              "lastTime = -inf\n"
              "rate = 1 samples per frame\n"
              "space = object\n");
}

// The formula always counts "WAPP", "SFIL" and "DATE": the worked file has no source file name,
// so its 17 bytes of "SFIL" header and NUL are counted but not written.
TEST_F(MetaFileTest, LengthFormulaOfTheWorkedFile) {
    writeWorkedFile(path);
    KynFile file;
    KynHeader header;
    ASSERT_TRUE(file.open(path.c_str(), "r") && file.readHeader(header) && file.skipData(header) &&
                file.readHeader(header));
    KynMETAChunk meta;
    ASSERT_TRUE(meta.read(header, file));
    EXPECT_EQ(meta.header.length, 212);
    EXPECT_EQ(meta.getLength(), 229);
}

// With every field filled the formula is exact for the table and its objects, and it leaves out
// the table's own unknown children. "FTIM", "LTIM" and "RATE" go out for a positive sample count,
// while the formula counts them for any count but 0.
TEST_F(MetaFileTest, LengthFormulaMatchesAFullyFilledTable) {
    KynMETAChunk meta;
    meta.application = "a";
    meta.sourceFile = "s";
    meta.date = 5;
    meta.numSamples = 2;
    addRichObject(meta);
    Bytes bytes = written(meta);
    EXPECT_EQ(meta.getLength(), readLE(bytes, 8, 8));
    EXPECT_EQ(meta.objects[0]->getLength(), readLE(bytes, childOffset(bytes, "DOBJ") + 8, 8));
    meta.children.push_back(new KynLeafChunk<int>(kTagPCNT, {1}));
    EXPECT_EQ(meta.getLength(), readLE(bytes, 8, 8));

    meta.removeAllChildren();
    meta.numSamples = -1;
    bytes = written(meta);
    EXPECT_EQ(childTags(bytes), (Strings{"WAPP", "SFIL", "DATE", "NSAM", "SPAC", "NOBJ"}));
    EXPECT_EQ(readLE(bytes, 8, 8), 132);
    EXPECT_EQ(meta.getLength(), 192);
    meta.numSamples = 0;
    EXPECT_EQ(meta.getLength(), 132);
}

TEST_F(MetaFileTest, FieldsOfTheWrongFormLandInChildrenAndGoBackBehindTheObjects) {
    KynMETAChunk meta;
    ASSERT_TRUE(readBack(
        cat({head("META", kTypeGroup, 113), head("DATE", kTypeInt32, 4), le(77, 4),
             head("RATE", kTypeDouble, 8), le(0x4000000000000000, 8), head("NSAM", kTypeInt64, 16),
             le(4, 8), le(5, 8), head("DOBJ", kTypeGroup, 21), head("NAME", kTypeCstr, 5),
             raw(std::string("foo\0\0", 5))}),
        meta));
    EXPECT_EQ(meta.date, 0);
    EXPECT_EQ(meta.rate, 1.0f);
    EXPECT_EQ(meta.numSamples, 0);
    ASSERT_EQ(meta.objects.size(), 1u);
    EXPECT_EQ(meta.objects[0]->name, "foo");
    ASSERT_EQ(meta.children.size(), 3u);
    EXPECT_EQ(dataOf<int>(meta.children[0]), std::vector<int>{77});
    EXPECT_EQ(dataOf<double>(meta.children[1]), std::vector<double>{2});
    EXPECT_EQ(dataOf<long>(meta.children[2]), (std::vector<long>{4, 5}));

    Bytes rewritten = written(meta);
    EXPECT_EQ(childTags(rewritten),
              (Strings{"NSAM", "SPAC", "NOBJ", "DOBJ", "DATE", "RATE", "NSAM"}));
    std::size_t date = childOffset(rewritten, "DATE");
    EXPECT_EQ(rewritten[date + 4], kTypeInt32);
    EXPECT_EQ(readLE(rewritten, date + 16, 4), 77);
}

// The generic int64 leaf refuses 4 bytes, so a "DATE" of that form fails the whole table; a
// failed object fails it too and keeps the objects before it.
TEST_F(MetaFileTest, DamagedFieldOrObjectFailsTheRead) {
    KynMETAChunk meta;
    EXPECT_FALSE(readBack(
        cat({head("META", kTypeGroup, 20), head("DATE", kTypeInt64, 4), le(77, 4)}), meta));
    EXPECT_EQ(meta.date, 0);
    EXPECT_FALSE(
        readBack(cat({head("META", kTypeGroup, 58), head("DOBJ", kTypeGroup, 0),
                      head("DOBJ", kTypeGroup, 26), head("POSI", kTypeFloat, 10), Bytes(10, 0)}),
                 meta));
    EXPECT_EQ(meta.objects.size(), 1u);
}

TEST_F(MetaFileTest, ObjectCountIsTheNumberOfObjects) {
    KynMETAChunk meta;
    ASSERT_TRUE(readBack(cat({head("META", kTypeGroup, 56), head("NOBJ", kTypeInt64, 8), le(7, 8),
                              head("DOBJ", kTypeGroup, 0), head("DOBJ", kTypeGroup, 0)}),
                         meta));
    EXPECT_EQ(meta.objects.size(), 2u);
    EXPECT_TRUE(meta.children.empty());
    Bytes rewritten = written(meta);
    EXPECT_EQ(readLE(rewritten, childOffset(rewritten, "NOBJ") + 16, 8), 2);
}

// Yet the length formula counts a name's header and NUL.
TEST_F(MetaFileTest, NamelessObjectWritesNoName) {
    KynDOBJChunk object;
    Bytes bytes = written(object);
    EXPECT_EQ(bytes, head("DOBJ", kTypeGroup, 0));
    EXPECT_EQ(object.getLength(), 17);
    object.name = "stale";
    ASSERT_TRUE(readBack(bytes, object));
    EXPECT_EQ(object.name, "");
}

TEST_F(MetaFileTest, ObjectKeepsUnknownChildrenBehindNameAndAttributes) {
    KynDOBJChunk object;
    ASSERT_TRUE(readBack(cat({head("DOBJ", kTypeGroup, 72), head("MESH", 12, 0),
                              head("NAME", kTypeInt32, 4), le(3, 4), head("DATR", kTypeGroup, 0),
                              head("NAME", kTypeCstr, 4), raw(std::string("foo\0", 4))}),
                         object));
    EXPECT_EQ(object.name, "foo");
    EXPECT_NE(object.datr, nullptr);
    EXPECT_EQ(childTags(written(object)), (Strings{"NAME", "DATR", "MESH", "NAME"}));
}

TEST_F(MetaFileTest, SecondAttributeTableReplacesTheFirst) {
    Bytes bytes = head("DOBJ", kTypeGroup, 2 * (16 + 52));
    for (std::string name : {"one", "two"}) {
        Bytes table =
            cat({head("DATR", kTypeGroup, 52), head("AATR", kTypeGroup, 36),
                 head("NAME", kTypeCstr, 4), raw(name), Bytes(1, 0), head("TYPE", kTypeCstr, 0)});
        bytes.insert(bytes.end(), table.begin(), table.end());
    }
    KynDOBJChunk object;
    ASSERT_TRUE(readBack(bytes, object));
    ASSERT_NE(object.datr, nullptr);
    EXPECT_EQ(object.datr->aatr.names, Strings{"two"});
    EXPECT_TRUE(object.datr->aatr.types.empty());
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

// The date prints in local time, followed by an empty line.
TEST(KynMETAChunkTest, DateStampLeavesAnEmptyLine) {
    KynMETAChunk meta;
    meta.date = 1400000000;
    std::string text = printedChildren(meta, 1);
    EXPECT_EQ(text.rfind(". date stamp = ", 0), 0u);
    const std::size_t end = text.find('\n');
    EXPECT_NE(text.substr(0, end).find("2014"), std::string::npos);
    EXPECT_EQ(text.substr(end, 19), "\n\n. numObjects = 0\n");
}

// ---- Attribute tables

// Animated "a", "c" and static "b", "d": indices a 0, c 1, b 2, d 3.
void fillTable(KynDATRChunk& table) {
    table.addAttr(false, "b", "int", kTypeInt32, 0, 0);
    table.addAttr(true, "a", "float", kTypeFloat, 0, 0);
    table.addAttr(true, "c", "float", kTypeFloat, 0, 0);
    table.addAttr(false, "d", "double", kTypeDouble, 0, 0);
}

// Animated attributes come first, so adding one shifts every static index.
TEST(KynDATRChunkTest, AnimatedAttributesComeFirst) {
    KynDATRChunk table;
    EXPECT_EQ(table.addAttr(false, "b", "int", kTypeInt32, 0, 0), 0);
    EXPECT_EQ(table.addAttr(true, "a", "float", kTypeFloat, 0, 0), 0);
    EXPECT_EQ(table.findAttr("b"), 1);
    EXPECT_EQ(table.addAttr(true, "c", "float", kTypeFloat, 0, 0), 1);
    EXPECT_EQ(table.addAttr(false, "d", "double", kTypeDouble, 0, 0), 3);
    for (auto [name, index] : {std::pair{"a", 0}, {"c", 1}, {"b", 2}, {"d", 3}, {"B", -1}})
        EXPECT_EQ(table.findAttr(name), index) << name;
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
    // A name both animated and static resolves to the animated one.
    table.addAttr(true, "e", "int", kTypeInt32, 0, 0);
    EXPECT_EQ(table.findAttr("e"), 2);
}

// A bad index prints the library's error line (source path, ":", line, blank, message) on the
// standard output and throws false.
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
        const std::size_t blank = lines[0].find(' '), source = lines[0].rfind(".cpp:", blank);
        EXPECT_EQ(lines[0].substr(blank + 1), "DATR attribute index out of bounds");
        ASSERT_NE(source, std::string::npos) << lines[0];
        EXPECT_GT(blank, source + 5);
        EXPECT_EQ(lines[0].find_first_not_of("0123456789", source + 5), blank) << lines[0];
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

// Group values are refused, and static values of no known type; an animated attribute takes any
// type, as it has no value in the table. A static value starts as an empty "ATTR" leaf.
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
    EXPECT_EQ(printed(value), "ATTR double (0) transform 4x4 : ");
}

// Static removal takes table indices and refuses anything outside the static range; the name
// lists' own remove takes an end position.
TEST(KynDATRChunkTest, RemovingStaticAttributes) {
    KynDATRChunk all, last, refused;
    for (KynDATRChunk* table : {&all, &last, &refused}) fillTable(*table);
    EXPECT_EQ(all.removeStaticAttrs(2, 2), 1);
    EXPECT_TRUE(all.satr.names.empty() && all.satr.types.empty() && all.atrs.children.empty());
    EXPECT_EQ(all.aatr.names, (Strings{"a", "c"}));

    KynChunk* first = last.atrs.children[0];
    EXPECT_EQ(last.removeStaticAttrs(3, 1), 1);
    EXPECT_EQ(last.satr.names, Strings{"b"});
    EXPECT_EQ(last.satr.types, Strings{"int"});
    EXPECT_EQ(last.atrs.children, std::vector<KynChunk*>{first});

    EXPECT_EQ(refused.removeStaticAttrs(2, 0), 1);
    EXPECT_EQ(refused.removeStaticAttrs(1, 1), 0);
    EXPECT_EQ(refused.removeStaticAttrs(3, 2), 0);
    EXPECT_EQ(refused.satr.names, (Strings{"b", "d"}));
    EXPECT_EQ(refused.atrs.children.size(), 2u);

    KynSATRChunk names;
    names.names = {"a", "b", "c", "d"};
    names.types = {"1", "2", "3", "4"};
    names.remove(1, 3);
    EXPECT_EQ(names.names, (Strings{"a", "d"}));
    EXPECT_EQ(names.types, (Strings{"1", "4"}));
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

// The formula leaves out the table's own unknown children, here 20 bytes of "XTRA".
TEST_F(MetaFileTest, WrittenTableMatchesItsLengthAndReadsBack) {
    KynDATRChunk table;
    fillTable(table);
    dataOf<int>(table.getStaticData(2)) = {5};
    table.atrs.children[0]->header.length = 4;
    table.children.push_back(new KynLeafChunk<int>(kynTag("XTRA"), {9}));
    Bytes bytes = written(table);
    EXPECT_EQ(childTags(bytes), (Strings{"SATR", "ATRS", "AATR", "XTRA"}));
    EXPECT_EQ(table.getLength() + 20, readLE(bytes, 8, 8));

    KynDATRChunk back;
    ASSERT_TRUE(readBack(bytes, back));
    EXPECT_EQ(written(back), bytes);
    EXPECT_EQ(back.satr.names, (Strings{"b", "d"}));
    EXPECT_EQ(back.aatr.types, (Strings{"float", "float"}));
    EXPECT_EQ(dataOf<int>(back.getStaticData(2)), std::vector<int>{5});
}

TEST_F(MetaFileTest, TableWithNamesButNoValuesSkipsBothAndWarns) {
    KynDATRChunk table;
    table.satr.names = {"x"};
    table.satr.types = {"int"};
    table.aatr.names = {"v"};
    Capture out(std::cout);
    Bytes bytes = written(table);
    EXPECT_EQ(out.lines(), Strings{"WARNING: SATR and ATRS write skipped, counts do not match"});
    EXPECT_EQ(childTags(bytes), Strings{"AATR"});
}

// On write, types are cut or padded with blanks to the number of names, in the table itself;
// with no types at all only the names go out.
TEST_F(MetaFileTest, TypesFollowTheNamesOnWrite) {
    const struct {
        Strings names, types, typesAfter, tags;
    } cases[] = {
        {{"a"}, {"t1", "t2"}, {"t1"}, {"NAME", "TYPE"}},
        {{"a", "b", "c"}, {"t"}, {"t", "", ""}, {"NAME", "TYPE"}},
        {{"a", "b"}, {}, {}, {"NAME"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.types));
        KynAATRChunk names;
        names.names = c.names;
        names.types = c.types;
        Bytes bytes = written(names);
        EXPECT_EQ(names.types, c.typesAfter);
        EXPECT_EQ(childTags(bytes), c.tags);
        EXPECT_EQ(written(names), bytes);
        KynAATRChunk back;
        back.types = {"stale"};
        ASSERT_TRUE(readBack(bytes, back));
        EXPECT_EQ(back.names, c.names);
        EXPECT_EQ(back.types, c.typesAfter);
    }
}

TEST(KynDATRChunkTest, PrintOrderIsStaticAnimatedValues) {
    KynDATRChunk table;
    table.addAttr(false, "s", "int", kTypeInt32, 0, 0);
    table.addAttr(true, "a", "float", kTypeFloat, 0, 0);
    dataOf<int>(table.getStaticData(1)) = {5};
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
        dataOf<int>(own.getStaticData(own.addAttr(false, "n", "int", kTypeInt32, 0, 0))) = {1};
        own.addAttr(true, "anim", "float", kTypeFloat, 0, 0);
    }
    KynDATRChunk own, other;
};

// A name already there, static or animated, is left alone; names added by the merge are not
// looked at, so a name twice in the source is added twice.
TEST_F(MergeTest, KnownNamesAreSkippedNewOnesAllAdded) {
    dataOf<int>(other.getStaticData(other.addAttr(false, "n", "int", kTypeInt32, 0, 0))) = {2};
    other.addAttr(false, "anim", "int", kTypeInt32, 0, 0);
    other.addAttr(false, "d", "int", kTypeInt32, 0, 0);
    other.addAttr(false, "d", "int", kTypeInt32, 0, 0);
    own.mergeStaticAttributes(&other);
    EXPECT_EQ(own.satr.names, (Strings{"n", "d", "d"}));
    ASSERT_EQ(own.atrs.children.size(), 3u);
    EXPECT_EQ(dataOf<int>(own.atrs.children[0]), std::vector<int>{1});
}

// Values are copied as "ATTR" leaves whatever their tag; a group value is reported and skipped.
TEST_F(MergeTest, CopiesValuesAsAttrAndSkipsGroups) {
    other.addAttr(true, "other anim", "float", kTypeFloat, 0, 0);
    other.satr.names = {"x", "g"};
    other.satr.types = {"vec", "group"};
    other.atrs.children.push_back(new KynLeafChunk<double>(kynTag("ODDT"), 2, 3, {1, 2, 3}));
    other.atrs.children.push_back(new KynGroupChunk(kTagATTR));
    other.addAttr(false, "k", "int", kTypeInt32, 0, 0);
    Capture err(std::cerr);
    own.mergeStaticAttributes(&other);
    EXPECT_EQ(err.str(), "mergeStaticAttributes NOT Merged, unknown type fof: g\n");
    EXPECT_EQ(own.satr.names, (Strings{"n", "x", "k"}));
    EXPECT_EQ(own.satr.types, (Strings{"int", "vec", "int"}));
    EXPECT_EQ(own.aatr.names, Strings{"anim"});
    ASSERT_EQ(own.atrs.children.size(), 3u);
    const KynChunk* copy = own.atrs.children[1];
    EXPECT_NE(copy, other.atrs.children[0]);
    EXPECT_EQ(typeid(*copy), typeid(KynLeafChunk<double>));
    EXPECT_EQ(printed(*copy), "ATTR double (24) vector 3d : 1 2 3 ");
}

}  // namespace
