// Helpers shared by the test suites: scratch paths, whole-file bytes, captured output, and the
// small worked file that the format documentation walks through.
#ifndef KYN_TEST_FILES_H
#define KYN_TEST_FILES_H

#include <cstdint>
#include <initializer_list>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace Kyn {
class KynCache;
}

namespace kyntest_support {

// A fresh path in a per-process scratch directory; the file does not exist yet.
std::string scratchPath(const std::string& name);

std::vector<unsigned char> readBytes(const std::string& path);
void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes);

// The little-endian value of `width` bytes at `offset`.
int64_t readLE(const std::vector<unsigned char>& bytes, std::size_t offset, int width);

// Appends the low `width` bytes of `value`, little-endian.
void appendLE(std::vector<unsigned char>& bytes, int64_t value, int width);
// Appends a chunk header in its on-disk form; `tag` is four characters.
void appendHeader(std::vector<unsigned char>& bytes, const char* tag, unsigned char type,
                  int64_t length, unsigned char compound = 0, unsigned char dimension = 0);

// Pieces of a hand-made file: a chunk header, a little-endian value, raw bytes; and their sum.
std::vector<unsigned char> head(const char* tag, unsigned char type, int64_t length,
                                unsigned char compound = 0, unsigned char dimension = 0);
std::vector<unsigned char> le(int64_t value, int width);
std::vector<unsigned char> raw(const std::string& text);
std::vector<unsigned char> cat(std::initializer_list<std::vector<unsigned char>> parts);

// The worked file: one object "foo", a three-float "POSI" per sample, samples at 1 and 2,
// application "app", date 1400000000, space 1, a reserve of 2 spare samples. 500 bytes.
void writeWorkedFile(const std::string& path);

// The bytes of object `o` of sample `s` in `bytes`, the file of `cache`, where the cache reads
// them; empty when it does not.
std::vector<unsigned char> objectBytes(Kyn::KynCache& cache,
                                       const std::vector<unsigned char>& bytes, int s, int o);

// How many files in `directory` are new files of safe rewrites (".partial-" in the name).
int partialFilesIn(const std::string& directory);

// Redirects a standard stream into a string for the lifetime of the object.
class Capture {
  public:
    explicit Capture(std::ostream& stream) : stream(stream), saved(stream.rdbuf(text.rdbuf())) {}
    ~Capture() { stream.rdbuf(saved); }
    std::string str() const { return text.str(); }
    std::vector<std::string> lines() const;

  private:
    std::ostream& stream;
    std::ostringstream text;
    std::streambuf* saved;
};

}  // namespace kyntest_support

#endif
