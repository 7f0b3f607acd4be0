// The entry points: the format from the extension, then the converter of that format.
#include "KynExchange.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "ExchangeCommon.h"

namespace Kyn {

namespace {

std::string lowerExtension(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string extension = path.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// A whole non-negative number that fits an int; false for anything else.
bool parseIndex(const std::string& text, int& value) {
    if (text.empty() || text.size() > 9 ||
        !std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); }))
        return false;
    value = std::atoi(text.c_str());
    return true;
}

}  // namespace

KynExchangeFormat kynExchangeFormatOf(const std::string& path) {
    const std::string extension = lowerExtension(path);
    if (extension == "glb") return KynExchangeFormat::kGlb;
    if (extension == "pc2") return KynExchangeFormat::kPc2;
    if (extension == "obj") return KynExchangeFormat::kObj;
    if (extension == "ply") return KynExchangeFormat::kPly;
    return KynExchangeFormat::kUnknown;
}

KynExchangeResult kynExport(const std::string& cachePath, const std::string& outPath,
                            const KynExportOptions& options) {
    KynExchangeResult result;
    const KynExchangeFormat format = kynExchangeFormatOf(outPath);
    if (format == KynExchangeFormat::kUnknown) {
        result.error = "cannot tell the format of " + outPath +
                       " from its extension: use .glb, .pc2, .obj or .ply";
        return result;
    }
    // One sample at a time: every converter reads samples in order, object by object.
    KynRoMemCache cache;
    if (!exchange::openCache(cache, cachePath, 1, result.error)) return result;
    switch (format) {
        case KynExchangeFormat::kGlb:
            return exchange::exportGlb(cache, outPath, options);
        case KynExchangeFormat::kPc2:
            return exchange::exportPc2(cache, outPath, options);
        default:
            return exchange::exportSequence(cache, outPath, options,
                                            format == KynExchangeFormat::kPly);
    }
}

KynExchangeResult kynImport(const std::string& inPath, const std::string& cachePath,
                            const KynImportOptions& options) {
    switch (kynExchangeFormatOf(inPath)) {
        case KynExchangeFormat::kPc2:
            return exchange::importPc2(inPath, cachePath, options);
        case KynExchangeFormat::kObj:
            return exchange::importObj(inPath, cachePath, options);
        default: {
            KynExchangeResult result;
            result.error = "cannot import " + inPath +
                           ": give a .pc2 file or the first file of a numbered .obj sequence";
            return result;
        }
    }
}

bool kynParseSampleRange(const std::string& text, int& first, int& last) {
    const std::size_t colon = text.find(':');
    int a = 0, b = -1;
    if (colon == std::string::npos) {
        if (!parseIndex(text, a)) return false;
        b = a;
    } else {
        const std::string left = text.substr(0, colon), right = text.substr(colon + 1);
        if (left.empty() && right.empty()) return false;
        if (!left.empty() && !parseIndex(left, a)) return false;
        if (!right.empty() && (!parseIndex(right, b) || b < a)) return false;
    }
    first = a;
    last = b;
    return true;
}

}  // namespace Kyn
