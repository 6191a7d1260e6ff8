// The extraction and test driver (slot 24), written over its host so that
// the order of the library calls can be checked against a recording host.
// KzLhaArchiver is the production host: the names below are its own.
//
// One pass sums the selected members' sizes for progress; a second takes
// each selected member through the library's per-item steps and
// DecodeMember. What distinguishes a test from an extraction lives in those
// library steps, not here.
#pragma once

#include <cstdint>
#include <cstring>

#include <kzlha/kzlha.h>

#include "platform/win32_compat.h"

namespace kz {

// The record and name buffer that ReadMemberHeader fills, cleared before
// every read.
struct MemberSlot {
  static constexpr uint32_t kNameChars = 1024;
  LhaHeader Record;
  wchar_t Name[kNameChars];

  void Clear() {
    std::memset(&Record, 0, sizeof(Record));
    std::memset(Name, 0, sizeof(Name));
    Record.Name = Name;
  }
};

template <class Host, class Path>
HRESULT RunExtractDriver(Host& host, const KzList* selection, intptr_t selectionArg,
                         intptr_t directoryArg, uint32_t finishArg) {
  // 1. A failed open is recorded; the reads below then fail too.
  if (!host.ArchiveStream.Open(host.ArchivePath.c_str(), GENERIC_READ,
                               FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 0, 0))
    host.SetSystemError(host.ArchiveStream.GetName());

  // 2.-4. Total of the selected members.
  MemberSlot slot;
  slot.Clear();
  host.NextHeaderPos = host.FirstHeaderPos;
  uint64_t total = 0;
  while (host.ReadMemberHeader(slot.Record) == 0) {
    if (host.IsItemSelected(&slot.Record, selection, selectionArg)) total += slot.Record.OriginalSize;
    slot.Clear();
  }
  host.SetTotalSize(total);

  // 5.-6. Each selected member, while the status allows.
  host.NextHeaderPos = host.FirstHeaderPos;
  slot.Clear();
  Path outputPath;
  LhaHeader& record = slot.Record;
  while (host.Status >= 0) {
    if (host.ReadMemberHeader(record) != 0) break;
    if (host.IsItemSelected(&record, selection, selectionArg)) {
      host.ResetItemProgress();
      host.MakeOutputPath(record.Name, outputPath);
      bool skipped = false;
      if (host.PrepareOutputPath(outputPath) >= 0 && host.BeginExtractItem(&record, outputPath) >= 0) {
        if (record.Attributes & FILE_ATTRIBUTE_DIRECTORY) {
          host.CreateItemDirectory(&record, outputPath, directoryArg);
        } else {
          int reply = host.QueryOverwrite(&record, outputPath);
          if (reply < 0 || reply == 1) {
            skipped = true;  // no end-of-item calls for a skipped member
          } else if (host.CreateOutputFile(outputPath) >= 0) {
            host.BeginItemData(&record);
            host.DecodeMember(record);  // failures reach the status
            host.EndItemData();
            host.FinishOutputFile(&record, outputPath, finishArg);
          }
        }
      }
      if (!skipped) {
        host.EndExtractItem(&record, outputPath);
        if (host.ItemDone(&record, outputPath) < 0) break;
      }
    }
    slot.Clear();
  }

  // 7.
  host.ArchiveStream.Close();
  return host.Status;
}

}  // namespace kz
