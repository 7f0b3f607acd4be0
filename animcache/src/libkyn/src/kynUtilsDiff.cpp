// kyndiff: compares two cache files by their content, not their bytes.
//
// Each file is written out as a flat text dump, one line a chunk in file order with no notion of
// nesting: a group or an empty chunk as its header text, a leaf as its printed form, and "DATE"
// as "DATE skipped", so that files made at different times compare equal. The two dumps go to
// fixed names in "/disk1/tmp", which must exist, and the system's diff compares them.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "KynChunks.h"
#include "KynLog.h"
#include "kynUtils.h"

using namespace Kyn;

namespace {

const char* const kDumpPaths[2] = {"/disk1/tmp/kyn___diff___1.txt",
                                   "/disk1/tmp/kyn___diff___2.txt"};

// Runs a removal whose outcome does not matter: a file left behind is removed by the next run.
void runQuietly(const std::string& command) {
    const int status = std::system(command.c_str());
    static_cast<void>(status);
}

// Writes the dump of the open `file`, named `path`, to `out`. False after a reported failure.
bool dump(KynFile& file, const char* path, std::ostream& out) {
    KynHeader h;
    while (file.readHeader(h)) {
        if (h.type == kTypeGroup || h.length == 0) {
            h.print(out) << '\n';
        } else if (h.tag == kTagDATE) {
            out << "DATE skipped" << '\n';
            file.skipData(h);
        } else {
            KynChunk* chunk = KynChunk::create(h.tag, h.type);
            if (chunk == nullptr) {
                KYN_UTIL_ERROR("kyndiff", "Unrecognized chunk type");
                return false;
            }
            if (!chunk->read(h, file)) {
                delete chunk;
                KYN_UTIL_ERROR("kyndiff", path << ": error reading leaf chunk");
                return false;
            }
            chunk->print(out, 0) << '\n';
            delete chunk;
        }
    }
    return true;
}

// Writes the dump of `path` to the temporary file `which`, replacing one left by an earlier run.
bool dumpToTemporary(const char* path, int which) {
    KynFile file;
    if (!file.open(path, "r")) {
        KYN_UTIL_ERROR("kyndiff", path << ": could not open file");
        return false;
    }
    const std::string target = kDumpPaths[which];
    if (access(target.c_str(), F_OK) == 0) runQuietly("rm " + target + ";");
    std::ofstream out(target, std::ios::out | std::ios::trunc);
    const bool dumped = dump(file, path, out);
    out.close();
    if (!dumped) return false;
    if (!file.close()) {
        KYN_UTIL_ERROR("kyndiff", path << ": error closing file");
        return false;
    }
    return true;
}

}  // namespace

int kyndiff(const char* file1, const char* file2, const char* options) {
    const char* name1 = file1 ? file1 : "";
    // Both reports name the first file; that is the message users know.
    if (!KynFile::isKynFile(file1) || !KynFile::isKynFile(file2)) {
        KYN_UTIL_ERROR("kyndiff", name1 << ": is not a valid KYN file");
        return -1;
    }
    const std::string extra = options ? options : "";
    if (!dumpToTemporary(file1, 0) || !dumpToTemporary(file2, 1)) return -1;
    const std::string first = kDumpPaths[0];
    const std::string second = kDumpPaths[1];
    const int result = std::system(("diff " + extra + " " + first + " " + second + ";").c_str());
    runQuietly("rm " + first + ";rm " + second + ";");
    return result;
}
