#include "ident/IdentEeprom.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

struct KindInfo
{
    int kind;
    int address; // the I2C device is "2-00" followed by this number
    char letter;
};

constexpr KindInfo kKinds[] = {
    {KS_EEPROM_FRONTEND, 54, 'F'}, {KS_EEPROM_DISPLAY, 52, 'D'}, {KS_EEPROM_MAIN, 53, 'M'},
    {KS_EEPROM_ILLU, 55, 'I'},     {KS_EEPROM_ADAPTER, 50, 'A'},
};

KindInfo const* findKind(int kind)
{
    for (KindInfo const& info : kKinds)
        if (info.kind == kind)
            return &info;
    return nullptr;
}

// MSB-first CRC-8, polynomial 0x97: entry i is the CRC of the single byte i starting from 0.
struct CrcTable
{
    uint8_t entries[256];
    CrcTable()
    {
        for (int i = 0; i < 256; ++i) {
            uint8_t crc = static_cast<uint8_t>(i);
            for (int bit = 0; bit < 8; ++bit)
                crc = static_cast<uint8_t>((crc & 0x80) ? (crc << 1) ^ 0x97 : crc << 1);
            entries[i] = crc;
        }
    }
};

CrcTable const& crcTable()
{
    static CrcTable const table;
    return table;
}

constexpr uint8_t kCrcInit = 0xFF;

bool headerAndVersionValid(uint8_t const* buffer)
{
    if (buffer[0] != '#' || buffer[1] != '!')
        return false;
    uint8_t const version = static_cast<uint8_t>((buffer[2] - '0') * 10 + (buffer[3] - '0'));
    return version == 2 || version == 3;
}

} // namespace

extern "C" {

uint8_t crc_update(uint8_t crc, uint8_t const* data, size_t length)
{
    CrcTable const& table = crcTable();
    for (size_t i = 0; i < length; ++i)
        crc = table.entries[crc ^ data[i]];
    return crc;
}

void crc_print()
{
    CrcTable const& table = crcTable();
    printf("\nstatic uint8_t crc_tab8[SMSP_CRC_TABLE_SIZE] = {\n    ");
    for (int i = 0; i < 256; ++i) {
        printf("0x%02x, ", table.entries[i]);
        if (i % 8 == 7 && i != 255)
            printf("\n    ");
    }
    printf("\n};");
    fflush(stdout);
}

int ident_eeprom_read(int kind, uint8_t* buffer, size_t size)
{
    KindInfo const* info = findKind(kind);
    if (info == nullptr || buffer == nullptr || size < KS_EEPROM_RECORD_SIZE)
        return 0;
    char name[81];
    snprintf(name, sizeof name, "2-00%d", info->address);
    char path[512 + sizeof "/eeprom"];
    if (!sysfsudev_resolve_path("i2c", "at24", name, path, 512))
        return 0;
    strcat(path, "/eeprom");
    int const fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    ssize_t const got = read(fd, buffer, KS_EEPROM_RECORD_SIZE);
    close(fd);
    return got == static_cast<ssize_t>(KS_EEPROM_RECORD_SIZE) ? 1 : 0;
}

bool ident_eeprom_check(int kind, uint8_t const* buffer)
{
    KindInfo const* info = findKind(kind);
    if (info == nullptr || buffer == nullptr)
        return false;
    if (!headerAndVersionValid(buffer) || buffer[5] != info->letter)
        return false;
    return crc_update(kCrcInit, buffer, KS_EEPROM_RECORD_SIZE - 1) == buffer[KS_EEPROM_RECORD_SIZE - 1];
}

bool ident_eeprom_get_article(int kind, uint8_t const* buffer, KSArticle* article)
{
    if (kind != KS_EEPROM_MAIN || buffer == nullptr || article == nullptr)
        return false;
    memcpy(article->designation, buffer + 98, 6);
    article->designation[6] = '\0';
    memcpy(article->suffix, buffer + 104, 2);
    article->suffix[2] = '\0';
    return ident_eeprom_check(kind, buffer);
}

bool ident_eeprom_get_board_ident(uint8_t const* buffer, KSBoardIdent* ident)
{
    if (buffer == nullptr || ident == nullptr)
        return false;
    if (!headerAndVersionValid(buffer)) {
        ident->code[3] = '\0';
        return false;
    }
    ident->letter[0] = static_cast<char>(buffer[5]);
    ident->letter[1] = '\0';
    memcpy(ident->code, buffer + 6, 3);
    ident->code[3] = '\0';
    return true;
}

} // extern "C"
