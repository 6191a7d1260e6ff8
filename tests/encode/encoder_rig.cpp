#include "encode/encoder_rig.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace kz {

std::vector<BlockCode> EncoderTestAccess::BlockCodes(const EncoderBase& e) {
  std::vector<BlockCode> codes;
  const uint8_t* b = e.BlockBuffer;
  uint32_t q = 0;
  while (q < e.BlockPos) {
    const uint8_t flags = b[q++];
    for (uint32_t bit = 0x80; bit != 0 && q < e.BlockPos; bit >>= 1) {
      if (flags & bit) {
        codes.push_back(Match(b[q] + 3u, (uint32_t{b[q + 1]} << 8) | b[q + 2]));
        q += 3;
      } else {
        codes.push_back(Lit(b[q++]));
      }
    }
  }
  return codes;
}

}  // namespace kz

namespace kztest {

uint32_t DictSizeOf(Method m) {
  switch (m) {
    case Method::Lh5: return kz::kLh5EncParams.DictSize;
    case Method::Lh6: return kz::kLh6EncParams.DictSize;
    case Method::Lh7: return kz::kLh7EncParams.DictSize;
  }
  return 0;
}

EncoderRig::EncoderRig() : archiver_(std::make_unique<KzLhaArchiver>()) {
  if (archiver_->Init() < 0) throw std::runtime_error("archiver Init failed");
  if (archiver_->AllocEncodeBuffers() < 0) throw std::runtime_error("AllocEncodeBuffers failed");
}

EncoderRig::~EncoderRig() {
  archiver_->SourceStream.Close();
  archiver_->OutputStream.Close();
  archiver_->FreeEncodeBuffers();
}

kz::EncoderBase& EncoderRig::Encoder(Method m) {
  switch (m) {
    case Method::Lh6: return archiver_->Lha6Encoder;
    case Method::Lh7: return archiver_->Lha7Encoder;
    default: return archiver_->Lha5Encoder;
  }
}

void EncoderRig::Open(const Bytes& source) {
  KzLhaArchiver& a = *archiver_;
  const auto src = dir_ / "source.bin";
  const auto out = dir_ / "packed.bin";
  WriteFile(src, source);
  if (!a.SourceStream.Open(Wide(src.string()).c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0) ||
      !a.OutputStream.Create(Wide(out.string()).c_str(), GENERIC_WRITE, 1, CREATE_ALWAYS,
                             FILE_ATTRIBUTE_ARCHIVE, 0)) {
    throw std::runtime_error("cannot open the rig's streams");
  }
  a.Transfer = TransferRecord{};
  a.Transfer.OriginalSize = source.size();
}

Bytes EncoderRig::Close() {
  archiver_->SourceStream.Close();
  archiver_->OutputStream.Close();
  return ReadFile(dir_ / "packed.bin");
}

EncodeResult EncoderRig::Encode(Method m, uint32_t level, const Bytes& source,
                               uint64_t claimedSize) {
  KzLhaArchiver& a = *archiver_;
  a.CompressionLevel = level;
  Open(source);
  if (claimedSize != 0) a.Transfer.OriginalSize = claimedSize;
  switch (m) {
    case Method::Lh5: a.Lha5Encoder.Encode(); break;
    case Method::Lh6: a.Lha6Encoder.Encode(); break;
    case Method::Lh7: a.Lha7Encoder.Encode(); break;
  }
  EncodeResult r;
  r.Crc = a.Transfer.DataCrc;
  r.StoreFallback = a.Transfer.StoreFallback;
  r.PackedSize = a.Transfer.PackedSize;
  r.TotalBytes = a.Transfer.TotalBytes;
  r.Status = a.Status;
  r.Packed = Close();
  return r;
}

std::vector<kz::BlockCode> EncoderRig::SearchCodes(Method m, uint32_t level, const Bytes& source) {
  KzLhaArchiver& a = *archiver_;
  a.CompressionLevel = level;
  Open(source);
  switch (m) {
    case Method::Lh5: kz::EncoderTestAccess::Search(a.Lha5Encoder); break;
    case Method::Lh6: kz::EncoderTestAccess::Search(a.Lha6Encoder); break;
    case Method::Lh7: kz::EncoderTestAccess::Search(a.Lha7Encoder); break;
  }
  Close();
  return kz::EncoderTestAccess::BlockCodes(Encoder(m));
}

Bytes UniquePairBytes(size_t n) {
  // The least de Bruijn sequence B(256, 2): its Lyndon words "a" and "a b"
  // (a < b) in order, then the wrap-around pair.
  Bytes seq;
  for (int a = 0; a < 256; ++a) {
    seq.push_back(static_cast<uint8_t>(a));
    for (int b = a + 1; b < 256; ++b) {
      seq.push_back(static_cast<uint8_t>(a));
      seq.push_back(static_cast<uint8_t>(b));
    }
  }
  seq.push_back(seq[0]);
  if (n > seq.size()) throw std::invalid_argument("UniquePairBytes: too long");
  seq.resize(n);
  return seq;
}

Bytes Hex(const char* text) {
  Bytes out;
  for (const char* p = text; *p;) {
    if (*p == ' ') {
      ++p;
      continue;
    }
    out.push_back(static_cast<uint8_t>(std::stoul(std::string(p, 2), nullptr, 16)));
    p += 2;
  }
  return out;
}

}  // namespace kztest
