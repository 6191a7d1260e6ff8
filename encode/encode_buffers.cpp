// The encoders' work buffers: one set, owned by the archiver, lent to all
// three encoders, since only one member is encoded at a time.
#include <cstdlib>
#include <cstring>

#include "archiver/lha_archiver.h"

namespace {

int gFailAllocation = 0;  // test seam: 1..6 fails that allocation once

template <typename T>
T* Allocate(size_t bytes, int index) {
  if (gFailAllocation == index) {
    gFailAllocation = 0;
    return nullptr;
  }
  return static_cast<T*>(std::malloc(bytes));
}

template <typename T>
void Release(T*& buffer) {
  if (buffer != nullptr) std::free(buffer);
  buffer = nullptr;
}

}  // namespace

namespace kz::testing {
void FailEncodeAllocation(int index) { gFailAllocation = index; }
}  // namespace kz::testing

HRESULT KzLhaArchiver::AllocEncodeBuffers() {
  // 1., 2. Every allocation is attempted, so that a failure releases them all.
  EncodeBlockBufferSize = kz::kBlockBufferBytes;
  InputOrBlockBuffer = Allocate<uint8_t>(kz::kBlockBufferBytes + kz::kBlockSlackBytes, 1);
  Lh1OrOutputBuffer = Allocate<uint8_t>(kz::kOutputBufferBytes, 2);
  HashHeadTable = Allocate<uint32_t>(kz::kHashHeadBytes, 3);
  HashChainTable = Allocate<uint32_t>(kz::kHashChainBytes, 4);
  DictionaryOrText = Allocate<uint8_t>(kz::kTextBytes, 5);
  CrowdedFlags = Allocate<uint8_t>(kz::kCrowdedBytes, 6);
  // 3.
  if (InputOrBlockBuffer == nullptr || Lh1OrOutputBuffer == nullptr || HashHeadTable == nullptr ||
      HashChainTable == nullptr || DictionaryOrText == nullptr || CrowdedFlags == nullptr) {
    FreeEncodeBuffers();
    return SetError(kz::E_Outofmemory, nullptr);
  }
  // The search may look past the bytes read from a source; with the buffer
  // cleared here, what it sees there never depends on heap garbage.
  std::memset(DictionaryOrText, 0, kz::kTextBytes);
  // The block output reads a literal's two following bytes as if they were
  // a position; cleared, they are defined even past the last code.
  std::memset(InputOrBlockBuffer, 0, kz::kBlockBufferBytes + kz::kBlockSlackBytes);
  // 4.
  auto lend = [this](kz::EncoderBase& encoder) {
    encoder.SetBuffers(EncodeBlockBufferSize, InputOrBlockBuffer, Lh1OrOutputBuffer,
                       HashHeadTable, HashChainTable, DictionaryOrText, CrowdedFlags);
  };
  lend(Lha5Encoder);
  lend(Lha6Encoder);
  lend(Lha7Encoder);
  return 0;
}

void KzLhaArchiver::FreeEncodeBuffers() {
  Release(InputOrBlockBuffer);
  Release(Lh1OrOutputBuffer);
  Release(HashHeadTable);
  Release(HashChainTable);
  Release(DictionaryOrText);
  Release(CrowdedFlags);
}
