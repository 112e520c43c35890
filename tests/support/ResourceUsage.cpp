#include "ResourceUsage.h"

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <malloc.h>
#include <string>

namespace orv {
namespace test {

ResourceUsage ResourceUsage::now()
{
    ResourceUsage usage;
    usage.heap = static_cast<long long>(mallinfo2().uordblks);
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr)
            ++usage.descriptors;
        closedir(dir);
    }
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        ++usage.mappings;
    return usage;
}

bool heapIsCounted()
{
    char const* tunables = getenv("GLIBC_TUNABLES");
    return tunables != nullptr && strstr(tunables, "glibc.malloc.tcache_count=0") != nullptr;
}

} // namespace test
} // namespace orv
