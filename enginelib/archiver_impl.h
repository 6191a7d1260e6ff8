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
  PathString OutputWritePath;       // where it is written until complete
  bool OutputInPlace = false;       // ... which is its final name: nothing was there
  const LhaHeader* CurrentItem = nullptr;
  HRESULT StatusAtItemStart = 0;
  bool ItemCreated = false;
  std::wstring MemberName;          // the member being handled, for messages
  bool NameDropped = false;         // its name lost unsafe parts on the way to a path
  // What PrepareOutputPath found at the output path's last component, so
  // that the overwrite question does not look again.
  std::wstring PreparedPath;
  int PreparedType = -1;            // a kz::fs::EntryType; -1 for none
  HRESULT FirstFailure = 0;         // first member that failed while the run went on
  std::wstring FirstFailureName;
  struct DirectoryTime {
    std::wstring Path;
    int64_t ModTime;
  };
  std::vector<DirectoryTime> DirectoryTimes;  // set once their contents are written

  // Progress.
  uint64_t TotalSize = 0;
  uint64_t DoneBeforeItem = 0;
  uint64_t ItemSize = 0;            // the source being added, counted when it ends
  std::wstring CurrentName;
  std::wstring ProgressName;

  // Update.
  std::vector<std::wstring> AddedSources;  // for KZ_ADD_MOVE
  std::wstring ArchiveTempPath;     // the new archive until it replaces the old one
  bool ArchiveKnown = false;        // identity of the archive file, so that it is
  uint64_t ArchiveVolume = 0;       // never added to itself
  uint64_t ArchiveFileIndex = 0;
  bool ItemAccepted = false;        // the current source is a file that gets compressed
};

// Reaches an archiver's private part from the library's own operations
// (extract_ops.cpp, update_ops.cpp) and from their tests.
struct KzArchiverAccess {
  static KzArchiver::Impl& ImplOf(KzArchiver& a) { return *a.impl_; }
};
