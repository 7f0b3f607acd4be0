// The streaming writer of the Python package: the metadata first, then one sample at a time
// through the library's KynSAMSChunk, each object's arrays written straight from numpy's memory.
//
//   file := DKYN, META{ ..., DOBJ* }, SAMS{ [TIMS, FREE], JSAM, FREE, SAMP* }
//   SAMP := SAMP{ JOBJ, SOBJ* }, one SOBJ per object in index order, empty when not given
//   SOBJ := SOBJ{ leaf*, [ATRS{ ATTR* }] }, animated attribute values in declared order
#ifndef KYN_PYTHON_WRITER_H
#define KYN_PYTHON_WRITER_H

#include <pybind11/pybind11.h>

#include <string>
#include <vector>

#include "Chunks.h"
#include "KynChunks.h"
#include "KynFile.h"

namespace kynpy {

class StreamWriter {
  public:
    // `objects`: (path, static chunks, static attributes, animated attribute declarations) per
    // object. `times` (a list of ascending floats) makes a non-uniform file; otherwise sample i
    // lies at first + i / rate. `reserve` spare samples are kept for later appends. `commit`
    // (a KynSAMSChunk::Commit) says when samples reach the file: at close, or each as it is
    // written, the metadata's count following them.
    StreamWriter(const std::string& path, const py::list& objects, int64_t count, float first,
                 float rate, const py::object& times, int64_t reserve,
                 const std::string& application, const std::string& sourceFile, int64_t space,
                 int commit);

    // One sample: (object index, chunks, animated attribute values or None) per object given.
    // `time`, when not None, must be the time of the sample.
    void writeSample(const py::object& time, const py::list& objects);
    // Patches the tables and closes the file. Raises ValueError when fewer samples than
    // announced were written: those read back, a later one does not.
    void close();

    const std::string path;
    const int64_t count;
    int64_t written = 0;
    bool closed = false;

  private:
    [[noreturn]] void failed(const std::string& what);
    float timeOf(int64_t sample) const;

    Kyn::KynFile file;
    Kyn::KynSAMSChunk sams;
    std::vector<float> times;
    float first;
    float rate;
    std::size_t numObjects;
};

}  // namespace kynpy

#endif
