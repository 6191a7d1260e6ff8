// KzArchiver: the base class of every archive engine. It owns the streams,
// the status and the option values, runs the generic loops behind the
// exports (extract, test, add, delete) and calls back into the engine's
// format-specific virtual operations, whose order below is binding.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "enginelib/file_stream.h"
#include "enginelib/kz_error.h"
#include "enginelib/kz_list.h"
#include "enginelib/path_string.h"

namespace kz {
class NameConverter;
}

// Per-member counters: cleared at each member's start, read by the
// progress report.
struct TransferRecord {
  uint16_t DataCrc;
  uint32_t StoreFallback;
  uint32_t ChunkBytes;
  uint64_t TotalBytes;
  uint64_t OriginalSize;
  uint64_t PackedSize;
};

class KZLIB_API KzArchiver {
 public:
  KzArchiver();
  KzArchiver(const KzArchiver&) = delete;
  KzArchiver& operator=(const KzArchiver&) = delete;

  // ---- virtual operations, in slot order --------------------------------
  virtual ~KzArchiver();                                               // 0
  virtual HRESULT Init();                                              // 1
  virtual HRESULT SetOptions(uint32_t optionId, intptr_t a, intptr_t b);  // 2
  virtual HRESULT InitArchive(const wchar_t* path, intptr_t a, intptr_t b);  // 3
  virtual HRESULT ListArchive(const KzList* selection, intptr_t selectionArgument,
                              intptr_t listArgument, KzList* list, ArchiveInfo* info);  // 4
  virtual HRESULT ExtractFiles(const KzList* items, intptr_t selectionArgument,
                               const wchar_t* destDir, uint32_t flags);  // 5
  virtual HRESULT TestArchive(const KzList* items, intptr_t selectionArgument);  // 6
  virtual HRESULT CompressFiles(KzList* items, const wchar_t* baseDir, uint32_t flags);  // 7
  virtual HRESULT DeleteFiles(const KzList* items, intptr_t selectionArgument);  // 8
  virtual HRESULT CreateDirectory(intptr_t a, intptr_t b, intptr_t c);     // 9
  virtual HRESULT CreateSfx(intptr_t a, intptr_t b, intptr_t c);           // 10
  virtual HRESULT RepairArchive(intptr_t a, intptr_t b, intptr_t c);       // 11
  virtual HRESULT AddRecoveryData(intptr_t a, intptr_t b, intptr_t c);     // 12
  virtual HRESULT StripRecoveryData(intptr_t a, intptr_t b, intptr_t c);   // 13
  virtual HRESULT SetFileComments(intptr_t a, intptr_t b, intptr_t c);     // 14
  virtual HRESULT SetArchiveComment(intptr_t a, intptr_t b, intptr_t c);   // 15
  virtual HRESULT SetFileProperties(intptr_t a, intptr_t b, intptr_t c);   // 16
  virtual HRESULT RenameFile(intptr_t a, intptr_t b, intptr_t c);          // 17
  virtual KzList* GetLogList();                                        // 18
  virtual HRESULT Hook19();                                            // 19
  virtual HRESULT Hook20();                                            // 20
  virtual HRESULT AllocDecodeBuffers();                                // 21
  virtual void FreeDecodeBuffers();                                    // 22
  virtual HRESULT EnumerateMembers(const KzList* selection, intptr_t selectionArgument,
                                   KzList* list);                      // 23
  virtual HRESULT ExtractItems(const KzList* selection, intptr_t selectionArg,
                               intptr_t directoryArg, uint32_t finishArg);  // 24
  virtual HRESULT AllocEncodeBuffers();                                // 25
  virtual void FreeEncodeBuffers();                                    // 26
  virtual HRESULT CreateArchive(KzList* items);                        // 27
  virtual HRESULT AppendItems(KzList* items);                          // 28
  virtual HRESULT WriteArchiveEnd();                                   // 29
  virtual HRESULT Hook30();                                            // 30
  virtual HRESULT Hook31();                                            // 31
  virtual HRESULT Hook32();                                            // 32
  virtual HRESULT Hook33();                                            // 33
  virtual HRESULT Hook34();                                            // 34
  virtual HRESULT Hook35();                                            // 35
  virtual HRESULT Hook36();                                            // 36
  virtual uint32_t GetFirstHeaderOffset();                             // 37

  // Clears the status, the error file name and the log at the start of an
  // operation.
  void ResetStatus();

