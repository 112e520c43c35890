// The identification EEPROMs on the camera's boards (I2C bus 2, "at24" driver): reading the
// 128-byte records, their integrity check and the fields the capability queries use.
#pragma once

#include <cstddef>
#include <cstdint>

// EEPROM kinds, one per board.
enum KSEEPROMKind
{
    KS_EEPROM_FRONTEND = 16, // 2-0054, board letter 'F'
    KS_EEPROM_DISPLAY = 17,  // 2-0052, 'D'
    KS_EEPROM_MAIN = 18,     // 2-0053, 'M': carries the article designation
    KS_EEPROM_ILLU = 19,     // 2-0055, 'I'
    KS_EEPROM_ADAPTER = 20,  // 2-0050, 'A'
};

constexpr size_t KS_EEPROM_RECORD_SIZE = 128;

// Board letter and three-character board code, each NUL-terminated.
struct KSBoardIdent
{
    char letter[2];
    char code[4];
};

// Six-character article designation and the two characters after it, each NUL-terminated.
struct KSArticle
{
    char designation[7];
    char suffix[3];
};

extern "C" {
// Booleans as int: 1 when the record of `kind` was read whole into `buffer` (size >= 128).
int ident_eeprom_read(int kind, uint8_t* buffer, size_t size);
bool ident_eeprom_check(int kind, uint8_t const* buffer);
bool ident_eeprom_get_article(int kind, uint8_t const* buffer, KSArticle* article);
bool ident_eeprom_get_board_ident(uint8_t const* buffer, KSBoardIdent* ident);
uint8_t crc_update(uint8_t crc, uint8_t const* data, size_t length);
// KEPT: never called: it prints the CRC table as C source, for whoever regenerates the table.
void crc_print();
// Finds the sysfs path of the device of `subsystem` bound to `driver` whose path ends in `name`
// (any such device when `name` is null).
bool sysfsudev_resolve_path(char const* subsystem, char const* driver, char const* name, char* path,
                            size_t size);
}
