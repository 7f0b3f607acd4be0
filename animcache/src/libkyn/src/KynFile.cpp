#include "KynFile.h"

#include <climits>
#include <cstring>

#include "KynFileStream.h"

namespace Kyn {

namespace {

// Payloads are read and written in one block whose count must fit a signed 32-bit integer.
constexpr int64_t kMaxPayload = int64_t(INT32_MAX);

}  // namespace

KynFile::KynFile() = default;

KynFile::~KynFile() {
    close();
}

bool KynFile::open(const char* path, const char* mode) {
    close();
    stream.reset(KynFileStream::open(path, mode));
    return stream != nullptr;
}

bool KynFile::close() {
    bool ok = true;
    if (stream) ok = stream->close();
    stream.reset();
    groupStack.clear();
    scratch.clear();
    return ok;
}

int64_t KynFile::tell(bool* ok) {
    if (!stream) {
        if (ok) *ok = false;
        return -1;
    }
    if (ok) *ok = true;
    return stream->tell();
}

bool KynFile::seek(int64_t offset, int whence, bool clearGroups) {
    if (!stream) return false;
    if (clearGroups) groupStack.clear();
    return stream->seek(offset, whence);
}

void KynFile::popClosedGroups() {
    int64_t position = stream->tell();
    while (!groupStack.empty() && groupStack.back() == position) groupStack.pop_back();
}

bool KynFile::readHeader(KynHeader& header) {
    if (!stream) return false;
    if (stream->read(&header, sizeof(KynHeader)) != sizeof(KynHeader)) return false;
    if (header.type == kTypeGroup && header.length != 0) {
        int64_t end = 0;
        if (__builtin_add_overflow(stream->tell(), header.length, &end)) end = INT64_MAX;
        groupStack.push_back(end);
        return true;
    }
    popClosedGroups();
    return true;
}

bool KynFile::skipData(const KynHeader& header) {
    // A negative length would move backwards, and a reader could pass the same chunks forever.
    if (!stream || header.length < 0) return false;
    if (header.length != 0 && !stream->seek(header.length, SEEK_CUR)) return false;
    popClosedGroups();
    return true;
}

bool KynFile::canRead(int64_t length) {
    if (!stream || length < 0 || length > kMaxPayload) return false;
    int64_t position = stream->tell();
    if (length <= stream->size(false) - position) return true;
    return length <= stream->size(true) - position;
}

bool KynFile::readData(const KynHeader& header, void* data) {
    if (data == nullptr) return skipData(header);
    if (!stream) return false;
    if (header.length != 0) {
        if (header.length < 0 || header.length > kMaxPayload) return false;
        std::size_t count = static_cast<std::size_t>(header.length);
        if (stream->read(data, count) != count) return false;
    }
    popClosedGroups();
    return true;
}

bool KynFile::readData(const KynHeader& header, std::string& value) {
    value.clear();
    if (header.length == 0) return readData(header, static_cast<void*>(nullptr));
    if (!canRead(header.length)) return false;
    if (header.length > static_cast<int64_t>(scratch.size())) scratch.resize(header.length);
    if (!readData(header, scratch.data())) return false;
    const char* begin = scratch.data();
    value.assign(begin, strnlen(begin, static_cast<std::size_t>(header.length)));
    return true;
}

bool KynFile::readData(const KynHeader& header, std::vector<std::string>& values) {
    values.clear();
    if (header.length == 0) return readData(header, static_cast<void*>(nullptr));
    if (!canRead(header.length)) return false;
    if (header.length > static_cast<int64_t>(scratch.size())) scratch.resize(header.length);
    if (!readData(header, scratch.data())) return false;
    const char* piece = scratch.data();
    const char* end = piece + header.length;
    while (piece < end) {
        std::size_t length = strnlen(piece, static_cast<std::size_t>(end - piece));
        values.emplace_back(piece, length);
        piece += length + 1;
    }
    return true;
}

bool KynFile::writeChunk(const KynHeader& header, const void* data, int64_t offset) {
    if (!stream) return false;
    int64_t resume = stream->tell();
    if (offset >= 0 && !stream->seek(offset, SEEK_SET)) return false;
    if (stream->write(&header, sizeof(KynHeader)) != sizeof(KynHeader)) return false;
    if (header.length != 0) {
        if (data != nullptr) {
            if (header.length < 0 || header.length > kMaxPayload) return false;
            std::size_t count = static_cast<std::size_t>(header.length);
            if (stream->write(data, count) != count) return false;
        } else if (!stream->seek(header.length, SEEK_CUR)) {
            return false;
        }
    }
    if (offset < 0) return true;
    return stream->seek(resume, SEEK_SET);
}

bool KynFile::writeChunk(unsigned tag, const std::vector<std::string>& values, int64_t offset,
                         unsigned char compound, unsigned char dimension) {
    KynHeader header;
    header.tag = tag;
    header.type = kTypeCstr;
    header.compound = compound;
    header.dimension = dimension;
    header.length = 0;
    for (const std::string& value : values) header.length += int64_t(value.size()) + 1;
    if (header.length > static_cast<int64_t>(scratch.size())) scratch.resize(header.length);
    char* out = scratch.data();
    for (const std::string& value : values) {
        std::memcpy(out, value.data(), value.size());
        out += value.size();
        *out++ = '\0';
    }
    return writeChunk(header, header.length != 0 ? scratch.data() : nullptr, offset);
}

bool KynFile::patch(int64_t offset, const void* data, std::size_t size) {
    if (!stream) return false;
    const int64_t resume = stream->tell();
    if (!stream->seek(offset, SEEK_SET) || stream->write(data, size) != size) return false;
    return stream->seek(resume, SEEK_SET);
}

bool KynFile::flush(bool toDisk) {
    return stream && stream->sync(toDisk);
}

void KynFile::forgetReadAhead() {
    if (stream) stream->forgetReadAhead();
}

bool KynFile::startGroup(const KynHeader& header) {
    if (!stream) return false;
    if (stream->write(&header, sizeof(KynHeader)) != sizeof(KynHeader)) return false;
    groupStack.push_back(stream->tell());
    return true;
}

bool KynFile::endGroup() {
    if (!stream || groupStack.empty()) return false;
    int64_t end = stream->tell();
    int64_t payloadStart = groupStack.back();
    int64_t length = end - payloadStart;
    if (!stream->seek(payloadStart - int64_t(sizeof(int64_t)), SEEK_SET)) return false;
    if (stream->write(&length, sizeof(length)) != sizeof(length)) return false;
    groupStack.pop_back();
    return stream->seek(end, SEEK_SET);
}

bool KynFile::isKynFile(const char* path) {
    if (path == nullptr) return false;
    KynFile file;
    if (!file.open(path, "r")) return false;
    KynHeader header;
    return file.readHeader(header) && header.tag == kTagDKYN;
}

std::ostream& KynHeader::print(std::ostream& os) const {
    os.write(reinterpret_cast<const char*>(&tag), sizeof(tag));
    os << ' ' << kynTypeName(type) << " (" << length << ')';
    if (compound != 0) os << ' ' << kynCompoundName(compound);
    if (dimension != 0) os << ' ' << kynDimensionName(dimension);
    return os;
}

}  // namespace Kyn
