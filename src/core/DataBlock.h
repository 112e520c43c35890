// The request and reply record exchanged with the host daemon: nine 32-bit words on the camera.
#pragma once

#include <cstddef>
#include <cstdint>

struct DataBlock
{
    unsigned char* data;   // request: the command's argument record; reply: malloc'd payload
    uint32_t reserved0[3]; // zero in replies, never read
    int32_t command;       // request: command id; reply: reply code
    uint32_t reserved1[4]; // zero in replies, never read
};

// The host is a separate program compiled for the camera, so on the 32-bit target the layout is an
// interface format. On a 64-bit development host only the pointer grows.
#if UINTPTR_MAX == 0xFFFFFFFFu
static_assert(sizeof(DataBlock) == 36, "DataBlock is nine 32-bit words");
static_assert(offsetof(DataBlock, data) == 0, "payload pointer first");
static_assert(offsetof(DataBlock, command) == 16, "command word at offset 16");
#endif
