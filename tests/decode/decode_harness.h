// One archiver with its decode buffers, decoding packed bytes placed in a
// temporary file as one member, and capturing every output block as the
// library hands it to the host's Data callback.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "archiver/lha_archiver.h"
#include "enginelib/file_stream.h"
#include "support/engine_harness.h"

namespace kztest {

struct MemberData {
  uint32_t Method = 5;
  Bytes Packed{};
  uint64_t OriginalSize = 0;
  std::optional<uint32_t> Crc{};  // default: the CRC of the expected output, if given
  uint32_t Lead = 7;            // bytes of "header" before the data
  Bytes Trailer{};              // bytes after the member's data (the next member)
  std::optional<uint64_t> PackedSize{};  // default: Packed.size()
};

class DecodeHarness {
 public:
  DecodeHarness() {
    EXPECT_GE(archiver_.Init(), 0);
    KzCallbacks callbacks{};
    callbacks.Size = sizeof(callbacks);
    callbacks.Data = &DecodeHarness::OnData;
    archiver_.SetCallbacks(&callbacks, this);
    EXPECT_EQ(archiver_.AllocDecodeBuffers(), 0);
  }
  ~DecodeHarness() { archiver_.FreeDecodeBuffers(); }

  KzLhaArchiver& Archiver() { return archiver_; }
  const std::vector<Bytes>& Blocks() const { return blocks_; }
  std::vector<size_t> BlockSizes() const {
    std::vector<size_t> sizes;
    for (const Bytes& b : blocks_) sizes.push_back(b.size());
    return sizes;
  }
  Bytes Output() const {
    Bytes all;
    for (const Bytes& b : blocks_) all.insert(all.end(), b.begin(), b.end());
    return all;
  }
  // The archive's name as the stream reports it (backslashed).
  std::wstring ArchiveName() const { return EnginePath(dir_ / "member.lzh"); }
  // The data callback fails (stopping the decoder) from this block on.
  void FailDataAtBlock(size_t index) { failAt_ = index; }

  // Writes the member's file, opens it and runs DecodeMember; the header's
  // CRC defaults to the CRC of `expected` (or 0).
  HRESULT Decode(const MemberData& m, const Bytes& expected = {}) {
    Bytes file(m.Lead, 0xEE);
    file.insert(file.end(), m.Packed.begin(), m.Packed.end());
    file.insert(file.end(), m.Trailer.begin(), m.Trailer.end());
    WriteFile(dir_ / "member.lzh", file);
    blocks_.clear();
    archiver_.ArchiveStream.Close();
    std::wstring path = Wide((dir_ / "member.lzh").string());
    EXPECT_TRUE(archiver_.ArchiveStream.Open(path.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0));
    header_ = LhaHeader{};
    header_.Name = name_;
    header_.Method = m.Method;
    header_.PackedSize = m.PackedSize.value_or(m.Packed.size());
    header_.OriginalSize = m.OriginalSize;
    header_.HeaderPos = 0;
    header_.HeaderLength = m.Lead > 3 ? m.Lead - 3 : m.Lead;
    header_.ExtendedLength = m.Lead > 3 ? 3 : 0;
    header_.Crc = m.Crc.value_or(Crc16(expected));
    HRESULT hr = archiver_.DecodeMember(header_);
    archiver_.ArchiveStream.Close();
    return hr;
  }

 private:
  static int KZ_CALL OnData(void* context, const LhaHeader*, const void* data, size_t size) {
    auto* self = static_cast<DecodeHarness*>(context);
    const auto* p = static_cast<const uint8_t*>(data);
    self->blocks_.emplace_back(p, p + size);
    return self->failAt_ && self->blocks_.size() > *self->failAt_ ? 1 : 0;
  }

  KzLhaArchiver archiver_;
  TempDir dir_;
  std::vector<Bytes> blocks_;
  std::optional<size_t> failAt_;
  LhaHeader header_{};
  wchar_t name_[16] = L"member.bin";
};

// Counts the archive reads a decode makes (the seam counts, never fails).
struct ReadCounter {
  ReadCounter() { kz::fault::Arm(UINT64_MAX, kz::fault::kRead); }
  ~ReadCounter() { kz::fault::Disarm(); }
  uint64_t Reads() const { return kz::fault::CallsSeen(); }
};

// Decodes `packed` as one member whose CRC is that of `expected`; returns
// the block sizes handed to the host.
inline std::vector<size_t> ExpectDecodes(uint32_t method, const Bytes& packed, const Bytes& expected) {
  DecodeHarness h;
  EXPECT_EQ(h.Decode({.Method = method, .Packed = packed, .OriginalSize = expected.size()}, expected), 0);
  EXPECT_TRUE(h.Output() == expected) << "method " << method << ", " << expected.size() << " bytes";
  return h.BlockSizes();
}

}  // namespace kztest
