// Opening an archive: decide whether the file exists, and find its first
// member header, which may sit behind a self-extracting stub.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "archiver/lha_archiver.h"
#include "archiver/long_path.h"
#include "decode/crc16.h"

namespace {

// Stubs of self-extracting archives are smaller than this; searching
// further would mistake packed data for a header.
constexpr uint64_t kSearchWindow = 131072;
constexpr uint32_t kSmallestCandidate = 22;
// The furthest a candidate's test reads: a level-0/1 header's checksum.
constexpr uint32_t kLargestCandidate = 255 + 2;
// Most archives start with their first header: a first look at this much
// spares reading the whole window, whose fresh pages cost more to touch
// than a short archive takes to test.
constexpr uint32_t kFirstLook = 4096;
constexpr wchar_t kLongPrefix[] = L"\\\\?\\";
constexpr wchar_t kLongUncPrefix[] = L"\\\\?\\UNC\\";

bool StartsWith(const wchar_t* text, const wchar_t* prefix) {
  return std::wcsncmp(text, prefix, std::wcslen(prefix)) == 0;
}

struct FreeDeleter {
  void operator()(uint8_t* p) const { std::free(p); }
};

// A candidate at buffer[0..]: the method pattern "-lh?-", then level 2 on its
// own, or level 0/1 with a matching checksum over its declared header.
bool IsHeaderCandidate(const uint8_t* p, uint64_t available) {
  if (p[2] != '-' || p[3] != 'l' || p[4] != 'h' || p[6] != '-') return false;
  const uint8_t level = p[20];
  if (level == 2) return true;
  if (level > 2) return false;
  const uint32_t size = p[0];
  if (size + 2u > available) return false;  // never read past the window
  uint32_t sum = 0;
  for (uint32_t k = 0; k < size; ++k) sum += p[2 + k];
  return static_cast<uint8_t>(sum) == p[1];
}

}  // namespace

namespace kz {

std::wstring ToLongPath(const wchar_t* path) {
  if (path == nullptr) path = L"";
  if (StartsWith(path, kLongPrefix)) return path;
  if (PathIsUNCW(path)) return std::wstring(kLongUncPrefix) + (path + 2);
  return std::wstring(kLongPrefix) + path;
}

std::wstring FromLongPath(const wchar_t* path) {
  if (path == nullptr) return {};
  std::wstring result;
  if (StartsWith(path, kLongUncPrefix)) {
    result = std::wstring(L"\\\\") + (path + std::wcslen(kLongUncPrefix));
  } else if (StartsWith(path, kLongPrefix)) {
    result = path + std::wcslen(kLongPrefix);
  } else {
    result = path;
  }
  for (wchar_t& c : result) {
    if (c == L'/') c = L'\\';
  }
  return result;
}

}  // namespace kz

HRESULT KzLhaArchiver::InitArchive(const wchar_t* path, intptr_t a, intptr_t b) {
  if (KzArchiver::InitArchive(path, a, b) < 0) return Status;
  kz::BuildCrc16Table();
  const std::wstring plainPath = kz::FromLongPath(path);
  if (!FileExists(plainPath.c_str())) {
    ArchivePath.AssignRaw(plainPath.c_str());
    NewArchive = 1;
    return kz::S_Ok;
  }
  if (!ArchiveStream.Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING,
                          0, 0)) {
    return SetSystemError(ArchiveStream.GetName());
  }
  uint64_t offset = 0;
  if (FindFirstHeader(offset) < 0) {
    ArchiveStream.Close();
    return Status;
  }
  FirstHeaderPos = offset;
  ArchivePath.AssignRaw(plainPath.c_str());
  ArchiveStream.Close();
  return Status;
}

HRESULT KzLhaArchiver::FindFirstHeader(uint64_t& offset) {
  offset = 0;
  ArchiveStream.Seek(0, 0, 0);
  uint64_t size = 0;
  ArchiveStream.GetSize(&size);
  const uint32_t n = static_cast<uint32_t>(size < kSearchWindow ? size : kSearchWindow);
  // The first look goes to the stack; the window is allocated only when the
  // search must go on past it.
  uint8_t firstLook[kFirstLook];
  std::unique_ptr<uint8_t, FreeDeleter> window;
  uint8_t* buffer = firstLook;

  uint32_t have = 0;
  uint32_t i = 0;
  for (uint32_t want = n < kFirstLook ? n : kFirstLook;; want = n) {
    if (want > kFirstLook) {
      window.reset(static_cast<uint8_t*>(std::malloc(want)));
      if (!window) return SetError(kz::E_Outofmemory, nullptr);
      std::memcpy(window.get(), firstLook, have);
      buffer = window.get();
    }
    uint32_t got = 0;
    const BOOL read = ArchiveStream.Read(buffer + have, want - have, &got, 0);
    if (!read || got < want - have) {
      if (read) SetLastError(ERROR_HANDLE_EOF);
      return SetSystemError(ArchiveStream.GetName());
    }
    have = want;
    // Positions whose test sees every byte it would see in the whole window.
    const uint32_t decided = have == n ? n : have - kLargestCandidate;
    for (; i < decided && i + kSmallestCandidate <= n; ++i) {
      if (IsHeaderCandidate(buffer + i, n - i)) {
        FirstHeaderOffset32 = i;
        offset = i;
        return kz::S_Ok;
      }
    }
    if (have == n) break;
  }
  return SetError(kz::ARC_E_NOARCHIVE, ArchiveStream.GetName());
}

bool KzLhaArchiver::FileExists(const wchar_t* path) {
  const UINT previousMode = SetErrorMode(SEM_FAILCRITICALERRORS);
  const DWORD attributes = GetFileAttributesW(kz::ToLongPath(path).c_str());
  const DWORD error = GetLastError();
  SetErrorMode(previousMode);
  if (attributes != INVALID_FILE_ATTRIBUTES) return true;
  // Access denied, a sharing violation or a device not ready: the file is
  // there, and the open reports what is wrong with it.
  return error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND &&
         error != ERROR_INVALID_NAME;
}
