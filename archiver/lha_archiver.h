// KzLhaArchiver: the LHA engine's archiver object. It fills the format
// slots of KzArchiver (opening, listing, the extraction and compression
// drivers, buffers, update) and embeds its seven codecs by value.
#pragma once

#include <cstdint>

#include "decode/decoders.h"
#include "encode/encoders.h"
#include "enginelib/kz_archiver.h"

class KzLhaArchiver final : public KzArchiver {
 public:
  KzLhaArchiver();
  ~KzLhaArchiver() override;  // 0

  // ---- slots (see KzArchiver for the order) ------------------------------
  HRESULT SetOptions(uint32_t optionId, intptr_t a, intptr_t b) override;         // 2
  HRESULT InitArchive(const wchar_t* path, intptr_t a, intptr_t b) override;      // 3
  HRESULT ListArchive(const KzList* selection, intptr_t selectionArgument,
                      intptr_t listArgument, KzList* list, ArchiveInfo* info) override;  // 4
  HRESULT ExtractFiles(const KzList* items, intptr_t selectionArgument,
                       const wchar_t* destDir, uint32_t flags) override;          // 5
  HRESULT TestArchive(const KzList* items, intptr_t selectionArgument) override;  // 6
  HRESULT CompressFiles(KzList* items, const wchar_t* baseDir, uint32_t flags) override;  // 7
  HRESULT DeleteFiles(const KzList* items, intptr_t selectionArgument) override;  // 8
  HRESULT CreateDirectory(intptr_t a, intptr_t b, intptr_t c) override;            // 9
  HRESULT CreateSfx(intptr_t a, intptr_t b, intptr_t c) override;                  // 10
  HRESULT RepairArchive(intptr_t a, intptr_t b, intptr_t c) override;              // 11
  HRESULT AddRecoveryData(intptr_t a, intptr_t b, intptr_t c) override;            // 12
  HRESULT StripRecoveryData(intptr_t a, intptr_t b, intptr_t c) override;          // 13
  HRESULT SetFileComments(intptr_t a, intptr_t b, intptr_t c) override;            // 14
  HRESULT SetArchiveComment(intptr_t a, intptr_t b, intptr_t c) override;          // 15
  HRESULT SetFileProperties(intptr_t a, intptr_t b, intptr_t c) override;          // 16
  HRESULT RenameFile(intptr_t a, intptr_t b, intptr_t c) override;                 // 17
  HRESULT Hook19() override;                                                       // 19
  HRESULT Hook20() override;                                                       // 20
  HRESULT AllocDecodeBuffers() override;                                           // 21
  void FreeDecodeBuffers() override;                                               // 22
  HRESULT EnumerateMembers(const KzList* selection, intptr_t selectionArgument,
                           KzList* list) override;                                 // 23
  HRESULT ExtractItems(const KzList* selection, intptr_t selectionArg, intptr_t directoryArg,
                       uint32_t finishArg) override;                               // 24
  HRESULT AllocEncodeBuffers() override;                                           // 25
  void FreeEncodeBuffers() override;                                               // 26
  HRESULT CreateArchive(KzList* items) override;                                   // 27
  HRESULT AppendItems(KzList* items) override;                                     // 28
  HRESULT WriteArchiveEnd() override;                                              // 29
  HRESULT Hook30() override;                                                       // 30
  HRESULT Hook31() override;                                                       // 31
  HRESULT Hook32() override;                                                       // 32
  HRESULT Hook34() override;                                                       // 34
  HRESULT Hook35() override;                                                       // 35
  HRESULT Hook36() override;                                                       // 36
  uint32_t GetFirstHeaderOffset() override;                                        // 37

  // ---- opening (archiver/open.cpp) ---------------------------------------
  HRESULT FindFirstHeader(uint64_t& offset);
  static bool FileExists(const wchar_t* path);

  // ---- member headers (container/header_reader.cpp, header_writer.cpp) ---
  int32_t ReadMemberHeader(LhaHeader& record);
  int32_t ReadHeaderLevel01(uint64_t headerPos, LhaHeader& record);
  int32_t ReadHeaderLevel2(uint64_t headerPos, LhaHeader& record);
  uint8_t ReadHeaderByte();
  uint16_t ReadHeaderWord();
  int32_t WriteMemberHeader(uint8_t* header22, const PathString& name, uint32_t methodDigit);

  // ---- data (decode/decode_dispatch.cpp, container/compress_driver.cpp) ---
  HRESULT DecodeMember(LhaHeader& header);
  HRESULT CopyStored();
  int32_t CompressFile(const PathString& archiveName, const PathString& sourcePath,
                       uint8_t attributes);
  int32_t CopySourceStored();

  // ---- codecs, in construction order --------------------------------------
  kz::KzLha1Decoder Lha1Decoder;
  kz::KzLha5Decoder Lha5Decoder;
  kz::KzLha6Decoder Lha6Decoder;
  kz::KzLha7Decoder Lha7Decoder;
  kz::KzLha5Encoder Lha5Encoder;
  kz::KzLha6Encoder Lha6Encoder;
  kz::KzLha7Encoder Lha7Encoder;

  // ---- work buffers (decode: input, dictionary, lh1 output; encode: block,
  // output, hash head, hash chain, text, crowded). Three fields are shared
  // by both sets, as the two set-ups never overlap.
  uint8_t* InputOrBlockBuffer = nullptr;   // decode input 8192 / encode block 40960
  uint8_t* Lh1OrOutputBuffer = nullptr;    // lh1 output 8192 / encode output 16384
  uint8_t* DictionaryOrText = nullptr;     // 131372 bytes either way
  uint32_t* HashHeadTable = nullptr;
  uint32_t* HashChainTable = nullptr;
  uint8_t* CrowdedFlags = nullptr;
  uint32_t EncodeBlockBufferSize = 0;
};

// Name assembly shared by the two header readers: directory D (non-empty)
// and file-name source F into `name` (1024 characters). Returns false when
// removing D's last component leaves nothing (the caller decides).
bool AssembleMemberName(const wchar_t* directory, const wchar_t* fileName, wchar_t* name);
