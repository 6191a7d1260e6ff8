// Selection of members against the host's list, the record bookkeeping the
// library adds to what the header reader fills, and the member list.
#include "enginelib/selection.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "enginelib/archiver_impl.h"
#include "enginelib/names.h"
#include "platform/local_time.h"

namespace kz {

namespace {

wchar_t Fold(wchar_t c, bool noCase) {
  if (c == L'/') return L'\\';
  if (noCase && c >= L'A' && c <= L'Z') return static_cast<wchar_t>(c - L'A' + L'a');
  return c;
}

}  // namespace

bool WildcardMatch(const wchar_t* pattern, const wchar_t* name, bool noCase) {
  // Iterative matcher with one backtrack point: linear in practice, no recursion.
  const wchar_t* starPattern = nullptr;
  const wchar_t* starName = nullptr;
  while (*name) {
    if (*pattern == L'*') {
      starPattern = ++pattern;
      starName = name;
    } else if (*pattern == L'?' || (*pattern && Fold(*pattern, noCase) == Fold(*name, noCase))) {
      ++pattern;
      ++name;
    } else if (starPattern != nullptr) {
      pattern = starPattern;
      name = ++starName;
    } else {
      return false;
    }
  }
  while (*pattern == L'*') ++pattern;
  return *pattern == 0;
}

namespace {

bool ExactMatch(const wchar_t* pattern, const wchar_t* name, bool noCase, size_t nameLength) {
  size_t i = 0;
  for (; i < nameLength && pattern[i]; ++i) {
    if (Fold(pattern[i], noCase) != Fold(name[i], noCase)) return false;
  }
  return i == nameLength && pattern[i] == 0;
}

}  // namespace

bool NameSelected(const wchar_t* pattern, const wchar_t* name, uint32_t flags) {
  if (pattern == nullptr || name == nullptr) return false;
  bool noCase = (flags & KZ_SELECT_NOCASE) != 0;
  bool wildcard = (flags & KZ_SELECT_WILDCARD) != 0;
  // A pattern written with a leading separator or "./" means the same name.
  while (*pattern == L'\\' || *pattern == L'/') ++pattern;
  if (pattern[0] == L'.' && (pattern[1] == L'/' || pattern[1] == L'\\')) pattern += 2;
  size_t length = std::wcslen(name);
  auto matches = [&](size_t n) {
    if (!wildcard) return ExactMatch(pattern, name, noCase, n);
    std::wstring prefix(name, n);
    return WildcardMatch(pattern, prefix.c_str(), noCase);
  };
  if (matches(length)) return true;
  if ((flags & KZ_SELECT_SUBTREE) == 0) return false;
  // Every directory above the member: "dir" selects "dir\sub\file".
  for (size_t i = length; i-- > 0;) {
    if ((name[i] == L'\\' || name[i] == L'/') && i > 0 && matches(i)) return true;
  }
  return false;
}

}  // namespace kz

namespace {

// What the library adds to a record for hosts: the header level, the OS id,
// which kind of time the reader left, the time in Unix seconds, and whether
// the member is a Unix symbolic link ("name|target" in a directory entry).
void ClassifyRecord(KzArchiver& a, LhaHeader* record) {
  uint8_t head[24 + 256 + 1] = {};
  uint32_t got = 0;
  uint8_t level = 0;
  uint8_t osId = 0;
  if (a.ArchiveStream.IsOpen() &&
      a.ArchiveStream.ReadAt(record->HeaderPos, head, sizeof head, &got) && got >= 21) {
    level = head[20];
    if (level >= 2) {
      osId = got >= 24 ? head[23] : 0;
    } else if (level == 1) {
      size_t at = 24u + head[21];
      osId = at < got ? head[at] : 0;
    }
  }
  record->LibHeaderLevel = level;
  record->LibOsId = osId;
  record->LibTimeKind = (level >= 2 && osId != 'M') ? 1 : 0;
  record->LibModTime = record->LibTimeKind ? static_cast<int64_t>(record->TimeStamp)
                                           : kz::DosToUnixTime(record->TimeStamp);
  bool directoryEntry = (level >= 2 && record->Method == 0 && (record->Attributes & 0x10)) ||
                        (level < 2 && record->Method == static_cast<uint32_t>('d' - '0'));
  record->LibFlags = 0;
  if (directoryEntry && record->Name != nullptr && std::wcschr(record->Name, L'|') != nullptr) {
    record->LibFlags |= 1;
  }
}

}  // namespace

int KzArchiver::IsItemSelected(LhaHeader* record, const KzList* selection, intptr_t argument) {
  if (record == nullptr) return 0;
  ClassifyRecord(*this, record);
  if (selection == nullptr || selection->Count == 0) return 1;
  const wchar_t* name = record->Name ? record->Name : L"";
  for (void* item : KzListItems(selection)) {
    const auto* pattern = static_cast<const KzNameItem*>(item);
    if (kz::NameSelected(pattern->Path, name, static_cast<uint32_t>(argument))) return 1;
  }
  return 0;
}

void KzArchiver::FreeItemBuffers(LhaHeader* record) {
  if (record == nullptr) return;
  std::free(record->LibBuffer0);
  std::free(record->LibBuffer1);
  std::free(record->LibBuffer2);
  record->LibBuffer0 = record->LibBuffer1 = record->LibBuffer2 = nullptr;
}

HRESULT KzArchiver::AddListItem(KzList* list, LhaHeader* record) {
  if (list == nullptr || record == nullptr) return SetError(kz::E_Invalidarg, nullptr);
  auto* impl = reinterpret_cast<KzListImpl*>(list);
  if (impl->ListKind == kListSinkKind) {
    HRESULT hr = impl->Sink(impl->SinkContext, record);
    FreeItemBuffers(record);
    return hr;
  }
  if (impl->ListKind != KZ_LIST_MEMBERS) return SetError(kz::E_Invalidarg, nullptr);
  auto* copy = static_cast<LhaHeader*>(std::malloc(sizeof(LhaHeader)));
  size_t n = record->Name ? std::wcslen(record->Name) : 0;
  auto* name = static_cast<wchar_t*>(std::malloc((n + 1) * sizeof(wchar_t)));
  if (copy == nullptr || name == nullptr) {
    std::free(copy);
    std::free(name);
    FreeItemBuffers(record);
    return SetError(kz::E_Outofmemory, nullptr);
  }
  std::memcpy(copy, record, sizeof(LhaHeader));
  if (n) std::wmemcpy(name, record->Name, n);
  name[n] = 0;
  std::free(copy->LibBuffer0);  // the record's own name storage, if any, is replaced
  copy->LibBuffer0 = name;
  copy->Name = name;
  if (KzList::AppendItem(list, copy) < 0) {
    KzList::FreeItem(KZ_LIST_MEMBERS, copy);
    return SetError(kz::E_Outofmemory, nullptr);
  }
  return 0;
}

void KzArchiver::BeginList(intptr_t) { ResetStatus(); }

void KzArchiver::FillArchiveInfo(ArchiveInfo* info) {
  if (info == nullptr) return;
  std::memset(info, 0, sizeof(ArchiveInfo));
  info->Size = sizeof(ArchiveInfo);
  info->FirstHeaderOffset = FirstHeaderOffset32;
  info->Flags = FirstHeaderPos > 0 ? 1u : 0u;
  uint64_t size = 0;
  if (kz::platform::FileSizeOf(ArchivePath.c_str(), &size)) info->ArchiveSize = size;
}
