// Constants of the cache file format: chunk tags, type codes and the element type of each code.
//
// A tag is four ASCII characters held as one unsigned 32-bit value read little-endian, so the
// first character sits in the lowest byte: "FREE" is 0x45455246. All multi-byte values in a
// file are little-endian, fixed width, written as raw blocks.
#ifndef KYN_FORMAT_H
#define KYN_FORMAT_H

#include <cstdint>
#include <string>

namespace Kyn {

// The tag value of four characters, first character in the lowest byte.
constexpr unsigned kynTag(const char (&s)[5]) {
    return unsigned(static_cast<unsigned char>(s[0])) |
           (unsigned(static_cast<unsigned char>(s[1])) << 8) |
           (unsigned(static_cast<unsigned char>(s[2])) << 16) |
           (unsigned(static_cast<unsigned char>(s[3])) << 24);
}

// Payload type codes of a chunk header.
enum KynTypeCode : unsigned char {
    kTypeUndef = 0,   // raw bytes
    kTypeGroup = 1,   // the payload is a run of chunks
    kTypeCstr = 2,    // NUL-terminated strings
    kTypeInt32 = 3,   // signed 32-bit
    kTypeFloat = 4,   // IEEE 754 binary32
    kTypeInt64 = 5,   // signed 64-bit
    kTypeDouble = 6,  // IEEE 754 binary64
};

// The type code that stands for an element type of a leaf.
template <class T>
struct KynTypeOf;
template <>
struct KynTypeOf<char> {
    static constexpr unsigned char code = kTypeUndef;
};
template <>
struct KynTypeOf<std::string> {
    static constexpr unsigned char code = kTypeCstr;
};
template <>
struct KynTypeOf<int> {
    static constexpr unsigned char code = kTypeInt32;
};
template <>
struct KynTypeOf<float> {
    static constexpr unsigned char code = kTypeFloat;
};
template <>
struct KynTypeOf<long> {
    static constexpr unsigned char code = kTypeInt64;
};
template <>
struct KynTypeOf<double> {
    static constexpr unsigned char code = kTypeDouble;
};

// File structure.
constexpr unsigned kTagDKYN = kynTag("DKYN");  // magic chunk, first in every file
constexpr unsigned kTagMETA = kynTag("META");  // metadata group
constexpr unsigned kTagSAMS = kynTag("SAMS");  // sample stream group
constexpr unsigned kTagFREE = kynTag("FREE");  // reserved bytes in a sample stream prologue

// Metadata fields.
constexpr unsigned kTagWAPP = kynTag("WAPP");  // application name
constexpr unsigned kTagSFIL = kynTag("SFIL");  // source file name
constexpr unsigned kTagDATE = kynTag("DATE");  // seconds since 1970
constexpr unsigned kTagNSAM = kynTag("NSAM");  // samples in the whole file
constexpr unsigned kTagFTIM = kynTag("FTIM");  // first sample time
constexpr unsigned kTagLTIM = kynTag("LTIM");  // last sample time
constexpr unsigned kTagRATE = kynTag("RATE");  // samples per frame, 0 for non-uniform
constexpr unsigned kTagSPAC = kynTag("SPAC");  // 0 world, 1 object
constexpr unsigned kTagNOBJ = kynTag("NOBJ");  // object count, informative only
constexpr unsigned kTagDOBJ = kynTag("DOBJ");  // one object of the metadata
constexpr unsigned kTagNAME = kynTag("NAME");  // object name, or attribute names
constexpr unsigned kTagTYPE = kynTag("TYPE");  // attribute type labels

// Dynamic attributes.
constexpr unsigned kTagDATR = kynTag("DATR");  // attribute table of an object
constexpr unsigned kTagSATR = kynTag("SATR");  // static attribute names and types
constexpr unsigned kTagAATR = kynTag("AATR");  // animated attribute names and types
constexpr unsigned kTagATRS = kynTag("ATRS");  // attribute values
constexpr unsigned kTagATTR = kynTag("ATTR");  // one attribute value

// Sample stream.
constexpr unsigned kTagTIMS = kynTag("TIMS");  // sample times of a non-uniform file
constexpr unsigned kTagJSAM = kynTag("JSAM");  // offsets of the samples of a group
constexpr unsigned kTagSAMP = kynTag("SAMP");  // one sample
constexpr unsigned kTagJOBJ = kynTag("JOBJ");  // offsets of the objects of a sample
constexpr unsigned kTagSOBJ = kynTag("SOBJ");  // one object at one sample

// Object content.
constexpr unsigned kTagXFRM = kynTag("XFRM");  // marks a transform
constexpr unsigned kTagMTRX = kynTag("MTRX");  // 4x4 matrix
constexpr unsigned kTagMTRO = kynTag("MTRO");  // rotate order
constexpr unsigned kTagINHT = kynTag("INHT");  // inherits transform
constexpr unsigned kTagMESH = kynTag("MESH");  // marks a mesh
constexpr unsigned kTagPOSI = kynTag("POSI");  // positions or control points
constexpr unsigned kTagVPNO = kynTag("VPNO");  // vertex normals
constexpr unsigned kTagPONO = kynTag("PONO");  // face normals
constexpr unsigned kTagVELO = kynTag("VELO");  // velocities
constexpr unsigned kTagPCNT = kynTag("PCNT");  // vertices per face
constexpr unsigned kTagPIDS = kynTag("PIDS");  // vertex ids of all faces
constexpr unsigned kTagNCNT = kynTag("NCNT");  // face normals per face
constexpr unsigned kTagNIDS = kynTag("NIDS");  // face normal ids of all faces
constexpr unsigned kTagMSPT = kynTag("MSPT");  // shape type, 0 subdivision surface
constexpr unsigned kTagNRBS = kynTag("NRBS");  // marks a NURBS surface
constexpr unsigned kTagNRBC = kynTag("NRBC");  // marks a NURBS curve
constexpr unsigned kTagKNTU = kynTag("KNTU");  // knots in U, or of a curve
constexpr unsigned kTagKNTV = kynTag("KNTV");  // knots in V
constexpr unsigned kTagDEGR = kynTag("DEGR");  // degrees
constexpr unsigned kTagFORM = kynTag("FORM");  // forms
constexpr unsigned kTagELOC = kynTag("ELOC");  // marks a locator
constexpr unsigned kTagLXCS = kynTag("LXCS");  // marks a coordinate system
constexpr unsigned kTagBBOX = kynTag("BBOX");  // stored bounds

// Names of the type, compound and dimension codes. Dimension codes are scalar counts, so the
// table holds empty names at the codes that stand for no shape.
extern const char* kynTypeNames[7];
extern const char* kynCompoundNames[7];
extern const char* kynDimensionNames[17];

// The names above, and "?" for a code past the end of its table (found only in damaged files).
const char* kynTypeName(unsigned char code);
const char* kynCompoundName(unsigned char code);
const char* kynDimensionName(unsigned char code);

// Readers of this library refuse chunk trees nested deeper than this; real files nest six deep.
constexpr std::size_t kMaxGroupDepth = 256;

}  // namespace Kyn

#endif
