// Locators and coordinate systems. A coordinate system's four settings are attributes read at
// sample 0 as fixed properties; a missing, mistyped or empty attribute gives the default.
#include "KynHelper.h"
#include "KynKinds.h"

namespace Kyn {

namespace {

// The attribute's index, or -1 when the object has no such attribute.
int attrIndexOf(const KynHelperObj& view, const char* name) {
    const KynDATRChunk* table = view.attrTable();
    return table != nullptr ? table->findAttr(name) : -1;
}

// The first element of an int32 attribute, read at sample 0, or `fallback`.
int firstInt(KynHelperObj& view, const char* name, int fallback) {
    const int index = attrIndexOf(view, name);
    if (index < 0) return fallback;
    const std::vector<int>* data = nullptr;
    int dimension = 0;
    if (!view.getAttrData(0, index, data, dimension) || data->empty()) return fallback;
    return data->front();
}

// The first string of a cstr attribute, read at sample 0, or the empty string.
std::string firstString(KynHelperObj& view, const char* name) {
    const int index = attrIndexOf(view, name);
    if (index < 0) return std::string();
    const std::vector<std::string>* data = nullptr;
    if (!view.getAttrData(0, index, data) || data->empty()) return std::string();
    return data->front();
}

}  // namespace

LocatorKynObj::LocatorKynObj(KynRoMemCache* cache, int objectIndex)
    : KynHelperObj(cache, objectIndex) {
    kinds.insert(kinds.end(), locator);
}

LocatorKynObj::~LocatorKynObj() = default;

LxCoordSystemKynObj::LxCoordSystemKynObj(KynRoMemCache* cache, int objectIndex)
    : KynHelperObj(cache, objectIndex) {
    kinds.insert(kinds.end(), lxcoordsystem);
}

LxCoordSystemKynObj::~LxCoordSystemKynObj() = default;

bool LxCoordSystemKynObj::scoped() {
    return firstInt(*this, "scoped", 1) != 0;
}

bool LxCoordSystemKynObj::useAsClippingPlane() {
    return firstInt(*this, "useAsClippingPlane", 1) != 0;
}

int LxCoordSystemKynObj::displayShape() {
    return firstInt(*this, "displayShape", 1);
}

std::string LxCoordSystemKynObj::parentRig() {
    return firstString(*this, "parentRig");
}

}  // namespace Kyn
