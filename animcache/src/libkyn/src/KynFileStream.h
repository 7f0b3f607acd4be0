// KynFileStream: the buffered large-file stream under KynFile. Private to the library.
//
// Reads are served from a few blocks of read-ahead, writes gather in one window of written bytes
// not yet on disk. Positions are 64-bit; a seek past the end is allowed, and a write there
// leaves a hole. All transfers use pread and pwrite at the stream's position.
//
// Read-ahead follows the reader: a read that lands in no block fills the least recently used
// one with a small amount, and a read that lands just behind the end of a block continues that
// block's run with twice the amount, up to kMaxFill. So a sequential walk soon reads in large
// blocks, a random one reads little around each position, and a reader that alternates between
// a few places of the file (the samples of a blend) keeps one run going at each. A read at least
// as large as the block would be goes straight into the caller's memory.
//
// Writes that land inside the write window (the length patches of a group that ends close to
// where it started) are made in memory; a write of the window's size or more goes straight to
// the file. Every write drops the read-ahead, and every read first writes the window out, so a
// read always sees what was written.
#ifndef KYN_FILE_STREAM_H
#define KYN_FILE_STREAM_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

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
    // Writes what is buffered to the file, and with `toDisk` waits until the file is on the
    // disk (fsync); false when anything written was lost.
    bool sync(bool toDisk);
    // Forgets what was read ahead, so that the next read sees what another writer has put in
    // the file since.
    void forgetReadAhead() { dropBlocks(); }

    int64_t tell() const { return position; }
    bool seek(int64_t offset, int whence);
    // Number of bytes transferred; fewer than asked means end of file or an error.
    std::size_t read(void* data, std::size_t count) {
        // Most reads are small and lie in the block that the read before them used.
        Block* block = recent;
        if (block != nullptr && position >= block->start && count <= block->length &&
            position - block->start <= static_cast<int64_t>(block->length - count)) {
            std::memcpy(data, block->bytes.get() + (position - block->start), count);
            position += static_cast<int64_t>(count);
            block->lastUse = ++uses;
            return count;
        }
        return readThrough(data, count);
    }
    std::size_t write(const void* data, std::size_t count);
    // The size of the file, counting buffered writes. With `refresh` the size on disk is asked
    // again, for a file that another writer may have grown.
    int64_t size(bool refresh);

  private:
    // A run of the file held for reading: `length` bytes from `start`. The run was last asked
    // for `fill` bytes; 0 means the block holds nothing and continues no run.
    struct Block {
        std::unique_ptr<char[]> bytes;  // kMaxFill bytes once the block is first filled
        int64_t start = 0;
        std::size_t length = 0;
        std::size_t fill = 0;
        uint64_t lastUse = 0;
    };
    static constexpr int kBlocks = 4;  // a cubic blend reads four samples in turn
    static constexpr std::size_t kMinFill = 4 * 1024;
    static constexpr std::size_t kMaxFill = 128 * 1024;
    static constexpr std::size_t kWindowSize = 1024 * 1024;

    KynFileStream(int fd, bool readable, bool writable, int64_t diskSize);
    bool flush();  // writes the write window out and forgets it either way
    bool writeAt(const char* data, std::size_t count, int64_t offset);
    std::size_t readThrough(void* data, std::size_t count);
    Block* blockHolding(int64_t offset);
    // The block to read `offset` into, and how much to ask for: the block whose run `offset`
    // continues, or the least recently used one with the smallest amount.
    Block& blockToFill(int64_t offset, std::size_t& fill);
    void dropBlocks();

    int fd;
    bool readable;
    bool writable;
    bool failed = false;  // a buffered write was lost
    int64_t position = 0;
    int64_t diskSize;  // largest known end of the file
    Block blocks[kBlocks];
    uint64_t uses = 0;               // clock of lastUse
    Block* recent = nullptr;         // the block of the last buffered read
    std::unique_ptr<char[]> window;  // the write window, allocated by the first buffered write
    int64_t windowStart = 0;
    std::size_t windowLength = 0;
    bool dirty = false;
};

}  // namespace Kyn

#endif
