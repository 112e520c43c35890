#include "resultsync/FrameDirectory.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <sys/stat.h>

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
    std::vector<FrameFile> files;
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr)
        return files;
    while (dirent* entry = readdir(dir)) {
        FrameFile file;
        file.name = entry->d_name;
        if (FrameName::parse(file.name, prefix, &file.sequence, &file.id))
            files.push_back(file);
    }
    closedir(dir);
    std::sort(files.begin(), files.end(),
              [](FrameFile const& a, FrameFile const& b) { return a.sequence < b.sequence; });
    return files;
}

} // namespace resultsync
} // namespace orv
