// The library's private part of KzArchiver: host callbacks, the log, option
// values the engine never reads, and the state of the operation in progress.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "enginelib/kz_archiver.h"
#include "enginelib/names.h"

enum class OperationMode { None, Extract, Test, Compress, Delete };

struct KzArchiver::Impl {
  // ---- host ---------------------------------------------------------------
  KzCallbacks Callbacks{};
  void* Context = nullptr;
  KzList* Log = nullptr;            // KZ_LIST_LOG, owned
  std::wstring ErrorFileNameStorage;

  // ---- options the engine does not read ----------------------------------
  uint32_t CodePage = 932;
  uint32_t PathMode = KZ_PATHS_RELATIVE;
  uint32_t Overwrite = KZ_OVERWRITE_ASK;
  bool KeepDamaged = false;
  std::vector<std::wstring> Excludes;
  kz::NameConverter Names;

  // ---- the operation in progress -------------------------------------------
  OperationMode Mode = OperationMode::None;
  uint32_t OperationFlags = 0;      // KzExtractFlags or KzAddFlags

  // Extraction.
  std::wstring DestDir;             // engine form (backslashes), no trailing separator
  bool OverwriteAll = false;
  bool SkipAll = false;
  FileStream OutputFile;            // the member being written
  PathString OutputTempPath;        // where it is written until complete
  const LhaHeader* CurrentItem = nullptr;
  HRESULT StatusAtItemStart = 0;
  bool ItemCreated = false;

  // Progress.
  uint64_t TotalSize = 0;
  uint64_t DoneBeforeItem = 0;
  std::wstring CurrentName;
  std::wstring ProgressName;

  // Update.
  std::vector<std::wstring> AddedSources;  // for KZ_ADD_MOVE
};
