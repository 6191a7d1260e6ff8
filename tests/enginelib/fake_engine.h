// A small engine over the library for testing the library's generic
// operations on their own: level-0 stored members only, the slots written
// after the engine's call orders (the extraction driver's steps, the add
// loops' per-item step), and a log of the per-item calls, so that the
// library's side is tested without depending on the real decoders and
// encoders. End-to-end tests with KzLhaArchiver sit beside these.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "enginelib/kz_archiver.h"

namespace kztest {

class FakeEngine : public KzArchiver {
 public:
  FakeEngine();

  // Binds the archive as the engine's InitArchive would (no stub search:
  // firstHeader says where the members start).
  HRESULT Open(const std::wstring& path, uint64_t firstHeader = 0);

  HRESULT EnumerateMembers(const KzList* selection, intptr_t selectionArgument,
                           KzList* list) override;
  HRESULT AllocDecodeBuffers() override { return 0; }
  void FreeDecodeBuffers() override {}
  HRESULT ExtractItems(const KzList* selection, intptr_t selectionArg, intptr_t directoryArg,
                       uint32_t finishArg) override;
  HRESULT AllocEncodeBuffers() override { return 0; }
  void FreeEncodeBuffers() override {}
  HRESULT CreateArchive(KzList* items) override;
  HRESULT AppendItems(KzList* items) override;
  HRESULT WriteArchiveEnd() override;

  // Calls the library made into the per-item steps, as "Step:name".
  std::vector<std::wstring> Calls;

 private:
  int32_t ReadMemberHeader(LhaHeader& record);
  void DecodeMember(LhaHeader& record);
  void AddItem(KzNameItem* item);
  int32_t CompressFile(const PathString& archiveName, const PathString& sourcePath);
  wchar_t nameBuffer_[1024];
};

// Engine-form (backslashed) wide path of a test path.
std::wstring EnginePath(const std::filesystem::path& path);

// A names list with the given texts; freed by the caller (KzList::Free).
KzList* NamesList(const std::vector<std::wstring>& names);

}  // namespace kztest
