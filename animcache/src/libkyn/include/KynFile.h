// KynFile: the chunk stream of one cache file, the only code of the library that touches a file.
//
// A file is a plain concatenation of chunks, each a 16-byte header and its payload:
//   chunk  := tag: u32, type: u8, compound: u8, dimension: u8, reserved: u8, length: i64,
//             payload: u8[length]
//   group  := a chunk of type 1 whose payload is a run of chunks
// There is no alignment and no padding. KynFile reads and writes headers, moves over payloads,
// and keeps the open-group stack: while reading, the offsets at which open groups end; while
// writing, the offsets of their first payload bytes, where endGroup patches the length in.
// Every operation answers true or false and prints nothing; callers word the failure.
//
// One KynFile belongs to one thread; its position is shared by every operation on it.
#ifndef KYN_FILE_H
#define KYN_FILE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "KynFormat.h"

namespace Kyn {

class KynFileStream;

// The 16 bytes of a chunk header, in their on-disk form. A default header is a "FREE" of zeros.
struct KynHeader {
    unsigned tag = kTagFREE;
    unsigned char type = 0;
    unsigned char compound = 0;
    unsigned char dimension = 0;
    unsigned char reserved = 0;
    int64_t length = 0;  // payload bytes, header excluded

    // Tag, type name, " (", length, ")", then compound and dimension names when not 0.
    std::ostream& print(std::ostream& os) const;
};
static_assert(sizeof(KynHeader) == 16, "a chunk header is 16 bytes on disk");

class KynFile {
  public:
    KynFile();
    virtual ~KynFile();
    KynFile(const KynFile&) = delete;
    KynFile& operator=(const KynFile&) = delete;

    // Opens a stream in mode "r", "r+", "w" or "w+" (a "b" is accepted), closing any open one.
    bool open(const char* path, const char* mode);
    // Drops the stream and empties the group stack; false when the stream did not close cleanly.
    bool close();
    bool hasStream() const { return stream != nullptr; }

    // The current offset, or -1 with no stream. `ok`, when given, tells which.
    int64_t tell(bool* ok);
    // Moves like fseeko; with clearGroups the group stack is emptied first.
    bool seek(int64_t offset, int whence, bool clearGroups);

    bool readHeader(KynHeader& header);
    // Moves forward over the payload; a negative length is refused.
    bool skipData(const KynHeader& header);
    // Reads the payload into `data`; a null `data` skips it. No payload of 2^31 bytes or more.
    bool readData(const KynHeader& header, void* data);
    // Reads the payload as one string, up to its first NUL.
    bool readData(const KynHeader& header, std::string& value);
    // Reads the payload as NUL-separated strings.
    bool readData(const KynHeader& header, std::vector<std::string>& values);

    // Whether `length` payload bytes can be read from the current position: the file holds them
    // and they are fewer than 2^31. Readers ask before they allocate for a payload.
    bool canRead(int64_t length);

    // Writes a chunk at `offset`, or at the current position when `offset` is negative; a
    // placement write returns to the position it started from. Null data with a length leaves
    // a hole of that size.
    bool writeChunk(const KynHeader& header, const void* data, int64_t offset);
    bool writeChunk(unsigned tag, const std::vector<std::string>& values, int64_t offset,
                    unsigned char compound, unsigned char dimension);
    // An empty vector writes a bare header at the current position, whatever `offset` asks.
    template <class T>
    bool writeChunk(unsigned tag, const std::vector<T>& values, int64_t offset,
                    unsigned char compound, unsigned char dimension);

    // Writes `size` raw bytes at `offset` and comes back to the current position: a field
    // fixed in place, as endGroup fixes a length.
    bool patch(int64_t offset, const void* data, std::size_t size);
    // Hands everything written so far to the system, so that it survives the end of this
    // process; with `toDisk`, also waits until it is on the disk (fsync). False with no stream
    // or when something written was lost.
    bool flush(bool toDisk);
    // Forgets the bytes read ahead: the next read sees what another writer has put in the file.
    void forgetReadAhead();

    // Writes a group header as given and opens the group; endGroup patches its true length.
    bool startGroup(const KynHeader& header);
    bool endGroup();

    // True when `path` names a readable file that starts with a "DKYN" chunk header.
    static bool isKynFile(const char* path);

    // Open-group stack: read side, end offsets of open groups; write side, payload starts.
    std::vector<int64_t> groupStack;

  private:
    void popClosedGroups();

    std::unique_ptr<KynFileStream> stream;
    std::vector<char> scratch;  // string payloads are gathered and parsed here
};

template <class T>
bool KynFile::writeChunk(unsigned tag, const std::vector<T>& values, int64_t offset,
                         unsigned char compound, unsigned char dimension) {
    KynHeader header;
    header.tag = tag;
    header.type = KynTypeOf<T>::code;
    header.compound = compound;
    header.dimension = dimension;
    header.length = static_cast<int64_t>(values.size() * sizeof(T));
    if (values.empty()) return writeChunk(header, nullptr, -1);
    return writeChunk(header, values.data(), offset);
}

}  // namespace Kyn

#endif
