// The values of a chunk of any element type, for `cat` to print and `diff` to compare.
#ifndef KYN_VALUES_H
#define KYN_VALUES_H

#include <string>
#include <vector>

#include "Command.h"
#include "KynChunks.h"

namespace kyncli {

// Calls `visit(values)` with the element vector of a leaf, whatever its type; false for a group
// or a chunk of unknown type, which hold none.
template <class Visit>
bool visitLeaf(const Kyn::KynChunk* chunk, Visit&& visit) {
    using namespace Kyn;
    if (chunk == nullptr) return false;
    switch (chunk->header.type) {
        case kTypeUndef:
            if (auto* leaf = dynamic_cast<const KynLeafChunk<char>*>(chunk))
                return visit(leaf->data), true;
            return false;
        case kTypeCstr:
            if (auto* leaf = dynamic_cast<const KynLeafChunk<std::string>*>(chunk))
                return visit(leaf->data), true;
            return false;
        case kTypeInt32:
            if (auto* leaf = dynamic_cast<const KynLeafChunk<int>*>(chunk))
                return visit(leaf->data), true;
            return false;
        case kTypeFloat:
            if (auto* leaf = dynamic_cast<const KynLeafChunk<float>*>(chunk))
                return visit(leaf->data), true;
            return false;
        case kTypeInt64:
            if (auto* leaf = dynamic_cast<const KynLeafChunk<long>*>(chunk))
                return visit(leaf->data), true;
            return false;
        case kTypeDouble:
            if (auto* leaf = dynamic_cast<const KynLeafChunk<double>*>(chunk))
                return visit(leaf->data), true;
            return false;
        default:
            return false;
    }
}

// One value as text and as JSON: numbers as short as they read back, strings as they are,
// raw bytes as two hex digits.
std::string valueText(int value);
std::string valueText(long value);
std::string valueText(float value);
std::string valueText(double value);
std::string valueText(const std::string& value);
std::string valueText(char value);
Json valueJson(int value);
Json valueJson(long value);
Json valueJson(float value);
Json valueJson(double value);
Json valueJson(const std::string& value);
Json valueJson(char value);

// How many values make one item of a chunk with this dimension code: a tuple of 2, 3 or 4, a
// matrix row of 3 or 4; 1 for scalars.
int itemWidth(unsigned char dimension);

// "float point 3d": the type, compound and dimension names of a header, those that are set.
std::string typeWords(const Kyn::KynHeader& header);

// A value for a CSV field: quoted when it holds a comma, a quote or a line break.
std::string csvField(const std::string& text);

}  // namespace kyncli

#endif
