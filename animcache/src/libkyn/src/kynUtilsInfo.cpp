// kyninfo: a summary of a cache file for a person to read.
//
// The file-wide values come first; then, per object, its name, one line for its kind (matrix,
// mesh, locator, coordinate system, NURBS curve or surface, the first tag found deciding), and
// one line per dynamic attribute. Per-object data is taken from the first sample.
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <string>

#include "KynLog.h"
#include "KynRoMemCache.h"
#include "kynUtils.h"

using namespace Kyn;

namespace {

std::string tagText(unsigned tag) {
    return std::string(reinterpret_cast<const char*>(&tag), sizeof(tag));
}

template <class T>
std::string formatted(const char* format, T value) {
    char text[64];
    std::snprintf(text, sizeof(text), format, value);
    return text;
}

// " <type> <compound> <dimension>", each name only when its code is not 0.
std::string codeNames(const KynHeader& h) {
    std::string text;
    if (h.type != 0) text += kynTypeName(h.type);
    if (h.compound != 0) text += std::string(" ") + kynCompoundName(h.compound);
    if (h.dimension != 0) text += std::string(" ") + kynDimensionName(h.dimension);
    return text;
}

// The values of one leaf, each with a blank in front and a comma between, each converted to
// the type that `format` expects.
template <class T, class Printed = T>
std::string listOf(const KynChunk* chunk, const char* format) {
    std::string text;
    const auto* leaf = dynamic_cast<const KynLeafChunk<T>*>(chunk);
    if (leaf == nullptr) return text;
    for (std::size_t i = 0; i < leaf->data.size(); ++i) {
        text += " " + formatted(format, static_cast<Printed>(leaf->data[i]));
        if (i + 1 < leaf->data.size()) text += ",";
    }
    return text;
}

// Floating-point values: an array of points or vectors is told by its size.
template <class T>
std::string floatingText(const KynChunk* chunk) {
    const auto* leaf = dynamic_cast<const KynLeafChunk<T>*>(chunk);
    if (leaf == nullptr) return std::string();
    const int count = static_cast<int>(leaf->data.size());
    const int dimension = chunk->header.dimension;
    if (count >= 2 && (dimension == 3 || dimension == 4))
        return " size= " + formatted("%d", count / dimension);
    return listOf<T, double>(chunk, "%g");
}

std::string valueText(const KynChunk* chunk) {
    switch (chunk->header.type) {
        case kTypeCstr: {
            std::string text;
            if (const auto* leaf = dynamic_cast<const KynLeafChunk<std::string>*>(chunk)) {
                for (const std::string& value : leaf->data) text += " '" + value + "'";
            }
            return text;
        }
        case kTypeInt32:
            return listOf<int>(chunk, "%i");
        case kTypeFloat:
            return floatingText<float>(chunk);
        case kTypeInt64:
            return listOf<long, long long>(chunk, "%lli");
        case kTypeDouble:
            return floatingText<double>(chunk);
        default:
            return std::string();
    }
}

// Matrix values in bracketed rows of four; a count that is no multiple of four leaves the
// last row open.
template <class T>
std::string matrixRows(const KynChunk* chunk) {
    std::string text;
    const auto* leaf = dynamic_cast<const KynLeafChunk<T>*>(chunk);
    if (leaf == nullptr) return text;
    int column = 0;
    for (T value : leaf->data) {
        if (column == 0) text += " [";
        text += formatted("%g", static_cast<double>(value));
        if (column == 3) {
            text += "]";
            column = 0;
        } else {
            text += ",";
            ++column;
        }
    }
    return text;
}

class Report {
  public:
    Report(KynRoMemCache& cache, int sample) : cache(cache), sample(sample) {}

    std::string kindLine(int object);
    void attributeLines(int object);

  private:
    std::string matrixLine(int object);
    std::string vertexText(int object);

