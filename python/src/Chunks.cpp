#include "Chunks.h"

namespace kynpy {

namespace {

unsigned tagOf(const std::string& text) {
    if (text.size() != 4) throw py::value_error("a tag has four characters, not '" + text + "'");
    return unsigned(static_cast<unsigned char>(text[0])) |
           (unsigned(static_cast<unsigned char>(text[1])) << 8) |
           (unsigned(static_cast<unsigned char>(text[2])) << 16) |
           (unsigned(static_cast<unsigned char>(text[3])) << 24);
}

unsigned char typeOf(const py::array& array) {
    const py::dtype dtype = array.dtype();
    if (dtype.is(py::dtype::of<int32_t>())) return Kyn::kTypeInt32;
    if (dtype.is(py::dtype::of<int64_t>())) return Kyn::kTypeInt64;
    if (dtype.is(py::dtype::of<float>())) return Kyn::kTypeFloat;
    if (dtype.is(py::dtype::of<double>())) return Kyn::kTypeDouble;
    throw py::type_error("values must be int32, int64, float32 or float64, not " +
                         std::string(py::str(dtype.attr("name"))));
}

template <class T>
Kyn::KynChunk* leafOf(const LeafData& leaf) {
    const T* first = static_cast<const T*>(leaf.array.data());
    return new Kyn::KynLeafChunk<T>(leaf.tag, leaf.compound, leaf.dimension,
                                    std::vector<T>(first, first + leaf.array.size()));
}

}  // namespace

LeafData leafData(const py::handle& item) {
    const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
    LeafData leaf;
    leaf.tag = tagOf(py::cast<std::string>(fields[0]));
    leaf.compound = py::cast<unsigned char>(fields[2]);
    leaf.dimension = py::cast<unsigned char>(fields[3]);
    if (py::isinstance<py::list>(fields[1])) {
        leaf.type = Kyn::kTypeCstr;
        leaf.strings = py::cast<std::vector<std::string>>(fields[1]);
        return leaf;
    }
    leaf.array = py::reinterpret_borrow<py::array>(fields[1]);
    if (!(leaf.array.flags() & py::array::c_style))
        throw py::value_error("values must be C-contiguous");
    leaf.type = typeOf(leaf.array);
    return leaf;
}

std::vector<LeafData> leafDataList(const py::handle& items) {
    std::vector<LeafData> list;
    for (const py::handle item : items) list.push_back(leafData(item));
    return list;
}

std::vector<AttributeData> attributeDataList(const py::handle& items) {
    std::vector<AttributeData> list;
    for (const py::handle item : items) {
        const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
        AttributeData attribute{
            py::cast<std::string>(fields[0]), py::cast<std::string>(fields[1]), {}};
        if (!fields[2].is_none()) attribute.value = leafData(fields[2]);
        list.push_back(std::move(attribute));
    }
    return list;
}

Kyn::KynChunk* newLeaf(const LeafData& leaf) {
    switch (leaf.type) {
        case Kyn::kTypeInt32:
            return leafOf<int>(leaf);
        case Kyn::kTypeInt64:
            return leafOf<long>(leaf);
        case Kyn::kTypeFloat:
            return leafOf<float>(leaf);
        case Kyn::kTypeDouble:
            return leafOf<double>(leaf);
        default:
            return new Kyn::KynLeafChunk<std::string>(leaf.tag, leaf.compound, leaf.dimension,
                                                      leaf.strings);
    }
}

bool writeLeaf(Kyn::KynFile& file, const LeafData& leaf) {
    if (leaf.type == Kyn::kTypeCstr)
        return file.writeChunk(leaf.tag, leaf.strings, -1, leaf.compound, leaf.dimension);
    Kyn::KynHeader header;
    header.tag = leaf.tag;
    header.type = leaf.type;
    header.compound = leaf.compound;
    header.dimension = leaf.dimension;
    header.length = static_cast<int64_t>(leaf.array.nbytes());
    return file.writeChunk(header, header.length ? leaf.array.data() : nullptr, -1);
}

void describeObject(Kyn::KynDOBJChunk& object, const std::vector<LeafData>& chunks,
                    const std::vector<AttributeData>& fixed,
                    const std::vector<AttributeData>& animated) {
    for (const LeafData& chunk : chunks) object.children.push_back(newLeaf(chunk));
    if (fixed.empty() && animated.empty()) return;
    if (object.datr == nullptr) object.datr = new Kyn::KynDATRChunk();
    for (const AttributeData& attribute : animated)
        object.datr->addAttr(true, attribute.name, attribute.label, Kyn::kTypeUndef, 0, 0);
    for (const AttributeData& attribute : fixed) {
        const LeafData& value = attribute.value;
        object.datr->addAttr(false, attribute.name, attribute.label, value.type, value.compound,
                             value.dimension);
        // The table appended an empty leaf of the value's type; the value takes its place.
        Kyn::KynChunk*& leaf = object.datr->atrs.children.back();
        delete leaf;
        leaf = newLeaf(value);
        leaf->header.tag = Kyn::kTagATTR;
    }
}

}  // namespace kynpy
