#include "KynReplacement.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Kyn {

namespace {

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string hostName() {
    char name[256] = "";
    if (gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "host";
    std::string host = name;
    for (char& c : host)
        if (c == '/' || c == '-') c = '_';  // the name stays one path component, parsed at '-'
    return host;
}

// Whether the file `name` was left by a process of this host that no longer runs: `name` is
// `stem` followed by "<pid>-<n>".
bool isStale(const std::string& name, const std::string& stem) {
    if (name.compare(0, stem.size(), stem) != 0) return false;
    const char* rest = name.c_str() + stem.size();
    char* end = nullptr;
    errno = 0;
    const long pid = std::strtol(rest, &end, 10);
    if (end == rest || *end != '-' || errno != 0 || pid <= 0 || pid != long(pid_t(pid)))
        return false;
    return kill(pid_t(pid), 0) != 0 && errno == ESRCH;
}

bool syncDirectory(const std::string& directory) {
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = true;
    while (::fsync(fd) != 0)
        if (errno != EINTR) {
            ok = false;
            break;
        }
    ::close(fd);
    return ok;
}

}  // namespace

KynReplacement::KynReplacement(const std::string& target) : target(target) {
    static std::atomic<unsigned> counter(0);
    prefix = target + ".partial-" + hostName() + "-";
    removeStale();
    temporary = prefix + std::to_string(getpid()) + "-" + std::to_string(counter++);
}

KynReplacement::~KynReplacement() {
    if (!committed) std::remove(temporary.c_str());
}

void KynReplacement::removeStale() const {
    const std::string directory = directoryOf(prefix);
    const std::size_t slash = prefix.rfind('/');
    const std::string stem = slash == std::string::npos ? prefix : prefix.substr(slash + 1);
    DIR* listing = opendir(directory.c_str());
    if (listing == nullptr) return;
    while (const dirent* entry = readdir(listing)) {
        const std::string name = entry->d_name;
        if (isStale(name, stem)) std::remove((directory + "/" + name).c_str());
    }
    closedir(listing);
}

bool KynReplacement::commit(KynFile& written) {
    const bool flushed = written.flush(true);
    if (!written.close() || !flushed) return false;
    struct stat old;
    if (stat(target.c_str(), &old) == 0) chmod(temporary.c_str(), old.st_mode & 07777);
    if (std::rename(temporary.c_str(), target.c_str()) != 0) return false;
    committed = true;
    return syncDirectory(directoryOf(target));
}

}  // namespace Kyn
