// Samples copied as raw blocks: a "SAMP" is read whole, its "JOBJ" entries are moved by the
// distance between its old and its new offset, and it is written whole. Nothing of it is parsed
// into chunk objects; only the headers of its direct children are looked at, in memory.
#include "KynSampleCopy.h"

#include <climits>
#include <cstring>

namespace Kyn {

namespace {

constexpr int64_t kMaxBlock = INT32_MAX;

KynHeader headerAt(const std::vector<char>& bytes, int64_t at) {
    KynHeader h;
    std::memcpy(&h, bytes.data() + at, sizeof h);
    return h;
}

}  // namespace

bool KynSampleCopier::copy(KynFile& in, int64_t offset, int objects, const float* time,
                           bool requireTable, KynSAMSChunk& writer, KynFile& out,
                           std::string& why) {
    KynHeader sample;
    if (!in.seek(offset, SEEK_SET, true) || !in.readHeader(sample) || sample.tag != kTagSAMP ||
        sample.type != kTypeGroup || sample.length < 16) {
        why = "no sample where the sample table leads";
        return false;
    }
    if (sample.length > kMaxBlock)
        return copyByObject(in, offset, sample, objects, time, writer, out, why);
    if (!in.canRead(sample.length)) {
        why = "the file ends inside the sample";
        return false;
    }
    const int64_t length = sample.length;
    if (int64_t(buffer.size()) < length) buffer.resize(std::size_t(length));
    if (!in.readData(sample, buffer.data())) {
        why = "the sample does not read";
        return false;
    }
    // The direct children, in memory: the object table first, then one group per object.
    int64_t table = -1;
    int64_t tableLength = 0;
    std::vector<int64_t> found;
    for (int64_t at = 0; at < length;) {
        if (length - at < 16) break;
        const KynHeader c = headerAt(buffer, at);
        if (c.length < 0 || c.length > length - at - 16) break;
        if (c.tag == kTagJOBJ && table < 0 && found.empty()) {
            table = at + 16;
            tableLength = c.length;
        } else if (c.tag == kTagSOBJ) {
            found.push_back(at);
        }
        at += 16 + c.length;
    }
    if (int64_t(found.size()) != objects) {
        why =
            "it holds " + std::to_string(found.size()) + " objects, not " + std::to_string(objects);
        return false;
    }
    const bool tableFits = table >= 0 && tableLength == 8 * int64_t(objects);
    std::vector<int64_t> entries(std::size_t(tableFits ? objects : 0));
    if (tableFits) std::memcpy(entries.data(), buffer.data() + table, std::size_t(tableLength));
    bool matches = tableFits;
    for (std::size_t i = 0; matches && i < entries.size(); ++i)
        matches = entries[i] == offset + 16 + found[i];
    if (requireTable && !matches) {
        why = "its object table does not lead to its objects";
        return false;
    }
    if (!tableFits) return copyByObject(in, offset, sample, objects, time, writer, out, why);
    const int64_t target = out.tell(nullptr);
    for (std::size_t i = 0; i < entries.size(); ++i) entries[i] = target + 16 + found[i];
    std::memcpy(buffer.data() + table, entries.data(), std::size_t(tableLength));
    if (!writer.writeSAMPChunk(out, sample, buffer.data(), time)) {
        why = "the new file could not be written";
        return false;
    }
    return true;
}

// The sample rebuilt around its objects: each "SOBJ" copied child by child.
bool KynSampleCopier::copyByObject(KynFile& in, int64_t offset, const KynHeader& sample,
                                   int objects, const float* time, KynSAMSChunk& writer,
                                   KynFile& out, std::string& why) {
    why = "the new file could not be written";
    if (!writer.writeStartSAMPChunk(out, objects, time)) return false;
    const int64_t end = offset + 16 + sample.length;
    int written = 0;
    for (int64_t at = offset + 16; at < end;) {
        KynHeader c;
        if (!in.seek(at, SEEK_SET, true) || !in.readHeader(c) || c.length < 0 ||
            c.length > end - at - 16) {
            why = "a chunk runs past the end of the sample";
            return false;
        }
        if (c.tag == kTagSOBJ) {
            if (written == objects || !writer.writeStartSOBJChunk(out)) return false;
            for (int64_t child = at + 16; child < at + 16 + c.length;)
                if (!copyChunk(in, child, out, child, 1)) return false;
            if (!writer.writeEndSOBJChunk(out)) return false;
            ++written;
        }
        at += 16 + c.length;
    }
    if (written != objects) {
        why = "it holds " + std::to_string(written) + " objects, not " + std::to_string(objects);
        return false;
    }
    return writer.writeEndSAMPChunk(out);
}

// Copies the chunk at `offset`, `depth` groups deep, its payload as one block (a group of 2 GiB
// or more child by child), and sets `end` behind it.
bool KynSampleCopier::copyChunk(KynFile& in, int64_t offset, KynFile& out, int64_t& end,
                                std::size_t depth) {
    KynHeader c;
    if (!in.seek(offset, SEEK_SET, true) || !in.readHeader(c) || c.length < 0) return false;
    end = offset + 16 + c.length;
    if (c.length <= kMaxBlock) {
        if (!in.canRead(c.length)) return false;
        if (int64_t(buffer.size()) < c.length) buffer.resize(std::size_t(c.length));
        return in.readData(c, buffer.data()) && out.writeChunk(c, buffer.data(), -1);
    }
    if (c.type != kTypeGroup || depth >= kMaxGroupDepth || !out.startGroup(c)) return false;
    for (int64_t child = offset + 16; child < end;)
        if (!copyChunk(in, child, out, child, depth + 1)) return false;
    return out.endGroup();
}

}  // namespace Kyn
