// Extracts arbitrary bytes as an archive into a fresh directory: whatever
// the member names, sizes and data, extraction must neither crash nor leak,
// and must write nothing outside the destination. The destination lies in a
// sandbox directory that is also the working directory while extracting, so
// that a name escaping upwards or a relative write lands in the sandbox,
// where it is seen; an absolute name is watched through one fixed path the seeds and the
// dictionary carry (/tmp/kzfz).
//
// Archives whose members add up to more than kMaxTotal bytes are skipped:
// a small packed stream can claim gigabytes, and writing them would only
// measure the disk.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "archiver/lha_archiver.h"
#include "fuzz/fuzz_input.h"

namespace fs = std::filesystem;

namespace {

constexpr uint64_t kMaxTotal = 16u << 20;
constexpr const char* kAbsoluteCanary = "/tmp/kzfz";

const fs::path& Sandbox() {
  static const fs::path path = [] {
    fs::path p = fs::temp_directory_path() / ("kz_fuzz_extract_" + std::to_string(getpid()));
    fs::create_directories(p);
    std::atexit([] {
      std::error_code ec;
      fs::remove_all(Sandbox(), ec);
    });
    return p;
  }();
  return path;
}

// The archive lives outside the sandbox so that the sandbox holds only what
// extraction made.
const std::string& InputPath() { return kzfuzz::InputPath("kz_fuzz_extract", ".lzh"); }

bool WriteInput(const uint8_t* data, size_t size) { return kzfuzz::WriteInput(InputPath(), data, size); }

std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

bool SmallEnough(const std::wstring& archive) {
  KzLhaArchiver a;
  if (a.Init() < 0 || a.InitArchive(archive.c_str(), 0, 0) < 0) return false;
  KzList* selection = KzList::Create(KZ_LIST_NAMES);
  KzList* members = KzList::Create(KZ_LIST_MEMBERS);
  ArchiveInfo info{};
  const bool listed = a.ListArchive(selection, 0, 0, members, &info) >= 0;
  KzList::Free(members);
  KzList::Free(selection);
  return listed && info.TotalOriginal <= kMaxTotal;
}

// Every existing file is overwritten, so that a repeated name reaches the
// overwrite path rather than a skip.
int KZ_CALL Overwrite(void*, const wchar_t*, const LhaHeader*) { return KZ_REPLY_OVERWRITE; }

void CheckNothingOutside(const fs::path& dest) {
  for (const auto& e : fs::directory_iterator(Sandbox())) {
    if (e.path() != dest) {
      std::fprintf(stderr, "extraction wrote outside its destination: %s\n", e.path().c_str());
      std::abort();
    }
  }
  struct stat st;
  if (lstat(kAbsoluteCanary, &st) == 0) {
    std::fprintf(stderr, "extraction wrote an absolute path: %s\n", kAbsoluteCanary);
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fs::path dest = Sandbox() / "out";
  if (!WriteInput(data, size)) return 0;
  const std::wstring archive = Wide(InputPath());
  if (!SmallEnough(archive)) return 0;
  fs::create_directories(dest);
  const fs::path home = fs::current_path();
  fs::current_path(Sandbox());
  {
    KzLhaArchiver a;
    if (a.Init() == 0 && a.InitArchive(archive.c_str(), 0, 0) == 0) {
      KzCallbacks callbacks{};
      callbacks.Size = sizeof callbacks;
      callbacks.AskOverwrite = &Overwrite;
      a.SetCallbacks(&callbacks, nullptr);
      KzList* all = KzList::Create(KZ_LIST_NAMES);
      KzList::Add(all, L"*", 0);
      const std::wstring destination = Wide(dest.string());
      a.ExtractFiles(all, KZ_SELECT_WILDCARD, destination.c_str(), 0);
      KzList::Free(all);
    }
  }
  fs::current_path(home);
  CheckNothingOutside(dest);
  // Extracted directories may have lost their write permission.
  std::error_code ec;
  for (const auto& e : fs::recursive_directory_iterator(dest, ec))
    if (e.is_directory()) fs::permissions(e.path(), fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(dest, ec);
  return 0;
}
