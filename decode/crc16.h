// CRC-16/ARC, the one CRC of the LHA format: polynomial 0x8005 reflected
// (0xA001), initial value 0, no final XOR.
#pragma once

#include <cstdint>

namespace kz {

extern uint16_t Crc16Table[256];

// Fills Crc16Table; every call writes the same values.
void BuildCrc16Table();

// The CRC after running over `length` bytes from `data`; a length of 0 or
// below returns crc unchanged.
uint16_t UpdateCrc16(uint16_t crc, const uint8_t* data, int32_t length);

}  // namespace kz
