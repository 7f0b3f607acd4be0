// Chunks from Python values, for the writer and the editable cache. The pure-Python side
// checks names, dtypes and shapes and hands over, per chunk, a tuple (tag, value, compound,
// dimension): the tag as four characters, the value a C-contiguous numpy array of int32,
// int64, float32 or float64, or a list of strings.
#ifndef KYN_PYTHON_CHUNKS_H
#define KYN_PYTHON_CHUNKS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "KynChunks.h"

namespace kynpy {

namespace py = pybind11;

struct LeafData {
    unsigned tag = 0;
    unsigned char type = Kyn::kTypeUndef;
    unsigned char compound = 0;
    unsigned char dimension = 0;
    py::array array;                   // numeric values
    std::vector<std::string> strings;  // string values, when type is cstr
};

// An attribute: its name, its free-text type label and, for a static one, its value.
struct AttributeData {
    std::string name;
    std::string label;
    LeafData value;
};

LeafData leafData(const py::handle& item);
std::vector<LeafData> leafDataList(const py::handle& items);
// (name, label, value) tuples; the value is a chunk tuple, or None for a declaration alone.
std::vector<AttributeData> attributeDataList(const py::handle& items);

// A new leaf that holds a copy of the value.
Kyn::KynChunk* newLeaf(const LeafData& leaf);
// Writes the chunk straight from the array's memory (or the strings) at the current position.
bool writeLeaf(Kyn::KynFile& file, const LeafData& leaf);
// Adds the static chunks and attributes, and the animated attributes' names, to an object.
void describeObject(Kyn::KynDOBJChunk& object, const std::vector<LeafData>& chunks,
                    const std::vector<AttributeData>& fixed,
                    const std::vector<AttributeData>& animated);

}  // namespace kynpy

#endif
