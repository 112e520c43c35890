// What a process holds that a leak would make grow: heap in use, open descriptors and memory
// mappings. Compared before and after many rounds of work, it shows a free, close or unmap that
// never happens, which no single answer reveals.
#pragma once

namespace orv {
namespace test {

struct ResourceUsage
{
    // Heap bytes in use as the C library's allocator counts them. Exact only with its per-thread
    // cache off and one arena for all threads (GLIBC_TUNABLES, as tests/CMakeLists.txt sets it for
    // ctest); 0 otherwise, which fails the test in CI.
    long long heap = 0;
    int descriptors = 0;
    // Mappings of files (frames, shared memory): an allocator's own anonymous regions, which a
    // sanitizer's grows as it likes, are left out.
    int mappings = 0;

    static ResourceUsage now();
    ResourceUsage operator-(ResourceUsage const& before) const
    {
        return {heap - before.heap, descriptors - before.descriptors, mappings - before.mappings};
    }
};

} // namespace test
} // namespace orv
