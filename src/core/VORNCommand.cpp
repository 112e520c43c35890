#include "core/VORNCommand.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace orv {

DataBlock* VORNCommand::create_DataBlock(int command, unsigned char* data)
{
    auto* block = static_cast<DataBlock*>(malloc(sizeof(DataBlock)));
    if (block == nullptr) {
        perror("malloc(DataBlock)");
        return nullptr;
    }
    memset(block, 0, sizeof(DataBlock));
    block->command = command;
    block->data = data;
    return block;
}

} // namespace orv
