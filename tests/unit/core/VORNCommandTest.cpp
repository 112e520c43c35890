#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

#include "core/KestrelVORN.h"
#include "core/VORNCommand.h"

namespace {

// On the camera a pointer is 4 bytes; the words after it move with the pointer's size.
constexpr size_t kPointer = sizeof(void*);

class FixedReply : public orv::VORNCommand
{
public:
    DataBlock* execute(DataBlock const*) override { return nullptr; }
};

TEST(DataBlockLayout, HasNineWordsAroundThePayloadPointer)
{
    EXPECT_EQ(sizeof(DataBlock), kPointer + 8 * 4);
    EXPECT_EQ(offsetof(DataBlock, data), 0u);
    EXPECT_EQ(offsetof(DataBlock, command), kPointer + 12);
    if (kPointer == 4) {
        EXPECT_EQ(sizeof(DataBlock), 36u);
    }
}

TEST(CreateDataBlock, ZeroesEveryWordButCommandAndPayload)
{
    unsigned char* payload = static_cast<unsigned char*>(malloc(4));
    // Garbage in fresh memory must not survive into the block.
    for (int attempt = 0; attempt < 8; ++attempt) {
        DataBlock* block = orv::VORNCommand::create_DataBlock(-7, attempt == 0 ? payload : nullptr);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->command, -7);
        EXPECT_EQ(block->data, attempt == 0 ? payload : nullptr);
        for (uint32_t word : block->reserved0)
            EXPECT_EQ(word, 0u);
        for (uint32_t word : block->reserved1)
            EXPECT_EQ(word, 0u);
        memset(block, 0xA5, sizeof *block); // dirty the heap for the next round
        free(block);
    }
    free(payload);
}

TEST(GetCommand, FindsOnlyExactIdsAndInsertsNothing)
{
    FixedReply two, four;
    std::map<int, orv::VORNCommand*> table{{2, &two}, {4, &four}};

    EXPECT_EQ(get_command(table, 2), &two);
    EXPECT_EQ(get_command(table, 4), &four);
    EXPECT_EQ(get_command(table, 3), nullptr); // the next key up is 4, not 3
    EXPECT_EQ(get_command(table, 5), nullptr);
    EXPECT_EQ(get_command(table, -1), nullptr);
    EXPECT_EQ(table.size(), 2u);
}

} // namespace
