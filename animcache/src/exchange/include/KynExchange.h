// KynExchange: converters between cache files and glTF 2.0 binary (.glb), PC2 point caches, and
// numbered OBJ and PLY sequences.
//
// Export reads a cache through the library's public interface and writes the format that the
// output path's extension names; import turns a PC2 file or a numbered OBJ sequence into a new
// cache. Each call answers with a KynExchangeResult that lists the files written and, object by
// object, what the target format could not carry and why; nothing is printed. A call fails
// (non-empty `error`) only when nothing could be written; then no output file is left behind.
//
// What each format holds:
// - .glb: meshes and point sets with the faces of the first exported sample (polygons fanned
//   into triangles), per-vertex normals, and texture coordinates from a float attribute "uv" of
//   one pair per vertex; every later sample's positions as a morph target, played by a weight
//   track at the sample times (seconds = frame / framesPerSecond); transforms as node matrices,
//   or as translation, rotation and scale tracks when animated; the object paths as the node
//   tree; locators as empty nodes. The whole scene is built in memory before it is written:
//   every exported sample of every mesh, held twice while the file goes out.
// - .pc2: the positions of one object, every sample, as 32-bit floats; the first sample's time
//   and the spacing of the samples in frames. Memory: one sample of that object.
// - .obj, .ply: one file per sample, numbered by frame (or by sample index when a time is not
//   a whole frame); positions and faces of every mesh and point set as stored at that sample.
//   Memory: one sample of the largest object (and for PLY the faces of one file).
// Threads: a call uses its own cache and files and may run beside other calls.
#ifndef KYN_EXCHANGE_H
#define KYN_EXCHANGE_H

#include <cstdint>
#include <string>
#include <vector>

#include "KynProgress.h"

namespace Kyn {

enum class KynExchangeFormat { kUnknown, kGlb, kPc2, kObj, kPly };

// The format that a path's extension names, case-insensitive; kUnknown for any other.
KynExchangeFormat kynExchangeFormatOf(const std::string& path);

struct KynExportOptions {
    std::string path;             // only the object at this path and those under it; empty: all
    int firstSample = 0;          // the sample indices written, both ends included
    int lastSample = -1;          // -1: the last sample of the cache
    double framesPerSecond = 24;  // glTF animation times are seconds
    KynProgress progress;         // may be empty
};

struct KynImportOptions {
    std::string objectName;  // the object's path in the new cache; empty: "|" and the file's stem
    KynProgress progress;    // may be empty; a step is a sample
};

// One thing said about an object (empty `object`: about the whole output).
struct KynExchangeNote {
    std::string object;
    std::string text;
};

struct KynExchangeResult {
    std::string error;                     // why nothing was written, and what to do; or empty
    std::vector<std::string> files;        // the files written, in order
    std::vector<std::string> objects;      // the objects written, by path
    std::vector<KynExchangeNote> leftOut;  // objects not written, and why
    std::vector<KynExchangeNote> dropped;  // what of a written object did not fit, and why
    int64_t samples = 0;                   // samples written

    bool ok() const { return error.empty(); }
    // Everything asked for was written.
    bool complete() const { return ok() && leftOut.empty() && dropped.empty(); }
};

// Writes the cache at `cachePath`, or the objects under `options.path`, to `outPath`. For .obj
// and .ply `outPath` names the sequence: a run of '#' in it is replaced by the number, padded to
// its length; without one the number goes before the extension, four digits at least
// ("shot.obj" gives "shot.0001.obj" ...). A .pc2 takes the one object under `options.path` whose
// positions animate, or the cache's only such object.
KynExchangeResult kynExport(const std::string& cachePath, const std::string& outPath,
                            const KynExportOptions& options = {});

// Writes a new cache at `cachePath` from a .pc2 file (a point set: its positions, start and
// spacing) or from the first file of a numbered OBJ sequence ("shot.0001.obj", "shot.0002.obj",
// ... until a number is missing; frame n at time n): one polygon mesh with the faces of the first
// file and the positions of every file. A file whose vertex count differs from the first is
// refused, and so is the import.
KynExchangeResult kynImport(const std::string& inPath, const std::string& cachePath,
                            const KynImportOptions& options = {});

// Reads a sample range "A:B", "A:", ":B" or "A" (sample indices from 0, both ends included)
// into `first` and `last`; an open start is 0 and an open end -1. False on anything else,
// leaving both alone.
bool kynParseSampleRange(const std::string& text, int& first, int& last);

}  // namespace Kyn

#endif
