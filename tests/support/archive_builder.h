// Builds LHA archive bytes for tests, field by field, so that a test shows
// the archive it reads instead of hiding it in a blob. Every field can be
// set, including ones that make the header wrong on purpose.
//
//   kztest::ArchiveBuilder b;
//   b.Stub(kztest::Bytes(100, 'M'));
//   b.Member({.level = 2, .method = "-lh0-", .name = "x.txt",
//             .directory = kztest::Dir("docs/"), .packed = kztest::ToBytes("hi")});
//   b.End();
//   kztest::WriteFile(path, b.Bytes());
//
// Name and directory texts are raw multibyte bytes as they go into the
// header: a level-0/1 name keeps its backslashes, extended-header
// directories use 0xFF between components (Dir() makes those from '/').
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kztest {

// One extended header (levels 1 and 2): type, data and, for broken headers,
// a size field that disagrees with the data.
struct ExtHeader {
  uint8_t type = 0;
  Bytes data{};
  std::optional<uint16_t> size{};  // default: 1 + data.size() + 2
};

struct MemberSpec {
  int level = 1;                  // 0, 1, 2 (3 and up are written as level 2)
  std::string method = "-lh0-";   // five characters, written as they are
  std::string name{};               // level 0/1: the name field; level 2: a type-0x01 header
  std::string directory{};          // level 1/2: a type-0x02 header when not empty
  Bytes packed{};                   // the packed data that follows the header
  uint32_t originalSize = 0;
  uint16_t crc = 0;
  uint32_t timeStamp = 0x3C210000;  // level 0/1: DOS date<<16|time; level 2: Unix seconds
  uint8_t attributes = 0x20;
  uint8_t osId = 'U';             // level 1/2
  std::vector<ExtHeader> extensions{};  // further headers, after the name and directory
  bool headerCrc = false;         // level 2: a type-0x00 header holding the header's CRC-16

  // Overrides for damaged or unusual headers.
  std::optional<uint32_t> packedSize{};     // default: level 1: extensions + data; else data
  std::optional<uint8_t> sizeByte{};        // level 0/1 byte 0
  std::optional<uint8_t> checksum{};        // level 0/1 byte 1
  int checksumDelta = 0;                  // added to the computed checksum
  Bytes level0Trailer{};                    // level 0: bytes behind the CRC, counted in byte 0
  bool trailerInChecksum = true;          // as LHA writers do; the reader sums up to the CRC
  std::optional<uint16_t> headerLength{};   // level 2 offset 0
  size_t level2Padding = 0;               // level 2: zero bytes after the extensions
  std::optional<uint16_t> firstExtSize{};   // overrides the first extended-header size field
  std::optional<uint8_t> levelByte{};       // written at offset 20 instead of `level`
};

// Where a member landed in the archive.
struct MemberLayout {
  uint64_t headerPos = 0;
  uint32_t headerLength = 0;    // level 0/1: byte 0 + 2; level 2: total length
  uint32_t extendedLength = 0;  // level 1: the extended headers after the base header
  uint64_t dataPos = 0;
};

class ArchiveBuilder {
 public:
  // Bytes before the first header (a self-extracting stub).
  ArchiveBuilder& Stub(const Bytes& bytes);
  ArchiveBuilder& Member(const MemberSpec& spec);
  // A stored (-lh0-) member whose sizes and CRC match `content`.
  ArchiveBuilder& Stored(const std::string& name, const Bytes& content, int level = 1);
  // Arbitrary bytes at the current end.
  ArchiveBuilder& Raw(const Bytes& bytes);
  // The end marker: one zero byte.
  ArchiveBuilder& End();

  const kztest::Bytes& Bytes() const { return bytes_; }
  const std::vector<MemberLayout>& Layout() const { return layout_; }
  size_t Size() const { return bytes_.size(); }
  void WriteTo(const std::filesystem::path& path) const;

 private:
  kztest::Bytes bytes_{};
  std::vector<MemberLayout> layout_{};
};

// The header bytes of one member alone (without its packed data).
Bytes MemberHeader(const MemberSpec& spec, MemberLayout* layout = nullptr);

// "a/b/" -> "a" 0xFF "b" 0xFF: directory text for extended headers.
std::string Dir(const std::string& slashed);

// CRC-16/ARC, written here independently of the engine's.
uint16_t Crc16(const Bytes& data);

// A DOS date<<16|time value.
constexpr uint32_t DosTime(int year, int month, int day, int hour = 0, int minute = 0,
                           int second = 0) {
  uint32_t date = static_cast<uint32_t>(((year - 1980) << 9) | (month << 5) | day);
  uint32_t time = static_cast<uint32_t>((hour << 11) | (minute << 5) | (second / 2));
  return (date << 16) | time;
}

}  // namespace kztest
