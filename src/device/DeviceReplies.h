// The reply records of the device commands, laid out as the host reads them on the camera.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orv {

constexpr int MaxApplications = 32;

struct VORNApplicationListReply
{
    int32_t status;
    int32_t count;  // indices set in `indices`, 0 to 32
    int32_t active; // index of the active application
    int32_t indices[MaxApplications];
};

struct VORNGetIOReply
{
    int32_t status;
    int32_t io; // the request's I/O number, echoed
    int32_t state;
};

struct VORNSetIORequest
{
    int32_t io;
    int32_t state;
};

struct VORNStatisticRequest
{
    char key[256];
    int32_t representation;
};

struct VORNStatisticReply
{
    int32_t status;
    unsigned char reserved[256];
    int32_t representation; // echoed on success
    int32_t size;           // bytes at `value`: 4 or 8, 0 on a rejected representation
    void* value;            // malloc'd, freed by the host
};

static_assert(sizeof(VORNApplicationListReply) == 140, "application list reply is 140 bytes");
static_assert(sizeof(VORNGetIOReply) == 12, "get-I/O reply is 12 bytes");
static_assert(sizeof(VORNStatisticRequest) == 260, "statistics request is 260 bytes");
static_assert(offsetof(VORNStatisticReply, representation) == 260, "representation at 260");
static_assert(offsetof(VORNStatisticReply, size) == 264, "size at 264");
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(offsetof(VORNStatisticReply, value) == 268, "value pointer at 268");
static_assert(sizeof(VORNStatisticReply) == 272, "statistics reply is 272 bytes");
#endif

} // namespace orv
