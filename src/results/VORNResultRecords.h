// The request and reply records of the result-data query, laid out for the camera's 32-bit host.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orv {

// What the data of a result record is.
enum VORNDataType_t : int32_t
{
    VORN_DATA_NONE = 0,   // unknown key: no data
    VORN_DATA_BINARY = 5, // images, arrays, PNG file
    VORN_DATA_JSON = 6,   // JSON text
};

struct VORNQueryProcessData_t
{
    char key[256]; // NUL-terminated data key
    char id[256];  // NUL-terminated result id; the host decides the capacity, only the text is read
};

struct VORNResultData_t
{
    int32_t status;
    char name[256]; // not NUL-terminated when the name has 256 or more characters
    uint8_t reserved[12];
    int32_t type; // VORNDataType_t
    uint32_t size;
    void const* data; // inside the result manager's memory; the host never frees it
};

#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(VORNResultData_t) == 284, "the result record is 284 bytes");
static_assert(offsetof(VORNResultData_t, name) == 4, "name at 4");
static_assert(offsetof(VORNResultData_t, reserved) == 260, "reserved at 260");
static_assert(offsetof(VORNResultData_t, type) == 272, "type at 272");
static_assert(offsetof(VORNResultData_t, size) == 276, "size at 276");
static_assert(offsetof(VORNResultData_t, data) == 280, "data at 280");
static_assert(offsetof(VORNQueryProcessData_t, id) == 256, "id at 256");
#endif

} // namespace orv
