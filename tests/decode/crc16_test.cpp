#include "decode/crc16.h"

#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

namespace {

TEST(Crc16, KnownVectorsAndTableEntries) {
  // "12345678912345678": two 8-byte folds and a tail.
  const std::pair<std::string, uint16_t> vectors[] = {
      {"123456789", 0xBB3D}, {"abc", 0x9738}, {"", 0x0000}, {"a", 0xE8C1}, {"12345678912345678", 0xBA54}};
  for (const auto& [text, crc] : vectors)
    EXPECT_EQ(kz::UpdateCrc16(0, reinterpret_cast<const uint8_t*>(text.data()), static_cast<int32_t>(text.size())),
              crc)
        << text;
  kz::BuildCrc16Table();
  EXPECT_EQ(kz::Crc16Table[1], 0xC0C1);
  EXPECT_EQ(kz::Crc16Table[128], 0xA001);
  EXPECT_EQ(kz::Crc16Table[255], 0x4040);
  const uint8_t byte = 0x55;
  EXPECT_EQ(kz::UpdateCrc16(0x1234, &byte, -5), 0x1234);
  EXPECT_EQ(kz::UpdateCrc16(0x1234, nullptr, 0), 0x1234);
}

// The 8-byte fold must agree with the table, byte at a time, from any start
// value, for every length and alignment around the fold's edges.
TEST(Crc16, AgreesWithBytewiseTableAtEveryLengthAndAlignment) {
  kz::BuildCrc16Table();
  const kztest::Bytes data = kztest::RandomBytes(300, 7);
  for (size_t offset = 0; offset < 9; ++offset) {
    for (size_t length = 0; length + offset <= data.size(); length += (length < 40 ? 1 : 13)) {
      uint16_t expected = 0x5AA5;
      for (size_t i = 0; i < length; ++i)
        expected = kz::Crc16Table[(expected ^ data[offset + i]) & 0xFF] ^ (expected >> 8);
      ASSERT_EQ(kz::UpdateCrc16(0x5AA5, data.data() + offset, static_cast<int32_t>(length)), expected)
          << "offset " << offset << " length " << length;
    }
  }
}

}  // namespace
