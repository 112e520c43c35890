// What a process holds that a leak would make grow: heap in use, open descriptors and memory
// mappings. Compared before and after many rounds of work, it shows a free, close or unmap that
// never happens, which no single answer reveals.
#pragma once

namespace orv {
namespace test {

struct ResourceUsage
{
    // Heap bytes in use as the C library's allocator counts them. Its per-thread cache keeps freed
    // blocks as if in use, so the tests run with it off (GLIBC_TUNABLES, set by tests/CMakeLists.txt).
    long long heap = 0;
    int descriptors = 0;
    int mappings = 0;

    static ResourceUsage now();
    ResourceUsage operator-(ResourceUsage const& before) const
    {
        return {heap - before.heap, descriptors - before.descriptors, mappings - before.mappings};
    }
};

// Whether the allocator's per-thread cache is off, so that the heap figure means what it says.
bool heapIsCounted();

} // namespace test
} // namespace orv
