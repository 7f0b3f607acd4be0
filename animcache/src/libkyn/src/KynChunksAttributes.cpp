// Dynamic attributes of an object.
//   DATR      := (SATR ATRS)? AATR?
//   SATR/AATR := NAME? TYPE?        NAME and TYPE: NUL-separated lists of equal length
//   ATRS      := chunk*             one value chunk per static attribute, in SATR order
// The values of animated attributes lie in each sample, in an "ATRS" group of the object.
#include <algorithm>
#include <iostream>

#include "KynChunks.h"
#include "KynChunksCopy.h"
#include "KynLog.h"

namespace Kyn {

// ---- KynAttrNamesChunk, KynSATRChunk, KynAATRChunk, KynATRSChunk

KynAttrNamesChunk::KynAttrNamesChunk(unsigned tag) : KynGroupChunk(tag) {}
KynAttrNamesChunk::~KynAttrNamesChunk() = default;

void KynAttrNamesChunk::reset() {
    names.clear();
    types.clear();
    removeAllChildren();
}

int64_t KynAttrNamesChunk::getLength() const {
    if (names.empty()) return 0;
    int64_t length = 32;
    for (std::size_t i = 0; i < names.size(); ++i) {
        length += static_cast<int64_t>(names[i].size()) + 1;
        length += static_cast<int64_t>(i < types.size() ? types[i].size() : 0) + 1;
    }
    return length;
}

bool KynAttrNamesChunk::readChild(const KynHeader& h, KynFile& file, bool& handled) {
    handled = false;
    if (h.type != kTypeCstr || (h.tag != kTagNAME && h.tag != kTagTYPE)) return false;
    handled = true;
    return file.readData(h, h.tag == kTagNAME ? names : types);
}

bool KynAttrNamesChunk::writeChildren(KynFile& file) const {
    if (!names.empty() && !file.writeChunk(kTagNAME, names, -1, 0, 0)) return false;
    if (types.empty()) return true;
    types.resize(names.size());
    return file.writeChunk(kTagTYPE, types, -1, 0, 0);
}

std::ostream& KynAttrNamesChunk::printChildren(std::ostream& os, int depth) const {
    if (!names.empty()) {
        printIndent(os, depth) << "names = ";
        for (const std::string& name : names) os << name << ' ';
        os << std::endl;
    }
    if (!types.empty()) {
        printIndent(os, depth) << "types = ";
        for (const std::string& type : types) os << type << ' ';
        os << std::endl;
    }
    return os;
}

void KynAttrNamesChunk::remove(unsigned long first, unsigned long last) {
    auto eraseRange = [first, last](std::vector<std::string>& list) {
        unsigned long end = std::min<unsigned long>(last, list.size());
        if (first < end) list.erase(list.begin() + first, list.begin() + end);
    };
    eraseRange(names);
    eraseRange(types);
}

KynSATRChunk::KynSATRChunk() : KynAttrNamesChunk(kTagSATR) {}
KynSATRChunk::~KynSATRChunk() = default;
KynAATRChunk::KynAATRChunk() : KynAttrNamesChunk(kTagAATR) {}
KynAATRChunk::~KynAATRChunk() = default;
KynATRSChunk::KynATRSChunk() : KynGroupChunk(kTagATRS) {}
KynATRSChunk::~KynATRSChunk() = default;

// ---- KynDATRChunk

KynDATRChunk::KynDATRChunk() : KynGroupChunk(kTagDATR) {}
KynDATRChunk::~KynDATRChunk() = default;

void KynDATRChunk::reset() {
    satr.reset();
    aatr.reset();
    atrs.removeAllChildren();
    removeAllChildren();
}

int64_t KynDATRChunk::getLength() const {
    int64_t s = satr.getLength();
    int64_t a = aatr.getLength();
    int64_t animated = a != 0 ? a + 16 : 0;
    if (s == 0) return animated;
    int64_t length = s + 32 + animated;
    for (const KynChunk* value : atrs.children) length += value->getLength() + 16;
    return length;
}

bool KynDATRChunk::readChild(const KynHeader& h, KynFile& file, bool& handled) {
    handled = false;
    if (h.type != kTypeGroup) return false;
    KynGroupChunk* member = nullptr;
    if (h.tag == kTagSATR)
        member = &satr;
    else if (h.tag == kTagATRS)
        member = &atrs;
    else if (h.tag == kTagAATR)
        member = &aatr;
    if (member == nullptr) return false;
    handled = true;
    return member->KynGroupChunk::read(h, file);
}

bool KynDATRChunk::writeChildren(KynFile& file) const {
    if (satr.names.size() != atrs.children.size()) {
        std::cout << "WARNING: SATR and ATRS write skipped, counts do not match" << std::endl;
    } else if (!satr.names.empty()) {
        if (!satr.write(file) || !atrs.write(file)) return false;
    }
    return aatr.names.empty() || aatr.write(file);
}

std::ostream& KynDATRChunk::printChildren(std::ostream& os, int depth) const {
    if (!satr.names.empty()) satr.print(os, depth);
    if (!aatr.names.empty()) aatr.print(os, depth);
    if (!atrs.children.empty()) atrs.print(os, depth);
    return os;
}

int KynDATRChunk::getNumAttrs() const {
    return static_cast<int>(aatr.names.size() + satr.names.size());
}

void KynDATRChunk::checkIndex(int index) const {
    if (index < 0 || index >= getNumAttrs()) {
        KYN_LOG_ERROR("DATR attribute index out of bounds");
        throw false;
    }
}

const std::string& KynDATRChunk::getAttrName(int index) const {
    checkIndex(index);
    int animatedCount = static_cast<int>(aatr.names.size());
    return index < animatedCount ? aatr.names[index] : satr.names[index - animatedCount];
}

const std::string& KynDATRChunk::getAttrType(int index) const {
    checkIndex(index);
    int animatedCount = static_cast<int>(aatr.names.size());
    const KynAttrNamesChunk& table =
        index < animatedCount ? aatr : static_cast<const KynAttrNamesChunk&>(satr);
    std::size_t position =
        static_cast<std::size_t>(index < animatedCount ? index : index - animatedCount);
    static const std::string none;
    // Labels may be missing in a table built by hand; they read as empty.
    return position < table.types.size() ? table.types[position] : none;
}

int KynDATRChunk::findAttr(const std::string& name) const {
    auto animated = std::find(aatr.names.begin(), aatr.names.end(), name);
    if (animated != aatr.names.end()) return static_cast<int>(animated - aatr.names.begin());
    auto fixed = std::find(satr.names.begin(), satr.names.end(), name);
    if (fixed != satr.names.end())
        return static_cast<int>(aatr.names.size() + (fixed - satr.names.begin()));
    return -1;
}

bool KynDATRChunk::setAttrName(int index, const std::string& name) {
    checkIndex(index);
    int animatedCount = static_cast<int>(aatr.names.size());
    if (index < animatedCount)
        aatr.names[index] = name;
    else
        satr.names[index - animatedCount] = name;
    return true;
}

bool KynDATRChunk::setAttrType(int index, const std::string& type) {
    checkIndex(index);
    int animatedCount = static_cast<int>(aatr.names.size());
    KynAttrNamesChunk& table = index < animatedCount ? static_cast<KynAttrNamesChunk&>(aatr) : satr;
    std::size_t position =
        static_cast<std::size_t>(index < animatedCount ? index : index - animatedCount);
    if (table.types.size() <= position) table.types.resize(table.names.size());
    table.types[position] = type;
    return true;
}

bool KynDATRChunk::isAnimated(int index) const {
    checkIndex(index);
    return index < static_cast<int>(aatr.names.size());
}

KynChunk* KynDATRChunk::getStaticData(int index) const {
    checkIndex(index);
    int animatedCount = static_cast<int>(aatr.names.size());
    if (index < animatedCount) return nullptr;
    std::size_t position = static_cast<std::size_t>(index - animatedCount);
    // A table whose values are fewer than its names answers null for the missing ones.
    return position < atrs.children.size() ? atrs.children[position] : nullptr;
}

int KynDATRChunk::getAnimatedDataIndex(int index) const {
    checkIndex(index);
    return index < static_cast<int>(aatr.names.size()) ? index : -1;
}

int KynDATRChunk::addAttr(const bool& animated, const std::string& name, const std::string& type,
                          unsigned char dataType, unsigned char compound, unsigned char dimension) {
    if (dataType == kTypeGroup) return -1;
    if (animated) {
        aatr.names.push_back(name);
        aatr.types.push_back(type);
        return static_cast<int>(aatr.names.size()) - 1;
    }
    if (dataType < kTypeCstr || dataType > kTypeDouble) return -1;
    satr.names.push_back(name);
    satr.types.push_back(type);
    KynChunk* value = KynChunk::create(kTagATTR, dataType);
    value->header.compound = compound;
    value->header.dimension = dimension;
    atrs.children.push_back(value);
    return getNumAttrs() - 1;
}

int KynDATRChunk::removeStaticAttrs(int start, int count) {
    checkIndex(start);
    int animatedCount = static_cast<int>(aatr.names.size());
    if (start < animatedCount) return 0;
    long first = start - animatedCount;
    long end = first + count;
    if (count < 0 || end > static_cast<long>(satr.names.size())) return 0;
    satr.remove(first, end);
    if (count == static_cast<int>(atrs.children.size())) {
        atrs.removeAllChildren();
        return 1;
    }
    std::vector<KynChunk*>& values = atrs.children;
    long valueEnd = std::min<long>(end, static_cast<long>(values.size()));
    if (first < valueEnd) {
        for (long i = first; i < valueEnd; ++i) delete values[i];
        values.erase(values.begin() + first, values.begin() + valueEnd);
    }
    return 1;
}

int KynDATRChunk::removeAnimatedAttrs(int start, int count) {
    checkIndex(start);
    if (start >= static_cast<int>(aatr.names.size())) return -1;
    // Erases count - 1 entries: the end position is start + count - 1, excluded.
    if (count > 1)
        aatr.remove(static_cast<unsigned long>(start),
                    static_cast<unsigned long>(start) + static_cast<unsigned long>(count - 1));
    return start;
}

void KynDATRChunk::mergeStaticAttributes(const KynDATRChunk* other) {
    if (other == nullptr) return;
    const int ownCount = getNumAttrs();
    const int otherCount = other->getNumAttrs();
    for (int i = 0; i < otherCount; ++i) {
        const std::string& name = other->getAttrName(i);
        bool present = false;
        for (int j = 0; j < ownCount && !present; ++j) present = getAttrName(j) == name;
        if (present || other->isAnimated(i)) continue;
        const KynChunk* source = other->getStaticData(i);
        KynChunk* value = copyLeafAs(source, kTagATTR);
        if (value == nullptr) {
            std::cerr << "mergeStaticAttributes NOT Merged, unknown type fof: " << name
                      << std::endl;
            continue;
        }
        satr.names.push_back(name);
        satr.types.push_back(other->getAttrType(i));
        atrs.children.push_back(value);
    }
}

}  // namespace Kyn
