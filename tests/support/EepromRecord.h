// Identification EEPROM records as the boards carry them, for the fake at24 devices of the tests.
// The CRC is computed bit by bit here, independently of the plug-in's table.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace orv::test {

inline uint8_t crc8Bitwise(uint8_t const* data, size_t length)
{
    uint8_t crc = 0xFF;
    for (size_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<uint8_t>((crc & 0x80) ? (crc << 1) ^ 0x97 : crc << 1);
    }
    return crc;
}

// A valid record: "#!", version, board letter and code, article at 98, CRC in the last byte.
inline std::vector<uint8_t> eepromRecord(char letter, std::string const& boardCode,
                                         std::string const& article = "", char const* version = "03")
{
    std::vector<uint8_t> record(128, 0x20);
    record[0] = '#';
    record[1] = '!';
    record[2] = static_cast<uint8_t>(version[0]);
    record[3] = static_cast<uint8_t>(version[1]);
    record[4] = '-';
    record[5] = static_cast<uint8_t>(letter);
    memcpy(&record[6], boardCode.data(), std::min<size_t>(3, boardCode.size()));
    memcpy(&record[98], article.data(), std::min<size_t>(8, article.size()));
    record[127] = crc8Bitwise(record.data(), 127);
    return record;
}

} // namespace orv::test
