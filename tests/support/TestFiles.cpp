#include "TestFiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "KynCache.h"
#include "KynChunks.h"

namespace kyntest_support {

namespace {

// A directory of this test process's own, removed with everything in it when the process ends.
struct ScratchDir {
    ScratchDir() {
        char pattern[] = "/tmp/kyn_test_XXXXXX";
        if (mkdtemp(pattern) != nullptr) path = pattern;
    }
    ~ScratchDir() {
        std::error_code ignored;
        if (!path.empty()) std::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

}  // namespace

std::string scratchPath(const std::string& name) {
    static const ScratchDir dir;
    static int counter = 0;
    const std::string& base = dir.path.empty() ? std::string("/tmp") : dir.path;
    std::string path = base + "/" + std::to_string(counter++) + "_" + name;
    std::remove(path.c_str());
    return path;
}

std::vector<unsigned char> head(const char* tag, unsigned char type, int64_t length,
                                unsigned char compound, unsigned char dimension) {
    std::vector<unsigned char> bytes;
    appendHeader(bytes, tag, type, length, compound, dimension);
    return bytes;
}

std::vector<unsigned char> le(int64_t value, int width) {
    std::vector<unsigned char> bytes;
    appendLE(bytes, value, width);
    return bytes;
}

std::vector<unsigned char> raw(const std::string& text) {
    return std::vector<unsigned char>(text.begin(), text.end());
}

std::vector<unsigned char> cat(std::initializer_list<std::vector<unsigned char>> parts) {
    std::vector<unsigned char> bytes;
    for (const auto& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
    return bytes;
}

std::vector<unsigned char> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

int64_t readLE(const std::vector<unsigned char>& bytes, std::size_t offset, int width) {
    uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i) value = (value << 8) | bytes.at(offset + i);
    if (width < 8 && (value >> (8 * width - 1)) != 0) value |= ~uint64_t(0) << (8 * width);
    return static_cast<int64_t>(value);
}

void appendLE(std::vector<unsigned char>& bytes, int64_t value, int width) {
    for (int i = 0; i < width; ++i)
        bytes.push_back(static_cast<unsigned char>(uint64_t(value) >> (8 * i)));
}

void appendHeader(std::vector<unsigned char>& bytes, const char* tag, unsigned char type,
                  int64_t length, unsigned char compound, unsigned char dimension) {
    bytes.insert(bytes.end(), tag, tag + 4);
    bytes.push_back(type);
    bytes.push_back(compound);
    bytes.push_back(dimension);
    bytes.push_back(0);
    appendLE(bytes, length, 8);
}

std::vector<std::string> Capture::lines() const {
    std::vector<std::string> result;
    std::istringstream in(text.str());
    std::string line;
    while (std::getline(in, line)) result.push_back(line);
    return result;
}

void writeWorkedFile(const std::string& path) {
    using namespace Kyn;
    KynFile file;
    ASSERT_TRUE(file.open(path.c_str(), "w"));
    KynDKYNChunk dkyn;
    ASSERT_TRUE(dkyn.write(file));
    KynMETAChunk meta;
    meta.application = "app";
    meta.date = 1400000000;
    meta.numSamples = 2;
    meta.firstTime = 1.0f;
    meta.lastTime = 2.0f;
    meta.rate = 1.0f;
    meta.space = 1;
    meta.addDOBJ("foo");
    ASSERT_TRUE(meta.write(file));
    KynSAMSChunk sams;
    ASSERT_TRUE(sams.writeStart(file, 2, 2, false));
    for (int s = 0; s < 2; ++s) {
        ASSERT_TRUE(sams.writeStartSAMPChunk(file, 1, nullptr));
        ASSERT_TRUE(sams.writeStartSOBJChunk(file));
        std::vector<float> position(3, float(s));
        ASSERT_TRUE(file.writeChunk(kTagPOSI, position, -1, 0, 0));
        ASSERT_TRUE(sams.writeEndSOBJChunk(file));
        ASSERT_TRUE(sams.writeEndSAMPChunk(file));
    }
    ASSERT_TRUE(sams.writeEnd(file));
    ASSERT_TRUE(file.close());
}

std::vector<unsigned char> objectBytes(Kyn::KynCache& cache,
                                       const std::vector<unsigned char>& bytes, int s, int o) {
    Kyn::KynHeader h;
    if (!cache.seekObjectSample(h, s, o)) return {};
    const std::size_t at = std::size_t(cache.file.tell(nullptr) - 16);
    const std::size_t end = at + 16 + std::size_t(h.length);
    if (end > bytes.size()) return {};
    return std::vector<unsigned char>(bytes.begin() + long(at), bytes.begin() + long(end));
}

int partialFilesIn(const std::string& directory) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        count += entry.path().filename().string().find(".partial-") != std::string::npos;
    return count;
}

}  // namespace kyntest_support
