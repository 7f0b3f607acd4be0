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
Kyn::KynChunk* leafOf(const ChunkSpec& spec) {
    const T* first = static_cast<const T*>(spec.array.data());
    return new Kyn::KynLeafChunk<T>(spec.tag, spec.compound, spec.dimension,
                                    std::vector<T>(first, first + spec.array.size()));
}

}  // namespace

ChunkSpec chunkSpec(const py::handle& item) {
    const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
    ChunkSpec spec;
    spec.tag = tagOf(py::cast<std::string>(fields[0]));
    spec.compound = py::cast<unsigned char>(fields[2]);
    spec.dimension = py::cast<unsigned char>(fields[3]);
    if (py::isinstance<py::list>(fields[1])) {
        spec.type = Kyn::kTypeCstr;
        spec.strings = py::cast<std::vector<std::string>>(fields[1]);
        return spec;
    }
    spec.array = py::reinterpret_borrow<py::array>(fields[1]);
    if (!(spec.array.flags() & py::array::c_style))
        throw py::value_error("values must be C-contiguous");
    spec.type = typeOf(spec.array);
    return spec;
}

std::vector<ChunkSpec> chunkSpecs(const py::handle& items) {
    std::vector<ChunkSpec> specs;
    for (const py::handle item : items) specs.push_back(chunkSpec(item));
    return specs;
}

std::vector<AttributeSpec> attributeSpecs(const py::handle& items) {
    std::vector<AttributeSpec> specs;
    for (const py::handle item : items) {
        const py::tuple fields = py::reinterpret_borrow<py::tuple>(item);
        AttributeSpec spec{py::cast<std::string>(fields[0]), py::cast<std::string>(fields[1]), {}};
        if (!fields[2].is_none()) spec.value = chunkSpec(fields[2]);
        specs.push_back(std::move(spec));
    }
    return specs;
}

Kyn::KynChunk* newLeaf(const ChunkSpec& spec) {
    switch (spec.type) {
        case Kyn::kTypeInt32:
            return leafOf<int>(spec);
        case Kyn::kTypeInt64:
            return leafOf<long>(spec);
        case Kyn::kTypeFloat:
            return leafOf<float>(spec);
        case Kyn::kTypeDouble:
            return leafOf<double>(spec);
        default:
            return new Kyn::KynLeafChunk<std::string>(spec.tag, spec.compound, spec.dimension,
                                                      spec.strings);
    }
}

bool writeLeaf(Kyn::KynFile& file, const ChunkSpec& spec) {
    if (spec.type == Kyn::kTypeCstr)
        return file.writeChunk(spec.tag, spec.strings, -1, spec.compound, spec.dimension);
    Kyn::KynHeader header;
    header.tag = spec.tag;
    header.type = spec.type;
    header.compound = spec.compound;
    header.dimension = spec.dimension;
    header.length = static_cast<int64_t>(spec.array.nbytes());
    return file.writeChunk(header, header.length ? spec.array.data() : nullptr, -1);
}

void describeObject(Kyn::KynDOBJChunk& object, const std::vector<ChunkSpec>& chunks,
                    const std::vector<AttributeSpec>& fixed,
                    const std::vector<AttributeSpec>& animated) {
    for (const ChunkSpec& chunk : chunks) object.children.push_back(newLeaf(chunk));
    if (fixed.empty() && animated.empty()) return;
    if (object.datr == nullptr) object.datr = new Kyn::KynDATRChunk();
    for (const AttributeSpec& attribute : animated)
        object.datr->addAttr(true, attribute.name, attribute.label, Kyn::kTypeUndef, 0, 0);
    for (const AttributeSpec& attribute : fixed) {
        const ChunkSpec& value = attribute.value;
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
