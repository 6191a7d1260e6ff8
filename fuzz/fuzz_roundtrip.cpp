// Compresses arbitrary bytes into a member and decodes it back: whatever the
// source, the member must decode (through the engine's own decoder) to
// exactly the source, with its CRC accepted, at every method and level.
//
// Input layout: byte 0 picks the method (value % 3: lh5, lh6, lh7) and the
// level (value / 3 % 5: 0 stores, 1..4 search); byte 1 how many times the
// rest is repeated (1..16), so that short inputs still reach the window's
// slides; the rest is the source.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "archiver/lha_archiver.h"

namespace {

constexpr size_t kHead = 2;

std::string TempPath(const char* what) {
  return "/tmp/kz_fuzz_roundtrip_" + std::to_string(getpid()) + "_" + what;
}

const std::string& SourcePath() {
  static const std::string path = [] {
    std::atexit([] {
      std::remove(TempPath("source").c_str());
      std::remove(TempPath("archive").c_str());
    });
    return TempPath("source");
  }();
  return path;
}

const std::string& ArchivePath() {
  static const std::string path = TempPath("archive");
  return path;
}

std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

bool WriteSource(const std::vector<uint8_t>& source) {
  FILE* f = std::fopen(SourcePath().c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = source.empty() || std::fwrite(source.data(), 1, source.size(), f) == source.size();
  return std::fclose(f) == 0 && ok;
}

// One member at the start of the archive file, as CompressFile writes it.
bool Compress(uint32_t selector, uint32_t level) {
  KzLhaArchiver a;
  if (a.Init() < 0 || a.SetOptions(KZ_OPT_METHOD, selector, 0) < 0 ||
      a.SetOptions(KZ_OPT_LEVEL, level, 0) < 0 || a.AllocEncodeBuffers() < 0) {
    return false;
  }
  bool ok = a.OutputStream.Create(Wide(ArchivePath()).c_str(), GENERIC_WRITE, 1, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_ARCHIVE, 0);
  if (ok) ok = a.CompressFile(PathString(L"member"), PathString(Wide(SourcePath()).c_str()), 0x20) >= 0;
  a.OutputStream.Close();
  a.FreeEncodeBuffers();
  return ok;
}

int KZ_CALL Collect(void* context, const LhaHeader*, const void* data, size_t size) {
  auto* out = static_cast<std::vector<uint8_t>*>(context);
  const auto* bytes = static_cast<const uint8_t*>(data);
  out->insert(out->end(), bytes, bytes + size);
  return 0;
}

// The member's data through the engine's decoder; false if it fails.
bool Decode(std::vector<uint8_t>& out) {
  KzLhaArchiver a;
  if (a.Init() < 0 || a.AllocDecodeBuffers() < 0) return false;
  KzCallbacks callbacks{};
  callbacks.Size = sizeof callbacks;
  callbacks.Data = &Collect;
  a.SetCallbacks(&callbacks, &out);
  bool ok = a.ArchiveStream.Open(Wide(ArchivePath()).c_str(), GENERIC_READ, 3, OPEN_EXISTING, 0, 0);
  if (ok) {
    LhaHeader header{};
    wchar_t name[1024] = {};
    header.Name = name;
    a.NextHeaderPos = 0;
    ok = a.ReadMemberHeader(header) == 0 && a.DecodeMember(header) >= 0 && a.Status >= 0;
  }
  a.ArchiveStream.Close();
  a.FreeDecodeBuffers();
  return ok;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kHead) return 0;
  const uint32_t selector = 13 + data[0] % 3;
  const uint32_t level = data[0] / 3 % 5;
  const int repeats = 1 + data[1] % 16;
  std::vector<uint8_t> source;
  for (int i = 0; i < repeats; ++i) source.insert(source.end(), data + kHead, data + size);
  if (!WriteSource(source) || !Compress(selector, level)) return 0;
  std::vector<uint8_t> decoded;
  if (!Decode(decoded) || decoded != source) {
    std::fprintf(stderr, "round trip failed: lh%u level %u, %zu bytes, decoded %zu\n",
                 selector - 8, level, source.size(), decoded.size());
    std::abort();
  }
  return 0;
}
