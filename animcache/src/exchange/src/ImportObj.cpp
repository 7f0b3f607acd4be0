// Import of a numbered OBJ sequence into a cache of one polygon mesh: the faces of the first
// file, stored once, and the positions of every file, one sample per frame. The files are read
// one at a time.
//
// A sequence is found from its first file: the last run of digits in the file's name is the
// frame, and the next files have the frames that follow, with the same zero padding, until a
// number is missing. A name without digits is a sequence of one file, at frame 1.
#include <unistd.h>

#include <tiny_obj_loader.h>
#include <cctype>

#include "CacheWriter.h"
#include "ExchangeCommon.h"

namespace Kyn {
namespace exchange {

namespace {

struct Sequence {
    std::vector<std::string> files;
    long firstFrame = 1;
    std::string stem;  // the name around the number, for the object's name
};

Sequence findSequence(const std::string& first) {
    Sequence sequence;
    sequence.files.push_back(first);
    const std::size_t slash = first.rfind('/');
    const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    const std::size_t dot = first.rfind('.');
    const std::size_t stemEnd = dot == std::string::npos || dot < nameStart ? first.size() : dot;
    std::size_t end = stemEnd;
    while (end > nameStart && !std::isdigit(static_cast<unsigned char>(first[end - 1]))) --end;
    std::size_t begin = end;
    while (begin > nameStart && std::isdigit(static_cast<unsigned char>(first[begin - 1]))) --begin;
    const std::string digits = first.substr(begin, end - begin);
    sequence.stem = first.substr(nameStart, begin - nameStart) + first.substr(end, stemEnd - end);
    if (digits.empty() || digits.size() > 9) return sequence;
    sequence.firstFrame = std::stol(digits);
    const int width = digits.size() > 1 && digits[0] == '0' ? int(digits.size()) : 0;
    for (long frame = sequence.firstFrame + 1;; ++frame) {
        char number[32];
        std::snprintf(number, sizeof(number), "%0*ld", width, frame);
        const std::string next = first.substr(0, begin) + number + first.substr(end);
        if (access(next.c_str(), F_OK) != 0) break;
        sequence.files.push_back(next);
    }
    return sequence;
}

std::string nameFromStem(std::string stem) {
    while (!stem.empty() && (stem.back() == '.' || stem.back() == '_' || stem.back() == '-'))
        stem.pop_back();
    return "|" + (stem.empty() ? std::string("mesh") : stem);
}

// One OBJ file: its positions and its faces, all groups and objects of the file together.
struct ObjFrame {
    std::vector<float> positions;
    std::vector<int> counts, ids;
    bool hasNormalsOrUvs = false;
    bool hasLinesOrPoints = false;
};

bool readObj(const std::string& path, ObjFrame& frame, std::string& error) {
    tinyobj::attrib_t attrib;
    std::vector<tinyobj::shape_t> shapes;
    std::vector<tinyobj::material_t> materials;
    std::string warnings, errors;
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "./" : path.substr(0, slash + 1);
    if (!tinyobj::LoadObj(&attrib, &shapes, &materials, &warnings, &errors, path.c_str(),
                          directory.c_str(), false)) {
        error = "cannot read " + path + ": " + (errors.empty() ? "not an OBJ file" : errors);
        while (!error.empty() && error.back() == '\n') error.pop_back();
        return false;
    }
    frame.positions.assign(attrib.vertices.begin(), attrib.vertices.end());
    frame.counts.clear();
    frame.ids.clear();
    const std::size_t vertices = frame.positions.size() / 3;
    for (const tinyobj::shape_t& shape : shapes) {
        for (unsigned char count : shape.mesh.num_face_vertices) frame.counts.push_back(count);
        for (const tinyobj::index_t& index : shape.mesh.indices) {
            if (index.vertex_index < 0 || std::size_t(index.vertex_index) >= vertices) {
                error = "cannot import " + path + ": a face names vertex " +
                        std::to_string(index.vertex_index + 1) + " of " + std::to_string(vertices);
                return false;
            }
            frame.ids.push_back(index.vertex_index);
        }
        frame.hasLinesOrPoints =
            frame.hasLinesOrPoints || !shape.lines.indices.empty() || !shape.points.indices.empty();
    }
    frame.hasNormalsOrUvs = !attrib.normals.empty() || !attrib.texcoords.empty();
    return true;
}

}  // namespace

KynExchangeResult importObj(const std::string& in, const std::string& out,
                            const KynImportOptions& options) {
    KynExchangeResult result;
    const Sequence sequence = findSequence(in);
    const std::string name =
        options.objectName.empty() ? nameFromStem(sequence.stem) : options.objectName;
    ObjFrame first;
    if (!readObj(in, first, result.error)) return result;
    const std::size_t vertices = first.positions.size() / 3;
    if (vertices == 0) {
        result.error = "cannot import " + in + ": it holds no vertices";
        return result;
    }

    Notes dropped(result.dropped);
    CacheWriter writer(name, in);
    KynDOBJChunk& object = writer.object();
    if (!first.counts.empty()) {
        object.children.push_back(new KynLeafChunk<int>(kTagMESH, std::vector<int>{1}));
        object.children.push_back(new KynLeafChunk<int>(kTagMSPT, std::vector<int>{1}));
        object.children.push_back(new KynLeafChunk<int>(kTagPCNT, first.counts));
        object.children.push_back(new KynLeafChunk<int>(kTagPIDS, first.ids));
    }
    const int64_t count = int64_t(sequence.files.size());
    if (!writer.start(out, count, float(sequence.firstFrame), 1.0f, result.error)) return result;

    Progress progress(options.progress, count);
    ObjFrame frame;
    bool facesDiffer = false;
    for (std::size_t f = 0; f < sequence.files.size(); ++f) {
        const std::string& path = sequence.files[f];
        const long number = sequence.firstFrame + long(f);
        if (f > 0 && !readObj(path, frame, result.error)) return result;
        const ObjFrame& current = f == 0 ? first : frame;
        if (current.positions.size() != first.positions.size()) {
            result.error = "cannot import frame " + std::to_string(number) + " (" + path +
                           "): it has " + std::to_string(current.positions.size() / 3) +
                           " vertices where " + in + " has " + std::to_string(vertices) +
                           "; an OBJ sequence must keep its vertex count";
            return result;
        }
        if (!facesDiffer && (current.counts != first.counts || current.ids != first.ids)) {
            facesDiffer = true;
            dropped.add(name, "the faces of frame " + std::to_string(number) +
                                  " and maybe later ones differ from the first file's, "
                                  "whose faces are kept");
        }
        if (current.hasNormalsOrUvs)
            dropped.add(name, "normals and texture coordinates of OBJ files are not imported");
        if (current.hasLinesOrPoints)
            dropped.add(name, "lines and points of OBJ files are not imported");
        if (!writer.sample(current.positions.data(), vertices, result.error)) return result;
        progress.step();
    }
    if (!writer.finish(result.error)) return result;
    progress.finish();
    result.files.push_back(out);
    result.objects.push_back(name);
    result.samples = count;
    return result;
}

}  // namespace exchange
}  // namespace Kyn
