// The member header writer: every header written is level 1, OS "w", with
// no extended headers, so its length depends on the name alone and the
// final header exactly covers the placeholder written before the data.
#include <cstring>

#include "archiver/lha_archiver.h"

namespace {

constexpr int32_t kMaxNameBytes = 230;  // keeps the size byte n + 25 within 255

void PutLe16(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

void PutLe32(uint8_t* p, uint32_t v) {
  PutLe16(p, v);
  PutLe16(p + 2, v >> 16);
}

uint32_t ByteSum(const uint8_t* p, size_t n) {
  uint32_t sum = 0;
  for (size_t i = 0; i < n; ++i) sum += p[i];
  return sum;
}

bool WriteAll(FileStream& stream, const void* data, uint32_t length) {
  uint32_t written = 0;
  return stream.Write(data, length, &written, 0) && written == length;
}

}  // namespace

int32_t KzLhaArchiver::WriteMemberHeader(uint8_t* header22, const PathString& name,
                                         uint32_t methodDigit) {
  // 1., 2. The cut is a byte cut and may split a multibyte character.
  char text[1024] = {};
  ConvertNameForHeader(name.c_str(), text, sizeof text, 0, 0);
  int32_t n = lstrlenA(text);
  if (n > kMaxNameBytes) {
    text[kMaxNameBytes] = '\0';
    n = kMaxNameBytes;
  }
  // 3. Offsets 15 to 19 (time, date, attributes) are the caller's.
  header22[0] = static_cast<uint8_t>(n + 25);
  std::memcpy(header22 + 2, "-lh0-", 5);
  header22[5] = static_cast<uint8_t>('0' + methodDigit);
  PutLe32(header22 + 7, static_cast<uint32_t>(Transfer.PackedSize));
  PutLe32(header22 + 11, static_cast<uint32_t>(Transfer.OriginalSize));
  header22[20] = 1;
  header22[21] = static_cast<uint8_t>(n);
  uint8_t trailer[5] = {0, 0, 'w', 0, 0};
  PutLe16(trailer, Transfer.DataCrc);
  // 4.
  const uint8_t* nameBytes = reinterpret_cast<const uint8_t*>(text);
  header22[1] = static_cast<uint8_t>(ByteSum(header22 + 2, 20) + ByteSum(nameBytes, n) +
                                     ByteSum(trailer, sizeof trailer));
  // 5.
  if (!WriteAll(OutputStream, header22, 22) ||
      !WriteAll(OutputStream, text, static_cast<uint32_t>(n)) ||
      !WriteAll(OutputStream, trailer, sizeof trailer)) {
    return SetSystemError(OutputStream.GetName());
  }
  return 0;
}
