// The chunk tree: base chunk, typed leaves, groups, the magic chunk, the code tables.
//   leaf  := header, element[length / sizeof element]   (strings: NUL-terminated, no count)
//   group := header, chunk*                              (length counts every child byte)
#include "KynChunks.h"
#include "KynChunksCopy.h"
#include "KynChunksSurvey.h"

#include <cstring>

namespace Kyn {

const char* kynTypeNames[7] = {"undef", "group", "cstr", "int32", "float", "int64", "double"};
const char* kynCompoundNames[7] = {"undef",     "point", "vector",  "normal",
                                   "transform", "color", "compound"};
const char* kynDimensionNames[17] = {"undef", "scalar", "2d", "3d", "4d", "", "", "",   "",
                                     "3x3",   "",       "",   "",   "",   "", "", "4x4"};

const char* kynTypeName(unsigned char code) {
    return code < 7 ? kynTypeNames[code] : "?";
}
const char* kynCompoundName(unsigned char code) {
    return code < 7 ? kynCompoundNames[code] : "?";
}
const char* kynDimensionName(unsigned char code) {
    return code < 17 ? kynDimensionNames[code] : "?";
}

std::ostream& printIndent(std::ostream& os, int depth) {
    for (int i = 0; i < depth; ++i) os << ". ";
    return os;
}

// ---- KynChunk

KynChunk::KynChunk(unsigned tag, unsigned char type) {
    header.tag = tag;
    header.type = type;
}

KynChunk::~KynChunk() = default;

void KynChunk::reset() {}

int64_t KynChunk::getLength() const {
    return header.length;
}

bool KynChunk::read(const KynHeader& h, KynFile& file) {
    if (h.tag != header.tag || h.type != header.type) return false;
    return file.skipData(h);
}

bool KynChunk::write(KynFile& file) const {
    return file.writeChunk(header, nullptr, -1);
}

std::ostream& KynChunk::printHead(std::ostream& os, int depth) const {
    printIndent(os, depth);
    return header.print(os) << " : ";
}

std::ostream& KynChunk::print(std::ostream& os, int depth) const {
    return printHead(os, depth);
}

KynChunk* KynChunk::create(unsigned tag, unsigned char type) {
    switch (type) {
        case kTypeUndef:
            return new KynLeafChunk<char>(tag);
        case kTypeGroup:
            return new KynGroupChunk(tag);
        case kTypeCstr:
            return new KynLeafChunk<std::string>(tag);
        case kTypeInt32:
            return new KynLeafChunk<int>(tag);
        case kTypeFloat:
            return new KynLeafChunk<float>(tag);
        case kTypeInt64:
            return new KynLeafChunk<long>(tag);
        case kTypeDouble:
            return new KynLeafChunk<double>(tag);
        default:
            return new KynChunk(tag, type);
    }
}

namespace {

template <class T>
KynChunk* copyLeaf(const KynChunk* source, unsigned tag) {
    const auto* leaf = dynamic_cast<const KynLeafChunk<T>*>(source);
    if (leaf == nullptr) return nullptr;
    return new KynLeafChunk<T>(tag, leaf->header.compound, leaf->header.dimension, leaf->data);
}

}  // namespace

KynChunk* copyLeafAs(const KynChunk* source, unsigned tag) {
    if (source == nullptr) return nullptr;
    switch (source->header.type) {
        case kTypeCstr:
            return copyLeaf<std::string>(source, tag);
        case kTypeInt32:
            return copyLeaf<int>(source, tag);
        case kTypeFloat:
            return copyLeaf<float>(source, tag);
        case kTypeInt64:
            return copyLeaf<long>(source, tag);
        case kTypeDouble:
            return copyLeaf<double>(source, tag);
        default:
            return nullptr;
    }
}

KynChunk* KynChunk::copy(const KynChunk* source) {
    if (source == nullptr || source->header.tag == kTagFREE) return nullptr;
    if (source->header.type != kTypeGroup) return copyLeafAs(source, source->header.tag);
    const auto* group = dynamic_cast<const KynGroupChunk*>(source);
    if (group == nullptr) return nullptr;
    auto* result = new KynGroupChunk(group->header.tag);
    for (const KynChunk* child : group->children)
        if (KynChunk* childCopy = copy(child)) result->children.push_back(childCopy);
    return result;
}

// ---- KynLeafChunk<T>

namespace {

template <class T>
int64_t payloadLength(const std::vector<T>& data) {
    return static_cast<int64_t>(data.size() * sizeof(T));
}

int64_t payloadLength(const std::vector<std::string>& data) {
    int64_t length = 0;
    for (const std::string& s : data) length += static_cast<int64_t>(s.size()) + 1;
    return length;
}

template <class T>
bool readElements(const KynHeader& h, KynFile& file, std::vector<T>& data) {
    if (!leafPayloadReadable(h, file, int64_t(sizeof(T)))) return false;
    data.resize(static_cast<std::size_t>(h.length) / sizeof(T));
    return file.readData(h, data.empty() ? nullptr : static_cast<void*>(data.data()));
}

bool readElements(const KynHeader& h, KynFile& file, std::vector<std::string>& data) {
    return file.readData(h, data);
}

template <class T>
bool writeElements(KynFile& file, const KynHeader& h, const std::vector<T>& data) {
    return file.writeChunk(h, data.empty() ? nullptr : data.data(), -1);
}

bool writeElements(KynFile& file, const KynHeader& h, const std::vector<std::string>& data) {
    return file.writeChunk(h.tag, data, -1, h.compound, h.dimension);
}

template <class T>
void printElement(std::ostream& os, const T& value) {
    os << value;
}
void printElement(std::ostream& os, const float& value) {
    os << static_cast<double>(value);
}
void printElement(std::ostream& os, const char& value) {
    os.put(value);
}

}  // namespace

bool leafPayloadReadable(const KynHeader& h, KynFile& file, int64_t elementSize) {
    if (h.length % elementSize != 0) return false;
    return h.length == 0 || file.canRead(h.length);
}

template <class T>
KynLeafChunk<T>::KynLeafChunk() : KynLeafChunk(kTagFREE) {}

template <class T>
KynLeafChunk<T>::KynLeafChunk(unsigned tag) : KynChunk(tag, KynTypeOf<T>::code) {}

template <class T>
KynLeafChunk<T>::KynLeafChunk(unsigned tag, const data_type& data)
    : KynChunk(tag, KynTypeOf<T>::code), data(data) {
    header.length = dataLength();
}

template <class T>
KynLeafChunk<T>::KynLeafChunk(unsigned tag, unsigned char compound, unsigned char dimension)
    : KynChunk(tag, KynTypeOf<T>::code) {
    header.compound = compound;
    header.dimension = dimension;
}

template <class T>
KynLeafChunk<T>::KynLeafChunk(unsigned tag, unsigned char compound, unsigned char dimension,
                              const data_type& data)
    : KynLeafChunk(tag, compound, dimension) {
    this->data = data;
    header.length = dataLength();
}

template <class T>
KynLeafChunk<T>::~KynLeafChunk() = default;

template <class T>
void KynLeafChunk<T>::reset() {
    data.clear();
}

template <class T>
int64_t KynLeafChunk<T>::dataLength() const {
    return payloadLength(data);
}

template <class T>
bool KynLeafChunk<T>::read(const KynHeader& h, KynFile& file) {
    if (h.tag != header.tag || h.type != header.type) return false;
    header = h;
    return readElements(h, file, data);
}

template <class T>
bool KynLeafChunk<T>::write(KynFile& file) const {
    KynHeader h;
    h.tag = header.tag;
    h.type = KynTypeOf<T>::code;
    h.compound = header.compound;
    h.dimension = header.dimension;
    h.length = dataLength();
    return writeElements(file, h, data);
}

template <class T>
std::ostream& KynLeafChunk<T>::print(std::ostream& os, int depth) const {
    printHead(os, depth);
    if (header.type == kTypeFloat) os.precision(8);
    if (header.type == kTypeDouble) os.precision(16);
    for (const T& value : data) {
        printElement(os, value);
        os << ' ';
    }
    return os;
}

template class KynLeafChunk<char>;
template class KynLeafChunk<std::string>;
template class KynLeafChunk<int>;
template class KynLeafChunk<float>;
template class KynLeafChunk<long>;
template class KynLeafChunk<double>;

// ---- KynGroupChunk

namespace {

constexpr std::size_t kFewChildren = 4;

}  // namespace

KynGroupChunk::KynGroupChunk(unsigned tag) : KynChunk(tag, kTypeGroup) {}

KynGroupChunk::~KynGroupChunk() {
    deleteChildren();
}

void KynGroupChunk::deleteChildren() {
    for (KynChunk* child : children) delete child;
    children.clear();
}

void KynGroupChunk::removeAllChildren() {
    deleteChildren();
}

void KynGroupChunk::reset() {
    removeAllChildren();
}

int64_t KynGroupChunk::getLength() const {
    int64_t length = 0;
    for (const KynChunk* child : children) length += child->getLength() + 16;
    return length;
}

bool KynGroupChunk::readChild(const KynHeader&, KynFile&, bool& handled) {
    handled = false;
    return false;
}

bool KynGroupChunk::writeChildren(KynFile&) const {
    return true;
}

std::ostream& KynGroupChunk::printChildren(std::ostream& os, int) const {
    return os;
}

bool KynGroupChunk::read(const KynHeader& h, KynFile& file) {
    if (h.tag != header.tag || h.type != header.type) return false;
    header = h;
    // Children of an earlier read are released here rather than leaked.
    deleteChildren();
    if (h.length == 0) return true;
    const std::size_t depth = file.groupStack.size();
    if (depth > kMaxGroupDepth) return false;
    do {
        KynHeader childHeader;
        if (!file.readHeader(childHeader)) return false;
        bool handled = false;
        bool ok = readChild(childHeader, file, handled);
        if (handled) {
            if (!ok) return false;
        } else {
            KynChunk* child = create(childHeader.tag, childHeader.type);
            if (!child->read(childHeader, file)) {
                delete child;
                return false;
            }
            // Groups mostly hold a few children: room for them at once skips the growth steps.
            if (children.empty()) children.reserve(kFewChildren);
            children.push_back(child);
        }
    } while (file.groupStack.size() == depth);
    return true;
}

bool KynGroupChunk::write(KynFile& file) const {
    if (!file.startGroup(header)) return false;
    bool ok = writeChildren(file);
    for (std::size_t i = 0; ok && i < children.size(); ++i) ok = children[i]->write(file);
    // The group is closed even after a failure, so that the file's group stack stays balanced.
    bool closed = file.endGroup();
    return ok && closed;
}

std::ostream& KynGroupChunk::print(std::ostream& os, int depth) const {
    printHead(os, depth) << std::endl;
    printChildren(os, depth + 1);
    for (const KynChunk* child : children) child->print(os, depth + 1) << std::endl;
    return os;
}

// ---- KynTagSurvey

bool KynTagSurvey::readChild(const KynHeader& h, KynFile& file, bool& handled) {
    // Every child is taken here, with the rules by which create() and read() would take it.
    handled = true;
    tags.push_back(h.tag);
    switch (h.type) {
        case kTypeGroup: {
            KynTagSurvey group(h.tag, tags);
            return group.read(h, file);
        }
        case kTypeUndef:
        case kTypeCstr:
            return leafPayloadReadable(h, file, 1) && file.skipData(h);
        case kTypeInt32:
        case kTypeFloat:
            return leafPayloadReadable(h, file, 4) && file.skipData(h);
        case kTypeInt64:
        case kTypeDouble:
            return leafPayloadReadable(h, file, 8) && file.skipData(h);
        default:
            // A chunk of an unknown type keeps its header and passes over its payload.
            return file.skipData(h);
    }
}

// ---- KynDKYNChunk

KynDKYNChunk::KynDKYNChunk() : KynChunk(kTagDKYN, kTypeInt64) {
    header.length = 8;
}

KynDKYNChunk::~KynDKYNChunk() = default;

void KynDKYNChunk::reset() {
    version = 2;
}

bool KynDKYNChunk::read(const KynHeader& h, KynFile& file) {
    if (h.tag != header.tag || h.type != header.type || h.length != 8) return false;
    header = h;
    return file.readData(h, &version);
}

bool KynDKYNChunk::write(KynFile& file) const {
    return file.writeChunk(header, &version, -1);
}

std::ostream& KynDKYNChunk::print(std::ostream& os, int depth) const {
    return printHead(os, depth) << "version = " << version;
}

}  // namespace Kyn
