// The fuzz input as a file: an anonymous in-memory file, reachable by a path, so that the
// library reads it exactly as it reads a cache on disk.
#ifndef KYN_FUZZ_INPUT_H
#define KYN_FUZZ_INPUT_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>

class FuzzFile {
  public:
    FuzzFile(const uint8_t* data, std::size_t size) : fd(memfd_create("kyn_fuzz", 0)) {
        if (fd < 0) return;
        std::size_t done = 0;
        while (done < size) {
            ssize_t n = write(fd, data + done, size - done);
            if (n <= 0) break;
            done += std::size_t(n);
        }
        path = "/proc/self/fd/" + std::to_string(fd);
    }
    ~FuzzFile() {
        if (fd >= 0) close(fd);
    }
    const char* c_str() const { return path.c_str(); }
    bool ok() const { return fd >= 0; }

  private:
    int fd;
    std::string path;
};

// Silences a standard stream for the lifetime of the object.
class Silence {
  public:
    explicit Silence(std::ostream& stream) : stream(stream), saved(stream.rdbuf(sink.rdbuf())) {}
    ~Silence() { stream.rdbuf(saved); }

  private:
    std::ostream& stream;
    std::ostringstream sink;
    std::streambuf* saved;
};

#endif
