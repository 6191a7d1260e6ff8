#include "support/archive_builder.h"

#include <fstream>
#include <numeric>
#include <stdexcept>

namespace kztest {

namespace {

void Put16(Bytes& out, uint32_t v) {
  out.push_back(static_cast<uint8_t>(v));
  out.push_back(static_cast<uint8_t>(v >> 8));
}

void Put32(Bytes& out, uint32_t v) {
  Put16(out, v & 0xFFFF);
  Put16(out, v >> 16);
}

void PutText(Bytes& out, const std::string& text) { out.insert(out.end(), text.begin(), text.end()); }

Bytes TextOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

uint16_t ExtSize(const ExtHeader& e) {
  return e.size ? *e.size : static_cast<uint16_t>(1 + e.data.size() + 2);
}

// The extended headers of a member, in the order they are written.
std::vector<ExtHeader> Extensions(const MemberSpec& spec, bool level2) {
  std::vector<ExtHeader> list;
  if (level2 && spec.headerCrc) list.push_back({0x00, Bytes{0, 0}, std::nullopt});
  if (level2 && !spec.name.empty()) list.push_back({0x01, TextOf(spec.name), std::nullopt});
  if (!spec.directory.empty()) list.push_back({0x02, TextOf(spec.directory), std::nullopt});
  list.insert(list.end(), spec.extensions.begin(), spec.extensions.end());
  return list;
}

// Writes the chain: each header's type and data, then the next one's size.
// Returns the offset (within `out`) of each header's data, for the CRC.
std::vector<size_t> PutExtensions(Bytes& out, const std::vector<ExtHeader>& list) {
  std::vector<size_t> dataOffsets;
  for (size_t i = 0; i < list.size(); ++i) {
    out.push_back(list[i].type);
    dataOffsets.push_back(out.size());
    out.insert(out.end(), list[i].data.begin(), list[i].data.end());
    Put16(out, i + 1 < list.size() ? ExtSize(list[i + 1]) : 0);
  }
  return dataOffsets;
}

uint16_t FirstExtSize(const MemberSpec& spec, const std::vector<ExtHeader>& list) {
  if (spec.firstExtSize) return *spec.firstExtSize;
  return list.empty() ? 0 : ExtSize(list.front());
}

uint32_t SumExtSizes(const std::vector<ExtHeader>& list) {
  uint32_t total = 0;
  for (const auto& e : list) total += ExtSize(e);
  return total;
}

// Offsets 2 to 20: method, sizes, time, attributes, level.
void PutCommon(Bytes& out, const MemberSpec& spec, uint32_t packedSize) {
  if (spec.method.size() != 5) throw std::invalid_argument("method must be five characters");
  PutText(out, spec.method);
  Put32(out, packedSize);
  Put32(out, spec.originalSize);
  Put32(out, spec.timeStamp);
  out.push_back(spec.attributes);
  out.push_back(spec.levelByte ? *spec.levelByte : static_cast<uint8_t>(spec.level));
}

Bytes Level01Header(const MemberSpec& spec, MemberLayout& layout) {
  const bool level1 = spec.level == 1;
  const auto list = level1 ? Extensions(spec, false) : std::vector<ExtHeader>{};
  const uint32_t extTotal = SumExtSizes(list);
  Bytes h{0, 0};
  PutCommon(h, spec, spec.packedSize ? *spec.packedSize
                                     : static_cast<uint32_t>(spec.packed.size()) + extTotal);
  if (spec.name.size() > 255) throw std::invalid_argument("level 0/1 names hold 255 bytes");
  h.push_back(static_cast<uint8_t>(spec.name.size()));
  PutText(h, spec.name);
  Put16(h, spec.crc);
  if (level1) {
    h.push_back(spec.osId);
    Put16(h, FirstExtSize(spec, list));
  }
  const size_t summedEnd = h.size();
  if (!level1) h.insert(h.end(), spec.level0Trailer.begin(), spec.level0Trailer.end());
  const size_t baseLength = h.size();
  h[0] = spec.sizeByte ? *spec.sizeByte : static_cast<uint8_t>(baseLength - 2);
  const size_t sumEnd = spec.trailerInChecksum ? baseLength : summedEnd;
  const unsigned sum = std::accumulate(h.begin() + 2, h.begin() + static_cast<long>(sumEnd), 0u);
  h[1] = spec.checksum ? *spec.checksum : static_cast<uint8_t>(sum + spec.checksumDelta);
  PutExtensions(h, list);
  layout.headerLength = h[0] + 2u;
  layout.extendedLength = extTotal;
  return h;
}

Bytes Level2Header(const MemberSpec& spec, MemberLayout& layout) {
  const auto list = Extensions(spec, true);
  Bytes h{0, 0};
  PutCommon(h, spec, spec.packedSize ? *spec.packedSize : static_cast<uint32_t>(spec.packed.size()));
  Put16(h, spec.crc);
  h.push_back(spec.osId);
  Put16(h, FirstExtSize(spec, list));
  const auto dataOffsets = PutExtensions(h, list);
  h.insert(h.end(), spec.level2Padding, 0);
  const uint16_t length = spec.headerLength ? *spec.headerLength : static_cast<uint16_t>(h.size());
  h[0] = static_cast<uint8_t>(length);
  h[1] = static_cast<uint8_t>(length >> 8);
  if (spec.headerCrc) {
    const uint16_t crc = Crc16(h);  // computed with its own field still zero
    h[dataOffsets[0]] = static_cast<uint8_t>(crc);
    h[dataOffsets[0] + 1] = static_cast<uint8_t>(crc >> 8);
  }
  layout.headerLength = length;
  return h;
}

}  // namespace

Bytes MemberHeader(const MemberSpec& spec, MemberLayout* layout) {
  MemberLayout local;
  Bytes h = spec.level < 2 ? Level01Header(spec, local) : Level2Header(spec, local);
  if (layout) *layout = local;
  return h;
}

ArchiveBuilder& ArchiveBuilder::Stub(const kztest::Bytes& bytes) { return Raw(bytes); }

ArchiveBuilder& ArchiveBuilder::Member(const MemberSpec& spec) {
  MemberLayout layout;
  const kztest::Bytes header = MemberHeader(spec, &layout);
  layout.headerPos = bytes_.size();
  layout.dataPos = layout.headerPos + layout.headerLength + layout.extendedLength;
  bytes_.insert(bytes_.end(), header.begin(), header.end());
  bytes_.insert(bytes_.end(), spec.packed.begin(), spec.packed.end());
  layout_.push_back(layout);
  return *this;
}

ArchiveBuilder& ArchiveBuilder::Stored(const std::string& name, const kztest::Bytes& content,
                                       int level) {
  MemberSpec spec;
  spec.level = level;
  spec.name = name;
  spec.packed = content;
  spec.originalSize = static_cast<uint32_t>(content.size());
  spec.crc = Crc16(content);
  return Member(spec);
}

ArchiveBuilder& ArchiveBuilder::Raw(const kztest::Bytes& bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return *this;
}

ArchiveBuilder& ArchiveBuilder::End() {
  bytes_.push_back(0);
  return *this;
}

// Written here rather than through the test helpers, so that benchmarks can
// build archives without the test support library.
void ArchiveBuilder::WriteTo(const std::filesystem::path& path) const {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

std::string Dir(const std::string& slashed) {
  std::string out = slashed;
  for (char& c : out) {
    if (c == '/') c = '\xFF';
  }
  return out;
}

uint16_t Crc16(const Bytes& data) {
  uint16_t crc = 0;
  for (uint8_t b : data) {
    crc ^= b;
    for (int k = 0; k < 8; ++k) crc = (crc & 1) ? static_cast<uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
  }
  return crc;
}

}  // namespace kztest
