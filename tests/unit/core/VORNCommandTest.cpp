#include <cstdlib>
#include <cstring>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/VORNCommand.h"
#include "plugin/KestrelVORN.h"

TEST(DataBlockLayout, HasEightWordsAroundThePayloadPointerWithTheCommandFifth)
{
    // A pointer is 4 bytes on the camera; the words after it move with its size.
    EXPECT_EQ(sizeof(DataBlock), sizeof(void*) + 8 * 4);
    EXPECT_EQ(offsetof(DataBlock, command), sizeof(void*) + 12);
}

TEST(CreateDataBlock, ZeroesEveryWordButCommandAndPayloadEvenInReusedMemory)
{
    unsigned char payload[4];
    for (int attempt = 0; attempt < 8; ++attempt) {
        DataBlock* block = orv::VORNCommand::create_DataBlock(-7, attempt == 0 ? payload : nullptr);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->command, -7);
        EXPECT_EQ(block->data, attempt == 0 ? payload : nullptr);
        EXPECT_THAT(block->reserved0, ::testing::Each(0u));
        EXPECT_THAT(block->reserved1, ::testing::Each(0u));
        memset(block, 0xA5, sizeof *block); // garbage for the next block made in this memory
        free(block);
    }
}

TEST(GetCommand, FindsOnlyExactIds)
{
    struct : orv::VORNCommand
    {
        DataBlock* execute(DataBlock const*) override { return nullptr; }
    } two, four;
    std::map<int, orv::VORNCommand*> const table{{2, &two}, {4, &four}};

    EXPECT_EQ(get_command(table, 2), &two);
    EXPECT_EQ(get_command(table, 4), &four);
    for (int id : {3, 5, -1}) // for 3 the next key up is 4
        EXPECT_EQ(get_command(table, id), nullptr) << id;
}
