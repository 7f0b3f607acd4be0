#include "KynFileStream.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

namespace Kyn {

namespace {

int openFlags(const char* mode, bool& readable, bool& writable) {
    if (mode == nullptr) return -1;
    std::string m;
    for (const char* c = mode; *c; ++c)
        if (*c != 'b') m += *c;
    if (m == "r") {
        readable = true;
        writable = false;
        return O_RDONLY;
    }
    readable = writable = true;
    if (m == "r+") return O_RDWR;
    if (m == "w+") return O_RDWR | O_CREAT | O_TRUNC;
    if (m == "w") {
        readable = false;
        return O_WRONLY | O_CREAT | O_TRUNC;
    }
    return -1;
}

}  // namespace

KynFileStream* KynFileStream::open(const char* path, const char* mode) {
    bool readable = false;
    bool writable = false;
    int flags = openFlags(mode, readable, writable);
    if (path == nullptr || flags < 0) return nullptr;
    int fd = ::open(path, flags | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    struct stat st;
    if (fstat(fd, &st) != 0) {
        ::close(fd);
        return nullptr;
    }
    return new KynFileStream(fd, readable, writable, static_cast<int64_t>(st.st_size));
}

KynFileStream::KynFileStream(int fd, bool readable, bool writable, int64_t diskSize)
    : fd(fd), readable(readable), writable(writable), diskSize(diskSize) {}

KynFileStream::~KynFileStream() {
    close();
}

bool KynFileStream::close() {
    if (fd < 0) return true;
    bool ok = sync(false);
    if (::close(fd) != 0) ok = false;
    fd = -1;
    return ok;
}

bool KynFileStream::sync(bool toDisk) {
    if (fd < 0) return false;
    bool ok = flush() && !failed;
    while (ok && toDisk && ::fsync(fd) != 0)
        if (errno != EINTR) ok = false;
    return ok;
}

bool KynFileStream::seek(int64_t offset, int whence) {
    int64_t base = 0;
    if (whence == SEEK_CUR)
        base = position;
    else if (whence == SEEK_END)
        base = size(true);
    else if (whence != SEEK_SET)
        return false;
    int64_t target = 0;
    if (__builtin_add_overflow(base, offset, &target) || target < 0) return false;
    position = target;
    return true;
}

int64_t KynFileStream::size(bool refresh) {
    if (refresh) {
        struct stat st;
        if (fstat(fd, &st) == 0) diskSize = std::max<int64_t>(diskSize, st.st_size);
    }
    int64_t end = dirty ? windowStart + static_cast<int64_t>(windowLength) : 0;
    return std::max(diskSize, end);
}

bool KynFileStream::writeAt(const char* data, std::size_t count, int64_t offset) {
    while (count > 0) {
        ssize_t n = ::pwrite(fd, data, count, offset);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        count -= static_cast<std::size_t>(n);
        offset += n;
        diskSize = std::max(diskSize, offset);
    }
    return true;
}

bool KynFileStream::flush() {
    bool ok = true;
    if (dirty && !writeAt(window.get(), windowLength, windowStart)) {
        failed = true;
        ok = false;
    }
    dirty = false;
    windowLength = 0;
    return ok;
}

KynFileStream::Block* KynFileStream::blockHolding(int64_t offset) {
    for (Block& block : blocks) {
        if (block.length != 0 && offset >= block.start &&
            offset - block.start < static_cast<int64_t>(block.length))
            return &block;
    }
    return nullptr;
}

KynFileStream::Block& KynFileStream::blockToFill(int64_t offset, std::size_t& fill) {
    Block* oldest = &blocks[0];
    for (Block& block : blocks) {
        const int64_t end = block.start + static_cast<int64_t>(block.length);
        if (block.fill != 0 && offset >= end && offset - end < static_cast<int64_t>(block.fill)) {
            fill = std::min(2 * block.fill, kMaxFill);
            return block;
        }
        if (block.lastUse < oldest->lastUse) oldest = &block;
    }
    fill = kMinFill;
    return *oldest;
}

void KynFileStream::dropBlocks() {
    for (Block& block : blocks) block.length = block.fill = 0;
}

std::size_t KynFileStream::readThrough(void* data, std::size_t count) {
    if (!readable || count == 0) return 0;
    if (dirty && !flush()) return 0;
    char* out = static_cast<char*>(data);
    std::size_t done = 0;
    while (done < count) {
        const std::size_t want = count - done;
        if (Block* block = blockHolding(position)) {
            const std::size_t at = static_cast<std::size_t>(position - block->start);
            const std::size_t got = std::min(want, block->length - at);
            std::memcpy(out + done, block->bytes.get() + at, got);
            block->lastUse = ++uses;
            recent = block;
            done += got;
            position += static_cast<int64_t>(got);
            continue;
        }
        std::size_t fill = 0;
        Block& block = blockToFill(position, fill);
        block.lastUse = ++uses;
        const bool direct = want >= fill;
        if (!direct && !block.bytes) block.bytes.reset(new char[kMaxFill]);
        char* target = direct ? out + done : block.bytes.get();
        const std::size_t ask = direct ? want : fill;
        ssize_t n = ::pread(fd, target, ask, position);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        std::size_t got = static_cast<std::size_t>(n);
        // A direct read holds nothing back, but its end is where the run goes on.
        block.start = position + (direct ? n : 0);
        block.length = direct ? 0 : got;
        block.fill = fill;
        if (!direct) {
            recent = &block;
            got = std::min(got, want);
            std::memcpy(out + done, block.bytes.get(), got);
        }
        done += got;
        position += static_cast<int64_t>(got);
        if (!direct && got < want && block.length < ask) break;  // end of file
    }
    return done;
}

std::size_t KynFileStream::write(const void* data, std::size_t count) {
    if (!writable || count == 0) return 0;
    dropBlocks();
    const char* in = static_cast<const char*>(data);
    int64_t windowEnd = windowStart + static_cast<int64_t>(windowLength);
    int64_t capacityEnd = windowStart + static_cast<int64_t>(kWindowSize);
    if (dirty && position >= windowStart && position <= windowEnd &&
        count <= static_cast<std::size_t>(capacityEnd - position)) {
        std::memcpy(window.get() + (position - windowStart), in, count);
        windowLength =
            std::max(windowLength, static_cast<std::size_t>(position - windowStart) + count);
        position += static_cast<int64_t>(count);
        return count;
    }
    if (!flush()) return 0;
    if (count >= kWindowSize) {
        if (!writeAt(in, count, position)) return 0;
        position += static_cast<int64_t>(count);
        return count;
    }
    if (!window) window.reset(new char[kWindowSize]);
    std::memcpy(window.get(), in, count);
    windowStart = position;
    windowLength = count;
    dirty = true;
    position += static_cast<int64_t>(count);
    return count;
}

}  // namespace Kyn