  // ---- errors ---------------------------------------------------------
  // Records hr as the status and fileName (or none) as the error file name.
  HRESULT SetError(HRESULT hr, const wchar_t* fileName);
  // Records the error of the failed stream call (GetLastError) for fileName.
  HRESULT SetSystemError(const wchar_t* fileName);
  // The compression driver could not open a source.
  HRESULT ReportFileError(const wchar_t* archiveName, const wchar_t* sourcePath, HRESULT hr);
  // Adds a message to the log list and passes it to the host.
  void LogMessage(uint32_t level, HRESULT status, const wchar_t* text, const wchar_t* fileName);

  // ---- progress and output ---------------------------------------------
  // Reads Transfer.TotalBytes/ChunkBytes; negative (E_ABORT, recorded) = stop.
  HRESULT ReportProgress();
  HRESULT WriteOutput(const void* data, uint32_t count, uint32_t capacity);
  void SetTotalSize(uint64_t total);

  // ---- listing ------------------------------------------------------------
  int IsItemSelected(LhaHeader* record, const KzList* selection, intptr_t argument);
  HRESULT AddListItem(KzList* list, LhaHeader* record);
  void BeginList(intptr_t argument);
  void FillArchiveInfo(ArchiveInfo* info);
  // Frees the record's three library buffers (for records not handed over).
  static void FreeItemBuffers(LhaHeader* record);

  // ---- extraction (per item, in the driver's order) ----------------------
  void ResetItemProgress();
  void MakeOutputPath(const wchar_t* name, PathString& outputPath);
  HRESULT PrepareOutputPath(PathString& outputPath);
  HRESULT BeginExtractItem(LhaHeader* record, PathString& outputPath);
  HRESULT CreateItemDirectory(LhaHeader* record, PathString& outputPath, intptr_t directoryArg);
  // 1 = skip the member; negative = stop.
  int QueryOverwrite(LhaHeader* record, PathString& outputPath);
  HRESULT CreateOutputFile(PathString& outputPath);
  void BeginItemData(LhaHeader* record);
  void EndItemData();
  HRESULT FinishOutputFile(LhaHeader* record, PathString& outputPath, uint32_t finishArg);
  void EndExtractItem(LhaHeader* record, PathString& outputPath);
  HRESULT ItemDone(LhaHeader* record, PathString& outputPath);

  // ---- update (per item) ------------------------------------------------
  void GetItemNames(const wchar_t* itemPath, PathString& archiveName, PathString& sourcePath);
  void ApplyPathOptions(intptr_t basePathSetting, PathString& archiveName,
                        PathString& sourcePath);
  HRESULT BeginAddItem(PathString& archiveName, PathString& sourcePath);
  HRESULT CheckSourceFile(PathString& sourcePath);
  void EndAddItem(PathString& archiveName, PathString& sourcePath);
  static BOOL KzDeleteFile(const wchar_t* path);

  // ---- names and times ----------------------------------------------------
  // Makes a member name safe to show and to extract, in place.
  void NormalizeName(wchar_t* name, uint32_t capacity);
  // Multibyte (archive code page) to wide; capacity in characters.
  int ConvertHeaderName(const char* text, wchar_t* out, uint32_t capacity);
  int ConvertExtendedName(const char* text, wchar_t* out, uint32_t capacity);
  // Wide to multibyte for a header; returns the byte length.
  int ConvertNameForHeader(const wchar_t* name, char* out, uint32_t capacity, intptr_t reserved1,
                           intptr_t reserved2);
  // Unix time to DOS date<<16|time (local time) when localTime is 1.
  uint32_t ConvertTimeStamp(uint32_t unixTime, int localTime);

  HRESULT SetCallbacks(const KzCallbacks* callbacks, void* context);

  // ---- state the engine reads and writes directly ------------------------
  FileStream ArchiveStream;
  FileStream SourceStream;
  FileStream OutputStream;
  PathString ArchivePath;
  wchar_t* ErrorFileName = nullptr;
  HRESULT Status = 0;
  uint32_t NewArchive = 0;
  uint64_t FirstHeaderPos = 0;
  uint64_t NextHeaderPos = 0;
  uint32_t FirstHeaderOffset32 = 0;
  uint32_t MethodSelector = 13;
  uint32_t CompressionLevel = 3;
  uint32_t DictionarySize = 8;
  uint32_t Option1Applied = 0;
  TransferRecord Transfer{};
  uint8_t* TransferBuffer = nullptr;  // 65536 bytes, owned by the base
  intptr_t BasePathSetting = 0;

 protected:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  friend struct KzArchiverAccess;
};

// Test seam: the next n calls of KzArchiver::Init fail with E_OUTOFMEMORY.
namespace kz::testing {
KZLIB_API void FailNextInit(int n);
}
