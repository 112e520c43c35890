#include "resultsync/FrameDirectory.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "resultsync/FrameFormat.h"
#include "resultsync/FrameName.h"

namespace orv {
namespace resultsync {

bool FrameDirectory::ensure(std::string const& path)
{
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string const part = path.substr(0, slash);
        if (!part.empty() && mkdir(part.c_str(), 0777) != 0 && errno != EEXIST)
            return false;
        if (slash == std::string::npos)
            break;
    }
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::vector<FrameFile> FrameDirectory::list(std::string const& path, char const* prefix)
{
    return scan(path, prefix, false);
}

std::vector<FrameFile> FrameDirectory::reclaimAndList(std::string const& path, char const* prefix)
{
    return scan(path, prefix, true);
}

std::vector<FrameFile> FrameDirectory::scan(std::string const& path, char const* prefix, bool reclaiming)
{
    std::vector<FrameFile> files;
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr)
        return files;
    while (dirent* entry = readdir(dir)) {
        FrameFile file;
        file.name = entry->d_name;
        if (FrameName::parse(file.name, prefix, &file.sequence, &file.id))
            files.push_back(file);
        else if (reclaiming)
            reclaimIfAbandoned(dirfd(dir), file.name);
    }
    closedir(dir);
    std::sort(files.begin(), files.end(),
              [](FrameFile const& a, FrameFile const& b) { return a.sequence < b.sequence; });
    return files;
}

void FrameDirectory::reclaimIfAbandoned(int dir, std::string const& name)
{
    std::string const taken = FrameFormat::TakenPrefix;
    std::string const writing = ".writing-";
    if (name.compare(0, taken.size(), taken) == 0) {
        int const fd = openat(dir, name.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return;
        // The lock is free only when no claimant holds the file any more.
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            unlinkat(dir, name.c_str(), 0);
        close(fd);
    } else if (name.compare(0, writing.size(), writing) == 0) {
        pid_t const writer = static_cast<pid_t>(atol(name.c_str() + writing.size()));
        if (writer > 0 && kill(writer, 0) != 0 && errno == ESRCH)
            unlinkat(dir, name.c_str(), 0);
    }
}

} // namespace resultsync
} // namespace orv
