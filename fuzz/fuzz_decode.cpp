// Decodes arbitrary bytes as one member's packed data, with every decoder,
// through DecodeMember: whatever the data, decoding must end (by the
// original size, a refused table or a CRC mismatch) without touching memory
// outside its buffers, and the output must stay within a match of the size.
//
// Input layout: byte 0 picks the method (its value modulo 8: 0 stored,
// 1 lh1, 2..3 unknown, 4..7 lh4..lh7), bytes 1..3 the original size (up to
// 256 KiB: four times the largest window, while a larger size only made
// every run slower), byte 4 how the packed size relates to the data (0: exact; other:
// shorter, so that zero bits follow), byte 5 a second member decoded after
// the first on the same archiver (odd) or not; the rest is the packed data.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "archiver/lha_archiver.h"
#include "fuzz/fuzz_input.h"

namespace {

constexpr size_t kHead = 6;

const std::string& InputPath() { return kzfuzz::InputPath("kz_fuzz_decode", ".bin"); }

bool WriteInput(const uint8_t* data, size_t size) { return kzfuzz::WriteInput(InputPath(), data, size); }

struct Counter {
  uint64_t Bytes = 0;
};

int KZ_CALL CountData(void* context, const LhaHeader*, const void*, size_t size) {
  static_cast<Counter*>(context)->Bytes += size;
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kHead || !WriteInput(data, size)) return 0;
  KzLhaArchiver archiver;
  if (archiver.Init() < 0 || archiver.AllocDecodeBuffers() < 0) return 0;
  Counter counter;
  KzCallbacks callbacks{};
  callbacks.Size = sizeof(callbacks);
  callbacks.Data = &CountData;
  archiver.SetCallbacks(&callbacks, &counter);
  const std::wstring path(InputPath().begin(), InputPath().end());
  if (!archiver.ArchiveStream.Open(path.c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0)) return 0;

  wchar_t name[] = L"fuzz";
  LhaHeader header{};
  header.Name = name;
  header.Method = data[0] % 8;
  header.OriginalSize = data[1] | data[2] << 8 | (data[3] & 0x03) << 16;
  header.HeaderPos = 0;
  header.HeaderLength = kHead;
  const uint64_t available = size - kHead;
  header.PackedSize = data[4] == 0 ? available : available * data[4] / 256;
  header.Crc = 0;
  for (int member = 0; member < (data[5] & 1 ? 2 : 1); ++member) {
    counter.Bytes = 0;
    archiver.Status = 0;
    archiver.DecodeMember(header);
    // A decoder stops within its last match of the original size.
    if (counter.Bytes > header.OriginalSize + 256) std::abort();
  }
  archiver.ArchiveStream.Close();
  archiver.FreeDecodeBuffers();
  return 0;
}
