// KynFileStream: the buffered large-file stream under KynFile. Private to the library.
//
// One window of the file is held in memory, either as read-ahead (clean) or as written bytes
// not yet on disk (dirty). Positions are 64-bit; a seek past the end is allowed, and a write
// there leaves a hole. Writes that land inside the dirty window (the length patches of a group
// that ends close to where it started) are made in memory. Reads and writes of a buffer's size
// or more go straight to the file. All transfers use pread and pwrite at the stream's position.
#ifndef KYN_FILE_STREAM_H
#define KYN_FILE_STREAM_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kyn {

class KynFileStream {
  public:
    // Null when the mode is not one of "r", "r+", "w", "w+" (with an optional "b") or the file
    // does not open.
    static KynFileStream* open(const char* path, const char* mode);
    ~KynFileStream();
    KynFileStream(const KynFileStream&) = delete;
    KynFileStream& operator=(const KynFileStream&) = delete;

    // Writes what is buffered and closes; false when anything written was lost.
    bool close();

    int64_t tell() const { return position; }
    bool seek(int64_t offset, int whence);
    // Number of bytes transferred; fewer than asked means end of file or an error.
    std::size_t read(void* data, std::size_t count);
    std::size_t write(const void* data, std::size_t count);
    // The size of the file, counting buffered writes. With `refresh` the size on disk is asked
    // again, for a file that another writer may have grown.
    int64_t size(bool refresh);

  private:
    KynFileStream(int fd, bool readable, bool writable, int64_t diskSize);
    bool flush();  // writes a dirty window out and forgets the window either way
    bool writeAt(const char* data, std::size_t count, int64_t offset);

    int fd;
    bool readable;
    bool writable;
    bool failed = false;  // a buffered write was lost
    int64_t position = 0;
    int64_t diskSize;  // largest known end of the file
    std::vector<char> buffer;
    int64_t windowStart = 0;
    std::size_t windowLength = 0;
    bool dirty = false;
};

}  // namespace Kyn

#endif
