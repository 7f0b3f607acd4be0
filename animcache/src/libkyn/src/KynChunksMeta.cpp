// Metadata: the file-wide fields and the objects.
//   META := WAPP? SFIL? DATE? NSAM (FTIM LTIM RATE)? SPAC NOBJ DOBJ* chunk*
//   DOBJ := NAME? DATR? chunk*
// Known fields are unpacked into members when their chunk has the exact form; a field chunk of
// any other form is kept as an ordinary child and the member keeps its value.
#include <cstring>
#include <ctime>
#include <limits>

#include "KynChunks.h"

namespace Kyn {

namespace {

// A fixed-size field: the required type and the payload size of the member it fills.
template <class T>
bool readField(const KynHeader& h, KynFile& file, unsigned char type, T& field, bool& handled) {
    if (h.type != type || h.length != int64_t(sizeof(T))) return false;
    handled = true;
    return file.readData(h, &field);
}

bool readStringField(const KynHeader& h, KynFile& file, std::string& field, bool& handled) {
    if (h.type != kTypeCstr) return false;
    handled = true;
    return file.readData(h, field);
}

template <class T>
bool writeField(KynFile& file, unsigned tag, unsigned char type, const T& value) {
    KynHeader h;
    h.tag = tag;
    h.type = type;
    h.length = sizeof(T);
    return file.writeChunk(h, &value, -1);
}

// A string with its terminating NUL.
bool writeStringField(KynFile& file, unsigned tag, const std::string& value) {
    KynHeader h;
    h.tag = tag;
    h.type = kTypeCstr;
    h.length = static_cast<int64_t>(value.size()) + 1;
    return file.writeChunk(h, value.c_str(), -1);
}

}  // namespace

// ---- KynMETAChunk

KynMETAChunk::KynMETAChunk()
    : KynGroupChunk(kTagMETA),
      firstTime(std::numeric_limits<float>::infinity()),
      lastTime(-std::numeric_limits<float>::infinity()) {}

KynMETAChunk::~KynMETAChunk() {
    removeAllChildren();
}

void KynMETAChunk::reset() {
    numSamples = 0;
    firstTime = std::numeric_limits<float>::infinity();
    lastTime = -std::numeric_limits<float>::infinity();
    rate = 1.0f;
    space = 1;
    application.clear();
    sourceFile.clear();
    date = 0;
    removeAllChildren();
}

void KynMETAChunk::removeAllChildren() {
    for (KynDOBJChunk* object : objects) delete object;
    objects.clear();
    deleteChildren();
}

KynDOBJChunk* KynMETAChunk::addDOBJ(const char* name) {
    auto* object = new KynDOBJChunk();
    object->name = name != nullptr ? name : "";  // a null name counts as empty
    objects.push_back(object);
    return object;
}

int64_t KynMETAChunk::getLength() const {
    int64_t length = 0;
    for (const KynDOBJChunk* object : objects) length += object->getLength() + 16;
    length += static_cast<int64_t>(application.size() + sourceFile.size()) + 2;
    return length + (numSamples != 0 ? 188 : 128);
}

int64_t KynMETAChunk::fieldOffset(unsigned tag) const {
    // The order of writeChildren; each field chunk is a header and its payload.
    struct Field {
        unsigned tag;
        bool written;
        int64_t size;
    };
    const bool timed = numSamples > 0;
    const Field fields[] = {
        {kTagWAPP, !application.empty(), int64_t(application.size()) + 1},
        {kTagSFIL, !sourceFile.empty(), int64_t(sourceFile.size()) + 1},
        {kTagDATE, date != 0, 8},
        {kTagNSAM, true, 8},
        {kTagFTIM, timed, 4},
        {kTagLTIM, timed, 4},
        {kTagRATE, timed, 4},
        {kTagSPAC, true, 8},
        {kTagNOBJ, true, 8},
    };
    int64_t at = 16;
    for (const Field& field : fields) {
        if (field.tag == tag)
            return field.written && tag != kTagWAPP && tag != kTagSFIL ? at + 16 : -1;
        if (field.written) at += 16 + field.size;
    }
    return -1;
}

bool KynMETAChunk::readChild(const KynHeader& h, KynFile& file, bool& handled) {
    handled = false;
    int64_t objectCount = 0;
    switch (h.tag) {
        case kTagWAPP:
            return readStringField(h, file, application, handled);
        case kTagSFIL:
            return readStringField(h, file, sourceFile, handled);
        case kTagDATE:
            return readField(h, file, kTypeInt64, date, handled);
        case kTagNSAM:
            return readField(h, file, kTypeInt64, numSamples, handled);
        case kTagFTIM:
            return readField(h, file, kTypeFloat, firstTime, handled);
        case kTagLTIM:
            return readField(h, file, kTypeFloat, lastTime, handled);
        case kTagRATE:
            return readField(h, file, kTypeFloat, rate, handled);
        case kTagSPAC:
            return readField(h, file, kTypeInt64, space, handled);
        case kTagNOBJ:  // the object count is the number of "DOBJ" chunks
            return readField(h, file, kTypeInt64, objectCount, handled);
        case kTagDOBJ: {
            if (h.type != kTypeGroup) return false;
            handled = true;
            auto* object = new KynDOBJChunk();
            if (!object->read(h, file)) {
                delete object;
                return false;
            }
            objects.push_back(object);
            return true;
        }
        default:
            return false;
    }
}

bool KynMETAChunk::writeChildren(KynFile& file) const {
    if (!application.empty() && !writeStringField(file, kTagWAPP, application)) return false;
    if (!sourceFile.empty() && !writeStringField(file, kTagSFIL, sourceFile)) return false;
    if (date != 0 && !writeField(file, kTagDATE, kTypeInt64, date)) return false;
    if (!writeField(file, kTagNSAM, kTypeInt64, numSamples)) return false;
    if (numSamples > 0) {
        if (!writeField(file, kTagFTIM, kTypeFloat, firstTime)) return false;
        if (!writeField(file, kTagLTIM, kTypeFloat, lastTime)) return false;
        if (!writeField(file, kTagRATE, kTypeFloat, rate)) return false;
    }
    if (!writeField(file, kTagSPAC, kTypeInt64, space)) return false;
    if (!writeField(file, kTagNOBJ, kTypeInt64, static_cast<int64_t>(objects.size()))) return false;
    for (const KynDOBJChunk* object : objects)
        if (!object->write(file)) return false;
    return true;
}

std::ostream& KynMETAChunk::printChildren(std::ostream& os, int depth) const {
    if (!application.empty())
        printIndent(os, depth) << "application = " << application << std::endl;
    if (!sourceFile.empty()) printIndent(os, depth) << "sourceFile = " << sourceFile << std::endl;
    if (date != 0) {
        time_t seconds = static_cast<time_t>(date);
        struct tm local;
        char text[64] = "";
        if (localtime_r(&seconds, &local) != nullptr && asctime_r(&local, text) != nullptr)
            printIndent(os, depth) << "date stamp = " << text << std::endl;
        else
            printIndent(os, depth) << "date stamp = " << date << '\n' << std::endl;
    }
    printIndent(os, depth) << "numObjects = " << objects.size() << std::endl;
    printIndent(os, depth) << "numSamples = " << numSamples << std::endl;
    printIndent(os, depth) << "firstTime = frame " << static_cast<double>(firstTime) << std::endl;
    printIndent(os, depth) << "lastTime = " << static_cast<double>(lastTime) << std::endl;
    printIndent(os, depth) << "rate = ";
    if (rate == 0)
        os << "nonuniform";
    else
        os << static_cast<double>(rate) << " samples per frame";
    os << std::endl;
    printIndent(os, depth) << "space = ";
    if (space == 0)
        os << "world";
    else if (space == 1)
        os << "object";
    else
        os << space;
    os << std::endl;
    for (const KynDOBJChunk* object : objects) object->print(os, depth);
    return os;
}

// ---- KynDOBJChunk

KynDOBJChunk::KynDOBJChunk() : KynGroupChunk(kTagDOBJ) {}

KynDOBJChunk::~KynDOBJChunk() {
    removeAllChildren();
}

void KynDOBJChunk::reset() {
    name.clear();
    removeAllChildren();
}

void KynDOBJChunk::removeAllChildren() {
    delete datr;
    datr = nullptr;
    deleteChildren();
}

int64_t KynDOBJChunk::getLength() const {
    int64_t length = static_cast<int64_t>(name.size()) + 17;
    if (datr != nullptr) length += datr->getLength() + 16;
    for (const KynChunk* child : children) length += child->getLength() + 16;
    return length;
}

bool KynDOBJChunk::readChild(const KynHeader& h, KynFile& file, bool& handled) {
    handled = false;
    if (h.tag == kTagNAME) return readStringField(h, file, name, handled);
    if (h.tag != kTagDATR || h.type != kTypeGroup) return false;
    handled = true;
    auto* table = new KynDATRChunk();
    if (!table->read(h, file)) {
        delete table;
        return false;
    }
    // A second table replaces the first.
    delete datr;
    datr = table;
    return true;
}

bool KynDOBJChunk::writeChildren(KynFile& file) const {
    if (!name.empty() && !writeStringField(file, kTagNAME, name)) return false;
    return datr == nullptr || datr->write(file);
}

std::ostream& KynDOBJChunk::printChildren(std::ostream& os, int depth) const {
    if (!name.empty()) printIndent(os, depth) << "name = " << name << std::endl;
    if (datr != nullptr) datr->print(os, depth);
    return os;
}

}  // namespace Kyn
