// kyn2txt: a text dump of every chunk of a file, in file order, one line a chunk. It walks the
// flat run of headers, so it also dumps files that the cache loader refuses. The nesting of a
// line is the depth of the open-group stack after the chunk before it.
#include <iostream>
#include <memory>

#include "KynChunks.h"
#include "KynLog.h"
#include "kynUtils.h"

using namespace Kyn;

int kyn2txt(const char* path) {
    const char* name = path != nullptr ? path : "";
    if (!KynFile::isKynFile(path)) {
        KYN_UTIL_ERROR("kyn2txt", name << ": is not a valid KYN file");
        return -1;
    }
    KynFile file;
    if (!file.open(path, "r")) {
        KYN_UTIL_ERROR("kyn2txt", name << ": could not open file");
        return -1;
    }
    std::ostream& out = std::cout;
    KynHeader header;
    int depth = 0;
    int sampleCount = 0;
    int objectCount = 0;
    int objectTotal = 0;
    while (file.readHeader(header)) {
        if (header.type == kTypeGroup || header.length == 0) {
            printIndent(out, depth);
            header.print(out) << " : ";
            if (header.tag == kTagSAMP) {
                out << '#' << sampleCount++;
                objectCount = 0;
            } else if (header.tag == kTagSOBJ) {
                out << '#' << objectCount++;
            } else if (header.tag == kTagDOBJ) {
                objectTotal = objectCount + 1;
                out << '#' << objectCount++;
            }
        } else {
            std::unique_ptr<KynChunk> chunk(KynChunk::create(header.tag, header.type));
            if (!chunk->read(header, file)) {
                KYN_UTIL_ERROR("kyn2txt", name << ": error reading leaf chunk");
                return -1;
            }
            chunk->print(out, depth);
        }
        depth = static_cast<int>(file.groupStack.size());
        out << std::endl;
    }
    if (!file.close()) {
        KYN_UTIL_ERROR("kyn2txt", name << ": error closing file");
        return -1;
    }
    if (objectCount != objectTotal) {
        KYN_UTIL_ERROR("kyn2txt", "Number of SOBJ not match number of DOBJ");
        return -1;
    }
    return 0;
}