    KynRoMemCache& cache;
    int sample;
};

std::string Report::vertexText(int object) {
    bool animated = false;
    if (cache.getObjectData(sample, object, kTagPOSI, &animated) == nullptr) return std::string();
    return " with " + formatted("%d", cache.getNumVertices(sample, object)) +
           (animated ? " animated vertices" : " static vertices");
}

std::string Report::matrixLine(int object) {
    bool animated = false;
    const KynChunk* matrix = cache.getObjectData(sample, object, kTagMTRX, &animated);
    if (matrix == nullptr) return std::string();
    const unsigned char type = matrix->header.type;
    std::string line =
        "  " + tagText(matrix->header.tag) + (animated ? ": animated " : ": static ");
    line += codeNames(matrix->header);
    if (type == kTypeFloat) line += matrixRows<float>(matrix);
    if (type == kTypeDouble) line += matrixRows<double>(matrix);
    // An animated matrix shows the first sample only.
    if ((type == kTypeFloat || type == kTypeDouble) && animated) line += ", ...";
    return line;
}

std::string Report::kindLine(int object) {
    if (cache.objectHas(object, kTagMTRX)) return matrixLine(object);
    if (cache.objectHas(object, kTagMESH)) {
        std::string line =
            cache.isObjectAnimated(object, kTagMESH) ? "  MESH: animated (varying) " : "  MESH: ";
        line += "mesh topology, ";
        const auto* shape = dynamic_cast<const KynLeafChunk<int>*>(
            cache.getObjectData(sample, object, kTagMSPT, nullptr));
        if (shape && !shape->data.empty())
            line += shape->data[0] != 0 ? "MSPT: poly" : "MSPT: subd";
        return line + vertexText(object);
    }
    if (cache.objectHas(object, kTagELOC)) {
        return std::string("  ELOC: ") +
               (cache.isObjectAnimated(object, kTagELOC) ? "animated locator" : "locator");
    }
    if (cache.objectHas(object, kTagLXCS)) {
        return std::string("  LXCS: ") + (cache.isObjectAnimated(object, kTagLXCS)
                                              ? "animated lxCoordSystem"
                                              : "lxCoordSystem");
    }
    if (cache.objectHas(object, kTagNRBC)) {
        std::string line = "  NRBC: ";
        line += cache.isObjectAnimated(object, kTagNRBC) ? "animated (varying) " : " ";
        return line + "nurbs curve topology" + vertexText(object);
    }
    if (cache.objectHas(object, kTagNRBS)) {
        // A surface line carries no tag, and its animation is asked of the curve tag: both are
        // the report's settled form.
        std::string line = cache.isObjectAnimated(object, kTagNRBC) ? "animated (varying) " : " ";
        return line + "nurbs surface topology" + vertexText(object);
    }
    return std::string();
}

void Report::attributeLines(int object) {
    const KynDOBJChunk* dobj = cache.meta.objects[static_cast<std::size_t>(object)];
    if (dobj == nullptr || dobj->datr == nullptr) return;
    const KynDATRChunk* datr = dobj->datr;
    const int count = datr->getNumAttrs();
    if (count < 1) return;
    std::cout << "  number of attributes: " << count << '\n';
    const int width = count <= 9 ? 1 : (count > 99 ? 4 : 2);
    // An attribute whose value cannot be found shows the text of the one before it.
    std::string line;
    for (int j = 0; j < count; ++j) {
        const bool animated = datr->isAnimated(j);
        if (const KynChunk* value = cache.getAttrData(sample, object, j)) {
            line = " " + tagText(value->header.tag) + (animated ? ": animated" : ":");
            if (value->header.type != 0) line += " ";
            line += codeNames(value->header) + valueText(value);
        }
        std::cout << "    attribute[" << std::setw(width) << j << "]"
                  << " NAME: '" << datr->getAttrName(j) << "'"
                  << " TYPE: '" << datr->getAttrType(j) << "'" << line << '\n';
    }
}

int indexWidth(std::size_t count) {
    if (count <= 9) return 1;
    if (count <= 99) return 2;
    if (count <= 999) return 3;
    if (count <= 9999) return 4;
    return 6;
}

// The file-wide lines; answers the sample that per-object data is taken from.
int printFileLines(KynRoMemCache& cache) {
    const KynMETAChunk& meta = cache.meta;
    std::cout << "KYN file version " << static_cast<long long>(cache.dkyn.version) << '\n';
    if (!meta.application.empty()) std::cout << "application: " << meta.application << '\n';
    if (!meta.sourceFile.empty()) std::cout << "source file: " << meta.sourceFile << '\n';
    if (meta.date != 0) {
        const std::time_t date = static_cast<std::time_t>(meta.date);
        const std::tm* local = std::localtime(&date);
        const char* text = local ? std::asctime(local) : nullptr;
        // A stamp beyond the calendar's range is shown as its number of seconds.
        if (text)
            std::cout << "date stamp: " << text;
        else
            std::cout << "date stamp: " << meta.date << '\n';
    }
    const int numSamples = static_cast<int>(meta.numSamples);
    std::cout << "number of time samples: " << numSamples << '\n';
    int sample = -1;
    if (numSamples == 0) {
        std::cout << "static file" << '\n';
    } else {
        sample = cache.getSampleIndex(meta.firstTime);
        std::cout << "first frame: " << meta.firstTime << '\n';
        std::cout << "last frame: " << meta.lastTime << '\n';
        std::cout << "sampling rate: ";
        if (meta.rate == 0.0f)
            std::cout << "nonuniform";
        else if (meta.rate == 1.0f)
            std::cout << "1 sample per frame";
        else
            std::cout << meta.rate << " samples per frame";
        std::cout << '\n';
    }
    std::cout << "space: ";
    if (meta.space == 0)
        std::cout << "world";
    else if (meta.space == 1)
        std::cout << "object";
    else
        std::cout << "unknown (" << meta.space << ")";
    std::cout << '\n';
    std::cout << "\nnumber of objects: " << meta.objects.size() << '\n';
    return sample;
}

}  // namespace

int kyninfo(const char* fileName) {
    KynRoMemCache cache;
    if (!cache.load(fileName, true)) {
        KYN_UTIL_ERROR("kyninfo", (fileName ? fileName : "") << ": could not open file");
        return -1;
    }
    Report report(cache, printFileLines(cache));
    const std::size_t count = cache.meta.objects.size();
    const int width = indexWidth(count);
    for (std::size_t i = 0; i < count; ++i) {
        const int object = static_cast<int>(i);
        const KynDOBJChunk* dobj = cache.meta.objects[i];
        std::cout << "object[" << std::setw(width) << object
                  << "] name: " << (dobj ? dobj->name : std::string()) << '\n';
        const std::string kind = report.kindLine(object);
        if (!kind.empty()) std::cout << kind << '\n';
        report.attributeLines(object);
    }
    std::cout << std::flush;
    return 0;
}
