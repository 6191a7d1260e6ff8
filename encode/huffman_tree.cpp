// Huffman codes from frequencies: a heap-built tree, lengths capped at 16
// bits, canonical codes. The heap's tie-breaks fix the lengths where
// frequencies are equal, and with them every bit the encoder writes.
#include "encode/encoders.h"

namespace kz {

int16_t EncoderBase::MakeTree(int32_t n, uint16_t* freq, uint8_t* len, uint16_t* code) {
  // 1.
  TreeSymbols = n;
  TreeFreq = freq;
  TreeLen = len;
  HeapSize = 0;
  Heap[1] = 0;
  // 2.
  for (int32_t i = 0; i < n; ++i) {
    len[i] = 0;
    if (freq[i] != 0) Heap[++HeapSize] = static_cast<int16_t>(i);
  }
  // 3. Fewer than two symbols: no bits are spent on the code at all.
  if (HeapSize < 2) {
    code[Heap[1]] = 0;
    return Heap[1];
  }
  // 4.
  for (int32_t i = HeapSize / 2; i >= 1; --i) DownHeap(i);
  // 5. The code array doubles as the list of leaves in the order they leave
  // the heap, least frequent first.
  CodeCursor = code;
  int32_t avail = n;
  int32_t k;
  do {
    const int32_t i = Heap[1];
    if (i < n) *CodeCursor++ = static_cast<uint16_t>(i);
    Heap[1] = Heap[HeapSize--];
    DownHeap(1);
    const int32_t j = Heap[1];
    if (j < n) *CodeCursor++ = static_cast<uint16_t>(j);
    k = avail++;
    freq[k] = static_cast<uint16_t>(freq[i] + freq[j]);
    Heap[1] = static_cast<int16_t>(k);
    DownHeap(1);
    Left[k] = static_cast<uint16_t>(i);
    Right[k] = static_cast<uint16_t>(j);
  } while (HeapSize > 1);
  // 6.
  CodeCursor = code;
  MakeLengths(k);
  // 7.
  MakeCodes(n, len, code);
  return static_cast<int16_t>(k);
}

void EncoderBase::DownHeap(int32_t i) {
  const uint16_t* freq = TreeFreq;
  const int16_t k = Heap[i];
  while (2 * i <= HeapSize) {
    int32_t j = 2 * i;
    if (j < HeapSize && freq[Heap[j]] > freq[Heap[j + 1]]) ++j;
    if (freq[k] <= freq[Heap[j]]) break;
    Heap[i] = Heap[j];
    i = j;
  }
  Heap[i] = k;
}

void EncoderBase::CountLengths(int32_t node, int32_t depth) {
  if (node < TreeSymbols) {
    ++LenCount[depth < 16 ? depth : 16];
    return;
  }
  CountLengths(Left[node], depth + 1);
  CountLengths(Right[node], depth + 1);
}

void EncoderBase::MakeLengths(int32_t root) {
  // 1., 2. Leaves deeper than 16 are counted at 16.
  for (uint16_t& c : LenCount) c = 0;
  CountLengths(root, 0);
  // 3. The Kraft sum in units of 2^-16; above 65536 only through the capping.
  uint32_t cum = 0;
  for (int32_t i = 1; i <= 16; ++i) cum += static_cast<uint32_t>(LenCount[i]) << (16 - i);
  // 4. Each pass moves one leaf from depth 16 to below the deepest shorter
  // leaf, lowering the sum by one.
  for (; cum > 65536; --cum) {
    --LenCount[16];
    for (int32_t i = 15; i >= 1; --i) {
      if (LenCount[i] != 0) {
        --LenCount[i];
        LenCount[i + 1] = static_cast<uint16_t>(LenCount[i + 1] + 2);
        break;
      }
    }
  }
  // 5. The least frequent symbols get the longest codes.
  for (int32_t i = 16; i >= 1; --i) {
    for (int32_t c = LenCount[i]; c > 0; --c) TreeLen[*CodeCursor++] = static_cast<uint8_t>(i);
  }
}

void EncoderBase::MakeCodes(int32_t n, const uint8_t* len, uint16_t* code) {
  uint16_t start[18];
  start[1] = 0;
  for (int32_t i = 1; i <= 16; ++i) {
    start[i + 1] = static_cast<uint16_t>((start[i] + LenCount[i]) << 1);
  }
  for (int32_t i = 0; i < n; ++i) {
    if (len[i] > 0) code[i] = start[len[i]]++;
  }
}

}  // namespace kz
