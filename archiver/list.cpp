// Listing: walk the member headers into the host's list, then fill the
// archive statistics from everything the list holds.
#include <cstring>

#include "archiver/lha_archiver.h"

namespace {

constexpr uint32_t kArchiveTypeLha = 13;
constexpr uint32_t kNameCapacity = 1024;

void ClearRecord(LhaHeader& record, wchar_t* name) {
  std::memset(&record, 0, sizeof record);
  std::memset(name, 0, kNameCapacity * sizeof(wchar_t));
  record.Name = name;
}

// packed * 100 / original in signed 64-bit arithmetic, truncated toward
// zero; the one quotient that overflows is worked out without dividing.
uint32_t RatioPercent(uint64_t packed, uint64_t original) {
  const auto dividend = static_cast<int64_t>(packed * 100);
  const auto divisor = static_cast<int64_t>(original);
  if (divisor == -1) return static_cast<uint32_t>(0 - static_cast<uint64_t>(dividend));
  return static_cast<uint32_t>(dividend / divisor);
}

void AddStatistics(ArchiveInfo& info, const KzList& list) {
  uint32_t highestVersion = 0;
  for (void* item : KzListItems(&list)) {
    const auto& member = *static_cast<const LhaHeader*>(item);
    if (member.VersionNeeded > highestVersion) {
      info.VersionMajor = member.VersionNeeded / 10;
      info.VersionMinor = member.VersionNeeded % 10;
      highestVersion = member.VersionNeeded;
    }
    info.HostOs = member.HostOs;
    if (member.Method == 6) info.DictionaryKiB = 32;
    if (member.Method == 7) info.DictionaryKiB = 64;
    info.TotalPacked += member.PackedSize;
    info.TotalOriginal += member.OriginalSize;
  }
}

}  // namespace

HRESULT KzLhaArchiver::ListArchive(const KzList* selection, intptr_t selectionArgument,
                                   intptr_t listArgument, KzList* list, ArchiveInfo* info) {
  if (selection == nullptr || list == nullptr) return SetError(kz::E_Invalidarg, nullptr);
  BeginList(listArgument);
  if (EnumerateMembers(selection, selectionArgument, list) < 0) return Status;
  if (info == nullptr) return Status;
  FillArchiveInfo(info);
  info->ArchiveType = kArchiveTypeLha;
  info->DictionaryKiB = 8;
  info->MemberCount = list->Count;
  AddStatistics(*info, *list);
  if (info->TotalOriginal != 0) info->RatioPercent = RatioPercent(info->TotalPacked, info->TotalOriginal);
  return Status;
}

HRESULT KzLhaArchiver::EnumerateMembers(const KzList* selection, intptr_t selectionArgument,
                                        KzList* list) {
  NextHeaderPos = FirstHeaderPos;
  if (!ArchiveStream.Open(ArchivePath.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                          OPEN_EXISTING, 0, 0)) {
    return SetSystemError(ArchiveStream.GetName());
  }
  LhaHeader record;
  wchar_t name[kNameCapacity];
  ClearRecord(record, name);
  for (int32_t read = ReadMemberHeader(record); read == 0; read = ReadMemberHeader(record)) {
    if (!IsItemSelected(&record, selection, selectionArgument)) {
      FreeItemBuffers(&record);
    } else if (AddListItem(list, &record) < 0) {
      FreeItemBuffers(&record);
      break;
    }
    // On success the list owns the record's buffers.
    ClearRecord(record, name);
  }
  ArchiveStream.Close();
  return Status;
}
