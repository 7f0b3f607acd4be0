// Reads a chunk tree from arbitrary bytes: the magic chunk, the metadata, then every further
// top-level chunk through the generic classes; each tree read is printed and copied.
#include <memory>

#include "FuzzInput.h"
#include "KynChunks.h"

using namespace Kyn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    FuzzFile input(data, size);
    if (!input.ok()) return 0;
    Silence out(std::cout);
    Silence err(std::cerr);
    KynFile file;
    if (!file.open(input.c_str(), "r")) return 0;
    KynHeader header;
    KynDKYNChunk dkyn;
    if (file.readHeader(header)) dkyn.read(header, file);
    KynMETAChunk meta;
    if (file.readHeader(header) && meta.read(header, file)) meta.print(std::cout, 0);
    for (int chunks = 0; chunks < 64 && file.readHeader(header); ++chunks) {
        std::unique_ptr<KynChunk> chunk(KynChunk::create(header.tag, header.type));
        if (!chunk->read(header, file)) break;
        chunk->print(std::cout, 0);
        std::unique_ptr<KynChunk> copy(KynChunk::copy(chunk.get()));
    }
    return 0;
}
