// The PC2 point cache, as written and read here:
//
//   file   := header sample[samples]
//   header := magic "POINTCACHE2\0" (12 bytes), version int32 (1), points int32,
//             start float32 (frame of the first sample), sampling float32 (frames from one
//             sample to the next), samples int32
//   sample := (x float32, y float32, z float32)[points]
//
// Little-endian, nothing between the parts: the header is 32 bytes and sample i starts at
// 32 + i * points * 12. Sample i lies at frame start + i * sampling.
#ifndef KYN_PC2_FORMAT_H
#define KYN_PC2_FORMAT_H

#include <cstdint>
#include <cstring>

namespace Kyn {
namespace exchange {

struct Pc2Header {
    char magic[12];
    int32_t version;
    int32_t points;
    float start;
    float sampling;
    int32_t samples;
};
static_assert(sizeof(Pc2Header) == 32, "the PC2 header is 32 bytes on disk");

constexpr char kPc2Magic[12] = {'P', 'O', 'I', 'N', 'T', 'C', 'A', 'C', 'H', 'E', '2', '\0'};

inline Pc2Header makePc2Header(int32_t points, float start, float sampling, int32_t samples) {
    Pc2Header header;
    std::memcpy(header.magic, kPc2Magic, sizeof(kPc2Magic));
    header.version = 1;
    header.points = points;
    header.start = start;
    header.sampling = sampling;
    header.samples = samples;
    return header;
}

}  // namespace exchange
}  // namespace Kyn

#endif
